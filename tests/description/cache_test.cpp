#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "description/conflicts.h"
#include "tests/description/ppd_text.h"

namespace ksfax {
namespace {

constexpr char kPpd[] = "*NickName: \"Fax\"\n*FileVersion: \"1.5\"\n*Duplex None/Off: \"x\"\n"
                        "*Duplex Long: \"y\"\n*PageSize A4: \"a\"\n*VMOption 1: \"1\"\n"
                        "*Font Courier: z\n*UIConstraints: *Duplex *PageSize\n"
                        "*OrderDependency: 1 Prolog *Duplex\n";

struct CacheFile : testing::Test {
    void SetUp() override { std::filesystem::create_directories(folder); }

    void Write(const char* name, std::string_view bytes) {
        std::ofstream(folder / name, std::ios::binary) << bytes;
    }
    std::string Read(const char* name) {
        std::ifstream file(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Loads and says whether the cache file was used; null in `loaded` when nothing was.
    bool UsesCache(const WCHAR* path) {
        bool used = false;
        const ParseObserver observer = {
            .context = &used,
            .statement = nullptr,
            .packed = nullptr,
            .cacheUsed = [](void* context, bool value) { *static_cast<bool*>(context) = value; }};
        loaded.reset(LoadPrinterDescription(path, &observer));
        return used;
    }

    embedded::Machine machine;
    std::filesystem::path folder = machine.driveC() / "D";
    DescriptionPtr loaded;
};

TEST_F(CacheFile, HoldsThePackedBlockAndIsUsedWhileCurrent) {
    Write("P.ppd", kPpd);
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd")));
    ASSERT_TRUE(loaded);
    const std::string cache = Read("P.PDC");
    EXPECT_EQ(cache.size(), loaded->TotalSize);
    EXPECT_EQ(cache.substr(312, 17 * 8), std::string(17 * 8, '\0'));
    EXPECT_EQ(OptionsOf(FeatureOf(*loaded, FeatureKind::Duplex)), "None/Off=x; Long/-=y");

    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\p.PPD")));
    EXPECT_EQ(OptionsOf(FeatureOf(*loaded, FeatureKind::Duplex)), "None/Off=x; Long/-=y");
    EXPECT_EQ(OptionsOf(FeatureOf(*loaded, FeatureKind::PageSize)), "A4/-=a");
    EXPECT_TRUE(IsConstrained(*loaded, 0, 1, 1, 0));
    EXPECT_EQ(Read("P.PDC"), cache) << "an accepted file is not written";

    // Anything but the version may change unseen.
    Write("P.ppd", std::string(kPpd) + "*Duplex Short: \"z\"\n");
    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\P.ppd")));

    // In another folder the file name alone counts.
    std::filesystem::create_directories(folder / "E");
    std::filesystem::copy(folder / "P.ppd", folder / "E" / "P.ppd");
    std::filesystem::copy(folder / "P.PDC", folder / "E" / "P.PDC");
    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\E\\P.ppd")));
    EXPECT_EQ(std::u16string(loaded->PpdFileName.Target()), u"C:\\D\\P.ppd");
}

TEST_F(CacheFile, IsRefusedAndRewrittenWhenItDoesNotFit) {
    Write("P.ppd", kPpd);
    UsesCache(TEXT("C:\\D\\P.ppd"));
    const std::string good = Read("P.PDC");
    const auto with = [&](size_t at, std::string_view bytes) {
        std::string changed = good;
        return changed.replace(at, bytes.size(), bytes);
    };
    const struct {
        const char* what;
        std::string cache;
    } rows[] = {{"missing", ""},
                {"shorter than it says", good.substr(0, good.size() - 1)},
                {"longer than it says", good + '\0'},
                {"just a header", good.substr(0, 504)},
                {"another version of the format", with(24, "\4")},
                {"another FileVersion", with(240, std::string_view("\1\1", 2))},
                {"no FileVersion", with(240, std::string_view("\0\0", 2))},
                {"no stored name", with(8, std::string_view("\0\0", 2))},
                {"another name", with(472 + 2 * 5, "Q")}};
    for (const auto& row : rows) {
        std::filesystem::remove(folder / "P.PDC");
        if (!row.cache.empty()) {
            Write("P.PDC", row.cache);
        }
        EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd"))) << row.what;
        EXPECT_TRUE(loaded) << row.what;
        EXPECT_EQ(Read("P.PDC"), good) << row.what;
    }
    std::filesystem::remove(folder / "P.ppd");
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd")));
    EXPECT_FALSE(loaded) << "no PPD, no description";
    loaded.reset();
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

// A file that has what acceptance asks for but would send its readers astray is parsed anew.
TEST_F(CacheFile, IsRefusedWhenItLeavesTheBlock) {
    Write("P.ppd", kPpd);
    UsesCache(TEXT("C:\\D\\P.ppd"));
    const std::string good = Read("P.PDC");
    const auto* header = reinterpret_cast<const PrinterDescription*>(good.data());
    const size_t feature = header->Features.Offset();
    const auto* record = reinterpret_cast<const FeatureRecord*>(good.data() + feature);
    const size_t option = record->Options.Offset();
    const size_t font = header->DeviceFonts.Offset();
    const size_t end = good.size();
    const struct {
        const char* what;
        size_t at;
        uint32_t value;
        bool sound;
    } rows[] = {
        {"nothing changed", feature, static_cast<uint32_t>(record->Next.Offset()), true},
        {"a string at the block's end", 16, static_cast<uint32_t>(end), false},
        {"a string past the end is an absent one", 16, static_cast<uint32_t>(end + 1), true},
        {"a string whose reference is above 4 GB is an absent one", 20, 1, true},
        {"a list that ends at a reference above 4 GB", feature + 4, 1, false},
        {"a stored name that runs into the next string", 472 + 20, 0x410041, false},
        {"an option without name", option + 8, 0, false},
        {"a font that is its own next", font, static_cast<uint32_t>(font), false},
        {"a font without name", font + 8, 0, false},
        {"a record past its place", feature, static_cast<uint32_t>(end - 4), false},
        {"a list that runs back", feature, static_cast<uint32_t>(feature), false},
        {"options that are another feature's", feature + 56, static_cast<uint32_t>(feature), false},
        {"an option that is its own next", option, static_cast<uint32_t>(option), false},
        {"an option size of another kind", feature + 40, 112, false},
        {"a kind that does not exist", feature + 44, 18, false},
        {"a feature of neither group", feature + 52, 2, false},
        {"a feature without name", feature + 8, 0, false},
        {"a number that is another's", feature + 50, 7, false},
        {"more document features than there are", 300, 3, false},
        {"a longer order table", header->OrderDependencies.Offset(), 12u << 16 | 60000, false},
        {"constraints of another size", header->UIConstraints.Offset(), 12u << 16 | 1, false},
        {"no tables at all", 464, 0, true},
        {"a string that runs into the next record", option - 4, 0x41414141, false},
        {"a string that does not end", end - 4, 0x41414141, false},
    };
    for (const auto& row : rows) {
        std::string changed = good;
        const size_t width = row.at == 300 || row.at == feature + 44 || row.at == feature + 50
                                 ? sizeof(uint16_t)
                                 : sizeof(uint32_t);
        std::memcpy(changed.data() + row.at, &row.value, width);
        Write("P.PDC", changed);
        EXPECT_EQ(UsesCache(TEXT("C:\\D\\P.ppd")), row.sound) << row.what;
        EXPECT_TRUE(loaded) << row.what;
    }
    // An installable feature before a document one, all numbers being right.
    std::string swapped = good;
    const auto put = [&](size_t at, uint16_t value) {
        std::memcpy(swapped.data() + at, &value, sizeof(value));
    };
    const size_t second = record->Next.Offset();
    const size_t third =
        reinterpret_cast<const FeatureRecord*>(good.data() + second)->Next.Offset();
    put(feature + 52, 1);
    put(second + 50, 0);
    put(third + 50, 1);
    put(300, 1);
    put(302, 2);
    Write("P.PDC", swapped);
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd")));
    // A stale FeatureByKind in the file is no feature.
    std::string changed = good;
    changed.replace(312, 136, std::string(136, '\x7F'));
    Write("P.PDC", changed);
    EXPECT_TRUE(UsesCache(TEXT("C:\\D\\P.ppd")));
    EXPECT_EQ(FeatureOf(*loaded, FeatureKind::Resolution), nullptr);
}

TEST_F(CacheFile, IsNeitherReadNorWrittenWhenItWouldBeThePpd) {
    for (const char* name : {"Q.PDC", "q.pdc"}) {
        Write(name, kPpd);
        for (int i = 0; i < 2; ++i) {
            EXPECT_FALSE(UsesCache(TEXT("C:\\D\\q.pdc")));
            EXPECT_TRUE(loaded);
            EXPECT_EQ(Read(name), kPpd);
        }
        std::filesystem::remove(folder / name);
    }
}

TEST_F(CacheFile, IsUsedFrom505BytesOnAndWithAVersionOnly) {
    const struct {
        const char* ppd;
        uint32_t size;
        bool used;
    } rows[] = {{"*FileVersion: \"1.5\"\n", 504, false},
                {"*FileVersion: \"1.5\"\n*NickName: \"N\"\n", 508, true},
                {"*NickName: \"N\"\n", 508, false},
                {"*FileVersion: \"0\"\n*NickName: \"N\"\n", 508, false}};
    for (const auto& row : rows) {
        Write("P.ppd", row.ppd);
        std::filesystem::remove(folder / "P.PDC");
        UsesCache(TEXT("C:\\D\\P.ppd"));
        EXPECT_EQ(Read("P.PDC").size(), row.size) << row.ppd;
        EXPECT_EQ(UsesCache(TEXT("C:\\D\\P.ppd")), row.used) << row.ppd;
    }
}

TEST_F(CacheFile, IsNotUsedWithoutAQuotedVersionAndNeverStopsALoad) {
    Write("P.PPD", "*FileVersion: 1.5\n*Duplex None: \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\"\n");
    UsesCache(TEXT("C:\\D\\P.PPD"));
    EXPECT_EQ(loaded->FileVersion, 384u);
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.PPD")));

    // A zero byte ends the text that the version is looked for in.
    Write("P.PPD", std::string("*% \0\n", 5) + kPpd);
    UsesCache(TEXT("C:\\D\\P.PPD"));
    EXPECT_EQ(loaded->FileVersion, 384u);
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.PPD")));

    // The version is far from the file's beginning, or across a round number of bytes.
    for (const size_t before : {4096u - 17 - 6, 6000u}) {
        Write("Far.PPD", std::string(before, '\n') + kPpd);
        std::filesystem::remove(folder / "Far.PDC");
        UsesCache(TEXT("C:\\D\\Far.PPD"));
        EXPECT_TRUE(UsesCache(TEXT("C:\\D\\Far.PPD"))) << before;
    }

    // Whatever call fails, the load does not get worse than a parse of the PPD.
    // Of the reads the first is of the cache file's header, the last of the rest of it.
    const std::pair<const char*, unsigned> calls[] = {{"ReadFile", 1},    {"ReadFile", 3},
                                                      {"ReadFile", 4},    {"GetFileSize", 1},
                                                      {"GlobalAlloc", 2}, {"WriteFile", 1}};
    for (const auto& [call, n] : calls) {
        UsesCache(TEXT("C:\\D\\Far.PPD"));
        if (std::string_view(call) == "WriteFile") {
            std::filesystem::remove(folder / "Far.PDC");  // so that one is written
        }
        machine.faults.FailCall(call, n);
        EXPECT_FALSE(UsesCache(TEXT("C:\\D\\Far.PPD"))) << call << n;
        EXPECT_TRUE(loaded) << call << n;
        EXPECT_TRUE(machine.faults.struck()) << call << n;
        machine.faults.Clear();
    }
    std::filesystem::remove(folder / "Far.PDC");
    std::filesystem::create_directory(folder / "Far.PDC");
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\Far.PPD")));
    EXPECT_TRUE(loaded);

    Write("Bad.PPD", kPpd + ("*" + std::string(41, 'k')) + ": x\n");
    EXPECT_FALSE(UsesCache(TEXT("C:\\D\\Bad.PPD")));
    EXPECT_FALSE(loaded);
    EXPECT_FALSE(std::filesystem::exists(folder / "Bad.PDC"));
    loaded.reset();
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
    EXPECT_EQ(LoadPrinterDescription(nullptr), nullptr);
}

// Of a file that shrinks while it is read, and of one that the disk has no room for.
TEST_F(CacheFile, IsNotAcceptedWhenCutShort) {
    Write("P.ppd", kPpd);
    UsesCache(TEXT("C:\\D\\P.ppd"));
    const std::string good = Read("P.PDC");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited;
    getrlimit(RLIMIT_FSIZE, &unlimited);
    for (size_t size = 0; size < good.size(); size += 52) {
        for (unsigned cutRead = 1; cutRead <= 3; ++cutRead) {  // header, PPD, rest
            unsigned reads = 0;
            machine.faults.Count([&](const std::string& name) {
                if (name == "ReadFile" && ++reads == cutRead) {
                    std::filesystem::resize_file(folder / "P.PDC", size);
                }
            });
            EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd"))) << size << ' ' << cutRead;
            EXPECT_TRUE(loaded && Read("P.PDC") == good) << size << ' ' << cutRead;
        }
        machine.faults.Clear();

        Write("P.PDC", "old");
        rlimit limit = unlimited;
        limit.rlim_cur = size;
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd"))) << size;
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_TRUE(loaded) << size;
        EXPECT_EQ(Read("P.PDC"), good.substr(0, size));
        EXPECT_FALSE(UsesCache(TEXT("C:\\D\\P.ppd"))) << size;
        EXPECT_TRUE(loaded && Read("P.PDC") == good) << size;
    }
    std::signal(SIGXFSZ, SIG_DFL);
}

// Each writes blocks of two sizes; whatever is accepted is one of the four, whole.
TEST_F(CacheFile, IsNeverAcceptedTornWhenTwoProcessesRebuildIt) {
    Write("P.ppd", kPpd);
    const WCHAR* const path = TEXT("C:\\D\\P.ppd");
    std::vector<DescriptionPtr> blocks;
    for (const size_t options : {1, 400, 2, 300}) {
        std::string text = kPpd;
        for (size_t i = 0; i < options; ++i) {
            text += "*PageSize P" + std::to_string(i) + ": \"" + std::string(9, 'x') + "\"\n";
        }
        blocks.emplace_back(PackDescription(ParsePpdText(text, path)));
        ASSERT_TRUE(blocks.back());
    }
    struct Seen {
        unsigned own = 0;
        unsigned others = 0;
        unsigned torn = 0;
    };
    const auto rebuild = [&](size_t first) {
        Seen seen;
        for (unsigned round = 0; round < 10'000; ++round) {
            WriteCachedDescription(path, blocks[first + round % 2].get(), nullptr);
            const DescriptionPtr read(ReadCachedDescription(path));
            if (read) {
                const auto found = std::ranges::find_if(blocks, [&](const DescriptionPtr& block) {
                    return std::ranges::equal(BytesOf(*block), BytesOf(*read));
                });
                const auto which = static_cast<size_t>(found - blocks.begin());
                ++(which == blocks.size()   ? seen.torn
                   : which / 2 == first / 2 ? seen.own
                                            : seen.others);
            }
        }
        return seen;
    };
    const pid_t other = fork();
    if (other == 0) {
        const Seen seen = rebuild(2);
        _exit(seen.torn == 0 && seen.own != 0 && seen.others != 0 ? 0 : 1);
    }
    const Seen seen = rebuild(0);
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0) << "what the other process saw";
    EXPECT_EQ(seen.torn, 0u);
    EXPECT_GT(seen.own, 0u);
    EXPECT_GT(seen.others, 0u);
}

TEST(CacheFileName, ReplacesWhatFollowsTheLastFullStop) {
    const struct {
        std::u16string path;
        std::u16string name;  // empty: too long
    } rows[] = {{u"C:\\D\\P.ppd", u"C:\\D\\P.PDC"},
                {u"C:\\D\\P", u"C:\\D\\P.PDC"},
                {u"C:\\D.E\\P", u"C:\\D.PDC"},
                {u"P.a.", u"P.a.PDC"},
                {std::u16string(255, u'a'), std::u16string(255, u'a') + u".PDC"},
                {std::u16string(256, u'a'), u""},
                {std::u16string(255, u'a') + u".longer", std::u16string(255, u'a') + u".PDC"}};
    for (const auto& row : rows) {
        WCHAR name[MAX_PATH] = {};
        EXPECT_EQ(CacheFileName(row.path.c_str(), name), !row.name.empty());
        EXPECT_EQ(std::u16string(name), row.name);
    }
}

TEST(ReadFileVersion, TakesTheNextQuotedText) {
    const struct {
        const char* text;
        uint32_t version;
    } rows[] = {{"*FileVersion: \"1.10\"", 282},
                {"*% FileVersion\n*NickName: \"2\"\n*FileVersion: \"1.0\"\n", 512},
                {"*FileVersion: 1.0\n*NickName: \"Fax\"", 0},
                {"*FileVersion: \"1.0", 0},
                {"*FileVersion: 1.0", 0},
                {"\"1.0\"", 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(ReadFileVersion(row.text), row.version) << row.text;
    }
}

TEST(RelocateDescription, TakesOffsetsUpToTheBlocksEnd) {
    embedded::Machine machine;
    const DescriptionPtr block = PackText(kPpd);
    block->NickName = {block->TotalSize};
    block->Password = {uint64_t{block->TotalSize} + 1};
    RelocateDescription(block.get());
    EXPECT_EQ(block->NickName.Target(), BytesOf(*block).data() + block->TotalSize);
    EXPECT_EQ(block->Password.Target(), nullptr);
    EXPECT_EQ(FeatureOf(*block, FeatureKind::VMOption), Feature(block, "VMOption"));
}

}  // namespace
}  // namespace ksfax
