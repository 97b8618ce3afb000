// Runs a command under `tarn_sim run` for end-to-end tests, and talks to the running simulator.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "common/test_util.h"

namespace tarn_test {

std::string sim_path();     // build/tarn_sim of this build
std::string daemon_path();  // build/tarn_stats of this build
std::string phone8_image();

// Runs argv[0] with its arguments, waits for it; returns the exit status (128 + signal if killed)
// and, when asked for, what it wrote on stdout and stderr.
int run_command(const std::vector<std::string>& argv, std::string* out = nullptr,
                std::string* err = nullptr);

struct SimOptions {
    std::string image = phone8_image();
    std::vector<std::string> props;  // KEY=VALUE, each passed as --prop
    bool perf_hal = true;
    bool telemetry = true;
    bool animate = false;
    bool timestamps = false;  // --timestamps: records lines start with the seconds since start
    int duration = 0;         // seconds; 0: no --duration
};

class SimRun {
  public:
    // Starts `tarn_sim run` with a fresh root in a new temporary directory; the records go to
    // records_path() and the simulator's and the command's standard output and error to
    // log_path(). Returns once the simulator answers control commands (or has exited).
    SimRun(const SimOptions& opts, const std::vector<std::string>& command);
    // Stops the simulator if it still runs and removes the temporary directory.
    ~SimRun();

    const std::string& root() const { return mRoot; }
    const std::string& records_path() const { return mRecords; }
    const std::string& log_path() const { return mLog; }
    int pid() const { return mPid; }  // of tarn_sim itself, for sending it signals

    std::vector<std::string> records() const;  // lines of the records file so far
    std::string log() const;

    // Poll until the predicate holds on the records / the log contains `needle`.
    bool wait_for_records(const std::function<bool(const std::vector<std::string>&)>& pred,
                          std::chrono::milliseconds timeout = std::chrono::seconds(60));
    bool wait_for_log(const std::string& needle,
                      std::chrono::milliseconds timeout = std::chrono::seconds(60));

    // Runs `tarn_sim ARGS... --root root()` (for example {"campaign", "stop"}) and returns its exit
    // status; its standard output in *out.
    int control(const std::vector<std::string>& args, std::string* out = nullptr);

    // Waits for the simulator to exit by itself; its exit status, or -1 on timeout.
    int wait_exit(std::chrono::milliseconds timeout = std::chrono::seconds(60));
    // `tarn_sim stop`, then waits for the exit; the simulator's exit status.
    int stop();

  private:
    TempDir mTmp;
    std::string mRoot, mRecords, mLog;
    int mPid = -1;
    int mStatus = -1;
};

}  // namespace tarn_test
