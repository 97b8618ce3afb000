#include "thermal_groups.h"

#include <string.h>

// Order matters: a type counts for the first group that matches it, so "modem_kr" has to come
// before "modem" to catch the "_kr" variants. CPU 1 has no group of its own.
thermal_cooling_group g_thermal_cooling_groups[THERMAL_COOLING_GROUPS] = {
    {"cpu_pause", {"thermal-pause-", "pause-cpu"}, 2, 0},
    {"cpu_hotplug", {"cpu-hotplug", "hotplug_"}, 2, 0},
    {"cpu0", {"cpu0"}, 1, 0},
    {"cpu2", {"cpu2"}, 1, 0},
    {"cpu3", {"cpu3"}, 1, 0},
    {"cpu4", {"cpu4"}, 1, 0},
    {"cpu5", {"cpu5"}, 1, 0},
    {"cpu6", {"cpu6"}, 1, 0},
    {"cpu7", {"cpu7"}, 1, 0},
    {"gpu", {"gpu"}, 1, 0},
    {"cdsp", {"cdsp"}, 1, 0},
    {"modem_kr",
     {"modem_lte_dsc_kr", "modem_nr_dsc_kr", "modem_nr_scg_dsc_kr", "mmodem_lte_dsc_kr"},
     4,
     0},
    {"modem", {"modem_lte_dsc", "modem_nr_dsc", "modem_nr_scg_dsc", "mmodem_lte_dsc"}, 4, 0},
    {"ddr", {"ddr-cdev"}, 1, 0},
    {"battery_current", {"battery"}, 1, 0},
    {"modem_vdd", {"modem_vdd"}, 1, 0},
};

thermal_zone_group g_thermal_zone_groups[THERMAL_ZONE_GROUPS] = {
    {"cpu-tj-max-temp", {"cpuss-", "cpu-0-", "cpu-1-"}, 3, 0},
    {"gpu-tj-max-temp", {"gpuss-"}, 1, 0},
    {"nsp-tj-temp", {"nspss-", "nsppqa-", "nsppqb-"}, 3, 0},
    {"ruz-tj-temp", {"ruzss-"}, 1, 0},
    {"aoss-tj-temp", {"aoss-"}, 1, 0},
    {"camera-tj-temp", {"camera-0", "camera-1"}, 2, 0},
    {"ddr-tj-temp", {"ddr"}, 1, 0},
    {"video-tj-temp", {"video"}, 1, 0},
    {"bcl-lvl0", {"-bcl-lvl0"}, 1, 0},
    {"bcl-lvl1", {"-bcl-lvl1"}, 1, 0},
    {"bcl-lvl2", {"-bcl-lvl2"}, 1, 0},
    {"socd", {"socd"}, 1, 0},
    {THERMAL_MISC_SKIN,
     {"quiet-therm", "skin-vqm-therm", "chg-skin-therm", "camera-therm", "rear-cam-therm",
      "conn-therm", "cam-flash-therm", "usb-therm", "battery", "xo-therm", "sys-therm-"},
     11,
     0},
};

template <int N>
static int thermal_match(const thermal_group<N>* table, int count, const char* name) {
    if (table == nullptr || name == nullptr) return -1;
    for (int g = 0; g < count; g++) {
        int num = table[g].num < N ? table[g].num : N;
        for (int m = 0; m < num; m++) {
            const char* needle = table[g].match[m];
            if (needle != nullptr && strstr(name, needle) != nullptr) return g;
        }
    }
    return -1;
}

int thermal_match_zone(const thermal_zone_group* table, int count, const char* name) {
    return thermal_match(table, count, name);
}

int thermal_match_cooling(const thermal_cooling_group* table, int count, const char* name) {
    return thermal_match(table, count, name);
}
