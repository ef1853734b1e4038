#!/usr/bin/env python3
"""Turns Google Benchmark JSON files into the results table of bench/RESULTS.md.

Benchmarks are named job/case/implementation; each row pairs our
implementation with one anchor on the same case, using the median of the
repetitions. Usage: report.py [--analysis FILE] result.json...
"""
import argparse
import json
import platform
import re
import sys

# job, ours, anchor, target ratio (None: for reference only), unit, what is compared
JOBS = [
    ("tipsify", "ours", "meshopt", 1.0, "tri", "Tipsify vs meshopt_optimizeVertexCacheFifo"),
    # "ours" is the array form; "ours_scalar" one exported call per value. The
    # array forms run on F16C where the processor has it, so F16C is their bar.
    ("float2half", "ours", "imath", 2.0, "val", "float2half (array form) vs Imath half (software)"),
    ("float2half", "ours_scalar", "imath", None, "val", "float2half (one call per value) vs Imath half (software)"),
    ("float2half", "ours", "f16c", 0.8, "val", "float2half (array form) vs F16C (physical limit)"),
    ("half2float", "ours", "imath", 1.0, "val", "half2float (array form) vs Imath half (lookup table)"),
    ("half2float", "ours_scalar", "imath", None, "val", "half2float (one call per value) vs Imath half (lookup table)"),
    ("half2float", "ours", "f16c", 0.8, "val", "half2float (array form) vs F16C (physical limit)"),
    ("normals", "ours", "assimp", 5.0, "tri", "CalculateSmoothTriangleVertexNormals vs Assimp GenSmoothNormals"),
    ("normals", "ours_1thread", "assimp", None, "tri", "same, ours on one thread"),
    ("normals_threads", "t2", "t1", 1.7, "tri", "CalculateSmoothTriangleVertexNormals, 2 threads vs 1"),
    ("remap", "ours", "meshopt", 1.0, "corner", "CalculateSmoothNormalRemapping vs meshopt_generateVertexRemap"),
    ("remap", "ours", "normals+meshopt", None, "corner", "same vs our normals + meshopt_generateVertexRemap"),
    ("copy", "ours", "memcpy", 0.95, "B", "CopyImageBuffer vs memcpy"),
    ("read_as_doubles", "ours", "memcpy", 0.5, "val", "ReadAsDoubles (recording device) vs memcpy of the doubles"),
]
ACMR_TOLERANCE = 0.01


def machine():
    model = "unknown processor"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    u = platform.uname()
    return f"{model}; {u.system} {u.release} {u.machine}"


def rate(value, unit):
    for scale, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= scale:
            return f"{value / scale:.3g} {prefix}{unit}/s"
    return f"{value:.3g} {unit}/s"


def load(paths):
    """{(job, case, impl): median entry} plus the context of the first file."""
    runs, context = {}, None
    for path in paths:
        with open(path) as f:
            data = json.load(f)
        context = context or data.get("context", {})
        for b in data.get("benchmarks", []):
            repeated = b.get("run_type") == "aggregate"
            if repeated and b.get("aggregate_name") != "median":
                continue
            name = re.sub(r"/(real|process|manual)_time$", "", b.get("run_name", b["name"]))
            parts = name.split("/")
            if len(parts) != 3 or b.get("error_occurred"):
                continue
            key = tuple(parts)
            # A plain run only stands in when there is no median.
            if repeated or key not in runs:
                runs[key] = b
    return runs, context


def throughput(entry):
    return entry.get("items_per_second") or entry.get("bytes_per_second")


def rows(runs):
    cases = sorted({(job, case) for job, case, _ in runs})
    for job, ours, anchor, target, unit, what in JOBS:
        for j, case in cases:
            if j != job or (job, case, ours) not in runs or (job, case, anchor) not in runs:
                continue
            a, b = runs[(job, case, ours)], runs[(job, case, anchor)]
            ra, rb = throughput(a), throughput(b)
            if not ra or not rb:
                continue
            ratio = ra / rb
            notes = []
            met = None if target is None else ratio >= target
            if job == "tipsify":
                delta = a["acmr"] - b["acmr"]
                notes.append(f"ACMR {a['acmr']:.3f} vs {b['acmr']:.3f} (input {a['acmr_input']:.3f})")
                met = met and abs(delta) <= ACMR_TOLERANCE
            if "agree" in b:
                notes.append(f"{100 * b['agree']:.1f}% of corners agree within 2.5°")
            if "vertices" in a and "vertices" in b:
                notes.append(f"{int(a['vertices'])} vs {int(b['vertices'])} vertices")
            target_text = "—" if target is None else f"≥ {target:g}×"
            if job == "tipsify":
                target_text += f", ACMR ±{ACMR_TOLERANCE}"
            yield [what, case, rate(ra, unit), rate(rb, unit), f"{ratio:.2f}×", target_text,
                   "info" if met is None else ("yes" if met else "**no**"), "; ".join(notes)]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--analysis", help="markdown appended after the table")
    parser.add_argument("results", nargs="+")
    args = parser.parse_args()
    runs, context = load(args.results)
    table = list(rows(runs))
    out = ["# Benchmark results", "",
           f"Machine: {machine()} ({context.get('num_cpus', '?')} logical CPUs at "
           f"{context.get('mhz_per_cpu', '?')} MHz).",
           "",
           "Throughputs are medians of 3 repetitions (`--benchmark_repetitions=3`, the repetitions of a suite's "
           "benchmarks randomly interleaved); ours and the anchor run in the same process on the same data. "
           "Ratio = our throughput / the anchor's. Single-threaded jobs are timed by CPU time, the oneTBB-parallel ones (normals, remap) by the wall clock. The machine's two "
           "cores were shared with other builds while this ran (load averages below), so the numbers are noisy; "
           "`scripts/bench` runs each suite at the highest scheduling priority when it may, to keep the others' "
           "load out of the wall-clock times.",
           "",
           "| Job | Case | Ours | Anchor | Ratio | Target | Met | Notes |",
           "|---|---|---|---|---|---|---|---|"]
    out += ["| " + " | ".join(r) + " |" for r in table]
    loads = []
    for path in args.results:
        try:
            with open(re.sub(r"\.json$", ".load", path)) as f:
                loads.append(f"{path.rsplit('/', 1)[-1][:-5]}: {f.read().strip()}")
        except OSError:
            pass
    if loads:
        out += ["", "Load average (1, 5, 15 min) when each suite finished: " + "; ".join(loads) + "."]
    judged = [r for r in table if r[6] != "info"]
    missed = [r for r in judged if r[6] != "yes"]
    out += ["", f"{len(judged) - len(missed)} of {len(judged)} judged rows meet their target."]
    if args.analysis:
        with open(args.analysis) as f:
            out += ["", f.read().rstrip()]
    print("\n".join(out))


if __name__ == "__main__":
    sys.exit(main())
