#!/usr/bin/env bash
# tools/tarn_profile on phone-b: its image, the same names as `grep . .../type` lines and as bare
# name lists give the same groups; a refused profile fails.
set -euo pipefail
src=$(cd "$(dirname "$0")/../.." && pwd)
tool=("$@")  # the checker, behind an emulator in a cross build
image=$src/sim/devices/phone-b
profile=$image/vendor/etc/tarn_stats/profile.json
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "tarn_profile_test: $*" >&2; exit 1; }

"${tool[@]}" --profile "$profile" "$image" >"$tmp/dir.txt"
for want in 'cooling +5 +thermal-devfreq-0 +gpu$' 'cooling +10 +cpu-isolate3 +cpu_pause$' \
    'zone +16 +npu-usr +nsp-tj-temp$' 'zone +61 +skin-therm-usr +misc_skin .*, skin-temp$' \
    'zone +9 +cwlan-usr +-$' '^cooling devices in no group: 0$'; do
    grep -Eq "$want" "$tmp/dir.txt" || fail "no line /$want/ in: $(cat "$tmp/dir.txt")"
done
(cd "$image/sys/devices/virtual/thermal" && grep . */type) | sed 's|^|/sys/class/thermal/|' >"$tmp/paths"
"${tool[@]}" --profile "$profile" "$tmp/paths" >"$tmp/paths.txt"
cmp -s "$tmp/dir.txt" "$tmp/paths.txt" || fail "PATH:TYPE lines differ: $(diff "$tmp/dir.txt" "$tmp/paths.txt")"
for kind in thermal_zone cooling_device; do
    for d in "$image/sys/devices/virtual/thermal/$kind"*; do echo "${d##*$kind} $(cat "$d/type")"; done >"$tmp/$kind"
done
"${tool[@]}" --profile "$profile" --zones "$tmp/thermal_zone" --cooling "$tmp/cooling_device" >"$tmp/lists.txt"
cmp -s "$tmp/dir.txt" "$tmp/lists.txt" || fail "name lists differ: $(diff "$tmp/dir.txt" "$tmp/lists.txt")"

echo '{"cooling_groups": {"gpu": ["display"], "cdsp": [1]}}' >"$tmp/bad.json"
status=0
"${tool[@]}" --profile "$tmp/bad.json" "$image" >/dev/null 2>"$tmp/err" || status=$?
[ "$status" -eq 1 ] && grep -q 'cooling_groups "cdsp": not a string' "$tmp/err" ||
    fail "bad profile: status $status, $(cat "$tmp/err")"
echo "tarn_profile_test: ok"
