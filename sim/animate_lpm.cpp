// Low-power-mode nodes of the simulated device: CPU power-domain idle states, subsystem sleep
// statistics and the WLAN power statistics. Every counter is a function of the tick, so tick 0
// gives the image's initial files and each later tick moves the counters forward.
#include <stdio.h>

#include <string>

#include "animate.h"
#include "node_io.h"

namespace {

using node_io::write_in_place;

constexpr unsigned long long kTicksPerSec = 19200000ULL;  // always-on timer rate

std::string idle_states(unsigned domain, unsigned tick) {
    // The little cores' domains have three states, the others two; the deepest state is last.
    unsigned states = domain < 4 ? 3 : 2;
    char buf[512];
    int use = snprintf(buf, sizeof(buf), "%-15s%-15s%-15s%s\n", "State", "Time Spent(ms)", "Usage",
                       "Rejected");
    for (unsigned k = 0; k < states; k++) {
        unsigned long long usage =
            1000ULL * (k + 1) + 37ULL * domain + (unsigned long long)tick * (3 + domain + 2 * k);
        unsigned long long spent = usage * (2 + k);
        unsigned long long rejected = k == 0 ? 0 : usage / 100;
        char name[16];
        snprintf(name, sizeof(name), "S%u", k);
        use += snprintf(buf + use, sizeof(buf) - (size_t)use, "%-15s%-15llu%-15llu%llu\n", name,
                        spent, usage, rejected);
    }
    return std::string(buf, (size_t)use);
}

struct SleepStats {
    const char* name;
    unsigned long long count_base;
    unsigned count_rate;                // entries per tick
    unsigned long long sleep_per_tick;  // timer ticks asleep per second
};

// cdsp sleeps through whole seconds without waking; the modem wakes often for short naps.
const SleepStats kSleepStats[] = {
    {"adsp", 4210, 3, kTicksPerSec / 2},      {"adsp_island", 982, 1, kTicksPerSec / 4},
    {"aosd", 15002, 5, kTicksPerSec * 3 / 5}, {"apss", 20417, 6, kTicksPerSec / 2},
    {"cdsp", 312, 0, kTicksPerSec},           {"cxsd", 14877, 4, kTicksPerSec * 2 / 5},
    {"ddr", 9120, 4, kTicksPerSec / 3},       {"modem", 51234, 12, kTicksPerSec / 10},
    {"slpi", 3301, 2, kTicksPerSec * 3 / 4},  {"slpi_island", 1250, 1, kTicksPerSec / 2},
    {"ddr_stats", 9120, 4, kTicksPerSec / 3},
};

std::string sleep_stats(const SleepStats& s, unsigned index, unsigned tick) {
    unsigned long long count = s.count_base + (unsigned long long)tick * s.count_rate;
    unsigned long long duration =
        s.count_base * 96000ULL + (unsigned long long)tick * s.sleep_per_tick;
    unsigned long long now = (5400ULL + tick) * kTicksPerSec;
    unsigned long long entered = now - kTicksPerSec / 2 - 1000ULL * index;
    unsigned long long exited = entered + kTicksPerSec / 4;
    char buf[256];
    int n = snprintf(buf, sizeof(buf),
                     "Count = %llu\nLast Entered At = %llu\nLast Exited At = %llu\n"
                     "Accumulated Duration = %llu\n",
                     count, entered, exited, duration);
    return std::string(buf, (size_t)n);
}

std::string wlan_power_stats(unsigned tick) {
    unsigned long long t = tick;
    char buf[256];
    int n = snprintf(buf, sizeof(buf),
                     "WLAN power statistics\ncumulative since driver load\n"
                     "Sleep time: %llu\nTotal on time: %llu\nSleep enter counter: %llu\n"
                     "Sleep enter timestamp: %llu\n",
                     52000 + t * 700, 81000 + t * 1000, 310 + t * 2, 5400000 + t * 1000);
    return std::string(buf, (size_t)n);
}

}  // namespace

void animate_lpm(const std::string& root, unsigned tick) {
    for (unsigned d = 0; d < 8; d++) {
        write_in_place(
            root + "/sys/kernel/debug/pm_genpd/cpu-pd" + std::to_string(d) + "/idle_states",
            idle_states(d, tick));
    }
    unsigned index = 0;
    for (const SleepStats& s : kSleepStats) {
        write_in_place(root + "/sys/kernel/debug/kelv_sleep_stats/" + s.name,
                       sleep_stats(s, index++, tick));
    }
    write_in_place(root + "/sys/kernel/wlnd/power_stats", wlan_power_stats(tick));
}
