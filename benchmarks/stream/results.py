#!/usr/bin/env python3
"""Makes the tables of docs/performance.md from the JSON of stream_benchmark: results.py FILE."""

import json
import sys

RAW = "raw channel"


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        lines = dict(line.split(":", 1) for line in cpuinfo.read().split("\n\n")[0].splitlines())
    fields = {key.strip(): value.strip() for key, value in lines.items()}
    return f"{fields['model name']}, family {fields['cpu family']}, model {fields['model']}"


def load(path):
    """{table: {job: {way: counters}}}, what was left out or failed, and on which machine.

    Counters are medians of the repetitions, where there are several."""
    with open(path, encoding="utf-8") as file:
        results = json.load(file)
    runs = results["benchmarks"]
    tables, remarks = {}, {}
    # The order in which they were registered; they ran at random.
    for run in sorted(runs, key=lambda run: run["family_index"]):
        table, job, way = run["run_name"].split("/")[:3]
        if run.get("error_occurred"):
            remarks[f"{job}, {way}"] = run["error_message"]
        elif run["run_type"] == "iteration" or run["aggregate_name"] == "median":
            tables.setdefault(table, {}).setdefault(job, {}).setdefault(way, run)
    return tables, remarks, results["context"]


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
    """GB a second while an image is under way."""
    run = ways.get(way)
    return run["bytes"] / run["median_us"] / 1e3 if run else None


def ratio(value, base):
    return value / base if value is not None and base else None


def print_matrix(title, jobs, measure, base, relative):
    """A line for each way; for each job what it took, and that relative to the way base."""
    ways = list(dict.fromkeys(way for job in jobs.values() for way in job))
    print_header([title] + [cell for job in jobs for cell in (job, relative)])
    for way in ways:
        cells = [way]
        for job in jobs.values():
            value = measure(job, way)
            cells += [number(value), number(ratio(value, measure(job, base)))]
        print_row(cells)
    print()


def print_counters(title, jobs, counters):
    """A line for each job and way, with counters as {heading: name}."""
    print_header([title, ""] + list(counters))
    for job, ways in jobs.items():
        for way, run in ways.items():
            print_row([job, way] + [number(run.get(name)) for name in counters.values()])
    print()


# In the order in which a frame goes through them. "wake" counts from the push's beginning, so it
# contains "push"; a raw channel has none, since its pusher goes on itself.
STAGES = ["push", "wake", "resample", "convert", "copy", "join"]


def stage(run, name, key=""):
    return run.get(f"stage {name}{key}") if run.get(f"stage {name} count") else None


def print_stages(job, ways):
    """Medians of what the service counts; then what is left until the client has the frame."""
    print_header([f"{job}, us"] + [cell for way in ways for cell in (way, "99 %")])
    for name in STAGES + ["send"]:
        print_row([name] + [number(stage(run, name, key)) for run in ways.values()
                            for key in ("", " p99")])
    cells = ["send and receive, the rest"]
    for run in ways.values():
        before = "wake" if stage(run, "wake") else "push"
        cells += [number(run["median_us"] - sum(stage(run, name) or 0 for name in STAGES
                                                if name not in ("push", "wake") or name == before)), ""]
    print_row(cells)
    print_row(["push to receipt"] + [number(run[key]) for run in ways.values()
                                     for key in ("median_us", "p99_us")])
    print()


CLIENT = "OXRemoteBroker, broker"
SHARED = "nextShared, converted already"


def beside_tools(tables):
    """{resolution: {way: run}}: what a user could take to pass an image to another process."""
    beside = {job: dict(ways) for job, ways in tables.get("image beside tools", {}).items()}
    for job, ways in tables.get("new frame", {}).items():
        if job in beside:
            beside[job].update({way: ways[way] for way in ("nextShared", SHARED) if way in ways})
    return beside


def is_ours(way):
    return way.startswith(("OX", "next"))


def print_tools(jobs):
    ways = list(dict.fromkeys(way for job in jobs.values() for way in job))
    ways.sort(key=lambda way: (not way.startswith(RAW), not is_ours(way)))
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
        ours = min((median(ways, way) for way in ways if is_ours(way)), default=None)
        for way in ways:
            if not is_ours(way) and not way.startswith(RAW):
                yield (f"image {job} beside {way}", "of its time", 1, True,
                       ratio(ours, median(ways, way)))
    yield from stream_targets(tables)


def stream_targets(tables):
    frames = tables.get("new frame", {})
    large = frames.get("k4VGA", {})
    yield ("new frame k4VGA, nextShared", "times the frames a second of TCP", 3, False,
           ratio(median(large, "next, TCP"), median(large, "nextShared")))
    for job, ways in frames.items():
        yield (f"new frame {job}, converted already, nextShared", "times a small call", 1.5, True,
               ratio(median(ways, SHARED), median(ways, "getFrameRate")))
    for job, ways in tables.get("receipt", {}).items():
        for way in ("next", "nextShared"):
            run = ways.get(way, {})
            if run and RAW in ways:
                yield (f"receipt {job}, {way}", "us more than conversion and raw channel", 150, True,
                       run["median_us"] - median(ways, RAW))
                yield (f"receipt {job}, {way}", f"missed of {run['pushed']:.0f}", 0, True,
                       run["missed"])
                yield (f"receipt {job}, {way}", "twice", 0, True, run["twice"])
    for ways in tables.get("64 streams", {}).values():
        for way, run in ways.items():
            yield (f"64 streams, {way}", "cores, pushing included", 0.5 if "Shared" in way else 0.25,
                   True, run["broker_cores"] + run["pushing_cores"])
            yield (f"64 streams, {way}", "of all frames", 0.99, False, run["frames_of_all"])
    for ways in tables.get("waiting", {}).values():
        for run in ways.values():
            yield ("1,000 waiting requests", "threads more than one has", 0, True,
                   run["threads"] - run["threads_with_one"])
            yield ("1,000 waiting requests", "ms of processor time in 5 s", 1, True,
                   run["processor_us"] / 1000)
            yield ("1,000 waiting requests", "MiB grown", 2, True, run["grown_KiB"] / 1024)


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
    tables, remarks, machine = load(sys.argv[1])
    print(f"{processor()}, {machine['num_cpus']} cores, {machine['date'][:16].replace('T', ' ')}, load "
          f"average {machine['load_avg'][0]:.1f} at the beginning. Medians of single times; where there "
          "are repetitions, the median of theirs.\n")
    if "small call" in tables:
        print_matrix("small call, us", tables["small call"], median, RAW, "times raw")
    if "remote image" in tables:
        print_matrix("remote image, GB/s", tables["remote image"], rate, RAW, "of raw")
    if jobs := beside_tools(tables):
        print_tools(jobs)
    if "new frame" in tables:
        print_matrix("new frame, us", tables["new frame"], median, "getFrameRate",
                     "times getFrameRate")
    if "receipt" in tables:
        print_counters("receipt, us", tables["receipt"],
                       {"median": "median_us", "99 %": "p99_us", "pushed": "pushed",
                        "missed": "missed", "twice": "twice"})
        for job, ways in tables["receipt"].items():
            print_stages(job, ways)
    if "64 streams" in tables:
        print_counters("64 streams, cores", tables["64 streams"],
                       {"broker": "broker_cores", "pushing": "pushing_cores",
                        "client": "client_cores", "of all frames": "frames_of_all"})
    if "waiting" in tables:
        print_counters("waiting", tables["waiting"],
                       {"threads with one": "threads_with_one", "after the burst": "threads_after_burst",
                        "10 s later": "threads",
                        "processor us in 5 s": "processor_us", "KiB grown": "grown_KiB"})
    print("What is wanted and what this run has; what is missed is bold.\n")
    print_targets(tables)
    for what, reason in remarks.items():
        print(f"\n{what}: {reason}")


main()
