// MTBF collector: uploads the system's crash counter, the property "persist.vendor.crash.cnt".
//
// Its table row carries the MTBF id, which is also the id that ends the collector table, so the
// scheduler's walk and the configuration pass both stop before it: the row never gets a period or
// a flag and the scheduler never calls this handler. The handler is kept complete and produces its
// record when called directly with bit 3 or bit 63 of the flag, after the init; nothing in the
// daemon calls it that way today.
#define TARN_LOG_TAG TAG_MTBF

#include <cutils/properties.h>

#include <atomic>

#include "collectors.h"
#include "device_properties.h"
#include "kpi_ids.h"
#include "record.h"
#include "tarn_log.h"

static std::atomic<bool> g_mtbf_ready{false};

static constexpr const char* kCrashCountProp = "persist.vendor.crash.cnt";

// Record buffer, cleared on every call. Static rather than on the worker's stack.
static char g_mtbf_record[204800];

int32_t collect_mtbf_info_init(const char* /*root*/) {
    g_mtbf_ready.store(true, std::memory_order_release);
    return 0;
}

int32_t collect_mtbf_info_exit() {
    g_mtbf_ready.store(false, std::memory_order_release);
    return 0;
}

int32_t collect_mtbf_stats_hndl(uint64_t flag) {
    record rec(g_mtbf_record, sizeof(g_mtbf_record), TAG_MTBF);
    if (!flag_selects(flag, STABILITY_FLAG_ALL, MTBF_FLAG_CRASH_COUNT) ||
        !g_mtbf_ready.load(std::memory_order_acquire))
        return -1;

    DeviceProperties::getInstance();

    char value[PROPERTY_VALUE_MAX];
    property_get_traced(kCrashCountProp, value, "0");

    int ret = rec.append("%s", value);
    if (ret < 0) return ret;
    TLOGW("sys crash times: %s\n", rec.buf);

    rec.report(kpi::MTBF);
    return 0;
}
