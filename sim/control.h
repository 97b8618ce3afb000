// Control of a running simulator through the socket in its root.
#pragma once

#include <functional>
#include <string>

#include "services.h"

class ControlServer : public SocketService {
  public:
    // `perf` and `telemetry` may be null when disabled; `stop` starts the simulator's shutdown.
    ControlServer(PerfHal* perf, Telemetry* telemetry, std::function<void()> stop)
        : mPerf(perf), mTelemetry(telemetry), mStop(std::move(stop)) {}

  protected:
    void serve_connection(int fd) override;

  private:
    bool handle(uint32_t type, const std::string& payload, std::string* out, std::string* err);

    PerfHal* mPerf;
    Telemetry* mTelemetry;
    std::function<void()> mStop;
};

// `tarn_sim campaign ...`, `tarn_sim hint ...`, `tarn_sim stop ...`: argv holds the words after
// the command name. Returns the process exit status.
int control_main(const std::string& command, int argc, char** argv);
