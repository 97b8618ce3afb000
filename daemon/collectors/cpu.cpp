// CPU collector: per cluster (cpufreq policy) the capacity-weighted average frequency over the
// period, the time it covers and the mean utilisation of the cluster's CPUs, one record per
// cluster under KPI 3. Its init also opens every file of the node table for the other
// table-reading collectors, and its exit closes them.
#define TARN_LOG_TAG TAG_POWER

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "collectors/node_parsers.h"
#include "collectors/node_reader.h"
#include "core/kpi_ids.h"
#include "core/tarn_log.h"

#define CPUFREQ_DIR "/sys/devices/system/cpu/cpufreq/"
#define CPU_POSSIBLE_PATH "/sys/devices/system/cpu/possible"

#define CLUSTER_SLOTS 8
#define REPORTED_SLOTS 7  // the eighth slot is opened but never reported
#define MAX_CPUS 8
#define NO_POLICY 2147483647
#define PATH_BUFLEN 4096
#define STAT_LINE_LEN 512

struct cpu_counters {
    uint32_t cpu;
    uint32_t user, nice, system, idle, iowait, irq, softirq;
    uint32_t total;
    uint32_t kept_total, kept_idle, kept_iowait;
};

// What the collector keeps between calls: the topology found at init and the readings that the
// next period's differences are taken from.
struct cpu_kept {
    int32_t cluster[CLUSTER_SLOTS];  // policy numbers, NO_POLICY in unused slots
    uint32_t cpu_min;
    uint32_t cpu_count;
    uint64_t cluster_freq_list[CLUSTER_SLOTS][CPU_FREQ_STEPS];
    int32_t freq_num[CLUSTER_SLOTS];
    uint64_t cluster_cap_list[CLUSTER_SLOTS][CPU_FREQ_STEPS];
    uint64_t cluster_avg_freq[CLUSTER_SLOTS];
    // Cumulative time of each time_in_state line at the previous reading, by line position.
    uint64_t step_time[CLUSTER_SLOTS][CPU_FREQ_STEPS];
    cpu_counters counters[MAX_CPUS];
};

// The state at process start. Until the first init the table holds the marker only in its first
// slot, so a handler call before init visits slot 1 (policy 0), finds no open file and fails.
static cpu_kept cpu_start_state() {
    cpu_kept kept = {};
    kept.cluster[0] = NO_POLICY;
    return kept;
}

static cpu_kept g_cpu = cpu_start_state();

void cpu_reset_kept() {
    g_cpu = cpu_start_state();
}

static int fnode_cpu_row(int slot, int which) {
    return FNODE_CPU_BASE + slot * FNODE_CPU_GROUP_ROWS + which;
}

// The number of a "policy<N>" directory. A name that does not parse, a negative number or one
// that would read as the no-policy marker gives 0.
static int32_t parse_policy_name(const char* name) {
    if (strncmp(name, "policy", 6) != 0) return 0;
    const char* digits = name + 6;
    char* end = nullptr;
    errno = 0;
    long value = strtol(digits, &end, 10);
    if (end == digits || errno != 0 || value < 0 || value >= NO_POLICY) return 0;
    return (int32_t)value;
}

static bool is_directory(DIR* dir, const struct dirent* de) {
    if (de->d_type == DT_DIR) return true;
    if (de->d_type != DT_UNKNOWN && de->d_type != DT_LNK) return false;
    struct stat st;
    return fstatat(dirfd(dir), de->d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
}

static int32_t check_cpufreq_policy_num() {
    DIR* dir = opendir(CPUFREQ_DIR);
    if (dir == nullptr) {
        int err = errno;
        TLOGE("opendir failed [%s] error: %s", CPUFREQ_DIR, strerror(err));
        return -err;
    }
    int32_t scan[CLUSTER_SLOTS] = {0};
    int taken = 0;
    for (struct dirent* de = readdir(dir); de != nullptr; de = readdir(dir)) {
        if (strcmp(de->d_name, ".") == 0 || strcmp(de->d_name, "..") == 0) continue;
        if (!is_directory(dir, de)) continue;
        if (taken >= CLUSTER_SLOTS) {
            TLOGE("too many array entries, i:%d size:%d", CLUSTER_SLOTS, CLUSTER_SLOTS);
            closedir(dir);
            return -EINVAL;
        }
        scan[taken++] = parse_policy_name(de->d_name);
    }
    closedir(dir);

    // Insertion sort: at most eight entries.
    for (int i = 1; i < taken; i++) {
        int32_t v = scan[i];
        int j = i - 1;
        for (; j >= 0 && scan[j] > v; j--) scan[j + 1] = scan[j];
        scan[j + 1] = v;
    }
    for (int i = 0; i < CLUSTER_SLOTS; i++) g_cpu.cluster[i] = i < taken ? scan[i] : NO_POLICY;
    return 0;
}

static int32_t check_cpu_min_max() {
    FILE* fp = node_fopen(CPU_POSSIBLE_PATH);
    if (fp == nullptr) {
        int err = errno;
        TLOGE("Failed to open CPU_PSSIBLE_PATH errno:%s", strerror(err));
        return -err;
    }
    unsigned int min = 0, max = 0;
    int ret = fscanf(fp, "%u-%u", &min, &max);
    TLOGW("CPU min: %u, max: %u ret:%d", min, max, ret);
    g_cpu.cpu_min = min;
    g_cpu.cpu_count = max + 1;
    (void)fclose(fp);
    return 0;
}

static void policy_check_file_path() {
    char path[PATH_BUFLEN];
    for (int slot = 0; slot < CLUSTER_SLOTS; slot++) {
        if (g_cpu.cluster[slot] == NO_POLICY) continue;
        for (int which = 0; which < FNODE_CPU_GROUP_ROWS; which++) {
            // The first group's rows name the files; the same names serve every cluster. A cut
            // path names no node, and its open fails as a missing node's would.
            memset(path, 0, sizeof(path));
            (void)snprintf(path, sizeof(path), CPUFREQ_DIR "policy%d/%s", g_cpu.cluster[slot],
                           g_fnode_table[fnode_cpu_row(0, which)].path);
            TLOGW("filepath:%s", path);
            struct fnode* row = &g_fnode_table[fnode_cpu_row(slot, which)];
            if (row->fp != nullptr) (void)fclose(row->fp);
            row->fp = node_fopen(path);
            if (row->fp == nullptr) TLOGE("fail to open [%s]", path);
        }
    }
}

// Reads the cluster's frequency steps in listed order. Reading stops at the end of the file, at
// the first text that is not a number, or when the list is full; a missing file keeps the list.
static void InitClusterFreqList(int slot) {
    char path[PATH_BUFLEN];
    (void)snprintf(path, sizeof(path), CPUFREQ_DIR "policy%d/scaling_available_frequencies",
                   g_cpu.cluster[slot]);
    char node[NODE_BUF_LEN];
    ssize_t len = node_read_path(path, node, sizeof(node));
    if (len < 0) return;
    int count = cpu_parse_freq_list(node, (size_t)len, g_cpu.cluster_freq_list[slot]);
    for (int n = 0; n < count; n++) {
        unsigned long long value = g_cpu.cluster_freq_list[slot][n];
        TLOGD("InitClusterFreqList cluster_freq_list[%d][%d]:%llu", slot, n,
              (unsigned long long)value);
    }
    g_cpu.freq_num[slot] = count;
}

int cpu_parse_freq_list(const char* data, size_t len, uint64_t* list) {
    mem_stream in = mem_open(data, len);
    int n = 0;
    unsigned long long value = 0;
    while (n < CPU_FREQ_STEPS && mem_scan_ull(&in, &value) == 1) list[n++] = (unsigned int)value;
    return n;
}

// One weight in 1..100 per frequency step: the step's share of the last listed frequency scaled
// by the capacity of the cluster's first CPU (capacity 1024 is the biggest CPU of the system).
static void InitClusterCapacityList(int slot) {
    int n = std::min<int32_t>(g_cpu.freq_num[slot], CPU_FREQ_STEPS);
    uint64_t fmax = n > 0 ? g_cpu.cluster_freq_list[slot][n - 1] : 0;

    char path[PATH_BUFLEN];
    (void)snprintf(path, sizeof(path), "/sys/devices/system/cpu/cpu%d/cpu_capacity",
                   g_cpu.cluster[slot]);
    FILE* fp = node_fopen(path);
    if (fp == nullptr) return;
    unsigned int capacity = 0;
    if (fscanf(fp, "%u", &capacity) != 1) capacity = 0;
    (void)fclose(fp);

    for (int i = 0; i < n; i++) {
        uint64_t pct = fmax != 0 ? g_cpu.cluster_freq_list[slot][i] * 100 / fmax : 0;
        uint64_t weight = (pct * capacity) >> 10;
        if (weight > 100) weight = 100;
        if (weight < 1) weight = 1;
        g_cpu.cluster_cap_list[slot][i] = weight;
        TLOGD("original cluster:%d freq_num:%d cluster_cap_list[%d][%d]:%llu cap:%llu", slot, i,
              slot, i, (unsigned long long)weight, (unsigned long long)weight);
    }
}

int32_t collect_cpu_stats_init() {
    int32_t ret = check_cpufreq_policy_num();
    if (ret < 0) return ret;
    ret = check_cpu_min_max();
    if (ret < 0) return ret;

    memset(g_cpu.counters, 0, sizeof(g_cpu.counters));
    gpu_reset_kept();

    policy_check_file_path();
    fnode_open_all();

    for (int slot = 0; slot < CLUSTER_SLOTS; slot++) {
        if (g_cpu.cluster[slot] == NO_POLICY) continue;
        InitClusterFreqList(slot);
        InitClusterCapacityList(slot);
    }
    return 0;
}

int32_t collect_cpu_stats_exit() {
    fnode_close_all();
    return 0;
}

uint64_t cpu_parse_time_in_state(int slot, const char* data, size_t len, uint64_t* weighted) {
    mem_stream in = mem_open(data, len);
    uint64_t total = 0;
    *weighted = 0;
    if (slot < 0 || slot >= CLUSTER_SLOTS) return 0;
    for (int j = 0; j < CPU_FREQ_STEPS; j++) {
        // "%llu %llu": frequency and cumulative time; the frequency is matched by position.
        unsigned long long freq = 0, time = 0;
        if (mem_scan_ull(&in, &freq) != 1) break;
        mem_skip_space(&in);
        if (mem_scan_ull(&in, &time) != 1) break;
        uint64_t kept = g_cpu.step_time[slot][j];
        uint64_t delta = time >= kept ? time - kept : time;
        g_cpu.step_time[slot][j] = time;
        total += delta;
        *weighted += g_cpu.cluster_cap_list[slot][j] * delta;
    }
    return total;
}

// The time-weighted average frequency of the cluster since the previous reading, and the time
// it covers. Line j of time_in_state is matched to frequency step j by position; lines beyond
// the room for kept times are not counted.
static int get_cpus_time_in_state(int slot, record* rec) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(fnode_cpu_row(slot, FNODE_CPU_TIME_IN_STATE), node, sizeof(node));
    if (len < 0) {
        TLOGE("fp is Null idx:%d", slot);
        return -EINVAL;
    }
    uint64_t weighted = 0;
    uint64_t total = cpu_parse_time_in_state(slot, node, (size_t)len, &weighted);
    uint64_t avg = total != 0 ? weighted / total : 0;

    int steps = std::min<int32_t>(g_cpu.freq_num[slot], CPU_FREQ_STEPS);
    for (int j = 0; j < steps; j++) {
        if (g_cpu.cluster_cap_list[slot][j] >= avg) {
            g_cpu.cluster_avg_freq[slot] = g_cpu.cluster_freq_list[slot][j];
            break;
        }
    }
    TLOGD("idx:%d cluster_avg_freq[%d]:%llu", slot, slot,
          (unsigned long long)g_cpu.cluster_avg_freq[slot]);
    return rec->append("%llu,%llu,", (unsigned long long)g_cpu.cluster_avg_freq[slot],
                       (unsigned long long)total);
}

// Takes one per-CPU utilisation reading from /proc/stat: for each CPU line the share of the time
// since the previous reading that was neither idle nor iowait, in percent. CPUs without a line
// read 0. Lines are read in pieces of at most STAT_LINE_LEN - 1 bytes, and each piece counts as
// a line.
void cpu_parse_stat(const char* data, size_t len, float* util) {
    for (int i = 0; i < MAX_CPUS; i++) util[i] = 0.0f;
    mem_stream in = mem_open(data, len);
    char line[STAT_LINE_LEN];
    memset(line, 0, sizeof(line));
    if (mem_gets(line, sizeof(line), &in) == nullptr) return;  // the all-CPU line

    uint32_t lines = std::min<uint32_t>(g_cpu.cpu_count, MAX_CPUS);
    for (uint32_t n = 0; n < lines; n++) {
        memset(line, 0, sizeof(line));
        if (mem_gets(line, sizeof(line), &in) == nullptr) break;
        if (strstr(line, "cpu") == nullptr) continue;
        unsigned int cpu = 0;
        if (sscanf(line, "cpu%u", &cpu) != 1) continue;
        if (cpu >= MAX_CPUS) break;

        // Fields the line lacks stay 0.
        unsigned int v[8] = {0};
        (void)sscanf(line, "cpu%u %u %u %u %u %u %u %u", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5],
                     &v[6], &v[7]);
        cpu_counters* c = &g_cpu.counters[cpu];
        c->cpu = v[0];
        c->user = v[1];
        c->nice = v[2];
        c->system = v[3];
        c->idle = v[4];
        c->iowait = v[5];
        c->irq = v[6];
        c->softirq = v[7];
        c->total = c->user + c->nice + c->system + c->idle + c->iowait + c->irq + c->softirq;

        uint32_t d_total = c->total >= c->kept_total ? c->total - c->kept_total : c->total;
        uint32_t d_idle = c->idle >= c->kept_idle ? c->idle - c->kept_idle : c->idle;
        uint32_t d_iowait = c->iowait >= c->kept_iowait ? c->iowait - c->kept_iowait : c->iowait;
        uint32_t busy = d_total >= d_idle ? d_total - d_idle : d_total;
        busy = busy >= d_iowait ? busy - d_iowait : busy;

        util[cpu] = (d_total == 0 || busy > d_total) ? 0.0f : (float)busy * 100.0f / (float)d_total;
        c->kept_total = c->total;
        c->kept_idle = c->idle;
        c->kept_iowait = c->iowait;
    }
}

// Per-call utilisation reading. One reading serves every cluster of a handler call: a fresh
// reading per cluster would leave every later cluster with no time passed.
struct util_reading {
    bool taken;
    float util[MAX_CPUS];
};

// Mean utilisation of the cluster's CPUs: from its policy number up to the next cluster's, or
// its first CPU alone when it is the last cluster. CPUs beyond the eight that are tracked have
// no reading and are left out of the mean.
static int get_cpus_util(int slot, record* rec, util_reading* reading) {
    int32_t cpu_start = g_cpu.cluster[slot];
    int32_t next = g_cpu.cluster[slot + 1];
    int32_t cpu_end = next == NO_POLICY ? cpu_start + 1 : next;

    if (g_fnode_table[FNODE_PROC_STAT].fp == nullptr) {
        TLOGE("PROC_STAT fp is Null");
        return -EINVAL;
    }
    TLOGD("cpu_start [%d] - cpu_end:[%d]", cpu_start, cpu_end);
    if (!reading->taken) {
        char node[NODE_BUF_LEN];
        ssize_t len = fnode_read(FNODE_PROC_STAT, node, sizeof(node));
        cpu_parse_stat(node, len > 0 ? (size_t)len : 0, reading->util);
        reading->taken = true;
    }

    int32_t lo = std::max<int32_t>(cpu_start, 0);
    int32_t hi = std::min<int32_t>(cpu_end, MAX_CPUS);
    float sum = 0.0f;
    int count = 0;
    for (int32_t cpu = lo; cpu < hi; cpu++) {
        sum += reading->util[cpu];
        count++;
    }
    float mean = count > 0 ? sum / (float)count : 0.0f;
    return rec->append("%.2f,", mean);
}

int32_t collect_cpu_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    record rec(buf, sizeof(buf));
    int32_t result = 0;
    util_reading reading = {};

    TLOGD("get_cpu_stats ret:%d use:%d", 0, 0);
    for (int slot = 0; slot < REPORTED_SLOTS; slot++) {
        if (g_cpu.cluster[slot] == NO_POLICY) continue;

        rec.clear();
        int ret = rec.append("policy%d,", g_cpu.cluster[slot]);
        if (ret < 0) return ret;

        int32_t use = rec.use;
        ret = get_cpus_time_in_state(slot, &rec);
        TLOGD("get_cpus_time_in_state() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
        if (ret < 0) return ret;

        use = rec.use;
        ret = get_cpus_util(slot, &rec, &reading);
        TLOGD("get_cpus_util() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
        if (ret < 0) return ret;

        rec.report(kpi::CPUFREQ);
        result = rec.use;
    }
    return result;
}
