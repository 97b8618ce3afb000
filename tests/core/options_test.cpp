// Command-line parsing: periods, flags, repeats, bad values, and a fresh start on every parse.
// (The usage cases run against the real binary.)
#include "options.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "common/test_util.h"
#include "tarn_log.h"
#include "zel_helper.h"

namespace {

ParseResult parse(std::vector<std::string> args, CommandLineConfig* cfg) {
    args.insert(args.begin(), "tarn_stats");
    std::vector<char*> argv;
    for (auto& s : args) argv.push_back(&s[0]);
    argv.push_back(nullptr);
    return parse_command_line(static_cast<int>(args.size()), argv.data(), cfg);
}

TEST(OptionsTest, PeriodsFlagsLevelAndAFreshStart) {
    CommandLineConfig cfg;
    ASSERT_EQ(ParseResult::Run,
              parse({"--cpu", "5", "--gpu", "6", "--bat", "fast", "--fps", "12", "--cpu", "10",
                     "--therm", "0", "--stab", "3", "--daemon", "-d", "loud", "stray"},
                    &cfg));
    EXPECT_EQ(10, cfg.power.tcpu) << "a later repeat wins";
    EXPECT_EQ(6, cfg.power.tgpu);
    EXPECT_EQ(0, cfg.power.tbat) << "non-numeric reads as 0";
    EXPECT_EQ(12, cfg.power.tfps);
    EXPECT_EQ(0, cfg.thermal.ttherm);
    EXPECT_EQ(0x400000000000000Fu, cfg.thermal.enable_flag) << "set even with period 0";
    EXPECT_EQ(3, cfg.stability.tstab);
    EXPECT_EQ(0x800000000000000Fu, cfg.stability.enable_flag);
    EXPECT_TRUE(cfg.startAtOnce);
    EXPECT_EQ(0, g_debug_level);
    g_debug_level = 4;

    // Every parse starts from zero, and the last --local decides: a path that cannot be opened
    // leaves no file, even after one that could.
    const std::string opened = ::testing::TempDir() + "options_test_local";
    ASSERT_EQ(ParseResult::Run,
              parse({"--local", opened, "--local", "/proc/no/such/file", "--ps", "4"}, &cfg));
    EXPECT_EQ(nullptr, g_local_file);
    unlink(opened.c_str());
    EXPECT_EQ(4, cfg.power.tps);
    EXPECT_EQ(0, cfg.power.tcpu);
    EXPECT_EQ(0u, cfg.thermal.enable_flag | cfg.stability.enable_flag);
    EXPECT_FALSE(cfg.startAtOnce);
}

// A FIFO that has a reader is taken, and the uploaded lines reach the reader.
TEST(OptionsTest, LocalFifoWithAReader) {
    tarn_test::TempDir dir;
    const std::string fifo = dir.path + "/records";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    CommandLineConfig cfg;
    ASSERT_EQ(ParseResult::Run, parse({"--local", fifo}, &cfg));
    ASSERT_NE(nullptr, g_local_file);
    PowerZELHelper::getInstance()->log_blob(2, "battery,1", 9);
    fflush(g_local_file);
    char buf[512] = {};
    ssize_t n = read(reader, buf, sizeof(buf) - 1);
    // Without identity properties or version file, every field of the header has its default.
    EXPECT_STREQ(
        "tarn-stats-v2.1,dummymanufacturer,dummyplatform,dummyDevice,dummyVersion,"
        "com.android.launcher3,battery,1\n",
        n > 0 ? buf : "");
    fclose(g_local_file);
    g_local_file = nullptr;
    close(reader);
}

}  // namespace
