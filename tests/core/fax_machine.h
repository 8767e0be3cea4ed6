#pragma once

// An embedded machine with the driver loaded and printers installed, for tests of everything that
// takes a printer handle.

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/memory.h"
#include "platform/embedded/spooler.h"
#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/printer_description.h"
#include "tests/faults.h"
#include "tool/loaded_driver.h"

// A fax device with four papers (one of no size), two resolutions, two sources, installed memory
// and two trays that cannot be installed together.
inline const std::string kFaxPpd = [] {
    std::ifstream file(SOURCE_FOLDER "/tests/golden/core/fax.ppd");
    return std::string{std::istreambuf_iterator<char>(file), {}};
}();

using Bytes = std::vector<std::byte>;

inline Bytes BytesOf(const void* data, size_t length) {
    const auto* bytes = static_cast<const std::byte*>(data);
    return Bytes(bytes, bytes + length);
}
inline Bytes BytesOf(std::string_view text) {
    return BytesOf(text.data(), text.size());
}
inline Bytes BytesOf(std::u16string_view text) {
    return BytesOf(text.data(), text.size() * 2);
}

class FaxMachine {
  public:
    static constexpr char16_t kPrinter[] = u"Fax";

    explicit FaxMachine(embedded::MachineSetup setup = {}) : machine(std::move(setup)) {
        AddPrinter(kPrinter, u"C:\\Ppd\\FAX.PPD", kFaxPpd);
    }

    // A printer, a driver of its own of the same name, and the driver's data file.
    void AddPrinter(std::u16string name, std::u16string dataFile, std::string_view ppd) {
        WriteFile(dataFile, ppd);
        machine.spooler().AddDriver({.name = name, .dataFile = std::move(dataFile)});
        machine.spooler().AddPrinter({.name = name, .driverName = name});
    }

    void WriteFile(std::u16string_view path, std::string_view bytes) {
        const auto hostPath = machine.files().HostPath(path);
        std::filesystem::create_directories(hostPath.parent_path());
        std::ofstream(hostPath, std::ios::binary) << bytes;
    }

    // The printer's data values, past any access check.
    void Store(std::u16string_view name, DWORD number) {
        machine.spooler().SetPrinterData(kPrinter, name, embedded::StoredNumber(number));
    }
    void Store(std::u16string_view name, Bytes bytes) {
        machine.spooler().SetPrinterData(kPrinter, name,
                                         {.type = REG_BINARY, .data = std::move(bytes)});
    }
    std::optional<Bytes> Stored(std::u16string_view name) {
        const auto value = machine.spooler().PrinterData(kPrinter, name);
        return value ? std::optional(value->data) : std::nullopt;
    }
    std::optional<DWORD> StoredNumber(std::u16string_view name) {
        const auto value = Stored(name);
        DWORD number = 0;
        if (!value || value->size() != sizeof(number)) {
            return std::nullopt;
        }
        std::memcpy(&number, value->data(), sizeof(number));
        return number;
    }
    void Forget(std::u16string_view name) { machine.spooler().RemovePrinterData(kPrinter, name); }
    // With a size value that is `missing` bytes too high.
    void StoreTable(const Bytes& table, size_t missing = 0) {
        Store(u"TrayFormSize", static_cast<DWORD>(table.size() + missing));
        Store(u"TrayFormTable", table);
    }
    // A device record that the description's own defaults are told from.
    static ksfax::PrinterDataRecord DeviceRecord() {
        ksfax::PrinterDataRecord record = {};
        record.version = 260;
        record.size = 108;
        record.memoryBytes = 77;
        return record;
    }
    void StoreDeviceRecord(const ksfax::PrinterDataRecord& record,
                           size_t length = sizeof(ksfax::PrinterDataRecord)) {
        Store(u"PrinterDataSize", static_cast<DWORD>(length));
        Store(u"PrinterData", BytesOf(&record, length));
    }
    ksfax::PrinterDataRecord StoredDeviceRecord() {
        ksfax::PrinterDataRecord record = {};
        const Bytes bytes = Stored(u"PrinterData").value_or(Bytes());
        EXPECT_EQ(bytes.size(), sizeof(record));
        std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
        return record;
    }

    // What the printer's description says now, by way of the cache.
    uint16_t Checksum() {
        const platform::PrinterHandle printer = Open();
        const ksfax::DescriptionUse description(ksfax::AcquireDescription(printer.get(), true));
        return description.get()->Checksum;
    }
    // The printer's data file becomes another, as an administrator puts it there; cached
    // descriptions that lie on the disk are gone with the old one.
    void ChangePpd(std::string_view more) {
        WriteFile(u"C:\\Ppd\\FAX.PPD", kFaxPpd + std::string(more));
        RemoveFile(u"C:\\Ppd\\FAX.PDC");
    }
    void RemoveFile(std::u16string_view path) {
        std::filesystem::remove(machine.files().HostPath(path));
    }

    // With the right to print alone, or with every right.
    platform::PrinterHandle Open(std::u16string name = kPrinter, bool asAdministrator = false) {
        PRINTER_DEFAULTSW defaults = {
            .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
        HANDLE handle = nullptr;
        if (!OpenPrinterW(name.data(), &handle, asAdministrator ? &defaults : nullptr)) {
            throw std::runtime_error("the embedded machine refuses to open a printer");
        }
        return platform::PrinterHandle(handle);
    }

    // What is open and taken, without the description that the cache may keep.
    embedded::Leaks OpenWithoutCache() {
        ksfax::DiscardDescriptionCache();
        return machine.OpenNow();
    }

    // UnderFaults for what takes a printer handle: nothing may stay locked or impersonated either.
    void FailEachCall(const std::function<void()>& prepare, const std::function<void()>& action,
                      const std::function<void(const std::string& failed)>& check) {
        UnderFaults(machine, {.prepare = prepare,
                              .act = action,
                              .holds =
                                  [&](const FailedCall& failed) {
                                      if (!failed.andAllLater) {
                                          check(failed.name);
                                      }
                                      EXPECT_FALSE(embedded::IsHeldByAnyone(ksfax::moduleLock));
                                      EXPECT_TRUE(machine.spooler().ThreadActsForClient());
                                  },
                              .open = [this] { return OpenWithoutCache(); }});
    }

    embedded::Machine machine;
    tool::LoadedDriver driver{machine};
};
