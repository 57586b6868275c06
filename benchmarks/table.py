#!/usr/bin/env python3
"""Makes the tables of docs/performance.md from the benchmark's JSON: table.py FILE."""

import json
import sys

LEVELS = ["AVX3_DL", "AVX3", "AVX2", "SSE4", "plain"]
PEERS = ["libyuv", "OpenCV", "swscale", "GStreamer"]


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        lines = dict(line.split(":", 1) for line in cpuinfo.read().split("\n\n")[0].splitlines())
    fields = {key.strip(): value.strip() for key, value in lines.items()}
    return f"{fields['model name']}, family {fields['cpu family']}, model {fields['model']}"


def medians(path):
    """{job: {way: microseconds}}, jobs that keep the size first."""
    with open(path, encoding="utf-8") as file:
        benchmarks = json.load(file)["benchmarks"]
    jobs = {}
    for benchmark in benchmarks:
        if benchmark.get("aggregate_name") == "median":
            job, way = benchmark["run_name"].rsplit("/", 1)
            jobs.setdefault(job, {})[way] = benchmark["cpu_time"]
    return dict(sorted(jobs.items(), key=lambda item: (" to " in item[0], item[0])))


def number(value):
    return "" if value is None else f"{value:.3g}" if value < 100 else f"{value:.0f}"


def gain(ways, level):
    """How many times as fast as the fastest peer, or memcpy, one level does the job."""
    if level not in ways:
        return ""
    times = [ways[peer] for peer in PEERS if peer in ways] or [ways.get("memcpy")]
    return "" if times == [None] else f"{min(times) / ways[level]:.2f}"


FASTEST = "times the fastest peer"
COPY = "of memcpy's speed"
# Job, what it is compared with, and the factors that are wanted with AVX2 and with AVX-512.
TARGETS = [
    *[(f"{space} 640x480", FASTEST, 1.25, 1.5) for space in ("kRGB", "kBGR")],
    *[(f"{space} 640x480 after the pass", FASTEST, 1.0, 1.15) for space in ("kRGB", "kBGR")],
    *[(f"{space} 640x480", COPY, 0.95, 0.95) for space in ("kYuv", "kYUV422", "kYYCbCr")],
    ("kYUV 640x480", COPY, 0.6, 0.85),
    *[(f"{space} 640x480", "times OpenCV", 3, 4) for space in ("kHSY", "kHSMixed")],
    ("kH2RGB 640x480", "times the plain loop", 5, 7),
    ("kHsy 640x480", "times 10 us", 1, 1),
    ("pushed 640x480", FASTEST, 1.6, 2.5),
    ("pushed 1280x960 to 640x480", FASTEST, 2.3, 3.4),
    ("pushed 1280x960 to 320x240", FASTEST, 2.0, 3.5),
    ("pushed 1280x960 to 160x120", FASTEST, 1.8, 2),
    *[(f"pushed {size} to 1280x960", FASTEST, 7, 7) for size in ("640x480", "320x240", "160x120")],
    ("kRGB 1280x960 to 320x240", FASTEST, 1.35, 1.9),
]
TARGET_LEVELS = ["AVX2", "AVX3_DL"]


def yardstick(ways, measure):
    """Microseconds of what a target compares with, None if the run lacks it."""
    if measure == FASTEST:
        return min((ways[peer] for peer in PEERS if peer in ways), default=None)
    if measure == "times 10 us":
        return 10
    return ways.get({COPY: "memcpy", "times OpenCV": "OpenCV", "times the plain loop": "plain"}[measure])


def print_row(cells):
    print("| " + " | ".join(cells) + " |")


def print_times(jobs):
    ways_shown = LEVELS + ["memcpy"] + PEERS
    header = ["job"] + ways_shown + ["AVX2 x", "AVX3_DL x"]
    print_row(header)
    print("|---" + "|---:" * (len(header) - 1) + "|")
    for job, ways in jobs.items():
        cells = [job] + [number(ways.get(way)) for way in ways_shown]
        print_row(cells + [gain(ways, "AVX2"), gain(ways, "AVX3_DL")])


def print_targets(jobs):
    print_row(["job", "measure", "AVX2 wanted", "AVX2", "AVX-512 wanted", "AVX-512"])
    print("|---|---|---:|---:|---:|---:|")
    for job, measure, *wanted in TARGETS:
        ways = jobs.get(job, {})
        base = yardstick(ways, measure)
        cells = [job, measure]
        for level, least in zip(TARGET_LEVELS, wanted):
            got = base / ways[level] if base and level in ways else None
            missed = got is not None and got < least
            cells += [f"{least:g}", "" if got is None else f"**{got:.2f}**" if missed else f"{got:.2f}"]
        print_row(cells)


def main():
    jobs = medians(sys.argv[1])
    print(f"{processor()}. CPU time in microseconds, medians.\n")
    print_times(jobs)
    print("\nWhat is wanted and what this run has; what is missed is bold.\n")
    print_targets(jobs)


main()
