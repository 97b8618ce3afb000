// Campaigns that keep arriving while the process exits are refused once the core's teardown has
// begun, and the exit completes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "core/power_bigdata_core.h"
#include "report/campaign.h"

namespace {

std::atomic<bool> gRefused{false};

// Registered before the core exists, so it runs once the core and the upload helper are gone.
void after_teardown() {
    for (int i = 0; i < 3000 && !gRefused; ++i) usleep(10000);
    _exit(gRefused ? 7 : 1);
}

void exit_under_campaigns() {
    atexit(after_teardown);
    PowerBigDataCore::getInstance();
    std::thread([] {
        static const uint8_t kBatteryEverySecond[] = {0x12, 0x02, 0x10, 0x01};
        for (;;) {
            if (start_campaign_handler(&g_zel_collector, kBatteryEverySecond, 4) == -1) {
                gRefused = true;
            }
            stop_campaign_handler(&g_zel_collector);
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
