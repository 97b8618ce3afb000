// Thermal collector against fixture trees written inside the simulator's sandbox.
#include <gtest/gtest.h>

#include "collectors/thermal_fixture.h"
#include "core/power_bigdata_core.h"

using thermal_test::Node;
using thermal_test::records_of;
using thermal_test::write_tree;
using Records = std::vector<std::string>;

namespace {

const uint64_t kAll = 0x4000000000000000ULL;

const std::vector<Node> kZones = {
    {"cpuss-0", 45000}, {"quiet-therm", 31000}, {"cpu-1-2", 52000},
    {"mdmss-0", 90000}, {"gpuss-0", -5000},     {"skin-vqm-therm", 33000},
    {"nspss-1", 41000}, {"pmk7-bcl-lvl1", 1},   {"usb-therm", 29500},
    {"ddr", 38000},     {"camera-1", 36000},    {"socd", 12},
};
const std::vector<Node> kCoolings = {
    {"thermal-pause-1", 1},  {"cpufreq-cpu0", 4}, {"cpufreq-cpu7", 9}, {"cpu7-isolate", 1},
    {"modem_lte_dsc_kr", 3}, {"modem_nr_dsc", 2}, {"ddr-cdev", 6},     {"display-fps", 7},
    {"limits,cpu5", 2},      {"battery", 5},
};

const char kCoolingRecord[] =
    "cpu_pause: 1,cpu_hotplug: 0,cpu0: 4,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 2,cpu6: 0,cpu7: 9,"
    "gpu: 0,cdsp: 0,modem_kr: 3,modem: 2,ddr: 6,battery_current: 5,modem_vdd: 0,";
const char kZoneRecord[] =
    "quiet-therm: 31000,skin-vqm-therm: 33000,usb-therm: 29500,"
    "cpu-tj-max-temp: 52000,gpu-tj-max-temp: 0,nsp-tj-temp: 41000,ruz-tj-temp: 0,"
    "aoss-tj-temp: 0,camera-tj-temp: 36000,ddr-tj-temp: 38000,video-tj-temp: 0,"
    "bcl-lvl0: 0,bcl-lvl1: 1,bcl-lvl2: 0,socd: 12,skin-temp: 31000,current:-1234,";
const char kClockRecord[] = "CPU0_freq:1804800,CPU7_freq:2995200,GPU(MHz):587,DDR(MHz):2092,";

const char kZeroCooling[] =
    "cpu_pause: 0,cpu_hotplug: 0,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 0,cpu6: 0,cpu7: 0,"
    "gpu: 0,cdsp: 0,modem_kr: 0,modem: 0,ddr: 0,battery_current: 0,modem_vdd: 0,";
// Every zone group at 0 but the CPU one, which the tests fill in themselves.
#define ZERO_GROUPS_AFTER_CPU                                                             \
    "gpu-tj-max-temp: 0,nsp-tj-temp: 0,ruz-tj-temp: 0,aoss-tj-temp: 0,camera-tj-temp: 0," \
    "ddr-tj-temp: 0,video-tj-temp: 0,bcl-lvl0: 0,bcl-lvl1: 0,bcl-lvl2: 0,socd: 0,"
const char kZeroGroups[] = "cpu-tj-max-temp: 0," ZERO_GROUPS_AFTER_CPU;

class ThermalTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        thermal_test::write_side_nodes();
        write_tree(kZones, kCoolings);
        sAppName = PowerBigDataCore::getInstance()->getAppName();
    }

    // Writes the tree and starts the collector afresh on it.
    static void restart(const std::vector<Node>& zones, const std::vector<Node>& coolings) {
        write_tree(zones, coolings);
        restart();
    }
    static void restart() {
        collect_thermal_stats_exit();
        ASSERT_EQ(0, collect_thermal_stats_init());
    }

    static Records records(uint64_t flag) { return records_of(flag, sAppName); }
    static std::string zone_record() {
        Records r = records(0x1);
        return r.size() == 1 ? r[0] : "<" + std::to_string(r.size()) + " records>";
    }
    static std::string cooling_record() {
        Records r = records(0x2);
        return r.size() == 1 ? r[0] : "<" + std::to_string(r.size()) + " records>";
    }

    static std::string sAppName;
};

std::string ThermalTest::sAppName;

TEST_F(ThermalTest, AllBitBuildsTheThreeRecordsInOrder) {
    restart(kZones, kCoolings);
    EXPECT_EQ((Records{kCoolingRecord, kZoneRecord, kClockRecord}), records(kAll));
}

TEST_F(ThermalTest, FlagBitsSelectParts) {
    restart(kZones, kCoolings);
    EXPECT_EQ((Records{kZoneRecord}), records(0x1));
    EXPECT_EQ((Records{kCoolingRecord}), records(0x2));
    EXPECT_EQ((Records{kClockRecord}), records(0x4));
    EXPECT_EQ((Records{kZoneRecord, kClockRecord}), records(0x5));
    EXPECT_EQ((Records{kCoolingRecord, kZoneRecord, kClockRecord}), records(0x400000000000000FULL));
    EXPECT_TRUE(records(0x8).empty());
    EXPECT_TRUE(records(0x8000000000000000ULL).empty());
    EXPECT_TRUE(records(0).empty());
}

TEST_F(ThermalTest, FirstMatchingGroupTakesTheDevice) {
    // "_kr" devices fall into modem_kr, never into modem, whatever their order on the bus.
    restart({}, {{"modem_nr_dsc", 1},
                 {"modem_nr_scg_dsc_kr", 8},
                 {"mmodem_lte_dsc", 4},
                 {"modem_lte_dsc_kr", 2}});
    EXPECT_EQ(std::string("cpu_pause: 0,cpu_hotplug: 0,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 0,"
                          "cpu6: 0,cpu7: 0,gpu: 0,cdsp: 0,modem_kr: 8,modem: 4,ddr: 0,"
                          "battery_current: 0,modem_vdd: 0,"),
              cooling_record());

    // Negative temperatures never raise a group above 0; the highest zone of a group wins.
    restart({{"gpuss-0", -4000}, {"gpuss-1", -2000}, {"cpu-0-3", 47000}, {"cpuss-2", 51000}}, {});
    std::string zone = zone_record();
    EXPECT_NE(std::string::npos, zone.find("cpu-tj-max-temp: 51000,gpu-tj-max-temp: 0,")) << zone;
}

TEST_F(ThermalTest, CommaTypeIsMarkedByItsLastWordButCountedByItsRawName) {
    restart({}, {
                    {"cpu-hotplug,ddr-cdev", 3},  // marked as ddr, counted as cpu_hotplug
                    {"cdsp,mystery", 5},          // not marked, although "cdsp" occurs in it
                    {"limits,cpu5", 2},
                });
    EXPECT_EQ(std::string("cpu_pause: 0,cpu_hotplug: 3,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 2,"
                          "cpu6: 0,cpu7: 0,gpu: 0,cdsp: 0,modem_kr: 0,modem: 0,ddr: 0,"
                          "battery_current: 0,modem_vdd: 0,"),
              cooling_record());
}

TEST_F(ThermalTest, MarksAreDecidedAtInit) {
    restart({{"mdmss-0", 40000}, {"cpuss-0", 41000}}, {{"display-fps", 3}});
    // After init: the unmatched zone takes a skin type, a new zone and a new device appear, and
    // the unmatched device turns into a gpu one. None of them is read.
    tarn_test::write_file(thermal_test::zone_dir(0) + "/type", "usb-therm\n");
    tarn_test::write_file(thermal_test::zone_dir(2) + "/type", "xo-therm\n");
    tarn_test::write_file(thermal_test::zone_dir(2) + "/temp", "30000\n");
    tarn_test::write_file(thermal_test::cooling_dir(0) + "/type", "gpu\n");
    tarn_test::write_file(thermal_test::cooling_dir(1) + "/type", "cpufreq-cpu4\n");
    tarn_test::write_file(thermal_test::cooling_dir(1) + "/cur_state", "6\n");

    EXPECT_EQ(std::string("cpu-tj-max-temp: 41000,") + ZERO_GROUPS_AFTER_CPU
                  "skin-temp: 0,current:-1234,",
              zone_record());
    EXPECT_EQ(kZeroCooling, cooling_record());
}

TEST_F(ThermalTest, UnreadableNodes) {
    restart({{"usb-therm", 30000}, {"cpuss-0", 44000}, {"xo-therm", 35000}},
            {{"gpu-devfreq", 4}, {"cpufreq-cpu4", 2}});
    thermal_test::make_unreadable(thermal_test::zone_dir(0) + "/temp");
    thermal_test::make_unreadable(thermal_test::zone_dir(1) + "/temp");
    thermal_test::make_unreadable(thermal_test::zone_dir(2) + "/type");
    thermal_test::make_unreadable(thermal_test::cooling_dir(0) + "/cur_state");
    thermal_test::make_unreadable(thermal_test::cooling_dir(1) + "/type");
    std::filesystem::remove(thermal_test::kCurrent);

    // A failed temp or state reads as 0 and the node still counts; a failed type drops it.
    EXPECT_EQ(std::string("usb-therm: 0,") + kZeroGroups + "skin-temp: 0,", zone_record());
    EXPECT_EQ(kZeroCooling, cooling_record());

    thermal_test::write_side_nodes();
}

TEST_F(ThermalTest, SkinTemperatureFallsBackToTheSkinZone) {
    restart({{"skin-vqm-therm", 33000}, {"quiet-therm", 0}}, {});
    EXPECT_EQ(std::string("skin-vqm-therm: 33000,quiet-therm: 0,") + kZeroGroups +
                  "skin-temp: 33000,current:-1234,",
              zone_record());
}

TEST_F(ThermalTest, TypeNamesThatDoNotFitAreIgnored) {
    std::string fits = "cpuss-" + std::string(1023 - 6, 'x');
    restart({{fits, 61000}, {fits + "y", 62000}}, {{"cpufreq-cpu0" + std::string(1100, 'z'), 5}});
    EXPECT_EQ(std::string("cpu-tj-max-temp: 61000,") + ZERO_GROUPS_AFTER_CPU
                  "skin-temp: 0,current:-1234,",
              zone_record());
    EXPECT_EQ(kZeroCooling, cooling_record());
}

TEST_F(ThermalTest, MissingClassDirectoryOrMarksGiveZeroGroups) {
    std::filesystem::remove_all(thermal_test::kClassDir);
    restart();
    EXPECT_EQ((Records{kZeroCooling, std::string(kZeroGroups) + "skin-temp: 0,current:-1234,",
                       kClockRecord}),
              records(kAll));

    // After exit the group tables stay but no index is marked.
    restart(kZones, kCoolings);
    collect_thermal_stats_exit();
    EXPECT_EQ(kZeroCooling, cooling_record());
    EXPECT_EQ(std::string(kZeroGroups) + "skin-temp: 0,current:-1234,", zone_record());
    restart();
}

TEST_F(ThermalTest, ClockRecordKeepsWhatCanBeRead) {
    std::filesystem::remove(thermal_test::cpu_freq(0));
    std::filesystem::remove(thermal_test::kDdrClock);
    tarn_test::write_file(thermal_test::cpu_freq(6), "1555200\n");
    EXPECT_EQ((Records{"CPU6_freq:1555200,CPU7_freq:2995200,GPU(MHz):587,"}), records(0x4));

    std::filesystem::remove(thermal_test::cpu_freq(6));
    std::filesystem::remove(thermal_test::cpu_freq(7));
    std::filesystem::remove(thermal_test::kGpuClock);
    EXPECT_EQ((Records{""}), records(0x4));
    thermal_test::write_side_nodes();
}

}  // namespace
