// The GPU collector's node texts through its parsers: the busy node gives what the C library's
// "%u %u" scan gives on the same bytes, the frequency node what "%u" gives, and a transition
// table read twice in a row at the same frequency shows no time passed the second time.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "collectors.h"
#include "node_fuzz.h"
#include "node_parsers.h"

namespace {

using node_fuzz::check;

// Frequencies of the transition tables in the corpus, so that a row can match.
const uint64_t kFreqs[] = {0, 220000000, 300000000, 381000000, 487000000, 585000000, 680000000, 7};

void check_scans(std::string text) {
    unsigned busy = 77, total = 77;
    int ret = gpu_parse_busy(text.data(), text.size(), &busy, &total);
    uint32_t freq = node_parse_u32(text.data(), text.size());
    FILE* fp = fmemopen(&text[0], text.size(), "r");
    if (fp == nullptr) return;
    unsigned want_busy = 77, want_total = 77;
    int want = fscanf(fp, "%u %u", &want_busy, &want_total);
    fclose(fp);
    check(ret == want && busy == want_busy && total == want_total);
    check(freq == (want >= 1 ? want_busy : 0));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    node_fuzz::quiet_logs();
    return 0;
}

// Input: one byte choosing the node (the busy and frequency nodes, or the transition table at one
// of a few frequencies, the kept rows reset or not), then its text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t choice = 0;
    std::string text;
    if (!node_fuzz::split_input(data, size, 16384, &choice, &text)) return 0;
    if (choice % 2 == 0) {
        check_scans(text);
        return 0;
    }
    if (choice & 2) gpu_reset_kept();
    uint64_t cur = kFreqs[(choice >> 2) % 8];
    gpu_parse_trans_stat(text.data(), text.size(), cur);
    check(gpu_parse_trans_stat(text.data(), text.size(), cur) == 0);
    return 0;
}
