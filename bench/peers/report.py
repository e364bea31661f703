#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes docs/benchmarks.md and its charts of what the rows of bench/peers have measured.

The results lie in FOLDER/ROW.json, as the benchmark library writes them. With --row, prints the
part of that row and writes nothing.

bench/peers/ROW.md tells what a row does. A paragraph "Growth: WHAT" asks for a chart of its sizes,
which are counts of WHAT. A paragraph "Behind: `MEASURE`, ...: why" gives the reason where a
contender is faster; the report says where there is none.
"""

import argparse
import json
import math
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import tempfile

# In the order of the report.
ROWS = ("appending", "maps", "bits", "interning", "strings", "records", "utf8", "frames", "lines",
        "children", "calls", "waiting", "files", "memory")

PLINTH = "Plinth"
LIMIT = "limit"
CALLS_LIMIT = "limit (system calls)"
# How much slower than the system calls that could do the job an operation may be.
CALLS_GOAL = 1.2
# A difference that is smaller, or where the confidence intervals of the medians meet, is noise.
NOISE = 1.05

# Which shape stands for whom in the charts, by how the contender's name begins.
SHAPES = (("std", "o", "standard library"), ("boost", "s", "Boost"), ("POCO", "^", "POCO"),
          ("G", "D", "GLib"), ("apr", "v", "APR"), (LIMIT, "|", "limit"), ("", "x", "others"))

PACKAGES = ("g++", "libc6", "libstdc++6", "libbenchmark-dev", "libboost-dev", "libpoco-dev",
            "libglib2.0-dev", "libapr1-dev", "libcereal-dev")


class Times:
    """What one contender took for one measure: nanoseconds of each repetition."""

    def __init__(self):
        self.all = []

    @property
    def median(self):
        return statistics.median(self.all)

    @property
    def interval(self):
        """Where the median would lie, however often it was repeated, with a confidence of 95 %.

        Of any distribution: each repetition is on either side of the true median like a coin.
        """
        count, left_out, tail = len(self.all), 0, 0
        while (tail := tail + math.comb(count, left_out) / 2**count) <= 0.025:
            left_out += 1
        ordered = sorted(self.all)
        first = max(left_out - 1, 0)
        return ordered[first], ordered[-1 - first]


class Row:
    def __init__(self, name, page, results):
        self.name = name
        self.title, _, self.text = page.partition("\n")
        self.title = self.title.lstrip("# ")
        self.growth, self.reasons, prose = None, {}, []
        for paragraph in re.split(r"\n{2,}", self.text.strip()):
            if paragraph.startswith("Growth: "):
                self.growth = paragraph.removeprefix("Growth: ")
                continue
            if paragraph.startswith("Behind: "):
                for measure in re.findall(r"`([^`]+)`", paragraph.partition("`:")[0] + "`"):
                    self.reasons[" ".join(measure.split())] = paragraph
            prose.append(paragraph)
        self.text = "\n\n".join(prose)
        self.measures = {}  # (name, size) -> contender -> Times
        # Repetitions come in any order; what is entered first comes first in the report.
        for run in sorted(results["benchmarks"], key=lambda run: run["family_index"]):
            if run.get("run_type") == "aggregate":
                continue
            if run.get("error_occurred"):
                raise SystemExit(f"{name}: {run['run_name']}: {run['error_message']}")
            measure, contender, *size = run["run_name"].removesuffix("/real_time").split("|")
            size = int(size[0].split("/")[0]) if size else 0
            contender = contender.split("/iterations")[0].split("/min_time")[0]
            times = self.measures.setdefault((measure, size), {}).setdefault(contender, Times())
            unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
            times.all.append(run["real_time"] * unit)
        for measure, contenders in self.measures.items():
            if PLINTH not in contenders:
                raise SystemExit(f"{name}: nobody of ours for {measure}")
        for measure in self.reasons:
            if measure not in self.names:
                raise SystemExit(f"{name}: a reason for '{measure}', which is not measured")

    @property
    def names(self):
        return list(dict.fromkeys(measure for measure, _ in self.measures))

    @property
    def contenders(self):
        names = dict.fromkeys(name for times in self.measures.values() for name in times)
        return sorted(names, key=lambda name: (name != PLINTH, name.startswith(LIMIT)))

    def behind(self):
        """(measure, size, contender, ratio) for each goal that is not reached."""
        for (measure, size), contenders in sorted(self.measures.items(), key=self.place):
            ours = contenders[PLINTH]
            for contender, times in sorted(contenders.items()):
                ratio = times.median / ours.median
                goal = 1 / (CALLS_GOAL if contender == CALLS_LIMIT else NOISE)
                apart = times.interval[1] < ours.interval[0]
                if contender not in (PLINTH, LIMIT) and ratio < goal and apart:
                    yield measure, size, contender, ratio

    def lines(self):
        """This row's part of the report."""
        yield from (f"## {self.title}", "", self.text, "")
        contenders = self.contenders
        yield "| " + " | ".join(["Measure", *contenders]) + " |"
        yield "|---" + "|--:" * len(contenders) + "|"
        behind = {(measure, size, contender) for measure, size, contender, _ in self.behind()}
        for (measure, size), all_times in sorted(self.measures.items(), key=self.place):
            cells = [label(measure, size)]
            for contender in contenders:
                times = all_times.get(contender)
                if times is None:
                    cells.append("")
                elif contender == PLINTH:
                    low, high = times.interval
                    spread = 100 * (high - low) / 2 / times.median
                    cells.append(f"{duration(times.median)} ±{spread:.0f} %")
                else:
                    ratio = f"{times.median / all_times[PLINTH].median:.2f}"
                    lost = (measure, size, contender) in behind
                    cells.append(f"**{ratio}**" if lost else ratio)
            yield "| " + " | ".join(cells) + " |"
        yield ""
        if self.growth:
            yield f"![How the cost grows: {self.title}](benchmarks/{self.name}.svg)"
            yield ""

    def place(self, item):
        """Measures in their order, then by size."""
        (measure, size), _ = item
        return self.names.index(measure), size


def label(measure, size):
    return f"{measure}, {size:,}" if size else measure


def duration(nanoseconds):
    for factor, unit in ((1e9, "s"), (1e6, "ms"), (1e3, "µs")):
        if nanoseconds >= factor * 0.9995:
            return f"{nanoseconds / factor:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def shape(contender):
    return next(i for i, (start, _, _) in enumerate(SHAPES) if contender.startswith(start))


def pyplot():
    import matplotlib
    matplotlib.use("svg")
    # The same figures give the same bytes; text stays text, for those who search and for screens.
    matplotlib.rcParams.update({"svg.hashsalt": "plinth", "svg.fonttype": "none", "font.size": 9})
    from matplotlib import pyplot as plot
    return plot


def save(plot, figure, path):
    figure.savefig(path, metadata={"Date": None}, bbox_inches="tight", facecolor="white")
    plot.close(figure)


def draw_ratios(rows, path):
    """Every measure of every row: what each contender takes, as a multiple of what we take."""
    plot = pyplot()
    labels, points, at = [], {}, 0
    bands = []
    for row in rows:
        first = at
        for (measure, size), contenders in sorted(row.measures.items(), key=row.place):
            for contender, times in contenders.items():
                if contender != PLINTH:
                    points.setdefault(shape(contender), []).append(
                        (times.median / contenders[PLINTH].median, at))
            labels.append((at, label(measure, size)))
            at += 1
        bands.append((first, at, row.title))
        at += 1
    figure, axes = plot.subplots(figsize=(9, 1 + 0.19 * at))
    for kind in sorted(points):
        _, marker, name = SHAPES[kind]
        axes.plot([x for x, _ in points[kind]], [y for _, y in points[kind]], linestyle="none",
                  marker=marker, label=name, color="black", markersize=5,
                  markerfacecolor="white" if kind % 2 else "black")
    axes.axvline(1, color="black", linewidth=1)
    for first, end, title in bands:
        axes.axhspan(first - 0.5, end - 0.5, color="0.95", zorder=0)
        axes.text(1.01, (first + end - 1) / 2, title, transform=axes.get_yaxis_transform(),
                  va="center")
    axes.set_xscale("log")
    axes.set_yticks([y for y, _ in labels], [text for _, text in labels], fontsize=7)
    axes.set_ylim(at, -1)
    axes.set_xlabel("time of the contender / time of Plinth (right of 1: Plinth is faster)")
    axes.xaxis.set_major_formatter(lambda ratio, _: f"{ratio:g}")
    axes.tick_params(axis="x", labeltop=True, top=True)
    axes.grid(axis="x", which="both", linewidth=0.3, color="0.8")
    axes.legend(loc="lower center", bbox_to_anchor=(0.5, 1 + 1.5 / at), ncols=len(points),
                frameon=False)
    save(plot, figure, path)


def draw_growth(row, path):
    """How the time of each contender grows with the size, a panel for each measure."""
    plot = pyplot()
    names = list(dict.fromkeys(name for name, size in row.measures if size))
    columns = min(2, len(names))
    lines = math.ceil(len(names) / columns)
    figure, panels = plot.subplots(lines, columns, figsize=(4.5 * columns, 3.2 * lines),
                                   squeeze=False, layout="constrained")
    styles = ("-", "--", ":", "-.")
    order = [name for name in row.contenders]
    drawn = {}
    for axes, name in zip(panels.flat, names):
        sizes = sorted(size for measure, size in row.measures if measure == name and size)
        for contender in order:
            known = [size for size in sizes if contender in row.measures[name, size]]
            if not known:
                continue
            ours = contender == PLINTH
            drawn[contender], = axes.plot(
                known, [row.measures[name, size][contender].median for size in known],
                linestyle="-" if ours else styles[order.index(contender) % len(styles)],
                marker="*" if ours else SHAPES[shape(contender)][1], markersize=9 if ours else 5,
                color="black" if ours else "0.35", linewidth=2 if ours else 1)
        axes.set_title(name)
        axes.set_xscale("log")
        axes.set_yscale("log")
        # A decade at least: what does not grow shall look so.
        low, high = axes.get_ylim()
        middle = math.sqrt(low * high)
        axes.set_ylim(min(low, middle / math.sqrt(12)), max(high, middle * math.sqrt(12)))
        axes.set_xlabel(row.growth)
        axes.xaxis.set_major_formatter(lambda size, _: f"{size:,.0f}")
        axes.yaxis.set_major_formatter(lambda time, _: duration(time))
        axes.yaxis.set_minor_formatter(lambda time, _: "")
        axes.grid(which="major", linewidth=0.3, color="0.8")
    for axes in panels.flat[len(names):]:
        axes.set_axis_off()
    figure.legend(drawn.values(), drawn.keys(), loc="lower center", bbox_to_anchor=(0.5, 1),
                  frameon=False, ncols=min(4, len(drawn)))
    save(plot, figure, path)


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()


def machine():
    model = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(),
                      re.MULTILINE)
    memory = re.search(r"MemTotal: +(\d+)", pathlib.Path("/proc/meminfo").read_text())
    processors = output("nproc")
    return (f"{model.group(1) if model else platform.machine()}, {processors} processors, "
            f"{int(memory.group(1)) / 2**20:.0f} GiB, Linux {platform.release()}")


def versions():
    for package in PACKAGES:
        version = output("dpkg-query", "-W", "-f", "${Version}", package)
        if version:
            yield f"{package} {version}"


def report(rows, date):
    yield "# Beside its peers"
    yield ""
    yield ("Made by `scripts/bench`, which anyone can run again: every contender does the same "
           "work in the same\nprogram, built with the same flags, 25 times, in turns. "
           "Figures are medians. Plinth's is a time, with\nhalf the width of its confidence "
           "interval (95 %); those of the others are multiples of it: more than\n1 is slower than "
           "Plinth. Times are this machine's; what can be compared elsewhere are the ratios.")
    yield ""
    yield (f"A **bold** figure is a goal that is not reached: a contender that is faster by more "
           f"than {100 * (NOISE - 1):.0f} %, or a\nlimit of system calls that is exceeded by more "
           f"than {100 * (CALLS_GOAL - 1):.0f} %, where the confidence intervals do not meet.\nThe other "
           "limits, the plainest code that could do the job, show what the service costs; nobody "
           "offers\nit for that.")
    yield ""
    yield f"Machine: {machine()}; {date}."
    yield ""
    yield "Versions: " + ", ".join(versions()) + "."
    yield ""
    yield "![What each contender takes beside Plinth](benchmarks/ratios.svg)"
    yield ""
    yield "## What Plinth loses"
    yield ""
    lost = [(row, *what) for row in rows for what in row.behind()]
    if lost:
        yield "| Row | Measure | To | Ratio | Why |"
        yield "|---|---|---|--:|---|"
        for row, measure, size, contender, ratio in lost:
            anchor = re.sub(r"[^\w -]", "", row.title.lower()).replace(" ", "-")
            why = f"[below](#{anchor})" if measure in row.reasons else "not known yet"
            yield (f"| {row.title} | {label(measure, size)} | {contender} | {ratio:.2f} | {why} |")
    else:
        yield "Nothing, beyond the noise."
    yield ""
    for row in rows:
        yield from row.lines()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("folder", type=pathlib.Path, help="where ROW.json of each row lies")
    parser.add_argument("--row", help="print the part of this row only")
    options = parser.parse_args()
    here = pathlib.Path(__file__).resolve().parent
    pages = {path.stem for path in here.glob("*.md")}
    if not options.row and pages != set(ROWS):
        raise SystemExit(f"rows and pages differ: {sorted(pages ^ set(ROWS))}")
    rows, date = [], ""
    for name in [options.row] if options.row else ROWS:
        results = json.loads((options.folder / f"{name}.json").read_text())
        date = results["context"]["date"][:10]
        rows.append(Row(name, (here / f"{name}.md").read_text(), results))
    if options.row:
        print("\n".join(rows[0].lines()))
        return
    docs = here.parents[1] / "docs"
    charts = docs / "benchmarks"
    charts.mkdir(exist_ok=True)
    # All of it or nothing.
    with tempfile.TemporaryDirectory() as scratch:
        new = pathlib.Path(scratch)
        draw_ratios(rows, new / "ratios.svg")
        for row in rows:
            if row.growth:
                draw_growth(row, new / f"{row.name}.svg")
        for path in new.iterdir():
            shutil.copy(path, charts)
    (docs / "benchmarks.md").write_text("\n".join(report(rows, date)).rstrip() + "\n")


if __name__ == "__main__":
    main()
