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
    # The whole job against the pipeline a user would build from our normals.
    ("remap", "ours", "normals+meshopt", 1.3, "corner",
     "CalculateSmoothNormalRemapping vs our normals + meshopt_generateVertexRemap"),
    # The grouping alone, each side given the corner normals.
    ("remap_step", "ours", "meshopt", 1.0, "corner",
     "remapping step alone (corner normals given) vs meshopt_generateVertexRemap"),
    ("remap_threads", "t2", "t1", None, "corner", "CalculateSmoothNormalRemapping, 2 threads vs 1"),
    # Judged by quality (SPLIT_TARGETS), not by speed: its cost is reported.
    ("split", "ours", "meshopt", None, "tri",
     "SplitInto16BitSubmeshes vs meshopt spatial sort + same cut + optimizeVertexCacheFifo"),
    ("split", "ours", "input_order", None, "tri", "same vs cutting the input order, then Tipsify (the former zgu split)"),
    ("copy", "ours", "memcpy", 0.95, "B", "CopyImageBuffer vs memcpy"),
    ("read_as_doubles", "ours", "memcpy", 0.5, "val", "ReadAsDoubles (recording device) vs memcpy of the doubles"),
    # The GL device on the GL driver present (zgu_bench_gl); bytes are what the call delivers.
    ("gl_upload", "ours", "memcpy", 0.5, "B", "GL: FillRgbaTexture (upload image, device copy) vs memcpy"),
    ("gl_readback", "ours", "memcpy", 0.5, "B", "GL: readback of a texture (read-back image, map, rows out) vs memcpy"),
    ("gl_msaa_readback", "ours", "memcpy", None, "B", "GL: readback of a 4x target (resolve first) vs memcpy"),
    ("gl_read_as_doubles", "ours", "memcpy", None, "B", "GL: ReadAsDoubles of a texture vs memcpy of the doubles"),
    ("gl_resolve", "ours", "memcpy", None, "B", "GL: ResolveImage of a 4x target vs memcpy of the result"),
    ("gl_mips", "ours", "memcpy", None, "B", "GL: MipMapBuilder full chain vs memcpy of all levels"),
    ("gl_clear", "ours", "memcpy", None, "B", "GL: ShaderBasedImageClear vs memcpy of the target"),
    ("gl_copy", "ours", "memcpy", None, "B", "GL: ShaderBasedImageCopy, equal sizes, vs memcpy"),
    ("gl_depth_resolve", "ours", "memcpy", None, "B", "GL: ShaderBasedMsaaDepthResolver (4x, min) vs memcpy"),
]
# On a real GPU a 4K RGBA8 frame must come back at this rate (bytes per second).
GPU_READBACK_TARGET = 5e9
SOFTWARE_RENDERERS = ("llvmpipe", "softpipe", "swrast", "lavapipe")
ACMR_TOLERANCE = 0.01
# Our split's own quality targets: vertices stored / remapped vertices, ACMR.
SPLIT_TARGETS = (1.05, 0.75)


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
    """{(job, case, impl): median entry}, the context of the first file, and
    that of the GL suite (its renderer) if one ran."""
    runs, context, gl_context = {}, None, {}
    for path in paths:
        with open(path) as f:
            data = json.load(f)
        context = context or data.get("context", {})
        if "gl_renderer" in data.get("context", {}):
            gl_context = data["context"]
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
    return runs, context, gl_context


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
            if job == "split":
                notes.append(f"vertices {a['vertex_ratio']:.3f}× vs {b['vertex_ratio']:.3f}× the remapped; "
                             f"ACMR {a['acmr']:.3f} vs {b['acmr']:.3f} (input {a['acmr_input']:.3f}); "
                             f"{int(a['submeshes'])} vs {int(b['submeshes'])} submeshes; "
                             f"ours {a['real_time']:.0f} {a.get('time_unit', 'ns')} per call")
                if anchor == "meshopt":
                    met = a["vertex_ratio"] <= SPLIT_TARGETS[0] and a["acmr"] <= SPLIT_TARGETS[1]
            if "agree" in b:
                notes.append(f"{100 * b['agree']:.1f}% of corners agree within 2.5°")
            if "vertices" in a and "vertices" in b:
                notes.append(f"{int(a['vertices'])} vs {int(b['vertices'])} vertices")
            if "gpu_ms" in a:
                notes.append(f"GPU {a['gpu_ms']:.3g} ms per call")
            target_text = "—" if target is None else f"≥ {target:g}×"
            if job == "tipsify":
                target_text += f", ACMR ±{ACMR_TOLERANCE}"
            if job == "split" and anchor == "meshopt":
                target_text = f"vertices ≤ {SPLIT_TARGETS[0]:g}×, ACMR ≤ {SPLIT_TARGETS[1]:g}"
            yield [what, case, rate(ra, unit), rate(rb, unit), f"{ratio:.2f}×", target_text,
                   "info" if met is None else ("yes" if met else "**no**"), "; ".join(notes)]


def gpu_readback_row(runs, gl_context):
    """The absolute target for a real GPU, judged only where one ran."""
    key = ("gl_readback", "rgba8_4k", "ours")
    renderer = gl_context.get("gl_renderer", "")
    if key not in runs or not renderer:
        return None
    measured = throughput(runs[key])
    what = "GL: readback of a 4K RGBA8 frame on a real GPU"
    target = f"≥ {GPU_READBACK_TARGET / 1e9:g} GB/s"
    if any(name in renderer.lower() for name in SOFTWARE_RENDERERS):
        return [what, "rgba8_4k", "not measured here", "—", "—", target, "info",
                f"no GPU in this session: the renderer is {renderer} ({rate(measured, 'B')} there)"]
    met = measured >= GPU_READBACK_TARGET
    return [what, "rgba8_4k", rate(measured, "B"), "—", "—", target, "yes" if met else "**no**", renderer]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--analysis", help="markdown appended after the table")
    parser.add_argument("results", nargs="+")
    args = parser.parse_args()
    runs, context, gl_context = load(args.results)
    repetitions = max((entry.get("repetitions", 1) for entry in runs.values()), default=1)
    table = list(rows(runs))
    gpu_row = gpu_readback_row(runs, gl_context)
    if gpu_row:
        table.append(gpu_row)
    out = ["# Benchmark results", "",
           f"Machine: {machine()} ({context.get('num_cpus', '?')} logical CPUs at "
           f"{context.get('mhz_per_cpu', '?')} MHz).",
           "",
           f"Throughputs are medians of {repetitions} repetitions (`--benchmark_repetitions={repetitions}`, the "
           "repetitions of a suite's benchmarks randomly interleaved); ours and the anchor run in the same process "
           "on the same data. Ratio = our throughput / the anchor's. Single-threaded jobs are timed by CPU time, "
           "the oneTBB-parallel ones (normals, remap, remap_step, split) and the GL jobs by the wall clock. The "
           "machine has two cores that other work may share (load averages below: above about 1.5 the numbers "
           "are noisy); `scripts/bench` runs each suite at the highest scheduling priority when it may, to keep "
           "others' load out of the wall-clock times.",
           "",
           *([f"GL rows (`GL:`) ran on the renderer **{gl_context['gl_renderer']}** "
              f"({gl_context.get('gl_version', '?')}, EGL {gl_context.get('gl_platform', '?')} platform); each call "
              "waits for the device, after one untimed call that compiles the driver's internal shaders.", ""]
             if gl_context else []),
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
