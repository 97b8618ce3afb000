// The real daemon under the simulator: usage text and exit statuses, the debug-level property,
// rejected campaigns, campaign start, stop and restart as the debug log shows the table walk, and
// the application name that hints give every line, and phone-b's thermal groups with and without
// its device profile.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <sstream>
#include <thread>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace {

using tarn_e2e::by_kpi;
using tarn_e2e::count;
using tarn_test::SimOptions;
using tarn_test::SimRun;

TEST(DaemonTest, UsageTextAndExitZero) {
    std::string path = "/tmp/tarn_usage_" + std::to_string(getpid());
    std::string usage;
    for (std::vector<std::string> args :
         {std::vector<std::string>{"-h"}, {"--bat"}, {"--local", path, "--what"}}) {
        args.insert(args.begin(), tarn_test::daemon_path());
        std::string out, err;
        EXPECT_EQ(0, tarn_test::run_command(args, &out, &err)) << args[1];
        // The same text each time, the help text of -h.
        if (usage.empty()) usage = err;
        EXPECT_EQ(usage, err) << args[1];
        EXPECT_EQ("", out);
    }
    EXPECT_EQ(0u, usage.rfind("tarn_stats : tarn-stats-v2.1\nUsage: ", 0)) << usage;
    EXPECT_EQ(0, access(path.c_str(), F_OK)) << "--local opened its file before the usage";
    unlink(path.c_str());
}

TEST(DaemonTest, MissingServicesGiveTheirExitStatus) {
    // A non-zero level property wins over -d: at 3 not even the warnings before the registration.
    // vendor.tarn_stats.debug_level counts only when rw.debug.tarn.stats.enabled is 0 or unset.
    SimOptions no_sdk;
    no_sdk.telemetry = false;
    no_sdk.props = {"rw.debug.tarn.stats.enabled=3", "vendor.tarn_stats.debug_level=7"};
    SimRun a(no_sdk, {tarn_test::daemon_path(), "-d", "7", "--daemon", "--bat", "1"});
    EXPECT_EQ(255, a.wait_exit());
    std::string log = a.log();
    EXPECT_EQ(1u, count(log, "E TARN_STATS_HELP: registerCollector() "));
    EXPECT_EQ(1u, count(log, ": g_zel_hndl register failed name:core.pst.product_bigdata"));
    EXPECT_EQ(1u, count(log, "E TARN_STATS_MAIN: main() "));
    EXPECT_EQ(1u, count(log, ": registerCollector failed ret:-1"));
    EXPECT_EQ(1u, count(log, "getprop key:rw.debug.tarn.stats.enabled value:3 default:0"));
    EXPECT_EQ(0u, count(log, " W TARN_STATS"));
    no_sdk.props = {"rw.debug.tarn.stats.enabled=0", "vendor.tarn_stats.debug_level=3"};
    SimRun vendor_level(no_sdk, {tarn_test::daemon_path(), "-d", "7", "--daemon", "--bat", "1"});
    EXPECT_EQ(255, vendor_level.wait_exit());
    log = vendor_level.log();
    EXPECT_EQ(1u, count(log, "getprop key:vendor.tarn_stats.debug_level value:3 default:0")) << log;
    EXPECT_EQ(0u, count(log, " W TARN_STATS"));

    SimOptions no_hal;
    no_hal.perf_hal = false;
    SimRun b(no_hal, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    EXPECT_EQ(14, b.wait_exit());
    log = b.log();
    size_t failed = log.find(": perfBinder.get() failed");
    size_t stop = log.find(": service exit");
    ASSERT_NE(std::string::npos, failed) << log;
    EXPECT_LT(failed, stop);
    // The registration with the SDK is undone on the way out.
    EXPECT_LT(stop, log.find(": PowerZELHelper() do zel_deregister()"));
    EXPECT_TRUE(b.records().empty());
}

const char kTickEnd[] = "delay time(ms):1000 runtime(us):";

// Campaigns started, stopped and restarted as the debug log shows the table walk; in the first
// round, hints change the application name that the records carry.
TEST(DaemonTest, StartStopRestartKeepsCountsRejectsBadCampaignsAndFollowsHints) {
    SimRun sim(SimOptions(), {tarn_test::daemon_path(), "-d", "7"});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly"));
    auto start = [&](const std::string& how, const std::string& what) {
        std::string out;
        EXPECT_EQ(0, sim.control({"campaign", "start", how, what}, &out));
        return std::stoi(out);
    };
    // The application of the battery record after next, which was certainly formatted after the
    // hints were handled: the sixth field, after the five of the header.
    auto app_after = [&](std::vector<std::vector<std::string>> hints) {
        size_t n = by_kpi(sim.records())[2].size();
        for (auto& hint : hints) {
            hint.insert(hint.begin(), "hint");
            EXPECT_EQ(0, sim.control(hint));
        }
        EXPECT_TRUE(tarn_test::wait_until([&] { return by_kpi(sim.records())[2].size() >= n + 2; },
                                          std::chrono::seconds(60)));
        std::string line = by_kpi(sim.records())[2].back();
        size_t pos = 0;
        for (int i = 0; i < 5; ++i) pos = line.find(',', pos) + 1;
        return line.substr(pos, line.find(',', pos) - pos);
    };
    auto ticks = [&] { return count(sim.log(), kTickEnd); };
    // Time for a worker that wrongly runs to log a tick; no outcome of a sound daemon depends on it.
    auto give_a_wrong_worker_time = [] { std::this_thread::sleep_for(std::chrono::seconds(2)); };
    std::string junk = "/tmp/tarn_junk_" + std::to_string(getpid());
    tarn_test::write_file(junk, std::string("\x12\x7f\x08", 3));
    EXPECT_EQ(-1, start("--text", ""));
    EXPECT_EQ(-1, start("--file", junk));
    unlink(junk.c_str());
    give_a_wrong_worker_time();
    EXPECT_EQ(0u, ticks()) << "neither the command line nor a rejected campaign starts anything";
    EXPECT_EQ(1u, count(sim.log(), "start campaign called size:0 ret:1"));
    EXPECT_EQ(1u, count(sim.log(), "start campaign called size:3 ret:0"));

    // Battery every second tick; each round stops after an odd number of ticks in all. Counts go
    // on across stops, so the battery runs on even ticks only; a count restarted by a campaign
    // would move its runs onto odd ticks.
    for (int round = 0; round < 3; ++round) {
        size_t before = ticks();
        EXPECT_EQ(0, start("--text", "powerCfg { battery_period: 2 sampling_flag: 0xF00000003 }"));
        if (round == 0) {
            EXPECT_EQ("com.android.launcher3", app_after({}));
            EXPECT_EQ("com.example.app", app_after({{"0x1001", "com.example.app/.MainActivity"}}));
            EXPECT_EQ("com.example.app", app_after({{"0x1002", "org.sample.viewer/.Viewer"},
                                                    {"4100", "org.sample.viewer"}}));
            EXPECT_EQ("org.sample.viewer", app_after({{"0x1003", "org.sample.viewer"}}));
            EXPECT_EQ("org.sample.viewer",
                      app_after({{"0x2000", "com.example.app/.A", "5", "6"}, {"0x1001", ""}}));
            EXPECT_EQ("", app_after({{"0x1001", "/x"}}));
        }
        ASSERT_TRUE(tarn_test::wait_until([&] { return ticks() > before && ticks() % 2 == 1; },
                                          std::chrono::seconds(60)));
        EXPECT_EQ(0, sim.control({"campaign", "stop"}));
        size_t stopped = ticks();
        give_a_wrong_worker_time();
        EXPECT_LE(ticks(), stopped + 1) << "only a tick under way at the stop may still end";
    }
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    std::istringstream lines(log);
    size_t tick = 0, runs = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(kTickEnd) != std::string::npos) ++tick;
        if (line.find(": data handler:i:0 id:2 count:0 expire:2 flag:0x0 ret:") == std::string::npos)
            continue;
        ++runs;
        EXPECT_EQ(1u, tick % 2) << "battery ran on tick " << tick + 1;
    }
    EXPECT_LE(2u, runs);
    EXPECT_EQ(runs, by_kpi(sim.records())[2].size());
    EXPECT_EQ(runs, count(log, "data handler:"));
    EXPECT_EQ(3u, count(log, "power: enable_flag:0x3 tcpu:0 tgpu:0 tbat:2 tddr:0 tlpm:0"));
    EXPECT_LT(log.find(": try to Deregister callback"), log.find(": try to register callback"));
    EXPECT_EQ(1u, count(log,
                        "hint:0x1004 [PAUSE] userDataStr:org.sample.viewer appName:"
                        "org.sample.viewer userData1:0 userData2:0"));
    EXPECT_EQ(1u, count(log,
                        "hint:0x2000 [NotActivityAction] userDataStr:com.example.app/.A "
                        "appName:com.example.app userData1:5 userData2:6"));
}

// phone-b carries thermal type names captured on real phones. With its device profile every group
// it has sensors for reports a value; with the profile removed the groups that only the profile
// fills stay at 0.
TEST(DaemonTest, PhoneBThermalGroupsFollowItsDeviceProfile) {
    const char* const kAlways[] = {"cpu-tj-max-temp", "gpu-tj-max-temp", "aoss-tj-temp",
                                   "ddr-tj-temp", "video-tj-temp"};
    const char* const kByProfile[] = {
        "skin-temp", "nsp-tj-temp", "camera-tj-temp", "cpu_pause", "cpu0", "cpu4", "gpu"};
    SimOptions opts;
    opts.image = TARN_SOURCE_DIR "/sim/devices/phone-b";
    for (bool profile : {true, false}) {
        SimRun sim(opts, {"/bin/sh", "-c",
                          std::string(profile ? "" : "rm /vendor/etc/tarn_stats/profile.json && ") +
                              "exec \"$0\" \"$@\"",
                          tarn_test::daemon_path(), "--therm", "1", "--daemon"});
        ASSERT_TRUE(sim.wait_for_records([](const std::vector<std::string>& lines) {
            auto kpi = by_kpi(lines);
            return !kpi[1000].empty() && !kpi[1001].empty();
        })) << sim.log();
        // "name: value," pieces of the first cooling and zone records, after header and app.
        std::map<std::string, long> value;
        auto kpi = by_kpi(sim.records());
        for (const std::string& line : {kpi[1001][0], kpi[1000][0]}) {
            size_t at = 0;
            for (int i = 0; i < 6; i++) at = line.find(',', at) + 1;
            std::istringstream pieces(line.substr(at));
            for (std::string piece; std::getline(pieces, piece, ',');) {
                size_t colon = piece.find(':');
                value[piece.substr(0, colon)] = atol(piece.c_str() + colon + 1);
            }
        }
        for (const char* group : kAlways) EXPECT_NE(0, value.at(group)) << group;
        for (const char* group : kByProfile) EXPECT_EQ(profile, value.at(group) != 0) << group;
        EXPECT_EQ(0, sim.stop());
    }
}

}  // namespace
