#include "common/sim_run.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "common/test_util.h"

namespace tarn_test {
namespace {

int decode_status(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// Starts argv[0] with its standard output and error on the given descriptors, and no other
// descriptor beyond the standard three, whatever the test's own caller left open.
pid_t spawn(const std::vector<std::string>& argv, int out_fd, int err_fd) {
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out_fd, STDOUT_FILENO);
        dup2(err_fd, STDERR_FILENO);
        close_range(STDERR_FILENO + 1, ~0U, 0);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

}  // namespace

std::string sim_path() {
    return TARN_BINARY_DIR "/tarn_sim";
}
std::string daemon_path() {
    return TARN_BINARY_DIR "/tarn_stats";
}
std::string phone8_image() {
    return TARN_SOURCE_DIR "/sim/devices/phone8";
}

int run_command(const std::vector<std::string>& argv, std::string* out, std::string* err) {
    // Output goes to files rather than pipes: a helper the command leaves behind cannot hold them.
    char path[2][32] = {"/tmp/tarn_cmd_out.XXXXXX", "/tmp/tarn_cmd_err.XXXXXX"};
    int fd[2] = {mkostemp(path[0], O_CLOEXEC), mkostemp(path[1], O_CLOEXEC)};
    pid_t pid = fd[0] >= 0 && fd[1] >= 0 ? spawn(argv, fd[0], fd[1]) : -1;
    int status = 0;
    pid_t done = -1;
    while (pid > 0 && (done = waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
    }
    std::string* dst[2] = {out, err};
    for (int i = 0; i < 2; ++i) {
        if (dst[i] != nullptr) *dst[i] = read_file(path[i]);
        if (fd[i] >= 0) {
            close(fd[i]);
            unlink(path[i]);
        }
    }
    return done == pid ? decode_status(status) : -1;
}

SimRun::SimRun(const SimOptions& opts, const std::vector<std::string>& command) {
    if (mTmp.path.empty()) return;
    mRoot = mTmp.path + "/root";
    mRecords = mTmp.path + "/records.txt";
    mLog = mTmp.path + "/log.txt";
    write_file(mRecords, "");

    std::vector<std::string> argv = {sim_path(), "run", "--image",   opts.image,
                                     "--root",   mRoot, "--records", mRecords};
    for (const std::string& p : opts.props) {
        argv.push_back("--prop");
        argv.push_back(p);
    }
    if (!opts.perf_hal) argv.push_back("--no-perf-hal");
    if (!opts.telemetry) argv.push_back("--no-telemetry");
    if (opts.animate) argv.push_back("--animate");
    if (opts.timestamps) argv.push_back("--timestamps");
    if (opts.duration > 0) {
        argv.push_back("--duration");
        argv.push_back(std::to_string(opts.duration));
    }
    argv.push_back("--");
    argv.insert(argv.end(), command.begin(), command.end());

    int log_fd = open(mLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    mPid = spawn(argv, log_fd, log_fd);
    if (log_fd >= 0) close(log_fd);
    if (mPid < 0) return;
    // Ready once the control socket is there (or the simulator is already gone).
    std::string control = mRoot + "/.tarn_sim/control";
    wait_until([&] { return access(control.c_str(), F_OK) == 0 || wait_exit({}) != -1; },
               std::chrono::seconds(60));
}

SimRun::~SimRun() {
    if (mPid > 0 && mStatus == -1) {
        stop();
        if (mStatus == -1) {
            kill(mPid, SIGKILL);
            wait_exit(std::chrono::seconds(30));
        }
    }
    // A sanitizer report in the command (the daemon) fails the test that ran it, whatever the
    // test itself checked.
    const std::string text = log();
    for (const char* report : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                               "WARNING: ThreadSanitizer", "runtime error:"}) {
        size_t at = text.find(report);
        if (at != std::string::npos) {
            ADD_FAILURE() << "sanitizer report in the simulated run:\n"
                          << text.substr(at > 200 ? at - 200 : 0, 4000);
            break;
        }
    }
}

std::vector<std::string> SimRun::records() const {
    return split_lines(read_file(mRecords));
}

std::string SimRun::log() const {
    return read_file(mLog);
}

bool SimRun::wait_for_records(const std::function<bool(const std::vector<std::string>&)>& pred,
                              std::chrono::milliseconds timeout) {
    return wait_until([&] { return pred(records()); }, timeout);
}

bool SimRun::wait_for_log(const std::string& needle, std::chrono::milliseconds timeout) {
    return wait_until([&] { return log().find(needle) != std::string::npos; }, timeout);
}

int SimRun::control(const std::vector<std::string>& args, std::string* out) {
    std::vector<std::string> argv = {sim_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    argv.push_back("--root");
    argv.push_back(mRoot);
    std::string err;
    int status = run_command(argv, out, &err);
    std::ofstream(mLog, std::ios::app) << err;  // complaints go next to the simulator's log
    return status;
}

int SimRun::wait_exit(std::chrono::milliseconds timeout) {
    if (mStatus != -1 || mPid <= 0) return mStatus;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status;
        pid_t r = waitpid(mPid, &status, WNOHANG);
        if (r == mPid) {
            mStatus = decode_status(status);
            return mStatus;
        }
        if (r < 0 && errno != EINTR) return -1;
        if (std::chrono::steady_clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

int SimRun::stop() {
    if (mStatus != -1 || mPid <= 0) return mStatus;
    control({"stop"});
    return wait_exit(std::chrono::seconds(60));
}

}  // namespace tarn_test
