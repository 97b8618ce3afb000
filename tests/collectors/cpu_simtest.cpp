// CPU cluster records: capacity-weighted average frequency, covered time and utilisation ranges,
// from cpufreq trees and /proc/stat written at the device's own paths.
#include <errno.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <vector>

#include "collectors/collectors.h"
#include "collectors/power_fixture.h"
#include "common/test_util.h"

using power_test::call;
using tarn_test::write_file;
using V = std::vector<std::string>;

namespace {

const std::string kCpu = "/sys/devices/system/cpu";
const std::string kCpufreq = kCpu + "/cpufreq";

std::string policy_dir(int p) {
    return kCpufreq + "/policy" + std::to_string(p);
}

std::string join(const std::vector<unsigned long long>& v, const char* sep) {
    std::string s;
    for (auto x : v) s += std::to_string(x) + sep;
    return s;
}

// One cpufreq policy: its frequency list and the capacity of its first CPU (negative: none).
void write_policy(int p, const std::vector<unsigned long long>& freqs, int capacity) {
    std::string d = policy_dir(p);
    write_file(d + "/scaling_available_frequencies", join(freqs, " ") + "\n");
    write_file(d + "/scaling_cur_freq", std::to_string(freqs.empty() ? 0 : freqs[0]) + "\n");
    write_file(d + "/related_cpus", std::to_string(p) + "\n");
    write_file(d + "/stats/trans_table", "   From  :    To\n");
    write_file(d + "/stats/time_in_state", "");
    std::string cap = kCpu + "/cpu" + std::to_string(p) + "/cpu_capacity";
    if (capacity >= 0) {
        write_file(cap, std::to_string(capacity) + "\n");
    } else {
        std::filesystem::remove(cap);
    }
}

void write_times(int p, const std::vector<unsigned long long>& times) {
    std::string s;
    for (size_t i = 0; i < times.size(); i++)
        s += std::to_string(1000 * (i + 1)) + " " + std::to_string(times[i]) + "\n";
    write_file(policy_dir(p) + "/stats/time_in_state", s);
}

// /proc/stat with the given CPUs' busy (user) and idle counters; other counters 0.
void write_stat(const std::map<int, std::pair<unsigned, unsigned>>& cpus) {
    std::string s = "cpu  0 0 0 0 0 0 0 0 0 0\n";
    for (auto& [cpu, c] : cpus) {
        s += "cpu" + std::to_string(cpu) + " " + std::to_string(c.first) + " 0 0 " +
             std::to_string(c.second) + " 0 0 0 0 0 0\n";
    }
    write_file("/proc/stat", s + "intr 0\nctxt 0\n");
}

// CPU i busy for `busy[i]` of every 100 ticks, after `rounds` periods.
std::map<int, std::pair<unsigned, unsigned>> load(const std::vector<unsigned>& busy,
                                                  unsigned rounds) {
    std::map<int, std::pair<unsigned, unsigned>> m;
    for (size_t i = 0; i < busy.size(); i++) {
        if (busy[i] <= 100) m[(int)i] = {busy[i] * rounds, (100 - busy[i]) * rounds};
    }
    return m;
}

// Three clusters as on an eight-CPU phone: 0-3, 4-6 and 7.
void write_three_clusters() {
    std::filesystem::remove_all(kCpufreq);
    write_file(kCpu + "/possible", "0-7\n");
    write_policy(0, {300000, 600000, 900000, 1200000}, 1024);  // weights 25 50 75 100
    write_policy(4, {500000, 1000000, 2000000}, 512);          // weights 12 25 50
    write_policy(7, {800000, 1600000}, -1);                    // no capacity: weights 0
}

void reinit() {
    collect_cpu_stats_exit();
    ASSERT_EQ(collect_cpu_stats_init(), 0);
}

const std::vector<unsigned> kBusy = {10, 20, 30, 40, 50, 60, 70, 80};

// Before any init the cluster table holds policy 0 in its second slot with no open files.
TEST(CpuBeforeInit, HandlerFailsWithoutOpenFiles) {
    EXPECT_EQ(collect_cpu_stats_hndl(0), -EINVAL);
}

class Cpu : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        write_three_clusters();
        write_stat(load(kBusy, 1));
        power_test::start_core();
    }
};

TEST_F(Cpu, ClustersReportWeightedFrequencyAndTheirOwnUtilisation) {
    write_three_clusters();
    write_times(0, {1000, 0, 0, 0});
    write_times(4, {0, 0, 0});
    write_times(7, {50, 50});
    write_stat(load(kBusy, 1));
    reinit();
    auto first = call(collect_cpu_stats_hndl);
    ASSERT_EQ(first.records.size(), 3u);

    // 100 ticks at weight 25 and 100 at weight 100 average 62: the first step weighing at least
    // that is 900000. One /proc/stat reading serves all three clusters.
    write_times(0, {1100, 0, 0, 100});
    write_times(4, {0, 300, 0});
    write_times(7, {60, 60});
    write_stat(load(kBusy, 2));
    auto c = call(collect_cpu_stats_hndl);
    EXPECT_EQ(c.records, (V{"policy0,900000,200,25.00,", "policy4,1000000,300,60.00,",
                            "policy7,800000,20,80.00,"}));
    EXPECT_EQ(c.ret, (int32_t)c.records[2].size());

    // No time passed: the first listed frequency and an idle cluster.
    c = call(collect_cpu_stats_hndl);
    EXPECT_EQ(c.records,
              (V{"policy0,300000,0,0.00,", "policy4,500000,0,0.00,", "policy7,800000,0,0.00,"}));

    // A counter below its kept value (a reset) contributes its whole value.
    write_times(0, {1100, 0, 0, 40});
    c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 3u);
    EXPECT_EQ(c.records[0], "policy0,1200000,40,0.00,");
}

TEST_F(Cpu, LastClusterCoversItsFirstCpuAndOfflineCpusCountZero) {
    write_three_clusters();
    std::filesystem::remove_all(policy_dir(7));
    std::vector<unsigned> busy = kBusy;
    busy[2] = 1000;  // CPU 2 offline: no line
    write_stat(load(busy, 1));
    reinit();
    call(collect_cpu_stats_hndl);
    write_stat(load(busy, 3));
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 2u);
    EXPECT_EQ(c.records[0].substr(c.records[0].rfind(',', c.records[0].size() - 2)), ",17.50,");
    EXPECT_EQ(c.records[1].substr(c.records[1].rfind(',', c.records[1].size() - 2)), ",50.00,");
}

TEST_F(Cpu, PolicyScanTakesEightDirectoriesAndReportsSeven) {
    std::filesystem::remove_all(kCpufreq);
    for (int p = 0; p < 8; p++) write_policy(p, {100000}, 1024);
    reinit();
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 7u);
    EXPECT_EQ(c.records[6].rfind("policy6,", 0), 0u);

    tarn_test::make_dirs(kCpufreq + "/policy8");
    collect_cpu_stats_exit();
    EXPECT_EQ(collect_cpu_stats_init(), -EINVAL);

    // A directory that is not a policy takes a slot as policy 0, whose files do not exist.
    std::filesystem::remove_all(kCpufreq);
    write_policy(4, {100000}, 1024);
    tarn_test::make_dirs(kCpufreq + "/tunables");
    reinit();
    c = call(collect_cpu_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());

    std::filesystem::remove(kCpu + "/possible");
    collect_cpu_stats_exit();
    EXPECT_EQ(collect_cpu_stats_init(), -ENOENT);
}

TEST_F(Cpu, SizesBeyondTheTablesStayInBounds) {
    // 130 steps: only the first 128 are kept, so the last listed frequency read is step 127.
    std::filesystem::remove_all(kCpufreq);
    write_file(kCpu + "/possible", "0-11\n");
    std::vector<unsigned long long> freqs, zeros(130, 0);
    for (unsigned long long i = 1; i <= 130; i++) freqs.push_back(1000 * i);
    write_policy(0, freqs, 1024);
    write_policy(9, {}, 1024);  // an empty frequency list
    write_times(0, zeros);
    write_times(9, {5, 5});
    std::map<int, std::pair<unsigned, unsigned>> cpus = load(kBusy, 1);
    for (int cpu = 8; cpu < 12; cpu++) cpus[cpu] = {50, 50};
    write_stat(cpus);
    reinit();
    call(collect_cpu_stats_hndl);

    zeros[127] = 100;
    zeros[129] = 1000;  // beyond the kept rows: not counted
    write_times(0, zeros);
    write_times(9, {10, 10});
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 2u);
    EXPECT_EQ(c.records[0].rfind("policy0,128000,100,", 0), 0u);
    // Policy 9's CPUs have no per-CPU record: its utilisation is 0.
    EXPECT_EQ(c.records[1].rfind("policy9,", 0), 0u);
    EXPECT_NE(c.records[1].find(",10,0.00,"), std::string::npos);
}

}  // namespace
