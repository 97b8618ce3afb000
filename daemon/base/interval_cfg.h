// The periods and flags with which the command line and campaigns configure the collector table.
// Plain structures passed by value: a period counts one-second ticks and turns its row off below
// 1; a flag selects parts of a collector (bit 62 or 63: all of them).
#pragma once

#include <stdint.h>

struct PowerIntervalCfg {
    uint64_t enable_flag;
    int32_t tcpu;
    int32_t tgpu;
    int32_t tbat;
    int32_t tddr;
    int32_t tlpm;
    int32_t tps;
    int32_t tbri;
    int32_t tfps;
};

struct ThermalIntervalCfg {
    uint64_t enable_flag;
    int32_t ttherm;
};

struct StabilityIntervalCfg {
    uint64_t enable_flag;
    int32_t tstab;
};
