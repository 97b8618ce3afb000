#include "tarn_log.h"

int32_t g_debug_level = 4;
