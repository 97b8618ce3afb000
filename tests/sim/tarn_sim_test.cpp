// tarn_sim from the outside: the sandbox, exit statuses, properties, and round trips through the
// platform stand-ins (run by the sim_probe helper inside the simulator).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "common/sim_run.h"
#include "common/test_util.h"

namespace {

using tarn_test::run_command;
using tarn_test::sim_path;
using tarn_test::SimOptions;
using tarn_test::SimRun;
using tarn_test::TempDir;

const std::string kBare = TARN_SOURCE_DIR "/tests/fixtures/bare";
const std::string kProbe = TARN_BINARY_DIR "/sim_probe";

bool contains(const std::string& text, const std::string& needle) {
    return text.find(needle) != std::string::npos;
}

// `tarn_sim run` on an image without services; extra options go before the "--".
int run_sim(const std::string& image, const std::vector<std::string>& options,
            const std::vector<std::string>& command, std::string* out, std::string* err) {
    std::vector<std::string> argv = {sim_path(), "run",           "--image",
                                     image,      "--no-perf-hal", "--no-telemetry"};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.push_back("--");
    argv.insert(argv.end(), command.begin(), command.end());
    return run_command(argv, out, err);
}

int run_shell(const std::string& script, std::string* out, std::string* err = nullptr,
              const std::vector<std::string>& options = {}) {
    return run_sim(kBare, options, {"/bin/sh", "-c", script}, out, err);
}

TEST(SandboxTest, RootIsACopyOfTheImageWithPropOverrides) {
    TempDir image, host_tmp;
    tarn_test::write_file(image.path + "/build.prop", "ro.x=1\nro.y=2\n");
    tarn_test::write_file(image.path + "/proc/stat", "cpu  1 2 3\n");
    tarn_test::write_file(image.path + "/sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq",
                          "1000\n");
    tarn_test::write_file(image.path + "/data/empty", "");
    tarn_test::write_file(image.path + "/data/secret", "s");
    chmod((image.path + "/data/secret").c_str(), 0600);
    tarn_test::make_dirs(image.path + "/sys/devices/system/cpu/cpu0");
    ASSERT_EQ(0, symlink("../cpufreq/policy0",
                         (image.path + "/sys/devices/system/cpu/cpu0/cpufreq").c_str()));
    // /tmp is private: a file in the host's /tmp is not seen inside. (The checkout may itself
    // live under /tmp, so the private /tmp is not necessarily empty.)
    tarn_test::write_file(host_tmp.path + "/marker", "x");
    std::string out, err;
    ASSERT_EQ(0,
              run_sim(image.path, {"--prop", "ro.x=9", "--prop", "new.key=a=b"},
                      {"/bin/sh", "-c",
                       "cat /build.prop /proc/stat; readlink /sys/devices/system/cpu/cpu0/cpufreq;"
                       "cat /sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq; "
                       "stat -c '%s %a' /data/empty /data/secret; "
                       "test -d /proc/self && test -c /dev/null && test -c /dev/urandom && "
                       "test -d /dev/socket && test -x " +
                           sim_path() + " && test ! -e " + host_tmp.path +
                           "/marker && test ! -w /etc && test ! -w /usr && "
                           "echo ok; cat \"$TARN_HOST_PROPERTIES\""},
                      &out, &err))
        << err;
    EXPECT_EQ(
        "ro.x=1\nro.y=2\ncpu  1 2 3\n../cpufreq/policy0\n1000\n0 644\n1 600\nok\n"
        "ro.x=9\nro.y=2\nnew.key=a=b\n",
        out);
}

TEST(SandboxTest, EachRunGetsAFreshRoot) {
    std::string out, err;
    ASSERT_EQ(0, run_shell("echo 1 > /data_mark; echo 2 > /tmp/mark; cat /data_mark /tmp/mark",
                           &out, &err));
    EXPECT_EQ("1\n2\n", out);
    // The temporary root was announced, and is gone after the run.
    size_t at = err.find("tarn_sim: root ");
    ASSERT_NE(std::string::npos, at) << err;
    std::string root = err.substr(at + 15, err.find('\n', at) - at - 15);
    EXPECT_NE(0, access(root.c_str(), F_OK)) << root;
    ASSERT_EQ(0, run_shell("ls /data_mark /tmp/mark 2>/dev/null; true", &out));
    EXPECT_EQ("", out);

    // A given root keeps what the command wrote, also through the /proc/stat mount; it must be
    // empty or new.
    TempDir dir;
    std::string root2 = dir.path + "/root";
    ASSERT_EQ(0, run_shell("echo cpu 9 > /proc/stat", &out, &err, {"--root", root2})) << err;
    EXPECT_EQ("cpu 9\n", tarn_test::read_file(root2 + "/proc/stat"));
    EXPECT_EQ(2, run_shell("true", &out, &err, {"--root", root2}));
    EXPECT_TRUE(contains(err, "not an empty directory")) << err;
}

TEST(SandboxTest, ExitStatusPassesThrough) {
    std::string out, err;
    EXPECT_EQ(42, run_shell("exit 42", &out));
    EXPECT_EQ(0, run_shell("true", &out));
    EXPECT_EQ(128 + SIGKILL, run_shell("kill -KILL $$", &out));
    EXPECT_EQ(127, run_sim(kBare, {}, {"/no/such/program"}, &out, &err));
    EXPECT_TRUE(contains(err, "/no/such/program")) << err;
    EXPECT_NE(
        0, run_command({sim_path(), "run", "--image", "/no/such/image", "--", "true"}, &out, &err));
    EXPECT_TRUE(contains(err, "/no/such/image")) << err;
}

TEST(SandboxTest, RunOptionErrorsAreUsageErrors) {
    // Options after `run`, each refused with status 2 and its message before the usage text.
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--image", kBare, "--bogus", "--", "true"}, "unknown option --bogus"},
        {{"--imag", kBare, "--", "true"}, "unknown option --imag"},  // never abbreviated
        {{"--image", kBare, "--animate=1", "--", "true"}, "--animate takes no value"},
        {{"--image"}, "--image needs a value"},
        {{"--image", kBare, "--duration", "0", "true"}, "--duration needs a positive number"},
        {{"--image", kBare, "--prop", "novalue", "true"}, "--prop needs KEY=VALUE, not novalue"},
        {{"--image", kBare, "--"}, "no COMMAND given"},
        {{"--root", "--image", kBare, "true"}, "--image DIR is required"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> argv = {sim_path(), "run"};
        argv.insert(argv.end(), c.first.begin(), c.first.end());
        std::string out, err;
        EXPECT_EQ(2, run_command(argv, &out, &err)) << c.second;
        EXPECT_TRUE(contains(err, "tarn_sim: " + c.second) && contains(err, "usage: tarn_sim run"))
            << err;
    }
    // A word with a single dash is no option: the command starts there.
    std::string out, err;
    EXPECT_EQ(127, run_command({sim_path(), "run", "--image", kBare, "--no-perf-hal",
                                "--no-telemetry", "-x"},
                               &out, &err));
    EXPECT_TRUE(contains(err, "cannot run -x")) << err;
}

TEST(ServicesTest, RoundTripsThroughTheStandIns) {
    SimOptions opts;
    opts.image = kBare;
    opts.timestamps = true;
    SimRun sim(opts, {kProbe, "pool-first"});
    ASSERT_TRUE(sim.wait_for_log("probe: register ok=1 ret=0")) << sim.log();
    EXPECT_TRUE(contains(sim.log(), "probe: registered=1"));
    EXPECT_TRUE(contains(sim.log(), "probe: deregister ok=1 ret=-1"));

    // A hint reaches the callback on a thread of the started pool, before the main thread joins.
    ASSERT_EQ(0, sim.control({"hint", "0x1001", "com.example.app/.Main", "5", "-6"}));
    EXPECT_TRUE(contains(sim.log(),
                         "probe: hint=4097 str=[com.example.app/.Main] d1=5 d2=-6 "
                         "reserved=0 main=0 thread=binder:"))
        << sim.log();
    ASSERT_EQ(0, sim.control({"hint", "-3", "x"}));
    EXPECT_TRUE(contains(sim.log(), "probe: hint=-3 str=[x] d1=0 d2=0")) << sim.log();

    // Campaigns reach the handlers; their results come back. The start handler echoes the
    // campaign's bytes as a record, which shows the records file's escaping.
    std::string out;
    ASSERT_EQ(0, sim.control({"campaign", "start", "--text", "version: 5"}, &out));
    EXPECT_EQ("1002\n", out);
    TempDir tmp;
    tarn_test::write_file(tmp.path + "/raw", std::string("a\\b\nc\td\re\x01\x1f\x7f\x80\xff z"));
    ASSERT_EQ(0, sim.control({"campaign", "start", "--file", tmp.path + "/raw"}, &out));
    EXPECT_EQ("1016\n", out);
    tarn_test::write_file(tmp.path + "/empty", "");
    ASSERT_EQ(0, sim.control({"campaign", "start", "--file", tmp.path + "/empty"}, &out));
    EXPECT_EQ("1000\n", out);
    ASSERT_EQ(0, sim.control({"campaign", "stop"}, &out));
    EXPECT_TRUE(contains(sim.log(), "probe: stop\n"));
    ASSERT_TRUE(
        sim.wait_for_records([](const std::vector<std::string>& r) { return r.size() >= 3; }));
    std::vector<std::string> expected = {"77\t\\x08\\x05",
                                         "77\ta\\\\b\\nc\\td\\re\\x01\\x1f\\x7f\x80\xff z", "77\t"};
    // With --timestamps: seconds since the start with milliseconds, a tab, then the line as
    // without the option.
    std::vector<std::string> records;
    for (const std::string& line : sim.records()) {
        size_t tab = line.find('\t');
        EXPECT_TRUE(std::regex_match(line.substr(0, tab), std::regex("[0-9]+\\.[0-9]{3}"))) << line;
        EXPECT_LT(std::stod(line), 600.0) << line;
        records.push_back(line.substr(tab + 1));
    }
    EXPECT_EQ(expected, records);

    // Stopping closes the binder connection: joinThreadPool returns, later calls fail, and the
    // probe exits normally and deregisters.
    EXPECT_EQ(0, sim.stop());
    std::string log = sim.log();
    EXPECT_TRUE(contains(log, "probe: join returned\nprobe: call after close ok=0\n")) << log;
    EXPECT_TRUE(contains(log, "collector probe.collector deregistered")) << log;
    EXPECT_NE(0, sim.control({"campaign", "stop"}));
    EXPECT_TRUE(contains(sim.log(), "no simulator is running at " + sim.root())) << sim.log();
}

// Gone, or a zombie that nobody has reaped yet.
bool process_gone(const std::string& pid) {
    std::string stat = tarn_test::read_file("/proc/" + pid + "/stat");
    size_t paren = stat.rfind(") ");
    return paren == std::string::npos || stat[paren + 2] == 'Z';
}

TEST(ServicesTest, DurationAndSignalsEndTheCommandAndControlErrorsAreReported) {
    SimOptions opts;
    opts.image = kBare;
    opts.duration = 1;
    SimRun timed(opts, {kProbe});
    EXPECT_EQ(0, timed.wait_exit());
    EXPECT_TRUE(contains(timed.log(), "probe: join returned")) << timed.log();

    opts.duration = 0;
    opts.perf_hal = false;

    // A command with no binder connection to lose ignores the stop; a second signal ends the wait
    // at once and kills it together with the processes it started. Before that, control commands
    // that cannot be done are refused with their reason.
    SimRun stubborn(opts, {"/bin/sh", "-c", "sleep 600 & echo $! > /helper; wait"});
    std::string helper;
    ASSERT_TRUE(tarn_test::wait_until([&] {
        helper = tarn_test::read_file(stubborn.root() + "/helper");
        return helper.size() > 1 && helper.back() == '\n';
    }));
    helper.pop_back();
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"campaign", "start", "--text", "no_such_field: 1"}, "bad campaign text: line 1 column"},
        {{"campaign", "start", "--text", "version: 1", "--verbose"},
         "unknown option or missing value: --verbose"},
        {{"campaign", "start"}, "campaign start needs --text or --file"},
        {{"campaign", "start", "--file", "/no/such/file"}, "cannot read /no/such/file"},
        {{"hint", "12abc", "x"}, "not a 32-bit number: 12abc"},
        {{"hint", "1", "x"}, "the perf HAL is off"}};
    for (const auto& c : cases) {
        EXPECT_NE(0, stubborn.control(c.first)) << c.second;
        EXPECT_TRUE(contains(stubborn.log(), c.second)) << stubborn.log();
    }
    kill(stubborn.pid(), SIGTERM);
    ASSERT_TRUE(stubborn.wait_for_log("stopping (SIGTERM)"));
    kill(stubborn.pid(), SIGINT);
    EXPECT_EQ(128 + SIGKILL, stubborn.wait_exit());
    EXPECT_FALSE(contains(stubborn.log(), "did not end within")) << stubborn.log();
    EXPECT_TRUE(tarn_test::wait_until([&] { return process_gone(helper); })) << helper;
}

}  // namespace
