#define TARN_LOG_TAG TAG_TARN_STATS

#include "collector_table.h"

#include "collectors.h"
#include "tarn_log.h"

// Rows 0 to 9 are live. The MTBF row carries the MTBF id, which is also the end marker, so neither
// the tick nor the configuration pass reaches it: the crash counter keeps its init and exit (run by
// the core's start and stop) but is never sampled from the table, and nothing gives it a period.
// clang-format off
CollectorEntry g_collector_table[COLLECTOR_TABLE_ROWS] = {
    {kpi::BATTERY_STAT,  0, 0, 0, collect_battery_stats_init,  collect_battery_stats_exit,  collect_battery_stats_hndl},
    {kpi::CPUFREQ,       0, 0, 0, collect_cpu_stats_init,      collect_cpu_stats_exit,      collect_cpu_stats_hndl},
    {kpi::GPUFREQ,       0, 0, 0, nullptr,                     nullptr,                     collect_gpu_stats_hndl},
    {kpi::DDRFREQ,       0, 0, 0, nullptr,                     nullptr,                     collect_ddr_stats_hndl},
    {kpi::LPM,           0, 0, 0, collect_lpm_stats_init,      nullptr,                     collect_lpm_stats_hndl},
    {kpi::PS,            0, 0, 0, nullptr,                     nullptr,                     collect_ps_stats_hndl},
    {kpi::BRIGHTNESS,    0, 0, 0, nullptr,                     nullptr,                     collect_brightness_stats_hndl},
    {kpi::FPS,           0, 0, 0, nullptr,                     nullptr,                     collect_fps_stats_hndl},
    {kpi::THERMAL_ZONE,  0, 0, 0, collect_thermal_stats_init,  collect_thermal_stats_exit,  collect_thermal_stats_hndl},
    {kpi::PERF,          0, 0, 0, collect_stability_info_init, collect_stability_info_exit, collect_stability_stats_hndl},
    {kpi::MTBF,          0, 0, 0, collect_mtbf_info_init,      collect_mtbf_info_exit,      collect_mtbf_stats_hndl},
    {kpi::MTBF,          0, 0, 0, nullptr,                     nullptr,                     nullptr},
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
            case kpi::BATTERY_STAT:
                row.expire = power.tbat;
                break;
            case kpi::CPUFREQ:
                row.expire = power.tcpu;
                break;
            case kpi::GPUFREQ:
                row.expire = power.tgpu;
                break;
            case kpi::DDRFREQ:
                row.expire = power.tddr;
                break;
            case kpi::LPM:
                row.expire = power.tlpm;
                break;
            case kpi::PS:
                row.expire = power.tps;
                break;
            case kpi::BRIGHTNESS:
                row.expire = power.tbri;
                break;
            case kpi::FPS:
                row.expire = power.tfps;
                break;
            case kpi::DEVFREQ:
                break;
            case kpi::THERMAL_ZONE:
                row.expire = thermal.ttherm;
                row.flag = thermal.enable_flag;
                break;
            case kpi::PERF:
                row.expire = stability.tstab;
                row.flag = stability.enable_flag;
                break;
            default:
                TLOGE_FN("ConfigurePowerCoreParam", "Data Error: i:%d  id:%d", i, row.id);
                break;
        }
    }
}
