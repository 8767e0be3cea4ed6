// What a transcript of ksfax send cannot show: bytes of files, and two runs at once.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

TEST(Send, LeavesTheJobsOwnFiles) {
    TestFolder folder;
    folder.AddExamples();
    const Outcome run = RunKsfax(folder, {"send", "--to", "A=1", "--cover", "examples/cover.bmp",
                                          "--memo", "examples/memo.txt", "--out", "job", "--json"});
    ASSERT_EQ(run.code, 0) << run.err;
    const nlohmann::json job = run.Json();
    const auto bytes = [&](const char* name) { return FileText(job[name].get<std::string>()); };
    EXPECT_EQ(bytes("coverBitmap"), FileText(folder / "examples/cover.bmp"));
    EXPECT_EQ(bytes("memo"), FileText(folder / "examples/memo.txt"));
    EXPECT_TRUE(bytes("coverPage").starts_with("\x89PNG"));
    EXPECT_NE(bytes("snapshot").find("Name1=A\r\n"), std::string::npos);
    EXPECT_EQ(bytes("snapshot"), bytes("iniFile")) << "the fax job file as it stood";
    // Its path on drive Z:, a terminator, and 8 bytes before it.
    EXPECT_EQ(job["mappingSize"], 8 + 2 * (2 + job["snapshot"].get<std::string>().size() + 1));
}

TEST(Send, WaitsForAnotherRunOnItsMachine) {
    TestFolder folder;
    std::filesystem::create_directory(folder / "m");
    const int lock = open((folder / "m/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    RunShell(folder, "(" KSFAX_PROGRAM " send --to A=1 --machine m --out job >out 2>&1\n"
                     "echo $? >done) &\n");
    usleep(300'000);
    EXPECT_FALSE(std::filesystem::exists(folder / "done"));
    EXPECT_FALSE(std::filesystem::exists(folder / "m/drive_c"));
    close(lock);
    for (int i = 0; i < 500 && FileText(folder / "done").empty(); ++i) {
        usleep(20'000);
    }
    EXPECT_EQ(FileText(folder / "done"), "0\n") << FileText(folder / "out");
}

}  // namespace
}  // namespace tool
