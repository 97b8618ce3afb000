// GPU collector: current frequency, the time spent at it since it was last seen there, and the
// busy percentage, one record per period under KPI 4.
#define TARN_LOG_TAG TAG_POWER

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "collectors.h"
#include "fnode.h"
#include "kpi_ids.h"
#include "node_parsers.h"
#include "node_reader.h"
#include "tarn_log.h"

#define MAX_GPU_ROWS 128
#define GPU_LINE_LEN 1024

// Frequency and cumulative time of each data row of the transition table, by position, as they
// were when the row was last set. A frequency of 0 marks an unset row.
struct gpu_kept_row {
    uint64_t freq;
    uint64_t time;
};
static gpu_kept_row g_gpu_kept[MAX_GPU_ROWS];

void gpu_reset_kept() {
    memset(g_gpu_kept, 0, sizeof(g_gpu_kept));
}

// One data row of the transition table: its frequency (the row's first number) and its time (its
// last number). The row is the text of one line piece up to its first NUL. Returns false for a
// line with no digit before its end or with a 'T' first: the closing "Total transition" line.
static bool parse_trans_row(const char* line, uint64_t* freq, uint64_t* time) {
    const char* p = line;
    while (*p != '\0' && *p != 'T' && !(*p >= '0' && *p <= '9')) p++;
    if (*p == '\0' || *p == 'T') return false;
    mem_stream in = mem_open_str(p);
    unsigned long long value = 0;
    *freq = mem_scan_ull(&in, &value) == 1 ? value : 0;

    // The time is the last run of digits, read from the character before it, so that a sign or
    // anything else there decides as it would for "%lu".
    const char* end = line + strlen(line);
    while (end > line && !(end[-1] >= '0' && end[-1] <= '9')) end--;
    const char* digits = end;
    while (digits > line && digits[-1] >= '0' && digits[-1] <= '9') digits--;
    const char* from = digits > line ? digits - 1 : digits;
    in = mem_open(from, (size_t)(end - from));
    value = 0;
    *time = mem_scan_ull(&in, &value) == 1 ? value : 0;
    return true;
}

uint64_t gpu_parse_trans_stat(const char* data, size_t len, uint64_t cur_freq) {
    mem_stream in = mem_open(data, len);
    char line[GPU_LINE_LEN];
    // Two header lines: "From : To" and the column header.
    for (int h = 0; h < 2; h++) {
        if (mem_gets(line, sizeof(line), &in) == nullptr) return 0;
    }
    for (int k = 0; k < MAX_GPU_ROWS; k++) {
        if (mem_gets(line, sizeof(line), &in) == nullptr || in.eof) return 0;
        uint64_t freq = 0, time = 0;
        if (!parse_trans_row(line, &freq, &time)) return 0;
        gpu_kept_row* kept = &g_gpu_kept[k];
        if (kept->freq == 0) {
            kept->freq = freq;
            kept->time = time;
            continue;
        }
        if (freq == cur_freq && freq == kept->freq) {
            uint64_t delta = time >= kept->time ? time - kept->time : 0;
            kept->time = time;
            return delta;
        }
    }
    // Rows beyond the kept ones cannot be compared.
    return 0;
}

int gpu_parse_busy(const char* data, size_t len, unsigned* busy, unsigned* total) {
    mem_stream in = mem_open(data, len);
    unsigned long long value = 0;
    int ret = mem_scan_ull(&in, &value);
    if (ret != 1) return ret;
    *busy = (unsigned)value;
    mem_skip_space(&in);
    if (mem_scan_ull(&in, &value) != 1) return 1;
    *total = (unsigned)value;
    return 2;
}

static int get_gpu_freq(record* rec) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(FNODE_GPU_CUR_FREQ, node, sizeof(node));
    if (len < 0) return -EINVAL;
    unsigned int cur = node_parse_u32(node, (size_t)len);
    int ret = rec->append("%lu,", (unsigned long)cur);
    if (ret < 0) return ret;

    len = fnode_read(FNODE_GPU_TRANS_STAT, node, sizeof(node));
    if (len < 0) return -EINVAL;
    uint64_t delta = gpu_parse_trans_stat(node, (size_t)len, cur);
    int ret2 = rec->append("%lu,", (unsigned long)delta);
    if (ret2 < 0) return ret2;
    return ret + ret2;
}

static int get_gpu_load(record* rec) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(FNODE_GPU_BUSY, node, sizeof(node));
    if (len < 0) return -EINVAL;
    unsigned int busy = 0, total = 0;
    int ret = gpu_parse_busy(node, (size_t)len, &busy, &total);
    if (ret < 0) return ret;
    float load = total != 0 ? (float)busy * 100.0f / (float)total : 0.0f;
    return rec->append("%.2f,", load);
}

int32_t collect_gpu_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    record rec(buf, sizeof(buf));
    TLOGD("get_gpu_stats ret:%d use:%d", 0, 0);
    int ret = rec.append("GPU,");
    if (ret < 0) return ret;

    int32_t use = rec.use;
    ret = get_gpu_freq(&rec);
    TLOGD("get_gpu_freq() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;

    // The load goes into the record but not into the returned length.
    use = rec.use;
    ret = get_gpu_load(&rec);
    TLOGD("get_gpu_load() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;

    rec.report(kpi::GPUFREQ);
    return use;
}
