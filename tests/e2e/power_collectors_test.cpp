// The real daemon on the animated phone8 device: every power and performance collector uploads
// its record, behind the record header and the application name; the statistics script that it
// starts inherits none of the daemon's files and none of its signal settings.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace {

const char kPrefix[] =
    "tarn-stats-v2.1,Orvane,Kestrel 8,PH8A0042117,KESTREL8.LA.2.0-04411-STD.PROD-1,"
    "com.android.launcher3,";

// The lines of one KPI id that carry the header and the application name, without them.
std::vector<std::string> records_of(const std::vector<std::string>& lines, int kpi) {
    std::vector<std::string> out, all = tarn_e2e::by_kpi(lines)[kpi];
    for (const std::string& l : all) {
        if (l.rfind(kPrefix, 0) == 0) out.push_back(l.substr(sizeof(kPrefix) - 1));
    }
    return out;
}

const std::pair<int, const char*> kFormats[] = {
    {2, R"(battery,\d+,\d+,-?\d+,\d+,(Charging|Discharging|Full))"},
    {3, R"(policy(0|4|7),\d+,\d+,\d+\.\d\d,)"},
    {4, R"(GPU,(220|300|381|487|585|680)000000,\d+,\d+\.\d\d,)"},
    {5, R"(DDR,\d+,)"},
    {8, R"(BRI,\d+,)"},
    {9, R"(FPS,\d+\.\d,)"},
};

// A campaign starts every power and performance collector on the animated phone. The statistics
// script lists the descriptors of its own shell, which are those it inherited plus the one on
// which the shell reads the script itself. A --local FIFO without a reader is refused at once
// (start-up goes on); the regular file named after it is used instead.
TEST(PowerCollectorsE2E, EveryCollectorReportsAndTheScriptInheritsOnlyStandardStreams) {
    const char kFifo[] = "/tmp/records.fifo";
    const char kLocal[] = "/data/local/tmp/records.txt";
    tarn_test::SimOptions opts;
    opts.animate = true;
    tarn_test::SimRun sim(
        opts, {"/bin/sh", "-c", std::string("mkfifo ") + kFifo + " && exec \"$0\" \"$@\"",
               tarn_test::daemon_path(), "--local", kFifo, "--local", kLocal});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly")) << sim.log();
    EXPECT_EQ(1u, tarn_e2e::count(sim.log(), std::string("open[") + kFifo +
                                                 "] failed errno:6 [No such device or address]"));

    std::string script = sim.root() + "/data/local/tmp/ps.sh";
    tarn_test::write_file(script + ".new",
                          "#!/bin/sh\nfind /proc/$$/fd -mindepth 1 -printf '%f %l\\n'\n"
                          "grep -E '^Sig(Blk|Ign)' /proc/$$/status\necho end\n");
    chmod((script + ".new").c_str(), 0755);
    ASSERT_EQ(0, rename((script + ".new").c_str(), script.c_str()));
    EXPECT_EQ(0, sim.control({"campaign", "start", "--text",
                              "powerCfg { ps_period: 1 battery_period: 1 cpu_fre_period: 2 "
                              "gpu_fre_period: 1 ddr_fre_period: 1 bright_period: 1 "
                              "fps_period: 1 }"}));
    // Three CPU records per CPU period; two periods, so that utilisation has a delta.
    std::string listing;
    ASSERT_TRUE(sim.wait_for_records(
        [&](const std::vector<std::string>& lines) {
            for (const std::string& r : records_of(lines, 7)) {
                const std::string end = "\\nend\\n";  // escaped line ends
                if (r.size() > end.size() && r.compare(r.size() - end.size(), end.size(), end) == 0)
                    listing = r;
            }
            for (auto& [kpi, format] : kFormats) {
                if (records_of(lines, kpi).size() < (kpi == 3 ? 6u : 1u)) return false;
            }
            return !listing.empty();
        },
        std::chrono::seconds(90)))
        << sim.log();
    const std::vector<std::string> lines = sim.records();
    for (auto& [kpi, format] : kFormats) {
        for (const std::string& r : records_of(lines, kpi))
            EXPECT_TRUE(std::regex_match(r, std::regex(format))) << kpi << ": " << r;
    }

    // Lines "<fd> <target>", their ends escaped in the records file.
    std::set<int> standard;
    std::string inherited;
    std::istringstream in(std::regex_replace(listing, std::regex(R"(\\n)"), "\n"));
    for (std::string line; std::getline(in, line);) {
        std::smatch m;
        if (!std::regex_match(line, m, std::regex(R"((\d+) (.*))"))) continue;
        int fd = std::stoi(m[1]);
        if (fd <= 2) {
            standard.insert(fd);
        } else if (m[2] != "/data/local/tmp/ps.sh") {
            inherited += line + "\n";
        }
    }
    EXPECT_EQ(3u, standard.size()) << listing;
    EXPECT_EQ("", inherited);
    // Nor the signals the daemon ignores, nor a signal mask. (The C library's own real-time
    // signals may show as ignored: its spawn leaves them so.)
    std::smatch sig;
    ASSERT_TRUE(std::regex_search(listing, sig, std::regex(R"(SigBlk:\\t(\w+)\\nSigIgn:\\t(\w+))")));
    EXPECT_EQ(0u, std::stoull(sig[1], nullptr, 16));
    EXPECT_EQ(0u, std::stoull(sig[2], nullptr, 16) & (1u << (SIGPIPE - 1) | 1u << (SIGXFSZ - 1)));
    EXPECT_EQ(0, sim.stop());
    // The local file got the lines.
    EXPECT_NE(std::string::npos,
              tarn_test::read_file(sim.root() + kLocal).find(kPrefix + std::string("battery,")));
}

}  // namespace
