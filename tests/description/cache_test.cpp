#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "description/conflicts.h"
#include "tests/description/ppd_text.h"
#include "tests/faults.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

constexpr char kPpd[] = "*NickName: \"Fax\"\n*FileVersion: \"1.5\"\n*Duplex None/Off: \"x\"\n"
                        "*Duplex Long: \"y\"\n*PageSize A4/T: \"a\"\n*PageSizeL A4: \"l\"\n"
                        "*PageRegion A4: \"r\"\n*Resolution 9/T: \"i\"\n*SetResolution 9: \"s\"\n"
                        "*JCLResolution 9: \"j\"\n*VMOption 1: \"1\"\n*Font Courier: z\n"
                        "*UIConstraints: *Duplex *PageSize\n*OrderDependency: 1 Prolog *Duplex\n";

struct CacheFile : testing::Test {
    void SetUp() override { std::filesystem::create_directories(folder / "E"); }

    void Write(const char* name, std::string_view bytes) {
        std::ofstream(folder / name, std::ios::binary) << bytes;
    }
    std::string Read(const char* name) {
        std::ifstream file(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Loads and says whether the cache file was used; null in `loaded` when nothing was.
    bool UsesCache(const WCHAR* path = TEXT("C:\\D\\P.ppd")) {
        loaded.reset();
        told = {};
        const ParseObserver observer = {
            .context = &told,
            .cacheUsed = [](void* context,
                            bool value) { static_cast<Told*>(context)->used = value; },
            .cacheWritten = [](void* context,
                               bool value) { static_cast<Told*>(context)->written = value; }};
        loaded.reset(LoadPrinterDescription(path, &observer));
        return told.used;
    }
    // Reads a PPD for the first time; its cache file.
    std::string Rebuilt(std::string_view ppd) {
        Write("P.ppd", ppd);
        std::filesystem::remove(folder / "P.PDC");
        EXPECT_FALSE(UsesCache());
        EXPECT_TRUE(told.written);
        return Read("P.PDC");
    }

    struct Told {
        bool used;
        bool written;
    };
    embedded::Machine machine;
    std::filesystem::path folder = machine.driveC() / "D";
    DescriptionPtr loaded;
    Told told = {};
};

TEST_F(CacheFile, HoldsThePackedBlockAndIsUsedWhileCurrent) {
    const std::string cache = Rebuilt(kPpd);
    EXPECT_EQ(cache,
              BytesOf(*DescriptionPtr(PackDescription(ParsePpdText(kPpd, TEXT("C:\\D\\P.ppd"))))));
    const std::string shown = Shown(*loaded);

    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\p.PPD")));
    EXPECT_EQ(Shown(*loaded), shown);
    EXPECT_EQ(Read("P.PDC"), cache) << "an accepted file is not written";

    // Anything but the version may change unseen.
    Write("P.ppd", std::string(kPpd) + "*Duplex Short: \"z\"\n");
    EXPECT_TRUE(UsesCache());

    // In another folder the file name alone counts.
    std::filesystem::copy(folder / "P.ppd", folder / "E" / "P.ppd");
    std::filesystem::copy(folder / "P.PDC", folder / "E" / "P.PDC");
    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\E\\P.ppd")));
    EXPECT_EQ(std::u16string(loaded->PpdFileName.Target()), u"C:\\D\\P.ppd");

    std::filesystem::remove(folder / "P.ppd");
    EXPECT_FALSE(UsesCache() || loaded) << "no PPD, no description";
    EXPECT_EQ(LoadPrinterDescription(nullptr), nullptr);
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

// The version is the number in the next quotes after the word, wherever it stands; a cache file
// of 504 bytes is too small to be one.
TEST_F(CacheFile, IsUsedWithTheVersionThatThePpdTells) {
    const std::string version = "*FileVersion: \"1.5\"\n";
    const std::string name = "*NickName: \"N\"\n";
    const struct {
        std::string ppd;
        size_t size;  // of the cache file, 0 for any
        bool used;
    } rows[] = {{version, 504, false},
                {version + name, 508, true},
                {name, 508, false},
                {"*FileVersion: \"0\"\n" + name, 508, false},
                {"*FileVersion: 1.5\n" + name, 508, false},
                {"*FileVersion: 1.5\n*NickName: \"1.5\"\n", 508, true},
                {"*% FileVersion\n*NickName: \"2\"\n" + version, 508, false},
                {"*% FileVersion \"1.5\n\"\n" + name + version, 508, true},
                {std::string("*% \0\n", 5) + version + name, 508, false},
                // Far from the beginning, which is read first, or across its end.
                {std::string(4096 - 17, '\n') + version + name, 508, true},
                {std::string(4096 - 16, '\n') + version + name, 508, true},
                {std::string(6000, '\n') + version + name, 508, true},
                {std::string(4093, '\n') + std::string("*%\0\n", 4) + version + name, 508, false},
                {std::string(6000, '\n') + std::string("*%\0\n", 4) + version + name, 508, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(Rebuilt(row.ppd).size(), row.size) << row.ppd;
        EXPECT_EQ(UsesCache(), row.used) << row.ppd;
        EXPECT_EQ(told.written, !row.used) << row.ppd;
        ASSERT_TRUE(loaded);
    }
    Rebuilt(kPpd + ("*" + std::string(40, 'k')) + ": x\n");
    Write("Bad.PPD", kPpd + ("*" + std::string(41, 'k')) + ": x\n");
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\Bad.PPD")));
    EXPECT_FALSE(loaded || std::filesystem::exists(folder / "Bad.PDC"));
}

// A file that does not fit, or that would send its readers astray, is read anew and rewritten. The
// questions are changes of a good one: place, bytes and value of each.
TEST_F(CacheFile, IsRefusedWhenItDoesNotFitOrLeavesTheBlock) {
    const std::string good = Rebuilt(kPpd);
    const auto at = [&](size_t place) {
        uint32_t value = 0;
        std::memcpy(&value, good.data() + place, sizeof(value));
        return value;
    };
    const uint32_t duplex = at(304), paper = at(duplex), dpi = at(paper), memory = at(dpi);
    const std::map<std::string, size_t> places = {
        {"duplex", duplex},  {"none", at(duplex + 56)}, {"paper", paper},   {"a4", at(paper + 56)},
        {"dpi", dpi},        {"nine", at(dpi + 56)},    {"memory", memory}, {"font", at(448)},
        {"orders", at(456)}, {"constraints", at(464)},  {"name", at(8)},    {"nick", at(16)},
        {"end", good.size()}};
    // A number, a place, or a place plus or minus a number.
    const auto valueOf = [&](const std::string& text) -> uint32_t {
        const size_t sign = std::min(text.find_first_of("+-"), text.size());
        const auto place = places.find(text.substr(0, sign));
        const std::string number = place != places.end() ? text.substr(sign) : text;
        return static_cast<uint32_t>((place != places.end() ? place->second : 0) +
                                     (number.empty() ? 0 : std::stoul(number, nullptr, 0)));
    };
    const auto usesChanged = [&](const std::string& question) {
        std::istringstream changes(question.substr(question.find(':') + 1));
        std::string bytes = good;
        std::string place, width, value;
        while (changes >> place >> width >> value) {
            const uint32_t number = valueOf(value);
            std::memcpy(bytes.data() + valueOf(place), &number, std::stoul(width));
        }
        bytes.resize(changes.eof() && place == "size" ? valueOf(width) : bytes.size());
        Write("P.PDC", bytes);
        const bool isUsed = UsesCache();
        EXPECT_TRUE(loaded && FeatureOf(*loaded, FeatureKind::Paper) == nullptr) << question;
        EXPECT_EQ(ResolveInstallableConflicts(*loaded, {}), 1) << question;
        EXPECT_EQ(Read("P.PDC"), isUsed ? bytes : good) << question;
        return std::string(isUsed ? "used" : "refused");
    };
    EXPECT_TRUE(AnswersAreRecorded("description/cache.txt", usesChanged));
}

TEST_F(CacheFile, IsNeitherReadNorWrittenWhenItWouldBeThePpd) {
    for (const char* name : {"Q.PDC", "q.pdc"}) {
        Write(name, kPpd);
        for (int i = 0; i < 2; ++i) {
            EXPECT_FALSE(UsesCache(TEXT("C:\\D\\q.pdc")));
            EXPECT_TRUE(loaded && !told.written);
            EXPECT_EQ(Read(name), kPpd);
        }
        std::filesystem::remove(folder / name);
    }
}

// Whatever fails, a load that has a good cache file is no worse than a parse of the PPD; without
// one it needs the PPD and memory, and a file that it could not write is not there or not good.
TEST_F(CacheFile, NeverStopsALoad) {
    const std::string far = std::string(6000, '\n') + kPpd;
    const std::string good = Rebuilt(far);
    const std::string shown = Shown(*std::exchange(loaded, nullptr));
    const std::set<std::string> needed = {"CreateFileMappingW", "CreateFileW", "GetFileSize",
                                          "GlobalAlloc", "MapViewOfFile"};
    for (const bool cached : {true, false}) {
        std::set<std::string> fatal;
        const auto prepare = [&] {
            cached ? Write("P.PDC", good) : void(std::filesystem::remove(folder / "P.PDC"));
        };
        const auto holds = [&](const FailedCall& failed) {
            EXPECT_TRUE(failed.number != 0 || told.used == cached);
            EXPECT_TRUE(!loaded || Shown(*loaded) == shown);
            EXPECT_TRUE(!told.written || Read("P.PDC") == good);
            if (!loaded && !failed.andAllLater) {
                fatal.insert(failed.name);
            }
            loaded.reset();
        };
        UnderFaults(machine, {.prepare = prepare, .act = [&] { UsesCache(); }, .holds = holds});
        EXPECT_EQ(fatal, cached ? std::set<std::string>() : needed);
    }
    std::filesystem::remove(folder / "P.PDC");
    std::filesystem::create_directory(folder / "P.PDC");
    EXPECT_FALSE(UsesCache());
    EXPECT_TRUE(loaded && !told.written);
}

// Of a file that shrinks while its header, the PPD or its rest is read.
TEST_F(CacheFile, IsNotAcceptedWhenCutShort) {
    const std::string good = Rebuilt(kPpd);
    for (const size_t size : {0, 471, 472, 504, 800}) {
        for (unsigned cutRead = 1; cutRead <= 3; ++cutRead) {
            unsigned reads = 0;
            machine.faults.Count([&](const std::string& name) {
                if (name == "ReadFile" && ++reads == cutRead) {
                    std::filesystem::resize_file(folder / "P.PDC", size);
                }
            });
            EXPECT_FALSE(UsesCache()) << size << ' ' << cutRead;
            EXPECT_TRUE(loaded && Read("P.PDC") == good) << size << ' ' << cutRead;
        }
        machine.faults.Clear();
    }
}

TEST(CacheFileName, IsAsRecorded) {
    EXPECT_TRUE(AnswersAreRecorded("description/cache_names.txt", [](const std::string& path) {
        WCHAR name[MAX_PATH] = {'x', 0};
        const bool fits = CacheFileName(std::u16string(path.begin(), path.end()).c_str(), name);
        EXPECT_EQ(fits, name[0] != 'x' || name[1] != 0) << path;
        const std::u16string found(name);
        return fits ? std::string(found.begin(), found.end()) : "too long";
    }));
}

TEST(RelocateDescription, TakesOffsetsUpToTheBlocksEnd) {
    embedded::Machine machine;
    const DescriptionPtr block = PackText(kPpd);
    block->NickName = {block->TotalSize};
    block->Password = {uint64_t{block->TotalSize} + 1};
    RelocateDescription(block.get());
    EXPECT_EQ(block->NickName.Target(), BytesOf(*block).data() + block->TotalSize);
    EXPECT_EQ(block->Password.Target(), nullptr);
}

}  // namespace
}  // namespace ksfax
