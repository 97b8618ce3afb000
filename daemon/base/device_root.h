// Device paths under a root. The collectors name the device's own absolute paths and place them
// under the root their init is given: "/" on the device, a temporary tree in tests.
#pragma once

#include <stddef.h>

// Room for a device path under its root.
#define DEVICE_PATH_LEN 256

// Writes `path` (absolute) under `root` into `out` (`size` bytes): the path itself when the root
// is "/" or empty. A path that does not fit is cut, and then names no node. Returns `out`.
const char* device_path(char* out, size_t size, const char* root, const char* path);
