// Helpers of the fault tests: the real daemon on phone8 with every collector at period 1, its
// steady records, its descriptor count, and whether the long form of the tests was asked for.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace tarn_fault {

// TARN_FAULT_LONG=1 (make fault) selects the long form.
inline bool long_form() {
    const char* v = getenv("TARN_FAULT_LONG");
    return v != nullptr && strcmp(v, "1") == 0;
}

// The daemon with every collector at period 1.
inline std::vector<std::string> every_collector_args() {
    std::vector<std::string> args = {tarn_test::daemon_path(), "--daemon"};
    for (const char* c : {"--cpu", "--gpu", "--bat", "--ddr", "--lpm", "--ps", "--bri", "--fps",
                          "--therm", "--stab"})
        args.insert(args.end(), {c, "1"});
    return args;
}

using tarn_e2e::by_kpi;
using tarn_e2e::ByKpi;

// The KPI ids that are sampled on every tick (not the stability ones, which ship files once).
inline bool per_tick(int kpi) {
    return kpi < 2000;
}

// The pid of the command tarn_sim runs: its one child.
inline int command_pid(int sim_pid) {
    int found = -1;
    DIR* d = opendir("/proc");
    if (d == nullptr) return -1;
    while (dirent* e = readdir(d)) {
        int pid = atoi(e->d_name);
        if (pid <= 0) continue;
        std::string stat = tarn_test::read_file("/proc/" + std::to_string(pid) + "/stat");
        size_t paren = stat.rfind(')');
        if (paren == std::string::npos) continue;
        int ppid = 0;
        char state = 0;
        if (sscanf(stat.c_str() + paren + 1, " %c %d", &state, &ppid) == 2 && ppid == sim_pid) {
            found = pid;
        }
    }
    closedir(d);
    return found;
}

inline int count_fds(int pid) {
    int n = 0;
    DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (d == nullptr) return -1;
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

// The daemon's descriptors between ticks: a tick opens and closes some (thermal nodes, the ps
// pipe), so the smallest of several samples is the count it keeps.
inline int resting_fds(int pid) {
    int best = -1;
    for (int i = 0; i < 15; ++i) {
        int n = count_fds(pid);
        if (n >= 0 && (best < 0 || n < best)) best = n;
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
    return best;
}

// A daemon with every collector at period 1, its steady tick and its descriptor count.
class Daemon {
  public:
    explicit Daemon(tarn_test::SimOptions opts = tarn_test::SimOptions())
        : sim(opts, every_collector_args()) {}

    // Waits for the records of one tick to repeat unchanged (the first ticks carry the
    // utilisation and residency of a first period), then takes them as the steady tick.
    void settle() {
        ASSERT_TRUE(tarn_test::wait_until(
            [&] {
                ByKpi all = by_kpi(sim.records());
                auto it = all.find(2);
                if (it == all.end() || it->second.size() < 4) return false;
                steady.clear();
                size_t ticks = it->second.size();
                for (auto& kv : all) {
                    if (!per_tick(kv.first) || kv.second.size() % ticks != 0) continue;
                    size_t n = kv.second.size() / ticks;
                    std::vector<std::string> last(kv.second.end() - n, kv.second.end());
                    std::vector<std::string> before(kv.second.end() - 2 * n, kv.second.end() - n);
                    if (last != before) return false;
                    steady[kv.first] = last;
                }
                return steady.size() >= 10;
            },
            std::chrono::seconds(90)));
        pid = command_pid(sim.pid());
        ASSERT_GT(pid, 0);
        fds = resting_fds(pid);
        ASSERT_GT(fds, 0);
    }

    // Waits for `ticks` more ticks of every KPI in `kpis`, then expects the last tick of each to
    // equal the steady one; also that the daemon is up with its descriptor count unchanged.
    void expect_steady(const std::set<int>& kpis, const std::string& what, int ticks = 3) {
        ByKpi start = by_kpi(sim.records());
        bool came = tarn_test::wait_until(
            [&] {
                ByKpi now = by_kpi(sim.records());
                for (int k : kpis) {
                    if (now[k].size() < start[k].size() + ticks * steady[k].size()) return false;
                }
                return true;
            },
            std::chrono::seconds(60));
        EXPECT_TRUE(came) << what << ": some collector stopped reporting";
        ByKpi now = by_kpi(sim.records());
        for (int k : kpis) {
            const std::vector<std::string>& all = now[k];
            size_t n = std::min(all.size(), steady[k].size());
            EXPECT_EQ(steady[k], std::vector<std::string>(all.end() - n, all.end()))
                << what << ": KPI " << k;
        }
        expect_up(what);
    }

    void expect_up(const std::string& what) {
        ASSERT_EQ(-1, sim.wait_exit(std::chrono::milliseconds(0))) << what << ": daemon gone";
        EXPECT_EQ(fds, resting_fds(pid)) << what << ": descriptor count changed";
    }

    std::set<int> kpis_except(const std::set<int>& left_out) const {
        std::set<int> out;
        for (auto& kv : steady)
            if (!left_out.count(kv.first)) out.insert(kv.first);
        return out;
    }

    tarn_test::SimRun sim;
    std::map<int, std::vector<std::string>> steady;
    int pid = -1;
    int fds = -1;
};

}  // namespace tarn_fault
