#include "tests/windows/installed_printer.h"

#include "tests/windows/driver_answers.h"

namespace fs = std::filesystem;

namespace {

// Where the spooler keeps a driver's files; it takes them from the folder above.
fs::path SpoolerFolder() {
    WCHAR directory[MAX_PATH] = {};
    DWORD needed = 0;
    GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(directory),
                               sizeof directory, &needed);
    return fs::path(directory) / TEXT("3");
}

// False when a step failed, which the last error tells.
bool InstallDriver() {
    const fs::path to = SpoolerFolder();
    const fs::path from = to.parent_path();
    std::error_code failed;
    fs::create_directories(to, failed);
    fs::remove(to / answers::kCacheFileName, failed);
    const fs::path dll = ProgramFolder() / TEXT("KSFAXUI.DLL");
    const fs::path dataFile = fs::path(SOURCE_FOLDER "/examples") / answers::kDataFileName;
    // No page is rendered: any module passes for the rendering one.
    std::wstring rendering = from / TEXT("KSFAXR.DLL");
    std::wstring data = from / answers::kDataFileName;
    std::wstring config = from / TEXT("KSFAXUI.DLL");
    std::wstring name = answers::kDriverName;
    WCHAR environment[] = TEXT("Windows x64");
    WCHAR none[] = TEXT("");
    DRIVER_INFO_3W driver = {};
    driver.cVersion = 3;
    driver.pName = name.data();
    driver.pEnvironment = environment;
    driver.pDriverPath = rendering.data();
    driver.pDataFile = data.data();
    driver.pConfigFile = config.data();
    driver.pHelpFile = driver.pMonitorName = none;
    return CopyFileW(dll.c_str(), rendering.c_str(), FALSE) &&
           CopyFileW(dll.c_str(), config.c_str(), FALSE) &&
           CopyFileW(dataFile.c_str(), data.c_str(), FALSE) &&
           AddPrinterDriverW(nullptr, 3, reinterpret_cast<BYTE*>(&driver));
}

// Written where the spooler keeps its printers. AddPrinterW is no way: it asks the driver for its
// default record through the property sheet entry points, which this DLL may not have.
void WritePrinter(const std::wstring& key, const std::wstring& name) {
    const std::pair<LPCWSTR, std::wstring> texts[] = {
        {TEXT("Name"), name},
        {TEXT("Printer Driver"), answers::kDriverName},
        {TEXT("Port"), TEXT("FILE:")},
        {TEXT("Print Processor"), TEXT("winprint")},
        {TEXT("Datatype"), TEXT("RAW")},
    };
    for (const auto& [value, text] : texts) {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, REG_SZ, text.c_str(),
                        static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    }
    // Wine keeps the record with 8-bit texts and widens it for who asks.
    const DEVMODEW defaults = answers::PrinterDefaults();
    DEVMODEA stored = {};
    stored.dmSpecVersion = defaults.dmSpecVersion;
    stored.dmDriverVersion = defaults.dmDriverVersion;
    stored.dmSize = sizeof stored;
    stored.dmFields = defaults.dmFields;
    stored.dmPaperSize = defaults.dmPaperSize;
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), TEXT("Default DevMode"), REG_BINARY, &stored,
                    sizeof stored);
}

}  // namespace

fs::path ProgramFolder() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

InstalledPrinter::InstalledPrinter(const std::wstring& name)
    : key_(TEXT("System\\CurrentControlSet\\Control\\Print\\Printers\\") + name),
      folder_(SpoolerFolder()) {
    static const bool isInstalled = InstallDriver();
    WritePrinter(key_, name);
    std::wstring printer = name;
    PRINTER_DEFAULTSW access = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    if (isInstalled && OpenPrinterW(printer.data(), &handle_, &access)) {
        module_ = platform::LoadedModule(LoadLibraryW((folder_ / TEXT("KSFAXUI.DLL")).c_str()));
    }
    if (!module_) {
        error_ = "the driver's installation failed with error " + std::to_string(GetLastError());
    }
}

InstalledPrinter::~InstalledPrinter() {
    ClosePrinter(handle_);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key_.c_str());
}

void InstalledPrinter::ForgetStoredData() const {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (key_ + TEXT("\\PrinterDriverData")).c_str());
}

const InstalledPrinter& SharedPrinter() {
    static const InstalledPrinter printer(answers::kPrinterName);
    return printer;
}
