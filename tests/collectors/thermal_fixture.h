// Fixture trees for the thermal collector tests: thermal zones and cooling devices under the
// thermal class directory, the battery current and the clock nodes, and a way to collect the
// records that one handler call uploads.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "collectors/collectors.h"
#include "common/test_util.h"
#include "core/tarn_log.h"

namespace thermal_test {

const std::string kClassDir = "/sys/devices/virtual/thermal";
const std::string kCurrent = "/sys/class/power_supply/battery/current_now";
const std::string kGpuClock = "/sys/class/gfxd/gfxd-3d0/gpuclk";
const std::string kDdrClock = "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure";

inline std::string zone_dir(int i) {
    return kClassDir + "/thermal_zone" + std::to_string(i);
}
inline std::string cooling_dir(int i) {
    return kClassDir + "/cooling_device" + std::to_string(i);
}
inline std::string cpu_freq(int cpu) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq/scaling_cur_freq";
}

// Replaces a node by a directory: opening it still works, reading it fails, even for root.
inline void make_unreadable(const std::string& path) {
    std::filesystem::remove_all(path);
    mkdir(path.c_str(), 0755);
}

struct Node {
    std::string type;
    long long value;  // temp of a zone, cur_state of a cooling device
};

// Writes a fresh class directory holding exactly these zones and cooling devices, numbered
// from 0 in the given order.
inline void write_tree(const std::vector<Node>& zones, const std::vector<Node>& coolings) {
    std::filesystem::remove_all(kClassDir);
    tarn_test::make_dirs(kClassDir);
    for (size_t i = 0; i < zones.size(); i++) {
        tarn_test::write_file(zone_dir(i) + "/type", zones[i].type + "\n");
        tarn_test::write_file(zone_dir(i) + "/temp", std::to_string(zones[i].value) + "\n");
    }
    for (size_t i = 0; i < coolings.size(); i++) {
        tarn_test::write_file(cooling_dir(i) + "/type", coolings[i].type + "\n");
        tarn_test::write_file(cooling_dir(i) + "/cur_state",
                              std::to_string(coolings[i].value) + "\n");
        tarn_test::write_file(cooling_dir(i) + "/max_state", "10\n");
    }
}

// Battery current, CPU 0 and 7 clocks (CPU 6 has none), GPU and DDR clocks.
inline void write_side_nodes() {
    tarn_test::write_file(kCurrent, "-1234567\n");
    tarn_test::write_file(cpu_freq(0), "1804800\n");
    tarn_test::write_file(cpu_freq(7), "2995200\n");
    tarn_test::write_file(kGpuClock, "587000000\n");
    tarn_test::write_file(kDdrClock, "2092800000\n");
}

// Record texts uploaded by one handler call, in upload order: each local-file line with the
// header and the application name (ending in `app_name` and a comma) taken off.
inline std::vector<std::string> records_of(uint64_t flag, const std::string& app_name) {
    FILE* saved = g_local_file;
    g_local_file = tmpfile();
    collect_thermal_stats_hndl(flag);
    fflush(g_local_file);
    rewind(g_local_file);
    std::vector<std::string> out;
    char line[8192];
    const std::string marker = app_name + ",";
    while (fgets(line, sizeof(line), g_local_file) != nullptr) {
        std::string s(line);
        if (!s.empty() && s.back() == '\n') s.pop_back();
        size_t at = s.find(marker);
        out.push_back(at == std::string::npos ? "<no app name> " + s : s.substr(at + marker.size()));
    }
    fclose(g_local_file);
    g_local_file = saved;
    return out;
}

}  // namespace thermal_test
