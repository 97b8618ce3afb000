// Brightness collector: the panel backlight's raw level, one record per period under KPI 8.
#include "collectors.h"
#include "fnode.h"
#include "kpi_ids.h"

static int get_panel_brightness(record* rec) {
    return append_node_u32(FNODE_BRIGHTNESS, __func__, "cur_bri", rec);
}

int32_t collect_brightness_stats_hndl(uint64_t) {
    return report_node_value(__func__, __func__, "BRI,", kpi::BRIGHTNESS, get_panel_brightness);
}
