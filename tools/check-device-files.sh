#!/usr/bin/env bash
# make check-device-files: the device build's files checked against what the device build knows.
#  - Android.bp: formatted as bpfmt formats it, arrays sorted (a syntax error fails too); the
#    files it names one by one exist; every fuzzer of tests/fuzz has its cc_fuzz and corpus.
#  - tools/check_device_build.py, with the module types, properties, vendor libraries, init
#    keywords, task profiles and property namespaces of tools/device_build_known.txt: every
#    module type and property is Soong's, every shared library of a vendor module is on a vendor
#    image, every cc_fuzz has its fuzz_config, the generated proto header is included under the
#    name Soong gives it; the .rc files use init's keywords, known task profiles and a seclabel
#    of the policy; property_contexts stays inside the vendor property namespaces.
#  - tarn_stats.rc: its user and groups are those of config.fs or known platform groups.
#  - sepolicy/: compiled with m4 and checkpolicy on top of the platform stand-in in
#    sepolicy/check/, which states the platform's neverallow rules, once as a user build and once
#    as a userdebug build; a broken rule is named with the policy line that breaks it. Every
#    context of file_contexts and property_contexts must name a declared type; types in
#    file_contexts must be file types.
# Usage: check-device-files.sh [ROOT]: ROOT (the repository by default) holds the device files;
# the platform stand-in and the known lists are always the repository's.
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
root=$(cd "${1:-$repo}" && pwd)
[ -n "${TARN_DEPS_CHECKED:-}" ] || bash "$repo/tools/install-deps.sh" checks
cd "$root"

fail() { echo "check-device-files: $*" >&2; exit 1; }

bps=$(git ls-files '*.bp' 2>/dev/null || true)
[ -n "$bps" ] || bps=Android.bp
for bp in $bps; do
    diff=$(bpfmt -s -d "$bp") || fail "$bp does not parse"
    [ -z "$diff" ] || { echo "$diff"; fail "$bp is not formatted (bpfmt -s -w $bp)"; }
    # Files named one by one (not through a glob) must exist: a renamed test breaks the device
    # build, which nothing here runs.
    dir=.
    [[ "$bp" != */* ]] || dir=${bp%/*}
    for f in $(grep -v '^ *//' "$bp" | grep -oE '"[a-z][^"*]*\.(cpp|proto|rc)"' | tr -d '"'); do
        [ -e "$dir/$f" ] || fail "$bp names $f, which does not exist"
    done
done

# Every fuzzer of the host build has its cc_fuzz with its corpus.
bp_text=$(<Android.bp)
for harness in tests/fuzz/*_fuzz.cpp; do
    name=${harness#tests/fuzz/}
    name=${name%_fuzz.cpp}
    [[ "$bp_text" == *"\"$harness\""* ]] || fail "Android.bp has no cc_fuzz for $harness"
    [[ "$bp_text" == *"\"tests/fuzz/corpus/$name/*\""* ]] || fail "Android.bp gives $name no corpus"
done

# shellcheck disable=SC2086
python3 "$repo/tools/check_device_build.py" "$root" $bps ||
    fail "the device files use what the device build does not know (lines above)"

# The service's user and the data directory's owner are the vendor user that config.fs defines;
# its groups are that user's or platform groups.
own=$(sed -n 's/^\[AID_\(VENDOR_[A-Z0-9_]*\)\]$/\1/p' config.fs | tr 'A-Z' 'a-z')
[ -n "$own" ] || fail "config.fs defines no vendor user"
for name in $(awk '$1 == "user" { print $2 } $1 == "mkdir" { print $4, $5 }' tarn_stats.rc); do
    [ "$name" = "$own" ] || fail "tarn_stats.rc names the user $name, not $own of config.fs"
done
for name in $(awk '$1 == "group" { $1 = ""; print }' tarn_stats.rc); do
    case " $own system media_rw readproc " in
        *" $name "*) ;;
        *) fail "tarn_stats.rc names the group $name, which is neither $own nor a known one" ;;
    esac
done

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
pol=sepolicy
chk=$repo/sepolicy/check
[ "$root" != "$repo" ] || chk=sepolicy/check
for variant in user userdebug; do
    conf=$out/policy.$variant.conf
    m4 -E -D target_build_variant="$variant" -D target_full_treble=true \
        -D target_enforce_debugfs_restriction=true -s $chk/global_macros $chk/te_macros \
        $chk/security_classes $chk/initial_sids $chk/access_vectors $chk/mls $chk/platform.te \
        $pol/*.te $chk/restrictions.te $chk/users $pol/genfs_contexts >"$conf" ||
        fail "m4 failed on the $variant policy"
    if ! checkpolicy -M -c 30 -o "$out/policy.$variant" "$conf" >"$out/log" 2>&1; then
        grep -q 'neverallow failures occurred' "$out/log" || { cat "$out/log"; fail "the $variant policy does not compile"; }
        python3 "$repo/tools/check_device_build.py" --neverallows "$conf" "$out/log" || true
        fail "the $variant policy breaks the platform's neverallow rules (lines above)"
    fi
done

# Each context of the two contexts files becomes a genfscon line of a throwaway file system, so
# that checkpolicy validates it against the policy (user, role, type, level).
awk 'NF && $1 !~ /^#/ { n++; print "genfscon tarn_check /" n, $2 }' \
    $pol/file_contexts $pol/property_contexts >"$out/contexts"
cat "$out/policy.userdebug.conf" "$out/contexts" >"$out/contexts.conf"
checkpolicy -M -c 30 -o "$out/contexts.bin" "$out/contexts.conf" >"$out/log" 2>&1 ||
    { cat "$out/log"; fail "a context of file_contexts or property_contexts is not valid"; }
awk 'NF && $1 !~ /^#/ && (NF < 2 || NF > 4 || (NF > 2 && $3 !~ /^(exact|prefix)$/)) {
         print FILENAME ": " $0; bad = 1 } END { exit bad }' $pol/property_contexts ||
    fail "property_contexts lines are: name context [exact|prefix] [type]"
for t in $(awk 'NF && $1 !~ /^#/ { split($2, c, ":"); print c[3] }' $pol/file_contexts); do
    grep -Eq "^type $t,.*\bfile_type\b" $pol/*.te || fail "$t of file_contexts is not a file_type"
done
echo "check-device-files: device files known to the device build; sepolicy keeps the platform's rules as user and userdebug build"
