// Thermal collector against fixture trees written under a temporary root.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

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

const std::string kProfile = "/vendor/etc/tarn_stats/profile.json";

// Restarts the collector on the tree and returns what it logged meanwhile at `level`.
std::string restart_logged(const std::vector<Node>& zones, const std::vector<Node>& coolings,
                           int level = 4) {
    int saved = g_debug_level;
    g_debug_level = level;
    ::testing::internal::CaptureStderr();
    restart(zones, coolings);
    g_debug_level = saved;
    return ::testing::internal::GetCapturedStderr();
}

class ThermalTest : public ::testing::Test {
  protected:
    // The side nodes, no profile, and the collector started on the tree as it stands.
    void SetUp() override {
        write_side_nodes();
        fs::remove_all(at(fs::path(kProfile).parent_path()));
        ASSERT_EQ(0, collect_thermal_stats_init(tarn_test::device_root().c_str()));
    }
    void TearDown() override { fs::remove_all(at(fs::path(kProfile).parent_path())); }
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

// A profile regroups names; groups it does not name keep their lists, the first group in table
// order still wins, and its skin sensor is read although it is in no group.
TEST_F(ThermalTest, ProfileRegroupsTypeNamesAndNamesTheSkinSensor) {
    write_file(kProfile, R"({"skin_sensor": "board-usr",
        "zone_groups": {"cpu-tj-max-temp": ["cpu-1-"], "video-tj-temp": ["cpu-1-", "vid"],
                        "misc_skin": ["usb-therm"]},
        "cooling_groups": {"gpu": ["devfreq"], "cpu0": []}})");
    std::string log =
        restart_logged({{"cpuss-0", 45000},
                        {"cpu-1-2", 52000},
                        {"board-usr", 30500},
                        {"usb-therm", 29500},
                        {"quiet-therm", 31000},
                        {"ddr-usr", 38000},
                        {"vidc-usr", 40000}},
                       {{"thermal-devfreq-0", 4}, {"cpufreq-cpu0", 3}, {"battery", 5}}, 7);
    EXPECT_EQ((Records{"cpu_pause: 0,cpu_hotplug: 0,cpu0: 0,cpu2: 0,cpu3: 0,cpu4: 0,cpu5: 0,"
                       "cpu6: 0,cpu7: 0,gpu: 4,cdsp: 0,modem_kr: 0,modem: 0,ddr: 0,"
                       "battery_current: 5,modem_vdd: 0,",
                       "usb-therm: 29500,cpu-tj-max-temp: 52000,gpu-tj-max-temp: 0,nsp-tj-temp: 0,"
                       "ruz-tj-temp: 0,aoss-tj-temp: 0,camera-tj-temp: 0,ddr-tj-temp: 38000,"
                       "video-tj-temp: 40000,bcl-lvl0: 0,bcl-lvl1: 0,bcl-lvl2: 0,socd: 0,"
                       "skin-temp: 30500,current:-1234,"}),
              records(0x3));
    std::string unmatched;
    for (const std::string& line : tarn_test::split_lines(log)) {
        size_t at = line.find(" matches no group");
        if (at != std::string::npos) unmatched += line.substr(line.rfind(": ", at) + 2) + ";";
    }
    EXPECT_EQ(
        "thermal zone cpuss-0 matches no group;thermal zone quiet-therm matches no group;"
        "cooling device cpufreq-cpu0 matches no group;",
        unmatched);
}

// Each bad profile gives one error line naming the file and the fault; the built-in tables stay
// whole (the "display" list of the first case would otherwise put display-fps into gpu). A
// missing file says nothing.
TEST_F(ThermalTest, BadProfileLogsOneErrorAndKeepsTheBuiltInTables) {
    auto list = [](int n) {
        std::string out = "[";
        for (int i = 0; i < n; i++)
            out += std::string(i ? "," : "") + "\"m" + std::to_string(i) + "\"";
        return out + "]";
    };
    const std::pair<std::string, std::string> cases[] = {
        {R"({"cooling_groups": {"gpu": ["display"], "cdsp": [1]}})",
         "cooling_groups \"cdsp\": not a string"},
        {"{\"zone_groups\": ",
         "not JSON: Line 1, Column 17 Syntax error: value, object or array expected.;"},
        {R"({"skin_sensor": "a", "skin_sensor": "b"})", "not JSON"},
        {std::string(200, '[') + std::string(200, ']'), "nested deeper than 8 levels"},
        {"[]", "the top level is not an object"},
        {R"({"skin": "x"})", "unknown key \"skin\""},
        {R"({"zone_groups": []})", "\"zone_groups\" is not an object"},
        {R"({"zone_groups": {"cpu-tj-max": []}})", "zone_groups: unknown group \"cpu-tj-max\""},
        {R"({"zone_groups": {"socd": "socd"}})", "zone_groups \"socd\": not a list of strings"},
        {"{\"zone_groups\": {\"socd\": " + list(31) + "}}", "31 match strings, at most 30"},
        {"{\"cooling_groups\": {\"gpu\": " + list(21) + "}}", "21 match strings, at most 20"},
        {R"({"cooling_groups": {"gpu": [""]}})", "cooling_groups \"gpu\": empty string"},
        {R"({"skin_sensor": "skin therm"})", "holds white space or control bytes"},
        {"{\"skin_sensor\": \"" + std::string(64, 's') + "\"}", "longer than 63 bytes"},
        {std::string(10 << 20, ' '), "larger than 65536 bytes"},
        {"directory", "not a regular file"},
        {"fifo", "not a regular file"},
        {"loop", "cannot open: " + std::string(strerror(ELOOP))},
    };
    for (const auto& [text, reason] : cases) {
        fs::remove_all(at(kProfile));
        if (text == "directory") {
            tarn_test::make_dirs(at(kProfile));
        } else if (text == "fifo") {
            ASSERT_EQ(0, mkfifo(at(kProfile).c_str(), 0644));
        } else if (text == "loop") {
            ASSERT_EQ(0, symlink("profile.json", at(kProfile).c_str()));
        } else {
            write_file(kProfile, text);
        }
        std::vector<std::string> lines = tarn_test::split_lines(restart_logged(kZones, kCoolings));
        ASSERT_EQ(1u, lines.size()) << reason;
        EXPECT_NE(std::string::npos, lines[0].find(" E TARN_STATS_THERMAL: ")) << lines[0];
        EXPECT_NE(std::string::npos, lines[0].find(kProfile + ": ")) << lines[0];
        EXPECT_NE(std::string::npos, lines[0].find(reason)) << lines[0];
        EXPECT_EQ((Records{kCooling, kZone}), records(0x3)) << reason;
    }
    fs::remove_all(at(fs::path(kProfile).parent_path()));
    EXPECT_EQ("", restart_logged(kZones, kCoolings));
    EXPECT_EQ((Records{kCooling, kZone}), records(0x3));
}

TEST_F(ThermalTest, ClockRecordKeepsWhatCanBeRead) {
    fs::remove(at(cpu_freq(0)));
    fs::remove(at(kDdrClock));
    write_file(cpu_freq(6), "1555200\n");
    EXPECT_EQ(Records{"CPU6_freq:1555200,CPU7_freq:2995200,GPU(MHz):587,"}, records(0x4));
}

}  // namespace
