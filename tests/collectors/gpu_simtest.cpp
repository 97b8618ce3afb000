// GPU record: current frequency, residency at it from the devfreq transition table, and load.
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "collectors/collectors.h"
#include "collectors/power_fixture.h"
#include "common/test_util.h"

using power_test::call;
using tarn_test::write_file;
using V = std::vector<std::string>;

namespace {

const std::string kDevfreq = "/sys/class/gfxd/gfxd-3d0/devfreq";
const std::string kBusy = "/sys/class/gfxd/gfxd-3d0/gpubusy";

// The transition table in the kernel's layout: two header lines, one row per frequency with
// its transition counts and its time in ms, '*' on the current row, and the closing total.
void write_gpu(unsigned long long cur,
               const std::vector<std::pair<unsigned long long, unsigned long long>>& rows) {
    char buf[64];
    std::string s = "     From  :   To\n           :";
    for (auto& r : rows) {
        snprintf(buf, sizeof(buf), "%10llu", r.first);
        s += buf;
    }
    s += "   time(ms)\n";
    for (size_t i = 0; i < rows.size(); i++) {
        snprintf(buf, sizeof(buf), "%c%10llu:", rows[i].first == cur ? '*' : ' ', rows[i].first);
        s += buf;
        for (size_t j = 0; j < rows.size(); j++) {
            snprintf(buf, sizeof(buf), "%10zu", i == j ? 0 : i + j);
            s += buf;
        }
        snprintf(buf, sizeof(buf), "%10llu\n", rows[i].second);
        s += buf;
    }
    write_file(kDevfreq + "/trans_stat", s + "Total transition : 42\n");
    write_file(kDevfreq + "/cur_freq", std::to_string(cur) + "\n");
}

const unsigned long long k220 = 220000000, k300 = 300000000, k585 = 585000000;

class Gpu : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        power_test::write_minimal_device();
        write_gpu(k300, {{k220, 1}, {k300, 1}});
        write_file(kBusy, "   12000   100000\n");
        power_test::start_core();
    }
    void SetUp() override { ASSERT_EQ(power_test::reopen_nodes(), 0); }
};

TEST_F(Gpu, ResidencyFollowsTheCurrentFrequency) {
    write_gpu(k585, {{k220, 1000}, {k300, 2000}, {k585, 3000}});
    auto c = call(collect_gpu_stats_hndl);
    EXPECT_EQ(c.records, V{"GPU,585000000,0,12.00,"});
    EXPECT_EQ(c.ret, (int32_t)strlen("GPU,585000000,0,"));  // the load is not counted

    // At 300 MHz: the growth of its row since the first call.
    write_gpu(k300, {{k220, 1000}, {k300, 2400}, {k585, 3700}});
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,300000000,400,12.00,"});
    // Back at 585 MHz: its row's growth since it was last seen there, at the first call.
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 4000}});
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,585000000,1000,12.00,"});
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 4250}});
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,585000000,250,12.00,"});
    // A frequency without a row.
    write_gpu(381000000, {{k220, 1000}, {k300, 2900}, {k585, 4250}});
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,381000000,0,12.00,"});

    // Restarting the CPU collector forgets the kept rows.
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 9000}});
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,585000000,0,12.00,"});
}

TEST_F(Gpu, LoadAndMissingNodes) {
    write_gpu(k300, {{k300, 10}});
    write_file(kBusy, "  250 1000\n");
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,300000000,0,25.00,"});
    write_file(kBusy, "0 0\n");
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,300000000,0,0.00,"});

    write_file(kBusy, "");
    auto c = call(collect_gpu_stats_hndl);
    EXPECT_LT(c.ret, 0);
    EXPECT_TRUE(c.records.empty());

    unlink(kBusy.c_str());
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    c = call(collect_gpu_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());

    write_file(kBusy, "1 2\n");
    unlink((kDevfreq + "/trans_stat").c_str());
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    c = call(collect_gpu_stats_hndl);
    EXPECT_EQ(c.ret, -EINVAL);
    EXPECT_TRUE(c.records.empty());
}

TEST_F(Gpu, WideAndLongTablesStayInBounds) {
    // 140 rows of 140 columns: every row is longer than a kilobyte, and the rows past the 128
    // kept ones cannot be tracked.
    std::vector<std::pair<unsigned long long, unsigned long long>> rows;
    for (unsigned long long i = 1; i <= 140; i++) rows.push_back({i * 1000000, i});
    write_file(kBusy, "1 2\n");
    write_gpu(5000000, rows);
    ASSERT_EQ(power_test::reopen_nodes(), 0);
    call(collect_gpu_stats_hndl);
    rows[4].second += 77;
    rows[135].second += 5;
    write_gpu(5000000, rows);
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,5000000,77,50.00,"});
    write_gpu(136000000, rows);
    EXPECT_EQ(call(collect_gpu_stats_hndl).records, V{"GPU,136000000,0,50.00,"});
}

}  // namespace
