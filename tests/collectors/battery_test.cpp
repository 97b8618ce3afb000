// Battery record from the power-supply uevent file, including malformed and overlong lines.
#include <gtest/gtest.h>
#include <unistd.h>

#include "power_fixture.h"

using namespace power_test;

namespace {

const char kUevent[] = "/sys/class/power_supply/battery/uevent";

std::string battery(const std::string& uevent) {
    write_file(kUevent, uevent);
    return sample(collect_battery_stats_hndl);
}

class Battery : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { start_core(); }
};

TEST_F(Battery, RecordFollowsTheFileFromItsStartSteppingOverBadLines) {
    const std::pair<std::string, const char*> kCases[] = {
        {"POWER_SUPPLY_NAME=battery\n"
         "POWER_SUPPLY_STATUS=Charging\n"
         "POWER_SUPPLY_CAPACITY=100\n"
         "POWER_SUPPLY_TEMP=301\n"
         "POWER_SUPPLY_VOLTAGE_NOW=4350000\n"
         "POWER_SUPPLY_CURRENT_NOW=-350000\n"
         // Keys that only begin with a known name, and a repeated key.
         "POWER_SUPPLY_TEMP_AMBIENT=999\n"
         "POWER_SUPPLY_VOLTAGE_NOW_MAX=4450000\n"
         "POWER_SUPPLY_CAPACITY=99\n",
         "battery,99,4350000,-350000,301,Charging"},
        // A shorter rewrite in place: nothing of the old content leaks into the next sample.
        {"POWER_SUPPLY_STATUS=Full\nPOWER_SUPPLY_CAPACITY=100\n", "battery,100,0,0,0,Full"},
        {"", "battery,0,0,0,0,"},
        // The rest of an overlong key must not be read as a key of its own.
        {"=orphan value\nPOWER_SUPPLY_CAPACITY=\nno separator here\nPOWER_SUPPLY_TEMP=287\n" +
             std::string(99, 'K') +
             "POWER_SUPPLY_TEMP=1\nPOWER_SUPPLY_VOLTAGE_NOW=3800000\n"
             "POWER_SUPPLY_CURRENT_NOW=-120000",  // no final newline
         "battery,0,3800000,-120000,287,"},
    };
    for (const auto& [uevent, record] : kCases) EXPECT_EQ(battery(uevent), record) << uevent;

    // The status keeps 99 characters and the record is cut to 99, but the result is the length
    // that the record would have had.
    std::string status(300, 's');
    write_file(kUevent, "POWER_SUPPLY_STATUS=" + status + "\nPOWER_SUPPLY_CAPACITY=42\n");
    auto c = call(collect_battery_stats_hndl);
    std::string full = "battery,42,0,0,0," + status.substr(0, 99);
    EXPECT_EQ(c.records, V{full.substr(0, 99)});
    EXPECT_EQ(c.ret, (int32_t)full.size());
}

TEST_F(Battery, ClosedStreamReportsNothing) {
    EXPECT_EQ(collect_battery_stats_exit(), 0);
    EXPECT_EQ(collect_battery_stats_exit(), 0);
    EXPECT_EQ(battery("POWER_SUPPLY_CAPACITY=7\n"), "0");

    unlink(at(kUevent).c_str());
    EXPECT_EQ(collect_battery_stats_init(tarn_test::device_root().c_str()), -1);
    EXPECT_EQ(battery("POWER_SUPPLY_CAPACITY=7\n"), "0");  // the file came back too late
    ASSERT_EQ(collect_battery_stats_init(tarn_test::device_root().c_str()), 0);
    EXPECT_EQ(battery("POWER_SUPPLY_CAPACITY=7\n"), "battery,7,0,0,0,");
}

}  // namespace
