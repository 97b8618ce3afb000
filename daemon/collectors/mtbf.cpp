// MTBF collector: uploads the system's crash counter, the property "persist.vendor.crash.cnt".
//
// Its table row carries id 3000, which is also the id that ends the collector table, so the
// scheduler's walk and the configuration pass both stop before it: the row never gets a period or
// a flag and the scheduler never calls this handler. The handler is kept complete and produces its
// record when called directly with bit 3 or bit 63 of the flag, after the init; nothing in the
// daemon calls it that way today.
#include <cutils/properties.h>
#include <stdio.h>
#include <string.h>

#include <atomic>

#include "collectors/collectors.h"
#include "core/device_properties.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

namespace {

std::atomic<bool> g_mtbf_ready{false};

constexpr uint64_t kMtbfFlagMask = 0x8000000000000008ULL;
constexpr uint32_t kKpiMtbf = 3000;  // KPI_ID_MTBF
constexpr const char* kCrashCountProp = "persist.vendor.crash.cnt";

// Record buffer, cleared on every call. Static rather than on the worker's stack.
char g_mtbf_record[204800];

}  // namespace

int32_t collect_mtbf_info_init() {
    g_mtbf_ready.store(true, std::memory_order_release);
    return 0;
}

int32_t collect_mtbf_info_exit() {
    g_mtbf_ready.store(false, std::memory_order_release);
    return 0;
}

int32_t collect_mtbf_stats_hndl(uint64_t flag) {
    memset(g_mtbf_record, 0, sizeof(g_mtbf_record));
    if ((flag & kMtbfFlagMask) == 0 || !g_mtbf_ready.load(std::memory_order_acquire)) return -1;

    DeviceProperties::getInstance();

    char value[PROPERTY_VALUE_MAX];
    property_get_traced(kCrashCountProp, value, "0");

    snprintf(g_mtbf_record, sizeof(g_mtbf_record), "%s", value);
    TLOGW(TAG_MTBF, "%s() %d: sys crash times: %s\n", g_mtbf_record);

    PowerZELHelper::getInstance()->log_blob(kKpiMtbf, g_mtbf_record,
                                            static_cast<uint32_t>(strlen(g_mtbf_record)));
    return 0;
}
