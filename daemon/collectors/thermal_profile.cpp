#define TARN_LOG_TAG TAG_THERMAL

#include "thermal_profile.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tarn_log.h"

namespace {

// Writes a reason into `err`; always returns -1.
__attribute__((format(printf, 3, 4))) int fail(char* err, size_t err_len, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    (void)vsnprintf(err, err_len, fmt, ap);
    va_end(ap);
    return -1;
}

// A key of the file as it may be quoted in a log line: at most 40 bytes, anything but printable
// ASCII shown as '?'.
struct quoted {
    char text[48];
    explicit quoted(const std::string& s) {
        size_t n = 0;
        for (; n < s.size() && n < 40; n++) {
            unsigned char c = static_cast<unsigned char>(s[n]);
            text[n] = c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '?';
        }
        if (n < s.size()) text[n++] = '+';
        text[n] = '\0';
    }
};

// The deepest nesting of arrays and objects outside strings. The parser would recurse that deep,
// and past its own limit it has no way to fail but to throw; so the depth is bounded first.
int nesting_depth(const char* data, size_t len) {
    int depth = 0, deepest = 0;
    bool in_string = false, escaped = false;
    for (size_t i = 0; i < len; i++) {
        char c = data[i];
        if (in_string) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                in_string = false;
            }
        } else if (c == '"') {
            in_string = true;
        } else if (c == '{' || c == '[') {
            if (++depth > deepest) deepest = depth;
        } else if (c == '}' || c == ']') {
            depth--;
        }
    }
    return deepest;
}

// Copies a type name of the file into `dst`: a non-empty word of printable bytes, as a kernel
// type name is; anything else could never match one. Returns 0, or -1 with the reason.
int take_name(const Json::Value& v, char* dst, const char* what, char* err, size_t err_len) {
    if (!v.isString()) return fail(err, err_len, "%s: not a string", what);
    const std::string s = v.asString();
    if (s.empty()) return fail(err, err_len, "%s: empty string", what);
    if (s.size() >= THERMAL_PROFILE_NAME_LEN) {
        return fail(err, err_len, "%s: \"%s\" longer than %d bytes", what, quoted(s).text,
                    THERMAL_PROFILE_NAME_LEN - 1);
    }
    for (char c : s) {
        if (c == '\0' || isspace(static_cast<unsigned char>(c)) ||
            !isprint(static_cast<unsigned char>(c))) {
            return fail(err, err_len, "%s: \"%s\" holds white space or control bytes", what,
                        quoted(s).text);
        }
    }
    memcpy(dst, s.c_str(), s.size() + 1);
    return 0;
}

// Replaces the match lists of the groups `obj` names in `table`. Returns the number of groups
// replaced, or -1 with the reason.
template <int N>
int take_groups(const Json::Value& obj, const char* key, thermal_group<N>* table, int count,
                char (*text)[N][THERMAL_PROFILE_NAME_LEN], char* err, size_t err_len) {
    if (!obj.isObject()) return fail(err, err_len, "\"%s\" is not an object", key);
    int replaced = 0;
    for (const std::string& name : obj.getMemberNames()) {
        int g = 0;
        while (g < count && name != table[g].name) g++;
        if (g == count) {
            return fail(err, err_len, "%s: unknown group \"%s\"", key, quoted(name).text);
        }
        const Json::Value& list = obj[name];
        char what[96];
        (void)snprintf(what, sizeof(what), "%s \"%s\"", key, table[g].name);
        if (!list.isArray()) return fail(err, err_len, "%s: not a list of strings", what);
        if (list.size() > static_cast<Json::ArrayIndex>(N)) {
            return fail(err, err_len, "%s: %u match strings, at most %d", what, list.size(), N);
        }
        int num = 0;
        for (const Json::Value& m : list) {
            if (take_name(m, text[g][num], what, err, err_len) != 0) return -1;
            table[g].match[num] = text[g][num];
            num++;
        }
        table[g].num = num;
        replaced++;
    }
    return replaced;
}

int parse_into(const char* data, size_t len, thermal_profile* out, char* err, size_t err_len) {
    if (nesting_depth(data, len) > THERMAL_PROFILE_MAX_DEPTH) {
        return fail(err, err_len, "nested deeper than %d levels", THERMAL_PROFILE_MAX_DEPTH);
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder.settings_["stackLimit"] = THERMAL_PROFILE_MAX_DEPTH * 4;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errs;
    if (!reader->parse(data, data + len, &root, &errs)) {
        // The parser's report spans lines and may list several faults: the log line carries
        // the first, its bytes made printable.
        std::string line;
        for (char c : errs) {
            unsigned char u = static_cast<unsigned char>(c);
            if (u < 0x20 || u >= 0x7f) c = u == '\n' || u == '\t' ? ' ' : '?';
            if (c == ' ' && (line.empty() || line.back() == ' ')) continue;
            line += c;
        }
        if (line.rfind("* ", 0) == 0) line.erase(0, 2);
        size_t next = line.find(" * ");
        if (next != std::string::npos) line.resize(next);
        while (!line.empty() && line.back() == ' ') line.pop_back();
        return fail(err, err_len, "not JSON: %.160s", line.c_str());
    }
    if (!root.isObject()) return fail(err, err_len, "the top level is not an object");
    for (const std::string& key : root.getMemberNames()) {
        const Json::Value& v = root[key];
        if (key == "zone_groups") {
            out->zone_replaced = take_groups(v, "zone_groups", out->zone, THERMAL_ZONE_GROUPS,
                                             out->zone_text, err, err_len);
            if (out->zone_replaced < 0) return -1;
        } else if (key == "cooling_groups") {
            out->cooling_replaced =
                take_groups(v, "cooling_groups", out->cooling, THERMAL_COOLING_GROUPS,
                            out->cooling_text, err, err_len);
            if (out->cooling_replaced < 0) return -1;
        } else if (key == "skin_sensor") {
            if (take_name(v, out->skin_text, "skin_sensor", err, err_len) != 0) return -1;
            out->skin = out->skin_text;
        } else if (key == "description") {
            if (!v.isString()) return fail(err, err_len, "description: not a string");
        } else {
            return fail(err, err_len, "unknown key \"%s\"", quoted(key).text);
        }
    }
    return 0;
}

}  // namespace

void thermal_profile_builtin(thermal_profile* out) {
    memcpy(out->zone, g_thermal_zone_groups, sizeof(out->zone));
    memcpy(out->cooling, g_thermal_cooling_groups, sizeof(out->cooling));
    for (auto& g : out->zone) g.value = 0;
    for (auto& g : out->cooling) g.value = 0;
    out->skin = nullptr;
    out->zone_replaced = 0;
    out->cooling_replaced = 0;
    out->skin_text[0] = '\0';
}

int thermal_profile_parse(const char* data, size_t len, thermal_profile* out, char* err,
                          size_t err_len) {
    thermal_profile_builtin(out);
    if (err_len > 0) err[0] = '\0';
    if (parse_into(data, len, out, err, err_len) == 0) return 0;
    thermal_profile_builtin(out);  // never half a profile
    return -1;
}

int thermal_profile_read(const char* path, thermal_profile* out, char* err, size_t err_len) {
    thermal_profile_builtin(out);
    // Non-blocking, so that a FIFO in the file's place cannot hold up the start.
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR) return 0;
        return fail(err, err_len, "cannot open: %s", strerror(errno));
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return fail(err, err_len, "not a regular file");
    }
    if (st.st_size > THERMAL_PROFILE_MAX_BYTES) {
        close(fd);
        return fail(err, err_len, "larger than %d bytes", THERMAL_PROFILE_MAX_BYTES);
    }
    // One byte more than the limit tells a file that grew since fstat.
    char* buf = static_cast<char*>(malloc(THERMAL_PROFILE_MAX_BYTES + 1));
    if (buf == nullptr) {
        close(fd);
        return fail(err, err_len, "out of memory");
    }
    size_t len = 0;
    int ret = 0;
    while (len <= THERMAL_PROFILE_MAX_BYTES) {
        ssize_t n = read(fd, buf + len, THERMAL_PROFILE_MAX_BYTES + 1 - len);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ret = fail(err, err_len, "cannot read: %s", strerror(errno));
            break;
        }
        if (n == 0) break;
        len += static_cast<size_t>(n);
    }
    close(fd);
    if (ret == 0 && len > THERMAL_PROFILE_MAX_BYTES) {
        ret = fail(err, err_len, "larger than %d bytes", THERMAL_PROFILE_MAX_BYTES);
    }
    if (ret == 0) ret = thermal_profile_parse(buf, len, out, err, err_len);
    free(buf);
    return ret == 0 ? 1 : -1;
}

int thermal_profile_load(const char* path, thermal_profile* out) {
    char err[THERMAL_PROFILE_ERR_LEN];
    int ret = thermal_profile_read(path, out, err, sizeof(err));
    if (ret < 0) {
        TLOGE("device profile %s: %s; the built-in thermal groups stay\n", path, err);
    } else if (ret > 0) {
        TLOGD("device profile %s: %d zone and %d cooling groups replaced, skin sensor %s\n", path,
              out->zone_replaced, out->cooling_replaced,
              out->skin != nullptr ? out->skin : "built in");
    }
    return ret;
}

void thermal_cooling_mark_name(char* name) {
    char word[THERMAL_TYPE_LEN];
    if (sscanf(name, "%*[^','],%1023s", word) == 1) memcpy(name, word, sizeof(word));
}
