// Brightness collector: the panel backlight's raw level, one record per period under KPI 8.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

#define KPI_ID_BRIGHTNESS 8

// Appends the level to the record; the number of characters appended, or -22 when the node is
// not open.
static int get_panel_brightness(char* buf, int32_t use) {
    uint64_t cur_bri = 0;
    FILE* fp = fnode_rewind(FNODE_BRIGHTNESS);
    if (fp == nullptr) {
        TLOGD(TAG_POWER, "%s() %d: get_panel_brightness() if !fp ");
        return -EINVAL;
    }
    unsigned int value = 0;
    if (fscanf(fp, "%u", &value) == 1) cur_bri = value;
    TLOGD(TAG_POWER, "%s() %d: get_panel_brightness() cur_bri:%d ", (int)cur_bri);
    int ret = record_appendf(buf, use, "%lu,", (unsigned long)cur_bri);
    TLOGD(TAG_POWER, "%s() %d: get_panel_brightness() ret:%d ", ret);
    return ret;
}

int32_t collect_brightness_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    memset(buf, 0, sizeof(buf));
    int32_t use = record_advance(0, snprintf(buf, sizeof(buf), "BRI,"));

    int ret = get_panel_brightness(buf, use);
    TLOGD(TAG_POWER, "%s() %d: collect_brightness_stats_hndl() ret:%d use:%d buflen:%d", ret, use,
          RECORD_BUFLEN);
    if (ret < 0) return ret;
    use = record_advance(use, ret);

    PowerZELHelper::getInstance()->log_blob(KPI_ID_BRIGHTNESS, buf, (uint32_t)use);
    return use;
}
