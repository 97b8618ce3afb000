// GPU collector: current frequency, the time spent at it since it was last seen there, and the
// busy percentage, one record per period under KPI 4.
#include "collectors/gpu.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

#define KPI_ID_GPUFREQ 4
#define MAX_GPU_ROWS 128

// Frequency and cumulative time of each data row of the transition table, by position, as they
// were when the row was last set. A frequency of 0 marks an unset row.
struct gpu_kept_row {
    uint64_t freq;
    uint64_t time;
};
static gpu_kept_row g_gpu_kept[MAX_GPU_ROWS];

void gpu_clear_kept_rows() {
    memset(g_gpu_kept, 0, sizeof(g_gpu_kept));
}

static void skip_line(FILE* fp) {
    int c;
    do {
        c = getc(fp);
    } while (c != EOF && c != '\n');
}

static uint64_t add_digit(uint64_t value, int c) {
    uint64_t digit = (uint64_t)(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return UINT64_MAX;  // saturate like strtoul
    return value * 10 + digit;
}

// Value of a run of digits read with "%lu" from the character just before it: blanks and a '+'
// are taken by the conversion, a '-' negates the number, anything else leaves nothing to parse.
static uint64_t number_after(int before, uint64_t run) {
    switch (before) {
        case ' ':
        case '\t':
        case '\r':
        case '\v':
        case '\f':
        case '+':
            return run;
        case '-':
            return 0 - run;
        default:
            return 0;
    }
}

// One data row of the transition table: its frequency (the first number of the line) and its
// time (the last number of the line). The line is read character by character, so a row of any
// length is parsed whole.
enum row_result { ROW_OK, ROW_END };

static row_result read_trans_row(FILE* fp, uint64_t* freq, uint64_t* time) {
    int c = getc(fp);
    if (c == EOF) return ROW_END;
    // Skip to the first digit; the current row's '*' and the padding go by. A line with no
    // digit before its end, or a 'T' first, is the closing "Total transition" line.
    int prev = ' ';
    while (c != EOF && c != '\n' && c != 'T' && !(c >= '0' && c <= '9')) {
        prev = c;
        c = getc(fp);
    }
    if (c == EOF || c == '\n' || c == 'T') return ROW_END;

    uint64_t run = 0;
    for (; c >= '0' && c <= '9'; c = getc(fp)) run = add_digit(run, c);
    *freq = run;
    uint64_t last = number_after(prev, run);
    while (c != EOF && c != '\n') {
        if (c >= '0' && c <= '9') {
            run = 0;
            for (; c >= '0' && c <= '9'; c = getc(fp)) run = add_digit(run, c);
            last = number_after(prev, run);
            prev = '0';
        } else {
            prev = c;
            c = getc(fp);
        }
    }
    // A row that runs into the end of the file without its line end is incomplete.
    if (c == EOF) return ROW_END;
    *time = last;
    return ROW_OK;
}

// Residency of the current frequency: the growth of its row's time since the last sample at
// which the GPU was also at that frequency. Rows seen for the first time are only recorded.
static uint64_t gpu_time_at(FILE* fp, uint64_t cur_freq) {
    skip_line(fp);  // "From : To" header
    skip_line(fp);  // column header
    for (int k = 0; k < MAX_GPU_ROWS; k++) {
        uint64_t freq = 0, time = 0;
        if (read_trans_row(fp, &freq, &time) != ROW_OK) return 0;
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

static int get_gpu_freq(char* buf, int32_t use) {
    FILE* fp = fnode_rewind(FNODE_GPU_CUR_FREQ);
    if (fp == nullptr) return -EINVAL;
    unsigned int cur = 0;
    if (fscanf(fp, "%u", &cur) != 1) cur = 0;
    int ret = record_appendf(buf, use, "%lu,", (unsigned long)cur);
    if (ret < 0) return ret;
    use = record_advance(use, ret);

    fp = fnode_rewind(FNODE_GPU_TRANS_STAT);
    if (fp == nullptr) return -EINVAL;
    uint64_t delta = gpu_time_at(fp, cur);
    int ret2 = record_appendf(buf, use, "%lu,", (unsigned long)delta);
    if (ret2 < 0) return ret2;
    return ret + ret2;
}

static int get_gpu_load(char* buf, int32_t use) {
    FILE* fp = fnode_rewind(FNODE_GPU_BUSY);
    if (fp == nullptr) return -EINVAL;
    unsigned int busy = 0, total = 0;
    int ret = fscanf(fp, "%u %u", &busy, &total);
    if (ret < 0) return ret;
    float load = total != 0 ? (float)busy * 100.0f / (float)total : 0.0f;
    return record_appendf(buf, use, "%.2f,", load);
}

int32_t collect_gpu_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    memset(buf, 0, sizeof(buf));
    TLOGD(TAG_POWER, "%s() %d: get_gpu_stats ret:%d use:%d", 0, 0);
    int32_t use = record_advance(0, record_appendf(buf, 0, "GPU,"));

    int ret = get_gpu_freq(buf, use);
    TLOGD(TAG_POWER, "%s() %d: get_gpu_freq() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;
    use = record_advance(use, ret);

    // The load goes into the record but not into the returned length.
    ret = get_gpu_load(buf, use);
    TLOGD(TAG_POWER, "%s() %d: get_gpu_load() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;

    PowerZELHelper::getInstance()->log_blob(KPI_ID_GPUFREQ, buf, (uint32_t)strlen(buf));
    return use;
}
