// The node table: kernel files kept open from the CPU collector's init to its exit and read from
// their start every period, and the record-buffer conventions shared by the table-reading
// handlers.
#pragma once

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

struct fnode {
    int32_t type;      // KPI id of the collector that reads the row; descriptive only
    FILE* fp;          // open read-only stream, or null; read through its descriptor only
    const char* path;  // null: never opened
};

// Row positions. The CPU rows are eight groups of four, one per cluster slot; only the first
// group carries paths, which are relative to a cpufreq policy directory.
enum {
    FNODE_CPU_BASE = 0,
    FNODE_CPU_ROWS = 64,
    FNODE_CPU_GROUP_ROWS = 4,
    FNODE_CPU_CUR_FREQ = 0,
    FNODE_CPU_RELATED_CPUS = 1,
    FNODE_CPU_TIME_IN_STATE = 2,
    FNODE_CPU_TRANS_TABLE = 3,
    FNODE_PROC_STAT = FNODE_CPU_BASE + FNODE_CPU_ROWS,
    FNODE_SPARE,
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

// Size of a handler's record buffer.
#define RECORD_BUFLEN 4096

// Formats a piece of a record at offset `use` of a RECORD_BUFLEN buffer, into the room that is
// left, and returns the snprintf result (negative on a format error).
int record_appendf(char* buf, int32_t use, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// The record length after an append of `ret` characters at `use`. A piece that did not fit was
// cut by the bounded format, so the length stops at the last byte, which keeps the terminating
// NUL: the record is reported as far as it goes.
// `len` is the size of the record buffer.
int32_t record_advance(int32_t use, int ret, int32_t len = RECORD_BUFLEN);

// record_appendf for a record buffer of `len` bytes, with the arguments as a va_list.
int record_vappendf(char* buf, int32_t len, int32_t use, const char* fmt, va_list ap)
    __attribute__((format(printf, 4, 0)));

// Appends the value of one node-table row to a record at `use`: the number of characters
// appended, or a negative result (-EINVAL when the row is not open).
typedef int (*node_value_step)(char* buf, int32_t use);

// A handler that reports one value read from one row: zeroes the record, writes `tag`, runs
// `step`, logs "<closing>() ret:%d use:%d buflen:%d" under the handler's name `hndl`, and on
// success reports the record under `kpi`. Returns the record's length or the step's negative
// result (then nothing is reported).
int32_t report_node_value(const char* hndl, const char* closing, const char* tag, int32_t kpi,
                          node_value_step step);

// A reading step for a row that holds one unsigned decimal: logs its messages under the step's
// name `step` with the value labelled `label`, and appends the value and a comma. Text that is
// not a number reads as 0.
int append_node_u32(int index, const char* step, const char* label, char* buf, int32_t use);

// Opens every row from /proc/stat on that has a path (read-only; a failure leaves the row null),
// and closes every open row.
void fnode_open_all();
void fnode_close_all();

// Reads the row's node from its start into `buf` (at most `size` bytes, see node_pread): the
// content's length, or -EINVAL when the row is not open. A node that cannot be read reads as
// empty, as a stream read that fails reads as the end of the file.
ssize_t fnode_read(int index, char* buf, size_t size);
