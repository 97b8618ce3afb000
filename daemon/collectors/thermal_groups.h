// Group tables of the thermal collector: which thermal-zone and cooling-device types it reports,
// and under which group name. A type name belongs to the first group, in table order, one of
// whose match strings occurs anywhere in it.
#pragma once

#include <stdint.h>

#define THERMAL_ZONE_GROUPS 13
#define THERMAL_COOLING_GROUPS 16
#define THERMAL_ZONE_MATCH_MAX 30
#define THERMAL_COOLING_MATCH_MAX 20

// Zones of this group are reported one by one under their own type names, not as a maximum.
#define THERMAL_MISC_SKIN "misc_skin"

template <int N>
struct thermal_group {
    const char* name;
    const char* match[N];  // tried in order; the first `num` are used
    int32_t num;
    int32_t value;  // highest reading of the group in the current handler part
};

typedef thermal_group<THERMAL_ZONE_MATCH_MAX> thermal_zone_group;
typedef thermal_group<THERMAL_COOLING_MATCH_MAX> thermal_cooling_group;

extern thermal_zone_group g_thermal_zone_groups[THERMAL_ZONE_GROUPS];
extern thermal_cooling_group g_thermal_cooling_groups[THERMAL_COOLING_GROUPS];

// Index of the group that `name` belongs to among the first `count` rows of `table`, or -1.
int thermal_match_zone(const thermal_zone_group* table, int count, const char* name);
int thermal_match_cooling(const thermal_cooling_group* table, int count, const char* name);
