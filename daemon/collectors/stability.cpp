// Stability collector: ships status dumps, tombstones and ANR traces, one file of each selected
// kind per call, through set_for_blob.
#include <atomic>

#include "collectors.h"
#include "file_upload.h"
#include "kpi_ids.h"

struct stability_kind {
    uint64_t bit;
    const char* dir;
    const char* prefix;
    int32_t kpi_id;
};

// In the order the handler collects them.
static constexpr stability_kind kKinds[] = {
    {STABILITY_FLAG_STATUS, "/sdcard/Perfdump", "status_", kpi::PERF},
    {STABILITY_FLAG_TOMBSTONE, "/data/tombstones", "tombstone_", kpi::TOMBSTONE},
    {STABILITY_FLAG_ANR, "/data/anr", "anr_", kpi::ANR},
};

int32_t collect_stability_info_init(const char* /*root*/) {
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
    for (const stability_kind& kind : kKinds) {
        if (flag_selects(flag, STABILITY_FLAG_ALL, kind.bit))
            ret = set_for_blob(kind.dir, kind.prefix, kind.kpi_id);
    }
    return ret;
}
