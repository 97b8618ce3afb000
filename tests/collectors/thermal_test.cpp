// Thermal collector against fixture trees written under a temporary root.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>

#include "collectors.h"
#include "power_fixture.h"
#include "tarn_log.h"

namespace {

namespace fs = std::filesystem;
using power_test::at;
using power_test::write_file;
using Records = std::vector<std::string>;

struct Node {
    std::string type;
    long long value;  // temp of a zone, cur_state of a cooling device
};

const std::string kCurrent = "/sys/class/power_supply/battery/current_now";
const std::string kDdrClock = "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure";

std::string node(const char* kind, size_t i, const char* file) {
    return "/sys/devices/virtual/thermal/" + std::string(kind) + std::to_string(i) + "/" + file;
}
std::string cpu_freq(int cpu) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq/scaling_cur_freq";
}

// A fresh class directory holding exactly these zones and cooling devices, numbered from 0.
void write_tree(const std::vector<Node>& zones, const std::vector<Node>& coolings) {
    fs::remove_all(at("/sys/devices/virtual/thermal"));
    for (size_t i = 0; i < zones.size() + coolings.size(); i++) {
        bool zone = i < zones.size();
        const Node& n = zone ? zones[i] : coolings[i - zones.size()];
        size_t index = zone ? i : i - zones.size();
        const char* kind = zone ? "thermal_zone" : "cooling_device";
        write_file(node(kind, index, "type"), n.type + "\n");
        write_file(node(kind, index, zone ? "temp" : "cur_state"), std::to_string(n.value));
    }
}

// Battery current, clocks of CPUs 0 and 7 (CPU 6 has none), GPU and DDR clocks.
void write_side_nodes() {
    fs::remove(at(cpu_freq(6)));
    write_file(kCurrent, "-1234567\n");
    write_file(cpu_freq(0), "1804800\n");
    write_file(cpu_freq(7), "2995200\n");
    write_file("/sys/class/gfxd/gfxd-3d0/gpuclk", "587000000\n");
    write_file(kDdrClock, "2092800000\n");
}

// Record texts uploaded by one handler call, in upload order, without header and app name.
Records records(uint64_t flag) {
    return power_test::call(collect_thermal_stats_hndl, flag).records;
}

// "_kr" devices fall into modem_kr only. A comma type is marked at init by the word after its
// comma but counted by its raw name: "cpu-hotplug,ddr-cdev" is marked as ddr and counts for
// cpu_hotplug; "cdsp,mystery" is never marked. Negative readings never lift a group above 0.
const std::vector<Node> kZones = {
    {"cpuss-0", 45000}, {"quiet-therm", 31000}, {"cpu-1-2", 52000},
    {"mdmss-0", 90000}, {"gpuss-0", -5000},     {"skin-vqm-therm", 33000},
    {"nspss-1", 41000}, {"pmk7-bcl-lvl1", 1},   {"usb-therm", 29500},
    {"ddr", 38000},     {"camera-1", 36000},    {"socd", 12},
};
const std::vector<Node> kCoolings = {
    {"thermal-pause-1", 1}, {"cpufreq-cpu0", 4},         {"cpufreq-cpu7", 9},
    {"cpu7-isolate", 1},    {"modem_lte_dsc_kr", 3},     {"modem_nr_dsc", 2},
    {"ddr-cdev", 6},        {"display-fps", 7},          {"limits,cpu5", 2},
    {"battery", 5},         {"cpu-hotplug,ddr-cdev", 3}, {"cdsp,mystery", 8},
};

const char kCooling[] =
    "cpu_pause: 1,cpu_hotplug: 3,cpu0: 4,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 2,cpu6: 0,cpu7: 9,"
    "gpu: 0,cdsp: 0,modem_kr: 3,modem: 2,ddr: 6,battery_current: 5,modem_vdd: 0,";
const char kZone[] =
    "quiet-therm: 31000,skin-vqm-therm: 33000,usb-therm: 29500,"
    "cpu-tj-max-temp: 52000,gpu-tj-max-temp: 0,nsp-tj-temp: 41000,ruz-tj-temp: 0,"
    "aoss-tj-temp: 0,camera-tj-temp: 36000,ddr-tj-temp: 38000,video-tj-temp: 0,"
    "bcl-lvl0: 0,bcl-lvl1: 1,bcl-lvl2: 0,socd: 12,skin-temp: 31000,current:-1234,";
const char kClock[] = "CPU0_freq:1804800,CPU7_freq:2995200,GPU(MHz):587,DDR(MHz):2092,";

const char kZeroCooling[] =
    "cpu_pause: 0,cpu_hotplug: 0,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 0,cpu6: 0,cpu7: 0,"
    "gpu: 0,cdsp: 0,modem_kr: 0,modem: 0,ddr: 0,battery_current: 0,modem_vdd: 0,";
// Every zone group at 0 but the CPU one, which the tests fill in.
#define ZERO_AFTER_CPU                                                                    \
    "gpu-tj-max-temp: 0,nsp-tj-temp: 0,ruz-tj-temp: 0,aoss-tj-temp: 0,camera-tj-temp: 0," \
    "ddr-tj-temp: 0,video-tj-temp: 0,bcl-lvl0: 0,bcl-lvl1: 0,bcl-lvl2: 0,socd: 0,"
const std::string kZeroZone = "cpu-tj-max-temp: 0," ZERO_AFTER_CPU "skin-temp: 0,";

// Writes the tree and starts the collector afresh on it.
void restart(const std::vector<Node>& zones, const std::vector<Node>& coolings) {
    write_tree(zones, coolings);
    collect_thermal_stats_exit();
    ASSERT_EQ(0, collect_thermal_stats_init(tarn_test::device_root().c_str()));
}

class ThermalTest : public ::testing::Test {
  protected:
    // The side nodes, and the collector started on the tree as it stands.
    void SetUp() override {
        write_side_nodes();
        ASSERT_EQ(0, collect_thermal_stats_init(tarn_test::device_root().c_str()));
    }
};

TEST_F(ThermalTest, FlagBitsSelectPartsInFixedOrder) {
    restart(kZones, kCoolings);
    const std::pair<uint64_t, Records> cases[] = {
        {0x4000000000000000ULL, {kCooling, kZone, kClock}},
        {0x400000000000000FULL, {kCooling, kZone, kClock}},
        {0x5, {kZone, kClock}},
        {0x2, {kCooling}},
        {0x8, {}},
        {0x8000000000000000ULL, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, records(c.first)) << std::hex << c.first;

    // Marks are decided at init: an unmatched zone and device that take group types later, and
    // a zone and a device that appear later, are never read.
    write_file(node("thermal_zone", 3, "type"), "usb-therm\n");
    write_file(node("thermal_zone", 12, "type"), "xo-therm\n");
    write_file(node("thermal_zone", 12, "temp"), "30000\n");
    write_file(node("cooling_device", 7, "type"), "gpu\n");
    write_file(node("cooling_device", 12, "type"), "cpufreq-cpu4\n");
    write_file(node("cooling_device", 12, "cur_state"), "6\n");
    EXPECT_EQ((Records{kCooling, kZone}), records(0x3));
}

TEST_F(ThermalTest, UnreadableNodesAndTypesThatDoNotFit) {
    const std::string fits = "cpuss-" + std::string(1023 - 6, 'x');
    restart({{"quiet-therm", 31000},
             {"xo-therm", 35000},
             {fits, 61000},
             {fits + "y", 62000},
             {"skin-vqm-therm", 33000}},
            {{"gpu", 4}, {"cpufreq-cpu0" + std::string(1100, 'z'), 5}});
    // Directories open but cannot be read, even by root.
    for (const std::string& n : {node("thermal_zone", 0, "temp"), node("thermal_zone", 1, "type"),
                                 node("cooling_device", 0, "cur_state")}) {
        fs::remove(at(n));
        mkdir(at(n).c_str(), 0755);
    }
    fs::remove(at(kCurrent));
    // A failed temp or state reads as 0 and the node still counts, so the skin temperature comes
    // from the skin zone; a failed type drops the zone.
    EXPECT_EQ((Records{kZeroCooling,
                       "quiet-therm: 0,skin-vqm-therm: 33000,cpu-tj-max-temp: 61000," ZERO_AFTER_CPU
                       "skin-temp: 33000,"}),
              records(0x3));
    write_side_nodes();

    // After exit the tables stay but nothing is marked; without the class directory nothing is.
    collect_thermal_stats_exit();
    EXPECT_EQ((Records{kZeroCooling, kZeroZone + "current:-1234,"}), records(0x3));
    fs::remove_all(at("/sys/devices/virtual/thermal"));
    ASSERT_EQ(0, collect_thermal_stats_init(tarn_test::device_root().c_str()));
    EXPECT_EQ((Records{kZeroCooling, kZeroZone + "current:-1234,"}), records(0x3));
}

// A node that opens but holds no number is a read that worked: the part's one temperature or
// state keeps the value read for the node before it, 0 at the start of the part.
TEST_F(ThermalTest, NodeWithoutNumberKeepsThePreviousReading) {
    restart({{"quiet-therm", 0}, {"gpuss-0", 61000}, {"cpuss-0", 0}, {"usb-therm", 0}},
            {{"ddr-cdev", 0}, {"gpu", 4}, {"cdsp", 0}, {"battery", 0}});
    for (int i : {0, 2, 3}) write_file(node("thermal_zone", i, "temp"), "n/a\n");
    write_file(node("cooling_device", 0, "cur_state"), "n/a\n");
    write_file(node("cooling_device", 2, "cur_state"), "n/a\n");
    fs::remove(at(node("cooling_device", 3, "cur_state")));  // a failed read resets the state
    EXPECT_EQ((Records{"cpu_pause: 0,cpu_hotplug: 0,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 0,"
                       "cpu6: 0,cpu7: 0,gpu: 4,cdsp: 4,modem_kr: 0,modem: 0,ddr: 0,"
                       "battery_current: 0,modem_vdd: 0,",
                       "quiet-therm: 0,usb-therm: 61000,cpu-tj-max-temp: 61000,"
                       "gpu-tj-max-temp: 61000,nsp-tj-temp: 0,ruz-tj-temp: 0,aoss-tj-temp: 0,"
                       "camera-tj-temp: 0,ddr-tj-temp: 0,video-tj-temp: 0,bcl-lvl0: 0,"
                       "bcl-lvl1: 0,bcl-lvl2: 0,socd: 0,skin-temp: 0,current:-1234,"}),
              records(0x3));
}

// A zone record that would pass its buffer is not reported at all, rather than cut; the other
// parts go on.
TEST_F(ThermalTest, ZoneRecordThatDoesNotFitIsDropped) {
    restart(std::vector<Node>(1100, Node{"xo-therm", 35000}), {{"gpu", 4}});
    Records got = records(0x7);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(0u, got[0].rfind("cpu_pause: 0,", 0));
    EXPECT_EQ(0u, got[1].rfind("CPU0_freq:1804800,", 0));
}

TEST_F(ThermalTest, ClockRecordKeepsWhatCanBeRead) {
    fs::remove(at(cpu_freq(0)));
    fs::remove(at(kDdrClock));
    write_file(cpu_freq(6), "1555200\n");
    EXPECT_EQ(Records{"CPU6_freq:1555200,CPU7_freq:2995200,GPU(MHz):587,"}, records(0x4));
}

}  // namespace
