// Frame-rate collector: the display's measured frame rate, taken from the last line of the
// display driver's node, one record per period under KPI 9.
#define TARN_LOG_TAG TAG_POWER

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "collectors.h"
#include "fnode.h"
#include "kpi_ids.h"
#include "node_parsers.h"
#include "node_reader.h"
#include "tarn_log.h"
#include "tokens.h"

#define FPS_LINE_LEN 1024

double fps_parse(const char* data, size_t len) {
    mem_stream in = mem_open(data, len);
    char line[FPS_LINE_LEN];
    memset(line, 0, sizeof(line));
    double cur_fps = 0.0;
    while (mem_get_line(line, sizeof(line), &in) != nullptr) {
        TLOGD_FN("get_fps", "get_fps while orginal line %s ", line);
        char* temp = extract_fps_info(line, ":", 1);
        TLOGD_FN("get_fps", "get_fps while split temp %s ", temp);
        char* temp2 = extract_fps_info(temp, " ", 0);
        TLOGD_FN("get_fps", "get_fps while split temp2 %s ", temp2);
        cur_fps = strtod(temp2, nullptr);
    }
    return cur_fps;
}

// Appends the rate to the record; the number of characters appended, or -22 when the node is
// not open.
static int get_fps(record* rec) {
    char node[NODE_BUF_LEN];
    ssize_t len = fnode_read(FNODE_FPS, node, sizeof(node));
    if (len < 0) {
        TLOGD("get_fps() if !fp ");
        return -EINVAL;
    }
    double cur_fps = fps_parse(node, (size_t)len);
    TLOGD("get_fps() cur_fps:%lf ", cur_fps);
    int ret = rec->append("%.1lf,", cur_fps);
    TLOGD("get_fps() ret:%d ", ret);
    return ret;
}

int32_t collect_fps_stats_hndl(uint64_t) {
    return report_node_value(__func__, __func__, "FPS,", kpi::FPS, get_fps);
}
