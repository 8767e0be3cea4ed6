// Arbitrary job settings records against everything that takes one, on two printers: one like a
// real device, one with more features, options and constraints than a record has room for.
//
// Input: byte 0 the printer (bit 0), byte 1 the capability, byte 2 the conversion mode, byte 3
// the room for text, bytes 4 to 7 the shape of a destination record (dmSize, dmDriverExtra), byte
// 8 the byte count of the conversion, and from byte 16 on a job settings record. Records get
// exactly the memory that they declare, so the sanitizers see every step beyond.

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
#include "description/load_description.h"
#include "jobsettings/job_settings.h"

extern "C" const std::byte ksfaxui_resources[];
extern "C" const std::byte ksfaxui_resources_end[];

namespace {

using namespace ksfax;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::string OrdinaryPpd() {
    return "*PPD-Adobe: \"4.3\"\n*PrinterCaps: \"36866\"\n*LandscapeOrientation: Minus90\n"
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
    std::string ppd = "*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n";
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
        for (const char16_t* name : {u"Ordinary", u"Crowded"}) {
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
        std::memcpy(header, data, std::min(size, sizeof(header)));
        DEVMODEW shape = {};
        std::memcpy(static_cast<void*>(&shape), header, sizeof(header));
        const size_t declared = size_t{shape.dmSize} + shape.dmDriverExtra;
        size_ = std::max(declared, kDevModeHeaderSize);
        bytes_.reset(new uint8_t[size_]());
        std::memcpy(bytes_.get(), header, sizeof(header));
        std::memcpy(bytes_.get(), data, std::min(size, size_));
    }

    DEVMODEW* get() { return reinterpret_cast<DEVMODEW*>(bytes_.get()); }
    size_t size() const { return size_; }

  private:
    size_t size_;
    std::unique_ptr<uint8_t[]> bytes_;
};

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t headSize = 16;
    if (size < headSize) {
        return 0;
    }
    static Home home;
    for (const auto action : {0, 1, 2}) {
        Record record(data + headSize, size - headSize);
        if (action == 0) {
            MergeAndCopyOut(home, data, record);
        } else if (action == 1) {
            Convert(data, record);
        } else {
            Ask(home, data, record);
        }
    }
    return 0;
}
