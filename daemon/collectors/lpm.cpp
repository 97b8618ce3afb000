// Low-power-mode collector: once per period, one record under the low-power-mode id with the
// idle-state use of the eight CPU power domains, the sleep counters of ten subsystems and the WLAN
// chip's sleep statistics. Counters are kept between periods and reported as differences; a
// counter that went backwards (a reset) is reported with its new value.
//
// Each of the three steps does the same for each of its sources: find it, read it, parse it,
// update the kept deltas and append its part to the record.
#define TARN_LOG_TAG TAG_POWER

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "collectors.h"
#include "device_root.h"
#include "fnode.h"
#include "kpi_ids.h"
#include "node_parsers.h"
#include "node_reader.h"
#include "record.h"
#include "tarn_log.h"
#include "text.h"
#include "tokens.h"

#define LPM_CPU_DOMAINS 8    // LPM rows 0 to 7
#define LPM_IDLE_STATES 6    // S0 to S5
#define LPM_SUBSYS_FIRST 8   // LPM rows 8 to 17
#define LPM_SUBSYS_COUNT 10  // row 18 is not read
#define LPM_WLAN_PATHS 8
#define LPM_SPLIT_TOKENS 4  // fields the blank splitter takes
#define LPM_RPM_JOINED 4    // count, entry and exit times, accumulated duration
#define LPM_WLAN_FIRST 2    // the WLAN values start on the third line...
#define LPM_WLAN_FIELDS 4   // ...and fill four lines

#define LPM_FIELD_LEN 20
#define LPM_NUM_LEN 40
#define LPM_RPM_TEXT_LEN 200
#define LPM_WLAN_TEXT_LEN 200
#define LPM_WLAN_NUM_LEN 80

// Accumulated sleep durations are counted in ticks of the 19.2 MHz always-on timer.
#define LPM_TICKS_PER_SEC 19200000ULL

// Every message names the step it belongs to, whichever function logs it; the messages that show
// `use` and `buflen` name the handler.
#define LPM_HNDL_LOGD(fmt, ...) TLOGD_FN("collect_lpm_stats_hndl", fmt, ##__VA_ARGS__)
#define LPM_CPU_LOGD(fmt, ...) TLOGD_FN("get_lpm_cpu_stats", fmt, ##__VA_ARGS__)
#define LPM_RPM_LOGD(fmt, ...) TLOGD_FN("get_lpm_rpm_stats", fmt, ##__VA_ARGS__)
#define LPM_WLAN_LOGD(fmt, ...) TLOGD_FN("get_lpm_wcnss_stats", fmt, ##__VA_ARGS__)

static const char kSubsysLabels[LPM_SUBSYS_COUNT][LPM_FIELD_LEN] = {
    "adsp,", "adsp_island,", "aosd,",  "apss,", "cdsp,",
    "cxsd,", "ddr,",         "modem,", "slpi,", "slpi_island,",
};

// WLAN power-statistics files, most preferred first, and the same under the root of the init.
static const char* const kWlanPaths[LPM_WLAN_PATHS] = {
    "/sys/kernel/wlnd/power_stats", "/sys/kernel/wlne_v2/power_stats",
    "/sys/kernel/wlne/power_stats", "/sys/kernel/wlnf/power_stats",
    "/sys/kernel/wlnc/power_stats", "/sys/kernel/wlnb/power_stats",
    "/sys/kernel/wlna/power_stats", "/sys/kernel/wifi/power_stats",
};

static char g_wlan_paths[LPM_WLAN_PATHS][DEVICE_PATH_LEN];
// The subsystems' sleep-statistics files under the root, tested for every period; "" when the
// table gives a subsystem no file.
static char g_subsys_paths[LPM_SUBSYS_COUNT][DEVICE_PATH_LEN];

int32_t collect_lpm_stats_init(const char* root) {
    for (int i = 0; i < LPM_WLAN_PATHS; i++) {
        device_path(g_wlan_paths[i], sizeof(g_wlan_paths[i]), root, kWlanPaths[i]);
    }
    for (int n = 0; n < LPM_SUBSYS_COUNT; n++) {
        const char* path = g_fnode_table[FNODE_LPM_BASE + LPM_SUBSYS_FIRST + n].path;
        g_subsys_paths[n][0] = '\0';
        if (path != nullptr) device_path(g_subsys_paths[n], sizeof(g_subsys_paths[n]), root, path);
    }
    return 0;
}

static const char* const kIdleStateNames[LPM_IDLE_STATES] = {"S0", "S1", "S2", "S3", "S4", "S5"};

struct subsys_kept {
    uint64_t pre_count;
    uint64_t count_delta;
    uint64_t pre_duration;
    uint64_t duration_delta;  // whole seconds
};

// WLAN fields in the order of their lines.
enum { WCNSS_SLEEP_TIME, WCNSS_TOTAL_ON_TIME, WCNSS_SLEEP_ENTER_COUNTER, WCNSS_SLEEP_ENTER_TSTAMP };

// Kept values: zero at process start. An idle-state delta keeps its value until its state is
// read again.
struct lpm_kept {
    uint64_t idle_prev[LPM_CPU_DOMAINS][LPM_IDLE_STATES];
    uint64_t idle_delta[LPM_CPU_DOMAINS][LPM_IDLE_STATES];
    subsys_kept subsys[LPM_SUBSYS_COUNT];
    uint64_t wcnss_prev[LPM_WLAN_FIELDS];
    uint64_t wcnss_delta[LPM_WLAN_FIELDS];
};
static lpm_kept g_lpm;

void lpm_reset_kept() {
    g_lpm = lpm_kept();
}

static uint64_t to_u64(const char* text) {
    return (uint64_t)strtoll(text, nullptr, 10);
}

// Difference to the previous reading; a counter that went backwards was reset and counts anew.
static uint64_t counter_delta(uint64_t now, uint64_t* prev) {
    uint64_t delta = now < *prev ? now : now - *prev;
    *prev = now;
    return delta;
}

// The blank splitter of the three steps: tokens 0 to 3 of a copy of a text (missing ones are
// empty); `split` is false when the text holds no blank, and nothing is split then.
struct blank_split {
    char copy[LPM_LINE_LEN];
    const char* tok[LPM_SPLIT_TOKENS];
    bool split;
};

static void split_blank4(const char* text, blank_split* out) {
    copy_bounded(out->copy, text, sizeof(out->copy));
    for (int k = 0; k < LPM_SPLIT_TOKENS; k++) out->tok[k] = "";
    out->split = strchr(out->copy, ' ') != nullptr;
    if (!out->split) return;
    char* tokens[TOKEN_MAX];
    int n = split_tokens(out->copy, " ", tokens, TOKEN_MAX);
    for (int k = 0; k < LPM_SPLIT_TOKENS && k < n; k++) out->tok[k] = tokens[k];
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
    // Each line replaces the one before it.
    while (mem_get_line(line, LPM_LINE_LEN, &in) != nullptr) continue;
}

void lpm_parse_sleep_stats(const char* data, size_t len, int row, char (*slots)[LPM_RPM_SLOT_LEN]) {
    char line[LPM_LINE_LEN];
    memset(line, 0, sizeof(line));
    mem_stream in = mem_open(data, len);
    for (int n = 0; mem_get_line(line, sizeof(line), &in) != nullptr; n++) {
        LPM_RPM_LOGD("while orginal rpm_states:%d %s ", row, line);
        if (n < LPM_RPM_SLOTS)
            copy_bounded(slots[n], split_stats_string(line, "="), LPM_RPM_SLOT_LEN);
    }
}

void lpm_parse_wlan(const char* data, size_t len, char (*slots)[LPM_WLAN_SLOT_LEN]) {
    char line[LPM_LINE_LEN];
    memset(line, 0, sizeof(line));
    mem_stream in = mem_open(data, len);
    for (int k = 0; k < LPM_WLAN_SLOTS && mem_get_line(line, sizeof(line), &in) != nullptr; k++) {
        copy_bounded(slots[k], split_stats_string(line, ":"), LPM_WLAN_SLOT_LEN);
        LPM_WLAN_LOGD(" wcnss_states:%s %s ", line, slots[k]);
    }
}

// ---- CPU power domains: "CPU<i>, ", the domain's last idle-state line, the six state deltas.

struct idle_reading {
    char line[LPM_LINE_LEN];
    char state[LPM_FIELD_LEN];
    char count[LPM_FIELD_LEN];
};

// Reads domain i's idle states. The file ends with the state that was entered last; only that
// line is used, its state name and usage count taken from it.
static int32_t read_idle_states(int i, idle_reading* r) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(FNODE_LPM_BASE + i, node, sizeof(node));
    if (len < 0) {
        LPM_CPU_LOGD("get_lpm_cpu_stats if !fp ");
        return -EINVAL;
    }
    lpm_parse_last_line(node, (size_t)len, r->line);
    squeeze_blanks(r->line);
    LPM_CPU_LOGD("get_lpm_cpu_stats idle_states:%d %s ", i, r->line);

    blank_split sp;
    split_blank4(r->line, &sp);
    if (sp.split) {
        TLOGD_FN("extract_cpu_lpm_info", "extract_cpu_lpm_info split 1:%s, 2:%s, 3:%s, 4:%s",
                 sp.tok[0], sp.tok[1], sp.tok[2], sp.tok[3]);
        copy_bounded(r->state, sp.tok[0], sizeof(r->state));
        copy_bounded(r->count, sp.tok[2], sizeof(r->count));
    }
    LPM_CPU_LOGD("get_lpm_cpu_stats cpustate:%s %s ", r->state, r->count);
    return 0;
}

// Only a state S0 to S5 moves its delta; other text changes nothing.
static void update_idle_delta(int i, const idle_reading* r) {
    for (int k = 0; k < LPM_IDLE_STATES; k++) {
        if (strcmp(r->state, kIdleStateNames[k]) == 0)
            g_lpm.idle_delta[i][k] = counter_delta(to_u64(r->count), &g_lpm.idle_prev[i][k]);
    }
}

static int32_t append_idle_part(record* rec, int i, idle_reading* r) {
    char num[LPM_NUM_LEN];
    for (int k = 0; k < LPM_IDLE_STATES; k++) {
        (void)snprintf(num, sizeof(num), "%lld", (long long)g_lpm.idle_delta[i][k]);
        cat_bounded(r->line, " ", sizeof(r->line));
        cat_bounded(r->line, num, sizeof(r->line));
        LPM_CPU_LOGD("get_lpm_cpu_stats combine idle_states:%d %d %s ", i, k, r->line);
    }
    int ret = rec->append("%s,", r->line);
    LPM_CPU_LOGD("get_lpm_cpu_stats ret:%d %d ", i, ret);
    return ret;
}

static int32_t get_lpm_cpu_stats(record* rec) {
    for (int i = 0; i < LPM_CPU_DOMAINS; i++) {
        int32_t ret = rec->append("CPU%d, ", i);
        if (ret < 0) return ret;
        LPM_HNDL_LOGD(" lpm use:%d buflen:%d", rec->use, RECORD_BUFLEN);

        idle_reading r = {};
        ret = read_idle_states(i, &r);
        if (ret < 0) return ret;
        update_idle_delta(i, &r);
        ret = append_idle_part(rec, i, &r);
        if (ret < 0) return ret;
    }
    return 0;
}

// ---- Subsystems: label, count, entry and exit times, accumulated duration, then the count delta
// and the duration delta in whole seconds.

struct sleep_reading {
    char text[LPM_RPM_TEXT_LEN];  // the first four values, joined
    char count[LPM_FIELD_LEN];
    char duration[LPM_FIELD_LEN];
};

// Reads subsystem row r: the values after "=" of its first lines, joined, with the count and the
// duration taken from them.
static int32_t read_sleep_stats(int r, sleep_reading* s) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(FNODE_LPM_BASE + r, node, sizeof(node));
    if (len < 0) {
        LPM_RPM_LOGD("if !fp ");
        return -EINVAL;
    }
    char slots[LPM_RPM_SLOTS][LPM_RPM_SLOT_LEN] = {};
    lpm_parse_sleep_stats(node, (size_t)len, r, slots);
    for (int k = 0; k < LPM_RPM_JOINED; k++) cat_bounded(s->text, slots[k], sizeof(s->text));
    LPM_RPM_LOGD(" rpm_states:%d %s ", r, s->text);

    blank_split sp;
    split_blank4(s->text, &sp);
    if (sp.split) {
        TLOGD_FN("extract_rpm_info", "extract_rpm_info split 1:%s, 2:%s, 3:%s, 4:%s", sp.tok[0],
                 sp.tok[1], sp.tok[2], sp.tok[3]);
        copy_bounded(s->count, sp.tok[0], sizeof(s->count));
        copy_bounded(s->duration, sp.tok[3], sizeof(s->duration));
    }
    return 0;
}

static void update_sleep_delta(int r, subsys_kept* kept, const sleep_reading* s) {
    kept->count_delta = counter_delta(to_u64(s->count), &kept->pre_count);
    uint64_t dd = counter_delta(to_u64(s->duration), &kept->pre_duration);
    kept->duration_delta = dd / LPM_TICKS_PER_SEC;
    // A subsystem that slept a whole second or more without a new entry counts as one entry: it
    // never woke up during the period.
    if (dd >= LPM_TICKS_PER_SEC && kept->count_delta == 0) kept->count_delta = 1;
    LPM_RPM_LOGD(" sucess count:%d %lld", r, (long long)kept->count_delta);
    LPM_RPM_LOGD(" duration:%d %lld", r, (long long)kept->duration_delta);
}

static int32_t append_sleep_part(record* rec, int r, const subsys_kept* kept, sleep_reading* s) {
    char num[LPM_NUM_LEN];
    (void)snprintf(num, sizeof(num), "%lld %lld", (long long)kept->count_delta,
                   (long long)kept->duration_delta);
    cat_bounded(s->text, " ", sizeof(s->text));
    cat_bounded(s->text, num, sizeof(s->text));
    LPM_RPM_LOGD(" combine rpm_report:%d %s ", r, s->text);
    int ret = rec->append("%s,", s->text);
    LPM_RPM_LOGD(" ret:%d %d ", r, ret);
    return ret;
}

static int32_t get_lpm_rpm_stats(record* rec) {
    for (int n = 0; n < LPM_SUBSYS_COUNT; n++) {
        int r = LPM_SUBSYS_FIRST + n;
        // A subsystem that the device lacks is left out of the record.
        const char* path = g_subsys_paths[n];
        if (path[0] == '\0' || access(path, R_OK) != 0) continue;

        int32_t ret = rec->append("%s", kSubsysLabels[n]);
        if (ret < 0) return ret;
        LPM_HNDL_LOGD(" rpm use:%d buflen:%d", rec->use, RECORD_BUFLEN);

        sleep_reading s = {};
        ret = read_sleep_stats(r, &s);
        if (ret < 0) return ret;
        update_sleep_delta(r, &g_lpm.subsys[n], &s);
        ret = append_sleep_part(rec, r, &g_lpm.subsys[n], &s);
        if (ret < 0) return ret;
    }
    return 0;
}

// ---- WLAN: "WCNSS,", sleep time, total on time, sleep-enter counter and timestamp, then their
// four deltas.

// The driver may come and go: the file is searched afresh every period and kept in the WLAN row.
static const char* find_wlan_file(fnode* row) {
    row->path = nullptr;
    for (const char* path : g_wlan_paths) {
        if (access(path, R_OK) == 0) return row->path = path;
    }
    LPM_WLAN_LOGD(" fnode->path==NULL ");
    return nullptr;
}

// Reads the WLAN file into `text`: lines three to six, joined. False when the file cannot be
// read. The file is opened, read whole and closed at once.
static bool read_wlan_stats(const char* path, char* text, size_t size) {
    char node[NODE_BUF_LEN];
    ssize_t got = node_read_path(path, node, sizeof(node));
    if (got < 0) {
        LPM_WLAN_LOGD(" fp==NULL ");
        return false;
    }
    LPM_WLAN_LOGD(" fp!=NULL ");
    char slots[LPM_WLAN_SLOTS][LPM_WLAN_SLOT_LEN] = {};
    lpm_parse_wlan(node, (size_t)got, slots);
    for (int k = LPM_WLAN_FIRST; k < LPM_WLAN_FIRST + LPM_WLAN_FIELDS; k++)
        cat_bounded(text, slots[k], size);
    LPM_WLAN_LOGD(" wcnss_report.size:%d ", (int)strlen(text));
    return true;
}

// Takes sleep time, total on time, sleep-enter counter and timestamp out of the WLAN text.
static void split_wlan_fields(const char* text, char (*fields)[LPM_FIELD_LEN]) {
    blank_split sp;
    split_blank4(text, &sp);
    if (sp.split) {
        TLOGD_FN("extract_wcnss_info", "extract_wcnss_info split 1:%s, 2:%s, 3:%s, 4:%s", sp.tok[0],
                 sp.tok[1], sp.tok[2], sp.tok[3]);
        for (int f = 0; f < LPM_WLAN_FIELDS; f++) copy_bounded(fields[f], sp.tok[f], LPM_FIELD_LEN);
    }
}

static void update_wlan_deltas(const char (*fields)[LPM_FIELD_LEN]) {
    LPM_WLAN_LOGD(" pre_wcnss_sleep_time:%lld ", (long long)g_lpm.wcnss_prev[WCNSS_SLEEP_TIME]);
    LPM_WLAN_LOGD(" sleep_time:%s ", fields[WCNSS_SLEEP_TIME]);
    LPM_WLAN_LOGD(" (unsigned long long)(atoll(sleep_time)):%lld ",
                  (long long)to_u64(fields[WCNSS_SLEEP_TIME]));

    uint64_t* delta = g_lpm.wcnss_delta;
    for (int f = 0; f < LPM_WLAN_FIELDS; f++)
        delta[f] = counter_delta(to_u64(fields[f]), &g_lpm.wcnss_prev[f]);
    LPM_WLAN_LOGD(" wcnss_sleep_time:%lld ", (long long)delta[0]);
    LPM_WLAN_LOGD(" wcnss_total_on_time:%lld ", (long long)delta[1]);
    LPM_WLAN_LOGD(" wcnss_sleep_enter_counter:%lld ", (long long)delta[2]);
    LPM_WLAN_LOGD(" wcnss_sleep_enter_tstamp:%lld ", (long long)delta[3]);
}

// The WLAN part after its label: the joined text and the four deltas.
static int32_t append_wlan_part(record* rec, char* text, size_t size) {
    const uint64_t* delta = g_lpm.wcnss_delta;
    char num[LPM_WLAN_NUM_LEN];
    (void)snprintf(num, sizeof(num), "%lld %lld %lld %lld", (long long)delta[0],
                   (long long)delta[1], (long long)delta[2], (long long)delta[3]);
    cat_bounded(text, " ", size);
    cat_bounded(text, num, size);
    LPM_WLAN_LOGD(" combine wcnss_report:%s ", text);
    return rec->append("%s,", text);
}

// Appends the WLAN part. Returns its length: 0 when there is no WLAN file or text.
static int32_t get_lpm_wcnss_stats(record* rec) {
    fnode* row = &g_fnode_table[FNODE_LPM_BASE + FNODE_LPM_WLAN];
    LPM_HNDL_LOGD(" wcnss use:%d buflen:%d", rec->use, RECORD_BUFLEN);
    LPM_WLAN_LOGD(" fnode->path:%s ", row->path != nullptr ? row->path : "(null)");
    // The row holds no descriptor between calls; drop one that something else left open.
    node_close(&row->fd);

    const char* path = find_wlan_file(row);
    char text[LPM_WLAN_TEXT_LEN] = {};
    if (path == nullptr || !read_wlan_stats(path, text, sizeof(text)) || text[0] == '\0') return 0;

    int32_t label = rec->append("%s", "WCNSS,");
    if (label < 0) return label;
    LPM_WLAN_LOGD(" wcnss_report:%s ", text);
    char fields[LPM_WLAN_FIELDS][LPM_FIELD_LEN] = {};
    split_wlan_fields(text, fields);
    update_wlan_deltas(fields);
    int ret = append_wlan_part(rec, text, sizeof(text));
    int32_t len = ret < 0 ? ret : label + ret;
    LPM_WLAN_LOGD(" ret:%d ", len);
    return len;
}

int32_t collect_lpm_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    record rec(buf, sizeof(buf));
    LPM_HNDL_LOGD(" ret:%d use:%d", 0, 0);
    int32_t ret = rec.append("%s", "LPM,");
    if (ret < 0) return ret;

    ret = get_lpm_cpu_stats(&rec);
    if (ret < 0) return ret;
    ret = get_lpm_rpm_stats(&rec);
    if (ret < 0) return ret;
    ret = get_lpm_wcnss_stats(&rec);
    if (ret < 0) return ret;

    LPM_HNDL_LOGD(" ret:%d use:%d buflen:%d", ret, rec.use, RECORD_BUFLEN);
    rec.report(kpi::LPM);
    return rec.use;
}
