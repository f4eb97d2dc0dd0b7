#!/usr/bin/python3
"""Writes the benchmark report (Markdown and PNG) from Google Benchmark JSON files.

    tools/bench_report.py --results build/bench/results --bars bench/bars.tsv \
        --out bench/results/2026-01-31 --command "bench/run"

Benchmarks are named "<Work>/<Impl>" (anything Google Benchmark appends after that,
such as "/real_time" or "/threads:2", is dropped). For each work the report lists
every implementation's median over the repetitions (of the p50_ns counter where the
benchmark records one, with p10_ns beside it), the spread between the fastest and the
slowest repetition, the time per item where items_per_second is known, and the ratio
of osal_kit to the best peer and to the peer named in bars.tsv. With --check-errors
it exits 1 after writing the report when a benchmark reported an error.

Run it with the system's /usr/bin/python3, which has Debian's matplotlib.
"""

import argparse
import datetime
import glob
import json
import os
import platform
import re
import shlex
import statistics
import subprocess
import sys

LIBRARY = "osal_kit"
PEER_PACKAGES = [
    ("Google Benchmark", "libbenchmark-dev"),
    ("Qt 5 Core", "qtbase5-dev"),
    ("GLib", "libglib2.0-dev"),
    ("Poco Foundation", "libpoco-dev"),
    ("abseil", "libabsl-dev"),
    ("Boost (Asio)", "libboost-dev"),
    ("ICU", "libicu-dev"),
    ("Howard Hinnant's date", "libhowardhinnant-date-dev"),
]
TIME_UNITS_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class Impl:
    """The repetitions of one implementation of one work."""

    def __init__(self, work, name):
        self.work = work
        self.name = name
        self.times = []  # ns per iteration, one per repetition
        self.items_per_second = []
        self.p50 = []
        self.p10 = []
        self.errors = []

    def add(self, run):
        if run.get("error_occurred"):
            self.errors.append(run.get("error_message", "error"))
            return
        scale = TIME_UNITS_NS.get(run.get("time_unit", "ns"), 1.0)
        # Google Benchmark times the iterations (and derives items_per_second) on the
        # wall clock for benchmarks registered with UseRealTime, on the benchmark
        # thread's CPU time otherwise; the report follows it so time and per-item agree.
        wall = "/real_time" in (run.get("run_name") or run.get("name", ""))
        self.times.append(float(run["real_time" if wall else "cpu_time"]) * scale)
        if "items_per_second" in run:
            self.items_per_second.append(float(run["items_per_second"]))
        if "p50_ns" in run:
            self.p50.append(float(run["p50_ns"]))
        if "p10_ns" in run:
            self.p10.append(float(run["p10_ns"]))

    @property
    def measured(self):
        return bool(self.times)

    @property
    def uses_latency(self):
        return bool(self.p50)

    def median(self):
        """The compared value: the median p50_ns where recorded, else the median time."""
        values = self.p50 if self.p50 else self.times
        return statistics.median(values) if values else None

    def spread(self):
        values = self.p50 if self.p50 else self.times
        return (min(values), max(values)) if values else None

    def p10_median(self):
        return statistics.median(self.p10) if self.p10 else None

    def per_item(self):
        rates = [rate for rate in self.items_per_second if rate > 0]
        return statistics.median(1e9 / rate for rate in rates) if rates else None


def split_name(name):
    """'Work/Impl/real_time/threads:2' -> ('Work', 'Impl'); None when not of that form."""
    parts = name.split("/")
    if len(parts) < 2 or not parts[0] or not parts[1]:
        return None
    return parts[0], parts[1]


def load_results(folder):
    """Returns ({work: {impl: Impl}}, [context of each file], [unreadable files])."""
    works = {}
    contexts = []
    broken = []
    for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
        try:
            with open(path, encoding="utf-8") as handle:
                data = json.load(handle)
        except (OSError, ValueError) as error:
            broken.append("%s: %s" % (os.path.basename(path), error))
            continue
        contexts.append((os.path.basename(path), data.get("context", {})))
        for run in data.get("benchmarks", []):
            if run.get("run_type", "iteration") != "iteration":
                continue
            split = split_name(run.get("run_name") or run.get("name", ""))
            if split is None:
                continue
            work, impl = split
            works.setdefault(work, {}).setdefault(impl, Impl(work, impl)).add(run)
    return works, contexts, broken


def load_bars(path):
    bars = []
    with open(path, encoding="utf-8") as handle:
        for line in handle:
            line = line.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            fields = line.split("\t")
            if len(fields) < 4:
                raise SystemExit("bench_report: malformed line in %s: %r" % (path, line))
            bars.append({"work": fields[0], "kind": fields[1], "against": fields[2], "bar": float(fields[3])})
    return bars


def evaluate(bar, works):
    """Adds 'ratio' (None when it can't be computed) and 'why' to a bar row."""
    row = dict(bar)
    row["ratio"] = None
    row["why"] = ""
    impls = works.get(bar["work"], {})
    library = impls.get(LIBRARY)
    if bar["kind"] == "scale":
        other = works.get(bar["against"], {}).get(LIBRARY)
        if not (library and library.measured):
            row["why"] = "%s/%s not in this run" % (bar["work"], LIBRARY)
        elif not (other and other.measured):
            row["why"] = "%s/%s not in this run" % (bar["against"], LIBRARY)
        elif library.per_item() is None or other.per_item() is None:
            row["why"] = "no items_per_second"
        else:
            row["ratio"] = library.per_item() / other.per_item()
    else:
        peer = impls.get(bar["against"])
        if not (library and library.measured):
            row["why"] = "%s/%s not in this run" % (bar["work"], LIBRARY)
        elif not (peer and peer.measured):
            row["why"] = "%s/%s not in this run" % (bar["work"], bar["against"])
        elif library.uses_latency != peer.uses_latency:
            row["why"] = "only one side records p50_ns"
        elif peer.median() <= 0:
            row["why"] = "peer measured 0"
        else:
            row["ratio"] = library.median() / peer.median()
    if row["ratio"] is None:
        row["verdict"] = "missing"
    else:
        row["verdict"] = "met" if row["ratio"] <= bar["bar"] else "missed"
    return row


def format_ns(value):
    if value is None:
        return "-"
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if value >= scale:
            return "%.3g %s" % (value / scale, unit)
    return "%.3g ns" % value


def format_ratio(value):
    return "-" if value is None else "%.2f" % value


def run_text(command):
    try:
        return subprocess.run(command, capture_output=True, text=True, timeout=20).stdout.strip()
    except (OSError, subprocess.SubprocessError):
        return ""


def machine_lines():
    cpu = "unknown"
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as handle:
            for line in handle:
                if line.startswith("model name") or line.startswith("Hardware"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    memory = "unknown"
    try:
        with open("/proc/meminfo", encoding="utf-8") as handle:
            for line in handle:
                if line.startswith("MemTotal:"):
                    memory = "%.1f GiB" % (int(line.split()[1]) / 1024.0 / 1024.0)
                    break
    except (OSError, ValueError, IndexError):
        pass
    return [
        "- CPU: %s, %d cores" % (cpu, os.cpu_count() or 0),
        "- Kernel: %s %s (%s)" % (platform.system(), platform.release(), platform.machine()),
        "- Memory: %s" % memory,
    ]


def compiler_lines(results):
    lines = []
    cache = os.path.join(os.path.dirname(os.path.abspath(results)), "CMakeCache.txt")
    compilers = []
    try:
        with open(cache, encoding="utf-8") as handle:
            for line in handle:
                match = re.match(r"CMAKE_(C|CXX)_COMPILER:\w+=(.+)", line.strip())
                if match:
                    compilers.append(("C++" if match.group(1) == "CXX" else "C", match.group(2)))
                match = re.match(r"CMAKE_BUILD_TYPE:\w+=(.*)", line.strip())
                if match:
                    lines.append("- Build type: %s" % (match.group(1) or "(none)"))
    except OSError:
        compilers = [("C++", "g++")]
    for language, compiler in sorted(compilers, reverse=True):
        version = run_text([compiler, "--version"]).splitlines()
        lines.append("- %s compiler: %s" % (language, version[0] if version else compiler))
    return lines


def package_lines():
    lines = []
    for label, package in PEER_PACKAGES:
        version = run_text(["dpkg-query", "-W", "-f", "${Version}", package]) or "not installed"
        lines.append("- %s: %s %s" % (label, package, version))
    return lines


def write_markdown(path, args, works, rows, contexts, broken, errors):
    today = datetime.date.today().isoformat()
    out = []
    out.append("# Benchmark report %s" % today)
    out.append("")
    out.append("Command: `%s`" % args.command)
    out.append("")
    out.append("## Machine")
    out.extend(machine_lines())
    loads = sorted({", ".join("%.2f" % value for value in context.get("load_avg", [])) for _, context in contexts})
    if loads:
        out.append("- Load average when the programs started: %s" % "; ".join(load or "-" for load in loads))
    out.extend(compiler_lines(args.results))
    debug = [name for name, context in contexts if context.get("library_build_type") == "debug"]
    if debug:
        out.append("- Note: Google Benchmark itself was built for debugging (%s)" % ", ".join(debug))
    out.append("")
    out.append("## Peer libraries (Debian packages)")
    out.extend(package_lines())
    out.append("")
    out.append("## Bars")
    out.append("")
    out.append("Times are medians over the repetitions: wall-clock time for benchmarks that measure "
               "real time (their threads do the work), the benchmark thread's CPU time otherwise; "
               "latency works compare the median of their p50_ns counter.")
    out.append("")
    out.append("Ratio: osal_kit's median over the named peer's (for scale rows: osal_kit's time per item "
               "in this work over its time per item in the named work). Met when the ratio is at most the bar.")
    out.append("")
    out.append("| Work | Against | Ratio | Bar | Result |")
    out.append("|---|---|---:|---:|---|")
    for row in rows:
        against = row["against"] + (" (scale)" if row["kind"] == "scale" else "")
        result = row["verdict"] + (" (%s)" % row["why"] if row["why"] else "")
        out.append("| %s | %s | %s | %s | %s |" % (row["work"], against, format_ratio(row["ratio"]),
                                                  "%.2f" % row["bar"], result))
    met = sum(1 for row in rows if row["verdict"] == "met")
    missed = sum(1 for row in rows if row["verdict"] == "missed")
    missing = sum(1 for row in rows if row["verdict"] == "missing")
    out.append("")
    out.append("%d met, %d missed, %d missing." % (met, missed, missing))
    out.append("")
    out.append("## Works")
    bar_of = {row["work"]: row for row in rows}
    ordered = [row["work"] for row in rows if row["work"] in works]
    ordered += sorted(work for work in works if work not in bar_of)
    for work in ordered:
        impls = works[work]
        row = bar_of.get(work)
        latency = any(impl.uses_latency for impl in impls.values())
        out.append("")
        out.append("### %s" % work)
        out.append("")
        value_name = "median p50_ns" if latency else "median time"
        header = "| Implementation | %s |%s min - max | per item | reps |" % (value_name, " p10_ns |" if latency else "")
        out.append(header)
        out.append("|---|---:|" + ("---:|" if latency else "") + "---|---:|---:|")
        ranked = sorted(impls.values(), key=lambda impl: (impl.name != LIBRARY, impl.median() or float("inf")))
        for impl in ranked:
            spread = impl.spread()
            spread_text = "%s - %s" % (format_ns(spread[0]), format_ns(spread[1])) if spread else "-"
            cells = [impl.name, format_ns(impl.median())]
            if latency:
                cells.append(format_ns(impl.p10_median()))
            reps = str(len(impl.times)) + (" (%d errored)" % len(impl.errors) if impl.errors else "")
            cells += [spread_text, format_ns(impl.per_item()), reps]
            out.append("| " + " | ".join(cells) + " |")
        library = impls.get(LIBRARY)
        peers = [impl for impl in impls.values() if impl.name != LIBRARY and impl.measured]
        notes = []
        if library and library.measured and peers:
            comparable = [peer for peer in peers if peer.uses_latency == library.uses_latency and peer.median() > 0]
            if comparable:
                best = min(comparable, key=lambda impl: impl.median())
                notes.append("osal_kit / best peer (%s): %s" % (best.name, format_ratio(library.median() / best.median())))
        if row is not None:
            if row["kind"] == "scale":
                notes.append("osal_kit per item here / in %s: %s (bar %.2f): %s" % (
                    row["against"], format_ratio(row["ratio"]), row["bar"], row["verdict"]))
            else:
                notes.append("osal_kit / %s: %s (bar %.2f): %s" % (
                    row["against"], format_ratio(row["ratio"]), row["bar"], row["verdict"]))
            if row["why"]:
                notes.append("(%s)" % row["why"])
        if notes:
            out.append("")
            out.append("; ".join(notes))
    missing_works = [row["work"] for row in rows if row["work"] not in works]
    if missing_works:
        out.append("")
        out.append("Works with a bar but no result in this run: %s." % ", ".join(missing_works))
    if broken or errors:
        out.append("")
        out.append("## Problems")
        for line in broken:
            out.append("- unreadable result file %s" % line)
        for line in errors:
            out.append("- %s" % line)
    out.append("")
    with open(path, "w", encoding="utf-8") as handle:
        handle.write("\n".join(out))


def write_png(path, rows, command):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.lines import Line2D
    from matplotlib.patches import Patch

    colours = {"met": "#2e8b57", "missed": "#c0392b", "missing": "#b0b0b0"}
    labels = ["%s vs %s" % (row["work"], row["against"]) for row in rows]
    ratios = [row["ratio"] for row in rows]
    # Ratios far past every bar are cut at the edge (their value is written beside),
    # so that the bars near 1 stay readable.
    limit = max([row["bar"] for row in rows] + [1.0]) * 2.5
    known = [min(ratio, limit) for ratio in ratios if ratio is not None] + [row["bar"] for row in rows] + [1.0]
    top = max(known) * 1.2
    height = max(3.0, 0.45 * len(rows) + 1.6)
    figure, axes = plt.subplots(figsize=(11, height))
    positions = list(range(len(rows)))[::-1]
    for position, row in zip(positions, rows):
        colour = colours[row["verdict"]]
        if row["ratio"] is None:
            axes.barh(position, top, color="none", edgecolor=colour, hatch="//", height=0.6)
            axes.text(top * 0.02, position, "missing: " + row["why"], va="center", fontsize=8, color="#555555")
        else:
            shown = min(row["ratio"], limit)
            axes.barh(position, shown, color=colour, height=0.6)
            text = "%.2f" % row["ratio"] + (" (cut)" if shown < row["ratio"] else "")
            axes.text(shown + top * 0.01, position, text, va="center", fontsize=8)
        axes.plot([row["bar"], row["bar"]], [position - 0.4, position + 0.4], color="black", linewidth=2)
    axes.axvline(1.0, color="#555555", linestyle=":", linewidth=1)
    axes.set_yticks(positions)
    axes.set_yticklabels(labels, fontsize=8)
    axes.set_xlim(0, top)
    axes.set_xlabel("osal_kit / peer (lower is faster; scale rows: per-item time, large / small)")
    axes.set_title("osal_kit against its peers, %s" % datetime.date.today().isoformat(), fontsize=11)
    legend = [Patch(color=colours["met"], label="bar met"), Patch(color=colours["missed"], label="bar missed"),
              Patch(facecolor="none", edgecolor=colours["missing"], hatch="//", label="not in this run"),
              Line2D([0], [0], color="black", linewidth=2, label="bar")]
    axes.legend(handles=legend, loc="lower right", fontsize=8)
    figure.text(0.01, 0.005, command, fontsize=7, color="#555555")
    figure.tight_layout(rect=(0, 0.02, 1, 1))
    figure.savefig(path, dpi=110)
    plt.close(figure)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--results", required=True, help="folder of the Google Benchmark JSON files")
    parser.add_argument("--bars", required=True, help="bench/bars.tsv")
    parser.add_argument("--out", required=True, help="output path without extension (.md and .png are added)")
    parser.add_argument("--command", default=" ".join(shlex.quote(arg) for arg in sys.argv),
                        help="the command line to show in the report")
    parser.add_argument("--check-errors", action="store_true",
                        help="exit 1 when a benchmark reported an error or a result file is unreadable")
    args = parser.parse_args()

    works, contexts, broken = load_results(args.results)
    rows = [evaluate(bar, works) for bar in load_bars(args.bars)]
    errors = ["%s/%s: %s" % (impl.work, impl.name, message)
              for impls in works.values() for impl in impls.values() for message in impl.errors]
    if not contexts:
        broken.append("no result files in %s" % args.results)

    folder = os.path.dirname(args.out)
    if folder:
        os.makedirs(folder, exist_ok=True)
    write_markdown(args.out + ".md", args, works, rows, contexts, broken, errors)
    write_png(args.out + ".png", rows, args.command)
    for line in broken + errors:
        print("bench_report: " + line, file=sys.stderr)
    if args.check_errors and (broken or errors):
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
