// Power and performance nodes of the simulated device: battery, CPU clusters, /proc/stat, GPU,
// DDR, backlight and frame rate. Each tick reads a node's current text and moves it on by one
// second, so the model follows whatever the image (or a test) put there: the cluster's
// time_in_state grows at its current frequency, /proc/stat's counters grow, the GPU changes
// frequency and load, the battery drains (and charges again once low).
#include <dirent.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "animate.h"
#include "node_io.h"

namespace {

using node_io::read_text;
using node_io::write_in_place;

typedef unsigned long long u64;

// The same sequence on every run, so a demo or a test sees the same moves.
std::mt19937& rng() {
    static std::mt19937 gen(20240311u);
    return gen;
}

unsigned pick(unsigned n) {
    return n == 0 ? 0 : (unsigned)(rng()() % n);
}

std::vector<u64> numbers(const std::string& text) {
    std::vector<u64> out;
    std::istringstream in(text);
    u64 v;
    while (in >> v) out.push_back(v);
    return out;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) out.push_back(line);
    return out;
}

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, sizeof(buf), format, ap);
    va_end(ap);
    if (n < 0) return std::string();
    return std::string(buf, std::min<size_t>((size_t)n, sizeof(buf) - 1));
}

// Moves an index one step up or down, or keeps it, within [0, n).
size_t wander(size_t index, size_t n) {
    if (n <= 1) return 0;
    switch (pick(3)) {
        case 0:
            return index > 0 ? index - 1 : index + 1;
        case 1:
            return index + 1 < n ? index + 1 : index - 1;
        default:
            return index;
    }
}

// ---- battery --------------------------------------------------------------------------------

void animate_battery(const std::string& root, unsigned tick) {
    std::string path = root + "/sys/class/power_supply/battery/uevent";
    std::string text;
    if (!read_text(path, &text)) return;
    std::vector<std::string> lines = lines_of(text);

    long capacity = 50;
    std::string status = "Discharging";
    for (const std::string& l : lines) {
        if (l.rfind("POWER_SUPPLY_CAPACITY=", 0) == 0) capacity = atol(l.c_str() + 22);
        if (l.rfind("POWER_SUPPLY_STATUS=", 0) == 0) status = l.substr(20);
    }
    // One percent every ten seconds down to 15 %, then charging back to full.
    if (tick % 10 == 0) {
        if (status == "Charging") {
            capacity = std::min(100L, capacity + 1);
            if (capacity >= 100) status = "Full";
        } else {
            capacity = std::max(0L, capacity - 1);
            status = capacity <= 15 ? "Charging" : "Discharging";
        }
    }
    if (status == "Full" && tick % 10 == 5) status = "Discharging";
    bool charging = status == "Charging";
    long voltage = 3400000 + capacity * 8500 + (charging ? 120000 : 0) + (long)pick(4000);
    long current = charging ? 1500000 + (long)pick(300000) : -(200000 + (long)pick(450000));
    long temp = 290 + (long)pick(31) + (charging ? 40 : 0);

    std::string out;
    for (const std::string& l : lines) {
        if (l.rfind("POWER_SUPPLY_CAPACITY=", 0) == 0) {
            out += fmt("POWER_SUPPLY_CAPACITY=%ld", capacity);
        } else if (l.rfind("POWER_SUPPLY_STATUS=", 0) == 0) {
            out += "POWER_SUPPLY_STATUS=" + status;
        } else if (l.rfind("POWER_SUPPLY_VOLTAGE_NOW=", 0) == 0) {
            out += fmt("POWER_SUPPLY_VOLTAGE_NOW=%ld", voltage);
        } else if (l.rfind("POWER_SUPPLY_CURRENT_NOW=", 0) == 0) {
            out += fmt("POWER_SUPPLY_CURRENT_NOW=%ld", current);
        } else if (l.rfind("POWER_SUPPLY_TEMP=", 0) == 0) {
            out += fmt("POWER_SUPPLY_TEMP=%ld", temp);
        } else {
            out += l;
        }
        out += '\n';
    }
    write_in_place(path, out);
}

// ---- CPU clusters ---------------------------------------------------------------------------

std::string render_trans_table(const std::vector<u64>& freqs, const std::vector<u64>& counts) {
    std::string s = "   From  :    To\n         : ";
    for (u64 f : freqs) s += fmt("%9llu ", f);
    s += '\n';
    size_t n = freqs.size();
    for (size_t i = 0; i < n; i++) {
        s += fmt("%9llu: ", freqs[i]);
        for (size_t j = 0; j < n; j++) s += fmt("%9llu ", counts[i * n + j]);
        s += '\n';
    }
    return s;
}

// The cluster ran the whole second at its current frequency; then the governor picks a
// neighbouring step (or stays).
void animate_policy(const std::string& dir) {
    std::string text;
    if (!read_text(dir + "/scaling_available_frequencies", &text)) return;
    std::vector<u64> freqs = numbers(text);
    if (freqs.empty() || !read_text(dir + "/scaling_cur_freq", &text)) return;
    std::vector<u64> cur_v = numbers(text);
    u64 cur = cur_v.empty() ? freqs[0] : cur_v[0];
    size_t idx = (size_t)(std::find(freqs.begin(), freqs.end(), cur) - freqs.begin());
    if (idx >= freqs.size()) idx = 0;

    if (read_text(dir + "/stats/time_in_state", &text)) {
        std::vector<u64> pairs = numbers(text);
        std::string out;
        for (size_t k = 0; k + 1 < pairs.size(); k += 2) {
            u64 t = pairs[k + 1] + (pairs[k] == freqs[idx] ? 100 : 0);  // 10 ms units
            out += fmt("%llu %llu\n", pairs[k], t);
        }
        write_in_place(dir + "/stats/time_in_state", out);
    }

    size_t next = wander(idx, freqs.size());
    write_in_place(dir + "/scaling_cur_freq", fmt("%llu\n", freqs[next]));
    if (next == idx) return;

    size_t n = freqs.size();
    std::vector<u64> counts(n * n, 0);
    if (read_text(dir + "/stats/trans_table", &text)) {
        std::vector<std::string> lines = lines_of(text);
        for (size_t i = 0; i < n && i + 2 < lines.size(); i++) {
            const std::string& row = lines[i + 2];
            size_t colon = row.find(':');
            if (colon == std::string::npos) continue;
            std::vector<u64> c = numbers(row.substr(colon + 1));
            for (size_t j = 0; j < n && j < c.size(); j++) counts[i * n + j] = c[j];
        }
    }
    counts[idx * n + next]++;
    write_in_place(dir + "/stats/trans_table", render_trans_table(freqs, counts));
    if (read_text(dir + "/stats/total_trans", &text)) {
        std::vector<u64> total = numbers(text);
        write_in_place(dir + "/stats/total_trans",
                       fmt("%llu\n", (total.empty() ? 0 : total[0]) + 1));
    }
}

void animate_cpufreq(const std::string& root) {
    std::string base = root + "/sys/devices/system/cpu/cpufreq";
    DIR* dir = opendir(base.c_str());
    if (dir == nullptr) return;
    std::vector<std::string> policies;
    for (struct dirent* de = readdir(dir); de != nullptr; de = readdir(dir)) {
        if (strncmp(de->d_name, "policy", 6) == 0) policies.push_back(de->d_name);
    }
    closedir(dir);
    std::sort(policies.begin(), policies.end());
    for (const std::string& p : policies) animate_policy(base + "/" + p);
}

// Every CPU line gains one second (100 ticks of 10 ms) split into busy, idle and iowait; the
// all-CPU line is the sum of the CPU lines. Other lines are kept as they are.
void animate_proc_stat(const std::string& root) {
    std::string path = root + "/proc/stat";
    std::string text;
    if (!read_text(path, &text)) return;
    std::vector<std::string> lines = lines_of(text);
    std::vector<u64> sum(10, 0);
    size_t all_cpu = lines.size();
    for (size_t i = 0; i < lines.size(); i++) {
        const std::string& l = lines[i];
        if (l.rfind("cpu ", 0) == 0) {
            all_cpu = i;
            continue;
        }
        unsigned cpu = 0;
        size_t sp = l.find(' ');
        if (sscanf(l.c_str(), "cpu%u", &cpu) != 1 || sp == std::string::npos) continue;
        std::vector<u64> v = numbers(l.substr(sp));
        v.resize(10, 0);
        // Little cores idle more than the big ones.
        u64 busy = (u64)(cpu < 4 ? 5 + pick(30) : 15 + pick(60));
        u64 io = pick(3);
        u64 sys = busy / 4;
        v[0] += busy - sys;  // user
        v[2] += sys;         // system
        v[4] += io;          // iowait
        v[3] += 100 - busy - io;
        std::string out = fmt("cpu%u", cpu);
        for (size_t k = 0; k < 10; k++) {
            out += fmt(" %llu", v[k]);
            sum[k] += v[k];
        }
        lines[i] = out;
    }
    if (all_cpu < lines.size()) {
        std::string out = "cpu ";
        for (u64 s : sum) out += fmt(" %llu", s);
        lines[all_cpu] = out;
    }
    std::string out;
    for (const std::string& l : lines) out += l + "\n";
    write_in_place(path, out);
}

// ---- GPU ------------------------------------------------------------------------------------

struct TransRow {
    u64 freq;
    std::vector<u64> counts;
    u64 time;
};

// Devfreq's transition table: two header lines, a row per frequency ('*' on the current one)
// with the transition counts and the time in ms, and the closing total line.
void animate_gpu(const std::string& root, unsigned tick) {
    std::string dir = root + "/sys/class/gfxd/gfxd-3d0";
    std::string text;
    if (!read_text(dir + "/devfreq/trans_stat", &text)) return;
    std::vector<std::string> lines = lines_of(text);
    std::vector<TransRow> rows;
    for (size_t i = 2; i < lines.size(); i++) {
        const std::string& l = lines[i];
        size_t colon = l.find(':');
        if (l.find("Total") != std::string::npos || colon == std::string::npos) break;
        size_t digit = l.find_first_of("0123456789");
        if (digit == std::string::npos || digit > colon) continue;
        TransRow row;
        row.freq = strtoull(l.c_str() + digit, nullptr, 10);
        row.counts = numbers(l.substr(colon + 1));
        if (row.counts.empty()) continue;
        row.time = row.counts.back();
        row.counts.pop_back();
        rows.push_back(row);
    }
    if (rows.empty()) return;
    for (TransRow& r : rows) r.counts.resize(rows.size(), 0);

    std::string cur_text;
    u64 cur = 0;
    if (read_text(dir + "/devfreq/cur_freq", &cur_text)) {
        std::vector<u64> v = numbers(cur_text);
        if (!v.empty()) cur = v[0];
    }
    size_t idx = 0;
    while (idx < rows.size() && rows[idx].freq != cur) idx++;
    if (idx == rows.size()) idx = 0;

    rows[idx].time += 1000;
    size_t next = tick % 3 == 0 ? wander(idx, rows.size()) : idx;
    if (next != idx) rows[idx].counts[next]++;

    u64 total = 0;
    std::string out = "     From  :   To\n           :";
    for (const TransRow& r : rows) out += fmt("%10llu", r.freq);
    out += "   time(ms)\n";
    for (size_t i = 0; i < rows.size(); i++) {
        out += fmt("%c%10llu:", i == next ? '*' : ' ', rows[i].freq);
        for (u64 c : rows[i].counts) {
            out += fmt("%10llu", c);
            total += c;
        }
        out += fmt("%10llu\n", rows[i].time);
    }
    out += fmt("Total transition : %llu\n", total);
    write_in_place(dir + "/devfreq/trans_stat", out);
    write_in_place(dir + "/devfreq/cur_freq", fmt("%llu\n", rows[next].freq));

    // Busy time within a 100 ms window, higher at the higher frequencies.
    u64 window = 100000;
    u64 busy = window * (5 + next * 10 + pick(25)) / 100;
    write_in_place(dir + "/gpubusy", fmt("%8llu %8llu\n", std::min(busy, window), window));
}

// ---- DDR, backlight, frame rate -------------------------------------------------------------

void animate_ddr(const std::string& root, unsigned tick) {
    std::string dir = root + "/sys/devices/system/cpu/bus_dcvs/DDR";
    std::string text;
    if (tick % 2 != 0 || !read_text(dir + "/available_frequencies", &text)) return;
    std::vector<u64> freqs = numbers(text);
    if (freqs.empty()) return;
    write_in_place(dir + "/cur_freq", fmt("%llu\n", freqs[pick((unsigned)freqs.size())]));
}

void animate_display(const std::string& root, unsigned tick) {
    static const unsigned kLevels[] = {0, 512, 1024, 2047, 3000, 4095};
    if (tick % 5 == 0) {
        unsigned level = kLevels[pick(sizeof(kLevels) / sizeof(kLevels[0]))];
        write_in_place(root + "/sys/class/backlight/panel0-backlight/brightness",
                       fmt("%u\n", level));
        write_in_place(root + "/sys/class/backlight/panel0-backlight/actual_brightness",
                       fmt("%u\n", level));
    }
    static const double kRates[] = {59.94, 60.0, 90.0, 119.88, 120.0, 30.0};
    double fps = kRates[pick(sizeof(kRates) / sizeof(kRates[0]))] - pick(300) / 100.0;
    if (fps < 1.0) fps = 1.0;
    unsigned frames = (unsigned)(fps / 2.0 + 0.5);
    write_in_place(
        root + "/sys/devices/platform/soc/ae00000.kelv,vdss_mdp/drm/card0/dpx-crtc-0/measured_fps",
        fmt("fps: %.2f duration:500000 frame_count:%u\n", fps, frames));
}

}  // namespace

void animate_power(const std::string& root, unsigned tick) {
    animate_battery(root, tick);
    animate_cpufreq(root);
    animate_proc_stat(root);
    animate_gpu(root, tick);
    animate_ddr(root, tick);
    animate_display(root, tick);
}
