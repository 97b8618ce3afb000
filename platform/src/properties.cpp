// System properties on a host: `key=value` lines of the file named by TARN_HOST_PROPERTIES, read
// afresh at every call so that a property changed by the test or the simulator is seen at once.
#include <ctype.h>
#include <cutils/properties.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/system_properties.h>

namespace {

// Looks `name` up; the last definition in the file wins. Copies at most PROP_VALUE_MAX - 1 bytes
// of the value and returns its length, or -1 when the property is not defined.
int lookup(const char* name, char* value) {
    value[0] = '\0';
    if (name == nullptr || name[0] == '\0') return -1;
    const char* path = getenv("TARN_HOST_PROPERTIES");
    if (path == nullptr || path[0] == '\0') return -1;
    FILE* f = fopen(path, "re");
    if (f == nullptr) return -1;

    size_t name_len = strlen(name);
    int found = -1;
    char line[1024];
    bool at_line_start = true;
    while (fgets(line, sizeof(line), f) != nullptr) {
        size_t len = strlen(line);
        bool complete = len > 0 && line[len - 1] == '\n';
        bool starts_line = at_line_start;
        at_line_start = complete;
        if (!starts_line) continue;  // the tail of an over-long line
        while (len > 0 && (line[len - 1] == '\n' || line[len - 1] == '\r')) line[--len] = '\0';
        const char* p = line;
        while (*p == ' ' || *p == '\t') ++p;
        if (*p == '#' || *p == '\0') continue;
        const char* eq = strchr(p, '=');
        if (eq == nullptr) continue;
        const char* key_end = eq;
        while (key_end > p && isspace(static_cast<unsigned char>(key_end[-1]))) --key_end;
        if (static_cast<size_t>(key_end - p) != name_len || memcmp(p, name, name_len) != 0) {
            continue;
        }
        const char* v = eq + 1;
        size_t vlen = strlen(v);
        if (vlen > PROP_VALUE_MAX - 1) vlen = PROP_VALUE_MAX - 1;
        memcpy(value, v, vlen);
        value[vlen] = '\0';
        found = static_cast<int>(vlen);
    }
    fclose(f);
    return found;
}

}  // namespace

extern "C" int __system_property_get(const char* name, char* value) {
    if (value == nullptr) return 0;
    int len = lookup(name, value);
    return len < 0 ? 0 : len;
}

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) return 0;
    int len = lookup(key, value);
    if (len > 0) return len;
    if (default_value == nullptr) {
        value[0] = '\0';
        return 0;
    }
    size_t dlen = strlen(default_value);
    if (dlen > PROPERTY_VALUE_MAX - 1) dlen = PROPERTY_VALUE_MAX - 1;
    memcpy(value, default_value, dlen);
    value[dlen] = '\0';
    return static_cast<int>(dlen);
}
