// Low-power-mode collector: once per period, one record under the low-power-mode id with the
// idle-state use of the eight CPU power domains, the sleep counters of ten subsystems and the WLAN
// chip's sleep statistics. Counters are kept between periods and reported as differences; a counter
// that went backwards (a reset) is reported with its new value.
//
// A record that would not fit into the record buffer is dropped whole: the handler returns -1
// and reports nothing. A cut record would end in a half-written part whose numbers read as
// valid but wrong values.
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "collectors/node_parsers.h"
#include "collectors/node_reader.h"
#include "collectors/tokens.h"
#include "core/kpi_ids.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

#define LPM_CPU_DOMAINS 8
#define LPM_IDLE_STATES 6
#define LPM_SUBSYS_FIRST 8
#define LPM_SUBSYS_COUNT 10
#define LPM_WLAN_PATHS 8

#define LPM_NAME_LEN 7
#define LPM_FIELD_LEN 20
#define LPM_NUM_LEN 40
#define LPM_RPM_TEXT_LEN 200
#define LPM_WLAN_TEXT_LEN 200
#define LPM_WLAN_NUM_LEN 80

// Accumulated sleep durations are counted in ticks of the 19.2 MHz always-on timer.
#define LPM_TICKS_PER_SEC 19200000ULL

// The messages that show `use` and `buflen` carry the handler's name, whichever step logs them.
#define LPM_HNDL_LOGD(fmt, ...) TLOGD_FN(TAG_POWER, "collect_lpm_stats_hndl", fmt, ##__VA_ARGS__)

static const char kSubsysLabels[LPM_SUBSYS_COUNT][LPM_FIELD_LEN] = {
    "adsp,", "adsp_island,", "aosd,",  "apss,", "cdsp,",
    "cxsd,", "ddr,",         "modem,", "slpi,", "slpi_island,",
};

// WLAN power-statistics files, most preferred first.
static const char* const kWlanPaths[LPM_WLAN_PATHS] = {
    "/sys/kernel/wlnd/power_stats", "/sys/kernel/wlne_v2/power_stats",
    "/sys/kernel/wlne/power_stats", "/sys/kernel/wlnf/power_stats",
    "/sys/kernel/wlnc/power_stats", "/sys/kernel/wlnb/power_stats",
    "/sys/kernel/wlna/power_stats", "/sys/kernel/wifi/power_stats",
};

static const char* const kIdleStateNames[LPM_IDLE_STATES] = {"S0", "S1", "S2", "S3", "S4", "S5"};

// Kept values: zero at process start, never reset.
static uint64_t g_idle_prev[LPM_CPU_DOMAINS][LPM_IDLE_STATES];
static uint64_t g_idle_delta[LPM_CPU_DOMAINS][LPM_IDLE_STATES];

struct subsys_kept {
    uint64_t pre_count;
    uint64_t count_delta;
    uint64_t pre_duration;
    uint64_t duration_delta;  // whole seconds
};
static subsys_kept g_subsys[LPM_SUBSYS_COUNT];

enum { WCNSS_SLEEP_TIME, WCNSS_TOTAL_ON_TIME, WCNSS_SLEEP_ENTER_COUNTER, WCNSS_SLEEP_ENTER_TSTAMP };
static uint64_t g_pre_wcnss[4];
static uint64_t g_wcnss_delta[4];

// Result of record_append when the text does not fit into what is left of the buffer.
#define LPM_NO_ROOM (-1)

// Formats at `rec + off` into the room left in the record buffer. Returns the formatted length,
// a negative formatting result, or LPM_NO_ROOM when the text would not fit whole; nothing is
// counted past the buffer.
__attribute__((format(printf, 3, 4))) static int record_append(char* rec, int32_t off,
                                                               const char* fmt, ...) {
    if (off < 0 || off >= RECORD_BUFLEN) return LPM_NO_ROOM;
    size_t room = (size_t)(RECORD_BUFLEN - off);
    va_list ap;
    va_start(ap, fmt);
    int ret = vsnprintf(rec + off, room, fmt, ap);
    va_end(ap);
    if (ret < 0) return ret;
    if ((size_t)ret >= room) {
        TLOGD(TAG_POWER, "%s() %d: record full use:%d need:%d buflen:%d", off, ret, RECORD_BUFLEN);
        return LPM_NO_ROOM;
    }
    return ret;
}

// Copies at most size - 1 characters and always terminates.
static void copy_bounded(char* dst, const char* src, size_t size) {
    size_t n = strnlen(src, size - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

// Appends to a terminated `dst` of `size` bytes, cutting what does not fit.
static void cat_bounded(char* dst, const char* src, size_t size) {
    size_t len = strnlen(dst, size);
    if (len + 1 >= size) return;
    copy_bounded(dst + len, src, size - len);
}

static void strip_newline(char* line) {
    size_t len = strlen(line);
    if (len > 0 && line[len - 1] == '\n') line[len - 1] = '\0';
}

static uint64_t to_u64(const char* text) {
    return (uint64_t)strtoll(text, nullptr, 10);
}

// Difference to the previous reading; a counter that went backwards was reset and counts anew.
static uint64_t counter_delta(uint64_t now, uint64_t prev) {
    return now < prev ? now : now - prev;
}

// The blank splitter of the three steps: splits `copy` at blanks into tokens 0 to 3 (missing
// ones are empty) and logs them with the splitting step's own message `fmt`, under the step's
// name. False when the copy holds no blank; nothing is split or logged then.
static bool split_blank4(const char* step, const char* fmt, char* copy, const char* tok[4]) {
    for (int k = 0; k < 4; k++) tok[k] = "";
    if (strchr(copy, ' ') == nullptr) return false;
    char* tokens[TOKEN_MAX];
    int n = split_tokens(copy, " ", tokens, TOKEN_MAX);
    for (int k = 0; k < 4 && k < n; k++) tok[k] = tokens[k];
    TLOGD_FN(TAG_POWER, step, fmt, tok[0], tok[1], tok[2], tok[3]);
    return true;
}

// Squeezes every run of blanks into one blank, in place.
static void squeeze_blanks(char* line) {
    char* out = line;
    for (const char* in = line; *in != '\0'; in++) {
        if (*in == ' ' && out > line && out[-1] == ' ') continue;
        *out++ = *in;
    }
    *out = '\0';
}

void lpm_parse_last_line(const char* data, size_t len, char* line) {
    mem_stream in = mem_open(data, len);
    while (mem_gets(line, LPM_LINE_LEN, &in) != nullptr) strip_newline(line);
}

void lpm_parse_sleep_stats(const char* data, size_t len, int row, char (*slots)[LPM_RPM_SLOT_LEN]) {
    char line[LPM_LINE_LEN];
    memset(line, 0, sizeof(line));
    mem_stream in = mem_open(data, len);
    int nslots = 0;
    while (mem_gets(line, sizeof(line), &in) != nullptr) {
        strip_newline(line);
        TLOGD_FN(TAG_POWER, "get_lpm_rpm_stats", "%s() %d: while orginal rpm_states:%d %s ", row,
                 line);
        if (nslots < LPM_RPM_SLOTS) {
            copy_bounded(slots[nslots], split_stats_string(line, "="), LPM_RPM_SLOT_LEN);
            nslots++;
        }
    }
}

void lpm_parse_wlan(const char* data, size_t len, char (*slots)[LPM_WLAN_SLOT_LEN]) {
    char line[LPM_LINE_LEN];
    memset(line, 0, sizeof(line));
    mem_stream in = mem_open(data, len);
    for (int k = 0; k < LPM_WLAN_SLOTS; k++) {
        if (mem_gets(line, sizeof(line), &in) == nullptr) break;
        strip_newline(line);
        copy_bounded(slots[k], split_stats_string(line, ":"), LPM_WLAN_SLOT_LEN);
        TLOGD_FN(TAG_POWER, "get_lpm_wcnss_stats", "%s() %d:  wcnss_states:%s %s ", line, slots[k]);
    }
}

// One part per CPU power domain: its name, its latest idle-state line and the six state deltas.
static int32_t get_lpm_cpu_stats(char* rec, int32_t* use) {
    char node[NODE_BUF_LEN];
    char name[LPM_NAME_LEN];
    char line[LPM_LINE_LEN];
    char copy[LPM_LINE_LEN];
    char state[LPM_FIELD_LEN];
    char count[LPM_FIELD_LEN];
    char num[LPM_NUM_LEN];

    for (int i = 0; i < LPM_CPU_DOMAINS; i++) {
        memset(name, 0, sizeof(name));
        snprintf(name, sizeof(name), "%s%d%s", "CPU", i, ", ");
        int ret = record_append(rec, *use, "%s", name);
        if (ret < 0) return ret;
        *use += ret;
        LPM_HNDL_LOGD("%s() %d:  lpm use:%d buflen:%d", *use, RECORD_BUFLEN);

        memset(line, 0, sizeof(line));
        memset(state, 0, sizeof(state));
        memset(count, 0, sizeof(count));
        ssize_t len = fnode_read(FNODE_LPM_BASE + i, node, NODE_BUF_LEN);
        if (len < 0) {
            TLOGD(TAG_POWER, "%s() %d: get_lpm_cpu_stats if !fp ");
            return -EINVAL;
        }
        // The file ends with the state that was entered last; only that line is used.
        lpm_parse_last_line(node, (size_t)len, line);
        squeeze_blanks(line);
        TLOGD(TAG_POWER, "%s() %d: get_lpm_cpu_stats idle_states:%d %s ", i, line);

        memset(copy, 0, sizeof(copy));
        copy_bounded(copy, line, sizeof(copy));
        const char* tok[4];
        if (split_blank4("extract_cpu_lpm_info",
                         "%s() %d: extract_cpu_lpm_info split 1:%s, 2:%s, 3:%s, 4:%s", copy, tok)) {
            copy_bounded(state, tok[0], sizeof(state));
            copy_bounded(count, tok[2], sizeof(count));
        }
        TLOGD(TAG_POWER, "%s() %d: get_lpm_cpu_stats cpustate:%s %s ", state, count);

        for (int k = 0; k < LPM_IDLE_STATES; k++) {
            if (strcmp(state, kIdleStateNames[k]) != 0) continue;
            uint64_t n = to_u64(count);
            g_idle_delta[i][k] = counter_delta(n, g_idle_prev[i][k]);
            g_idle_prev[i][k] = n;
        }

        for (int k = 0; k < LPM_IDLE_STATES; k++) {
            memset(num, 0, sizeof(num));
            snprintf(num, sizeof(num), "%lld", (long long)g_idle_delta[i][k]);
            cat_bounded(line, " ", sizeof(line));
            cat_bounded(line, num, sizeof(line));
            TLOGD(TAG_POWER, "%s() %d: get_lpm_cpu_stats combine idle_states:%d %d %s ", i, k, line);
        }

        ret = record_append(rec, *use, "%s,", line);
        TLOGD(TAG_POWER, "%s() %d: get_lpm_cpu_stats ret:%d %d ", i, ret);
        if (ret < 0) return ret;
        *use += ret;
    }
    return 0;
}

// One part per readable subsystem file: label, count, entry and exit times, accumulated
// duration, then the count delta and the duration delta in seconds.
static int32_t get_lpm_rpm_stats(char* rec, int32_t* use) {
    char node[NODE_BUF_LEN];
    char slots[LPM_RPM_SLOTS][LPM_RPM_SLOT_LEN];
    char rpm_states[LPM_RPM_TEXT_LEN];
    char copy[LPM_RPM_TEXT_LEN];
    char count[LPM_FIELD_LEN];
    char duration[LPM_FIELD_LEN];
    char num[LPM_NUM_LEN];

    for (int r = LPM_SUBSYS_FIRST; r < LPM_SUBSYS_FIRST + LPM_SUBSYS_COUNT; r++) {
        const struct fnode* row = &g_fnode_table[FNODE_LPM_BASE + r];
        subsys_kept* kept = &g_subsys[r - LPM_SUBSYS_FIRST];
        // A subsystem that the device lacks is left out of the record.
        if (row->path == nullptr || access(row->path, R_OK) != 0) continue;

        int ret = record_append(rec, *use, "%s", kSubsysLabels[r - LPM_SUBSYS_FIRST]);
        if (ret < 0) return ret;
        *use += ret;
        LPM_HNDL_LOGD("%s() %d:  rpm use:%d buflen:%d", *use, RECORD_BUFLEN);

        memset(slots, 0, sizeof(slots));
        memset(count, 0, sizeof(count));
        memset(duration, 0, sizeof(duration));
        ssize_t len = fnode_read(FNODE_LPM_BASE + r, node, NODE_BUF_LEN);
        if (len < 0) {
            TLOGD(TAG_POWER, "%s() %d: if !fp ");
            return -EINVAL;
        }
        lpm_parse_sleep_stats(node, (size_t)len, r, slots);

        memset(rpm_states, 0, sizeof(rpm_states));
        for (int s = 0; s < 4; s++) cat_bounded(rpm_states, slots[s], sizeof(rpm_states));
        TLOGD(TAG_POWER, "%s() %d:  rpm_states:%d %s ", r, rpm_states);

        memset(copy, 0, sizeof(copy));
        copy_bounded(copy, rpm_states, sizeof(copy));
        const char* tok[4];
        if (split_blank4("extract_rpm_info",
                         "%s() %d: extract_rpm_info split 1:%s, 2:%s, 3:%s, 4:%s", copy, tok)) {
            copy_bounded(count, tok[0], sizeof(count));
            copy_bounded(duration, tok[3], sizeof(duration));
        }

        uint64_t m = to_u64(count);
        kept->count_delta = counter_delta(m, kept->pre_count);
        uint64_t d = to_u64(duration);
        uint64_t dd = counter_delta(d, kept->pre_duration);
        kept->duration_delta = dd / LPM_TICKS_PER_SEC;
        // A subsystem that slept a whole second or more without a new entry counts as one entry:
        // it never woke up during the period.
        if (dd >= LPM_TICKS_PER_SEC && kept->count_delta == 0) kept->count_delta = 1;
        kept->pre_count = m;
        kept->pre_duration = d;
        TLOGD(TAG_POWER, "%s() %d:  sucess count:%d %lld", r, (long long)kept->count_delta);
        TLOGD(TAG_POWER, "%s() %d:  duration:%d %lld", r, (long long)kept->duration_delta);

        memset(num, 0, sizeof(num));
        snprintf(num, sizeof(num), "%lld %lld", (long long)kept->count_delta,
                 (long long)kept->duration_delta);
        cat_bounded(rpm_states, " ", sizeof(rpm_states));
        cat_bounded(rpm_states, num, sizeof(rpm_states));
        TLOGD(TAG_POWER, "%s() %d:  combine rpm_report:%d %s ", r, rpm_states);

        ret = record_append(rec, *use, "%s,", rpm_states);
        TLOGD(TAG_POWER, "%s() %d:  ret:%d %d ", r, ret);
        if (ret < 0) return ret;
        *use += ret;
    }
    return 0;
}

static void wlan_close(struct fnode* row) {
    if (row->fp != nullptr) fclose(row->fp);
    row->fp = nullptr;
}

// The WLAN part, written at `use` without moving it. Returns its length (0 when there is no WLAN
// text) or a negative result.
static int32_t get_lpm_wcnss_stats(char* rec, int32_t use) {
    char node[NODE_BUF_LEN];
    char slots[LPM_WLAN_SLOTS][LPM_WLAN_SLOT_LEN];
    char wcnss_report[LPM_WLAN_TEXT_LEN];
    char copy[LPM_WLAN_TEXT_LEN];
    char fields[4][LPM_FIELD_LEN];
    char num[LPM_WLAN_NUM_LEN];
    struct fnode* row = &g_fnode_table[FNODE_LPM_BASE + FNODE_LPM_WLAN];

    LPM_HNDL_LOGD("%s() %d:  wcnss use:%d buflen:%d", use, RECORD_BUFLEN);
    memset(slots, 0, sizeof(slots));
    memset(wcnss_report, 0, sizeof(wcnss_report));
    memset(fields, 0, sizeof(fields));
    TLOGD(TAG_POWER, "%s() %d:  fnode->path:%s ", row->path != nullptr ? row->path : "(null)");

    // The driver may come and go: search the file afresh every period.
    row->path = nullptr;
    for (int p = 0; p < LPM_WLAN_PATHS; p++) {
        if (access(kWlanPaths[p], R_OK) == 0) {
            row->path = kWlanPaths[p];
            break;
        }
    }
    if (row->path == nullptr) {
        TLOGD(TAG_POWER, "%s() %d:  fnode->path==NULL ");
        return 0;
    }
    // The file is opened, read whole and closed at once; the row holds no stream between calls.
    wlan_close(row);
    ssize_t got = node_read_path(row->path, node, NODE_BUF_LEN);
    if (got < 0) {
        TLOGD(TAG_POWER, "%s() %d:  fp==NULL ");
        return 0;
    }
    TLOGD(TAG_POWER, "%s() %d:  fp!=NULL ");
    lpm_parse_wlan(node, (size_t)got, slots);

    // Lines three to six hold sleep time, total on time, sleep-enter counter and timestamp.
    for (int k = 2; k <= 5; k++) cat_bounded(wcnss_report, slots[k], sizeof(wcnss_report));
    TLOGD(TAG_POWER, "%s() %d:  wcnss_report.size:%d ", (int)strlen(wcnss_report));
    if (wcnss_report[0] == '\0') {
        wlan_close(row);
        return 0;
    }

    int label = record_append(rec, use, "%s", "WCNSS,");
    if (label < 0) {
        wlan_close(row);
        return label;
    }
    TLOGD(TAG_POWER, "%s() %d:  wcnss_report:%s ", wcnss_report);

    memset(copy, 0, sizeof(copy));
    copy_bounded(copy, wcnss_report, sizeof(copy));
    const char* tok[4];
    if (split_blank4("extract_wcnss_info",
                     "%s() %d: extract_wcnss_info split 1:%s, 2:%s, 3:%s, 4:%s", copy, tok)) {
        for (int f = 0; f < 4; f++) copy_bounded(fields[f], tok[f], LPM_FIELD_LEN);
    }
    TLOGD(TAG_POWER, "%s() %d:  pre_wcnss_sleep_time:%lld ",
          (long long)g_pre_wcnss[WCNSS_SLEEP_TIME]);
    TLOGD(TAG_POWER, "%s() %d:  sleep_time:%s ", fields[WCNSS_SLEEP_TIME]);
    TLOGD(TAG_POWER, "%s() %d:  (unsigned long long)(atoll(sleep_time)):%lld ",
          (long long)to_u64(fields[WCNSS_SLEEP_TIME]));

    uint64_t now[4];
    for (int f = 0; f < 4; f++) {
        now[f] = to_u64(fields[f]);
        g_wcnss_delta[f] = counter_delta(now[f], g_pre_wcnss[f]);
    }
    TLOGD(TAG_POWER, "%s() %d:  wcnss_sleep_time:%lld ", (long long)g_wcnss_delta[0]);
    TLOGD(TAG_POWER, "%s() %d:  wcnss_total_on_time:%lld ", (long long)g_wcnss_delta[1]);
    TLOGD(TAG_POWER, "%s() %d:  wcnss_sleep_enter_counter:%lld ", (long long)g_wcnss_delta[2]);
    TLOGD(TAG_POWER, "%s() %d:  wcnss_sleep_enter_tstamp:%lld ", (long long)g_wcnss_delta[3]);
    for (int f = 0; f < 4; f++) g_pre_wcnss[f] = now[f];

    memset(num, 0, sizeof(num));
    snprintf(num, sizeof(num), "%lld %lld %lld %lld", (long long)g_wcnss_delta[0],
             (long long)g_wcnss_delta[1], (long long)g_wcnss_delta[2], (long long)g_wcnss_delta[3]);
    cat_bounded(wcnss_report, " ", sizeof(wcnss_report));
    cat_bounded(wcnss_report, num, sizeof(wcnss_report));
    TLOGD(TAG_POWER, "%s() %d:  combine wcnss_report:%s ", wcnss_report);

    int ret = record_append(rec, use + label, "%s,", wcnss_report);
    int32_t len = ret < 0 ? ret : label + ret;
    TLOGD(TAG_POWER, "%s() %d:  ret:%d ", len);
    wlan_close(row);
    return len;
}

int32_t collect_lpm_stats_hndl(uint64_t) {
    char rec[RECORD_BUFLEN];
    memset(rec, 0, sizeof(rec));
    LPM_HNDL_LOGD("%s() %d:  ret:%d use:%d", 0, 0);
    int32_t use = snprintf(rec, sizeof(rec), "%s", "LPM,");
    if (use < 0) return use;

    int32_t ret = get_lpm_cpu_stats(rec, &use);
    if (ret < 0) return ret;
    ret = get_lpm_rpm_stats(rec, &use);
    if (ret < 0) return ret;
    int32_t wlan_len = get_lpm_wcnss_stats(rec, use);
    if (wlan_len < 0) return wlan_len;

    int32_t len = use + wlan_len;
    LPM_HNDL_LOGD("%s() %d:  ret:%d use:%d buflen:%d", wlan_len, len, RECORD_BUFLEN);
    PowerZELHelper::getInstance()->log_blob(kpi::LPM, rec, (uint32_t)len);
    return len;
}
