// Thermal nodes of the simulated device: zone temperatures follow a slow load cycle, cooling
// devices step in as the device heats up, the battery current and the measured GPU and DDR
// clocks follow the power nodes. A node whose content is not a number (a broken sensor) is left
// as it is.
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <string>

#include "animate.h"
#include "node_io.h"

namespace {

using node_io::read_number;
using node_io::read_word;
using node_io::write_in_place;

constexpr unsigned kLoadPeriod = 90;  // seconds of one load cycle

// Device load between 0 and 1: a slow cycle with a short burst near its top.
double load_at(unsigned tick) {
    // The run starts a third of the way into the cycle, warm enough for the limiters to act.
    double phase = 2.0 * M_PI * (double)((tick + kLoadPeriod / 3) % kLoadPeriod) / kLoadPeriod;
    double load = 0.5 - 0.5 * std::cos(phase);
    return load * load;
}

// Small deterministic wobble in [-1, 1] per node and tick.
double wobble(unsigned index, unsigned tick) {
    unsigned h = (index * 2654435761u) ^ (tick * 40503u);
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (double)(h % 2001) / 1000.0 - 1.0;
}

bool has(const std::string& type, const char* part) {
    return type.find(part) != std::string::npos;
}

struct Heat {
    int idle;  // millidegrees at no load
    int rise;  // millidegrees added at full load
};

Heat heat_of(const std::string& type) {
    if (has(type, "cpu-1-")) return {38000, 30000};  // big cores run hottest
    if (has(type, "cpuss-") || has(type, "cpu-0-")) return {37000, 22000};
    if (has(type, "gpuss-")) return {36000, 24000};
    if (has(type, "nsp") || has(type, "mdmss-")) return {35500, 9000};
    if (has(type, "therm") || type == "battery") return {30000, 7000};  // board and skin
    return {35000, 8000};
}

void animate_zone(const std::string& dir, unsigned index, unsigned tick, double load) {
    std::string type = read_word(dir + "/type");
    long long now;
    // Limit sensors (battery current levels, state of charge) keep what the image gives them.
    if (type.empty() || has(type, "-lvl") || type == "socd") return;
    if (!read_number(dir + "/temp", &now)) return;
    Heat heat = heat_of(type);
    long long temp = heat.idle + (long long)(heat.rise * load + 600.0 * wobble(index, tick));
    temp -= temp % 100;
    write_in_place(dir + "/temp", std::to_string(temp) + "\n");
}

// Load above which a cooling device starts to act; the CPU frequency limiters act first.
double threshold_of(const std::string& type) {
    if (has(type, "cpufreq-")) return 0.55;
    if (has(type, "gpu")) return 0.65;
    if (has(type, "pause") || has(type, "hotplug") || has(type, "isolate") || has(type, "cpu"))
        return 0.9;
    if (has(type, "modem") || has(type, "cdsp")) return 0.8;
    return 0.85;
}

void animate_cooling(const std::string& dir, double load) {
    std::string type = read_word(dir + "/type");
    long long state, max_state;
    if (type.empty() || !read_number(dir + "/cur_state", &state)) return;
    if (!read_number(dir + "/max_state", &max_state) || max_state < 0) return;
    double threshold = threshold_of(type);
    double depth = load > threshold ? (load - threshold) / (1.0 - threshold) : 0.0;
    // Even at full load the governors leave some headroom.
    long long next = std::llround(0.6 * depth * (double)max_state);
    if (next > max_state) next = max_state;
    if (next != state) write_in_place(dir + "/cur_state", std::to_string(next) + "\n");
}

// Value of KEY= in a uevent file.
bool uevent_value(const std::string& path, const char* key, long long* value) {
    std::string text;
    node_io::read_text(path, &text);
    std::string needle = std::string(key) + "=";
    size_t at = text.find(needle);
    if (at == std::string::npos || (at > 0 && text[at - 1] != '\n')) return false;
    char* end = nullptr;
    *value = strtoll(text.c_str() + at + needle.size(), &end, 10);
    return end != text.c_str() + at + needle.size();
}

}  // namespace

void animate_thermal(const std::string& root, unsigned tick) {
    double load = load_at(tick);

    const std::string thermal = root + "/sys/devices/virtual/thermal";
    if (DIR* dir = opendir(thermal.c_str())) {
        while (struct dirent* de = readdir(dir)) {
            unsigned index;
            if (sscanf(de->d_name, "thermal_zone%u", &index) == 1)
                animate_zone(thermal + "/" + de->d_name, index, tick, load);
            else if (strncmp(de->d_name, "cooling_device", 14) == 0)
                animate_cooling(thermal + "/" + de->d_name, load);
        }
        closedir(dir);
    }

    // The battery's own current node agrees with its uevent.
    long long value;
    const std::string battery = root + "/sys/class/power_supply/battery";
    if (uevent_value(battery + "/uevent", "POWER_SUPPLY_CURRENT_NOW", &value))
        write_in_place(battery + "/current_now", std::to_string(value) + "\n");

    // Measured clocks track the frequencies that the GPU and the DDR bus were set to (Hz and kHz).
    const std::string gpu = root + "/sys/class/gfxd/gfxd-3d0";
    if (read_number(gpu + "/devfreq/cur_freq", &value) && value > 0)
        write_in_place(gpu + "/gpuclk", std::to_string(value) + "\n");
    if (read_number(root + "/sys/devices/system/cpu/bus_dcvs/DDR/cur_freq", &value) && value > 0)
        write_in_place(root + "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure",
                       std::to_string(value * 1000 + (long long)(tick % 7) * 19200) + "\n");
}
