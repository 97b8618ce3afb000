// Entry points of every collector. init takes the root of the device tree the collector's paths
// live under ("/" on the device) and builds its paths once; init and exit return 0 or a negative
// status; a handler takes the row's sampling flag and returns a value that the scheduler only
// logs.
#pragma once

#include <stdint.h>

int32_t collect_battery_stats_init(const char* root);
int32_t collect_battery_stats_exit();
int32_t collect_battery_stats_hndl(uint64_t flag);

int32_t collect_cpu_stats_init(const char* root);
int32_t collect_cpu_stats_exit();
int32_t collect_cpu_stats_hndl(uint64_t flag);

int32_t collect_gpu_stats_hndl(uint64_t flag);
int32_t collect_ddr_stats_hndl(uint64_t flag);
int32_t collect_lpm_stats_init(const char* root);
int32_t collect_lpm_stats_hndl(uint64_t flag);
int32_t collect_ps_stats_hndl(uint64_t flag);
int32_t collect_brightness_stats_hndl(uint64_t flag);
int32_t collect_fps_stats_hndl(uint64_t flag);

int32_t collect_thermal_stats_init(const char* root);
int32_t collect_thermal_stats_exit();
int32_t collect_thermal_stats_hndl(uint64_t flag);

int32_t collect_stability_info_init(const char* root);
int32_t collect_stability_info_exit();
int32_t collect_stability_stats_hndl(uint64_t flag);

int32_t collect_mtbf_info_init(const char* root);
int32_t collect_mtbf_info_exit();
int32_t collect_mtbf_stats_hndl(uint64_t flag);

// Kept state: each collector that keeps values between calls holds them in one place, and its
// reset returns them to their state at process start. The CPU collector's init also resets the
// GPU collector's kept rows.
void cpu_reset_kept();
void gpu_reset_kept();
void lpm_reset_kept();
void thermal_reset_kept();
