// Stability collector: ships status dumps, tombstones and ANR traces, one file of each selected
// kind per call, through set_for_blob.
#include <atomic>

#include "collectors/collectors.h"
#include "report/file_upload.h"

namespace {

// Set by the init, cleared by the exit; file uploads do nothing while it is false. Written by the
// thread that starts the core, read on the sampling thread.
std::atomic<bool> g_stability_ready{false};

constexpr uint64_t kStabilityAll = 0x8000000000000000ULL;

struct StabilityKind {
    uint64_t bit;
    const char* dir;
    const char* prefix;
    int32_t kpi_id;
};

// In the order the handler collects them.
constexpr StabilityKind kKinds[] = {
    {0x1, "/sdcard/Perfdump", "status_", 2000},     // KPI_ID_PERF
    {0x2, "/data/tombstones", "tombstone_", 2001},  // KPI_ID_TOMBSTONE
    {0x4, "/data/anr", "anr_", 2002},               // KPI_ID_ANR
};

}  // namespace

bool stability_ready() {
    return g_stability_ready.load(std::memory_order_acquire);
}

int32_t collect_stability_info_init() {
    g_stability_ready.store(true, std::memory_order_release);
    return 0;
}

int32_t collect_stability_info_exit() {
    g_stability_ready.store(false, std::memory_order_release);
    return 0;
}

int32_t collect_stability_stats_hndl(uint64_t flag) {
    // A failure of one kind does not stop the next; the result is that of the last call made.
    int32_t ret = 0;
    for (const StabilityKind& kind : kKinds) {
        if (flag & (kind.bit | kStabilityAll))
            ret = set_for_blob(kind.dir, kind.prefix, kind.kpi_id);
    }
    return ret;
}
