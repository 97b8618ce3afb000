// Start-up without the battery's uevent file: the core's start stops at the battery collector, so
// no other init runs and the collectors that depend on one report nothing, even on a complete
// device tree; the process-statistics script, which needs no init, still runs.
#include <errno.h>
#include <gtest/gtest.h>

#include "power_fixture.h"

namespace {

using namespace power_test;

TEST(StartupTest, MissingBatteryStopsEveryOtherInit) {
    write_file("/sys/devices/system/cpu/possible", "0-7\n");
    write_file("/sys/devices/system/cpu/cpufreq/policy0/stats/time_in_state", "300000 5\n");
    write_file("/proc/stat", "cpu  1 0 1 1 0 0 0 0 0 0\ncpu0 1 0 1 1 0 0 0 0 0 0\n");
    write_file("/sys/class/gfxd/gfxd-3d0/devfreq/cur_freq", "300000000\n");
    write_file("/sys/class/backlight/panel0-backlight/brightness", "512\n");
    write_file("/sys/devices/virtual/thermal/thermal_zone0/type", "quiet-therm\n");
    write_file("/sys/devices/virtual/thermal/thermal_zone0/temp", "31000\n");
    PowerBigDataCore::setDeviceRoot(tarn_test::device_root().c_str());
    PowerBigDataCore::getInstance();
    capture();

    EXPECT_EQ(Call({0, {}}).records, call(collect_battery_stats_hndl).records);
    EXPECT_EQ(-EINVAL, call(collect_cpu_stats_hndl).ret);
    EXPECT_EQ(-EINVAL, call(collect_gpu_stats_hndl).ret);
    EXPECT_EQ(-EINVAL, call(collect_brightness_stats_hndl).ret);
    // No zone is marked: the zone record holds no thermistor.
    V zone = call(collect_thermal_stats_hndl, 0x1).records;
    ASSERT_EQ(1u, zone.size());
    EXPECT_EQ(std::string::npos, zone[0].find("quiet-therm"));
}

}  // namespace
