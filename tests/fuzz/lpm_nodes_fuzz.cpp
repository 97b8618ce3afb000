// The low-power-mode collector's texts through its parsers: the idle-state reading keeps the last
// line piece that the C library's fgets cuts from the same bytes, without its newline; the
// subsystem and WLAN readings fill only their first slots, each with a terminated text that fits
// its slot and is the value part of one line of the input.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "node_fuzz.h"
#include "node_parsers.h"

namespace {

using node_fuzz::check;

void check_last_line(std::string text) {
    char line[LPM_LINE_LEN + 1];
    memset(line, 'x', sizeof(line));
    line[0] = '\0';
    lpm_parse_last_line(text.data(), text.size(), line);
    check(line[LPM_LINE_LEN] == 'x');

    char want[LPM_LINE_LEN] = "";
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return;
    char piece[LPM_LINE_LEN];
    for (long before = 0; fgets(piece, sizeof(piece), fp) != nullptr; before = ftell(fp)) {
        size_t n = (size_t)(ftell(fp) - before);
        if (n > 0 && piece[n - 1] == '\n') piece[--n] = '\0';
        memcpy(want, piece, n + 1);
    }
    fclose(fp);
    check(strcmp(line, want) == 0);
}

// Slots of `width` bytes, `count` of them, filled from the lines' text after `sep`.
template <size_t Width>
void check_slots(const std::string& text, char (*slots)[Width], int count, char sep) {
    int pieces = (int)node_fuzz::piece_starts(text, LPM_LINE_LEN).size();
    int filled = std::min(pieces, count);
    for (int k = 0; k < count + 1; k++) {
        const char* slot = slots[k];
        if (k >= filled) {
            check(slot[0] == 'x' && slot[Width - 1] == 'x');  // not written
            continue;
        }
        check(memchr(slot, '\0', Width) != nullptr);
        check(strchr(slot, '\n') == nullptr && strchr(slot, sep) == nullptr);
        check(text.find(slot) != std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    return 0;
}

// Input: one byte choosing the reading (idle states, a subsystem, WLAN), then the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t choice = 0;
    std::string text;
    if (!node_fuzz::split_input(data, size, 16384, &choice, &text)) return 0;
    switch (choice % 3) {
        case 0:
            check_last_line(text);
            break;
        case 1: {
            char slots[LPM_RPM_SLOTS + 1][LPM_RPM_SLOT_LEN];
            memset(slots, 'x', sizeof(slots));
            lpm_parse_sleep_stats(text.data(), text.size(), 8 + choice / 3 % 10, slots);
            check_slots(text, slots, LPM_RPM_SLOTS, '=');
            break;
        }
        default: {
            char slots[LPM_WLAN_SLOTS + 1][LPM_WLAN_SLOT_LEN];
            memset(slots, 'x', sizeof(slots));
            lpm_parse_wlan(text.data(), text.size(), slots);
            check_slots(text, slots, LPM_WLAN_SLOTS, ':');
            break;
        }
    }
    return 0;
}
