#include "tests/windows/installed_printer.h"

#include "tests/windows/driver_answers.h"

namespace fs = std::filesystem;

namespace {

constexpr WCHAR kPrintersKey[] = TEXT("System\\CurrentControlSet\\Control\\Print\\Printers\\");

void SetText(HKEY key, const WCHAR* value, const std::wstring& text) {
    RegSetValueExW(key, value, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
}

}  // namespace

fs::path ProgramFolder() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

InstalledPrinter::InstalledPrinter(const std::wstring& driverName, const std::wstring& printerName,
                                   const DEVMODEW& defaults, const fs::path& dataFile)
    : printerName_(printerName) {
    if (!InstallDriver(driverName, dataFile) || !InstallPrinter(driverName, defaults)) {
        return;
    }
    PRINTER_DEFAULTSW access = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    if (!OpenPrinterW(printerName_.data(), &handle_, &access)) {
        handle_ = nullptr;
        Fail("OpenPrinterW");
        return;
    }
    module_ = platform::LoadedModule(LoadLibraryW((folder_ / TEXT("KSFAXUI.DLL")).c_str()));
    if (!module_) {
        Fail("LoadLibraryW");
    }
}

InstalledPrinter::~InstalledPrinter() {
    if (handle_ != nullptr) {
        ClosePrinter(handle_);
    }
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kPrintersKey + printerName_).c_str());
}

void InstalledPrinter::ForgetStoredData() const {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE,
                   (kPrintersKey + printerName_ + TEXT("\\PrinterDriverData")).c_str());
}

bool InstalledPrinter::InstallDriver(const std::wstring& name, const fs::path& dataFile) {
    WCHAR directory[MAX_PATH] = {};
    DWORD needed = 0;
    if (!GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(directory),
                                    sizeof directory, &needed)) {
        return Fail("GetPrinterDriverDirectoryW");
    }
    // The spooler takes the files from here and keeps them in a folder of the driver's version.
    const fs::path from = directory;
    folder_ = from / TEXT("3");
    if (dataFile.empty()) {
        return true;
    }
    const fs::path dll = ProgramFolder() / TEXT("KSFAXUI.DLL");
    // No page is rendered: any module passes for the rendering one.
    std::wstring rendering = (from / TEXT("KSFAXR.DLL")).wstring();
    std::wstring data = (from / dataFile.filename()).wstring();
    std::wstring config = (from / TEXT("KSFAXUI.DLL")).wstring();
    std::error_code failed;
    fs::create_directories(folder_, failed);
    fs::remove((folder_ / dataFile.filename()).replace_extension(TEXT("PDC")), failed);
    if (!CopyFileW(dll.c_str(), rendering.c_str(), FALSE) ||
        !CopyFileW(dll.c_str(), config.c_str(), FALSE) ||
        !CopyFileW(dataFile.c_str(), data.c_str(), FALSE)) {
        return Fail("CopyFileW");
    }
    std::wstring driverName = name;
    WCHAR environment[] = TEXT("Windows x64");
    WCHAR none[] = TEXT("");
    DRIVER_INFO_3W driver = {};
    driver.cVersion = 3;
    driver.pName = driverName.data();
    driver.pEnvironment = environment;
    driver.pDriverPath = rendering.data();
    driver.pDataFile = data.data();
    driver.pConfigFile = config.data();
    driver.pHelpFile = none;
    driver.pDependentFiles = nullptr;
    driver.pMonitorName = none;
    driver.pDefaultDataType = nullptr;
    return AddPrinterDriverW(nullptr, 3, reinterpret_cast<BYTE*>(&driver)) ||
           Fail("AddPrinterDriverW");
}

// Written where the spooler keeps its printers. AddPrinterW is no way: it asks the driver for its
// default record through the property sheet entry points, which this DLL may not have.
bool InstalledPrinter::InstallPrinter(const std::wstring& driverName, const DEVMODEW& defaults) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, (kPrintersKey + printerName_).c_str(), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS) {
        return Fail("RegCreateKeyExW");
    }
    SetText(key, TEXT("Name"), printerName_);
    SetText(key, TEXT("Printer Driver"), driverName);
    SetText(key, TEXT("Port"), TEXT("FILE:"));
    SetText(key, TEXT("Print Processor"), TEXT("winprint"));
    SetText(key, TEXT("Datatype"), TEXT("RAW"));
    for (const WCHAR* value : {TEXT("Description"), TEXT("Location"), TEXT("Parameters"),
                               TEXT("Separator File"), TEXT("Share Name")}) {
        SetText(key, value, TEXT(""));
    }
    // Wine keeps the record with 8-bit texts and widens it for who asks.
    DEVMODEA stored = {};
    stored.dmSpecVersion = defaults.dmSpecVersion;
    stored.dmDriverVersion = defaults.dmDriverVersion;
    stored.dmSize = sizeof stored;
    stored.dmFields = defaults.dmFields;
    stored.dmPaperSize = defaults.dmPaperSize;
    RegSetValueExW(key, TEXT("Default DevMode"), 0, REG_BINARY,
                   reinterpret_cast<const BYTE*>(&stored), sizeof stored);
    RegCloseKey(key);
    return true;
}

bool InstalledPrinter::Fail(const char* step) {
    error_ = std::string(step) + " failed with error " + std::to_string(GetLastError());
    return false;
}

const InstalledPrinter& SharedPrinter() {
    static const InstalledPrinter printer(
        answers::kDriverName, answers::kPrinterName, answers::PrinterDefaults(),
        fs::path(SOURCE_FOLDER "/examples") / answers::kDataFileName);
    return printer;
}
