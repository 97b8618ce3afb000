#include "device_root.h"

#include <stdio.h>
#include <string.h>

const char* device_path(char* out, size_t size, const char* root, const char* path) {
    size_t root_len = root != nullptr ? strlen(root) : 0;
    // A trailing slash of the root is the path's own first one.
    while (root_len > 0 && root[root_len - 1] == '/') --root_len;
    (void)snprintf(out, size, "%.*s%s", static_cast<int>(root_len), root_len > 0 ? root : "", path);
    return out;
}
