#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <regex>
#include <sstream>

#include "platform/owned.h"

#include "faxjob/companion.h"
#include "tests/windows/driver_answers.h"

namespace answers {

namespace {

namespace fs = std::filesystem;

// One job, or two at once.
struct Job {
    const char* what;
    unsigned receivers;  // 0: the dialog is cancelled
    bool hasCover = false;
    const WCHAR* maximum = nullptr;  // of receivers, as an administrator sets it
    const char* without = "";        // what the companion module lacks; null: there is none
    bool isTwice = false;
};

// The low 32 bits of a printer handle name its shared memory.
constexpr uintptr_t kPrinters[] = {0x7000A2C1F, 0xB2};
constexpr const WCHAR* kBlocks[] = {TEXT("a2c1fCVP"), TEXT("b2CVP")};

std::string Narrow(const Text& text) {
    return {text.begin(), text.end()};
}

std::string Content(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Names that chance gives, in the order in which they are told.
class Names {
  public:
    std::string Replace(const std::string& text) {
        static const std::regex pattern("Kes[0-9A-Fa-f]+");
        std::string replaced;
        size_t at = 0;
        for (std::sregex_iterator found(text.begin(), text.end(), pattern), end; found != end;
             ++found) {
            const auto name = names_.try_emplace(found->str(), names_.size() + 1).first;
            replaced += text.substr(at, found->position() - at);
            replaced += "Kes#" + std::to_string(name->second);
            at = found->position() + found->length();
        }
        return replaced + text.substr(at);
    }

  private:
    std::map<std::string, size_t> names_;
};

class FaxJobRun {
  public:
    explicit FaxJobRun(Home& home) : home_(home) {}

    std::string Answers(const Job& job) {
        text_ = std::string(job.what) + "\n";
        Prepare(job);
        const unsigned count = job.isTwice ? 2 : 1;
        for (unsigned i = 0; i < count; ++i) {
            Event("start", i, DOCUMENTEVENT_STARTDOC);
            TellJobFile();
            TellBlock(i);
        }
        TellFolder();
        for (unsigned i = 0; i < count; ++i) {
            Event("end", i, DOCUMENTEVENT_ENDDOC);
            TellBlock(i);
        }
        text_ += Lines("calls", Content(home_.folder / "calls.txt"));
        // Nothing is left to end: the companion is not called again.
        fs::remove(home_.folder / "calls.txt");
        Event("end again", 0, DOCUMENTEVENT_ENDDOC);
        text_ += Lines("calls", Content(home_.folder / "calls.txt"));
        Clear();
        return WithoutChance(text_);
    }

  private:
    void Clear() {
        // The profile service forgets what it remembers of the file.
        WritePrivateProfileStringW(nullptr, nullptr, nullptr, TEXT(KSFAX_JOB_FILE));
        fs::remove(home_.jobFile);
        if (fs::exists(home_.folder / "our cover.bmp")) {
            fs::permissions(home_.folder / "our cover.bmp", fs::perms::owner_all);
        }
        fs::remove_all(home_.folder);
    }

    static void Write(const WCHAR* section, const WCHAR* key, const Text& value) {
        WritePrivateProfileStringW(section, key, value.c_str(), TEXT(KSFAX_JOB_FILE));
    }

    void Prepare(const Job& job) {
        Clear();
        fs::create_directories(home_.folder);
        home_.UseCompanion(job.without);
        Write(TEXT("FAXDATA"), TEXT("DIR"), home_.folderName);
        for (const WCHAR* key : kDriversKeys) {
            Write(TEXT("FAXDATA"), key, TEXT("an earlier job's"));
        }
        if (job.maximum != nullptr) {
            Write(TEXT("FAXDRIVER"), TEXT("MAXRCVER"), job.maximum);
        }
        const std::string receivers = std::to_string(job.receivers);
        Write(TEXT("COMPANION"), TEXT("Receivers"), {receivers.begin(), receivers.end()});
        if (job.hasCover) {
            Write(TEXT("COMPANION"), TEXT("Cover"), home_.folderName + TEXT("\\our cover.bmp"));
            std::ofstream(home_.folder / "our cover.bmp", std::ios::binary) << "BM, and so on";
            fs::permissions(home_.folder / "our cover.bmp", fs::perms::owner_read);
        }
    }

    void Event(const char* what, unsigned which, int code) {
        const int result = home_.driver.documentEvent(reinterpret_cast<HANDLE>(kPrinters[which]),
                                                      nullptr, code, 0, nullptr, 0, nullptr);
        text_ += std::string("  ") + what + " " + std::to_string(which) + ": " +
                 std::to_string(result) + home_.TakeBoxes() +
                 (home_.HoldsCompanion() ? ", the companion stays loaded" : "") + "\n";
    }

    void TellJobFile() {
        const auto tell = [&](const WCHAR* section, const WCHAR* key) {
            WCHAR value[512];
            const DWORD length = GetPrivateProfileStringW(section, key, TEXT("(absent)"), value,
                                                          512, TEXT(KSFAX_JOB_FILE));
            text_ += "    " + Narrow(key) + " " + Narrow({value, length}) + "\n";
        };
        tell(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV"));
        for (const WCHAR* key : kDriversKeys) {
            tell(TEXT("FAXDATA"), key);
        }
    }

    // What the shared memory holds: a handle's value, and a path.
    void TellBlock(unsigned which) {
        text_ += "    " + Narrow(kBlocks[which]) + ": ";
        const platform::NullableHandle handle(
            OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kBlocks[which]));
        const platform::MappedView view(handle ? MapViewOfFile(handle.get(), FILE_MAP_READ, 0, 0, 0)
                                               : nullptr);
        if (!view) {
            text_ += "none";
            if (creators_[which] != nullptr) {
                text_ +=
                    home_.IsOpen(creators_[which]) ? ", its handle open" : ", its handle closed";
            }
            text_ += "\n";
            return;
        }
        const Text path = reinterpret_cast<const WCHAR*>(static_cast<const BYTE*>(view.get()) + 8);
        std::memcpy(&creators_[which], view.get(), 8);
        text_ += Narrow(path) + ", and " +
                 std::to_string(home_.SizeOfBlock(kBlocks[which]) - 2 * path.size()) +
                 " bytes; its handle " + (home_.IsOpen(creators_[which]) ? "open\n" : "closed\n");
    }

    // Of a long content the first and the last lines.
    static std::string Lines(const std::string& what, const std::string& content) {
        std::istringstream stream(content);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back("      " + line.substr(0, line.find('\r')) + "\n");
        }
        if (lines.size() > 60) {
            lines[3] = "      ...\n";
            lines.erase(lines.begin() + 4, lines.end() - 2);
        }
        return std::accumulate(lines.begin(), lines.end(), "    " + what + "\n");
    }

    void TellFolder() {
        WritePrivateProfileStringW(nullptr, nullptr, nullptr, TEXT(KSFAX_JOB_FILE));
        std::map<std::string, fs::path> files;
        text_ = WithoutChance(text_);
        for (const auto& entry : fs::directory_iterator(home_.folder)) {
            files[WithoutChance(entry.path().filename().string())] = entry.path();
        }
        for (const auto& [name, path] : files) {
            const bool isReadOnly =
                (fs::status(path).permissions() & fs::perms::owner_write) == fs::perms::none;
            const std::string content = Content(path);
            text_ += Lines(name + (isReadOnly ? " read-only" : ""),
                           name == "calls.txt"                 ? ""
                           : content == Content(home_.jobFile) ? "as the fax job file now is"
                                                               : content);
        }
    }

    std::string WithoutChance(std::string text) {
        const std::string folder = Narrow(home_.folderName);
        for (size_t at = 0; (at = text.find(folder, at)) != std::string::npos;) {
            text.replace(at, folder.size(), "FOLDER");
        }
        return names_.Replace(text);
    }

    static constexpr const WCHAR* kDriversKeys[] = {TEXT("INIFILE"), TEXT("CVBMP"), TEXT("CVMEMO"),
                                                    TEXT("TEMP"), TEXT("DialFile")};
    Home& home_;
    Names names_;
    HANDLE creators_[2] = {};
    std::string text_;
};

}  // namespace

std::string FaxJobs(Home& home) {
    const Job jobs[] = {
        {.what = "cancelled", .receivers = 0},
        {.what = "three receivers, a cover and a memo",
         .receivers = 3,
         .hasCover = true,
         .maximum = TEXT("120")},
        {.what = "101 receivers", .receivers = 101},
        {.what = "two documents at once", .receivers = 1, .isTwice = true},
        {.what = "no companion module", .receivers = 3, .without = nullptr},
        {.what = "a companion module without dialog", .receivers = 3, .without = "DialDlg"},
        {.what = "a companion module without cover page", .receivers = 3, .without = "MakeBMP"},
    };
    std::string text;
    for (const Job& job : jobs) {
        text += FaxJobRun(home).Answers(job);
    }
    return text;
}

}  // namespace answers
