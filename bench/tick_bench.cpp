// What one sampling tick costs: each collector's handler on its own, a whole tick with every one
// of them due, and the record upload alone. Runs inside `tarn_sim run --image sim/devices/phone8`
// so the handlers read the phone8 nodes at their real paths.
//
// Every record goes to a local record file in /tmp (g_local_file), so a handler's figure includes
// formatting and writing its records; the telemetry service is not running, so no time is spent
// on the socket. "rec_bytes" is the record text a call wrote.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <iostream>
#include <mutex>

#include "collector_table.h"
#include "collectors.h"
#include "device_properties.h"
#include "power_bigdata_core.h"
#include "tarn_log.h"
#include "zel_helper.h"

namespace {

constexpr uint64_t kThermalAll =
    0x4000000000000000ULL;  // every thermal part: cooling, zones, clocks

// Starts each benchmark on an empty record file and reports the record bytes a call wrote.
class RecordBytes {
  public:
    explicit RecordBytes(benchmark::State& state) : mState(state) {
        fflush(g_local_file);
        if (ftruncate(fileno(g_local_file), 0) != 0) {
            // A tmpfile is a regular file; should it fail, the count below is still right.
        }
        rewind(g_local_file);
        mStart = ftell(g_local_file);
    }
    ~RecordBytes() {
        long end = ftell(g_local_file);
        mState.counters["rec_bytes"] = benchmark::Counter(static_cast<double>(end - mStart),
                                                          benchmark::Counter::kAvgIterations);
    }

  private:
    benchmark::State& mState;
    long mStart = 0;
};

void BM_Handler(benchmark::State& state, int32_t (*hndl)(uint64_t), uint64_t flag) {
    RecordBytes bytes(state);
    for (auto _ : state) benchmark::DoNotOptimize(hndl(flag));
}

BENCHMARK_CAPTURE(BM_Handler, battery, collect_battery_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, cpu, collect_cpu_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, gpu, collect_gpu_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, ddr, collect_ddr_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, lpm, collect_lpm_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, ps, collect_ps_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, brightness, collect_brightness_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, fps, collect_fps_stats_hndl, 0);
BENCHMARK_CAPTURE(BM_Handler, thermal, collect_thermal_stats_hndl, kThermalAll);

// A tick's table: every collector due at every tick, the process statistics one only when
// `with_ps` (it runs a script, which dwarfs the rest and is measured on its own above).
struct TickTable {
    explicit TickTable(bool with_ps) {
        // clang-format off
        CollectorEntry rows[] = {
            {2,    0, 1,          0,           nullptr, nullptr, collect_battery_stats_hndl},
            {3,    0, 1,          0,           nullptr, nullptr, collect_cpu_stats_hndl},
            {4,    0, 1,          0,           nullptr, nullptr, collect_gpu_stats_hndl},
            {5,    0, 1,          0,           nullptr, nullptr, collect_ddr_stats_hndl},
            {6,    0, 1,          0,           nullptr, nullptr, collect_lpm_stats_hndl},
            {7,    0, with_ps,    0,           nullptr, nullptr, collect_ps_stats_hndl},
            {8,    0, 1,          0,           nullptr, nullptr, collect_brightness_stats_hndl},
            {9,    0, 1,          0,           nullptr, nullptr, collect_fps_stats_hndl},
            {1000, 0, 1,          kThermalAll, nullptr, nullptr, collect_thermal_stats_hndl},
            {COLLECTOR_TABLE_END_ID, 0, 0, 0, nullptr, nullptr, nullptr},
        };
        // clang-format on
        static_assert(sizeof(rows) == sizeof(table), "one row per collector and the end row");
        memcpy(table, rows, sizeof(rows));
    }
    void tick() { run_collector_tick(table, mutex); }

    CollectorEntry table[10];
    std::mutex mutex;
};

// The worst tick: every collector above due at once, walked the way the sampling thread walks
// its table.
void BM_WholeTick(benchmark::State& state) {
    TickTable ticks(true);
    RecordBytes bytes(state);
    for (auto _ : state) ticks.tick();
}
BENCHMARK(BM_WholeTick);

// The upload of one record of 64 characters: header, application name, local file.
void BM_LogBlob(benchmark::State& state) {
    static const char kRecord[] =
        "GPU,freq(MHz):180-0|267-0|345-12|450-30|545-101|680-857,busy:23,";
    PowerZELHelper* helper = PowerZELHelper::getInstance();
    RecordBytes bytes(state);
    for (auto _ : state) helper->log_blob(4, kRecord, sizeof(kRecord) - 1);
}
BENCHMARK(BM_LogBlob);

long resident_kib() {
    long kib = -1;
    if (FILE* f = fopen("/proc/self/status", "re")) {
        char line[256];
        while (fgets(line, sizeof(line), f) != nullptr) {
            if (sscanf(line, "VmRSS: %ld", &kib) == 1) break;
        }
        fclose(f);
    }
    return kib;
}

int open_descriptors() {
    int n = -1;  // the directory's own descriptor is not counted
    if (DIR* d = opendir("/proc/self/fd")) {
        while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

// Whole ticks with every collector but the process statistics one due, 2,000 of them in a row:
// resident memory and open descriptors after tick 10 and after the last one must be the same.
void soak() {
    TickTable ticks(false);
    constexpr int kLong = 2000;
    long rss10 = 0;
    int fds10 = 0;
    for (int i = 1; i <= kLong; i++) {
        ticks.tick();
        if (i == 10) {
            rss10 = resident_kib();
            fds10 = open_descriptors();
        }
    }
    printf("soak: tick 10: rss %ld KiB, fds %d; tick %d: rss %ld KiB, fds %d\n", rss10, fds10,
           kLong, resident_kib(), open_descriptors());
    fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    g_local_file = tmpfile();
    if (g_local_file == nullptr) {
        perror("tarn_bench: tmpfile");
        return 1;
    }
    // The daemon's start-up order. Building the core runs every collector's init (and opens the
    // node table) once, outside the timed loops; its worker stays parked at the start gate.
    DeviceProperties::getInstance();
    PowerZELHelper::getInstance();
    connect_core_to_report();
    PowerBigDataCore::getInstance();
    soak();

    // The daemon logs to standard error (a broken phone8 sensor logs on every thermal call), so
    // the run's context and warnings go to standard output with the figures.
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_None);
    reporter.SetErrorStream(&std::cout);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
