// The real daemon under the simulator: campaign start, stop and restart as the debug log shows the
// table walk, rejected campaigns and the application name carried by every line.
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

TEST(DaemonCampaignTest, StartStopRestartKeepsCountsAndRejectsBadCampaigns) {
    SimRun sim(SimOptions(), {tarn_test::daemon_path(), "-d", "7"});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly"));
    auto start = [&](std::vector<std::string> how) {
        how.insert(how.begin(), {"campaign", "start"});
        std::string out;
        EXPECT_EQ(0, sim.control(how, &out));
        return std::stoi(out);
    };
    // Ticks once the worker has been quiet for a while.
    auto settled_ticks = [&] {
        size_t ticks;
        do {
            ticks = count(sim.log(), kTickEnd);
            std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        } while (count(sim.log(), kTickEnd) != ticks);
        return ticks;
    };
    std::string empty = "/tmp/tarn_empty_" + std::to_string(getpid());
    std::string junk = "/tmp/tarn_junk_" + std::to_string(getpid());
    tarn_test::write_file(empty, "");
    tarn_test::write_file(junk, std::string("\x12\x7f\x08", 3));
    EXPECT_EQ(-1, start({"--file", empty}));
    EXPECT_EQ(-1, start({"--file", junk}));
    EXPECT_EQ(0u, settled_ticks()) << "a rejected campaign starts nothing";
    EXPECT_EQ(1u, count(sim.log(), "start campaign called size:0 ret:1"));
    EXPECT_EQ(1u, count(sim.log(), "start campaign called size:3 ret:0"));

    // Battery every second tick. Counts go on across stops, so whenever the worker is quiet the
    // battery has run once per two ticks ever run; stopping on odd counts shows a reset.
    for (int round = 0; round < 3; ++round) {
        size_t before = count(sim.log(), kTickEnd);
        EXPECT_EQ(0, start({"--text",
                            "powerCfg { battery_period: 2 sampling_flag: "
                            "0xFFFFFFFF00000003 }"}));
        ASSERT_TRUE(tarn_test::wait_until(
            [&] {
                size_t t = count(sim.log(), kTickEnd);
                return t > before && t % 2 == 1;
            },
            std::chrono::seconds(60)));
        EXPECT_EQ(0, sim.control({"campaign", "stop"}));
        if (round == 1) {
            EXPECT_EQ(-1, start({"--file", junk}));
        }
        size_t ticks = settled_ticks();
        EXPECT_EQ(ticks / 2, count(sim.log(), "data handler:i:0 id:2 ")) << round;
    }
    EXPECT_EQ(count(sim.log(), "data handler:i:0 "), of_kpi(sim.records(), 2).size());
    EXPECT_EQ(0u, count(sim.log(), "data handler:i:1 "));
    EXPECT_LT(0u, count(sim.log(), "D TARN_STATS: MainThread() "));
    EXPECT_LT(0u, count(sim.log(), ": data handler:i:0 id:2 count:0 expire:2 flag:0x0 ret:"));
    EXPECT_EQ(3u, count(sim.log(), "power: enable_flag:0x3 tcpu:0 tgpu:0 tbat:2 tddr:0 tlpm:0"));
    EXPECT_EQ(0, sim.stop());
    unlink(empty.c_str());
    unlink(junk.c_str());
}

TEST(DaemonCampaignTest, RecordsCarryTheAppNameOfStartAndResumeHints) {
    SimRun sim(SimOptions(), {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    // The application is the sixth field, after the five of the header.
    auto last_app = [&] {
        std::string line = of_kpi(sim.records(), 2).back();
        size_t pos = 0;
        for (int i = 0; i < 5; ++i) pos = line.find(',', pos) + 1;
        return line.substr(pos, line.find(',', pos) - pos);
    };
    auto app_after = [&](std::vector<std::string> hint) {
        size_t n = of_kpi(sim.records(), 2).size();
        if (!hint.empty()) {
            EXPECT_EQ(0, sim.control(hint));
        }
        // The record after next was certainly formatted after the hint was handled.
        EXPECT_TRUE(tarn_test::wait_until([&] { return of_kpi(sim.records(), 2).size() >= n + 2; },
                                          std::chrono::seconds(60)));
        return last_app();
    };
    EXPECT_EQ("com.android.launcher3", app_after({}));
    EXPECT_EQ("com.example.app", app_after({"hint", "0x1001", "com.example.app/.MainActivity"}));
    EXPECT_EQ("com.example.app", app_after({"hint", "0x1002", "org.sample.viewer/.Viewer"}));
    EXPECT_EQ("com.example.app", app_after({"hint", "4100", "org.sample.viewer/.Viewer"}));
    EXPECT_EQ("org.sample.viewer", app_after({"hint", "0x1003", "org.sample.viewer"}));
    EXPECT_EQ("org.sample.viewer", app_after({"hint", "0x2000", "com.example.app/.A", "5", "6"}));
    EXPECT_EQ("org.sample.viewer", app_after({"hint", "0x1001", ""}));
    EXPECT_EQ("", app_after({"hint", "0x1001", "/x"}));
    EXPECT_EQ(0, sim.stop());
}

}  // namespace
