// Arbitrary job settings records against everything that takes one, on two printers: one like a
// real device, one with more features, options and constraints than a record has room for.
//
// Input: byte 0 the printer (bit 0), byte 1 the capability, byte 2 the conversion mode, byte 3
// the room for text, bytes 4 to 7 the shape of a destination record (dmSize, dmDriverExtra), byte
// 8 the byte count of the conversion, bytes 9 to 15 what the printer has stored, and from byte 16
// on a job settings record. What is stored comes from that record's bytes too: byte 9 says what
// there is (bit 0 a default record, bit 1 a tray-form table, bit 2 a device record) and what of it
// is put right (bit 3 the table's length, bit 4 the record's checksum), bytes 10 to 12 where each
// begins, in steps of 8 bytes, bytes 13 and 14 how long the last two are, in steps of 4 bytes, byte
// 15 how far their size values are from the truth. With bit 5 of byte 9 the default record is cut
// to the bytes that there are. Records get exactly the memory that they declare, so the sanitizers
// see every step beyond.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/spooler.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/load_description.h"
#include "description/printer_description.h"
#include "jobsettings/job_settings.h"

extern "C" const std::byte ksfaxui_resources[];
extern "C" const std::byte ksfaxui_resources_end[];

namespace {

using namespace ksfax;

constexpr size_t kHeadSize = 16;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::string OrdinaryPpd() {
    return "*PPD-Adobe: \"4.3\"\n*FileVersion: \"1.0\"\n"
           "*PrinterCaps: \"36866\"\n*LandscapeOrientation: Minus90\n"
           "*OpenUI *PageSize: PickOne\n*DefaultPageSize: A4\n*PageSize A4: \"\"\n"
           "*PageSize Letter: \"\"\n*CloseUI: *PageSize\n*PaperDimension A4: \"595 842\"\n"
           "*OpenUI *Paper: PickOne\n*Paper A4: \"9\"\n*Paper Letter: \"1\"\n"
           "*Paper Roll: \"300\"\n*Paper Own: \"256\"\n*CloseUI: *Paper\n"
           "*OpenUI *InputSlot: PickOne\n*InputSlot Upper: \"\"\n*CloseUI: *InputSlot\n"
           "*OpenUI *Resolution: PickOne\n*DefaultResolution: 200dpi\n*Resolution 200dpi: \"\"\n"
           "*Resolution 1200dpi: \"\"\n*CloseUI: *Resolution\n"
           "*UIConstraints: *PageSize Letter *InputSlot Upper\n";
}

std::string CrowdedPpd() {
    std::string ppd = "*PPD-Adobe: \"4.3\"\n*FileVersion: \"1.0\"\n*OpenUI *PageSize: PickOne\n";
    for (int i = 0; i < 300; ++i) {
        ppd += "*PageSize P" + std::to_string(i) + ": \"\"\n";
    }
    ppd += "*CloseUI: *PageSize\n";
    const auto addFeatures = [&](const std::string& name) {
        for (int i = 0; i < 80; ++i) {
            const std::string keyword = name + std::to_string(i);
            ppd += "*OpenUI *" + keyword + ": PickOne\n*" + keyword + " None: \"\"\n*" + keyword +
                   " On: \"\"\n*CloseUI: *" + keyword + "\n";
        }
    };
    addFeatures("Choice");
    ppd += "*OpenUI *Resolution: PickOne\n*Resolution fine: \"\"\n*CloseUI: *Resolution\n"
           "*OpenGroup: InstallableOptions\n";
    addFeatures("Built");
    ppd += "*CloseGroup: InstallableOptions\n";
    for (int i = 0; i < 79; ++i) {
        ppd += "*UIConstraints: *Choice" + std::to_string(i) + " On *Choice" +
               std::to_string(i + 1) + " On\n*UIConstraints: *Built" + std::to_string(i) +
               " *Choice" + std::to_string(i) + " On\n";
    }
    return ppd;
}

constexpr const char16_t* kPrinterNames[] = {u"Ordinary", u"Crowded"};

class Home {
  public:
    Home() {
        const std::u16string path = u"C:\\Drivers\\KSFAXUI.DLL";
        machine_.modules().Install(
            {.path = path,
             .exports = {},
             .resources = std::span(ksfaxui_resources, ksfaxui_resources_end)});
        module_ = LoadLibraryW(path.c_str());
        DllMain(module_, DLL_PROCESS_ATTACH, nullptr);
        Add(u"Ordinary", OrdinaryPpd());
        Add(u"Crowded", CrowdedPpd());
        for (const char16_t* name : kPrinterNames) {
            std::u16string writable(name);
            HANDLE printer = nullptr;
            Require(OpenPrinterW(writable.data(), &printer, nullptr));
            printers.push_back(printer);
            // Not by way of the cache, which holds one and would be full for the whole run: every
            // question to the other printer would then load anew.
            const std::u16string path = Path(name);
            descriptions.push_back(LoadPrinterDescription(path.c_str()));
            Require(descriptions.back() != nullptr);
        }
    }

    ~Home() {
        for (size_t i = 0; i < printers.size(); ++i) {
            GlobalFree(descriptions[i]);
            ClosePrinter(printers[i]);
        }
        DllMain(module_, DLL_PROCESS_DETACH, nullptr);
    }

    embedded::Spooler& spooler() { return machine_.spooler(); }

    std::vector<HANDLE> printers;
    std::vector<PrinterDescription*> descriptions;

  private:
    static std::u16string Path(const std::u16string& name) {
        return u"C:\\Drivers\\" + name + u".PPD";
    }
    void Add(const std::u16string& name, const std::string& ppd) {
        const std::u16string path = Path(name);
        const std::filesystem::path host = machine_.files().HostPath(path);
        std::filesystem::create_directories(host.parent_path());
        std::ofstream(host, std::ios::binary) << ppd;
        machine_.spooler().AddDriver({.name = name, .dataFile = path});
        machine_.spooler().AddPrinter({.name = name, .driverName = name});
    }

    embedded::Machine machine_;
    HMODULE module_ = nullptr;
};

// A record in exactly as much memory as its header declares, at least a header's.
class Record {
  public:
    Record(const uint8_t* data, size_t size) {
        uint8_t header[kDevModeHeaderSize] = {};
        std::copy_n(data, std::min(size, sizeof(header)), header);  // data may be null, size then 0
        DEVMODEW shape = {};
        std::memcpy(static_cast<void*>(&shape), header, sizeof(header));
        const size_t declared = size_t{shape.dmSize} + shape.dmDriverExtra;
        size_ = std::max(declared, kDevModeHeaderSize);
        bytes_.reset(new uint8_t[size_]());
        std::memcpy(bytes_.get(), header, sizeof(header));
        std::copy_n(data, std::min(size, size_), bytes_.get());
    }

    DEVMODEW* get() { return reinterpret_cast<DEVMODEW*>(bytes_.get()); }
    size_t size() const { return size_; }

  private:
    size_t size_;
    std::unique_ptr<uint8_t[]> bytes_;
};

using Bytes = std::vector<std::byte>;

// The bytes of the input from the `step`-th step behind the head on, at most `most` of them.
Bytes Slice(const uint8_t* data, size_t size, size_t step, size_t most) {
    const size_t start = std::min(size, kHeadSize + step * 8);
    const auto* first = reinterpret_cast<const std::byte*>(data + start);
    return Bytes(first, first + std::min(most, size - start));
}

void PutWord(Bytes* bytes, size_t offset, size_t word) {
    if (bytes->size() >= offset + 2) {
        (*bytes)[offset] = std::byte(word);
        (*bytes)[offset + 1] = std::byte(word >> 8);
    }
}

void StoreBlock(embedded::Spooler& spooler, const char16_t* printer, const char16_t* sizeName,
                const char16_t* dataName, const Bytes& block, int8_t lie) {
    spooler.SetPrinterData(printer, sizeName,
                           embedded::StoredNumber(static_cast<DWORD>(block.size() + lie)));
    spooler.SetPrinterData(printer, dataName, {.type = REG_BINARY, .data = block});
}

void StoreWhatThePrinterHas(Home& home, const uint8_t* data, size_t size) {
    const char16_t* name = kPrinterNames[data[0] & 1];
    embedded::Printer printer = {.name = name, .driverName = name};
    if ((data[9] & 1) != 0) {
        const Bytes bytes = Slice(data, size, data[10], SIZE_MAX);
        Record record(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        const auto* first = reinterpret_cast<const std::byte*>(record.get());
        const size_t stored =
            (data[9] & 32) != 0 ? std::min(bytes.size(), record.size()) : record.size();
        printer.defaultSettings.assign(first, first + stored);
    }
    home.spooler().AddPrinter(std::move(printer));  // in place of what it was
    const auto lie = static_cast<int8_t>(data[15]);
    if ((data[9] & 2) != 0) {
        Bytes table = Slice(data, size, data[11], data[13] * size_t{4});
        if ((data[9] & 8) != 0) {
            PutWord(&table, 0, table.size());
        }
        StoreBlock(home.spooler(), name, u"TrayFormSize", u"TrayFormTable", table, lie);
    }
    if ((data[9] & 4) != 0) {
        Bytes record = Slice(data, size, data[12], data[14] * size_t{4});
        if ((data[9] & 16) != 0) {
            PutWord(&record, offsetof(PrinterDataRecord, descriptionChecksum),
                    home.descriptions[data[0] & 1]->Checksum);
        }
        StoreBlock(home.spooler(), name, u"PrinterDataSize", u"PrinterData", record, lie);
    }
}

Record Destination(const uint8_t* head) {
    uint8_t header[kDevModeHeaderSize] = {};
    header[64] = 1;  // dmSpecVersion
    std::memcpy(header + 68, head + 4, 4);
    return Record(header, sizeof(header));
}

void MergeAndCopyOut(Home& home, const uint8_t* head, Record& record) {
    const PrinterDescription& description = *home.descriptions[head[0] & 1];
    JobSettings settings;
    BuildDefaultJobSettings(&settings, TEXT("Fuzz"), description, (head[0] & 2) != 0);
    if (MergeJobSettings(&settings, record.get(), description)) {
        const DEVMODEW& devMode = settings.devMode;
        Require(devMode.dmSize == 220 && devMode.dmDriverExtra == 2388);
        Require(devMode.dmSpecVersion == 0x401 && devMode.dmDriverVersion == 0x104);
        Require(devMode.dmOrientation == 1 || devMode.dmOrientation == 2);
        Require(devMode.dmScale == 100 && devMode.dmCopies == 1 && devMode.dmCollate == 0);
        Require(devMode.dmFormName[31] == 0);
    }
    DeriveJobBlock(&settings);
    Record output = Destination(head);
    Record shape = Destination(head);
    (void)CopyJobSettingsOut(settings, shape.get(), output.get());
    (void)ConvertJobSettings(record.get(), output.get());
}

void Convert(const uint8_t* head, Record& record) {
    Record output = Destination(head);
    LONG bytes = head[8] == 255 ? static_cast<LONG>(output.size()) : head[8];
    if (head[2] == CDM_CONVERT351) {
        const std::unique_ptr<uint8_t[]> earlier(new uint8_t[300]());
        bytes = 300;
        (void)DrvConvertDevMode(nullptr, record.get(), reinterpret_cast<DEVMODEW*>(earlier.get()),
                                &bytes, CDM_CONVERT351);
        return;
    }
    (void)DrvConvertDevMode(nullptr, record.get(), output.get(), &bytes,
                            head[2] == CDM_DRIVER_DEFAULT ? CDM_CONVERT : head[2]);
}

void Ask(Home& home, const uint8_t* head, Record& record) {
    const HANDLE printer = home.printers[head[0] & 1];
    const DWORD count = DrvDeviceCapabilities(printer, nullptr, head[1], nullptr, record.get());
    const bool isList = head[1] == DC_PAPERS || head[1] == DC_PAPERSIZE ||
                        head[1] == DC_PAPERNAMES || head[1] == DC_MEDIAREADY ||
                        head[1] == DC_ENUMRESOLUTIONS;
    if (isList && count != GDI_ERROR) {
        const size_t item = head[1] == DC_PAPERS                                       ? 2
                            : head[1] == DC_PAPERSIZE || head[1] == DC_ENUMRESOLUTIONS ? 8
                                                                                       : 128;
        const std::unique_ptr<uint8_t[]> output(new uint8_t[count * item]());
        Require(DrvDeviceCapabilities(printer, nullptr, head[1], output.get(), record.get()) ==
                count);
    }
    const std::unique_ptr<WCHAR[]> text(new WCHAR[head[3]]);
    DEVQUERYPRINT_INFO query = {sizeof(query), 1, printer, record.get(), text.get(), head[3], 0};
    if (!DevQueryPrintEx(&query)) {
        Require(query.cchNeeded > 1);
        Require(head[3] == 0 ||
                std::find(text.get(), text.get() + head[3], u'\0') != text.get() + head[3]);
    }
}

// A device context's creation confirms the record or leaves what is there.
void CreateContext(Record& record) {
    DOCEVENT_CREATEDCPRE created = {};
    created.pdm = record.get();
    DEVMODEW* confirmed = nullptr;
    Require(DrvDocumentEvent(nullptr, nullptr, DOCUMENTEVENT_CREATEDCPRE, sizeof(created), &created,
                             sizeof(confirmed), &confirmed) == 1);
    Require(confirmed == nullptr || confirmed == record.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHeadSize) {
        return 0;
    }
    static Home home;
    StoreWhatThePrinterHas(home, data, size);
    for (const auto action : {0, 1, 2, 3}) {
        Record record(data + kHeadSize, size - kHeadSize);
        if (action == 0) {
            MergeAndCopyOut(home, data, record);
        } else if (action == 1) {
            Convert(data, record);
        } else if (action == 2) {
            Ask(home, data, record);
        } else {
            CreateContext(record);
        }
    }
    return 0;
}
