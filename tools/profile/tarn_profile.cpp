// tarn_profile: which thermal group each zone and cooling-device type name of a device lands in,
// under a device profile or the built-in tables, with the daemon's own parser and matching code.
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "thermal_groups.h"
#include "thermal_profile.h"

namespace {

namespace fs = std::filesystem;

const char kUsage[] =
    "usage: tarn_profile [--profile FILE] [--zones FILE] [--cooling FILE] [INPUT...]\n"
    "  --profile FILE  the device profile to try (default: the built-in tables)\n"
    "  --zones FILE    thermal zone type names, one per line, as\n"
    "                  adb shell cat '/sys/class/thermal/thermal_zone*/type' prints them\n"
    "  --cooling FILE  cooling device type names, the same way\n"
    "  INPUT           a directory holding thermal_zoneN/ and cooling_deviceN/ (a copy of\n"
    "                  /sys/class/thermal, or a device image), or a file of PATH:TYPE lines as\n"
    "                  adb shell grep . /sys/class/thermal/*/type prints them\n"
    "Lines 'INDEX TYPE [VALUE]' and lines starting with '#' are read too.\n";

struct Name {
    bool zone;
    long index;  // order within its kind
    std::string type;
};

bool starts_with(const std::string& s, const char* prefix) {
    return s.compare(0, strlen(prefix), prefix) == 0;
}

// "thermal_zone12" or "cooling_device3" at the end of a path's directory part; false otherwise.
bool kind_of_dir(const std::string& dir, bool* zone, long* index) {
    std::string base = fs::path(dir).filename().string();
    const char* prefix = starts_with(base, "thermal_zone")     ? "thermal_zone"
                         : starts_with(base, "cooling_device") ? "cooling_device"
                                                               : nullptr;
    if (prefix == nullptr) return false;
    std::string digits = base.substr(strlen(prefix));
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return false;
    *zone = prefix[0] == 't';
    *index = atol(digits.c_str());
    return true;
}

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isspace(static_cast<unsigned char>(line[i]))) i++;
        size_t start = i;
        while (i < line.size() && !isspace(static_cast<unsigned char>(line[i]))) i++;
        if (i > start) out.push_back(line.substr(start, i - start));
    }
    return out;
}

// One line of a names file; `zone` is the kind given on the command line (-1: from the path).
bool read_line(const std::string& line, int zone, long order, std::vector<Name>* names) {
    std::vector<std::string> w = words(line);
    if (w.empty() || w[0][0] == '#') return true;
    size_t colon = w[0].find("/type:");
    if (colon != std::string::npos) {
        Name n;
        if (!kind_of_dir(w[0].substr(0, colon), &n.zone, &n.index)) return false;
        n.type = w[0].substr(colon + 6);
        if (!n.type.empty()) names->push_back(n);
        return true;
    }
    if (zone < 0) return false;
    bool indexed = w.size() > 1 && w[0].find_first_not_of("0123456789") == std::string::npos;
    names->push_back({zone == 1, indexed ? atol(w[0].c_str()) : order, indexed ? w[1] : w[0]});
    return true;
}

bool read_file(const std::string& path, int zone, std::vector<Name>* names) {
    std::ifstream in(path);
    if (!in) {
        fprintf(stderr, "tarn_profile: cannot read %s\n", path.c_str());
        return false;
    }
    long order = 0;
    for (std::string line; std::getline(in, line); order++) {
        if (!read_line(line, zone, order, names)) {
            fprintf(stderr, "tarn_profile: %s: cannot tell the kind of '%s'\n", path.c_str(),
                    line.c_str());
            return false;
        }
    }
    return true;
}

bool read_dir(std::string dir, std::vector<Name>* names) {
    std::error_code ec;
    for (const char* sub : {"/sys/devices/virtual/thermal", "/sys/class/thermal"}) {
        if (fs::is_directory(dir + sub, ec)) {
            dir += sub;
            break;
        }
    }
    size_t before = names->size();
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
        Name n;
        if (!kind_of_dir(entry.path().string(), &n.zone, &n.index)) continue;
        std::ifstream in(entry.path() / "type");
        if (in >> n.type) names->push_back(n);
    }
    if (ec || names->size() == before) {
        fprintf(stderr, "tarn_profile: no thermal_zoneN or cooling_deviceN types in %s\n",
                dir.c_str());
        return false;
    }
    return true;
}

void report(const thermal_profile& p, std::vector<Name> names) {
    std::stable_sort(names.begin(), names.end(), [](const Name& a, const Name& b) {
        return a.zone != b.zone ? a.zone : a.index < b.index;
    });
    const char* skin = p.skin != nullptr ? p.skin : "quiet-therm";
    bool skin_found = false;
    std::vector<std::string> lost_zones, lost_coolings;
    for (const Name& n : names) {
        char buf[THERMAL_TYPE_LEN];
        (void)snprintf(buf, sizeof(buf), "%s", n.type.c_str());
        std::string where;
        if (n.zone) {
            int g = thermal_match_zone(p.zone, THERMAL_ZONE_GROUPS, buf);
            bool is_skin =
                strcmp(buf, skin) == 0 || (p.skin == nullptr && strcmp(buf, "skin-vqm-therm") == 0);
            skin_found |= is_skin;
            if (g >= 0) where = p.zone[g].name;
            if (g >= 0 && strcmp(p.zone[g].name, THERMAL_MISC_SKIN) == 0)
                where += " (reported under its own name)";
            if (is_skin) where += where.empty() ? "skin-temp" : ", skin-temp";
            if (where.empty()) lost_zones.push_back(n.type);
        } else {
            // Marked by the word after a comma, counted by the whole name, as the daemon does.
            char mark[THERMAL_TYPE_LEN];
            memcpy(mark, buf, sizeof(mark));
            thermal_cooling_mark_name(mark);
            int marked = thermal_match_cooling(p.cooling, THERMAL_COOLING_GROUPS, mark);
            int g = thermal_match_cooling(p.cooling, THERMAL_COOLING_GROUPS, buf);
            if (marked >= 0 && g >= 0) where = p.cooling[g].name;
            if (where.empty()) lost_coolings.push_back(n.type);
        }
        printf("%-8s %-3ld %-32s %s\n", n.zone ? "zone" : "cooling", n.index, n.type.c_str(),
               where.empty() ? "-" : where.c_str());
    }
    printf("skin-temp: zone %s%s\n", skin,
           skin_found ? "" : " (no such zone: skin-temp stays 0 unless another skin zone reads)");
    for (const auto& [kind, lost] : {std::make_pair("zones", &lost_zones),
                                     std::make_pair("cooling devices", &lost_coolings)}) {
        printf("%s in no group: %zu", kind, lost->size());
        for (size_t i = 0; i < lost->size(); i++)
            printf("%s%s", i == 0 ? ": " : " ", (*lost)[i].c_str());
        printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    static thermal_profile profile;  // points into itself; too big for the stack anyway
    const char* profile_path = nullptr;
    std::vector<Name> names;
    bool ok = true;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        bool has_value = i + 1 < argc;
        if ((arg == "--profile" || arg == "--zones" || arg == "--cooling") && has_value) {
            const char* value = argv[++i];
            if (arg == "--profile") {
                profile_path = value;
            } else {
                ok = ok && read_file(value, arg == "--zones" ? 1 : 0, &names);
            }
        } else if (arg.empty() || arg[0] == '-') {
            fputs(kUsage, stderr);
            return 2;
        } else {
            std::error_code ec;
            ok = ok &&
                 (fs::is_directory(arg, ec) ? read_dir(arg, &names) : read_file(arg, -1, &names));
        }
    }
    if (!ok) return 2;
    if (names.empty()) {
        fputs(kUsage, stderr);
        return 2;
    }
    thermal_profile_builtin(&profile);
    if (profile_path != nullptr) {
        char err[THERMAL_PROFILE_ERR_LEN];
        int ret = thermal_profile_read(profile_path, &profile, err, sizeof(err));
        if (ret <= 0) {
            fprintf(stderr, "tarn_profile: %s: %s\n", profile_path, ret == 0 ? "no such file" : err);
            fprintf(stderr, "tarn_profile: the daemon would keep the built-in tables\n");
            return 1;
        }
        printf("profile %s: %d zone and %d cooling groups replaced\n", profile_path,
               profile.zone_replaced, profile.cooling_replaced);
    } else {
        printf("built-in tables\n");
    }
    report(profile, names);
    return 0;
}
