#!/usr/bin/env python3
"""Makes the tables of docs/performance.md from the JSON of stream_benchmark: results.py FILE."""

import datetime
import json
import os
import sys

RAW = "raw channel"


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        lines = dict(line.split(":", 1) for line in cpuinfo.read().split("\n\n")[0].splitlines())
    fields = {key.strip(): value.strip() for key, value in lines.items()}
    return f"{fields['model name']}, family {fields['cpu family']}, model {fields['model']}"


def load(path):
    """{table: {job: {way: counters}}}, and what was left out or failed.

    Counters are medians of the repetitions, where there are several."""
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    tables, remarks = {}, {}
    # The order in which they were registered; they ran at random.
    for run in sorted(runs, key=lambda run: run["family_index"]):
        table, job, way = run["run_name"].split("/")[:3]
        if run.get("error_occurred"):
            remarks[f"{job}, {way}"] = run["error_message"]
        elif run["run_type"] == "iteration" or run["aggregate_name"] == "median":
            tables.setdefault(table, {}).setdefault(job, {}).setdefault(way, run)
    return tables, remarks


def number(value):
    return "" if value is None else f"{value:.3g}" if value < 100 else f"{value:.0f}"


def print_row(cells):
    print("| " + " | ".join(cells) + " |")


def print_header(cells):
    print_row(cells)
    print("|---" + "|---:" * (len(cells) - 1) + "|")


def median(ways, way):
    return ways.get(way, {}).get("median_us")


def rate(ways, way):
    """GB a second while an image is under way; of the median, so that pauses of others don't count."""
    run = ways.get(way)
    if not run:
        return None
    bytes_an_image = run["bytes_per_second"] * run["real_time"] / 1e6
    return bytes_an_image / run["median_us"] / 1e3


def ratio(value, base):
    return value / base if value is not None and base else None


def print_matrix(title, jobs, measure, relative):
    """A line for each way; for each job what it took, and that relative to the raw channel."""
    ways = list(dict.fromkeys(way for job in jobs.values() for way in job))
    print_header([title] + [cell for job in jobs for cell in (job, relative)])
    for way in sorted(ways, key=lambda way: (way != RAW, way.startswith("OX"))):
        cells = [way]
        for job in jobs.values():
            value = measure(job, way)
            cells += [number(value), number(ratio(value, measure(job, RAW)))]
        print_row(cells)
    print()


CLIENT = "OXRemoteBroker, broker"


def beside_tools(tables):
    """{resolution: {way: run}}: what a user could take to pass an image to another process."""
    beside = {}
    for job, ways in tables.get("remote image", {}).items():
        resolution, socket = job.split(", ")
        for way in (RAW, CLIENT):
            if way in ways:
                beside.setdefault(resolution, {})[f"{way}, {socket}"] = ways[way]
    tools = tables.get("image one way", {})
    for resolution, ways in tools.items():
        beside.setdefault(resolution, {}).update(ways)
    return beside if tools else {}


def print_tools(jobs):
    ways = list(dict.fromkeys(way for job in jobs.values() for way in job))
    print_header(["an image, us"] + [cell for job in jobs for cell in (job, "99 %")])
    for way in ways:
        runs = [job.get(way, {}) for job in jobs.values()]
        print_row([way] + [number(run.get(key)) for run in runs for key in ("median_us", "p99_us")])
    print()


def targets(tables):
    """What is wanted: text, bound, whether less is better, what was reached."""
    small = tables.get("small call", {})
    for job, most in (("each on a core of its own", 1.25), ("both on one core", 2.5)):
        ways = small.get(job, {})
        yield (f"small call, {job}", "times the raw channel", most, True,
               ratio(median(ways, CLIENT), median(ways, RAW)))
    for job, ways in tables.get("remote image", {}).items():
        yield (f"remote image {job}", "of the raw channel's bytes a second", 0.92, False,
               ratio(rate(ways, CLIENT), rate(ways, RAW)))
    for job, ways in beside_tools(tables).items():
        ours = min((median(ways, way) for way in ways if way.startswith("OX")), default=None)
        for way in ways:
            if way in tables["image one way"].get(job, {}):
                yield (f"image {job} beside {way}", "of its time", 1, True,
                       ratio(ours, median(ways, way)))


def print_targets(tables):
    print_header(["what", "measure", "wanted", "reached"])
    for what, measure, wanted, less, reached in targets(tables):
        if reached is None:
            continue
        missed = reached > wanted if less else reached < wanted
        text = f"{reached:.2f}"
        print_row([what, measure, f"{'at most' if less else 'at least'} {wanted:g}",
                   f"**{text}**" if missed else text])


def main():
    tables, remarks = load(sys.argv[1])
    day = datetime.datetime.fromtimestamp(os.path.getmtime(sys.argv[1]), datetime.timezone.utc)
    print(f"{processor()}, {os.cpu_count()} cores; {day:%Y-%m-%d %H:%M} UTC. Medians of single times, "
          "of which the median over the repetitions.\n")
    if "small call" in tables:
        print_matrix("small call, us", tables["small call"], median, "times raw")
    if "remote image" in tables:
        print_matrix("remote image, GB/s", tables["remote image"], rate, "of raw")
    if jobs := beside_tools(tables):
        print_tools(jobs)
    print("What is wanted and what this run has; what is missed is bold.\n")
    print_targets(tables)
    for what, reason in remarks.items():
        print(f"\n{what}: {reason}")


main()
