// ksfax send: one fax from its start to its end, by the driver's document events; with a PPD the
// whole road, from the printer and its settings to the spooler's question whether it can print.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <pwd.h>
#include <unistd.h>
#include <vector>

#include "platform/embedded/files.h"
#include "platform/embedded/mapping.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "faxjob/companion.h"
#include "jobsettings/job_settings.h"
#include "tool/companion.h"
#include "tool/fax_input.h"
#include "tool/fax_printer.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/settings_choice.h"

namespace tool {

namespace {

// Of the 259 characters of a path the longest of a job's files, \KesXXXX_01.ini, takes 15.
constexpr size_t kLongestFaxFolder = 244;
constexpr size_t kLongestCoverPath = 259;
constexpr size_t kMostReceivers = 999;
constexpr size_t kReceiversUnlessToldOtherwise = 50;

struct SendOptions {
    MachineOptions machine;
    std::string ppd;
    SettingsOptions settings;
    std::vector<std::string> to;
    std::string receivers;
    std::string from;
    std::string cover;
    std::string memo;
    std::string out;
    std::optional<int64_t> maxReceivers;
    bool cancel = false;
    bool json = false;
};

std::string Today() {
    const std::time_t now = std::time(nullptr);
    char text[64];
    std::tm local = {};
    localtime_r(&now, &local);
    std::strftime(text, sizeof text, "%d %B %Y, %H:%M", &local);
    return text[0] == '0' ? text + 1 : text;
}

Receiver DefaultSender() {
    const passwd* user = getpwuid(getuid());
    return {user == nullptr ? u"" : embedded::Utf16(user->pw_name), u""};
}

DialogChoices ReadChoices(const SendOptions& options) {
    DialogChoices choices;
    choices.cancel = options.cancel;
    choices.date = embedded::Utf16(Today());
    choices.sender =
        options.from.empty() ? DefaultSender() : SenderFromOption("--from", options.from);
    for (const std::string& receiver : options.to) {
        choices.receivers.push_back(ReceiverFromOption("--to", receiver));
    }
    if (!options.receivers.empty()) {
        std::ranges::move(ReadReceiverList(options.receivers),
                          std::back_inserter(choices.receivers));
    }
    if (choices.receivers.empty() && !options.cancel) {
        throw UsageError("no receiver is given; add --to NAME=NUMBER or --receivers FILE");
    }
    if (!options.cover.empty()) {
        CheckCoverBitmap(options.cover);
        choices.coverBitmap = PathForIni(options.cover, kLongestCoverPath);
    }
    if (!options.memo.empty()) {
        choices.withMemo = true;
        choices.memo = ReadMemo(options.memo);
    }
    return choices;
}

// Where a job's files go when no folder is named; mkdtemp fills the Xs.
std::filesystem::path NewFolderPattern() {
    return std::filesystem::temp_directory_path() / "ksfax-job-XXXXXX";
}

std::filesystem::path NewFolder() {
    std::string name = NewFolderPattern().string();
    if (mkdtemp(name.data()) == nullptr) {
        throw UserError(name + ": the fax data folder cannot be made: " + std::strerror(errno) +
                        "; give one with --out");
    }
    return name;
}

void MakeFaxFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || access(folder.c_str(), W_OK | X_OK) != 0) {
        throw UserError(folder.string() + ": the fax data folder cannot be made or written: " +
                        (error ? error.message() : std::strerror(errno)) +
                        "; choose another one with --out");
    }
}

// The shared memory that carries the job from its start to its end.
struct SharedMemory {
    std::string name;
    uint64_t size = 0;  // 0: there is none
    bool gone = false;
};

// What a PPD adds to the road.
struct PrinterReport {
    std::filesystem::path ppd;
    bool isNew = false;  // installed for this fax
    size_t newForms = 0;
    PageShape pages = {};
    PrintAnswer answer = {};
};

struct FaxReport {
    std::optional<PrinterReport> printer;
    bool confirmed = false;  // the device context takes the record handed in
    bool cancelled = true;
    std::optional<unsigned> maxReceivers;
    size_t receivers = 0;
    std::string refusal;
    std::string failure;  // empty: none
    std::filesystem::path folder, iniFile, snapshot, coverBitmap, memo, temp;
    std::vector<std::filesystem::path> dialFiles;
    SharedMemory mapping;
    std::filesystem::path coverPage;
};

SharedMemory LookAtMapping(embedded::Machine& machine, HANDLE printer) {
    SharedMemory found;
    char name[16];
    std::snprintf(name, sizeof name, "%xCVP", unsigned(reinterpret_cast<uintptr_t>(printer)));
    found.name = name;
    found.size = machine.mappings().SizeOf(embedded::Utf16(found.name));
    return found;
}

std::u16string ReadKey(const WCHAR* section, const WCHAR* key) {
    WCHAR value[520];
    const DWORD length = GetPrivateProfileStringW(section, key, TEXT(""), value, std::size(value),
                                                  TEXT(KSFAX_JOB_FILE));
    return {value, length};
}

std::filesystem::path ReadPathKey(embedded::Machine& machine, const WCHAR* key) {
    const std::u16string path = ReadKey(TEXT(KSFAX_DATA_SECTION), key);
    return path.empty() ? std::filesystem::path() : machine.files().HostPath(path);
}

void SendEvent(HANDLE printer, int event) {
    DrvDocumentEvent(printer, nullptr, event, 0, nullptr, 0, nullptr);
}

bool ConfirmDeviceContext(HANDLE printer, ksfax::JobSettings& settings) {
    DOCEVENT_CREATEDCPRE input = {
        .pszDriver = nullptr, .pszDevice = nullptr, .pdm = &settings.devMode, .bIC = FALSE};
    DEVMODEW* chosen = nullptr;
    DrvDocumentEvent(printer, nullptr, DOCUMENTEVENT_CREATEDCPRE, sizeof input, &input,
                     sizeof chosen, &chosen);
    return chosen == &settings.devMode;
}

// No more than what the driver looks for at the creation of a device context.
ksfax::JobSettings BareSettings() {
    ksfax::JobSettings settings = {};
    settings.devMode.dmSpecVersion = ksfax::kSpecVersion;
    settings.devMode.dmDriverVersion = ksfax::kDriverVersion;
    settings.devMode.dmSize = ksfax::kPublicSize;
    settings.devMode.dmDriverExtra = ksfax::kPrivateSize;
    ksfax::PrivatePart(settings).signature = ksfax::kPrivateSignature;
    return settings;
}

// The dial files that the job's pattern names, in order.
std::vector<std::filesystem::path> FindDialFiles(embedded::Machine& machine) {
    constexpr std::u16string_view kEnd = u"_%02d.ini";
    std::vector<std::filesystem::path> files;
    std::u16string base = ReadKey(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_DIAL_PATTERN_KEY));
    if (!base.ends_with(kEnd)) {
        return files;
    }
    base.resize(base.size() - kEnd.size());
    for (int part = 1;; ++part) {
        char end[24];
        std::snprintf(end, sizeof end, "_%02d.ini", part);
        const std::filesystem::path file = machine.files().HostPath(base + embedded::Utf16(end));
        if (!std::filesystem::exists(file)) {
            return files;
        }
        files.push_back(file);
    }
}

// Sets the printer up: with a PPD as installed with it, without one just there to be opened.
// Gives whether it was not installed with the PPD before.
bool SetPrinterUp(embedded::Machine& machine, const SendOptions& options) {
    if (options.ppd.empty()) {
        if (!machine.spooler().FindPrinter(kPrinterName)) {
            machine.spooler().AddPrinter({.name = kPrinterName, .driverName = kDriverName});
        }
        return false;
    }
    const std::filesystem::path installed = InstalledPpd(machine);
    if (installed.empty()) {
        InstallFaxPrinter(machine, options.ppd);
        return true;
    }
    if (installed != machine.files().HostPath(PpdPath(options.ppd))) {
        const std::string& folder = options.machine.folder;
        throw UserError(folder + ": the machine's printer is installed with " +
                        ShownPath(installed) + "; give that PPD, or first ksfax install " +
                        options.ppd + " --machine " + folder);
    }
    return false;
}

// The user looks at the printer's settings, changes them on the driver's page and confirms them:
// the record that the application goes on with.
ksfax::JobSettings SettleSettings(embedded::Machine& machine, HANDLE printer,
                                  const SendOptions& options, PrinterReport& report) {
    const ksfax::DescriptionUse description(ksfax::AcquireDescription(printer, true));
    if (!description) {
        throw UserError(options.ppd + ": the driver has no description of the printer, error " +
                        std::to_string(GetLastError()));
    }
    const size_t forms = machine.spooler().forms().size();
    const ksfax::JobSettings settings = ChooseOnSheet(
        machine, printer, FindSettings(*description.get(), options.ppd, options.settings));
    report.newForms = machine.spooler().forms().size() - forms;
    report.pages = ShapeOfPages(settings, *description.get());
    return settings;
}

void WriteKey(const WCHAR* section, const WCHAR* key, const std::u16string& value) {
    // Unwritten, the driver would go by what an earlier job left.
    if (!WritePrivateProfileStringW(section, key, value.c_str(), TEXT(KSFAX_JOB_FILE))) {
        throw UserError("the machine's C:\\Windows\\KSFAXJOB.INI cannot be written, error " +
                        std::to_string(GetLastError()) + "; make the file writable or remove it");
    }
}

// The maximum number of receivers as an administrator would have set it, for one job.
class MaximumReceivers {
  public:
    MaximumReceivers(std::optional<int64_t> wanted, size_t receivers) {
        if (wanted) {
            Write(std::to_string(*wanted));
        } else if (receivers > kReceiversUnlessToldOtherwise &&
                   ReadKey(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_MAXIMUM_KEY)).empty()) {
            Write(std::to_string(std::min(receivers, kMostReceivers)));
            passing_ = true;
        }
    }
    // What was raised for this list alone does not stay on a kept machine.
    ~MaximumReceivers() {
        if (passing_) {
            WritePrivateProfileStringW(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_MAXIMUM_KEY), nullptr,
                                       TEXT(KSFAX_JOB_FILE));
        }
    }
    MaximumReceivers(const MaximumReceivers&) = delete;
    MaximumReceivers& operator=(const MaximumReceivers&) = delete;

  private:
    static void Write(const std::string& value) {
        WriteKey(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_MAXIMUM_KEY), embedded::Utf16(value));
    }
    bool passing_ = false;
};

FaxReport SendFax(MachineRun& run, HANDLE printer, bool isNew, DialogChoices choices,
                  const SendOptions& options, const std::filesystem::path& folder) {
    embedded::Machine& machine = run.machine();
    FaxReport report;
    report.folder = folder;
    ksfax::JobSettings settings = BareSettings();
    if (!options.ppd.empty()) {
        report.printer.emplace(PrinterReport{.ppd = WholePath(options.ppd), .isNew = isNew});
        settings = SettleSettings(machine, printer, options, *report.printer);
    }
    report.receivers = choices.receivers.size();
    const MaximumReceivers maximum(options.maxReceivers, choices.receivers.size());
    WriteKey(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_FOLDER_KEY), machine.files().MachinePath(folder));
    Companion companion(machine, std::move(choices));

    report.confirmed = ConfirmDeviceContext(printer, settings);

    SendEvent(printer, DOCUMENTEVENT_STARTDOC);
    report.cancelled = !companion.isConfirmed ||
                       ReadKey(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_CANCELLED_KEY)) != u"0";
    if (companion.dialogShown) {
        report.maxReceivers = companion.maximumReceivers;
    }
    report.refusal = companion.dialogRefusal;
    report.iniFile = machine.files().HostPath(u"C:\\Windows\\KSFAXJOB.INI");
    report.snapshot = ReadPathKey(machine, TEXT(KSFAX_SNAPSHOT_KEY));
    report.coverBitmap = ReadPathKey(machine, TEXT(KSFAX_COVER_COPY_KEY));
    report.memo = ReadPathKey(machine, TEXT(KSFAX_MEMO_COPY_KEY));
    report.temp = ReadPathKey(machine, TEXT(KSFAX_RESERVATION_KEY));
    report.dialFiles = FindDialFiles(machine);
    report.mapping = LookAtMapping(machine, printer);

    // The application's one page; the rendering module would draw it.
    SendEvent(printer, DOCUMENTEVENT_STARTPAGE);
    SendEvent(printer, DOCUMENTEVENT_ENDPAGE);
    SendEvent(printer, DOCUMENTEVENT_ENDDOC);
    report.mapping.gone = LookAtMapping(machine, printer).size == 0;
    report.coverPage = companion.coverPage;
    if (report.printer) {
        report.printer->answer = AskWhetherCanPrint(run.instance(), printer, &settings.devMode);
    }
    report.failure = companion.failure;
    if (report.failure.empty() && !report.cancelled && report.coverPage.empty()) {
        report.failure =
            folder.string() + ": no cover page was made; see that files can be made in this folder";
    }
    return report;
}

const char* Orientation(const PageShape& pages) {
    return pages.isLandscape ? "landscape" : "portrait";
}

void PrintReport(const FaxReport& report) {
    nlohmann::ordered_json dialFiles = nlohmann::ordered_json::array();
    for (const std::filesystem::path& file : report.dialFiles) {
        dialFiles.push_back(JsonPath(file));
    }
    nlohmann::ordered_json json = {
        {"cancelled", report.cancelled},
        {"maxReceivers", report.maxReceivers ? nlohmann::ordered_json(*report.maxReceivers)
                                             : nlohmann::ordered_json()},
        {"iniFile", JsonPath(report.iniFile)},
        {"snapshot", JsonPath(report.snapshot)},
        {"coverBitmap", JsonPath(report.coverBitmap)},
        {"memo", JsonPath(report.memo)},
        {"temp", JsonPath(report.temp)},
        {"dialFiles", dialFiles},
        {"mappingName", report.mapping.name},
        {"mappingSize", report.mapping.size},
        {"mappingGone", report.mapping.gone},
        {"coverPage", JsonPath(report.coverPage)}};
    if (report.printer) {
        const PageShape& pages = report.printer->pages;
        json["settings"] = {{"paper", pages.paper},
                            {"paperCode", pages.paperCode},
                            {"orientation", Orientation(pages)},
                            {"resolution", {pages.dpiAcross, pages.dpiDown}},
                            {"dots", {pages.dotsAcross, pages.dotsDown}}};
        json["query"] = report.printer->answer.Json();
    }
    PrintJson(json);
}

void TellFile(const char* what, const std::filesystem::path& file, const std::string& note) {
    if (file.empty()) {
        return;
    }
    std::error_code error;
    const uintmax_t bytes = std::filesystem::file_size(file, error);
    std::cout << "    " << std::left << std::setw(14) << what << std::setw(18)
              << file.filename().string() << std::right << std::setw(10)
              << (error ? "missing" : Grouped(bytes)) << (error ? "" : " bytes")
              << (error || note.empty() ? "" : "  ") << note << '\n';
}

void TellPrinter(const PrinterReport& printer) {
    const PageShape& pages = printer.pages;
    std::cout << "Printer\n    " << (printer.isNew ? "installed with " : "was installed with ")
              << ShownPath(printer.ppd)
              << (printer.isNew ? "; the driver stored its device record\n" : "\n");
    std::cout << "Settings\n    the property sheet was confirmed";
    if (printer.newForms != 0) {
        std::cout << "; it added " << printer.newForms
                  << (printer.newForms == 1 ? " paper" : " papers") << " to the printer forms";
    }
    std::cout << "\n    " << pages.paper << ' ' << Orientation(pages) << ", " << pages.dpiAcross
              << " x " << pages.dpiDown << " dots per inch\n";
}

void TellReport(const FaxReport& report) {
    if (report.printer) {
        TellPrinter(*report.printer);
    }
    std::cout << "Device context\n    the driver "
              << (report.confirmed ? "confirmed" : "did not confirm")
              << " the application's job settings\n";
    std::cout << "Start of document\n    the fax dialog "
              << (!report.maxReceivers ? "was not shown"
                  : report.cancelled   ? "was cancelled"
                                       : "was confirmed with " + std::to_string(report.receivers) +
                                           (report.receivers == 1 ? " receiver" : " receivers"));
    if (report.maxReceivers) {
        std::cout << " (at most " << *report.maxReceivers << ")";
    }
    std::cout << '\n';
    TellFile("cover bitmap", report.coverBitmap, "the job's copy");
    TellFile("memo", report.memo, "the job's copy");
    TellFile("reserved", report.temp, "the name that the dial files go by");
    for (const std::filesystem::path& file : report.dialFiles) {
        TellFile("dial file", file, "");
    }
    TellFile("snapshot", report.snapshot, "the job's index: KSFAXJOB.INI as it stood");
    if (report.mapping.size != 0) {
        std::cout << "    published as shared memory \"" << report.mapping.name << "\", "
                  << report.mapping.size << " bytes\n";
    }
    if (report.printer && report.printer->pages.dotsAcross != 0) {
        std::cout << "Page\n    " << report.printer->pages.dotsAcross << " x "
                  << report.printer->pages.dotsDown << " dots, for the rendering module to draw\n";
    }
    std::cout << "End of document\n";
    TellFile("cover page", report.coverPage, "");
    std::cout << "    the shared memory is " << (report.mapping.gone ? "gone" : "still there")
              << '\n';
    if (report.printer) {
        std::cout << "Print query\n    " << report.printer->answer.Line() << '\n';
    }
    std::cout << "Job files: " << ShownPath(report.folder) << '\n';
    if (!report.coverPage.empty()) {
        std::cout << "Cover page: " << ShownPath(report.coverPage) << '\n';
    }
}

// The folder of the job's files; what was made for this job goes again unless it is kept.
class FaxFolder {
  public:
    // Empty: a new one of its own.
    explicit FaxFolder(const std::filesystem::path& out)
        : path_(out.empty() ? NewFolder() : WholePath(out)) {
        if (out.empty()) {
            firstMade_ = path_;
        }
        for (std::filesystem::path above = path_; !std::filesystem::exists(above);
             above = above.parent_path()) {
            firstMade_ = above;
        }
        MakeFaxFolder(path_);
    }
    ~FaxFolder() {
        std::error_code error;
        for (std::filesystem::path made = path_;
             !firstMade_.empty() && std::filesystem::remove(made, error) && made != firstMade_;
             made = made.parent_path()) {
        }
    }
    FaxFolder(const FaxFolder&) = delete;
    FaxFolder& operator=(const FaxFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    void Keep() { firstMade_.clear(); }

  private:
    std::filesystem::path path_;
    std::filesystem::path firstMade_;  // of the folders above and itself; empty: none
};

// On the machine in use.
void CheckFaxFolder(const std::filesystem::path& folder) {
    (void)PathForIni(folder, kLongestFaxFolder);
    if (std::filesystem::is_directory(folder / "KSFAXJOB.INI")) {
        throw UserError((folder / "KSFAXJOB.INI").string() +
                        " is a folder; remove it or choose another folder with --out");
    }
}

int RunSend(const SendOptions& options) {
    {
        // The whole request is read once on a machine that is thrown away, so that nothing is
        // written for one that is refused.
        const embedded::Machine scratch(MachineRun::Setup(options.machine));
        (void)ReadChoices(options);
        if (!options.ppd.empty()) {
            const LoadedDescription description(options.ppd);
            (void)FindSettings(*description, options.ppd, options.settings);
        }
        CheckFaxFolder(options.out.empty() ? NewFolderPattern() : WholePath(options.out));
    }
    FaxFolder made(options.out);
    const std::filesystem::path& folder = made.path();
    MachineRun run(options.machine);
    // A folder of the machine's own drive has another path on it.
    CheckFaxFolder(folder);
    DialogChoices choices = ReadChoices(options);
    const bool isNew = SetPrinterUp(run.machine(), options);
    // With every right, as the administrator that the machine's user is: what the session adds to
    // the forms is then recorded with the printer.
    const OpenFaxPrinter printer(true);
    made.Keep();
    FaxReport report = SendFax(run, printer.handle(), isNew, std::move(choices), options, folder);
    run.Save();
    if (!report.failure.empty()) {
        throw UserError(report.failure);
    }
    if (!run.isKept()) {
        // The machine goes; what it shared with the companion module stays with the job.
        const std::filesystem::path kept = folder / "KSFAXJOB.INI";
        std::error_code error;
        std::filesystem::copy_file(report.iniFile, kept,
                                   std::filesystem::copy_options::overwrite_existing, error);
        if (error) {
            throw UserError(kept.string() + " cannot be written: " + error.message() +
                            "; remove it or choose another folder with --out");
        }
        report.iniFile = kept;
    }
    if (options.json) {
        PrintReport(report);
    } else {
        TellReport(report);
    }
    if (!report.refusal.empty()) {
        std::cerr << "ksfax: " << report.refusal << "; shorten the list"
                  << (report.receivers <= kMostReceivers ? " or raise --max-receivers\n" : "\n");
    }
    const bool canPrint = !report.printer || report.printer->answer.canPrint;
    if (!canPrint) {
        std::cerr << "ksfax: the printer refuses the job: " << report.printer->answer.Line()
                  << '\n';
    }
    return report.cancelled || !canPrint ? kRefused : kDone;
}

}  // namespace

void AddSendCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<SendOptions>();
    CLI::App* send = program.add_subcommand("send", "Send one fax from its start to its end");
    CLI::Option* ppd =
        send->add_option("--ppd", options->ppd,
                         "Go the whole road on a printer with this PPD, from its settings to the "
                         "question whether it can print")
            ->type_name("FILE");
    send->add_option("--paper", options->settings.paper,
                     "The paper, by the PPD's name (default: the printer's)")
        ->type_name("NAME")
        ->needs(ppd);
    send->add_flag("--landscape", options->settings.landscape, "Turn the page")->needs(ppd);
    send->add_option("--resolution", options->settings.resolution,
                     "Dots per inch, 200x200 or 200x100 (default: the printer's)")
        ->type_name("DPI")
        ->check(CLI::IsMember({"200x200", "200x100"}))
        ->needs(ppd);
    send->add_option("--to", options->to, "A receiver; any number of times")
        ->type_name("NAME=NUMBER")
        ->allow_extra_args(false);
    send->add_option("--receivers", options->receivers,
                     "A list of receivers, a name and a number a line, separated by a comma")
        ->type_name("CSV");
    send->add_option("--from", options->from, "The sender on the cover page (default: you)")
        ->type_name("NAME[=NUMBER]");
    send->add_option("--cover", options->cover, "A bitmap for the cover page")->type_name("BMP");
    send->add_option("--memo", options->memo, "A text for the cover page")->type_name("TXT");
    send->add_option("--max-receivers", options->maxReceivers,
                     "Set the most receivers that the dialog takes; the driver accepts 50 to 999 "
                     "and makes 50 of all else (default: 50, for this job more when the list needs "
                     "it)")
        ->type_name("N");
    send->add_flag("--cancel", options->cancel, "Cancel the fax dialog");
    send->add_option("--out", options->out,
                     "The folder for the job's files (default: a new one, named in the output)")
        ->type_name("DIR");
    send->add_flag("--json", options->json, "Print one JSON object");
    options->machine.AddTo(*send);
    send->callback([options, &exitCode] { exitCode = RunSend(*options); });
}

}  // namespace tool
