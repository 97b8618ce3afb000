// Placeholder until file upload lands.
#include "report/file_upload.h"

int32_t set_for_blob(const char*, const char*, int32_t) { return -1; }
int32_t getFileName(const char*, const char*, size_t, char*) { return 0; }
