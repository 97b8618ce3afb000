#!/usr/bin/env bash
# Runs a command with address-space randomisation off when the kernel randomises more address
# bits than ThreadSanitizer's fixed memory layout tolerates; otherwise runs it as it is.
bits=$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)
if [ "$bits" -gt 28 ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    exec setarch "$(uname -m)" -R "$@"
fi
exec "$@"
