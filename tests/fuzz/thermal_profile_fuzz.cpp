// Device profile texts through the thermal collector's profile parser: a text is taken whole or
// refused whole with a one-line printable reason and the built-in tables; a taken profile keeps
// the groups' names and order, and every match string it gives is a printable word within the
// limits. The same text always gives the same verdict.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "node_fuzz.h"
#include "thermal_profile.h"

namespace {

using node_fuzz::check;

void check_word(const char* s) {
    check(s != nullptr && s[0] != '\0' && strlen(s) < THERMAL_PROFILE_NAME_LEN);
    for (const char* p = s; *p != '\0'; p++) check(isgraph(static_cast<unsigned char>(*p)));
}

// Same names in the same order; `builtin` requires the built-in lists themselves.
template <int N>
int check_groups(const thermal_group<N>* got, const thermal_group<N>* want, int count,
                 bool builtin) {
    int changed = 0;
    for (int g = 0; g < count; g++) {
        check(got[g].name == want[g].name && got[g].num >= 0 && got[g].num <= N);
        bool same = got[g].num == want[g].num;
        for (int m = 0; m < got[g].num; m++) {
            if (m < want[g].num && got[g].match[m] == want[g].match[m]) continue;
            check_word(got[g].match[m]);
            same = false;
        }
        check(!builtin || same);
        changed += !same;
    }
    return changed;
}

thermal_profile g_first, g_second;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > THERMAL_PROFILE_MAX_BYTES) return 0;
    const char* text = reinterpret_cast<const char*>(data);
    char err[THERMAL_PROFILE_ERR_LEN];
    memset(err, 'x', sizeof(err));
    int ret = thermal_profile_parse(text, size, &g_first, err, sizeof(err));
    check(ret == 0 || ret == -1);
    bool builtin = ret != 0;
    if (ret != 0) {
        size_t len = strnlen(err, sizeof(err));
        check(len > 0 && len < sizeof(err));
        for (size_t i = 0; i < len; i++) check(isprint(static_cast<unsigned char>(err[i])));
        check(g_first.skin == nullptr);
    } else if (g_first.skin != nullptr) {
        check_word(g_first.skin);
    }
    int zones = check_groups(g_first.zone, g_thermal_zone_groups, THERMAL_ZONE_GROUPS, builtin);
    int coolings =
        check_groups(g_first.cooling, g_thermal_cooling_groups, THERMAL_COOLING_GROUPS, builtin);
    check(zones <= g_first.zone_replaced && coolings <= g_first.cooling_replaced);

    char err2[THERMAL_PROFILE_ERR_LEN];
    check(thermal_profile_parse(text, size, &g_second, err2, sizeof(err2)) == ret);
    check(ret == 0 || strcmp(err, err2) == 0);
    return 0;
}
