#!/usr/bin/python3
"""Measures the real daemon under tarn_sim on phone8: CPU per tick beside collectd, syscalls and
heap allocations per tick of the sampling thread. Usage: run_bench.py BUILD_DIR [IMAGE]."""
import glob, os, re, shutil, signal, statistics, struct, subprocess, sys, tempfile, time

BUILD = os.path.abspath(sys.argv[1])
IMAGE = os.path.abspath(sys.argv[2] if len(sys.argv) > 2 else "sim/devices/phone8")
OUT = os.path.join(BUILD, "bench")
WINDOW = float(os.environ.get("BENCH_WINDOW", "30"))
WINDOWS = int(os.environ.get("BENCH_WINDOWS", "3"))
SIM, DAEMON = os.path.join(BUILD, "tarn_sim"), os.path.join(BUILD, "tarn_stats")
PRELOAD = os.path.join(OUT, "libtarn_alloc_count.so")
COLLECTORS = ["bat", "cpu", "gpu", "ddr", "lpm", "bri", "fps", "therm"]
CONFIGS = {"a": ["--cpu", "1", "--therm", "1", "--bat", "1"],
           "b": [a for c in COLLECTORS for a in ("--" + c, "1")]}
procs = []


def start(image, cmd, log, env=None):
    """Starts tarn_sim on `image` running `cmd`; returns (tarn_sim, root, records file)."""
    root = tempfile.mkdtemp(prefix="tarn_bench.", dir=OUT)
    records = os.path.join(root, "records.txt")
    p = subprocess.Popen([SIM, "run", "--image", image, "--root", os.path.join(root, "r"),
                          "--records", records, "--animate", "--"] + cmd,
                         stdout=subprocess.DEVNULL, stderr=open(log, "w"), env=env,
                         start_new_session=True)
    procs.append((p, root))
    return p, root, records


def stop_all():
    for p, root in procs:
        if p.poll() is None:
            p.send_signal(signal.SIGTERM)
    for p, root in procs:
        try:
            p.wait(15)
        except subprocess.TimeoutExpired:
            os.killpg(p.pid, signal.SIGKILL)
        shutil.rmtree(root, ignore_errors=True)
    procs.clear()


def child(sim, comm, deadline=20):
    """The process running `comm` below tarn_sim (the sandboxed command)."""
    end = time.time() + deadline
    while time.time() < end:
        for path in glob.glob("/proc/[0-9]*/stat"):
            try:
                fields = open(path).read().rsplit(")", 1)[1].split()
                name = open(path[:-4] + "comm").read().strip()
            except OSError:
                continue
            if int(fields[1]) == sim.pid and name == comm:
                return int(path.split("/")[2])
        time.sleep(0.2)
    sys.exit("bench: %s did not start (see %s)" % (comm, OUT))


def worker(pid, deadline=20):
    end = time.time() + deadline
    while time.time() < end:
        for task in glob.glob("/proc/%d/task/*" % pid):
            try:
                if open(task + "/comm").read().strip() == "tarn_worker":
                    return int(task.rsplit("/", 1)[1])
            except OSError:
                pass
        time.sleep(0.2)
    sys.exit("bench: no sampling thread in process %d" % pid)


def cpu_ns(pid):
    total = 0
    for task in glob.glob("/proc/%d/task/*/schedstat" % pid):
        try:
            total += int(open(task).read().split()[0])
        except (OSError, ValueError, IndexError):
            pass
    return total


def ticks(records):  # the battery record comes once per tick in both configurations
    try:
        return sum(1 for line in open(records) if line.startswith("2\t"))
    except OSError:
        return 0


def rss_fds(pid):
    rss = re.search(r"VmRSS:\s+(\d+)", open("/proc/%d/status" % pid).read()).group(1)
    return "%s KiB, %d fds" % (rss, len(os.listdir("/proc/%d/fd" % pid)))


def collectd_image():
    """phone8 plus the /sys/class/thermal links that collectd's thermal plugin walks."""
    image = os.path.join(OUT, "image-collectd")
    shutil.rmtree(image, ignore_errors=True)
    shutil.copytree(IMAGE, image, symlinks=True)
    os.symlink("../devices/virtual/thermal", os.path.join(image, "sys/class/thermal"))
    conf = os.path.join(OUT, "collectd.conf")
    with open(conf, "w") as f:
        f.write('Interval 1\nHostname "phone8"\nFQDNLookup false\nBaseDir "/tmp"\n'
                'PIDFile "/tmp/collectd.pid"\nPluginDir "/usr/lib/collectd"\n'
                'TypesDB "/usr/share/collectd/types.db"\n'
                "LoadPlugin cpu\nLoadPlugin cpufreq\nLoadPlugin thermal\nLoadPlugin battery\n"
                'LoadPlugin csv\n<Plugin csv>\n  DataDir "/tmp/csv"\n</Plugin>\n')
    return image, conf


def cpu_phase():
    """Daemon and collectd side by side, each in its own tarn_sim sandbox (a private mount
    namespace and chroot of a copied image, with the host's /usr and /lib bound in, so collectd
    and its plugins run unchanged and read the simulated /sys and /proc/stat)."""
    image, conf = collectd_image()
    rows = []
    for name, args in CONFIGS.items():
        sim, _, records = start(IMAGE, [DAEMON, "--daemon"] + args, OUT + "/daemon.log")
        csim, _, _ = start(image, ["/usr/sbin/collectd", "-f", "-C", conf],
                           OUT + "/collectd.log")
        pid, cpid = child(sim, "tarn_stats"), child(csim, "collectd")
        worker(pid)
        while ticks(records) < 10:
            time.sleep(0.2)
        at10 = rss_fds(pid)
        per_tick, cd_per_s = [], []
        for _ in range(WINDOWS):
            d0, c0, t0, w0 = cpu_ns(pid), cpu_ns(cpid), ticks(records), time.time()
            time.sleep(WINDOW)
            d1, c1, t1, w1 = cpu_ns(pid), cpu_ns(cpid), ticks(records), time.time()
            per_tick.append((d1 - d0) / max(t1 - t0, 1) / 1000)
            cd_per_s.append((c1 - c0) / (w1 - w0) / 1000)
        rows.append((name, statistics.median(per_tick), statistics.median(cd_per_s), at10,
                     ticks(records), rss_fds(pid)))
        stop_all()
    return rows


def strace_ticks(path, n=10):
    """Syscalls per tick: a tick runs from the end of one long (>0.3 s) wait to the end of the
    next, so each counted tick holds its collectors' calls and one timed wait."""
    counts, cur, started = [], {}, False
    for line in open(path):
        m = re.match(r"(\w+)\(.*<([\d.]+)>$", line.strip())
        if not m:
            continue
        if started:
            cur[m.group(1)] = cur.get(m.group(1), 0) + 1
        if float(m.group(2)) > 0.3:
            if started:
                counts.append(cur)
            cur, started = {}, True
    counts = counts[:n]
    total = {}
    for c in counts:
        for k, v in c.items():
            total[k] = total.get(k, 0) + v
    return len(counts), {k: v / max(len(counts), 1) for k, v in total.items()}


def skip_ranges():
    """Code of the telemetry SDK stand-in (zel_*) in the daemon, for the allocation counter."""
    out = subprocess.run(["nm", "-S", "--defined-only", DAEMON], capture_output=True, text=True)
    ranges = [f[0] + ":" + f[1] for f in (l.split() for l in out.stdout.splitlines())
              if len(f) == 4 and f[3].startswith("zel_")]
    return ",".join(ranges)


def read_slot(path, tid):
    data = open(path, "rb").read()
    for off in range(0, len(data), 40):
        slot = struct.unpack_from("<iiQQQQ", data, off)
        if slot[0] == tid:
            return slot[2], slot[3], slot[5]  # counted, skipped (SDK), timed waits
    return 0, 0, 0


def per_collector():
    """One daemon per collector (period 1, nothing else on), all at once: counts of calls do not
    depend on the machine's load. One round under strace, one with the allocation counter."""
    runs = [(c, ["--" + c, "1"]) for c in COLLECTORS] + [("all (b)", CONFIGS["b"])]
    traced = []
    for name, args in runs:
        sim, _, _ = start(IMAGE, [DAEMON, "--daemon"] + args, OUT + "/daemon.log")
        traced.append((name, sim))
    straces = []
    for name, sim in traced:
        tid = worker(child(sim, "tarn_stats"))
        out = os.path.join(OUT, "strace.%s.txt" % name.split()[0])
        straces.append((name, out, subprocess.Popen(
            ["strace", "-qq", "-T", "-p", str(tid), "-o", out], stderr=subprocess.DEVNULL)))
    time.sleep(13)
    for _, _, s in straces:
        s.send_signal(signal.SIGINT)
        s.wait()
    stop_all()

    env = dict(os.environ, TARN_ALLOC_SKIP=skip_ranges())
    counted = []
    for name, args in runs:
        counts = os.path.join(OUT, "allocs.%s.bin" % name.split()[0])
        cmd = ["/usr/bin/env", "LD_PRELOAD=" + PRELOAD, "TARN_ALLOC_COUNTS=" + counts, DAEMON,
               "--daemon"] + args
        sim, _, _ = start(IMAGE, cmd, OUT + "/daemon.log", env)
        counted.append((name, sim, counts))
    slots = [(name, counts, worker(child(sim, "tarn_stats"))) for name, sim, counts in counted]
    time.sleep(3)
    first = [read_slot(c, t) for _, c, t in slots]
    time.sleep(10)
    allocs = {}
    for (name, c, t), a in zip(slots, first):
        b = read_slot(c, t)
        n = max(b[2] - a[2], 1)
        allocs[name] = ((b[0] - a[0]) / n, (b[1] - a[1]) / n)
    stop_all()
    return [(name, strace_ticks(out), allocs[name]) for name, out, _ in straces]


# Fewest calls the sampling thread could make per tick on this image.
def floor(collector):
    exists = lambda p: os.path.lexists(IMAGE + p)
    kept = lambda paths: sum(1 for p in paths if exists(p))  # one read at offset each
    thermal = lambda p: 3 if exists(p) else 1  # open, read, close or one failed open
    cpu = "/sys/devices/system/cpu"
    if collector == "bat":
        return kept(["/sys/class/power_supply/battery/uevent"]) + 1
    if collector == "cpu":
        pol = sorted(glob.glob(IMAGE + cpu + "/cpufreq/policy*"))[:7]
        return len(pol) * 3  # time_in_state, /proc/stat, one send per cluster
    if collector == "gpu":
        return 3 + 1
    if collector in ("ddr", "bri", "fps"):
        return 2
    if collector == "lpm":
        n = 8 + 10 + kept(["/sys/kernel/debug/kelv_sleep_stats/" + s for s in (
            "adsp", "adsp_island", "aosd", "apss", "cdsp", "cxsd", "ddr", "modem", "slpi",
            "slpi_island")])
        wl = ["wlnd", "wlne_v2", "wlne", "wlnf", "wlnc", "wlnb", "wlna", "wifi"]
        found = [i for i, w in enumerate(wl) if exists("/sys/kernel/%s/power_stats" % w)]
        return n + (found[0] + 1 + 3 if found else 8) + 1
    if collector == "therm":
        return thermal_floor()
    return 0


def thermal_floor():
    src = open(os.path.join(os.path.dirname(__file__), "..", "daemon", "collectors",
                            "thermal_groups.cpp")).read()
    part = src.split("g_thermal_zone_groups")
    tables = [re.findall(r'\{\s*(?:"[^"]*"|\w+),\s*\{([^}]*)\}', p) for p in part[:2]]
    cooling, zone = [re.findall(r'"([^"]*)"', ",".join(t)) for t in tables]
    base = IMAGE + "/sys/devices/virtual/thermal/"
    num_tz = sum(os.path.isdir(d) for d in glob.glob(base + "*"))
    word = lambda p: (open(p).read().split() or [None])[0] if os.path.isfile(p) else None
    n, sensors = 0, 0
    zones = []
    for i in range(num_tz):
        t = word(base + "thermal_zone%d/type" % i)
        if t is None:
            continue
        sensors = i + 1
        if any(m in t for m in zone):
            zones.append(i)
    for i in range(num_tz):
        t = word(base + "cooling_device%d/type" % i)
        if t and any(m in t.split(",", 1)[-1] for m in cooling):
            d = base + "cooling_device%d/" % i
            n += read_cost(d + "cur_state", 1) + 3
    for i in zones:
        if i < sensors:
            n += read_cost(base + "thermal_zone%d/temp" % i, 1) + 3
    n += read_cost(IMAGE + "/sys/class/power_supply/battery/current_now", 0)
    for c in (0, 6, 7):
        n += read_cost(IMAGE + "/sys/devices/system/cpu/cpu%d/cpufreq/scaling_cur_freq" % c, 0)
    n += read_cost(IMAGE + "/sys/class/gfxd/gfxd-3d0/gpuclk", 0)
    n += read_cost(IMAGE + "/sys/kernel/debug/clk/measure_only_mccc_clk/clk_measure", 0)
    return n + 3  # three records


def read_cost(path, error_lines):
    """open+read+close of a thermal node, one write per error line when it does not parse; a
    failed open when missing."""
    if not os.path.exists(path):
        return 1 + error_lines
    return 3 + (0 if (open(path).read().split() or None) else 1 + error_lines)


def main():
    os.makedirs(OUT, exist_ok=True)
    try:
        cpu = cpu_phase()
        calls = per_collector()
    finally:
        stop_all()
    print("\nCPU per tick, whole daemon process vs collectd (cpu, cpufreq, thermal, battery, csv;"
          " 1 s), median of %d windows of %.0f s:" % (WINDOWS, WINDOW))
    print("| config | daemon µs/tick | collectd µs/interval | ratio | RSS, fds at tick 10 "
          "| at end (tick) |")
    for name, d, c, at10, n, end in cpu:
        print("| (%s) | %.0f | %.0f | %.2f | %s | %s (%d) |" % (name, d, c, d / c, at10, end, n))
    print("\nSampling thread per tick (strace over 10 ticks; allocations from the preloaded "
          "counter, SDK stand-in apart):")
    print("| collectors | syscalls | floor | ratio | allocations (+SDK) | calls |")
    for name, (n, calls_), (al, sdk) in calls:
        if name.startswith("all"):
            fl = sum(floor(c) for c in COLLECTORS) + 1
        else:
            fl = floor(name) + 1  # and the tick's timed wait
        total = sum(calls_.values())
        top = " ".join("%s %.0f" % kv for kv in sorted(calls_.items(), key=lambda kv: -kv[1])
                       if kv[1] >= 0.5)
        print("| %s | %.1f | %d | %.2f | %.1f (+%.1f) | %s%s |" % (
            name, total, fl, total / fl, al, sdk, top, "" if n == 10 else " (%d ticks)" % n))


main()
