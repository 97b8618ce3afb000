// The node table: kernel files kept open from the CPU collector's init to its exit and read from
// their start every period, and the handler shape shared by the table-reading collectors.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "record.h"

struct fnode {
    int32_t type;      // KPI id of the collector that reads the row; descriptive only
    int fd;            // open read-only descriptor, or -1
    const char* path;  // null: never opened
};

// Row positions. The CPU rows are eight groups of four, one per cluster slot; only the first
// group carries paths, which are relative to a cpufreq policy directory.
enum {
    FNODE_CPU_BASE = 0,
    FNODE_CPU_ROWS = 32,
    FNODE_CPU_GROUP_ROWS = 4,
    FNODE_CPU_CUR_FREQ = 0,
    FNODE_CPU_RELATED_CPUS = 1,
    FNODE_CPU_TIME_IN_STATE = 2,
    FNODE_CPU_TRANS_TABLE = 3,
    FNODE_PROC_STAT = FNODE_CPU_BASE + FNODE_CPU_ROWS,
    FNODE_GPU_CUR_FREQ,
    FNODE_GPU_TRANS_STAT,
    FNODE_GPU_BUSY,
    FNODE_DDR_CUR_FREQ,
    FNODE_LPM_BASE,
    FNODE_LPM_ROWS = 20,
    FNODE_LPM_WLAN = 19,  // index within the LPM rows
    FNODE_BRIGHTNESS = FNODE_LPM_BASE + FNODE_LPM_ROWS,
    FNODE_FPS,
    FNODE_COUNT,
};

extern struct fnode g_fnode_table[FNODE_COUNT];

// Appends the value of one node-table row to a record: the number of characters appended, or a
// negative result (-EINVAL when the row is not open).
typedef int (*node_value_step)(record* rec);

// A handler that reports one value read from one row: starts the record with `tag`, runs `step`,
// logs "<closing>() ret:%d use:%d buflen:%d" under the handler's name `hndl` with `use` before the
// step, and on success reports the record under `kpi_id`. Returns the record's length or the
// step's negative result (then nothing is reported).
int32_t report_node_value(const char* hndl, const char* closing, const char* tag, int32_t kpi_id,
                          node_value_step step);

// A reading step for a row that holds one unsigned decimal: logs its messages under the step's
// name `step` with the value labelled `label`, and appends the value and a comma. Text that is
// not a number reads as 0.
int append_node_u32(int index, const char* step, const char* label, record* rec);

// Opens every row from /proc/stat on that has a path, under `root` (read-only; a failure leaves
// the row closed), and closes every open row.
void fnode_open_all(const char* root);
void fnode_close_all();

// Reads the row's node from its start into `buf` (at most `size` bytes, see node_pread): the
// content's length, or -EINVAL when the row is not open. A node that cannot be read reads as
// empty, as a stream read that fails reads as the end of the file.
ssize_t fnode_read(int index, char* buf, size_t size);
