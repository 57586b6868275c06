#!/usr/bin/env python3
"""The table of docs/performance.md out of the benchmark's JSON: table.py FILE."""

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
    """How often one level does the job while the fastest peer, or memcpy, does it once."""
    if level not in ways:
        return ""
    times = [ways[peer] for peer in PEERS if peer in ways] or [ways.get("memcpy")]
    return "" if times == [None] else f"{min(times) / ways[level]:.2f}"


def main():
    ways_shown = LEVELS + ["memcpy"] + PEERS
    header = ["job"] + ways_shown + ["AVX2 x", "AVX3_DL x"]
    print(f"{processor()}. CPU time in microseconds, medians.\n")
    print("| " + " | ".join(header) + " |")
    print("|---" + "|---:" * (len(header) - 1) + "|")
    for job, ways in medians(sys.argv[1]).items():
        cells = [job] + [number(ways.get(way)) for way in ways_shown]
        cells += [gain(ways, "AVX2"), gain(ways, "AVX3_DL")]
        print("| " + " | ".join(cells) + " |")


main()
