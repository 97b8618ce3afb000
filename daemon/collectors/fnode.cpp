#define TARN_LOG_TAG TAG_POWER

#include "collectors/fnode.h"

#include <errno.h>
#include <string.h>

#include "collectors/node_parsers.h"
#include "collectors/node_reader.h"
#include "core/tarn_log.h"

#define CPU_ROW(path) \
    { 3, nullptr, path }
#define NO_PATH(type) \
    { type, nullptr, nullptr }
#define ROW(type, path) \
    { type, nullptr, path }
#define NO_PATH_GROUP NO_PATH(3), NO_PATH(3), NO_PATH(3), NO_PATH(3)
#define NO_PATH_GROUPS_4 NO_PATH_GROUP, NO_PATH_GROUP, NO_PATH_GROUP, NO_PATH_GROUP

struct fnode g_fnode_table[FNODE_COUNT] = {
    CPU_ROW("scaling_cur_freq"),
    CPU_ROW("related_cpus"),
    CPU_ROW("stats/time_in_state"),
    CPU_ROW("stats/trans_table"),
    // The other seven groups carry no path; the CPU collector sets their streams.
    NO_PATH_GROUPS_4,
    NO_PATH_GROUP,
    NO_PATH_GROUP,
    NO_PATH_GROUP,
    // The last 32 rows of room for CPU rows are not used.
    NO_PATH_GROUPS_4,
    NO_PATH_GROUPS_4,
    ROW(3, "/proc/stat"),
    NO_PATH(0),
    ROW(4, "/sys/class/gfxd/gfxd-3d0/devfreq/cur_freq"),
    ROW(4, "/sys/class/gfxd/gfxd-3d0/devfreq/trans_stat"),
    ROW(4, "/sys/class/gfxd/gfxd-3d0/gpubusy"),
    ROW(5, "/sys/devices/system/cpu/bus_dcvs/DDR/cur_freq"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd0/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd1/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd2/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd3/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd4/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd5/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd6/idle_states"),
    ROW(6, "/sys/kernel/debug/pm_genpd/cpu-pd7/idle_states"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/adsp"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/adsp_island"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/aosd"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/apss"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/cdsp"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/cxsd"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/ddr"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/modem"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/slpi"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/slpi_island"),
    ROW(6, "/sys/kernel/debug/kelv_sleep_stats/ddr_stats"),
    NO_PATH(6),
    ROW(8, "/sys/class/backlight/panel0-backlight/brightness"),
    ROW(9, "/sys/devices/platform/soc/ae00000.kelv,vdss_mdp/drm/card0/dpx-crtc-0/measured_fps"),
};

void fnode_open_all() {
    // The CPU rows hold names relative to a policy directory; the CPU collector opens those.
    for (int i = FNODE_PROC_STAT; i < FNODE_COUNT; i++) {
        if (g_fnode_table[i].path != nullptr && g_fnode_table[i].fp == nullptr) {
            g_fnode_table[i].fp = node_fopen(g_fnode_table[i].path);
        }
    }
}

void fnode_close_all() {
    for (int i = 0; i < FNODE_COUNT; i++) {
        if (g_fnode_table[i].fp != nullptr) {
            (void)fclose(g_fnode_table[i].fp);
            g_fnode_table[i].fp = nullptr;
        }
    }
}

ssize_t fnode_read(int index, char* buf, size_t size) {
    if (index < 0 || index >= FNODE_COUNT || g_fnode_table[index].fp == nullptr) return -EINVAL;
    ssize_t n = node_pread(fileno(g_fnode_table[index].fp), buf, size);
    return n < 0 ? 0 : n;
}

uint32_t node_parse_u32(const char* data, size_t len) {
    mem_stream in = mem_open(data, len);
    unsigned long long value = 0;
    return mem_scan_ull(&in, &value) == 1 ? (uint32_t)value : 0;
}

int append_node_u32(int index, const char* step, const char* label, record* rec) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(index, node, sizeof(node));
    if (len < 0) {
        TLOGD_FN(step, "%s() if !fp ", step);
        return -EINVAL;
    }
    uint64_t value = node_parse_u32(node, (size_t)len);
    TLOGD_FN(step, "%s() %s:%d ", step, label, (int)value);
    int ret = rec->append("%lu,", (unsigned long)value);
    TLOGD_FN(step, "%s() ret:%d ", step, ret);
    return ret;
}

int32_t report_node_value(const char* hndl, const char* closing, const char* tag, int32_t kpi_id,
                          node_value_step step) {
    char buf[RECORD_BUFLEN];
    record rec(buf, sizeof(buf));
    int ret = rec.append("%s", tag);
    if (ret < 0) return ret;

    int32_t use = rec.use;
    ret = step(&rec);
    TLOGD_FN(hndl, "%s() ret:%d use:%d buflen:%d", closing, ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;

    rec.report(kpi_id);
    return rec.use;
}
