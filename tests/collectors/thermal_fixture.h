// Fixture trees for the thermal collector tests, and the record texts of one handler call.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <filesystem>
#include <string>
#include <vector>

#include "collectors/collectors.h"
#include "common/test_util.h"
#include "core/tarn_log.h"

namespace thermal_test {

const std::string kClassDir = "/sys/devices/virtual/thermal";
const std::string kCurrent = "/sys/class/power_supply/battery/current_now";
const std::string kDdrClock = "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure";

inline std::string node(const char* kind, size_t i, const char* file) {
    return kClassDir + "/" + kind + std::to_string(i) + "/" + file;
}
inline std::string cpu_freq(int cpu) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq/scaling_cur_freq";
}

struct Node {
    std::string type;
    long long value;  // temp of a zone, cur_state of a cooling device
};

// A fresh class directory holding exactly these zones and cooling devices, numbered from 0.
inline void write_tree(const std::vector<Node>& zones, const std::vector<Node>& coolings) {
    std::filesystem::remove_all(kClassDir);
    for (size_t i = 0; i < zones.size(); i++) {
        tarn_test::write_file(node("thermal_zone", i, "type"), zones[i].type + "\n");
        tarn_test::write_file(node("thermal_zone", i, "temp"), std::to_string(zones[i].value));
    }
    for (size_t i = 0; i < coolings.size(); i++) {
        tarn_test::write_file(node("cooling_device", i, "type"), coolings[i].type + "\n");
        tarn_test::write_file(node("cooling_device", i, "cur_state"),
                              std::to_string(coolings[i].value));
    }
}

// Battery current, clocks of CPUs 0 and 7 (CPU 6 has none), GPU and DDR clocks.
inline void write_side_nodes() {
    tarn_test::write_file(kCurrent, "-1234567\n");
    tarn_test::write_file(cpu_freq(0), "1804800\n");
    tarn_test::write_file(cpu_freq(7), "2995200\n");
    tarn_test::write_file("/sys/class/gfxd/gfxd-3d0/gpuclk", "587000000\n");
    tarn_test::write_file(kDdrClock, "2092800000\n");
}

// Record texts uploaded by one handler call, in upload order, without header and app name.
inline std::vector<std::string> records_of(uint64_t flag, const std::string& app_name) {
    g_local_file = tmpfile();
    collect_thermal_stats_hndl(flag);
    rewind(g_local_file);
    std::vector<std::string> out;
    char line[8192];
    while (fgets(line, sizeof(line), g_local_file) != nullptr) {
        std::string s(line, strcspn(line, "\n"));
        size_t at = s.find(app_name + ",");
        out.push_back(at == std::string::npos ? s : s.substr(at + app_name.size() + 1));
    }
    fclose(g_local_file);
    g_local_file = nullptr;
    return out;
}

}  // namespace thermal_test
