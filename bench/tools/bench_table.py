#!/usr/bin/env python3
"""Turns the Google Benchmark JSON of one run into the table of figures: each figure
beside its floor measured in the same run, their ratio, the target and whether it holds.
Prints the table and writes it as JSON.

usage: bench_table.py RAW_DIR OUT_JSON [--memory MEMORY_JSON] [--ops OPS_JSON]
A figure that was not measured says why (EnforcementBench.log names what it lacked).
"""
import json
import os
import sys


def load_runs(raw_dir):
    runs = {}
    for name in sorted(os.listdir(raw_dir)):
        if not name.endswith(".json"):
            continue
        with open(os.path.join(raw_dir, name)) as f:
            try:
                data = json.load(f)
            except json.JSONDecodeError:
                continue
        for run in data.get("benchmarks", []):
            if run.get("error_occurred"):
                continue
            if run.get("run_type") == "aggregate":
                # A figure taken in rounds stands as its median, under its own name.
                if run.get("aggregate_name") != "median":
                    continue
                runs[run["run_name"]] = run
                continue
            runs[run["name"]] = run
    return runs


UNIT_TO_MS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def find(runs, prefix):
    """The run whose name starts with `prefix` followed by '/' or the end."""
    for name, run in runs.items():
        if name == prefix or name.startswith(prefix + "/"):
            return run
    return None


def ms(run):
    return run["real_time"] * UNIT_TO_MS[run.get("time_unit", "ns")] if run else None


def arg_of(run):
    parts = run["name"].split("/")
    return parts[1] if len(parts) > 1 and parts[1].isdigit() else ""


class Table:
    def __init__(self):
        self.rows = []

    def add(self, figure, ours, floor, unit, target, holds, ratio=None, note=""):
        if ratio is None and ours is not None and floor:
            ratio = ours / floor
        self.rows.append({
            "figure": figure, "ours": ours, "floor": floor, "unit": unit,
            "ratio": ratio, "target": target, "holds": holds, "note": note,
        })

    def time_ratio(self, figure, ours_run, floor_run, limit):
        if ours_run is None or floor_run is None:
            self.add(figure, None, None, "ms", f"<= {limit}x", None, note="not measured")
            return
        ours, floor = ms(ours_run), ms(floor_run)
        ratio = ours / floor
        self.add(figure, ours, floor, "ms", f"<= {limit}x" if limit else "-",
                 ratio <= limit if limit else None, ratio)

    def growth(self, figure, small, large):
        if small is None or large is None:
            self.add(figure, None, None, "x", "<= 11x time for 10x rules", None,
                     note="not measured")
            return
        grown = ms(large) / ms(small)
        self.add(figure, grown, 10.0, "x", "<= 1.1 (11x for 10x)", grown <= 11.0,
                 grown / 10.0)


def enforcement(t, runs, why_not):
    """The ipfw on nftables: a change with 10,000 rules installed against the same with
    none, the set switches against an add, the plug-in on it against the simulated ipfw."""
    big = next((arg_of(r) for n, r in runs.items()
                if n.startswith("BM_EnforcedAdd/") and arg_of(r) not in ("", "0")), "10000")
    rows = [
        (f"enforcing: add, {int(big):,} rules vs none", f"BM_EnforcedAdd/{big}",
         "BM_EnforcedAdd/0", 1.5),
        (f"enforcing: delete, {int(big):,} rules vs none", f"BM_EnforcedDelete/{big}",
         "BM_EnforcedDelete/0", 1.5),
        (f"enforcing: set disable, {int(big):,} rules (floor: add)",
         f"BM_EnforcedSetDisable/{big}", f"BM_EnforcedAdd/{big}", 2.0),
        (f"enforcing: set enable, {int(big):,} rules (floor: add)",
         f"BM_EnforcedSetEnable/{big}", f"BM_EnforcedAdd/{big}", 2.0),
        ("enforcing: SetRuleList (floor: simulated ipfw)", "BM_SetRuleListEnforced",
         "BM_SetRuleListSimulated", 1.5),
        ("enforcing: start-up (floor: simulated ipfw)", "BM_StartupEnforced",
         "BM_StartupSimulated", 1.5),
    ]
    for label, ours, floor, limit in rows:
        t.time_ratio(label, find(runs, ours), find(runs, floor), limit)
        if why_not and t.rows[-1]["ours"] is None:
            t.rows[-1]["note"] = why_not


def logd_burst(t, runs, why_not):
    """ipfw-logd under a burst of 20,000 logged packets: every packet written, or counted
    in a loss line; the floor column holds the packets logged."""
    run = find(runs, "BM_LogdBurst")
    figure = "ipfw-logd: burst of 20,000 logged packets, written (floor: logged)"
    target = "written whole (or losses counted to the packet)"
    if run is None:
        t.add(figure, None, None, "packets", target, None, note=why_not or "not measured")
        return
    sent, written, lost = run["sent"], run["written"], run["lost"]
    t.add(figure, written, sent, "packets", target, written + lost == sent,
          note=f"lost {lost:,.0f}, sent in {run['send_ms']:.0f} ms, all in the log after "
               f"{ms(run):.0f} ms")


def operations(t, ops):
    """qvfwd's events file, metrics and expiry (QvfwdOpsBench), each against its floor."""
    if not ops or ops.get("events_seconds_with_file", -1) <= 0 or \
            ops.get("events_seconds_without_file", -1) <= 0:
        t.add("event throughput with --events-file (floor: without)", None, None, "s",
              "<= 1.1x", None, note="not measured")
    else:
        events = ops["events"]
        with_file, without = ops["events_seconds_with_file"], ops["events_seconds_without_file"]
        t.add(f"event throughput with --events-file, {events:,} events (floor: without)",
              with_file, without, "s", "<= 1.1x", with_file / without <= 1.1,
              note=f"{events / with_file:,.0f} events/s written")
    if not ops or ops.get("metrics_ms", -1) <= 0:
        t.add("qvfwctl metrics (control socket)", None, None, "ms", "< 5 ms", None,
              note="not measured")
    else:
        t.add(f"metrics, {ops['rules']:,} rules (control socket)", ops["metrics_ms"], None, "ms",
              "< 5 ms", ops["metrics_ms"] < 5.0, note=f"start-up {ops['start_seconds']:.0f} s")
    if not ops or ops.get("expiry_late_seconds", -1) < 0:
        t.add("expired rule removed after its deadline", None, None, "s", "< 1 s", None,
              note="not measured")
    else:
        t.add(f"expired rule removed after its deadline (add --for {ops['expiry_after']}s)",
              ops["expiry_late_seconds"], None, "s", "< 1 s", ops["expiry_late_seconds"] < 1.0,
              note="worst of 5")


def data_path(t, runs):
    """What the rules cost a packet on loopback: connect/close and bulk TCP with 1,000 and
    10,000 plug-in-shaped rules against none, and ipfw's rules against the same rules as
    plain nftables lines, keyed and (with prefixes for sources) as lines."""
    none_connect, none_bulk = find(runs, "BM_DataPathConnect/0"), find(runs, "BM_DataPathBulk/0")
    counts = sorted({int(arg_of(r)) for n, r in runs.items()
                     if n.startswith("BM_DataPathConnect/") and arg_of(r) not in ("", "0")})
    for count in counts or [1000, 10000]:
        t.time_ratio(f"data path: connect/close, {count:,} rules vs none",
                     find(runs, f"BM_DataPathConnect/{count}"), none_connect, 1.5)
        bulk = find(runs, f"BM_DataPathBulk/{count}")
        figure = f"data path: bulk TCP, {count:,} rules vs none"
        if bulk is None or none_bulk is None:
            t.add(figure, None, None, "MB/s", ">= 0.667x", None, note="not measured")
            continue
        ours, floor = bulk["bytes_per_second"] / 1e6, none_bulk["bytes_per_second"] / 1e6
        t.add(figure, ours, floor, "MB/s", ">= 0.667x", ours / floor >= 2 / 3)
    plain = find(runs, "BM_PlainNftConnect")
    count = int(arg_of(plain)) if plain else 10000
    t.time_ratio(f"data path: connect/close, {count:,} rules (floor: plain nftables rules)",
                 find(runs, f"BM_DataPathConnect/{count}"), plain, 1.0)
    lines = find(runs, "BM_DataPathConnectLines")
    count = int(arg_of(lines)) if lines else 10000
    t.time_ratio(f"data path: connect/close, {count:,} rules no key holds (floor: plain rules)",
                 lines, find(runs, "BM_PlainNftConnectLines"), 1.0)


def build(runs, memory, skipped_enforcement="", skipped_logd="", ops=None):
    t = Table()
    for count, limit in (("10", None), ("1000", 1.5), ("10000", 1.5)):
        t.time_ratio(f"save one more rule, {int(count):,} stored",
                     find(runs, f"BM_SaveRule/{count}"), find(runs, f"BM_SaveRuleFloor/{count}"),
                     limit)
    t.growth("save growth, 1,000 -> 10,000 rules", find(runs, "BM_SaveRule/1000"),
             find(runs, "BM_SaveRule/10000"))
    load, plistlib = find(runs, "BM_Load/10000"), find(runs, "BM_LoadFloorPlistlib/10000")
    t.time_ratio("load 10,000 rules (floor: python plistlib)", load, plistlib, 3.0)
    if load is not None:
        t.rows[-1]["note"] = f"{load.get('items_per_second', 0):,.0f} rules/s"
    t.growth("load growth, 1,000 -> 10,000 rules", find(runs, "BM_Load/1000"), load)

    adds = sorted((r for n, r in runs.items() if n.startswith("BM_AddRule/")),
                  key=lambda r: int(arg_of(r)))
    for run in adds:
        count = arg_of(run)
        t.time_ratio(f"AddRule handler, {int(count):,} stored", run,
                     find(runs, f"BM_AddRuleFloor/{count}"), 1.25)
    for name, label in (("BM_SetRuleList", "SetRuleList of {} rules"),
                        ("BM_Startup", "start-up with {} stored rules")):
        run = find(runs, name)
        count = arg_of(run) if run else "?"
        t.time_ratio(label.format(f"{int(count):,}" if count.isdigit() else count), run,
                     find(runs, name + "Floor"), 1.25)

    latency, floor = find(runs, "BM_EventLatency"), find(runs, "BM_EventLatencyFloor")
    for key, limit in (("p50_ms", 1.0), ("p99_ms", 5.0)):
        if latency is None:
            t.add(f"event latency {key[:3]}", None, None, "ms", f"< {limit} ms", None,
                  note="not measured")
            continue
        ours = latency[key]
        base = floor[key] if floor else None
        t.add(f"event latency {key[:3]} (1,000 events)", ours, base, "ms", f"< {limit} ms",
              ours < limit)
    throughput = find(runs, "BM_EventThroughput")
    tfloor = find(runs, "BM_EventThroughputFloor")
    if throughput is None:
        t.add("event throughput", None, None, "events/s", ">= 20,000/s", None,
              note="not measured")
    else:
        ours = throughput["items_per_second"]
        base = tfloor["items_per_second"] if tfloor else None
        clean = throughput.get("lost", 0) == 0 and throughput.get("duplicated", 0) == 0
        t.add(f"event throughput ({int(arg_of(throughput)):,} lines, callback + service)",
              ours, base, "events/s", ">= 20,000/s, none lost or duplicated",
              ours >= 20000 and clean, base / ours if base else None,
              f"lost {throughput.get('lost', 0):.0f}, duplicated "
              f"{throughput.get('duplicated', 0):.0f}")

    for name, label in (("BM_ShowFreeNumber", "simulator: show N (free)"),
                        ("BM_ShowStoredRule", "simulator: show N (stored)"),
                        ("BM_AddAtTheEnd", "simulator: add")):
        large = next((r for n, r in runs.items()
                      if n.startswith(name + "/") and arg_of(r) not in ("", "0")), None)
        t.time_ratio(f"{label}, 10,000 rules vs empty", large, find(runs, name + "/0"), 2.0)

    enforcement(t, runs, skipped_enforcement)
    logd_burst(t, runs, skipped_logd)
    data_path(t, runs)

    if memory and memory.get("measured"):
        rules, events = memory.get("rules", 0), memory.get("events", 0)
        # The floor column holds the configuration file's size: what the rules weigh on disk.
        t.add(f"qvfwd peak RSS, {rules:,} rules (floor: file size)", memory["peak_rss_mib"],
              memory["config_mib"], "MiB", "< 64 MiB", memory["peak_rss_mib"] < 64.0,
              note=f"{memory['peak_after_start_mib']:.1f} MiB after start-up, "
                   f"start-up {memory['start_seconds']:.0f} s")
        t.add(f"qvfwd RSS growth over {events:,} events", memory["growth_mib"], None, "MiB",
              "no growth (< 1 MiB)", memory["growth_mib"] < 1.0,
              note=f"{memory['rss_before_events_mib']:.1f} -> "
                   f"{memory['rss_after_events_mib']:.1f} MiB")
    else:
        t.add("qvfwd peak RSS, 10,000 rules", None, None, "MiB", "< 64 MiB", None,
              note="not measured")
    operations(t, ops)
    return t.rows


def fmt(value):
    if value is None:
        return "-"
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    if abs(value) >= 10:
        return f"{value:.1f}"
    return f"{value:.3g}"


def render(rows):
    header = ("figure", "ours", "floor", "unit", "ratio", "target", "holds?")
    lines = [[r["figure"], fmt(r["ours"]), fmt(r["floor"]), r["unit"],
              (fmt(r["ratio"]) + "x") if r["ratio"] is not None else "-", r["target"],
              {True: "yes", False: "NO", None: "-"}[r["holds"]]
              + (f" ({r['note']})" if r["note"] else "")] for r in rows]
    widths = [max(len(str(x)) for x in col) for col in zip(header, *lines)]
    out = ["| " + " | ".join(h.ljust(w) for h, w in zip(header, widths)) + " |",
           "|" + "|".join("-" * (w + 2) for w in widths) + "|"]
    out += ["| " + " | ".join(str(c).ljust(w) for c, w in zip(line, widths)) + " |"
            for line in lines]
    return "\n".join(out)


def why_not_measured(raw_dir, name):
    """The reason NAME.log gives for measuring nothing, or ""."""
    log = os.path.join(raw_dir, name + ".log")
    if os.path.exists(log):
        with open(log) as f:
            for line in f:
                if "not measured:" in line:
                    return "not measured: " + line.split("not measured:", 1)[1].strip()
    return ""


def main():
    raw_dir, out_json = sys.argv[1], sys.argv[2]
    memory = None
    if "--memory" in sys.argv:
        path = sys.argv[sys.argv.index("--memory") + 1]
        if os.path.exists(path):
            with open(path) as f:
                memory = json.load(f)
    ops = None
    if "--ops" in sys.argv:
        path = sys.argv[sys.argv.index("--ops") + 1]
        if os.path.exists(path):
            with open(path) as f:
                ops = json.load(f)
    rows = build(load_runs(raw_dir), memory, why_not_measured(raw_dir, "EnforcementBench"),
                 why_not_measured(raw_dir, "LogdBurstBench"), ops)
    print(render(rows))
    os.makedirs(os.path.dirname(os.path.abspath(out_json)), exist_ok=True)
    with open(out_json, "w") as f:
        json.dump({"figures": rows}, f, indent=2)
        f.write("\n")


if __name__ == "__main__":
    main()
