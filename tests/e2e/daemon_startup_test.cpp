// The real daemon binary: usage text, exit statuses of the start-up sequence, the debug-level
// property and the order of the normal exit.
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace {

using tarn_e2e::count;
using tarn_test::SimOptions;
using tarn_test::SimRun;

const char kUsage[] =
    "tarn_stats : tarn-stats-v2.1\n"
    "Usage: sample system data at background like CPU/GPU/DDR/Thermal/Stability and so on\n"
    "\t tarn_stats <opts> \n"
    "\t -- cpu X   -- sample gpu info with X period\n"
    "\t -- bat X   -- sample bat info with X period\n"
    "\t -- ddr X   -- sample ddr info with X period\n"
    "\t -- stab X  -- sample stab info with X period\n"
    "\t -- therm X -- sample therm info with X period\n"
    "\t -- lpm X   -- sample lpm info with X period\n"
    "\t -- ps X    -- sample ps info with X period\n"
    "\t -- bri X   -- sample bri info with X period\n"
    "\t -- fps X   -- sample fps info with X period\n"
    "\t -- daemon  -- start sample without remote enable\n"
    "\t -- local   -- save the data to local file path, reset file when bigger than 4GB\n"
    "\t -- debug or -d  -- set debug level error:3, warnning:4, info:6, debug:7 \n"
    "\t                 -- setprop rw.debug.tarn.stats.enabled X to cover debug level when X "
    "not 0\n"
    "\t -- help or -h   -- show this help info\n";

TEST(DaemonStartupTest, UsageTextAndExitZero) {
    std::string path = "/tmp/tarn_usage_" + std::to_string(getpid());
    for (std::vector<std::string> args :
         {std::vector<std::string>{"-h"}, {"--bat"}, {"--local", path, "--what"}}) {
        args.insert(args.begin(), tarn_test::daemon_path());
        std::string out, err;
        EXPECT_EQ(0, tarn_test::run_command(args, &out, &err)) << args[1];
        EXPECT_EQ(kUsage, err) << args[1];
        EXPECT_EQ("", out);
    }
    EXPECT_EQ(0, access(path.c_str(), F_OK)) << "--local opened its file before the usage";
    unlink(path.c_str());
}

TEST(DaemonStartupTest, MissingServicesGiveTheirExitStatus) {
    SimOptions no_sdk;
    no_sdk.telemetry = false;
    SimRun a(no_sdk, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    EXPECT_EQ(255, a.wait_exit());
    EXPECT_EQ(1u, count(a.log(), "E TARN_STATS_HELP: registerCollector() "));
    EXPECT_EQ(1u, count(a.log(), ": g_zel_hndl register failed name:core.pst.product_bigdata"));
    EXPECT_EQ(1u, count(a.log(), "E TARN_STATS_MAIN: main() "));
    EXPECT_EQ(1u, count(a.log(), ": registerCollector failed ret:-1"));

    SimOptions no_hal;
    no_hal.perf_hal = false;
    SimRun b(no_hal, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    EXPECT_EQ(14, b.wait_exit());
    std::string log = b.log();
    size_t failed = log.find(": perfBinder.get() failed");
    size_t stop = log.find(": service exit");
    ASSERT_NE(std::string::npos, failed) << log;
    EXPECT_LT(failed, stop);
    // The registration with the SDK is undone on the way out.
    EXPECT_LT(stop, log.find(": PowerZELHelper() do zel_deregister()"));
    EXPECT_TRUE(b.records().empty());
}

TEST(DaemonStartupTest, NormalExitRunsTheDestructorsInOrder) {
    SimRun sim(SimOptions(), {tarn_test::daemon_path(), "--bat", "1"});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly, clientId:372204423"));
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    size_t end = log.find("W TARN_STATS_MAIN: main() ");
    end = log.find(": service is end", end);
    size_t stop = log.find("W TARN_STATS: Stop() ");
    size_t helper = log.find("W TARN_STATS_HELP: ~PowerZELHelper() ");
    ASSERT_NE(std::string::npos, helper) << log;
    EXPECT_LT(log.find(": try to Deregister callback"), log.find(": try to register callback"));
    EXPECT_LT(end, stop);
    EXPECT_LT(stop, helper);
    EXPECT_TRUE(sim.records().empty()) << "no campaign, no --daemon: nothing is sampled";
}

TEST(DaemonStartupTest, NonZeroPropertyOverridesTheCommandLineLevel) {
    SimOptions opts;
    opts.props = {"rw.debug.tarn.stats.enabled=3"};
    SimRun sim(opts, {tarn_test::daemon_path(), "-d", "7", "--daemon", "--bat", "1"});
    ASSERT_TRUE(sim.wait_for_records([](const std::vector<std::string>& r) { return !r.empty(); }));
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    EXPECT_EQ(1u, count(log, "getprop key:rw.debug.tarn.stats.enabled value:3 default:0"));
    EXPECT_EQ(0u, count(log, " W TARN_STATS"));
    EXPECT_EQ(0u, count(log, " D TARN_STATS: MainThread() "));
}

}  // namespace
