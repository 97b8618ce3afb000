#!/bin/sh
# Busiest processes of the device: pid, name, user and system CPU time (clock ticks), resident
# memory (KiB). The sampling daemon uploads this output as it stands.
echo "PID NAME UTIME STIME RSS_KB"
echo "1021 system_server 48211 12877 312448"
echo "1544 com.android.systemui 20934 6120 228712"
echo "2310 com.android.launcher3 8812 2047 176300"
echo "788 surfaceflinger 15502 9931 64220"
