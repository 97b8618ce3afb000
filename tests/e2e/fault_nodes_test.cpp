// The real daemon, every collector at period 1, while the nodes it reads turn bad under it: each
// kind of node in turn gets empty, garbage, binary, huge, one-line-without-newline and out-of-range
// content, is made unreadable and then removed. The collectors of the other half of the nodes go
// on with unchanged records, the disturbed ones come back to them once the node is restored, and
// the daemon keeps its descriptors.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include "e2e/fault_e2e.h"

namespace {

struct Node {
    const char* path;    // in the device root
    std::set<int> kpis;  // the records it feeds
};

// Two halves: while one is disturbed, every record of the other stays as it was.
const std::vector<Node> kHalfA = {
    {"/sys/class/power_supply/battery/uevent", {2}},
    {"/sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq", {3, 1002}},
    {"/proc/stat", {3}},
    {"/sys/devices/system/cpu/bus_dcvs/DDR/cur_freq", {5}},
    {"/sys/class/backlight/panel0-backlight/brightness", {8}},
    {"/sys/devices/virtual/thermal/thermal_zone0/temp", {1000}},
};
const std::vector<Node> kHalfB = {
    {"/sys/class/gfxd/gfxd-3d0/devfreq/cur_freq", {4}},
    {"/sys/class/gfxd/gfxd-3d0/gpubusy", {4}},
    {"/sys/kernel/debug/pm_genpd/cpu-pd0/idle_states", {6}},
    {"/sys/kernel/debug/kelv_sleep_stats/adsp", {6}},
    {"/sys/kernel/wlnd/power_stats", {6}},
    {"/data/local/tmp/ps.sh", {7}},
    {"/sys/devices/platform/soc/ae00000.kelv,vdss_mdp/drm/card0/dpx-crtc-0/measured_fps", {9}},
    {"/sys/devices/virtual/thermal/cooling_device0/cur_state", {1001}},
};

std::string binary_bytes() {
    std::string s;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 256; ++c) s.push_back(static_cast<char>(c));
    return s;
}

std::string mebibyte() {
    std::string s;
    while (s.size() < (1u << 20)) s += "1234567 89012345 67890123 45678901 23456789 0123456789\n";
    return s.substr(0, 1u << 20);
}

// Content written in place (same file, so nodes the daemon keeps open see it).
const std::vector<std::pair<const char*, std::string>> kContents = {
    {"empty", ""},
    {"garbage", "@@ not:a number ;; %s%n%x {}}{ ::: ,,, =\n=\n\t\n"},
    {"binary with NULs", binary_bytes()},
    {"1 MiB", mebibyte()},
    {"10000-character line without newline", std::string(10000, '7')},
    {"2^64", "18446744073709551616\n"},
    {"-2^63", "-9223372036854775808\n"},
};

void rewrite(const std::string& path, const std::string& content) {
    int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
    close(fd);
}

class Disturbance {
  public:
    Disturbance(const std::string& root, const std::vector<Node>& nodes) {
        for (const Node& n : nodes) {
            std::string path = root + n.path;
            mPaths.push_back(path);
            mOriginals.push_back(tarn_test::read_file(path));
            struct stat st;
            mModes.push_back(stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0644);
        }
    }
    void write_all(const std::string& content) {
        for (const std::string& p : mPaths) rewrite(p, content);
    }
    void restore_content() {
        for (size_t i = 0; i < mPaths.size(); ++i) rewrite(mPaths[i], mOriginals[i]);
    }
    // Moves each node aside (the daemon's open streams keep it); with `as_dir` a directory takes
    // its place, which opens but cannot be read, for root as for anyone.
    void move_aside(bool as_dir) {
        for (const std::string& p : mPaths) {
            ASSERT_EQ(0, rename(p.c_str(), (p + ".aside").c_str())) << p;
            if (as_dir) {
                ASSERT_EQ(0, mkdir(p.c_str(), 0755)) << p;
            }
        }
    }
    void move_back() {
        for (const std::string& p : mPaths) {
            rmdir(p.c_str());
            ASSERT_EQ(0, rename((p + ".aside").c_str(), p.c_str())) << p;
        }
    }
    void chmod_all(bool unreadable) {
        for (size_t i = 0; i < mPaths.size(); ++i)
            chmod(mPaths[i].c_str(), unreadable ? 0 : mModes[i]);
    }

  private:
    std::vector<std::string> mPaths, mOriginals;
    std::vector<mode_t> mModes;
};

std::set<int> kpis_of(const std::vector<Node>& nodes) {
    std::set<int> out;
    for (const Node& n : nodes) out.insert(n.kpis.begin(), n.kpis.end());
    return out;
}

// One way of spoiling nodes, and its undoing.
struct Step {
    std::string what;
    std::function<void(Disturbance&)> apply, undo;
};

std::vector<Step> all_steps() {
    std::vector<Step> steps;
    for (const auto& c : kContents) {
        const std::string content = c.second;
        steps.push_back({c.first, [content](Disturbance& x) { x.write_all(content); },
                         [](Disturbance& x) { x.restore_content(); }});
    }
    // Mode 000 stops reads only for a user without root's override; the directory put in a
    // node's place stops them for everyone.
    steps.push_back({"mode 000", [](Disturbance& x) { x.chmod_all(true); },
                     [](Disturbance& x) { x.chmod_all(false); }});
    steps.push_back({"a directory in its place", [](Disturbance& x) { x.move_aside(true); },
                     [](Disturbance& x) { x.move_back(); }});
    steps.push_back({"removed", [](Disturbance& x) { x.move_aside(false); },
                     [](Disturbance& x) { x.move_back(); }});
    return steps;
}

// Each step disturbs one group of nodes at a time and checks every other collector, among them
// those of the group before, which was restored just before. The long form adds each node alone.
TEST(FaultE2E, BadNodesLeaveTheOtherCollectorsAndRecover) {
    tarn_fault::Daemon d;
    ASSERT_NO_FATAL_FAILURE(d.settle());
    std::vector<std::vector<Node>> groups = {kHalfA, kHalfB};
    if (tarn_fault::long_form()) {
        for (const auto& half : {kHalfA, kHalfB})
            for (const Node& n : half) groups.push_back({n});
    }

    // Where bad input has a settled outcome, the disturbed collector's last record shows it: an
    // empty battery file reads as zeros, a brightness that is not a number as 0, an empty frame
    // rate node as 0.0, and a statistics script that prints nothing (or is missing) gives an
    // empty record.
    const std::string kEmptyRecord = ",com.android.launcher3,";
    const std::map<std::string, std::map<int, std::string>> settled = {
        {"empty", {{2, ",battery,0,0,0,0,"}, {8, ",BRI,0,"}, {9, ",FPS,0.0,"}, {7, kEmptyRecord}}},
        {"garbage", {{8, ",BRI,0,"}}},
        {"a directory in its place", {{7, kEmptyRecord}}},
        {"removed", {{7, kEmptyRecord}}},
    };
    auto expect_settled = [&](const Step& s, const std::set<int>& disturbed) {
        auto it = settled.find(s.what);
        if (it == settled.end()) return;
        tarn_fault::ByKpi now = tarn_fault::by_kpi(d.sim.records());
        for (const auto& kv : it->second) {
            if (!disturbed.count(kv.first) || now[kv.first].empty()) continue;
            const std::string& last = now[kv.first].back();
            const std::string& end = kv.second;
            EXPECT_TRUE(last.size() >= end.size() &&
                        last.compare(last.size() - end.size(), end.size(), end) == 0)
                << s.what << ": KPI " << kv.first << " gave " << last.substr(0, 200);
        }
    };
    std::vector<Disturbance> disturbances;
    for (const std::vector<Node>& group : groups) disturbances.emplace_back(d.sim.root(), group);
    for (const Step& s : all_steps()) {
        for (size_t g = 0; g < groups.size(); ++g) {
            const std::set<int> disturbed = kpis_of(groups[g]);
            s.apply(disturbances[g]);
            d.expect_steady(d.kpis_except(disturbed), std::string(groups[g][0].path) + " " + s.what);
            expect_settled(s, disturbed);
            s.undo(disturbances[g]);
            if (HasFatalFailure()) return;
        }
    }
    d.expect_steady(d.kpis_except({}), "all restored");
    EXPECT_EQ(0, d.sim.stop());
}

}  // namespace
