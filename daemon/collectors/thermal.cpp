// Thermal collector: the highest cooling state per group of cooling devices (KPI 1001), the
// highest temperature per group of thermal zones plus the skin thermistors and the battery
// current (KPI 1000), and the clocks of three CPUs, the GPU and DDR (KPI 1002).
//
// Init matches every zone and cooling-device type once against the group tables and marks the
// indices of interest; the handler reads only marked nodes. Every node is opened and closed at
// each reading.
#define TARN_LOG_TAG TAG_THERMAL

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "collectors.h"
#include "device_root.h"
#include "kpi_ids.h"
#include "node_parsers.h"
#include "node_reader.h"
#include "record.h"
#include "tarn_log.h"
#include "thermal_groups.h"
#include "thermal_profile.h"

#define THERMAL_CLASS_DIR "/sys/devices/virtual/thermal"
#define THERMAL_ZONE_PREFIX THERMAL_CLASS_DIR "/thermal_zone"
#define THERMAL_COOLING_PREFIX THERMAL_CLASS_DIR "/cooling_device"
#define THERMAL_BATTERY_CURRENT "/sys/class/power_supply/battery/current_now"
#define THERMAL_CPU_PREFIX "/sys/devices/system/cpu/cpu"
#define THERMAL_GPU_CLOCK "/sys/class/gfxd/gfxd-3d0/gpuclk"
#define THERMAL_DDR_CLOCK "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure"

#define THERMAL_NAME_LEN 1024
static_assert(THERMAL_NAME_LEN == THERMAL_TYPE_LEN, "one buffer size for type names");
#define THERMAL_PATH_LEN DEVICE_PATH_LEN
#define THERMAL_NODE_LEN 4096
#define THERMAL_RECORD_LEN 16384
#define THERMAL_CLOCK_RECORD_LEN 4096

// A marked zone or cooling device: its temp or cur_state path and its type path.
struct thermal_node {
    char value_path[THERMAL_PATH_LEN];
    char type_path[THERMAL_PATH_LEN];
};

struct thermal_state {
    int32_t num_cpu;
    int32_t num_tz;  // subdirectories of the class directory: zones and cooling devices together
    int32_t num_cfg_node;
    int32_t num_sensor;   // one past the highest zone index whose type could be read
    int32_t num_cooling;  // cooling indices tried at init
    int32_t* zone_marks;  // num_tz entries: 1 for a zone of some group, else -1
    int32_t* cooling_marks;
    thermal_zone_group* zone_groups;  // null until init attaches the tables
    int32_t num_zone_groups;
    thermal_cooling_group* cooling_groups;
    int32_t num_cooling_groups;
    // The marked zones and cooling devices in index order, with their paths built at init.
    thermal_node* zones;
    int32_t num_zones;
    thermal_node* coolings;
    int32_t num_coolings;
    // Exact type names of the zones that give the skin temperature: the first while it reads
    // non-zero, else the second (none when null).
    const char* skin_first = "quiet-therm";
    const char* skin_second = "skin-vqm-therm";
};

static thermal_state g_thermal;
// The device profile's tables, attached instead of the built-in ones when a profile is installed.
static thermal_profile g_thermal_profile;

// The CPUs whose clock goes into the clock record (0, 6 and 7) and their nodes.
static const struct {
    int32_t cpu;
    const char* path;
} kClockCpus[] = {
    {0, THERMAL_CPU_PREFIX "0/cpufreq/scaling_cur_freq"},
    {6, THERMAL_CPU_PREFIX "6/cpufreq/scaling_cur_freq"},
    {7, THERMAL_CPU_PREFIX "7/cpufreq/scaling_cur_freq"},
};
#define THERMAL_CLOCK_CPUS (sizeof(kClockCpus) / sizeof(kClockCpus[0]))

// The collector's paths under the root of its init.
struct thermal_paths {
    char class_dir[DEVICE_PATH_LEN];
    char zone_prefix[DEVICE_PATH_LEN];
    char cooling_prefix[DEVICE_PATH_LEN];
    char battery_current[DEVICE_PATH_LEN];
    char cpu_clock[THERMAL_CLOCK_CPUS][DEVICE_PATH_LEN];
    char gpu_clock[DEVICE_PATH_LEN];
    char ddr_clock[DEVICE_PATH_LEN];
};
static thermal_paths g_thermal_paths;

static void thermal_build_paths(const char* root) {
    thermal_paths& p = g_thermal_paths;
    device_path(p.class_dir, sizeof(p.class_dir), root, THERMAL_CLASS_DIR);
    device_path(p.zone_prefix, sizeof(p.zone_prefix), root, THERMAL_ZONE_PREFIX);
    device_path(p.cooling_prefix, sizeof(p.cooling_prefix), root, THERMAL_COOLING_PREFIX);
    device_path(p.battery_current, sizeof(p.battery_current), root, THERMAL_BATTERY_CURRENT);
    for (size_t i = 0; i < THERMAL_CLOCK_CPUS; i++) {
        device_path(p.cpu_clock[i], sizeof(p.cpu_clock[i]), root, kClockCpus[i].path);
    }
    device_path(p.gpu_clock, sizeof(p.gpu_clock), root, THERMAL_GPU_CLOCK);
    device_path(p.ddr_clock, sizeof(p.ddr_clock), root, THERMAL_DDR_CLOCK);
}

// Opens `path`, reads it in one go, closes it and runs `scan` over its bytes (data, length) once.
// Returns 0, -1 when the node cannot be opened, or the scan's negative result when the node held
// nothing to scan (end of file or a read error). A scan that converts nothing is a read that
// worked: the destination keeps what it held.
template <typename Scan>
static int32_t thermal_scan_node(const char* path, Scan scan) {
    char buf[THERMAL_NODE_LEN];
    ssize_t len = node_read_path(path, buf, sizeof(buf));
    if (len < 0) return -1;
    // A plain end of file has no error of its own: report it as a node without data.
    int err = errno != 0 ? errno : ENODATA;
    int ret = scan(buf, (size_t)len);
    if (ret < 0) {
        TLOGE_FN("thermal_scan_node", "scan node error %s: %s\n", path, strerror(err));
        return ret;
    }
    return 0;
}

static int scan_i32(mem_stream* in, int32_t* value) {
    long long v = 0;
    int ret = mem_scan_ll(in, &v);
    if (ret == 1) *value = (int32_t)v;
    return ret;
}

static int scan_ulong(mem_stream* in, unsigned long* value) {
    unsigned long long v = 0;
    int ret = mem_scan_ull(in, &v);
    if (ret == 1) *value = (unsigned long)v;
    return ret;
}

// "%1023s%c": the name and the byte after it ('\0' when there is none).
static int scan_type(mem_stream* in, char* name, char* next) {
    int ret = mem_scan_word(in, name, THERMAL_NAME_LEN - 1);
    if (ret != 1) return ret;
    int c = mem_getc(in);
    if (c == EOF) return 1;
    *next = (char)c;
    return 2;
}

#define TYPE_EMPTY (-1)
#define TYPE_TOO_LONG (-2)

// What a type scan gave: 0 for a name, TYPE_EMPTY when there is none, TYPE_TOO_LONG when the name
// did not fit into the buffer. A name that does not fit counts as unreadable: matching only its
// beginning could put the node into the wrong group (a cut-off "_kr" suffix, for one).
static int type_verdict(const char* name, char next) {
    if (name[0] == '\0') return TYPE_EMPTY;
    if (next != '\0' && !isspace(static_cast<unsigned char>(next))) return TYPE_TOO_LONG;
    return 0;
}

int thermal_parse_i32(const char* data, size_t len, int32_t* value) {
    mem_stream in = mem_open(data, len);
    return scan_i32(&in, value);
}

int thermal_parse_ulong(const char* data, size_t len, unsigned long* value) {
    mem_stream in = mem_open(data, len);
    return scan_ulong(&in, value);
}

int thermal_parse_ll(const char* data, size_t len, long long* value) {
    mem_stream in = mem_open(data, len);
    return mem_scan_ll(&in, value);
}

int thermal_parse_type(const char* data, size_t len, char* name) {
    char next = '\0';
    name[0] = '\0';
    mem_stream in = mem_open(data, len);
    if (scan_type(&in, name, &next) < 0) return -1;
    return type_verdict(name, next) == 0 ? 0 : -1;
}

// Reads the one-word type name of a zone or cooling device into `name`.
static int32_t thermal_read_type(const char* path, char (&name)[THERMAL_NAME_LEN]) {
    char next = '\0';
    name[0] = '\0';
    int32_t ret = thermal_scan_node(path, [&](const char* data, size_t len) {
        mem_stream in = mem_open(data, len);
        return scan_type(&in, name, &next);
    });
    if (ret < 0) return ret;
    int verdict = type_verdict(name, next);
    if (verdict == TYPE_TOO_LONG) TLOGE("type name too long in %s\n", path);
    return verdict == 0 ? 0 : -1;
}

// Number of directories in the thermal class directory, "." and ".." excluded; 0 when it cannot
// be opened or lists fewer than two directories.
static int32_t thermal_count_nodes() {
    DIR* dir = opendir(g_thermal_paths.class_dir);
    if (dir == nullptr) return 0;
    int32_t count = 0;
    struct dirent* de;
    while ((de = readdir(dir)) != nullptr) {
        bool is_dir = de->d_type == DT_DIR;
        if (de->d_type == DT_UNKNOWN) {
            struct stat st;
            is_dir = fstatat(dirfd(dir), de->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                     S_ISDIR(st.st_mode);
        }
        if (is_dir) count++;
    }
    closedir(dir);
    return count >= 2 ? count - 2 : 0;
}

static void thermal_free_marks() {
    free(g_thermal.zone_marks);
    free(g_thermal.cooling_marks);
    free(g_thermal.zones);
    free(g_thermal.coolings);
    g_thermal.zone_marks = nullptr;
    g_thermal.cooling_marks = nullptr;
    g_thermal.zones = nullptr;
    g_thermal.coolings = nullptr;
    g_thermal.num_zones = 0;
    g_thermal.num_coolings = 0;
}

// The paths of the indices below `count` that `marks` marks, built once so that the handler
// reads them without formatting a path: "<prefix><i>/<value>" and "<prefix><i>/type".
static thermal_node* thermal_mark_paths(const int32_t* marks, int32_t count, const char* prefix,
                                        const char* value, int32_t* num) {
    *num = 0;
    int32_t marked = 0;
    for (int32_t i = 0; i < count; i++) marked += marks[i] == 1;
    size_t n = marked > 0 ? static_cast<size_t>(marked) : 1;
    thermal_node* nodes = static_cast<thermal_node*>(calloc(n, sizeof(thermal_node)));
    if (nodes == nullptr) return nullptr;
    for (int32_t i = 0; i < count; i++) {
        if (marks[i] != 1) continue;
        thermal_node* node = &nodes[(*num)++];
        // A cut path names no node; reading it fails as a missing node's would.
        (void)snprintf(node->value_path, sizeof(node->value_path), "%s%d/%s", prefix, i, value);
        (void)snprintf(node->type_path, sizeof(node->type_path), "%s%d/type", prefix, i);
    }
    return nodes;
}

static int32_t* thermal_alloc_marks(int32_t count) {
    // At least one entry, so that an empty class directory still initialises.
    size_t n = count > 0 ? static_cast<size_t>(count) : 1;
    int32_t* marks = static_cast<int32_t*>(malloc(n * sizeof(int32_t)));
    if (marks != nullptr) {
        for (size_t i = 0; i < n; i++) marks[i] = -1;
    }
    return marks;
}

// Marks the zones and cooling devices whose types belong to a group.
static void thermal_zone_device_init() {
    char path[THERMAL_PATH_LEN + 16];  // a prefix, an index and "/type"
    char name[THERMAL_NAME_LEN];

    for (int32_t i = 0; i < g_thermal.num_tz; i++) {
        (void)snprintf(path, sizeof(path), "%s%d/type", g_thermal_paths.zone_prefix, i);
        if (thermal_read_type(path, name) != 0) continue;
        TLOGD("thermal zone name %s\n", name);
        if (thermal_match_zone(g_thermal.zone_groups, g_thermal.num_zone_groups, name) >= 0 ||
            strcmp(name, g_thermal.skin_first) == 0)
            g_thermal.zone_marks[i] = 1;
        else
            TLOGD("thermal zone %s matches no group\n", name);
        g_thermal.num_sensor = i + 1;
    }

    for (int32_t i = 0; i < g_thermal.num_tz; i++) {
        (void)snprintf(path, sizeof(path), "%s%d/type", g_thermal_paths.cooling_prefix, i);
        if (thermal_read_type(path, name) == 0) {
            thermal_cooling_mark_name(name);
            TLOGD("cooling name %s\n", name);
            if (thermal_match_cooling(g_thermal.cooling_groups, g_thermal.num_cooling_groups,
                                      name) >= 0)
                g_thermal.cooling_marks[i] = 1;
            else
                TLOGD("cooling device %s matches no group\n", name);
        }
        g_thermal.num_cooling = i + 1;
    }

    TLOGD("num sensor %d, num cooling %d\n", g_thermal.num_sensor, g_thermal.num_cooling);
}

void thermal_reset_kept() {
    thermal_free_marks();
    g_thermal = thermal_state();
}

int32_t collect_thermal_stats_init(const char* root) {
    thermal_reset_kept();
    thermal_build_paths(root);
    long ncpu = sysconf(_SC_NPROCESSORS_CONF);
    g_thermal.num_cpu = ncpu > 0 ? static_cast<int32_t>(ncpu) : 0;
    g_thermal.num_tz = thermal_count_nodes();

    g_thermal.zone_groups = g_thermal_zone_groups;
    g_thermal.num_zone_groups = THERMAL_ZONE_GROUPS;
    g_thermal.cooling_groups = g_thermal_cooling_groups;
    g_thermal.num_cooling_groups = THERMAL_COOLING_GROUPS;
    char profile_path[DEVICE_PATH_LEN];
    device_path(profile_path, sizeof(profile_path), root, THERMAL_PROFILE_PATH);
    if (thermal_profile_load(profile_path, &g_thermal_profile) > 0) {
        g_thermal.zone_groups = g_thermal_profile.zone;
        g_thermal.cooling_groups = g_thermal_profile.cooling;
        if (g_thermal_profile.skin != nullptr) {
            g_thermal.skin_first = g_thermal_profile.skin;
            g_thermal.skin_second = nullptr;
        }
    }

    g_thermal.zone_marks = thermal_alloc_marks(g_thermal.num_tz);
    g_thermal.cooling_marks = thermal_alloc_marks(g_thermal.num_tz);
    if (g_thermal.zone_marks == nullptr || g_thermal.cooling_marks == nullptr) return -1;

    thermal_zone_device_init();
    g_thermal.zones = thermal_mark_paths(g_thermal.zone_marks, g_thermal.num_sensor,
                                         g_thermal_paths.zone_prefix, "temp", &g_thermal.num_zones);
    g_thermal.coolings =
        thermal_mark_paths(g_thermal.cooling_marks, g_thermal.num_tz,
                           g_thermal_paths.cooling_prefix, "cur_state", &g_thermal.num_coolings);
    if (g_thermal.zones == nullptr || g_thermal.coolings == nullptr) return -1;

    TLOGD("num_tz %d, num_cpu %d, num_cfg_node = %d\n", g_thermal.num_tz, g_thermal.num_cpu,
          g_thermal.num_cfg_node);
    return 0;
}

int32_t collect_thermal_stats_exit() {
    thermal_free_marks();
    return 0;
}

static void thermal_collect_cooling_device_hndl() {
    char buf[THERMAL_RECORD_LEN];
    record rec(buf, sizeof(buf), TAG_THERMAL);
    char type[THERMAL_NAME_LEN];
    thermal_cooling_group* groups = g_thermal.cooling_groups;
    int32_t ngroups = g_thermal.num_cooling_groups;

    for (int32_t g = 0; g < ngroups; g++) groups[g].value = 0;

    // One state for the whole part: a device whose cur_state holds no number keeps the state read
    // for the device before it.
    unsigned long state = 0;
    for (int32_t n = 0; n < g_thermal.num_coolings; n++) {
        const thermal_node* node = &g_thermal.coolings[n];
        if (thermal_scan_node(node->value_path, [&](const char* data, size_t len) {
                return thermal_parse_ulong(data, len, &state);
            }) != 0) {
            TLOGE("read cooling state error\n");
            state = 0;
        }
        if (thermal_read_type(node->type_path, type) != 0) continue;

        // The raw type, comma and all, decides the group here.
        int g = thermal_match_cooling(groups, ngroups, type);
        if (g < 0) continue;
        int32_t value = static_cast<int32_t>(state);
        if (value > groups[g].value) groups[g].value = value;
    }

    for (int32_t g = 0; g < ngroups; g++) {
        if (rec.append("%s: %d,", groups[g].name, groups[g].value) < 0) return;
    }

    TLOGD("cooling type is %s\n", rec.buf);
    rec.report(kpi::THERMAL_COOLING);
}

static void thermal_collect_thermalzone_hndl() {
    char buf[THERMAL_RECORD_LEN];
    record rec(buf, sizeof(buf), TAG_THERMAL);
    char type[THERMAL_NAME_LEN];
    int32_t quiet_temp = 0;
    int32_t skin_temp = 0;
    thermal_zone_group* groups = g_thermal.zone_groups;
    int32_t ngroups = g_thermal.num_zone_groups;

    for (int32_t g = 0; g < ngroups; g++) groups[g].value = 0;

    // One temperature for the whole part: a zone whose temp holds no number keeps the temperature
    // read for the zone before it.
    int32_t temp = 0;
    for (int32_t n = 0; n < g_thermal.num_zones; n++) {
        const thermal_node* node = &g_thermal.zones[n];
        if (thermal_scan_node(node->value_path, [&](const char* data, size_t len) {
                return thermal_parse_i32(data, len, &temp);
            }) != 0) {
            TLOGE("read temp error\n");
            temp = 0;
        }
        if (thermal_read_type(node->type_path, type) != 0) continue;

        if (strcmp(type, g_thermal.skin_first) == 0)
            quiet_temp = temp;
        else if (g_thermal.skin_second != nullptr && strcmp(type, g_thermal.skin_second) == 0)
            skin_temp = temp;

        int g = thermal_match_zone(groups, ngroups, type);
        if (g < 0) continue;
        if (strcmp(groups[g].name, THERMAL_MISC_SKIN) == 0) {
            // Skin and board thermistors are reported one by one, in zone order.
            if (rec.append("%s: %d,", type, temp) < 0) return;
        } else if (temp > groups[g].value) {
            groups[g].value = temp;
        }
    }

    for (int32_t g = 0; g < ngroups; g++) {
        if (strcmp(groups[g].name, THERMAL_MISC_SKIN) == 0) {
            TLOGD("thmzone type %s no need update\n", groups[g].name);
            continue;
        }
        if (rec.append("%s: %d,", groups[g].name, groups[g].value) < 0) return;
    }

    if (rec.append("skin-temp: %d,", quiet_temp != 0 ? quiet_temp : skin_temp) < 0) return;

    long long current = 0;
    if (thermal_scan_node(g_thermal_paths.battery_current, [&](const char* data, size_t len) {
            return thermal_parse_ll(data, len, &current);
        }) == 0) {
        if (rec.append("current:%lld,", current / 1000) < 0) return;
    }

    TLOGD("thermal zone therm_buf is %s\n", rec.buf);
    rec.report(kpi::THERMAL_ZONE);
}

static void thermal_collect_cpu_info_hndl() {
    char buf[THERMAL_CLOCK_RECORD_LEN];
    record rec(buf, sizeof(buf), TAG_THERMAL);

    for (size_t i = 0; i < THERMAL_CLOCK_CPUS; i++) {
        unsigned long freq = 0;
        if (thermal_scan_node(g_thermal_paths.cpu_clock[i], [&](const char* data, size_t len) {
                return thermal_parse_ulong(data, len, &freq);
            }) != 0)
            continue;
        if (rec.append("CPU%d_freq:%d,", kClockCpus[i].cpu, static_cast<int32_t>(freq)) < 0) return;
    }

    unsigned long hz = 0;
    if (thermal_scan_node(g_thermal_paths.gpu_clock, [&](const char* data, size_t len) {
            return thermal_parse_ulong(data, len, &hz);
        }) == 0) {
        if (rec.append("GPU(MHz):%d,", static_cast<int32_t>(hz / 1000000)) < 0) return;
    }
    hz = 0;
    if (thermal_scan_node(g_thermal_paths.ddr_clock, [&](const char* data, size_t len) {
            return thermal_parse_ulong(data, len, &hz);
        }) == 0) {
        if (rec.append("DDR(MHz):%d,", static_cast<int32_t>(hz / 1000000)) < 0) return;
    }

    TLOGD("cpu gpu ddr freq is %s\n", rec.buf);
    rec.report(kpi::THERMAL_CPUINFO);
}

int32_t collect_thermal_stats_hndl(uint64_t flag) {
    if (flag_selects(flag, THERMAL_FLAG_ALL, THERMAL_FLAG_COOLING))
        thermal_collect_cooling_device_hndl();
    if (flag_selects(flag, THERMAL_FLAG_ALL, THERMAL_FLAG_ZONE)) thermal_collect_thermalzone_hndl();
    if (flag_selects(flag, THERMAL_FLAG_ALL, THERMAL_FLAG_CPUINFO)) thermal_collect_cpu_info_hndl();
    return 0;
}
