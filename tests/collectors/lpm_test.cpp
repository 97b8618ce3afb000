// Low-power-mode record over successive samples, from fixture nodes under a temporary root.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "fnode.h"
#include "node_reader.h"
#include "power_fixture.h"

using power_test::at;
using power_test::write_file;
using V = std::vector<std::string>;

namespace {

const char* const kSubsys[] = {"adsp", "adsp_island", "aosd",  "apss", "cdsp",
                               "cxsd", "ddr",         "modem", "slpi", "slpi_island"};
const char* const kWlan[] = {"wlnd", "wlne_v2", "wlne", "wlnf", "wlnc", "wlnb", "wlna", "wifi"};
const std::string kSleep = "/sys/kernel/debug/kelv_sleep_stats/";
constexpr unsigned long long kSec = 19200000ULL;

std::string wlan(const std::string& dir) {
    return "/sys/kernel/" + dir + "/power_stats";
}
void write_idle(int d, const std::string& lines) {
    write_file("/sys/kernel/debug/pm_genpd/cpu-pd" + std::to_string(d) + "/idle_states",
               "State          Time Spent(ms) Usage          Rejected\n" + lines);
}
void write_sleep(const std::string& n, unsigned long long count, unsigned long long dur) {
    write_file(kSleep + n, "Count = " + std::to_string(count) +
                               "\nLast Entered At = 7000\nLast Exited At = 7100\n" +
                               "Accumulated Duration = " + std::to_string(dur) + "\n");
}
// Sleep time, total on time, sleep-enter counter and timestamp after two header lines.
void write_wlan(const std::string& dir, std::vector<int> values) {
    const char* keys[] = {"Sleep time", "Total on", "Sleep enter counter", "Sleep enter tstamp"};
    std::string text = "WLAN power statistics\nsince load\n";
    for (size_t k = 0; k < values.size(); k++)
        text += keys[k] + (": " + std::to_string(values[k])) + "\n";
    write_file(wlan(dir), text);
}

// One handler call: its result, its record ("" when none) and each part's words by label.
struct Sample {
    int32_t ret;
    std::string record;
    V labels;
    std::map<std::string, V> parts;
    V last(const std::string& label, size_t n) const {
        const V& w = parts.at(label);
        return w.size() < n ? V{} : V(w.end() - (long)n, w.end());
    }
};

Sample sample() {
    power_test::Call c = power_test::call(collect_lpm_stats_hndl);
    Sample s{c.ret, c.records.empty() ? "" : c.records[0], {}, {}};
    std::stringstream ss(s.record.empty() ? "" : s.record.substr(4));
    for (std::string label, part; std::getline(ss, label, ',') && std::getline(ss, part, ',');) {
        std::stringstream ws(part);
        s.labels.push_back(label);
        for (std::string w; ws >> w;) s.parts[label].push_back(w);
    }
    return s;
}

class LpmTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { power_test::start_core(); }
    // Every node present with plain content, and open as at start-up; nothing kept yet.
    void SetUp() override {
        lpm_reset_kept();
        for (int d = 0; d < 8; d++) write_idle(d, "S0   512   64   0\n");
        for (const char* s : kSubsys) write_sleep(s, 12, 1000);
        for (const char* w : kWlan) unlink(at(wlan(w)).c_str());
        write_wlan("wlnd", {100, 200, 30, 4000});
        for (int r = 0; r < 18; r++) {
            fnode& row = g_fnode_table[FNODE_LPM_BASE + r];
            node_close(&row.fd);
            row.fd = node_open(at(row.path).c_str());
        }
    }
};

// Kept values start at zero, so the first record carries whole counters.
TEST_F(LpmTest, FirstRecordCarriesWholeCountersInLayoutOrder) {
    Sample s = sample();
    EXPECT_EQ(s.ret, (int32_t)s.record.size());
    EXPECT_EQ(s.record.rfind("LPM,CPU0, S0 512 64 0 64 0 0 0 0 0,CPU1, S0 512 64 0 64 0", 0), 0u);
    V order = {"CPU0", "CPU1", "CPU2", "CPU3", "CPU4", "CPU5", "CPU6", "CPU7"};
    order.insert(order.end(), std::begin(kSubsys), std::end(kSubsys));
    order.push_back("WCNSS");
    EXPECT_EQ(s.labels, order);
    EXPECT_EQ(s.parts.at("adsp"), (V{"12", "7000", "7100", "1000", "12", "0"}));
    EXPECT_EQ(s.parts.at("WCNSS"), (V{"100", "200", "30", "4000", "100", "200", "30", "4000"}));
}

TEST_F(LpmTest, IdleStatesUseTheLastLineOnly) {
    write_idle(3, "S0   900   300   0\nS1   400   100   2\n");
    V before = sample().last("CPU3", 6);
    write_idle(3, "S0   950   340   0\nS1   480   130   2\n");
    EXPECT_EQ(sample().parts.at("CPU3"), (V{"S1", "480", "130", "2", before[0], "30", before[2],
                                            before[3], before[4], before[5]}));
    EXPECT_EQ(sample().last("CPU3", 6)[1], "0");  // unchanged file: no new use
    write_idle(3, "S1 10 7 0\n");                 // reset counter: the new value is the delta
    EXPECT_EQ(sample().last("CPU3", 6)[1], "7");
    write_idle(3, "S5 1 4 0\n");
    V d = sample().last("CPU3", 6);
    EXPECT_EQ(d[5], "4");
    write_idle(3, "");  // header only: no state S0..S5, no delta moves
    EXPECT_EQ(sample().last("CPU3", 6), d);
}

TEST_F(LpmTest, SubsystemCountsAndWholeSecondDurations) {
    auto next = [](unsigned long long count, unsigned long long dur) {
        write_sleep("adsp", count, dur);
        return sample().last("adsp", 2);
    };
    next(10, 1000);
    EXPECT_EQ(next(10, 1000 + kSec), (V{"1", "1"}));  // a whole second asleep counts one entry
    EXPECT_EQ(next(10, 1000 + 2 * kSec - 1), (V{"0", "0"}));
    EXPECT_EQ(next(15, 1000 + 5 * kSec + 4), (V{"5", "3"}));
    EXPECT_EQ(next(4, 500), (V{"4", "0"}));  // reset counters
    EXPECT_EQ(next(4, 2 * kSec + 500), (V{"1", "2"}));
    EXPECT_EQ(next(4, 2 * kSec), (V{"1", "2"}));  // duration reset to two seconds
}

TEST_F(LpmTest, MissingFilesAndStreams) {
    unlink(at(kSleep + "slpi").c_str());
    unlink(at(kSleep + "slpi_island").c_str());
    Sample s = sample();
    EXPECT_EQ(s.ret, (int32_t)s.record.size());
    EXPECT_EQ(s.parts.count("slpi") + s.parts.count("slpi_island"), 0u);
    EXPECT_EQ(s.labels.back(), "WCNSS");

    // A readable file whose stream was not opened at start-up, or a CPU domain that was not:
    // -22 and no record, whatever was built before.
    for (int row : {12, 5}) {
        fnode& n = g_fnode_table[FNODE_LPM_BASE + row];
        node_close(&n.fd);
        s = sample();
        EXPECT_EQ(s.ret, -22);
        EXPECT_EQ(s.record, "");
    }
}

TEST_F(LpmTest, WlanFileChoiceAndDeltas) {
    const fnode& row = g_fnode_table[FNODE_LPM_BASE + FNODE_LPM_WLAN];
    unlink(at(wlan("wlnd")).c_str());
    EXPECT_EQ(sample().labels.back(), "slpi_island");
    EXPECT_EQ(row.path, nullptr);

    write_wlan("wifi", {1, 1, 1, 1});
    write_wlan("wlnf", {5000, 6000, 70, 8000});
    V w = sample().parts.at("WCNSS");
    EXPECT_EQ(V(w.begin(), w.begin() + 4), (V{"5000", "6000", "70", "8000"}));
    EXPECT_EQ(row.path, at("/sys/kernel/wlnf/power_stats"));
    EXPECT_EQ(row.fd, -1);
    write_wlan("wlnf", {5100, 6300, 72, 9000});
    EXPECT_EQ(sample().last("WCNSS", 4), (V{"100", "300", "2", "1000"}));
    write_wlan("wlnf", {});  // header only: the record ends after the subsystems
    EXPECT_EQ(sample().labels.back(), "slpi_island");
}

TEST_F(LpmTest, RecordThatWouldPassTheBufferIsDropped) {
    std::string word(590, 'x');
    for (int d = 0; d < 8; d++) write_idle(d, "S0 1 2 3 " + word + "\n");
    Sample s = sample();
    EXPECT_EQ(s.ret, -1);
    EXPECT_EQ(s.record, "");
    for (int d = 4; d < 8; d++) write_idle(d, "S0 1 2 3\n");
    s = sample();
    EXPECT_GT(s.ret, 4 * 590);
    EXPECT_EQ(s.ret, (int32_t)s.record.size());
    EXPECT_EQ(s.labels.back(), "WCNSS");
}

}  // namespace
