// DDR collector: the DDR bus's current frequency as the kernel writes it, one record per period
// under KPI 5.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "collectors/collectors.h"
#include "collectors/fnode.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

#define KPI_ID_DDRFREQ 5

// Appends the frequency to the record; the number of characters appended, or -22 when the node
// is not open.
static int get_ddr_cur_freq(char* buf, int32_t use) {
    uint64_t cur_freq = 0;
    FILE* fp = fnode_rewind(FNODE_DDR_CUR_FREQ);
    if (fp == nullptr) {
        TLOGD(TAG_POWER, "%s() %d: get_ddr_cur_freq() if !fp ");
        return -EINVAL;
    }
    unsigned int value = 0;
    if (fscanf(fp, "%u", &value) == 1) cur_freq = value;
    TLOGD(TAG_POWER, "%s() %d: get_ddr_cur_freq() cur_freq:%d ", (int)cur_freq);
    int ret = record_appendf(buf, use, "%lu,", (unsigned long)cur_freq);
    TLOGD(TAG_POWER, "%s() %d: get_ddr_cur_freq() ret:%d ", ret);
    return ret;
}

int32_t collect_ddr_stats_hndl(uint64_t) {
    char buf[RECORD_BUFLEN];
    memset(buf, 0, sizeof(buf));
    int32_t use = record_advance(0, snprintf(buf, sizeof(buf), "DDR,"));

    int ret = get_ddr_cur_freq(buf, use);
    TLOGD(TAG_POWER, "%s() %d: get_ddr_cur_freq() ret:%d use:%d buflen:%d", ret, use, RECORD_BUFLEN);
    if (ret < 0) return ret;
    use = record_advance(use, ret);

    PowerZELHelper::getInstance()->log_blob(KPI_ID_DDRFREQ, buf, (uint32_t)use);
    return use;
}
