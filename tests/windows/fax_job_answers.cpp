#include <cstring>
#include <fstream>
#include <map>
#include <regex>

#include "platform/owned.h"

#include "faxjob/companion.h"
#include "tests/windows/driver_answers.h"

namespace answers {

namespace {

namespace fs = std::filesystem;

// The low 32 bits of a printer handle name its shared memory.
constexpr uintptr_t kPrinters[] = {0x7000A2C1F, 0xB2};
constexpr const WCHAR* kBlocks[] = {TEXT("a2c1fCVP"), TEXT("b2CVP")};

std::string Narrow(const Text& text) {
    return {text.begin(), text.end()};
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

class FaxJobRun {
  public:
    explicit FaxJobRun(Home& home) : home_(home) {}

    std::string Answers(const std::string& job) {
        Prepare(job);
        const unsigned count = job.find("twice") != job.npos ? 2 : 1;
        for (unsigned i = 0; i < count; ++i) {
            Event("start", i, DOCUMENTEVENT_STARTDOC);
        }
        TellFiles();
        for (unsigned i = 0; i < count; ++i) {
            Event("end", i, DOCUMENTEVENT_ENDDOC);
        }
        // Nothing is left to end: the companion is not called again.
        Event("end again", 0, DOCUMENTEVENT_ENDDOC);
        TellFile("calls.txt", home_.folder / "calls.txt");
        Clear();
        return WithoutChance(text_);
    }

  private:
    void Clear() {
        Write(nullptr, nullptr, nullptr);
        fs::remove(home_.jobFile);
        std::error_code ignored;
        fs::permissions(home_.folder / "our cover.bmp", fs::perms::owner_all, ignored);
        fs::remove_all(home_.folder);
    }

    // Without a section the profile service forgets what it remembers of the file.
    static void Write(const WCHAR* section, const WCHAR* key, const WCHAR* value) {
        WritePrivateProfileStringW(section, key, value, TEXT(KSFAX_JOB_FILE));
    }
    static Text Option(const std::string& job, const std::string& pattern) {
        std::smatch found;
        std::regex_search(job, found, std::regex(pattern));
        const std::string value = found.str(1);
        return {value.begin(), value.end()};
    }

    void Prepare(const std::string& job) {
        Clear();
        fs::create_directories(home_.folder);
        home_.UseCompanion(Narrow(Option(job, "without=(\\w+)")));
        Write(TEXT("FAXDATA"), TEXT("DIR"), home_.folderName.c_str());
        for (const WCHAR* key :
             {TEXT("INIFILE"), TEXT("CVBMP"), TEXT("CVMEMO"), TEXT("TEMP"), TEXT("DialFile")}) {
            Write(TEXT("FAXDATA"), key, TEXT("an earlier job's"));
        }
        if (const Text maximum = Option(job, "maximum=(\\d+)"); !maximum.empty()) {
            Write(TEXT("FAXDRIVER"), TEXT("MAXRCVER"), maximum.c_str());
        }
        Write(TEXT("COMPANION"), TEXT("Receivers"), Option(job, "^(\\d+)").c_str());
        if (job.find("cover") != job.npos) {
            const Text cover = home_.folderName + TEXT("\\our cover.bmp");
            Write(TEXT("COMPANION"), TEXT("Cover"), cover.c_str());
            std::ofstream(home_.folder / "our cover.bmp", std::ios::binary) << "BM, and so on";
            fs::permissions(home_.folder / "our cover.bmp", fs::perms::owner_read);
        }
    }

    void Event(const char* what, unsigned which, int code) {
        const int result = home_.driver.documentEvent(reinterpret_cast<HANDLE>(kPrinters[which]),
                                                      nullptr, code, 0, nullptr, 0, nullptr);
        text_ += std::string(what) + " " + std::to_string(which) + ": " + std::to_string(result) +
                 home_.TakeBoxes() +
                 (home_.HoldsCompanion() ? ", the companion stays loaded" : "") + BlockOf(which) +
                 "\n";
    }

    // What the shared memory holds: a handle's value, and a path.
    std::string BlockOf(unsigned which) {
        HANDLE& creator = creators_[which];
        const platform::NullableHandle handle(
            OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kBlocks[which]));
        const platform::MappedView view(handle ? MapViewOfFile(handle.get(), FILE_MAP_READ, 0, 0, 0)
                                               : nullptr);
        std::string text = ", no block";
        if (view) {
            std::memcpy(&creator, view.get(), 8);
            text = ", block of " +
                   Narrow(reinterpret_cast<const WCHAR*>(static_cast<const BYTE*>(view.get()) + 8));
        }
        return text + (creator == nullptr      ? ""
                       : home_.IsOpen(creator) ? ", its handle open"
                                               : ", its handle closed");
    }

    void TellFile(const std::string& name, const fs::path& path) {
        const bool isReadOnly =
            (fs::status(path).permissions() & fs::perms::owner_write) == fs::perms::none;
        std::string content = ContentOf(path);
        if (content.size() > 1000) {
            content = Summary(WithoutChance(content));
        } else if (content == jobFile_ && path != home_.jobFile) {
            content = "as the fax job file";
        }
        Replace(content, "\r", "");
        Replace(content, "\n", "\n  ");
        text_ += name + (isReadOnly ? " read-only" : "") + "\n  " + content + "\n";
    }

    // The names in the job file are told first, which numbers them.
    void TellFiles() {
        Write(nullptr, nullptr, nullptr);
        jobFile_ = ContentOf(home_.jobFile);
        TellFile("the fax job file", home_.jobFile);
        text_ = WithoutChance(text_);
        std::map<std::string, fs::path> files;
        for (const auto& entry : fs::directory_iterator(home_.folder)) {
            files[WithoutChance(entry.path().filename().string())] = entry.path();
        }
        files.erase("calls.txt");
        for (const auto& [name, path] : files) {
            TellFile(name, path);
        }
    }

    // Names that chance gives are numbered in the order in which they are told.
    std::string WithoutChance(std::string text) {
        static const std::regex pattern("Kes[0-9A-Fa-f]+");
        Replace(text, Narrow(home_.folderName), "FOLDER");
        std::string replaced;
        for (std::smatch name; std::regex_search(text, name, pattern); text = name.suffix().str()) {
            const auto number = names_.try_emplace(name.str(), names_.size() + 1).first->second;
            replaced += name.prefix().str() + "Kes#" + std::to_string(number);
        }
        return replaced + text;
    }

    Home& home_;
    std::map<std::string, size_t> names_;
    HANDLE creators_[2] = {};
    std::string text_;
    std::string jobFile_;
};

}  // namespace

std::string FaxJob(Home& home, const std::string& job) {
    return FaxJobRun(home).Answers(job);
}

}  // namespace answers
