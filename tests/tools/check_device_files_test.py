#!/usr/bin/env python3
"""tools/check-device-files.sh on broken copies of the device files, one fault each: the check must
fail on every copy and name the file and line of the fault. The unbroken copy must pass, and the
neverallow cases together must break every rule of the platform stand-in."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TE = "sepolicy/tarn_stats.te"

# (file, text replaced, replacement; "" appends the replacement, whose last line is the fault),
# and for faults reported elsewhere, the pattern of the expected location.
CASES = [
    ("Android.bp", "    vendor: true,", "    vendorr: true,"),
    ("Android.bp", '        "liblog",', '        "liblogg",'),
    ("Android.bp", "cc_binary {", "cc_binaryy {"),
    ("Android.bp", "        fuzz_on_haiku_host: false,", "        fuzz_on_host: false,"),
    ("Android.bp", '    path: "daemon/report",\n', "", r'campaign\.cpp:\d+: includes "tarn_stats\.pb\.h"'),
    ("Android.bp", """    fuzz_config: {
        cc: ["tarn-stats-owners@orv.example"],
        fuzz_on_haiku_device: true,
        fuzz_on_haiku_host: false,
    },
""", "", r"Android\.bp:\d+: cc_fuzz without fuzz_config"),
    ("tarn_stats.rc", "    class late_start", "    clas late_start"),
    ("tarn_stats.rc", "    task_profiles ServiceCapacityLow", "    task_profiles NoSuchProfile"),
    ("tarn_stats.rc", "    capabilities", "    seclabel u:r:tarn_statz:s0"),
    ("tarn_stats.rc", "    mkdir /data/vendor/tarn_stats", "    mkdirs /data/vendor/tarn_stats"),
    ("sepolicy/property_contexts", "vendor.tarn_stats.  ", "rw.debug.tarn.stats."),
    ("sepolicy/property_contexts", "u:object_r:vendor_crash_cnt_prop:s0", "u:object_r:crash_cnt_prop:s0"),
    # One per neverallow of the platform stand-in.
    (TE, "", "get_prop(tarn_stats, serialno_prop)"),
    (TE, "", "allow tarn_stats default_prop:property_service set;"),
    (TE, "", "get_prop(tarn_stats, default_prop)"),
    (TE, "", "allow tarn_stats build_prop:property_service set;"),
    (TE, "", "get_prop(shell, vendor_crash_cnt_prop)"),
    (TE, "", "allow shell build_vendor_prop:property_service set;"),
    (TE, "", "allow tarn_stats self:binder set_context_mgr;"),
    (TE, "", "allow tarn_stats hal_orv_perf2_service:service_manager add;"),
    (TE, "", "allow tarn_stats default_android_service:service_manager add;"),
    (TE, "", "type debugfs_tarn_clk, debugfs_type, fs_type;\nr_dir_file(tarn_stats, debugfs_tarn_clk)"),
    (TE, "", "allow tarn_stats debugfs:file read;"),
    (TE, "", "allow tarn_stats debugfs_tracing_debug:file execute;"),
    (TE, "", "allow tarn_stats tombstone_data_file:file { open rename };"),
    (TE, "", "allow tarn_stats anr_data_file:dir search;"),
    (TE, "", "allow tarn_stats system_data_file:dir read;"),
    (TE, "", "allow tarn_stats tarn_stats_data_file:file execute;"),
    (TE, "", "allow tarn_stats shell_data_file:lnk_file read;"),
    (TE, "", "allow tarn_stats shell_data_file:dir add_name;"),
    (TE, "", "allow tarn_stats shell_data_file:dir search;"),
    (TE, "", "allow tarn_stats shell_data_file:file open;"),
    (TE, "", "allow tarn_stats shell_exec:file execute;"),
    (TE, "", "allow tarn_stats sysfs:dir write;"),
    (TE, "", "allow tarn_stats self:file execute;"),
]
DEVICE_FILES = ["Android.bp", "tarn_stats.rc", "config.fs"]


def copy_device_files(dest):
    for f in DEVICE_FILES:
        shutil.copy(os.path.join(REPO, f), dest)
    os.mkdir(os.path.join(dest, "sepolicy"))
    for f in os.listdir(os.path.join(REPO, "sepolicy")):
        if os.path.isfile(os.path.join(REPO, "sepolicy", f)):
            shutil.copy(os.path.join(REPO, "sepolicy", f), os.path.join(dest, "sepolicy"))
    for d in ("daemon", "tests"):
        os.symlink(os.path.join(REPO, d), os.path.join(dest, d))


def run_case(case):
    path, old, new = case[:3]
    with tempfile.TemporaryDirectory() as root:
        copy_device_files(root)
        text = open(os.path.join(root, path)).read()
        if old:
            if old not in text:
                return f"{case}: {old!r} is not in {path}"
            line = text[: text.index(old)].count("\n") + 1
            text = text.replace(old, new, 1)
        else:
            text = text.rstrip("\n") + "\n" + new + "\n"
            line = text.count("\n")
        open(os.path.join(root, path), "w").write(text)
        run = check(root)
    where = case[3] if len(case) > 3 else re.escape(f"{path}:{line}:")
    if run.returncode == 0 or not re.search(where, run.stderr):
        return False, f"{case}: status {run.returncode}, no finding at {where}:\n{run.stderr}"
    return True, run.stderr


def check(root):
    return subprocess.run(["bash", os.path.join(REPO, "tools/check-device-files.sh"), root],
                          capture_output=True, text=True, env=dict(os.environ, TARN_DEPS_CHECKED="1"))


def main():
    with tempfile.TemporaryDirectory() as root:
        copy_device_files(root)
        clean = check(root)
    failures = [] if clean.returncode == 0 else [f"the unbroken copy fails:\n{clean.stderr}"]
    with ThreadPoolExecutor(2) as pool:
        outputs = list(pool.map(run_case, CASES))
    failures += [text for ok, text in outputs if not ok]
    # checkpolicy names a rule by one of its lines: a rule is broken when a line of it is named.
    broken = {int(n) for _, text in outputs for n in re.findall(r"restrictions\.te:(\d+)", text)}
    start = None
    for n, text in enumerate(open(os.path.join(REPO, "sepolicy/check/restrictions.te")), 1):
        start = n if re.match(r"(\w+\(`)?neverallow\b", text) else start
        if start and ";" in text:
            if not broken & set(range(start, n + 1)):
                failures.append(f"no case breaks the rule at sepolicy/check/restrictions.te:{start}")
            start = None
    print("\n".join(failures) or f"check-device-files: all {len(CASES)} broken copies refused")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
