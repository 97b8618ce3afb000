// Helpers shared by the daemon's end-to-end tests.
#pragma once

#include <stdlib.h>

#include <map>
#include <string>
#include <vector>

namespace tarn_e2e {

inline size_t count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) ++n;
    return n;
}

// Records by KPI id, each without its id and tab, in the order they came.
using ByKpi = std::map<int, std::vector<std::string>>;

inline ByKpi by_kpi(const std::vector<std::string>& records) {
    ByKpi out;
    for (const std::string& r : records) {
        size_t tab = r.find('\t');
        if (tab != std::string::npos)
            out[atoi(r.substr(0, tab).c_str())].push_back(r.substr(tab + 1));
    }
    return out;
}

}  // namespace tarn_e2e
