// Process-statistics collector: runs the device's own statistics script once per period and
// reports what it prints, unchanged and without a tag, as one record under the process-statistics
// id. Output that does not fit into the record buffer is not reported at all.
#define TARN_LOG_TAG TAG_POWER

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "collectors.h"
#include "kpi_ids.h"
#include "record.h"
#include "tarn_log.h"

#define PS_SCRIPT "/data/local/tmp/ps.sh"
// A longer output line arrives in pieces of at most PS_LINE_LEN - 1 characters.
#define PS_LINE_LEN 256

int32_t collect_ps_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    char line[PS_LINE_LEN];
    record rec(buf, sizeof(buf));
    memset(line, 0, sizeof(line));

    FILE* out = popen(PS_SCRIPT, "re");
    if (out == nullptr) {
        int err = errno;
        TLOGW("open failed error:%s", strerror(err));
        return -err;
    }

    while (fgets(line, sizeof(line), out) != nullptr) {
        TLOGD("buffer per line:%s", line);
        // Leave room for a whole piece before appending, so an append never runs out of room.
        if (rec.use + PS_LINE_LEN > RECORD_BUFLEN - 1) {
            pclose(out);
            return -1;
        }
        int ret = rec.append("%s", line);
        if (ret < 0) {
            TLOGD("snprintf failed use:%d", ret);
            pclose(out);
            return -1;
        }
        TLOGD("ret:%d buflen:%d use:%d", ret, RECORD_BUFLEN, rec.use);
    }

    // The script's exit status says nothing about its output; it is not looked at.
    pclose(out);
    TLOGD("out_buff: %d %s", rec.use, rec.buf);
    rec.report(kpi::PS);
    return 0;
}
