// The real daemon binary: usage text, exit statuses of the start-up sequence, the debug level and
// the order of the normal exit.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/sim_run.h"
#include "common/test_util.h"
#include "e2e/daemon_e2e.h"

namespace {

using tarn_e2e::at;
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

TEST(DaemonUsageTest, UsageTextAndExitZero) {
    const std::vector<std::vector<std::string>> cases = {
        {"--help"}, {"-h"}, {"--cpu", "1", "--nosuch"}, {"--bat"}, {"-q"}};
    for (auto args : cases) {
        args.insert(args.begin(), tarn_test::daemon_path());
        std::string out, err;
        EXPECT_EQ(0, tarn_test::run_command(args, &out, &err)) << args[1];
        EXPECT_EQ(kUsage, err) << args[1];
        EXPECT_EQ("", out);
    }

    // --local opens its file before a later unknown option ends the run with the usage.
    char dir[] = "/tmp/tarn_usage_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string path = std::string(dir) + "/local.txt";
    std::string err;
    EXPECT_EQ(0, tarn_test::run_command({tarn_test::daemon_path(), "--local", path, "--what"},
                                        nullptr, &err));
    EXPECT_EQ(kUsage, err);
    EXPECT_EQ(0, access(path.c_str(), F_OK));
    unlink(path.c_str());
    rmdir(dir);
}

TEST(DaemonStartupTest, NoTelemetryServiceExits255) {
    SimOptions opts;
    opts.telemetry = false;
    SimRun sim(opts, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    EXPECT_EQ(255, sim.wait_exit());
    std::string log = sim.log();
    size_t reg = at(log, "registerCollector() ");
    ASSERT_NE(std::string::npos, reg);
    EXPECT_NE(std::string::npos, at(log, "E TARN_STATS_HELP: registerCollector() ")) << log;
    EXPECT_NE(std::string::npos,
              at(log, ": g_zel_hndl register failed name:core.pst.product_bigdata"));
    EXPECT_NE(std::string::npos, at(log, "E TARN_STATS_MAIN: main() "));
    EXPECT_NE(std::string::npos, at(log, ": registerCollector failed ret:-1"));
    EXPECT_EQ(0u, count(log, "service init finished")) << "no core is built";
    EXPECT_TRUE(sim.records().empty());
}

TEST(DaemonStartupTest, NoPerfHalExits14AndUndoesTheRegistration) {
    SimOptions opts;
    opts.perf_hal = false;
    SimRun sim(opts, {tarn_test::daemon_path(), "--daemon", "--bat", "1"});
    EXPECT_EQ(14, sim.wait_exit());
    std::string log = sim.log();
    size_t failed = at(log, ": perfBinder.get() failed");
    size_t stop = at(log, "Stop() ");
    size_t dereg = at(log, ": PowerZELHelper() do zel_deregister()");
    ASSERT_NE(std::string::npos, failed) << log;
    ASSERT_NE(std::string::npos, stop) << log;
    ASSERT_NE(std::string::npos, dereg) << log;
    EXPECT_LT(failed, stop);
    EXPECT_LT(stop, dereg);
    EXPECT_EQ(0u, count(log, "StartCampaign to sample data!!"));
}

TEST(DaemonStartupTest, NormalExitRunsTheDestructorsInOrder) {
    SimOptions opts;
    SimRun sim(opts, {tarn_test::daemon_path(), "--bat", "1"});
    ASSERT_TRUE(sim.wait_for_log("try to register callback secondly, clientId:372204423"));
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    size_t end = at(log, "W TARN_STATS_MAIN: main() ");
    size_t deregister = at(log, ": try to Deregister callback clientId:372204423");
    size_t service_end = at(log, ": service is end");
    size_t service_exit = at(log, "W TARN_STATS: Stop() ");
    size_t helper = at(log, "W TARN_STATS_HELP: ~PowerZELHelper() ");
    ASSERT_NE(std::string::npos, end);
    ASSERT_NE(std::string::npos, service_end) << log;
    ASSERT_NE(std::string::npos, service_exit) << log;
    ASSERT_NE(std::string::npos, helper) << log;
    EXPECT_LT(deregister, at(log, ": try to register callback secondly"));
    EXPECT_LT(service_end, service_exit);
    EXPECT_LT(service_exit, helper);
    EXPECT_NE(std::string::npos, at(log, ": service exit"));
    // Idle without a campaign: nothing was sampled.
    EXPECT_TRUE(sim.records().empty());
}

TEST(DaemonStartupTest, PropertyOverridesTheCommandLineLevel) {
    SimOptions opts;
    opts.props = {"rw.debug.tarn.stats.enabled=3"};
    SimRun sim(opts, {tarn_test::daemon_path(), "-d", "7", "--daemon", "--bat", "1"});
    ASSERT_TRUE(sim.wait_for_records([](const std::vector<std::string>& r) { return !r.empty(); }));
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    // The property trace is written whatever the level; warnings and debug messages are not.
    EXPECT_NE(std::string::npos,
              at(log, "getprop key:rw.debug.tarn.stats.enabled value:3 default:0"));
    EXPECT_EQ(0u, count(log, " W TARN_STATS"));
    EXPECT_EQ(0u, count(log, "data handler:"));
}

}  // namespace
