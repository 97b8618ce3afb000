// Placeholder until this collector lands.
#include "collectors/collectors.h"

int32_t collect_stability_info_init() { return 0; }
int32_t collect_stability_info_exit() { return 0; }
int32_t collect_stability_stats_hndl(uint64_t) { return -1; }
bool stability_ready() { return false; }
