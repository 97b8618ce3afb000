// The CPU collector's node texts through its parsers, on a device of two clusters (policies 0 and
// 4, eight CPUs) set up at start: /proc/stat gives utilisations from 0 to 100, a time_in_state
// text read twice in a row covers no time the second time, and a frequency list is the one that
// the C library's "%u" scans find in the same bytes.
#include <errno.h>
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "collectors.h"
#include "node_fuzz.h"
#include "node_parsers.h"

namespace {

using node_fuzz::check;

void write_node(const std::string& path, const std::string& text) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0755);
    }
    FILE* fp = fopen(path.c_str(), "we");
    if (fp == nullptr) {
        // On a device the cpufreq tree is the kernel's own, and init reads that instead.
        fprintf(stderr, "cannot write %s: %s\n", path.c_str(), strerror(errno));
        return;
    }
    fputs(text.c_str(), fp);
    fclose(fp);
}

void check_stat(const std::string& text) {
    float util[8];
    for (int round = 0; round < 2; round++) {
        cpu_parse_stat(text.data(), text.size(), util);
        // busy <= total, so only the rounding of busy * 100 may take a share one step past 100.
        for (float u : util) check(u >= 0.0f && u <= nextafterf(100.0f, 200.0f));
    }
}

void check_time_in_state(int slot, const std::string& text) {
    uint64_t weighted = 1;
    cpu_parse_time_in_state(slot, text.data(), text.size(), &weighted);
    uint64_t total = cpu_parse_time_in_state(slot, text.data(), text.size(), &weighted);
    check(total == 0 && weighted == 0);
}

void check_freq_list(const std::string& text) {
    const uint64_t kUnset = 0xdeadbeefdeadbeefULL;
    uint64_t list[CPU_FREQ_STEPS + 1];
    for (uint64_t& v : list) v = kUnset;
    int n = cpu_parse_freq_list(text.data(), text.size(), list);
    check(n >= 0 && n <= CPU_FREQ_STEPS);
    for (int i = n; i <= CPU_FREQ_STEPS; i++) check(list[i] == kUnset);

    std::string copy = text;
    FILE* fp = fmemopen(&copy[0], copy.size(), "r");
    if (fp == nullptr) return;
    int want = 0;
    unsigned value = 0;
    while (want < CPU_FREQ_STEPS && fscanf(fp, "%u", &value) == 1) {
        check(want < n && list[want] == value);
        want++;
    }
    fclose(fp);
    check(want == n);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    const std::string cpu = "/sys/devices/system/cpu";
    write_node(cpu + "/possible", "0-7\n");
    write_node(cpu + "/cpufreq/policy0/scaling_available_frequencies",
               "300000 600000 900000 1200000\n");
    write_node(cpu + "/cpufreq/policy4/scaling_available_frequencies",
               "500000 1000000 2000000 1500000\n");
    write_node(cpu + "/cpu0/cpu_capacity", "400\n");
    write_node(cpu + "/cpu4/cpu_capacity", "1024\n");
    if (collect_cpu_stats_init("/") != 0) fprintf(stderr, "CPU collector init failed\n");
    return 0;
}

// Input: one byte choosing the text (/proc/stat, time_in_state of a cluster slot, or a frequency
// list), then the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t choice = 0;
    std::string text;
    if (!node_fuzz::split_input(data, size, 16384, &choice, &text)) return 0;
    switch (choice % 3) {
        case 0:
            check_stat(text);
            break;
        case 1:
            // Slots -1 and 8 lie outside the table.
            check_time_in_state((int)(choice / 3 % 10) - 1, text);
            break;
        default:
            check_freq_list(text);
            break;
    }
    return 0;
}
