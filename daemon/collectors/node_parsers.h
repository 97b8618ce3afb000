// The collectors' parsers of node content: each takes the bytes that a read of the node gave and
// parses them as the collector's stream reads would, line pieces and conversions alike. Parsers
// of counters update the collector's kept values, as a handler call would.
#pragma once

#include <stddef.h>
#include <stdint.h>

// CPU: the "%u-%u" scan of the possible-CPU list; scanf's result, with the first and last CPU.
int cpu_parse_possible(const char* data, size_t len, unsigned int* min, unsigned int* max);

// Battery: the fields of the power-supply uevent file.
#define BATTERY_FIELD_LEN 100
struct battery_fields {
    int32_t voltage;
    int32_t current;
    int32_t temperature;
    int32_t capacity;
    char status[BATTERY_FIELD_LEN];
};
// Reads "KEY=VALUE" lines and fills the fields of the five known keys; the others are left.
void battery_parse_uevent(const char* data, size_t len, battery_fields* out);

// One unsigned decimal read with "%u" (DDR, brightness, GPU frequency): 0 when the text is not
// a number.
uint32_t node_parse_u32(const char* data, size_t len);

// CPU: a cluster's scaling_available_frequencies read with "%u" into `list` (room for
// CPU_FREQ_STEPS values) until the text ends, holds no number or the list is full: returns the
// number of values.
#define CPU_FREQ_STEPS 128
int cpu_parse_freq_list(const char* data, size_t len, uint64_t* list);
// CPU: time_in_state of the cluster in `slot` as "%llu %llu" pairs: returns the time passed
// since the previous reading and sets `weighted` to its capacity-weighted sum.
uint64_t cpu_parse_time_in_state(int slot, const char* data, size_t len, uint64_t* weighted);
// CPU: one utilisation reading per CPU (eight values) from /proc/stat, read in 512-byte line
// pieces.
void cpu_parse_stat(const char* data, size_t len, float* util);

// GPU: the residency of `cur_freq` from the transition table, read in 1024-byte line pieces: the
// growth of its row's time since the GPU was last seen at it, 0 when unknown.
uint64_t gpu_parse_trans_stat(const char* data, size_t len, uint64_t cur_freq);
// GPU: the gpubusy node read with "%u %u": the scan's result (2, 1, 0 or EOF).
int gpu_parse_busy(const char* data, size_t len, unsigned* busy, unsigned* total);

// Frame rate: the rate of the node's last 1024-byte line piece.
double fps_parse(const char* data, size_t len);

// Low-power modes, each read in 1024-byte line pieces.
#define LPM_LINE_LEN 1024
#define LPM_RPM_SLOTS 5
#define LPM_RPM_SLOT_LEN 30
#define LPM_WLAN_SLOTS 7
#define LPM_WLAN_SLOT_LEN 50
// The last line piece without its newline, in `line` (LPM_LINE_LEN bytes); left as it was when
// there is none.
void lpm_parse_last_line(const char* data, size_t len, char* line);
// The values after "=" of the first five line pieces of a subsystem's file (LPM row `row`).
void lpm_parse_sleep_stats(const char* data, size_t len, int row, char (*slots)[LPM_RPM_SLOT_LEN]);
// The values after ":" of the first seven line pieces of the WLAN statistics.
void lpm_parse_wlan(const char* data, size_t len, char (*slots)[LPM_WLAN_SLOT_LEN]);

// Thermal: the scans of a zone's or cooling device's node, with scanf's results (1, 0 or EOF);
// a destination keeps its value unless the conversion succeeds.
int thermal_parse_i32(const char* data, size_t len, int32_t* value);          // "%d"
int thermal_parse_ulong(const char* data, size_t len, unsigned long* value);  // "%lu"
int thermal_parse_ll(const char* data, size_t len, long long* value);         // "%lld"
// A type name, "%1023s%c": 0 with the name in `name` (1024 bytes), or -1 when the node holds no
// name or one too long for the buffer.
int thermal_parse_type(const char* data, size_t len, char* name);
