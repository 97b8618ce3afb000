// The real daemon and its local record file under hostile conditions: killed by a signal at any
// point of a tick, a FIFO whose reader leaves, a file at the file-size limit; and kernel nodes
// that are FIFOs. Every kill loses at most the line being written, failed writes are ignored, and
// a FIFO node reads as an empty one.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>

#include <random>

#include "e2e/fault_e2e.h"

namespace {

using tarn_test::SimOptions;
using tarn_test::SimRun;

const char kLocal[] = "/data/local/tmp/records.txt";

// The records file's lines without their KPI ids: the lines the local file should hold.
std::vector<std::string> uploaded(const SimRun& sim) {
    std::vector<std::string> out;
    for (const std::string& r : sim.records()) out.push_back(r.substr(r.find('\t') + 1));
    return out;
}

size_t battery_count(const SimRun& sim) {
    return tarn_fault::by_kpi(sim.records())[2].size();
}

// The daemon behind a shell line that prepares its world, then execs it with `args`.
std::vector<std::string> wrapped(const std::string& shell, std::vector<std::string> args) {
    args.insert(args.begin(), {"/bin/sh", "-c", shell + " && exec \"$0\" \"$@\"",
                               tarn_test::daemon_path(), "--daemon"});
    return args;
}

// Expects the complete lines of the local file to be the first uploaded lines, in order, and an
// unterminated tail to be the start of the next one. Returns the uploaded lines not in the file
// whole, and whether the file ends in a torn line.
std::pair<size_t, bool> local_loss(const SimRun& sim) {
    const std::vector<std::string> up = uploaded(sim);
    const std::string local = tarn_test::read_file(sim.root() + kLocal);
    const std::vector<std::string> lines = tarn_test::split_lines(local);
    EXPECT_LE(lines.size(), up.size());
    for (size_t i = 0; i < lines.size() && i < up.size(); ++i)
        EXPECT_EQ(up[i], lines[i]) << "line " << i;
    const bool torn = !local.empty() && local.back() != '\n';
    if (torn && lines.size() < up.size()) {
        std::string tail = local.substr(local.rfind('\n') + 1);
        EXPECT_EQ(0u, up[lines.size()].rfind(tail, 0)) << "torn line " << tail;
    }
    return {up.size() - std::min(up.size(), lines.size()), torn};
}

// SIGTERM and SIGKILL at a random point of a tick, at three rates of lines. The figures go to the
// test's output; each kill may lose only the line under way.
TEST(FaultE2E, KillLosesAtMostTheLineBeingWritten) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> rates = {
        {"battery only", {"--bat", "1"}},
        {"four collectors", {"--bat", "1", "--cpu", "1", "--gpu", "1", "--ddr", "1"}},
        {"all but ps and stability",
         {"--bat", "1", "--cpu", "1", "--gpu", "1", "--ddr", "1", "--lpm", "1", "--bri", "1",
          "--fps", "1", "--therm", "1"}},
    };
    const bool full = tarn_fault::long_form();
    const size_t seconds = full ? 20 : 2;
    std::mt19937 rng(19);
    for (size_t i = 0; i < rates.size(); ++i) {
        const auto& [what, periods] = rates[i];
        size_t lost = 0, worst = 0, torn = 0, kills = 0;
        for (int signo : {SIGTERM, SIGKILL}) {
            // The short form kills once per rate, with either signal by turns.
            const bool short_turn = (signo == SIGKILL) == (i % 2 == 0);
            for (int round = 0; round < (full ? 2 : short_turn); ++round) {
                std::vector<std::string> args = {tarn_test::daemon_path(), "--daemon", "--local",
                                                 kLocal};
                args.insert(args.end(), periods.begin(), periods.end());
                SimRun sim(SimOptions(), args);
                ASSERT_TRUE(tarn_test::wait_until([&] { return battery_count(sim) >= seconds; },
                                                  std::chrono::seconds(90)));
                // Where in the tick the signal lands; no outcome depends on it.
                std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 1000));
                ASSERT_EQ(0, kill(tarn_fault::command_pid(sim.pid()), signo));
                EXPECT_EQ(128 + signo, sim.wait_exit());
                auto [n, t] = local_loss(sim);
                EXPECT_LE(n, 1u) << what << ", signal " << signo;
                lost += n;
                worst = std::max(worst, n);
                torn += t;
                ++kills;
            }
        }
        printf("lines lost per kill, %s: mean %.1f, worst %zu; torn last line in %zu of %zu\n",
               what.c_str(), static_cast<double>(lost) / static_cast<double>(kills), worst, torn,
               kills);
    }
}

// A local FIFO whose reader goes away, and a local file at the file-size limit: the failed writes
// are ignored and the daemon goes on uploading; what reached the file are whole lines.
TEST(FaultE2E, FailedLocalWritesAreIgnored) {
    const std::string fifo = "/data/local/tmp/records.fifo", go = "/data/local/tmp/go";
    {
        SimRun sim(SimOptions(),
                   wrapped("mkfifo " + fifo + " && until [ -e " + go + " ]; do sleep 0.05; done",
                           {"--bat", "1", "--local", fifo}));
        ASSERT_TRUE(
            tarn_test::wait_until([&] { return access((sim.root() + fifo).c_str(), F_OK) == 0; }));
        int rfd = open((sim.root() + fifo).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(rfd, 0);
        tarn_test::write_file(sim.root() + go, "");
        ASSERT_TRUE(tarn_test::wait_until([&] { return battery_count(sim) >= 2; }));
        char buf[64] = {};
        EXPECT_TRUE(tarn_test::wait_until([&] { return read(rfd, buf, sizeof(buf) - 1) > 0; }));
        EXPECT_EQ(0u, std::string(buf).rfind("tarn-stats-v2.1,", 0));
        close(rfd);
        size_t n = battery_count(sim);
        EXPECT_TRUE(tarn_test::wait_until([&] { return battery_count(sim) >= n + 3; }))
            << "no upload after the reader left";
        EXPECT_EQ(0, sim.stop()) << sim.log();
    }
    {
        // One block of 512 bytes holds a few lines.
        SimRun sim(SimOptions(), wrapped("ulimit -f 1", {"--bat", "1", "--local", kLocal}));
        EXPECT_TRUE(tarn_test::wait_until([&] { return battery_count(sim) >= 8; }))
            << "no upload at the file-size limit";
        EXPECT_EQ(0, sim.stop()) << sim.log();
        EXPECT_GE(local_loss(sim).first, 4u);
    }
}

// A FIFO in place of the battery uevent, a node-table row and a thermal zone from the start: the
// daemon starts, ticks and stops, and reports what it reports for empty nodes.
TEST(FaultE2E, FifoNodesReadAsEmpty) {
    const std::string nodes =
        "/sys/class/power_supply/battery/uevent /sys/devices/system/cpu/bus_dcvs/DDR/cur_freq "
        "/sys/devices/virtual/thermal/thermal_zone0/temp";
    const std::vector<std::string> periods = {"--bat", "1", "--ddr", "1", "--therm", "1"};
    std::map<std::string, tarn_fault::ByKpi> seen;
    for (std::string make : {"mkfifo", "touch"}) {
        SimRun sim(SimOptions(),
                   wrapped("for n in " + nodes + "; do rm $n && " + make + " $n; done", periods));
        ASSERT_TRUE(tarn_test::wait_until([&] { return battery_count(sim) >= 3; },
                                          std::chrono::seconds(60)))
            << make << ": " << sim.log();
        EXPECT_EQ(0, sim.stop()) << make;
        for (auto& [kpi, records] : tarn_fault::by_kpi(sim.records()))
            seen[make][kpi] = {records[1]};
    }
    EXPECT_EQ(seen["touch"], seen["mkfifo"]);
}

}  // namespace
