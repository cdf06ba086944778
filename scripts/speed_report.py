#!/usr/bin/env python3
"""Runs dofra_bench once and prints the speed ratios of the library.

Usage: scripts/speed_report.py [BUILD_DIR] [--min-time SECONDS]

Every ratio comes from the one run: frame against the memory floor, two
workers against one thread, 3840x2160 against 1920x1080, the OpenCV peer
against the library (when the bench was built with OpenCV), the 64x64 frame,
and the weight map against a plain write of the same map.
"""
import argparse
import json
import subprocess

FACTORS = (2, 4, 6, 8)
SIZES = ("1920x1080", "3840x2160")
FILTER = ("^(Pipeline_DofraBlurImage/.*/out_of_place|Pipeline_SingleThread|Pipeline_MemoryFloor|"
          "Pipeline_SmallFrame|Peer_OpenCV|Weight_AsyncProcess|Weight_PlainWrite<)")


def run(build, min_time):
    cmd = [f"{build}/bench/dofra_bench", f"--benchmark_filter={FILTER}",
           f"--benchmark_min_time={min_time}", "--benchmark_format=json"]
    out = subprocess.run(cmd, check=True, capture_output=True, text=True).stdout
    data = json.loads(out)
    times, level = {}, "?"
    for b in data["benchmarks"]:
        # Repeated benchmarks report their aggregates only; keep the median.
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0}[b["time_unit"]]
        times[b["run_name"]] = b["real_time"] * scale
        level = b.get("label") or level
    return times, level


def get(times, prefix):
    hits = [v for k, v in times.items() if k.startswith(prefix)]
    return hits[0] if hits else None


def ratio(a, b):
    return f"{a / b:6.2f}" if a and b else "     -"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--min-time", default="0.3")
    options = parser.parse_args()
    times, level = run(options.build, options.min_time)
    print(f"kernels: {level}")
    for size in SIZES:
        print(f"\n{size}: x2 x4 x6 x8")
        for cache in ("hot", "cold"):
            floor = get(times, f"Pipeline_MemoryFloor/{size}/{cache}")
            frame = {s: get(times, f"Pipeline_DofraBlurImage/{size}/x{s}/{cache}/out_of_place")
                     for s in FACTORS}
            one = {s: get(times, f"Pipeline_SingleThread/{size}/x{s}/{cache}") for s in FACTORS}
            small = {s: get(times, f"Pipeline_DofraBlurImage/1920x1080/x{s}/{cache}/out_of_place")
                     for s in FACTORS}
            rows = [
                (f"frame {cache} (ms)", [f"{frame[s]:6.3f}" if frame[s] else "     -"
                                        for s in FACTORS]),
                (f"frame / floor ({floor or 0:.3f} ms)", [ratio(frame[s], floor) for s in FACTORS]),
                ("one thread / two workers", [ratio(one[s], frame[s]) for s in FACTORS]),
            ]
            if size != SIZES[0]:
                rows.append(("/ 1920x1080", [ratio(frame[s], small[s]) for s in FACTORS]))
            for threads in ("one_thread", "default_threads"):
                peer = {s: get(times, f"Peer_OpenCV/{size}/x{s}/{cache}/{threads}")
                        for s in FACTORS}
                rows.append((f"OpenCV {threads} / library", [ratio(peer[s], frame[s])
                                                            for s in FACTORS]))
            for label, cells in rows:
                print(f"  {label:34s}" + " ".join(cells))
    print("\n64x64 frame, median (us):",
          " ".join(f"x{s} {1000 * (get(times, f'Pipeline_SmallFrame/64x64/x{s}/') or 0):.1f}"
                   for s in (2, 4, 8)))
    for cold, cache in ((False, "hot"), (True, "cold")):
        flag = "true" if cold else "false"
        weight = get(times, f"Weight_AsyncProcess<{flag}>")
        plain = get(times, f"Weight_PlainWrite<{flag}>")
        print(f"weight map {cache}: {1000 * (weight or 0):.1f} us, plain write "
              f"{1000 * (plain or 0):.1f} us, ratio {ratio(weight, plain).strip()}")


if __name__ == "__main__":
    main()
