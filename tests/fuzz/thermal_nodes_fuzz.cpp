// Thermal node texts through the thermal collector's scans and type matching: the value scans give
// what the C library's "%d", "%lu" and "%lld" give on the same bytes; a type name that is taken
// is the word that "%1023s%c" takes, fits its buffer and ends at white space or the end; and a
// name belongs to the first group, in table order, with a match string inside it.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "node_fuzz.h"
#include "node_parsers.h"
#include "thermal_groups.h"

namespace {

using node_fuzz::check;

// The C library's scan of one number into `want`, on its own stream of the bytes.
int scan_one(FILE* fp, int32_t* want) {
    return fscanf(fp, "%d", want);
}
int scan_one(FILE* fp, unsigned long* want) {
    return fscanf(fp, "%lu", want);
}
int scan_one(FILE* fp, long long* want) {
    return fscanf(fp, "%lld", want);
}

template <typename T>
int scan_ref(std::string text, T* want) {
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return -2;
    int ret = scan_one(fp, want);
    fclose(fp);
    return ret;
}

void check_values(const std::string& text) {
    int32_t i = 77, want_i = 77;
    unsigned long ul = 77, want_ul = 77;
    long long ll = 77, want_ll = 77;
    int ret = thermal_parse_i32(text.data(), text.size(), &i);
    if (scan_ref(text, &want_i) == -2) return;  // empty text
    check(ret == scan_ref(text, &want_i) && i == want_i);
    ret = thermal_parse_ulong(text.data(), text.size(), &ul);
    check(ret == scan_ref(text, &want_ul) && ul == want_ul);
    ret = thermal_parse_ll(text.data(), text.size(), &ll);
    check(ret == scan_ref(text, &want_ll) && ll == want_ll);
}

template <typename Group>
void check_match(const Group* table, int count, const char* name,
                 int (*match)(const Group*, int, const char*)) {
    int g = match(table, count, name);
    check(g >= -1 && g < count);
    if (g < 0) return;
    bool inside = false;
    for (int m = 0; m < table[g].num; m++) inside |= strstr(name, table[g].match[m]) != nullptr;
    check(inside);
    check(match(table, g, name) == -1);  // no earlier group matches
}

void check_type(std::string text) {
    char name[1025];
    memset(name, 'x', sizeof(name));
    int ret = thermal_parse_type(text.data(), text.size(), name);
    check(name[1024] == 'x');
    check(ret == 0 || ret == -1);

    char want[1025];
    char next = '\0';
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return;
    int scanned = fscanf(fp, "%1023s%c", want, &next);
    fclose(fp);
    bool fits = scanned == 1 || (scanned == 2 && (next == '\0' || isspace((unsigned char)next)));
    check((ret == 0) == (scanned >= 1 && want[0] != '\0' && fits));
    if (ret != 0) return;
    check(strcmp(name, want) == 0 && strlen(name) <= 1023);
    for (const char* p = name; *p != '\0'; p++) check(!isspace((unsigned char)*p));

    check_match(g_thermal_zone_groups, THERMAL_ZONE_GROUPS, name, thermal_match_zone);
    check_match(g_thermal_cooling_groups, THERMAL_COOLING_GROUPS, name, thermal_match_cooling);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    return 0;
}

// Input: one byte choosing the node (a value or a type name), then its text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t choice = 0;
    std::string text;
    if (!node_fuzz::split_input(data, size, 8192, &choice, &text)) return 0;
    if (choice % 2 == 0) {
        check_values(text);
    } else {
        check_type(text);
    }
    return 0;
}
