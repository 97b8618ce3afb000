// Record kinds and sampling flag bits, shared by the collector table and the collectors.
//
// The ids are the numbers of the campaign schema's KPI_ID enumeration. They live in a namespace
// of their own because the schema's generated header declares the same numbers as a global
// enumeration.
#pragma once

#include <stdint.h>

namespace kpi {
enum id : int32_t {
    BATTERY_STAT = 2,
    CPUFREQ = 3,
    GPUFREQ = 4,
    DDRFREQ = 5,
    LPM = 6,
    PS = 7,
    BRIGHTNESS = 8,
    FPS = 9,
    DEVFREQ = 10,  // accepted by the configuration pass; no collector reports it
    THERMAL_ZONE = 1000,
    THERMAL_COOLING = 1001,
    THERMAL_CPUINFO = 1002,
    PERF = 2000,
    TOMBSTONE = 2001,
    ANR = 2002,
    MTBF = 3000,
};
}  // namespace kpi

// Sampling flag: a part of a collector runs when the flag has the part's bit or the collector's
// all-bit set.
constexpr uint64_t THERMAL_FLAG_ALL = 1ULL << 62;
constexpr uint64_t STABILITY_FLAG_ALL = 1ULL << 63;  // also the MTBF collector's all-bit
constexpr uint64_t THERMAL_FLAG_ZONE = 1ULL << 0;
constexpr uint64_t THERMAL_FLAG_COOLING = 1ULL << 1;
constexpr uint64_t THERMAL_FLAG_CPUINFO = 1ULL << 2;
constexpr uint64_t STABILITY_FLAG_STATUS = 1ULL << 0;
constexpr uint64_t STABILITY_FLAG_TOMBSTONE = 1ULL << 1;
constexpr uint64_t STABILITY_FLAG_ANR = 1ULL << 2;
constexpr uint64_t MTBF_FLAG_CRASH_COUNT = 1ULL << 3;
// Flags the command line gives the thermal and stability rows: every part.
constexpr uint64_t THERMAL_FLAG_CMDLINE = THERMAL_FLAG_ALL | 0xF;
constexpr uint64_t STABILITY_FLAG_CMDLINE = STABILITY_FLAG_ALL | 0xF;

// True when `flag` selects the part with bit `part` of a collector whose all-bit is `all`.
constexpr bool flag_selects(uint64_t flag, uint64_t all, uint64_t part) {
    return (flag & (all | part)) != 0;
}
