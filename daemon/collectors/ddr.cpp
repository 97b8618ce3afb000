// DDR collector: the DDR bus's current frequency as the kernel writes it, one record per period
// under KPI 5.
#include "collectors.h"
#include "fnode.h"
#include "kpi_ids.h"

static int get_ddr_cur_freq(record* rec) {
    return append_node_u32(FNODE_DDR_CUR_FREQ, __func__, "cur_freq", rec);
}

int32_t collect_ddr_stats_hndl(uint64_t) {
    // The closing message names the reading step rather than the handler.
    return report_node_value(__func__, "get_ddr_cur_freq", "DDR,", kpi::DDRFREQ, get_ddr_cur_freq);
}
