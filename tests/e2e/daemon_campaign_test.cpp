// The real daemon under the simulator: the table walk seen in the debug log, campaign start, stop
// and restart, rejected campaigns and the application name carried by every line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace {

using tarn_e2e::count;
using tarn_e2e::of_kpi;
using tarn_test::SimOptions;
using tarn_test::SimRun;

const char kTickEnd[] = "delay time(ms):1000 runtime(us):";

std::string campaign_start(SimRun& sim, const std::vector<std::string>& how) {
    std::vector<std::string> args = {"campaign", "start"};
    args.insert(args.end(), how.begin(), how.end());
    std::string out;
    EXPECT_EQ(0, sim.control(args, &out));
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return out;
}

// Waits until the worker has been quiet (no new tick) for a while after a stop.
size_t settled_ticks(SimRun& sim) {
    size_t ticks = count(sim.log(), kTickEnd);
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        size_t now = count(sim.log(), kTickEnd);
        if (now == ticks) return now;
        ticks = now;
    }
}

TEST(DaemonWalkTest, DebugLevelSevenShowsEveryDueRowInTableOrder) {
    SimOptions opts;
    SimRun sim(opts, {tarn_test::daemon_path(),
                      "-d",
                      "7",
                      "--daemon",
                      "--bat",
                      "1",
                      "--cpu",
                      "1",
                      "--gpu",
                      "1",
                      "--ddr",
                      "1",
                      "--lpm",
                      "1",
                      "--ps",
                      "1",
                      "--bri",
                      "1",
                      "--fps",
                      "1",
                      "--therm",
                      "1",
                      "--stab",
                      "1"});
    ASSERT_TRUE(sim.wait_for_log(kTickEnd));
    ASSERT_TRUE(tarn_test::wait_until([&] { return count(sim.log(), kTickEnd) >= 3; },
                                      std::chrono::seconds(60)));
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();

    const char* rows[] = {
        "data handler:i:0 id:2 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:1 id:3 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:2 id:4 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:3 id:5 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:4 id:6 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:5 id:7 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:6 id:8 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:7 id:9 count:0 expire:1 flag:0x0 ret:",
        "data handler:i:8 id:1000 count:0 expire:1 flag:0x400000000000000F ret:",
        "data handler:i:9 id:2000 count:0 expire:1 flag:0x800000000000000F ret:",
    };
    size_t first_end = log.find(kTickEnd);
    size_t pos = 0;
    for (const char* row : rows) {
        size_t at = log.find(row, pos);
        ASSERT_NE(std::string::npos, at) << row;
        EXPECT_LT(at, first_end) << row << " belongs to the first tick";
        EXPECT_NE(std::string::npos, log.rfind("D TARN_STATS: MainThread() ", at));
        pos = at;
    }
    EXPECT_EQ(0u, count(log, "id:3000"));
    EXPECT_GE(count(log, rows[0]), 3u);
    // Every row ran on each tick that completed.
    EXPECT_EQ(count(log, rows[0]), count(log, rows[9]));
    EXPECT_NE(std::string::npos, log.find("StartCampaign to sample data!!"));
    EXPECT_NE(std::string::npos, log.find("service init finished"));
}

TEST(DaemonCampaignTest, StartStopRestartKeepsCountsAndRejectsBadCampaigns) {
    SimOptions opts;
    SimRun sim(opts, {tarn_test::daemon_path(), "-d", "7"});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly"));

    // Rejected campaigns before any start: nothing is configured or started.
    std::string empty = "/tmp/tarn_campaign_empty_" + std::to_string(getpid());
    std::string junk = "/tmp/tarn_campaign_junk_" + std::to_string(getpid());
    tarn_test::write_file(empty, "");
    tarn_test::write_file(junk, std::string("\x12\x7f\x08", 3));
    EXPECT_EQ("-1", campaign_start(sim, {"--file", empty}));
    EXPECT_EQ("-1", campaign_start(sim, {"--file", junk}));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(0u, count(sim.log(), kTickEnd));
    EXPECT_EQ(2u, count(sim.log(), "start campaign called size:"));
    EXPECT_NE(std::string::npos, sim.log().find("start campaign called size:0 ret:1"));
    EXPECT_NE(std::string::npos, sim.log().find("start campaign called size:3 ret:0"));

    // Battery every second tick. Counts go on across stops, so at every quiet moment the battery
    // has run once per two ticks ever run.
    const std::string campaign =
        "version: 1 powerCfg { battery_period: 2 sampling_flag: 0xFFFFFFFF00000003 } "
        "thermalCfg { sampling_flag: 0x4000000000000000 }";
    auto battery_runs = [&] { return count(sim.log(), "data handler:i:0 id:2 "); };
    for (int round = 0; round < 3; ++round) {
        size_t before = count(sim.log(), kTickEnd);
        EXPECT_EQ("0", campaign_start(sim, {"--text", campaign}));
        // Stop on an odd tick count where possible: that is where a reset count would show.
        ASSERT_TRUE(tarn_test::wait_until(
            [&] {
                size_t t = count(sim.log(), kTickEnd);
                return t > before && t % 2 == 1;
            },
            std::chrono::seconds(60)));
        EXPECT_EQ(0, sim.control({"campaign", "stop"}));
        size_t ticks = settled_ticks(sim);
        EXPECT_EQ(ticks / 2, battery_runs()) << "round " << round;

        if (round == 1) {
            // Rejected campaigns while stopped do not start sampling again.
            EXPECT_EQ("-1", campaign_start(sim, {"--file", junk}));
            EXPECT_EQ(ticks, settled_ticks(sim));
        }
    }
    std::string log = sim.log();
    EXPECT_NE(std::string::npos,
              log.find("power: enable_flag:0x3 tcpu:0 tgpu:0 tbat:2 tddr:0 tlpm:0"));
    EXPECT_NE(std::string::npos, log.find("therm: enable_flag:0x0 ttherm:0"));
    EXPECT_NE(std::string::npos, log.find("stop campaign called"));
    EXPECT_EQ(0u, count(log, "data handler:i:1 "));
    EXPECT_EQ(battery_runs(), of_kpi(sim.records(), 2).size());
    EXPECT_EQ(0, sim.stop());
    unlink(empty.c_str());
    unlink(junk.c_str());
}

TEST(DaemonCampaignTest, RecordsCarryTheAppNameOfStartAndResumeHints) {
    SimOptions opts;
    SimRun sim(opts, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    auto battery = [&] { return of_kpi(sim.records(), 2); };
    auto app_of = [](const std::string& line) {
        // header: version, manufacturer, model, serial, build id; then the app name
        size_t pos = 0;
        for (int i = 0; i < 5; ++i) pos = line.find(',', pos) + 1;
        return line.substr(pos, line.find(',', pos) - pos);
    };
    ASSERT_TRUE(tarn_test::wait_until([&] { return !battery().empty(); }, std::chrono::seconds(60)));
    EXPECT_EQ("com.android.launcher3", app_of(battery().back()));

    // After each hint has been handled, the record two uploads later shows the expected name.
    auto expect_after = [&](const std::vector<std::string>& hint, const std::string& app) {
        EXPECT_EQ(0, sim.control(hint)) << hint[1];
        size_t n = battery().size();
        ASSERT_TRUE(tarn_test::wait_until([&] { return battery().size() >= n + 2; },
                                          std::chrono::seconds(60)));
        EXPECT_EQ(app, app_of(battery().back())) << hint[1];
    };
    expect_after({"hint", "0x1001", "com.example.app/.MainActivity"}, "com.example.app");
    expect_after({"hint", "0x1002", "org.sample.viewer/.Viewer"}, "com.example.app");
    expect_after({"hint", "4100", "org.sample.viewer/.Viewer"}, "com.example.app");
    expect_after({"hint", "0x1003", "org.sample.viewer"}, "org.sample.viewer");
    expect_after({"hint", "0x2000", "com.example.app/.A", "5", "6"}, "org.sample.viewer");
    EXPECT_EQ(0, sim.stop());
}

}  // namespace
