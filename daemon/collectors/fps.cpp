// Frame-rate collector: the display's measured frame rate, taken from the last line of the
// display driver's node, one record per period under KPI 9.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "collectors/tokens.h"
#include "core/tarn_log.h"

#define KPI_ID_FPS 9
#define FPS_LINE_LEN 1024

// Appends the rate to the record; the number of characters appended, or -22 when the node is
// not open. Each line sets the rate from the first word of its second ':'-separated field (the
// whole line when it has no ':'), so the last line decides.
static int get_fps(char* buf, int32_t use) {
    char line[FPS_LINE_LEN];
    memset(line, 0, sizeof(line));
    FILE* fp = fnode_rewind(FNODE_FPS);
    if (fp == nullptr) {
        TLOGD(TAG_POWER, "%s() %d: get_fps() if !fp ");
        return -EINVAL;
    }
    double cur_fps = 0.0;
    while (fgets(line, sizeof(line), fp) != nullptr) {
        size_t len = strlen(line);
        if (len > 0 && line[len - 1] == '\n') line[len - 1] = '\0';
        TLOGD(TAG_POWER, "%s() %d: get_fps while orginal line %s ", line);
        char* temp = extract_fps_info(line, ":", 1);
        TLOGD(TAG_POWER, "%s() %d: get_fps while split temp %s ", temp);
        char* temp2 = extract_fps_info(temp, " ", 0);
        TLOGD(TAG_POWER, "%s() %d: get_fps while split temp2 %s ", temp2);
        cur_fps = strtod(temp2, nullptr);
    }
    TLOGD(TAG_POWER, "%s() %d: get_fps() cur_fps:%lf ", cur_fps);
    int ret = record_appendf(buf, use, "%.1lf,", cur_fps);
    TLOGD(TAG_POWER, "%s() %d: get_fps() ret:%d ", ret);
    return ret;
}

int32_t collect_fps_stats_hndl(uint64_t) {
    return report_node_value(__func__, __func__, "FPS,", KPI_ID_FPS, get_fps);
}
