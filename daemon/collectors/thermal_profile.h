// Device profile of the thermal collector: a JSON file on the vendor partition that replaces the
// match strings of chosen zone and cooling groups, and names the zone that gives the skin
// temperature. Group names, their order and the matching rule stay those of the built-in tables;
// a profile only changes which type names land in which group.
//
//   {
//     "description": "free text",
//     "skin_sensor": "skin-therm-usr",
//     "zone_groups": { "cpu-tj-max-temp": ["cpu-0-", "cpu-1-"], ... },
//     "cooling_groups": { "cpu_pause": ["cpu-isolate"], ... }
//   }
//
// Every key is optional; a group that is not named keeps its built-in list, and an empty list
// leaves its group without members. A profile that is wrong anywhere is refused whole.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "thermal_groups.h"

#define THERMAL_PROFILE_PATH "/vendor/etc/tarn_stats/profile.json"
#define THERMAL_PROFILE_MAX_BYTES 65536
#define THERMAL_PROFILE_MAX_DEPTH 8
// Longest match string or skin sensor name, with its terminating NUL. Kernel type names are
// far shorter.
#define THERMAL_PROFILE_NAME_LEN 64
#define THERMAL_PROFILE_ERR_LEN 256
#define THERMAL_TYPE_LEN 1024  // a type name as init reads it, NUL included

// The group tables a profile gives, with the strings they point to. The tables point into the
// struct itself, so it is filled in place and never copied.
struct thermal_profile {
    thermal_zone_group zone[THERMAL_ZONE_GROUPS];
    thermal_cooling_group cooling[THERMAL_COOLING_GROUPS];
    const char* skin;          // exact type name of the skin sensor; null: the built-in pair
    int32_t zone_replaced;     // zone groups whose lists the profile gives
    int32_t cooling_replaced;  // cooling groups whose lists the profile gives
    char zone_text[THERMAL_ZONE_GROUPS][THERMAL_ZONE_MATCH_MAX][THERMAL_PROFILE_NAME_LEN];
    char cooling_text[THERMAL_COOLING_GROUPS][THERMAL_COOLING_MATCH_MAX][THERMAL_PROFILE_NAME_LEN];
    char skin_text[THERMAL_PROFILE_NAME_LEN];
};

// Fills `out` with the built-in tables and no skin sensor name.
void thermal_profile_builtin(thermal_profile* out);

// Parses the `len` bytes at `data` into `out`. Returns 0, or -1 with a one-line reason in `err`
// and the built-in tables in `out`.
int thermal_profile_parse(const char* data, size_t len, thermal_profile* out, char* err,
                          size_t err_len);

// Reads and parses the profile at `path`. Returns 1 for a profile taken, 0 when there is no file
// at `path`, -1 with a one-line reason in `err` when the file is unusable; `out` holds the
// built-in tables unless 1 is returned.
int thermal_profile_read(const char* path, thermal_profile* out, char* err, size_t err_len);

// thermal_profile_read, logging an unusable file as one error line naming the file and the reason.
int thermal_profile_load(const char* path, thermal_profile* out);

// The name a cooling device is marked by at init: a type such as "limits,cpu5" is known by the
// word after its first comma. `name` holds THERMAL_TYPE_LEN bytes and is rewritten in place.
void thermal_cooling_mark_name(char* name);
