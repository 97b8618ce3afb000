// Placeholder until this collector lands.
#include "collectors/collectors.h"

int32_t collect_gpu_stats_hndl(uint64_t) { return -1; }
