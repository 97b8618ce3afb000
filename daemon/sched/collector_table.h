// The collector table: one row per collector with its KPI id, tick count, period and flag.
#pragma once

#include <stdint.h>

#include <mutex>

#include "interval_cfg.h"
#include "kpi_ids.h"

// Rows from the first one whose id reaches this value on are not part of the live table.
#define COLLECTOR_TABLE_END_ID kpi::MTBF
#define COLLECTOR_TABLE_ROWS 12

struct CollectorEntry {
    int32_t id;
    int32_t count;   // ticks since the handler last ran; touched by the worker only
    int32_t expire;  // period in ticks; below 1 the row is off
    uint64_t flag;
    int32_t (*init)(const char* root);
    int32_t (*exit)();
    int32_t (*hndl)(uint64_t flag);
};

extern CollectorEntry g_collector_table[COLLECTOR_TABLE_ROWS];

// One tick over the live rows of `table`: each row with a period counts the tick and, once its
// count reaches the period, has its handler called with the row's flag. `expire` and `flag` are
// read under `table_mutex`; the handler runs with no lock held.
void run_collector_tick(CollectorEntry* table, std::mutex& table_mutex);

// Writes the periods of every live row and the flags of the thermal and stability rows. The
// caller holds the table lock.
void configure_collector_table(CollectorEntry* table, const PowerIntervalCfg& power,
                               const ThermalIntervalCfg& thermal,
                               const StabilityIntervalCfg& stability);
