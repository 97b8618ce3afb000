// GPU collector state shared with the CPU collector, whose init starts the GPU's residency
// tracking afresh.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Forgets every kept row of the GPU's transition table.
void gpu_clear_kept_rows();

// Parsers of the GPU nodes' bytes.
// The residency of `cur_freq` from the transition table's bytes, read in 1024-byte line pieces:
// the growth of its row's time since the GPU was last seen at it, 0 when unknown. Updates the
// kept rows.
uint64_t gpu_parse_trans_stat(const char* data, size_t len, uint64_t cur_freq);
// The gpubusy node read with "%u %u": the scan's result (2, 1, 0 or EOF).
int gpu_parse_busy(const char* data, size_t len, unsigned* busy, unsigned* total);
