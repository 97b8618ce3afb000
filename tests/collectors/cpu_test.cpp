// CPU cluster records: capacity-weighted average frequency, covered time and utilisation ranges,
// from cpufreq trees and /proc/stat written under a temporary root.
#include <errno.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "power_fixture.h"

using namespace power_test;
using U64s = std::vector<unsigned long long>;

namespace {

const std::string kCpu = "/sys/devices/system/cpu";
const std::string kCpufreq = kCpu + "/cpufreq";

std::string policy_dir(int p) {
    return kCpufreq + "/policy" + std::to_string(p);
}

// One cpufreq policy: its frequency list and the capacity of its first CPU (negative: none).
void write_policy(int p, const U64s& freqs, int capacity) {
    std::string list;
    for (auto f : freqs) list += std::to_string(f) + " ";
    write_file(policy_dir(p) + "/scaling_available_frequencies", list + "\n");
    write_file(policy_dir(p) + "/stats/time_in_state", "");
    std::string cap = kCpu + "/cpu" + std::to_string(p) + "/cpu_capacity";
    std::filesystem::remove(at(cap));
    if (capacity >= 0) write_file(cap, std::to_string(capacity) + "\n");
}

// Cumulative times at the policy's steps, one "frequency time" line each.
void write_times(int p, const U64s& times) {
    std::string s;
    for (size_t i = 0; i < times.size(); i++)
        s += std::to_string(1000 * (i + 1)) + " " + std::to_string(times[i]) + "\n";
    write_file(policy_dir(p) + "/stats/time_in_state", s);
}

// /proc/stat after periods of 100 ticks: in period k CPU i is busy (user) for periods[k][i]
// ticks, waits for I/O for 10 and idles for the rest. A CPU whose first share is above 90 is
// offline and has no line.
void write_stat(const std::vector<std::vector<unsigned>>& periods) {
    std::string s = "cpu  0 0 0 0 0 0 0 0 0 0\n";
    for (size_t i = 0; i < periods[0].size(); i++) {
        if (periods[0][i] > 90) continue;
        unsigned busy = 0, rounds = (unsigned)periods.size();
        for (auto& p : periods) busy += p[i];
        s += "cpu" + std::to_string(i) + " " + std::to_string(busy) + " 0 0 " +
             std::to_string(90 * rounds - busy) + " " + std::to_string(10 * rounds) + " 0 0 0 0 0\n";
    }
    write_file("/proc/stat", s + "intr 0\nctxt 0\n");
}

class Cpu : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { start_core(); }
    void SetUp() override {
        write_file(kCpu + "/possible", "0-7\n");
        cpu_reset_kept();
    }
};

TEST_F(Cpu, ClustersReportWeightedFrequencyAndTheirOwnUtilisation) {
    // Clusters 0-3, 4-5 and 6: the last cluster covers its first CPU only. CPU 2 is offline.
    std::filesystem::remove_all(at(kCpufreq));
    write_policy(0, {300000, 600000, 900000, 1200000}, 1024);  // weights 25 50 75 100
    // The last listed step, not the highest, is the maximum: weights 33 66 100 (cut) 100.
    write_policy(4, {500000, 1000000, 2000000, 1500000}, 1024);
    write_policy(6, {800000, 1600000}, -1);  // no capacity: weights 0
    const std::vector<unsigned> p1 = {10, 20, 99, 40, 50, 60, 70, 80};
    const std::vector<unsigned> p2 = {80, 70, 99, 50, 40, 30, 20, 10};
    write_times(0, {1000, 0, 0, 0});
    write_times(4, {0, 0, 0, 0});
    write_times(6, {50, 50});
    write_stat({p1});
    ASSERT_EQ(reopen_nodes(), 0);
    // The first sample measures from zero; no time at any step gives the first step.
    EXPECT_EQ(
        call(collect_cpu_stats_hndl).records,
        (V{"policy0,300000,1000,17.50,", "policy4,500000,0,55.00,", "policy6,800000,100,70.00,"}));

    // Weights 25 and 100 for 100 ticks each average 62, which step 2 (75) is the first to
    // reach; 33 and 100 average 66. One /proc/stat reading serves all three clusters.
    write_times(0, {1100, 0, 0, 100});
    write_times(4, {100, 0, 100, 0});
    write_times(6, {60, 60});
    write_stat({p1, p2});
    auto c = call(collect_cpu_stats_hndl);
    EXPECT_EQ(c.records, (V{"policy0,900000,200,50.00,", "policy4,1000000,200,35.00,",
                            "policy6,800000,20,20.00,"}));
    EXPECT_EQ(c.ret, (int32_t)strlen("policy6,800000,20,20.00,"));

    EXPECT_EQ(call(collect_cpu_stats_hndl).records,
              (V{"policy0,300000,0,0.00,", "policy4,500000,0,0.00,", "policy6,800000,0,0.00,"}));

    // A counter below its kept value (a reset) contributes its whole value.
    write_times(0, {1100, 0, 0, 40});
    c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 3u);
    EXPECT_EQ(c.records[0], "policy0,1200000,40,0.00,");
}

TEST_F(Cpu, PolicyScanTakesEightDirectoriesAndReportsSeven) {
    std::filesystem::remove_all(at(kCpufreq));
    for (int p = 0; p < 8; p++) write_policy(p, {100000}, 1024);
    ASSERT_EQ(reopen_nodes(), 0);
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 7u);
    EXPECT_EQ(c.records[6].rfind("policy6,", 0), 0u);

    tarn_test::make_dirs(at(kCpufreq) + "/policy8");
    EXPECT_EQ(reopen_nodes(), -EINVAL);

    // A directory that is not a policy takes a slot as policy 0, whose files do not exist.
    std::filesystem::remove_all(at(kCpufreq));
    write_policy(4, {100000}, 1024);
    tarn_test::make_dirs(at(kCpufreq) + "/tunables");
    ASSERT_EQ(reopen_nodes(), 0);
    EXPECT_EQ(sample(collect_cpu_stats_hndl), std::to_string(-EINVAL));

    std::filesystem::remove(at(kCpu + "/possible"));
    EXPECT_EQ(reopen_nodes(), -ENOENT);
}

// /proc/stat is read in 511-character line pieces: the rest of a long all-CPU line is the first
// line after it and counts toward the lines read, so the last CPU's line is not reached.
TEST_F(Cpu, StatLinesAreLinePieces) {
    std::filesystem::remove_all(at(kCpufreq));
    write_policy(0, {100000}, 1024);
    write_policy(7, {100000}, 1024);
    ASSERT_EQ(reopen_nodes(), 0);
    std::string first = "cpu ";
    while (first.size() < 600) first += " 1";
    std::string cpus;
    for (int i = 0; i < 8; i++) cpus += "cpu" + std::to_string(i) + " 50 0 0 50 0 0 0 0 0 0\n";
    write_file("/proc/stat", first + "\n" + cpus);
    call(collect_cpu_stats_hndl);
    cpus.clear();
    for (int i = 0; i < 8; i++) cpus += "cpu" + std::to_string(i) + " 100 0 0 100 0 0 0 0 0 0\n";
    write_file("/proc/stat", first + "\n" + cpus);
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 2u);
    EXPECT_EQ(c.records[0].substr(c.records[0].size() - 6), "50.00,");
    EXPECT_EQ(c.records[1], "policy7,100000,0,0.00,");
}

TEST_F(Cpu, SizesBeyondTheTablesStayInBounds) {
    // 130 steps: only the first 128 are kept, so the last listed frequency read is step 127.
    std::filesystem::remove_all(at(kCpufreq));
    write_file(kCpu + "/possible", "0-11\n");
    U64s freqs(130), zeros(130, 0);
    for (size_t i = 0; i < 130; i++) freqs[i] = 1000 * (i + 1);
    write_policy(0, freqs, 1024);
    write_policy(9, {}, 1024);  // an empty frequency list
    write_times(0, zeros);
    write_times(9, {5, 5});
    std::vector<unsigned> busy(12, 50);
    write_stat({busy});
    ASSERT_EQ(reopen_nodes(), 0);
    call(collect_cpu_stats_hndl);

    zeros[127] = 100;
    zeros[129] = 1000;  // beyond the kept rows: not counted
    write_times(0, zeros);
    write_times(9, {10, 10});
    write_stat({busy, busy});
    auto c = call(collect_cpu_stats_hndl);
    ASSERT_EQ(c.records.size(), 2u);
    EXPECT_EQ(c.records[0], "policy0,128000,100,50.00,");
    // With no step the average keeps its last value. Policy 9's CPUs have no per-CPU record:
    // its utilisation is 0.
    EXPECT_EQ(c.records[1].rfind("policy9,", 0), 0u);
    EXPECT_NE(c.records[1].find(",10,0.00,"), std::string::npos);
}

}  // namespace
