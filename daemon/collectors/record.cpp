#define TARN_LOG_TAG tag

#include "record.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "zel_helper.h"

record::record(char* b, int32_t size, const char* log_tag)
    : buf(b), len(size), use(0), tag(log_tag) {
    clear();
}

void record::clear() {
    memset(buf, 0, (size_t)len);
    use = 0;
}

int record::append(const char* fmt, ...) {
    if (use < 0 || use >= len) return RECORD_NO_ROOM;
    size_t room = (size_t)(len - use);
    va_list ap;
    va_start(ap, fmt);
    int ret = vsnprintf(buf + use, room, fmt, ap);
    va_end(ap);
    if (ret >= 0 && (size_t)ret < room) {
        use += ret;
        return ret;
    }
    // Take back what a cut or failed format may have left behind.
    memset(buf + use, 0, room);
    if (ret < 0) return ret;
    TLOGD_FN("record_append", "record full use:%d need:%d buflen:%d", use, ret, len);
    return RECORD_NO_ROOM;
}

void record::report(int32_t kpi_id) const {
    PowerZELHelper::getInstance()->log_blob((uint32_t)kpi_id, buf, (uint32_t)use);
}
