// Upload of whole crash and status files, one file per call, renamed "_readed" once sent.
#pragma once

#include <stddef.h>
#include <stdint.h>

int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id);
int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out);
