# The daemon's own vendor user and group, vendor_tarn_stats (OEM range 2900-2999). Add this
# file to the board's TARGET_FS_CONFIG_GEN.
[AID_VENDOR_TARN_STATS]
value: 2950
