// Campaigns that keep arriving while the process exits: once the core's teardown has begun they
// are refused, and the exit completes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "core/power_bigdata_core.h"
#include "report/campaign.h"
#include "tarn_stats.pb.h"

namespace {

std::atomic<bool> gRefused{false};

// Registered before the core exists, so it runs after the core (and the upload helper) are gone.
void after_teardown() {
    for (int i = 0; i < 3000 && !gRefused; ++i) usleep(10000);
    _exit(gRefused ? 7 : 1);
}

void exit_under_campaigns() {
    atexit(after_teardown);
    BigDataCampaignConfig cfg;
    cfg.mutable_powercfg()->set_battery_period(1);
    static std::string bytes = cfg.SerializeAsString();

    PowerBigDataCore::getInstance()->startSampling();
    std::thread([] {
        for (;;) {
            int32_t ret = start_campaign_handler(&g_zel_collector,
                                                 reinterpret_cast<const uint8_t*>(bytes.data()),
                                                 static_cast<uint32_t>(bytes.size()));
            stop_campaign_handler(&g_zel_collector);
            if (ret == -1) gRefused = true;
        }
    }).detach();
    usleep(200000);
    exit(0);
}

TEST(CoreExitTest, CampaignsDuringExitAreRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit_under_campaigns(), ::testing::ExitedWithCode(7), "");
}

}  // namespace
