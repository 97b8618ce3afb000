// The core's lifetime against threads that outlive main: campaigns and hints that keep arriving
// while the process exits are refused or skipped once the core's teardown has begun, the exit
// completes, and calls on different threads do not wait for one another.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "campaign.h"
#include "power_bigdata_callback.h"
#include "power_bigdata_core.h"
#include "tarn_log.h"

namespace {

using aidl::vendor::orv::hardware::perf2::PowerBigDataCallback;

std::atomic<bool> gRefused{false};
std::atomic<uint64_t> gHints{0};
std::atomic<uint64_t> gCampaigns{0};

// Registered before the core exists, so it runs once the core and the upload helper are gone:
// campaigns are refused by then, and hints are still answered.
void after_teardown() {
    const uint64_t hints = gHints;
    auto done = [&] { return gRefused && gHints > hints + 100; };
    for (int i = 0; i < 3000 && !done(); ++i) usleep(10000);
    _exit(done() ? 7 : 1);
}

// Two binder-like threads send activity hints (whose names are looked up for the debug log) and
// an SDK-like thread starts and stops campaigns, all without pause; main returns as soon as they
// are under way, so that calls are in flight while the exit handlers run.
void exit_under_calls() {
    atexit(after_teardown);
    g_debug_level = 7;
    connect_core_to_report();
    PowerBigDataCore* core = PowerBigDataCore::getInstance();
    auto callback = ndk::SharedRefBase::make<PowerBigDataCallback>(core);
    for (int32_t hint : {0x1001, 0x1004}) {
        std::thread([callback, hint] {
            for (;;) {
                callback->notifyCallback(hint, "org.sample.exit/.Main", 1, 2, {});
                ++gHints;
            }
        }).detach();
    }
    std::thread([] {
        static const uint8_t kBatteryEverySecond[] = {0x12, 0x02, 0x10, 0x01};
        for (;;) {
            if (start_campaign_handler(&g_zel_collector, kBatteryEverySecond, 4) == -1) {
                gRefused = true;
            }
            stop_campaign_handler(&g_zel_collector);
            ++gCampaigns;
        }
    }).detach();
    for (int i = 0; i < 3000 && (gHints < 50 || gCampaigns < 5); ++i) usleep(1000);
    exit(0);
}

TEST(CoreExitTest, CallsDuringExitAreRefusedAndTheExitCompletes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The exit races the calls: a few rounds make sure calls are caught in every phase of it.
    for (int round = 0; round < 8; ++round) {
        EXPECT_EXIT(exit_under_calls(), ::testing::ExitedWithCode(7), "") << "round " << round;
    }
}

TEST(CoreExitTest, CallsOnTwoThreadsRunSideBySide) {
    PowerBigDataCore::Ref first;
    ASSERT_NE(nullptr, first.get());
    // A hint on another thread completes while this thread is still in the core. Detached, so
    // that a call that wrongly waits for this one cannot hold up the test's end.
    auto app = std::make_shared<std::promise<std::string>>();
    std::future<std::string> result = app->get_future();
    std::thread([app] {
        PowerBigDataCore::Ref second;
        second->sendEvent(0x1001, "org.sample.both/.Main", 0, 0, {});
        app->set_value(second->getAppName());
    }).detach();
    ASSERT_EQ(std::future_status::ready, result.wait_for(std::chrono::seconds(60)));
    EXPECT_EQ("org.sample.both", result.get());
}

}  // namespace
