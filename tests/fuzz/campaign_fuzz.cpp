// Campaign bytes through the start handler: whatever the bytes, the handler either refuses them
// and leaves the collector table alone, or takes them and writes exactly the decoded periods (as
// signed counts) and the low 32 bits of the thermal and stability flags.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "campaign.h"
#include "collector_table.h"
#include "power_bigdata_core.h"
#include "tarn_log.h"
#include "tarn_stats.pb.h"

namespace {

struct Row {
    int32_t expire;
    uint64_t flag;
};

// Only this thread writes the table's periods and flags (through the handler); the worker only
// reads them, so reading them here needs no lock.
void snapshot(Row* rows) {
    for (int i = 0; i < COLLECTOR_TABLE_ROWS; ++i) {
        rows[i] = {g_collector_table[i].expire, g_collector_table[i].flag};
    }
}

void check(bool ok) {
    if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_debug_level = 3;  // errors only: a warning per input would drown the fuzzer's output
    connect_core_to_report();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    Row before[COLLECTOR_TABLE_ROWS], after[COLLECTOR_TABLE_ROWS];
    snapshot(before);
    int32_t ret = start_campaign_handler(nullptr, data, static_cast<uint32_t>(size));
    snapshot(after);

    BigDataCampaignConfig cfg;
    bool taken = size > 0 && cfg.ParseFromArray(data, static_cast<int>(size));
    check(ret == (taken ? 0 : -1));
    if (!taken) {
        for (int i = 0; i < COLLECTOR_TABLE_ROWS; ++i) {
            check(after[i].expire == before[i].expire && after[i].flag == before[i].flag);
        }
        return 0;
    }
    // Sampling stays off between inputs, so the worker seldom runs a tick.
    stop_campaign_handler(nullptr);

    // Rows with ids 2 to 9 take the power periods in this order; thermal and stability rows
    // also take their flags.
    const PowerCampaignCfg& p = cfg.powercfg();
    const uint32_t power[] = {p.battery_period(), p.cpu_fre_period(), p.gpu_fre_period(),
                              p.ddr_fre_period(), p.lpm_period(),     p.ps_period(),
                              p.bright_period(),  p.fps_period()};
    for (int i = 0; i < COLLECTOR_TABLE_ROWS; ++i) {
        const int32_t id = g_collector_table[i].id;
        // Rows past the live table are never written.
        uint32_t period = static_cast<uint32_t>(before[i].expire);
        uint64_t flag = before[i].flag;
        if (id >= 2 && id <= 9) {
            period = power[id - 2];
        } else if (id == 1000) {
            period = cfg.thermalcfg().sampling_period();
            flag = cfg.thermalcfg().sampling_flag() & 0xFFFFFFFFu;
        } else if (id == 2000) {
            period = cfg.stabilitycfg().sampling_period();
            flag = cfg.stabilitycfg().sampling_flag() & 0xFFFFFFFFu;
        }
        int64_t expected = period > 0x7FFFFFFFu ? static_cast<int64_t>(period) - 0x100000000LL
                                                : static_cast<int64_t>(period);
        check(after[i].expire == expected);
        check(after[i].flag == flag);
    }
    return 0;
}
