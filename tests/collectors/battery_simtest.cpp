// Battery record from the power-supply uevent file, including malformed and overlong lines.
#include <gtest/gtest.h>
#include <unistd.h>

#include "collectors/collectors.h"
#include "collectors/power_fixture.h"
#include "common/test_util.h"

using power_test::call;
using tarn_test::write_file;

namespace {

const char kUevent[] = "/sys/class/power_supply/battery/uevent";
const size_t kFieldRoom = 99;  // characters a key or value field holds

class Battery : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        power_test::write_minimal_device();  // the core keeps the battery open only then
        power_test::start_core();
    }
};

TEST_F(Battery, RecordFollowsTheFileFromItsStart) {
    write_file(kUevent,
               "POWER_SUPPLY_NAME=battery\n"
               "POWER_SUPPLY_STATUS=Charging\n"
               "POWER_SUPPLY_CAPACITY=100\n"
               "POWER_SUPPLY_TEMP=301\n"
               "POWER_SUPPLY_VOLTAGE_NOW=4350000\n"
               "POWER_SUPPLY_CURRENT_NOW=-350000\n"
               // Keys that only begin with a known name, and a repeated key.
               "POWER_SUPPLY_TEMP_AMBIENT=999\n"
               "POWER_SUPPLY_VOLTAGE_NOW_MAX=4450000\n"
               "POWER_SUPPLY_CAPACITY=99\n");
    auto c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    EXPECT_EQ(c.records[0], "battery,99,4350000,-350000,301,Charging");
    EXPECT_EQ(c.ret, (int32_t)c.records[0].size());

    // A shorter rewrite in place: nothing of the old content leaks into the next sample.
    write_file(kUevent, "POWER_SUPPLY_STATUS=Full\nPOWER_SUPPLY_CAPACITY=100\n");
    c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    EXPECT_EQ(c.records[0], "battery,100,0,0,0,Full");

    write_file(kUevent, "");
    c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    EXPECT_EQ(c.records[0], "battery,0,0,0,0,");
}

TEST_F(Battery, MalformedLinesAreSteppedOver) {
    // The rest of an overlong key must not be read as a key of its own.
    std::string long_key(kFieldRoom, 'K');
    write_file(kUevent,
               "=orphan value\n"
               "POWER_SUPPLY_CAPACITY=\n"
               "no separator here\n"
               "POWER_SUPPLY_TEMP=287\n" +
                   long_key + "POWER_SUPPLY_TEMP=1\n" +
                   "POWER_SUPPLY_VOLTAGE_NOW=3800000\n"
                   "POWER_SUPPLY_CURRENT_NOW=-120000");  // no final newline
    auto c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    EXPECT_EQ(c.records[0], "battery,0,3800000,-120000,287,");
}

TEST_F(Battery, OverlongStatusIsCutToTheRecordBuffer) {
    std::string status(300, 's');
    write_file(kUevent, "POWER_SUPPLY_STATUS=" + status + "\nPOWER_SUPPLY_CAPACITY=42\n");
    auto c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    // The status field keeps 99 characters; the record is cut to 99 characters; the result is
    // the length the record would have had.
    std::string full = "battery,42,0,0,0," + status.substr(0, 99);
    EXPECT_EQ(c.records[0], full.substr(0, 99));
    EXPECT_EQ(c.ret, (int32_t)full.size());
}

TEST_F(Battery, ClosedStreamReportsNothing) {
    EXPECT_EQ(collect_battery_stats_exit(), 0);
    EXPECT_EQ(collect_battery_stats_exit(), 0);
    auto c = call(collect_battery_stats_hndl);
    EXPECT_EQ(c.ret, 0);
    EXPECT_TRUE(c.records.empty());

    unlink(kUevent);
    EXPECT_EQ(collect_battery_stats_init(), -1);
    EXPECT_EQ(call(collect_battery_stats_hndl).ret, 0);

    write_file(kUevent, "POWER_SUPPLY_CAPACITY=7\n");
    ASSERT_EQ(collect_battery_stats_init(), 0);
    c = call(collect_battery_stats_hndl);
    ASSERT_EQ(c.records.size(), 1u);
    EXPECT_EQ(c.records[0], "battery,7,0,0,0,");
}

}  // namespace
