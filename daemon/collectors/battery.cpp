// Battery collector: charge level, voltage, current, temperature and charging status from the
// battery's power-supply uevent file, one record per period under KPI 2.
#define TARN_LOG_TAG TAG_BATTERY

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "collectors/node_parsers.h"
#include "collectors/node_reader.h"
#include "core/kpi_ids.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

#define BATTERY_UEVENT_PATH "/sys/class/power_supply/battery/uevent"

static FILE* g_battery_fp = nullptr;

int32_t collect_battery_stats_init() {
    if (g_battery_fp != nullptr) return 0;
    g_battery_fp = node_fopen(BATTERY_UEVENT_PATH);
    return g_battery_fp != nullptr ? 0 : -1;
}

int32_t collect_battery_stats_exit() {
    if (g_battery_fp != nullptr) {
        (void)fclose(g_battery_fp);
        g_battery_fp = nullptr;
    }
    return 0;
}

// Reads one "KEY=VALUE" line: the key is the text before the first '=', the value the rest of
// the line. Leading white space (blank lines included) is skipped. Each field keeps at most
// BATTERY_FIELD_LEN - 1 characters and the rest of an overlong key or value is dropped, so a
// long line never spills into the next read. A line without '=' yields an empty value. Returns
// false at end of file with nothing read; every other call consumes at least one character, so
// the caller's loop always reaches the end of the file.
static bool read_uevent_line(mem_stream* in, char* key, char* value) {
    int c;
    do {
        c = mem_getc(in);
    } while (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f');
    if (c == EOF) return false;

    size_t n = 0;
    while (c != EOF && c != '=' && c != '\n') {
        if (n < BATTERY_FIELD_LEN - 1) key[n++] = (char)c;
        c = mem_getc(in);
    }
    key[n] = '\0';

    n = 0;
    if (c == '=') {
        for (c = mem_getc(in); c != EOF && c != '\n'; c = mem_getc(in)) {
            if (n < BATTERY_FIELD_LEN - 1) value[n++] = (char)c;
        }
    }
    value[n] = '\0';
    return true;
}

void battery_parse_uevent(const char* data, size_t len, battery_fields* out) {
    char key[BATTERY_FIELD_LEN] = {0};
    char value[BATTERY_FIELD_LEN] = {0};
    mem_stream in = mem_open(data, len);
    // A key cut to the field is longer than every name below, so it matches none of them.
    while (read_uevent_line(&in, key, value)) {
        if (strcmp(key, "POWER_SUPPLY_VOLTAGE_NOW") == 0) {
            out->voltage = atoi(value);
        } else if (strcmp(key, "POWER_SUPPLY_CURRENT_NOW") == 0) {
            out->current = atoi(value);
        } else if (strcmp(key, "POWER_SUPPLY_TEMP") == 0) {
            out->temperature = atoi(value);
        } else if (strcmp(key, "POWER_SUPPLY_CAPACITY") == 0) {
            out->capacity = atoi(value);
        } else if (strcmp(key, "POWER_SUPPLY_STATUS") == 0) {
            (void)snprintf(out->status, sizeof(out->status), "%s", value);
        }
    }
}

int32_t collect_battery_stats_hndl(uint64_t) {
    battery_fields f;
    memset(&f, 0, sizeof(f));
    char text[BATTERY_FIELD_LEN] = {0};

    if (g_battery_fp == nullptr) return 0;
    char node[NODE_BUF_LEN];
    ssize_t len = node_pread(fileno(g_battery_fp), node, sizeof(node));
    battery_parse_uevent(node, len > 0 ? (size_t)len : 0, &f);

    TLOGD(
        "collect_battery_stats_hndl voltage:%d current:%d temperature:%d capacity:%d "
        "status:%s",
        f.voltage, f.current, f.temperature, f.capacity, f.status);

    // Not a record built by appends: one bounded format into a short buffer, whose status field
    // can be longer than the buffer. The record is cut there and the result is the uncut length.
    int ret = snprintf(text, sizeof(text), "%s,%d,%d,%d,%d,%s", "battery", f.capacity, f.voltage,
                       f.current, f.temperature, f.status);
    uint32_t len_out = ret < 0 ? 0 : (uint32_t)strlen(text);
    PowerZELHelper::getInstance()->log_blob(kpi::BATTERY_STAT, text, len_out);
    return ret;
}
