// GPU, DDR, brightness and frame-rate records: handlers that read rows of the node table, each
// from the node's start every period.
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "power_fixture.h"

using namespace power_test;
using Rows = std::vector<std::pair<unsigned long long, unsigned long long>>;  // freq, time in ms

namespace {

const std::string kDevfreq = "/sys/class/gfxd/gfxd-3d0/devfreq";
const std::string kBusy = "/sys/class/gfxd/gfxd-3d0/gpubusy";
const std::string kFps =
    "/sys/devices/platform/soc/ae00000.kelv,vdss_mdp/drm/card0/dpx-crtc-0/measured_fps";
const unsigned long long k220 = 220000000, k300 = 300000000, k585 = 585000000;

// Each node's samples in a row: the node's text and the record it gives.
struct Node {
    std::string path;
    int32_t (*hndl)(uint64_t);
    std::vector<std::pair<std::string, std::string>> samples;
};
const Node kNodes[] = {
    {"/sys/devices/system/cpu/bus_dcvs/DDR/cur_freq",
     collect_ddr_stats_hndl,
     {{"1555000\n", "DDR,1555000,"}, {"547\n", "DDR,547,"}, {"not a number\n", "DDR,0,"}}},
    {"/sys/class/backlight/panel0-backlight/brightness",
     collect_brightness_stats_hndl,
     {{"2047\n", "BRI,2047,"}, {"0\n", "BRI,0,"}, {"off\n", "BRI,0,"}}},
    // The rate is the first word of the last line's second ':'-separated field.
    {kFps,
     collect_fps_stats_hndl,
     {{"fps: 59.94 duration:500000 frame_count:30\n", "FPS,59.9,"},
      {"fps: 30.0 duration:1\nfps: 120.00 x:2\n", "FPS,120.0,"},
      {"fps:\n", "FPS,0.0,"},
      {"60\n", "FPS,60.0,"},
      {" 59.96 fps\n", "FPS,60.0,"},
      {"", "FPS,0.0,"},
      // A line longer than the line buffer is read in pieces; the last piece decides.
      {"fps: 90.0 pad:" + std::string(2000, 'x') + " tail: 48.0 end\n", "FPS,48.0,"}}},
};

std::string col(unsigned long long v) {
    std::string s = std::to_string(v);
    return std::string(s.size() < 10 ? 10 - s.size() : 0, ' ') + s;
}

// The transition table in the kernel's layout: two header lines, one row per frequency with
// its transition counts and its time, '*' on the current row, and the closing total.
void write_gpu(unsigned long long cur, const Rows& rows) {
    std::string s = "     From  :   To\n           :";
    for (auto& r : rows) s += col(r.first);
    s += "   time(ms)\n";
    for (size_t i = 0; i < rows.size(); i++) {
        s += (rows[i].first == cur ? "*" : " ") + col(rows[i].first) + ":";
        for (size_t j = 0; j < rows.size(); j++) s += col(i == j ? 0 : i + j);
        s += col(rows[i].second) + "\n";
    }
    write_file(kDevfreq + "/trans_stat", s + "Total transition : 42\n");
    write_file(kDevfreq + "/cur_freq", std::to_string(cur) + "\n");
}

std::string gpu() {
    return sample(collect_gpu_stats_hndl);
}

// Every node present with its first sample, opened afresh.
void write_nodes() {
    for (const Node& n : kNodes) write_file(n.path, n.samples[0].first);
    write_gpu(k300, {{k300, 1}});
    write_file(kBusy, "   12000   100000\n");
}

class TableNodes : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        write_nodes();
        start_core();
    }
    void SetUp() override {
        write_nodes();
        ASSERT_EQ(reopen_nodes(), 0);
    }
};

TEST_F(TableNodes, EachPeriodReportsTheCurrentContent) {
    for (const Node& n : kNodes) {
        for (auto& [text, record] : n.samples) {
            write_file(n.path, text);
            auto c = call(n.hndl);
            ASSERT_EQ(c.records, V{record}) << text;
            EXPECT_EQ(c.ret, (int32_t)record.size());
        }
    }
}

TEST_F(TableNodes, GpuResidencyFollowsTheCurrentFrequency) {
    write_gpu(k585, {{k220, 1000}, {k300, 2000}, {k585, 3000}});
    auto c = call(collect_gpu_stats_hndl);
    EXPECT_EQ(c.records, V{"GPU,585000000,0,12.00,"});
    EXPECT_EQ(c.ret, (int32_t)strlen("GPU,585000000,0,"));  // the load is not counted

    // At 300 MHz: the growth of its row since the first call.
    write_gpu(k300, {{k220, 1000}, {k300, 2400}, {k585, 3700}});
    EXPECT_EQ(gpu(), "GPU,300000000,400,12.00,");
    // Back at 585 MHz: its row's growth since it was last seen there, at the first call.
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 4000}});
    EXPECT_EQ(gpu(), "GPU,585000000,1000,12.00,");
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 4250}});
    EXPECT_EQ(gpu(), "GPU,585000000,250,12.00,");
    write_gpu(381000000, {{k220, 1000}, {k300, 2900}, {k585, 4250}});  // no row of its own
    EXPECT_EQ(gpu(), "GPU,381000000,0,12.00,");

    // Restarting the CPU collector forgets the kept rows.
    ASSERT_EQ(reopen_nodes(), 0);
    write_gpu(k585, {{k220, 1000}, {k300, 2900}, {k585, 9000}});
    EXPECT_EQ(gpu(), "GPU,585000000,0,12.00,");

    // The load is busy time over total time; a busy node at its end gives no record.
    const std::pair<const char*, const char*> kLoads[] = {
        {"  250 1000\n", "GPU,585000000,0,25.00,"},
        {"0 0\n", "GPU,585000000,0,0.00,"},
        {"", "-1"},
    };
    for (auto& [busy, expected] : kLoads) {
        write_file(kBusy, busy);
        EXPECT_EQ(gpu(), expected) << busy;
    }
}

// The table is read in 1024-byte line pieces, and a piece's text ends at a NUL byte.
TEST_F(TableNodes, GpuRowsAreLinePieces) {
    const std::string head =
        "     From  :   To\n           :" + col(k300) + col(k585) + "   time(ms)\n";
    // The 300 MHz row runs past 1023 characters: its first piece ends in a transition count of
    // 0, which is its time, and the rest is a row of its own. The 585 MHz row has a NUL after its
    // time, and what follows the NUL is not part of the row.
    auto write = [&](unsigned long long cur, unsigned long long t300, unsigned long long t585) {
        std::string pad;
        while (pad.size() < 1100) pad += "         0";
        std::string text = head + "*" + col(k300) + ":" + pad + col(t300) + "\n " + col(k585) +
                           ":" + col(1) + col(0) + col(t585) + std::string(1, '\0') +
                           " 999\nTotal transition : 3\n";
        write_file(kDevfreq + "/trans_stat", text);
        write_file(kDevfreq + "/cur_freq", std::to_string(cur) + "\n");
    };
    ASSERT_EQ(reopen_nodes(), 0);
    write(k300, 1000, 5000);
    EXPECT_EQ(gpu(), "GPU,300000000,0,12.00,");
    write(k300, 1700, 5000);
    EXPECT_EQ(gpu(), "GPU,300000000,0,12.00,");  // the piece's time did not move
    write(k585, 1700, 5250);
    EXPECT_EQ(gpu(), "GPU,585000000,250,12.00,");
}

TEST_F(TableNodes, NodeMissingAtStartFailsEveryPeriod) {
    std::vector<std::pair<std::string, int32_t (*)(uint64_t)>> kRows;
    for (const Node& n : kNodes) kRows.emplace_back(n.path, n.hndl);
    for (const std::string& p : {kBusy, kDevfreq + "/cur_freq", kDevfreq + "/trans_stat"})
        kRows.emplace_back(p, collect_gpu_stats_hndl);
    write_file(kBusy, "1 2\n");
    for (auto& [path, hndl] : kRows) {
        std::string text = tarn_test::read_file(at(path));
        unlink(at(path).c_str());
        ASSERT_EQ(reopen_nodes(), 0);
        write_file(path, text);  // back after the table was opened
        EXPECT_EQ(sample(hndl), std::to_string(-EINVAL)) << path;
    }
    ASSERT_EQ(reopen_nodes(), 0);
    for (auto& [path, hndl] : kRows) EXPECT_EQ(call(hndl).records.size(), 1u) << path;
}

}  // namespace
