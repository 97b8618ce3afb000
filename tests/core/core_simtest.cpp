// The sampling core in a sandbox: start gate, ticks, the stop of a running tick, and the
// application name that activity hints set. The table's handlers are replaced by recording ones
// before sampling first starts.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "common/test_util.h"
#include "core/collector_table.h"
#include "core/power_bigdata_core.h"

namespace {

std::mutex gMutex;
std::condition_variable gCond;
std::vector<std::pair<int, uint64_t>> gCalls;
bool gHoldBattery = false;  // the battery handler blocks while this is set
bool gBatteryHeld = false;

int32_t battery(uint64_t flag) {
    std::unique_lock<std::mutex> lock(gMutex);
    gCalls.emplace_back(2, flag);
    if (gHoldBattery) {
        gBatteryHeld = true;
        gCond.notify_all();
        gCond.wait(lock, [] { return !gHoldBattery; });
    }
    return 0;
}

template <int ID>
int32_t record(uint64_t flag) {
    std::lock_guard<std::mutex> lock(gMutex);
    gCalls.emplace_back(ID, flag);
    return 0;
}

size_t calls_of(int id) {
    std::lock_guard<std::mutex> lock(gMutex);
    size_t n = 0;
    for (auto& c : gCalls) n += c.first == id;
    return n;
}

class CoreTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        core = PowerBigDataCore::getInstance();
        g_collector_table[0].hndl = battery;
        g_collector_table[1].hndl = record<3>;
        g_collector_table[8].hndl = record<1000>;
        g_collector_table[9].hndl = record<2000>;
        for (int i = 2; i < 8; ++i) g_collector_table[i].hndl = record<0>;
    }
    static PowerBigDataCore* core;
};
PowerBigDataCore* CoreTest::core = nullptr;

TEST_F(CoreTest, AppNameFollowsStartAndResumeHintsOnly) {
    EXPECT_EQ("com.android.launcher3", core->getAppName());
    core->sendEvent(0x1001, "com.example.app/.MainActivity", 1, 2, {});
    EXPECT_EQ("com.example.app", core->getAppName());
    core->sendEvent(0x1002, "org.other.viewer/.Viewer", 0, 0, {});
    core->sendEvent(0x1004, "org.other.viewer/.Viewer", 0, 0, {});
    core->sendEvent(0x2000, "org.other.viewer/.A", 0, 0, {});
    core->sendEvent(-4095, "org.other.viewer/.A", 0, 0, {});
    EXPECT_EQ("com.example.app", core->getAppName());
    core->sendEvent(0x1003, "org.other.viewer", 0, 0, {});
    EXPECT_EQ("org.other.viewer", core->getAppName());
    core->sendEvent(0x1001, "", 0, 0, {});
    EXPECT_EQ("org.other.viewer", core->getAppName());
    core->sendEvent(0x1001, "/x", 0, 0, {});
    EXPECT_EQ("", core->getAppName());
    core->sendEvent(0x1001, "com.android.launcher3/.Home", 0, 0, {});
}

TEST_F(CoreTest, StartedCoreTicksStopLetsTheRunningTickFinish) {
    // Nothing runs while the gate is closed, even with periods set.
    core->ConfigurePowerCoreParam({0, 1, 0, 1, 0, 0, 0, 0, 0}, {0x4000000000000001ULL, 2},
                                  {0x8000000000000004ULL, 0});
    core->startSampling();
    ASSERT_TRUE(tarn_test::wait_until([] { return calls_of(2) >= 4; }));
    EXPECT_GE(calls_of(3), 3u);
    EXPECT_GE(calls_of(1000), 1u);
    EXPECT_EQ(0u, calls_of(2000)) << "period 0 keeps the stability row off";
    EXPECT_EQ(0u, calls_of(0));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        for (auto& c : gCalls) {
            if (c.first == 1000) {
                EXPECT_EQ(0x4000000000000001u, c.second);
            } else {
                EXPECT_EQ(0u, c.second);
            }
        }
    }

    // Hold the battery handler in the middle of a tick and stop sampling meanwhile.
    {
        std::unique_lock<std::mutex> lock(gMutex);
        gHoldBattery = true;
        gBatteryHeld = false;
        ASSERT_TRUE(gCond.wait_for(lock, std::chrono::seconds(30), [] { return gBatteryHeld; }));
    }
    size_t cpu_before = calls_of(3);
    core->stopSampling();
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gHoldBattery = false;
    }
    gCond.notify_all();
    // The tick that was running goes on to the CPU row after the battery row.
    ASSERT_TRUE(tarn_test::wait_until([&] { return calls_of(3) == cpu_before + 1; }));
    size_t total = 0;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        total = gCalls.size();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        EXPECT_EQ(total, gCalls.size()) << "no tick after the stop";
    }

    // A hint wakes the parked worker, which parks again without a tick.
    core->sendEvent(0x1001, "com.example.app/.A", 0, 0, {});
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        EXPECT_EQ(total, gCalls.size());
    }

    core->startSampling();
    ASSERT_TRUE(tarn_test::wait_until([&] { return calls_of(2) >= 2 + total / 2; }));
    core->stopSampling();
}

}  // namespace
