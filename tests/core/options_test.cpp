// Command-line parsing: periods, flags, repeats, bad values and the options that end in the usage.
#include "options.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "common/test_util.h"
#include "core/tarn_log.h"

namespace {

struct Args {
    explicit Args(std::vector<std::string> list) : strings(std::move(list)) {
        strings.insert(strings.begin(), "tarn_stats");
        for (auto& s : strings) ptrs.push_back(&s[0]);
        ptrs.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(strings.size()); }
    char** argv() { return ptrs.data(); }
    std::vector<std::string> strings;
    std::vector<char*> ptrs;
};

class OptionsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mLevel = g_debug_level;
        g_local_file = nullptr;
    }
    void TearDown() override {
        g_debug_level = mLevel;
        if (g_local_file != nullptr) fclose(g_local_file);
        g_local_file = nullptr;
    }
    ParseResult parse(std::vector<std::string> list) {
        Args args(std::move(list));
        return parse_command_line(args.argc(), args.argv(), &cfg);
    }
    CommandLineConfig cfg;
    int32_t mLevel = 0;
};

TEST_F(OptionsTest, PeriodsLandInTheirFieldsAndLaterRepeatsWin) {
    ASSERT_EQ(ParseResult::Run,
              parse({"--cpu", "5", "--gpu", "6", "--bat", "7", "--ddr", "8", "--lpm", "9", "--ps",
                     "10", "--bri", "11", "--fps", "12", "--cpu", "10", "stray-argument"}));
    EXPECT_EQ(10, cfg.power.tcpu);
    EXPECT_EQ(6, cfg.power.tgpu);
    EXPECT_EQ(7, cfg.power.tbat);
    EXPECT_EQ(8, cfg.power.tddr);
    EXPECT_EQ(9, cfg.power.tlpm);
    EXPECT_EQ(10, cfg.power.tps);
    EXPECT_EQ(11, cfg.power.tbri);
    EXPECT_EQ(12, cfg.power.tfps);
    EXPECT_EQ(0u, cfg.power.enable_flag);
    EXPECT_EQ(0u, cfg.thermal.enable_flag);
    EXPECT_EQ(0u, cfg.stability.enable_flag);
    EXPECT_FALSE(cfg.startAtOnce);
}

TEST_F(OptionsTest, NoOptionsTurnsEverythingOff) {
    ASSERT_EQ(ParseResult::Run, parse({}));
    EXPECT_EQ(0, cfg.power.tcpu);
    EXPECT_EQ(0, cfg.thermal.ttherm);
    EXPECT_EQ(0, cfg.stability.tstab);
    EXPECT_EQ(0u, cfg.thermal.enable_flag);
    EXPECT_EQ(0u, cfg.stability.enable_flag);
    EXPECT_FALSE(cfg.startAtOnce);
    EXPECT_EQ(nullptr, g_local_file);
}

TEST_F(OptionsTest, ThermalAndStabilityOptionsSetTheirFlagsEvenWithPeriodZero) {
    ASSERT_EQ(ParseResult::Run, parse({"--therm", "0", "--stab", "3", "--daemon"}));
    EXPECT_EQ(0, cfg.thermal.ttherm);
    EXPECT_EQ(0x400000000000000Fu, cfg.thermal.enable_flag);
    EXPECT_EQ(3, cfg.stability.tstab);
    EXPECT_EQ(0x800000000000000Fu, cfg.stability.enable_flag);
    EXPECT_TRUE(cfg.startAtOnce);
}

TEST_F(OptionsTest, NonNumericValuesReadAsZero) {
    ASSERT_EQ(ParseResult::Run, parse({"--cpu", "fast", "--bat", "-3", "-d", "loud"}));
    EXPECT_EQ(0, cfg.power.tcpu);
    EXPECT_EQ(-3, cfg.power.tbat);
    EXPECT_EQ(0, g_debug_level);
    ASSERT_EQ(ParseResult::Run, parse({"--debug", "7"}));
    EXPECT_EQ(7, g_debug_level);
}

TEST_F(OptionsTest, HelpUnknownOptionsAndMissingArgumentsAskForTheUsage) {
    EXPECT_EQ(ParseResult::Usage, parse({"--help"}));
    EXPECT_EQ(ParseResult::Usage, parse({"-h"}));
    EXPECT_EQ(ParseResult::Usage, parse({"--cpu", "1", "--nosuch"}));
    EXPECT_EQ(ParseResult::Usage, parse({"-x"}));
    EXPECT_EQ(ParseResult::Usage, parse({"--cpu"}));
    // The parser starts afresh on every call: a good command line after bad ones still runs.
    EXPECT_EQ(ParseResult::Run, parse({"--cpu", "2"}));
    EXPECT_EQ(2, cfg.power.tcpu);
}

TEST_F(OptionsTest, LocalFileIsOpenedForAppendingAsTheOptionsAreRead) {
    char dir[] = "/tmp/tarn_options_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string path = std::string(dir) + "/records.txt";
    tarn_test::write_file(path, "kept\n");

    // The file is there even though a later option ends the parse with the usage.
    EXPECT_EQ(ParseResult::Usage, parse({"--local", path, "--bogus"}));
    ASSERT_NE(nullptr, g_local_file);
    fputs("added\n", g_local_file);
    fflush(g_local_file);
    EXPECT_EQ("kept\nadded\n", tarn_test::read_file(path));

    // A path that cannot be opened leaves no file and the parse goes on.
    fclose(g_local_file);
    g_local_file = nullptr;
    EXPECT_EQ(ParseResult::Run,
              parse({"--local", std::string(dir) + "/no/such/dir/f", "--ps", "4"}));
    EXPECT_EQ(nullptr, g_local_file);
    EXPECT_EQ(4, cfg.power.tps);

    unlink(path.c_str());
    rmdir(dir);
}

}  // namespace
