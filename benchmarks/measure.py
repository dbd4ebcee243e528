"""Measures, and tells what was measured. Run by benchmarks/run, which has built everything."""

import argparse
import datetime
import functools
import glob
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({"svg.hashsalt": "morvane", "svg.fonttype": "none"})
from matplotlib import pyplot  # noqa: E402: after the choice of what draws

# Google Benchmark's name of a contender: subject, case (with its arguments filled in),
# contender, role. What is not listed is measured all the same, as subject "other".
CONTENDERS = {
    "copyGrey": ("imaging", "grey picture, {0} × {1}", "memcpy", "limit"),
    "drawPages": ("imaging", "to pages, {0} × {1}", "", "ours"),
    "drawPagesLiteral": ("imaging", "to pages, {0} × {1}", "literal", "limit"),
    "drawRows": ("imaging", "to rows at column {2}, {0} × {1}", "", "ours"),
    "drawRowsLiteral": ("imaging", "to rows at column {2}, {0} × {1}", "literal", "limit"),
    "wholePath": ("imaging", "dithered, drawn, packed, {0} × {1}", "", "ours"),
    "leptonica<pixDitherToBinary>": ("imaging", "Floyd-Steinberg, {0} × {1}", "leptonica", "peer"),
    "leptonica<toBinaryAtThreshold>": ("imaging", "to pages, {0} × {1}", "leptonica", "peer"),
    "copyImages<LcdHelper::compositeToLcd>": ("copying", "{source} to {target}, {0} × {1}", "", "ours"),
    "copyImages<copyLiterally>": ("copying", "{source} to {target}, {0} × {1}", "literal", "limit"),
    "packQueuedRecords": ("records", "{0} bytes, into a packet", "queued", "ours"),
    "packKeyedRecords": ("records", "{0} bytes, into a packet", "keyed", "ours"),
    "packBasePacker": ("records", "{0} bytes, into a packet", "no queue", "ours"),
    "countQueuedRecords": ("records", "{0} bytes, into a packet", "counting alone", "limit"),
    "packMemcpyLimit": ("records", "{0} bytes, into a packet", "memcpy", "limit"),
    "writeQueuedRecords": ("records", "{0:,} waiting, a record is queued", "", "ours"),
    "writeNewKeys": ("records", "{0:,} waiting, a new key", "", "ours"),
    "writeDuplicates": ("records", "{0:,} waiting, the same value again", "", "ours"),
    "overwriteKeys": ("records", "{0:,} waiting, another value", "", "ours"),
    "drainQueuedRecords": ("records", "{0:,} waiting, a queued record is packed", "", "ours"),
    "drainKeys": ("records", "{0:,} waiting, a keyed record is packed", "", "ours"),
    "parsePacket": ("records", "{0} bytes, parsed out of a packet", "", "ours"),
    "parsePlainWalkLimit": ("records", "{0} bytes, parsed out of a packet", "plain walk", "limit"),
    "parseLoneRecord": ("records", "{0} bytes, parsed alone", "", "ours"),
    "handOver<UsbMessageQueue>": ("messages", "from thread to thread", "", "ours"),
    "handOver<PlainQueue>": ("messages", "from thread to thread", "plain deque", "limit"),
    "addAndGet<UsbMessageQueue>": ("messages", "added and got, {0:,} waiting", "", "ours"),
    "addAndGet<PlainQueue>": ("messages", "added and got, {0:,} waiting", "plain deque", "limit"),
    "makeAndFree": ("messages", "made and freed", "new and delete", "limit"),
}
for word, case in (("FloydSteinberg", "Floyd-Steinberg"), ("Atkinson", "Atkinson"), ("Stucki", "Stucki"),
                   ("Threshold", "Threshold")):
    for function, contender, role in (("dither", "", "ours"), ("ditherRows", "no byte lanes", "ours"),
                                      ("ditherLiteral", "literal", "limit")):
        CONTENDERS[f"{function}<LcdHelper::{word}>"] = ("imaging", case + ", {0} × {1}", contender, role)
for picture, case in (("Pictures::drawing", "drawing"), ("dithered", "dithered")):
    for function, contender, role in (("compress", "", "ours"), ("compressLiteral", "literal", "limit"),
                                      ("copyPixels", "memcpy", "limit"), ("lz4", "lz4", "peer"),
                                      ("zlibFastest", "zlib level 1", "peer"), ("tiffPackBits", "PackBits", "peer")):
        CONTENDERS[f"{function}<{picture}>"] = ("run-length", case + ", {0} × {1}", contender, role)

FORMATS = {2: "Gray8", 3: "Rgb332", 4: "Rgb444", 5: "Rgb565", 6: "Rgb888", 7: "Rgba8888"}
PICTURE_SIZES = ((128, 64), (144, 168), (1024, 1024))
PASSES = 5  # of all contenders, so that a bad minute of the machine hits each of them
REPETITIONS = 3  # of each contender in a pass, in random order

# What a reader of a table has to know.
SUBJECTS = {
    "imaging": "Pictures to 1 bit: a whole picture, from a fresh copy of it (“grey picture” is that copying alone). "
               "leptonica's dithering has other weights and makes rows of bits; so does its threshold, where ours "
               "makes pages of 8 rows. Pillow is called from Python, at about a microsecond a call. Ours on other processors than "
               "x86-64 and Arm with NEON is the line “no byte lanes”.",
    "copying": "A picture from one colour format to another, whole.",
    "run-length": "A picture of 32-bit pixels to run-length words. The others make something that a panel can't draw, "
                  "of bytes: lz4 and zlib find more than runs; libtiff's PackBits is given each colour by itself, and "
                  "opens and ends a file in memory each time.",
    "records": "A record, in packets of 8192 bytes. “Waiting” is how many are there at the time, of 4 bytes each.",
    "messages": "A received buffer of 512 bytes through the queue.",
    "link": "What the library adds to libusb: the bare loop makes the same libusb calls, and nothing else. The "
            "simulated bus has a share of its own in each figure that is taken on it. Here, and in what follows of "
            "the link, the range that was seen stands beside the figure.",
    "latency": "From `addStructData` to the packet's submission, on the simulated bus.",
    "start": "Panels that are found, and left, on the simulated bus.",
    "receive": "Records that panels send, on the simulated bus.",
    "firmware": "An upgrade of one panel, on the simulated bus.",
    "idle": "Panels with which nothing is to be done.",
    "size": "The stripped library, and libusb, which it needs.",
    "other": "Contenders that nobody has paired.",
}
FROM_LINK = ("link", "latency", "start", "receive", "firmware", "idle")  # benchmarks/link/run tells these

# In the document: the subject, and what is seen.
PLOTS = {
    "imaging": ("imaging", "Bars: the table above, on a logarithmic scale"),
    "records-waiting": ("records", "Lines: what a record takes, over how many wait"),
    "link": ("link", "Bars: the table above, on a logarithmic scale"),
}
COLOURS = {"ours": "#2a6fbb", "peer": "#d98032", "limit": "#9a9a9a"}
ITEMS = ("records", "messages")  # a figure is of one item, not of all that a benchmark does


HEAD = """# Performance

Written by `benchmarks/run`, which measures everything again; `--only SUBJECT` measures one subject anew, behind a \
full run in the same folder; `--quick` tries whether all of it runs, and leaves this page alone. All figures, those of \
pictures of other sizes too, are then in `build/benchmarks/results.json`.

- A figure is the median. Its spread is the distance between the quarters of the samples, in parts of the median: a \
difference that is smaller says nothing.
- Contenders take turns in random order, so that a slow minute of the machine hits all of them.
- In brackets: the peer's or the limit's figure, divided by ours. Above 1, ours is the smaller.
- A peer does the same, or nearly. A limit is what can't be left out (`memcpy`, a plain walk), or the rules written \
down literally (“literal”), which is what most would begin with.
- Times are those of one machine; on a panel's own host they are others. How many instructions a work takes, on \
32-bit Arm too, is [on record](internals/testing.md#executed-instructions).
- What it costs to show simulated panels in a browser stands [with that page](web.md#what-it-costs), and what a gateway \
to MQTT bears [with that](mqtt.md#scaling).
"""


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def describe(benchmark):
    """Subject, case, contender and role of a benchmark by its name."""
    parts = [part for part in benchmark.split("/") if part not in ("manual_time", "real_time")]
    arguments = [int(part) for part in parts[1:] if part.isdigit()]
    subject, case, contender, role = CONTENDERS.get(parts[0], ("other", benchmark, "", "ours"))
    formats = [FORMATS.get(argument, "") for argument in arguments[2:4]] if len(arguments) == 4 else ["", ""]
    try:
        return subject, case.format(*arguments, source=formats[0], target=formats[1]), contender, role
    except IndexError:  # other arguments than when the case was named
        return subject, benchmark, contender, role


def filter_for(only):
    names = [name for name, (subject, *_) in CONTENDERS.items() if only in (None, subject)]
    return "^(" + "|".join(map(re.escape, names)) + ")(/|$)" if only else "."


class Samples:
    """What was measured of each contender, in the order in which they are named here."""

    def __init__(self, keys):
        self.entries = {key: {"values": [], "unit": "", "note": ""} for key in keys}

    def add(self, key, value, unit, note=""):
        self.entries[key]["values"].append(value)
        self.entries[key].update(unit=unit, note=note)

    def results(self):
        for (subject, case, contender, role), entry in self.entries.items():
            values = entry["values"]
            median = statistics.median(values)
            quarters = statistics.quantiles(values * 2 if len(values) == 1 else values, n=4, method="inclusive")
            yield {"subject": subject, "case": case, "contender": contender, "role": role, "value": median,
                   "unit": entry["unit"], "note": entry["note"], "minimum": min(values), "samples": len(values),
                   "spread": (quarters[2] - quarters[0]) / median if median else 0}


def list_benchmarks(build, only):
    """Keys of what Google Benchmark measures, in its order."""
    program = f"{build}/bin/morvaneBenchmarks"
    names = output_of(program, "--benchmark_list_tests", f"--benchmark_filter={filter_for(only)}")
    return [describe(name) for name in names.splitlines()]


def run_benchmarks(build, only, quick, samples):
    """One pass of what Google Benchmark measures."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run(
            [f"{build}/bin/morvaneBenchmarks", f"--benchmark_filter={filter_for(only)}",
             "--benchmark_enable_random_interleaving=true", f"--benchmark_repetitions={REPETITIONS}",
             f"--benchmark_min_time={0.005 if quick else 0.05}", f"--benchmark_out={out.name}",
             "--benchmark_out_format=json"], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        runs = json.load(out)["benchmarks"]
    for run in runs:
        if run.get("error_occurred"):
            sys.exit(f"measure: {run['name']}: {run['error_message']}")
        if run["run_type"] != "iteration":
            continue
        key = describe(run["run_name"])
        note = f"{run['bytes']:,.0f} bytes" if "bytes" in run else ""
        if key[0] in ITEMS:
            samples.add(key, 1e9 / run["items_per_second"], "ns", note)
        else:
            is_real = run["run_name"].endswith(("manual_time", "real_time"))
            in_microseconds = {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}[run["time_unit"]]
            samples.add(key, run["real_time" if is_real else "cpu_time"] * in_microseconds, "us", note)


def grey_picture(width, height):
    """The picture of benchmarks/Pictures.h."""
    grey, random = bytearray(), 1
    for y in range(height):
        for x in range(width):
            random = random * 48271 % 2147483647
            grey.append((x * 240 // width + y * 240 // height) // 2 + random % 16)
    return bytes(grey)


def prepare_pillow():
    """Pillow's contenders: key, and what is to be timed."""
    from PIL import Image
    contenders = []
    for width, height in PICTURE_SIZES:
        picture = Image.frombytes("L", (width, height), grey_picture(width, height))
        for case, dithering in (("Floyd-Steinberg", Image.Dither.FLOYDSTEINBERG), ("Threshold", Image.Dither.NONE)):
            key = ("imaging", f"{case}, {width} × {height}", "Pillow", "peer")
            contenders.append((key, functools.partial(picture.convert, "1", dither=dithering)))
    return contenders


def run_pillow(contenders, quick, samples):
    for key, work in contenders * REPETITIONS:
        rounds, begin = 0, time.process_time()
        while (elapsed := time.process_time() - begin) < (0.005 if quick else 0.05):
            work()
            rounds += 1
        samples.add(key, elapsed / rounds * 1e6, "us")


def run_link(build, quick):
    """The lines of benchmarks/link/run, which repeats for itself."""
    program = "benchmarks/link/run"
    print("link ...", flush=True)
    run = subprocess.run([program, build] + ["--quick"] * quick, stdout=subprocess.PIPE, text=True, check=False)
    if run.returncode != 0:
        sys.exit(f"measure: {program}: exit code {run.returncode}")
    return [json.loads(line) for line in run.stdout.splitlines() if line.startswith("{")]


def measure_size(build):
    """Sections and files of the stripped library on both processors."""
    libusb = "usr/lib/arm-linux-gnueabihf/libusb-1.0.so"
    sysroot = "build/debian-armhf/sysroot"
    processors = (
        ("x86-64", "", f"{build}/lib/libMorvaneHostUsb.so", "/usr/lib/x86_64-linux-gnu/libusb-1.0.so"),
        ("32-bit Arm", "arm-linux-gnueabihf-", "build/armhf/lib/libMorvaneHostUsb.so", f"{sysroot}/{libusb}"))
    for processor, tools, library, other in processors:
        for path, contender, role in ((library, "", "ours"), (other, "libusb", "peer")):
            with tempfile.NamedTemporaryFile() as stripped:
                output_of(f"{tools}strip", "-o", stripped.name, path)
                sizes = output_of(f"{tools}size", stripped.name).splitlines()[1].split()
                file_size = os.path.getsize(stripped.name)
            for what, size in (("text", sizes[0]), ("data", sizes[1]), ("bss", sizes[2]), ("file", file_size)):
                yield {"subject": "size", "case": f"{processor}, {what}", "contender": contender, "role": role,
                       "value": int(size), "unit": "bytes", "note": ""}


def measure(build, only, quick):
    results = run_link(build, quick) if only in (None, "link") else []
    if only not in ("link", "size"):
        pillow = prepare_pillow() if only in (None, "imaging") else []
        samples = Samples(list_benchmarks(build, only) + [key for key, _ in pillow])
        passes = 1 if quick else PASSES
        for number in range(passes):
            print(f"pass {number + 1} of {passes} ...", flush=True)
            run_benchmarks(build, only, quick, samples)
            run_pillow(pillow, quick, samples)
        results += samples.results()
    if only in (None, "size"):
        results += measure_size(build)
    return results


def version_of(package):
    found = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], stdout=subprocess.PIPE,
                           stderr=subprocess.DEVNULL, text=True, check=False).stdout
    return re.sub(r"^\d+:|[-+].*$", "", found)


def describe_machine(build, command):
    with open("/proc/cpuinfo", encoding="utf-8") as cpus:
        model = re.search(r"^model name\s*: (.*)$", cpus.read(), re.M)
    with open(f"{build}/CMakeCache.txt", encoding="utf-8") as cache:
        compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache.read(), re.M).group(1)
    peers = (("leptonica", "liblept5"), ("Pillow", "python3-pil"), ("lz4", "liblz4-1"), ("zlib", "zlib1g"),
             ("libtiff", "libtiff6"), ("libusb", "libusb-1.0-0"))
    return {"command": f"`{command}`", "date": datetime.date.today().isoformat(),
            "processor": f"{model.group(1) if model else os.uname().machine}, {os.cpu_count()} cores",
            "load": f"load at the beginning {os.getloadavg()[0]:.1f}",
            "compiler": output_of(compiler, "--version").splitlines()[0],
            "peers": ", ".join(f"{name} {version_of(package)}" for name, package in peers)}


def short(number):
    """Three digits, or all before the point."""
    return f"{number:,.{2 if number < 9.995 else 1 if number < 99.95 else 0}f}"


def figure(value, unit):
    seconds = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}
    if unit not in seconds:
        return f"{short(value) if value % 1 else format(value, ',.0f')} {unit}".strip()
    for word, factor in (("s", 1), ("ms", 1e-3), ("µs", 1e-6), ("ns", 1e-9)):
        scaled = value * seconds[unit] / factor
        if scaled >= 0.9995:
            break
    return f"{short(scaled)} {word}"


def beside(results, ours):
    """What stands in a row for peers or limits: each with its figure and its ratio to ours."""
    told = []
    for other in results:
        ratio = f" ({short(other['value'] / ours['value'])} ×)" if ours and ours["value"] else ""
        note = f", {other['note']}" if other.get("note") else ""
        told.append(f"{other['contender']} {figure(other['value'], other['unit'])}{ratio}{note}")
    return " · ".join(told)


def rows_of(results):
    """A row for each of ours, with the case's peers and limits; or for the case, if none is ours."""
    for case in dict.fromkeys(result["case"] for result in results):
        of_case = [result for result in results if result["case"] == case]
        roles = {role: [result for result in of_case if result["role"] == role] for role in ("ours", "peer", "limit")}
        for ours in roles["ours"] or [None]:
            yield case, ours, roles["peer"], roles["limit"]


def name_of(case, ours):
    return f"{case}; {ours['contender']}" if ours and ours["contender"] not in ("", "library") else case


def table(results):
    lines = ["| Case | Ours | Spread | Peers | Limit |", "|---|---|---|---|---|"]
    for case, ours, peers, limits in rows_of(results):
        value, spread = "", ""
        if ours:
            value = figure(ours["value"], ours["unit"]) + (f", {ours['note']}" if ours.get("note") else "")
            spread = f"{100 * ours['spread']:.0f} %" if "spread" in ours else ""
        lines.append(f"| {name_of(case, ours)} | {value} | {spread} | {beside(peers, ours)} | {beside(limits, ours)} |")
    return "\n".join(lines)


def is_better(other, ours):
    rate = ours["unit"].endswith("/s")
    return other["value"] > ours["value"] if rate else other["value"] < ours["value"]


def is_within_spread(other, ours):
    return abs(other["value"] - ours["value"]) < ours.get("spread", 0) * ours["value"]


def better_rivals(results):
    """Where a peer, or what most would begin with, does better than one of ours."""
    better = []
    for subject in set(SUBJECTS) - {"size", *FROM_LINK}:
        for case, ours, peers, limits in rows_of([result for result in results if result["subject"] == subject]):
            rivals = peers + [limit for limit in limits if limit["contender"] in ("literal", "plain deque")]
            told = [beside([rival], ours) + (", within the spread" if is_within_spread(rival, ours) else "")
                    for rival in rivals if ours and is_better(rival, ours)]
            better += [f"- {subject}, {name_of(case, ours)}: {other}" for other in told]
    return sorted(better)


def noise(results):
    spreads = sorted(result["spread"] for result in results if result.get("spread") is not None)
    if not spreads:
        return ""
    samples = max(result.get("samples", 0) for result in results)
    return (f" Spread of all contenders here: {100 * statistics.median(spreads):.0f} % in the middle, "
            f"{100 * spreads[-1]:.0f} % at worst, of {samples} samples each.")


def is_documented(result):
    """Of the pictures' sizes the document shows the larger LCD's."""
    return result["subject"] != "imaging" or not re.search(r"128 × 64|1024 × 1024", result["case"])


def draw_bars(results, path):
    """A group of bars for each case, on a logarithmic axis."""
    unit = statistics.mode(result["unit"] for result in results)
    results = [result for result in results if result["unit"] == unit and result["value"] > 0]
    drawn, axes = pyplot.subplots(figsize=(8, 0.8 + 0.22 * (len(results) + len({r["case"] for r in results}))))
    labels, place = [], 0
    for case in dict.fromkeys(result["case"] for result in results):
        for result in (result for result in results if result["case"] == case):
            axes.barh(place, result["value"], color=COLOURS[result["role"]])
            labels.append((place, f"{case}: {result['contender'] or 'ours'}"))
            place += 1
        place += 0.6
    axes.set_yticks([at for at, _ in labels], [label for _, label in labels])
    axes.invert_yaxis()
    axes.set_xscale("log")
    axes.set_xlabel("µs" if unit == "us" else unit)
    save(drawn, path)


def draw_waiting(results, path):
    """What a record takes, over how many wait."""
    lines = {}
    for result in results:
        if match := re.match(r"([\d,]+) waiting, (.*)", result["case"]):
            lines.setdefault(match[2], []).append((int(match[1].replace(",", "")), result["value"]))
    if not lines:
        return
    drawn, axes = pyplot.subplots(figsize=(7, 4))
    for label, points in lines.items():
        axes.plot(*zip(*sorted(points)), marker="o", label=label)
    axes.set_xscale("log")
    axes.set_ylim(bottom=0)
    axes.set_xlabel("records waiting")
    axes.set_ylabel("ns a record")
    axes.legend()
    save(drawn, path)


def save(drawn, path):
    drawn.savefig(path, metadata={"Date": None, "Creator": None}, bbox_inches="tight")
    pyplot.close(drawn)


def draw(results, build):
    """Each subject's bars into the build folder, and what the document shows beside it."""
    for old in glob.glob(f"{build}/*.svg"):
        os.remove(old)
    for subject in SUBJECTS:
        shown = [result for result in results if result["subject"] == subject and is_documented(result)]
        if shown:
            draw_bars(shown, f"{build}/{subject}.svg")
    draw_waiting([result for result in results if result["subject"] == "records"], f"{build}/records-waiting.svg")


def conditions_of(measured):
    """A line for each set of conditions, with the subjects that were measured under them."""
    conditions = {}
    for subject in SUBJECTS:
        if subject in measured:
            conditions.setdefault(tuple(measured[subject].values()), []).append(subject)
    return [f"- {', '.join(subjects)}: " + "; ".join(told) + "." for told, subjects in conditions.items()]


def write_document(record, build):
    results = record["results"]
    text = [HEAD, "Measured:\n\n" + "\n".join(conditions_of(record["measured"])) + "\n"]
    for subject, remark in SUBJECTS.items():
        shown = [result for result in results if result["subject"] == subject and is_documented(result)]
        if not shown:
            continue
        text.append(f"## {subject.capitalize()}\n\n{remark}{noise(shown)}\n\n{table(shown)}\n")
        text += [f"![{what}](performance-{name}.svg)\n" for name, (of, what) in PLOTS.items()
                 if of == subject and os.path.exists(f"{build}/{name}.svg")]
    better = better_rivals([result for result in results if is_documented(result)])
    text.append("## Where a peer is better\n\nOr what is written down literally. The bare loop is left to its own "
                "tables.\n\n" + ("\n".join(better) if better else "Nowhere in these tables.") + "\n")
    with open("docs/performance.md", "w", encoding="utf-8") as page:
        page.write("\n".join(text))
    for name in PLOTS:
        if os.path.exists(f"{build}/{name}.svg"):
            shutil.copy(f"{build}/{name}.svg", f"docs/performance-{name}.svg")


def merge(path, results, conditions, only):
    """Puts the results of one subject in the place of what was there of it, those of all in the place of all."""
    record = {"measured": {}, "results": []}
    if only and os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            record = json.load(file)
    subjects = {result["subject"] for result in results}
    record["measured"].update({subject: conditions for subject in subjects})
    record["results"] = [result for result in record["results"] if result["subject"] not in subjects] + results
    with open(path, "w", encoding="utf-8") as file:
        json.dump(record, file, indent=1, ensure_ascii=False)
    return record


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--only")
    arguments = parser.parse_args()
    build = arguments.build
    path = f"{build}/{'quick' if arguments.quick else 'results'}.json"
    if arguments.only and not arguments.quick and not os.path.exists(path):
        sys.exit("measure: --only writes the document with the other subjects' figures of this folder, and there are "
                 "none; measure everything once")
    command = "benchmarks/run" + (f" --only {arguments.only}" if arguments.only else "")
    conditions = describe_machine(build, command)
    results = measure(build, arguments.only, arguments.quick)
    for subject in SUBJECTS:
        of_subject = [result for result in results if result["subject"] == subject]
        if of_subject:
            print(f"\n{subject}:{noise(of_subject)}\n\n{table(of_subject)}")
    record = merge(path, results, conditions, arguments.only)
    draw(record["results"], build)
    if not arguments.quick:
        write_document(record, build)


main()
