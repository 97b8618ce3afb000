#define TARN_LOG_TAG TAG_TARN_STATS

#include "core/collector_table.h"

#include "collectors/collectors.h"
#include "core/tarn_log.h"

// Rows 0 to 9 are live. The MTBF row carries id 3000, which is also the end marker, so neither the
// tick nor the configuration pass reaches it: the crash counter keeps its init and exit (run by the
// core's start and stop) but is never sampled from the table, and nothing gives it a period.
// clang-format off
CollectorEntry g_collector_table[COLLECTOR_TABLE_ROWS] = {
    {2,    0, 0, 0, collect_battery_stats_init,  collect_battery_stats_exit,  collect_battery_stats_hndl},
    {3,    0, 0, 0, collect_cpu_stats_init,      collect_cpu_stats_exit,      collect_cpu_stats_hndl},
    {4,    0, 0, 0, nullptr,                     nullptr,                     collect_gpu_stats_hndl},
    {5,    0, 0, 0, nullptr,                     nullptr,                     collect_ddr_stats_hndl},
    {6,    0, 0, 0, nullptr,                     nullptr,                     collect_lpm_stats_hndl},
    {7,    0, 0, 0, nullptr,                     nullptr,                     collect_ps_stats_hndl},
    {8,    0, 0, 0, nullptr,                     nullptr,                     collect_brightness_stats_hndl},
    {9,    0, 0, 0, nullptr,                     nullptr,                     collect_fps_stats_hndl},
    {1000, 0, 0, 0, collect_thermal_stats_init,  collect_thermal_stats_exit,  collect_thermal_stats_hndl},
    {2000, 0, 0, 0, collect_stability_info_init, collect_stability_info_exit, collect_stability_stats_hndl},
    {3000, 0, 0, 0, collect_mtbf_info_init,      collect_mtbf_info_exit,      collect_mtbf_stats_hndl},
    {3000, 0, 0, 0, nullptr,                     nullptr,                     nullptr},
};
// clang-format on

void run_collector_tick(CollectorEntry* table, std::mutex& table_mutex) {
    for (int i = 0; table[i].id < COLLECTOR_TABLE_END_ID; ++i) {
        CollectorEntry& row = table[i];
        int32_t expire;
        uint64_t flag;
        {
            std::lock_guard<std::mutex> lock(table_mutex);
            expire = row.expire;
            flag = row.flag;
        }
        if (expire < 1) continue;
        if (++row.count < expire) continue;
        row.count = 0;
        int32_t ret = row.hndl != nullptr ? row.hndl(flag) : -1;
        TLOGD_FN("MainThread", "data handler:i:%d id:%d count:%d expire:%d flag:0x%lX ret:%d", i,
                 row.id, row.count, expire, static_cast<unsigned long>(flag), ret);
    }
}

void configure_collector_table(CollectorEntry* table, const PowerIntervalCfg& power,
                               const ThermalIntervalCfg& thermal,
                               const StabilityIntervalCfg& stability) {
    for (int i = 0; table[i].id < COLLECTOR_TABLE_END_ID; ++i) {
        CollectorEntry& row = table[i];
        switch (row.id) {
            case 2:
                row.expire = power.tbat;
                break;
            case 3:
                row.expire = power.tcpu;
                break;
            case 4:
                row.expire = power.tgpu;
                break;
            case 5:
                row.expire = power.tddr;
                break;
            case 6:
                row.expire = power.tlpm;
                break;
            case 7:
                row.expire = power.tps;
                break;
            case 8:
                row.expire = power.tbri;
                break;
            case 9:
                row.expire = power.tfps;
                break;
            case 10:
                break;
            case 1000:
                row.expire = thermal.ttherm;
                row.flag = thermal.enable_flag;
                break;
            case 2000:
                row.expire = stability.tstab;
                row.flag = stability.enable_flag;
                break;
            default:
                TLOGE_FN("ConfigurePowerCoreParam", "Data Error: i:%d  id:%d", i, row.id);
                break;
        }
    }
}
