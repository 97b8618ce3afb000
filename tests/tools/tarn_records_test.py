"""tools/tarn_records against records that the simulator really produced on phone8: a records
file with timestamps and a local record file of the same run."""

import csv
import io
import json
import os
import random
import subprocess
import tempfile
import types
import unittest
import unittest.mock

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
TOOL = os.path.join(SOURCE, "tools", "tarn_records")
RECORDS = os.path.join(SOURCE, "tests", "fixtures", "records", "phone8.records")
LOCAL = os.path.join(SOURCE, "tests", "fixtures", "records", "phone8_local.txt")

# The tool is a script without a .py name: load it as a module.
tr = types.ModuleType("tarn_records")
tr.__file__ = TOOL
with open(TOOL) as _f:
    exec(compile(_f.read(), TOOL, "exec"), tr.__dict__)

HEADER = "tarn-stats-v2.1,Orvane,Kestrel 8,PH8A0042117,KESTREL8.LA.2.0-04411-STD.PROD-1"


def first_rows(decoded, kpi):
    return next(r.rows for r in decoded.records if r.kpi == kpi)


class DecodeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.records = tr.read_file(RECORDS)
        cls.local = tr.read_file(LOCAL)

    def test_first_record_of_every_kind(self):
        # KPI id -> (row index, table, fields expected in that row of the kind's first record).
        cases = {
            2: (0, "battery", {"level_pct": 85, "voltage_uV": 4123861, "current_uA": -379616,
                               "temperature_dC": 313, "status": "Discharging"}),
            3: (0, "cpu", {"policy": 0, "avg_freq_kHz": 787200, "covered_10ms": 910236,
                           "util_pct": 14.85}),
            4: (0, "gpu", {"freq_Hz": 300000000, "time_at_freq_ms": 0, "load_pct": 18.0}),
            5: (0, "ddr", {"freq_kHz": 1708000}),
            6: (0, "lpm_cpu", {"domain": 0, "state": "S2", "time_ms": 12140, "usage": 3035,
                               "rejected": 30, "usage_delta_S0": 0, "usage_delta_S2": 3035}),
            8: (0, "brightness", {"level": 2047}),
            9: (0, "fps", {"rate_fps": 87.8}),
            1000: (0, "thermal_zone", {"quiet-therm_mC": 35000, "sys-therm-1_mC": 34800,
                                       "cpu-tj-max-temp_mC": 61200, "socd": 11,
                                       "skin_temp_mC": 35000, "current_mA": -611}),
            1001: (0, "cooling", {"cpu_pause_state": 0, "cpu0_state": 4, "gpu_state": 2,
                                  "modem_vdd_state": 0}),
            1002: (0, "clocks", {"CPU0_freq_kHz": 902400, "CPU7_freq_kHz": 729600,
                                 "GPU_MHz": 300, "DDR_MHz": 1353}),
            2000: (0, "stability", {"file_kind": "status", "size_bytes": 106,
                                    "path": "/sdcard/Perfdump/status_20240311_101502.txt"}),
            2001: (0, "stability", {"file_kind": "tombstone", "size_bytes": 462,
                                    "path": "/data/tombstones/tombstone_01"}),
            2002: (0, "stability", {"file_kind": "anr", "size_bytes": 167,
                                    "path": "/data/anr/anr_2024-03-11-10-20-33-118"}),
        }
        for kpi, (index, table, fields) in cases.items():
            with self.subTest(kpi=kpi):
                name, row = first_rows(self.records, kpi)[index]
                self.assertEqual(table, name)
                self.assertEqual(fields, {k: row.get(k) for k in fields})

    def test_low_power_parts_and_process_text(self):
        rows = first_rows(self.records, 6)
        self.assertEqual(["lpm_cpu"] * 8 + ["lpm_subsystem"] * 10 + ["lpm_wlan"],
                         [t for t, _ in rows])
        self.assertEqual({"subsystem": "modem", "count": 51294, "accumulated_ticks": 4928064000,
                          "count_delta": 51294, "sleep_s": 256}, {
                              k: rows[15][1][k] for k in ("subsystem", "count",
                                                          "accumulated_ticks", "count_delta",
                                                          "sleep_s")})
        self.assertEqual(3500, [r for r in self.records.records if r.kpi == 6][1]
                         .rows[-1][1]["sleep_time_ms_delta"])
        text = first_rows(self.records, 7)[0][1]["text"]
        self.assertTrue(text.startswith("PID NAME UTIME STIME RSS_KB\n1021 system_server"))
        self.assertEqual(5, text.count("\n"))

    def test_header_application_and_time(self):
        first = self.records.records[0]
        self.assertEqual(HEADER.split(","), first.header)
        self.assertEqual("com.android.launcher3", first.app)
        self.assertEqual(1.022, first.time)
        self.assertEqual(["com.android.launcher3", "org.sample.camera"],
                         sorted({r.app for r in self.records.records}))
        self.assertEqual((0, 0), (len(self.records.malformed), len(self.records.unknown)))

    def test_local_file_tells_kinds_from_the_text(self):
        # The local file holds the same run's first records, without KPI ids or times; its
        # process statistics and shipped files span several lines.
        self.assertTrue(self.local.local)
        self.assertEqual((0, 0), (len(self.local.malformed), len(self.local.unknown)))
        self.assertEqual(63, len(self.local.records))
        for mine, theirs in zip(self.local.records, self.records.records):
            self.assertEqual((theirs.kpi, theirs.app, theirs.rows),
                             (mine.kpi, mine.app, mine.rows))
        self.assertIsNone(self.local.records[0].time)
        self.assertEqual(3000, tr.kpi_of_text("3"))

    def test_malformed_and_unknown_lines_are_counted(self):
        good = "2\t" + HEADER + ",app,battery,85,4123861,-379616,313,Discharging"
        lines = [
            good,
            "no tab at all",
            "2\tno header here",
            "2\t" + HEADER + ",app,battery,85,x,-379616,313,Discharging",
            "3\t" + HEADER + ",app,policy0,787200,910236,",
            "6\t" + HEADER + ",app,LPM,CPU0, S2 1 2,",
            "1001\t" + HEADER + ",app,cpu_pause: zero,",
            "4\t" + HEADER + ",app,GPU,1,2,3\\q,",
            "99\t" + HEADER + ",app,something",
            "",
            "3000\t" + HEADER + ",app,3",
        ]
        decoded = tr.decode_lines(lines)
        self.assertEqual(7, len(decoded.malformed))
        self.assertEqual([(9, 99)], decoded.unknown)
        self.assertEqual([2, 3000], [r.kpi for r in decoded.records])
        err = io.StringIO()
        tr.report_problems(decoded, err, limit=2)
        self.assertIn("line 2: not TIME<TAB>KPI<TAB>LINE", err.getvalue())
        self.assertIn("... and 5 more malformed lines", err.getvalue())
        self.assertIn("7 malformed lines, 1 of unknown kinds, 2 records decoded", err.getvalue())

        local = tr.decode_lines(["stray text", HEADER + ",app,battery,1,2,3,4,Full",
                                 HEADER + ",app,DDR,nope,"])
        self.assertEqual([1, 3], [no for no, _ in local.malformed])
        self.assertEqual(1, len(local.records))


def check_trace(test, trace):
    """The Chrome JSON trace event format as Perfetto reads it: every event has the fields its
    phase needs, counters hold numbers, and time rises on every track."""
    needs = {"M": {"name", "pid", "tid", "args"}, "C": {"name", "pid", "ts", "args"},
             "X": {"name", "pid", "tid", "ts", "dur"}, "i": {"name", "pid", "tid", "ts", "s"}}
    last = {}
    for e in trace["traceEvents"]:
        test.assertIn(e["ph"], needs)
        test.assertLessEqual(needs[e["ph"]], set(e), e)
        if "ts" in e:
            test.assertIsInstance(e["ts"], int)
        if e["ph"] == "C":
            test.assertTrue(e["args"])
            for field, value in e["args"].items():
                test.assertIn(type(value), (int, float), e)
                track = (e["pid"], e["name"], field)
                test.assertGreater(e["ts"], last.get(track, -1), track)
                last[track] = e["ts"]
        elif e["ph"] == "X":
            test.assertGreater(e["dur"], 0)
            test.assertGreaterEqual(e["ts"], last.get((e["pid"], e["tid"]), -1))
            last[(e["pid"], e["tid"])] = e["ts"] + e["dur"]
    return last


def timed_local_lines(boot0=5000.0):
    """phone8's local file with the time a device writes before each record when asked to,
    one record a second."""
    out, n = [], 0
    with open(LOCAL) as f:
        for ln in f.read().split("\n")[:-1]:
            if ln.startswith(tr.VERSION_PREFIX):
                ln = "%.6f 2026-11-24T10:%02d:%02d.250Z\t%s" % (boot0 + n, n // 60, n % 60, ln)
                n += 1
            out.append(ln)
    return out


class PerfettoTest(unittest.TestCase):
    def test_trace_of_a_run(self):
        decoded = tr.read_file(RECORDS)
        trace = {"traceEvents": tr.trace_events(decoded)}
        tracks = check_trace(self, trace)
        events = trace["traceEvents"]
        self.assertEqual([{"name": "Orvane Kestrel 8 (PH8A0042117)"}],
                         [e["args"] for e in events if e["name"] == "process_name"])
        self.assertIn((1, "battery", "level_pct"), tracks)
        self.assertIn((1, "cpu policy4", "avg_freq_kHz"), tracks)
        self.assertIn((1, "lpm_subsystem modem", "sleep_s"), tracks)
        self.assertEqual(["com.android.launcher3", "org.sample.camera"],
                         [e["name"] for e in events if e["ph"] == "X"])
        files = [e for e in events if e["ph"] == "i"]
        self.assertEqual({"path": "/data/tombstones/tombstone_01", "size_bytes": 462},
                         files[1]["args"])
        first = next(e for e in events if e["ph"] == "C")
        self.assertEqual(1022000, first["ts"])

    def test_local_file_with_device_times(self):
        decoded = tr.decode_lines(timed_local_lines())
        self.assertEqual((0, 0), (len(decoded.malformed), len(decoded.unknown)))
        self.assertEqual(63, len(decoded.records))
        self.assertEqual((5001.0, "2026-11-24T10:00:01.250Z"),
                         (decoded.records[1].time, decoded.records[1].wall))
        ts = [e["ts"] for e in tr.trace_events(decoded) if e["ph"] == "C"]
        self.assertEqual(5000000000, min(ts))
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "local.txt")
            with open(path, "w") as f:
                f.write("\n".join(timed_local_lines()) + "\n")
            out = os.path.join(tmp, "trace.json")
            self.assertEqual(0, tr.main(["--perfetto", out, "--csv", tmp, path]))
            with open(out) as f:
                check_trace(self, json.load(f))
            with open(os.path.join(tmp, "battery.csv"), newline="") as f:
                self.assertEqual(["seq", "time_s", "wall_time", "app"], next(csv.reader(f))[:4])
            # Without times there is no clock to place the records on.
            err = io.StringIO()
            with unittest.mock.patch("sys.stderr", err):
                self.assertEqual(2, tr.main(["--perfetto", out, LOCAL]))
            self.assertIn("--perfetto needs the time of every record", err.getvalue())


class FuzzTest(unittest.TestCase):
    """Random and mutated record files through every output mode: malformed lines are counted,
    no input ends in an exception."""

    def mutate(self, rnd, lines):
        out = list(lines)
        for _ in range(rnd.randint(1, 8)):
            i = rnd.randrange(len(out))
            ln = out[i]
            pick = rnd.randrange(7)
            pos = rnd.randint(0, len(ln))
            if pick == 0:
                out[i] = ln[:pos] + "9" * rnd.choice((20, 400, 5000)) + ln[pos:]
            elif pick == 1:
                out[i] = ln[:pos] + rnd.choice(["\t", ",", ":", "\\", "\\x", "nan", "inf",
                                                 "\udcff", "-", ".", " "]) + ln[pos + 1:]
            elif pick == 2:
                out[i] = ln[:pos]
            elif pick == 3:
                out.insert(i, "".join(chr(rnd.randrange(1, 0x250)) for _ in range(40)))
            elif pick == 4:
                out[i] = ln.replace(",", ",,", 1)
            elif pick == 5:
                out[i] = rnd.choice(lines)[:pos] + ln[pos:]
            else:
                del out[i]
        return out or [""]

    def test_no_input_ends_in_an_exception(self):
        rnd = random.Random(20261124)
        seeds = [tr.read_file(RECORDS), tr.decode_lines(timed_local_lines())]
        with open(RECORDS) as f:
            plain = f.read().split("\n")
        sources = [plain, timed_local_lines()]
        malformed = 0
        with tempfile.TemporaryDirectory() as tmp, \
                unittest.mock.patch("sys.stderr", io.StringIO()), \
                unittest.mock.patch("sys.stdout", io.StringIO()):
            path = os.path.join(tmp, "in.txt")
            for n in range(300):
                lines = self.mutate(rnd, rnd.choice(sources))
                with open(path, "w", errors="surrogateescape") as f:
                    f.write("\n".join(lines))
                decoded = tr.read_file(path)
                malformed += len(decoded.malformed)
                modes = [["--summary"], ["--csv", tmp], ["--perfetto", path + ".json"]]
                if n % 100 == 0:
                    modes.append(["--plot", path + ".png"])
                for mode in modes:
                    self.assertIn(tr.main(mode + [path]), (0, 2), (n, mode))
                if os.path.exists(path + ".json"):
                    with open(path + ".json") as f:
                        check_trace(self, json.load(f))
                    os.unlink(path + ".json")
        self.assertGreater(malformed, 100)
        self.assertTrue(all(s.records for s in seeds))

    def test_overlong_numbers_are_malformed(self):
        huge = "9" * 400
        decoded = tr.decode_lines(["2\t" + HEADER + ",app,battery,85," + huge + ",1,2,Full",
                                   "9\t" + HEADER + ",app,FPS,1" + huge + ".5,",
                                   "9\t" + HEADER + ",app,FPS,nan,",
                                   huge + "\t" + HEADER + ",app,3"])
        self.assertEqual(4, len(decoded.malformed))


class OutputTest(unittest.TestCase):
    def run_tool(self, *args):
        return subprocess.run(["/usr/bin/python3", TOOL] + list(args), capture_output=True,
                              text=True, timeout=300)

    def test_csv_tables_name_their_units(self):
        with tempfile.TemporaryDirectory() as tmp:
            result = self.run_tool("--csv", tmp, RECORDS)
            self.assertEqual(0, result.returncode, result.stderr)
            self.assertEqual(["battery", "brightness", "clocks", "cooling", "cpu", "ddr", "fps",
                              "gpu", "lpm_cpu", "lpm_subsystem", "lpm_wlan", "ps", "stability",
                              "thermal_zone"], sorted(f[:-4] for f in os.listdir(tmp)))
            heads = {}
            for name in ("battery", "cpu", "gpu", "lpm_subsystem", "ps"):
                with open(os.path.join(tmp, name + ".csv"), newline="") as f:
                    heads[name] = list(csv.reader(f))
            self.assertEqual(["seq", "time_s", "app", "level_pct", "voltage_uV", "current_uA",
                              "temperature_dC", "status"], heads["battery"][0])
            self.assertEqual(["4", "2.023", "com.android.launcher3", "85", "4123861", "-379616",
                              "313", "Discharging"], heads["battery"][1])
            self.assertEqual(["seq", "time_s", "app", "policy", "avg_freq_kHz", "covered_10ms",
                              "util_pct"], heads["cpu"][0])
            self.assertEqual(["freq_Hz", "time_at_freq_ms", "load_pct"], heads["gpu"][0][3:])
            self.assertEqual(["subsystem", "count", "last_entered_ticks", "last_exited_ticks",
                              "accumulated_ticks", "count_delta", "sleep_s"],
                             heads["lpm_subsystem"][0][3:])
            self.assertEqual(6, len(heads["ps"][1][3].split("\n")))  # the text, newlines kept

            # Without times (a local file) there is no time column.
            self.assertEqual(0, self.run_tool("--csv", tmp, LOCAL).returncode)
            with open(os.path.join(tmp, "battery.csv"), newline="") as f:
                self.assertEqual(["seq", "app", "level_pct"], next(csv.reader(f))[:3])

    def test_summary(self):
        result = self.run_tool("--summary", RECORDS)
        self.assertEqual(0, result.returncode, result.stderr)
        lines = result.stdout.splitlines()
        self.assertIn("applications, in turn: com.android.launcher3 -> org.sample.camera",
                      lines)
        self.assertIn(["battery", "6"], [ln.split() for ln in lines])
        self.assertIn(["battery.level_pct", "6", "83", "85", "85"], [ln.split() for ln in lines])
        self.assertIn(["stability[tombstone].size_bytes", "2", "0", "231", "462"],
                      [ln.split() for ln in lines])

    def test_plot_draws_every_panel(self):
        probe = subprocess.run(["/usr/bin/python3", "-c", "import matplotlib"],
                               capture_output=True)
        if probe.returncode != 0:
            self.skipTest("matplotlib is missing: bash tools/install-deps.sh plot")
        with tempfile.TemporaryDirectory() as tmp:
            png = os.path.join(tmp, "run.png")
            result = self.run_tool("--plot", png, "--verbose", RECORDS)
            self.assertEqual(0, result.returncode, result.stderr)
            with open(png, "rb") as f:
                self.assertEqual(b"\x89PNG\r\n\x1a\n", f.read(8))
            self.assertGreater(os.path.getsize(png), 50000)
            panels = {}
            for ln in result.stdout.splitlines():
                if ln.startswith("panel "):
                    name, _, points = ln[len("panel "):].rpartition(": ")
                    panels[name] = int(points.split()[0])
            self.assertEqual(["application", "battery", "cpu frequency", "cpu utilisation",
                              "gpu", "ddr", "display", "thermal", "cooling", "low-power sleep",
                              "shipped files"], list(panels))
            self.assertEqual([], [name for name, n in panels.items() if n == 0])
            self.assertEqual(2, panels["application"])


if __name__ == "__main__":
    unittest.main()
