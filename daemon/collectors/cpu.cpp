// Placeholder until this collector lands.
#include "collectors/collectors.h"

int32_t collect_cpu_stats_init() { return 0; }
int32_t collect_cpu_stats_exit() { return 0; }
int32_t collect_cpu_stats_hndl(uint64_t) { return -1; }
