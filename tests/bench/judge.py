#!/usr/bin/env python3
"""Makes rows of what the bench programs saw, and judges them.

Each line of the input is one measure in JSON: "measure", "unit", "ours" and maybe "limit", lists of
one number for each round, and "allocations". A result with "phases" is a latency: one number for
each message, in so many phases. A row has one figure of ours, the limit measured beside it, and
their ratio.
"""
import argparse
import json
import statistics
import sys

WORSE = 4 / 3  # how much a ratio may grow until it counts as a regression
SILENT = "others silent"  # what a load is compared with
HEAP = "heap allocations: "
PART_LIMIT = "/limit"
CURVE_STEPS = 150
TABLE_BEGIN = "<!-- the last table -->"
TABLE_END = "<!-- end of the table -->"


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * share))]


def ratio(ours, limit):
    """None when there is nothing to divide by."""
    return ours / limit if limit else None


def quartiles(values):
    known = [value for value in values if value is not None]
    if len(known) < 4:
        return None
    first, _, third = statistics.quantiles(known, n=4)
    return [first, third]


def row(measure, unit, ours, limit=None, spread=None):
    return {
        "measure": measure,
        "unit": unit,
        "ours": ours,
        "limit": limit,
        "ratio": ratio(ours, limit),
        "spread": spread,
    }


def median_row(result):
    ours = result["ours"]
    limit = result.get("limit")
    if not limit:
        return row(result["measure"], result["unit"], statistics.median(ours))
    spread = quartiles([ratio(a, b) for a, b in zip(ours, limit)])
    return row(result["measure"], result["unit"], statistics.median(ours),
               statistics.median(limit), spread)


def phases(values, count):
    size = max(1, len(values) // count)
    return [values[i:i + size] for i in range(0, size * count, size)]


def percentile_row(name, percent, result, ours, limit=None):
    """The median of the phases' percentiles: another program's burst costs a phase or two."""
    def each(values):
        return [percentile(phase, percent / 100) for phase in phases(values, result["phases"])]

    row_of = {"measure": f"{name}, p{percent}", "unit": result["unit"], "ours": each(ours)}
    if limit is not None:
        row_of["limit"] = each(limit)
    return median_row(row_of) | {"latency": True}


def latency_rows(result, silent):
    """A latency is compared with the bare one beside it. Under load it is also compared with ours
    while the others are silent; that is no figure of ours alone, so it is not stored. `silent` is
    None where there is no load."""
    measure, ours, bare = result["measure"], result["ours"], result.get("limit")
    if silent is None:
        return [percentile_row(measure, percent, result, ours, bare) for percent in (50, 99)]
    return [
        percentile_row(measure, 99, result, ours, silent["ours"]) | {"stored": False},
        percentile_row(measure + ", beside bare", 99, result, ours, bare)
    ]


def rows_of(results):
    rows = []
    heap = []
    silent = {}
    for result in results:
        way, _, condition = result["measure"].partition(", ")
        if "phases" in result:
            rows += latency_rows(result, silent.get(way))
            if condition == SILENT:
                silent[way] = result
        else:
            rows.append(median_row(result))
        if "allocations" in result:
            heap.append(row(HEAP + result["measure"], "a message",
                            statistics.median(result["allocations"]), 0))
    return rows + heap


def parts(document):
    """What Google Benchmark saw, as results: its repetitions are the rounds."""
    rounds = {}
    for run in document["benchmarks"]:
        if run["run_type"] == "iteration":
            rounds.setdefault(run["run_name"], []).append(run["cpu_time"])
    results = []
    for name, ours in sorted(rounds.items()):
        if name.endswith(PART_LIMIT):
            continue
        results.append({"measure": name, "unit": "ns", "ours": ours})
        if name + PART_LIMIT in rounds:
            results[-1]["limit"] = rounds[name + PART_LIMIT]
    return results


def judge(rows, goals):
    """Adds "goal" and "met" to each row. A goal bounds the ratio, or the figure itself where the
    limit is nothing at all. Names the goals that no row has."""
    for one in rows:
        goal = 0 if one["measure"].startswith(HEAP) else goals.get(one["measure"])
        one["goal"] = goal
        one["met"] = None if goal is None else score(one) <= goal + 1e-9
    return sorted(set(goals) - {one["measure"] for one in rows})


def score(one):
    return one["ours"] if one["ratio"] is None else one["ratio"]


def scores(rows):
    """What is stored: of every row that has a limit. A message that was faster than the bare one
    was lucky; nothing has to be as lucky again."""
    return {one["measure"]: round(max(score(one), 1 if one.get("latency") else 0), 4)
            for one in rows if one["limit"] is not None and one.get("stored", True)}


def regressions(rows, stored):
    """A line for each measure that is worse by more than a third, missing or new."""
    now = scores(rows)
    lines = [f"{name}: was {stored[name]:g}, is {now[name]:g}" for name in now
             if name in stored and now[name] > stored[name] * WORSE + 1e-9]
    lines += [f"{name}: not measured any more" for name in stored if name not in now]
    lines += [f"{name}: new, not stored yet" for name in now if name not in stored]
    return lines


def unmet(rows):
    return [one["measure"] for one in rows if one["met"] is False]


def figure(value, unit):
    if value is None:
        return ""
    if unit == "ns" and value >= 10000:
        return f"{value / 1000:.1f} us"
    if unit == "bytes":
        return f"{value:,.0f} B"
    if unit in ("", "a message"):
        return f"{value:g}"
    return f"{value:.1f} {unit}"


def cells(one):
    spread = one["spread"]
    met = {None: "", True: "yes", False: "NO"}[one["met"]]
    return [
        one["measure"],
        figure(one["ours"], one["unit"]),
        figure(one["limit"], one["unit"]),
        "" if one["ratio"] is None else f"{one['ratio']:.2f}",
        "" if spread is None else f"{spread[0]:.2f} to {spread[1]:.2f}",
        "told" if one["goal"] is None else f"{one['goal']:g}",
        met,
    ]


HEAD = ["measure", "ours", "limit", "ratio", "half of all rounds", "goal", "met"]


def table(rows, about):
    lines = [HEAD] + [cells(one) for one in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEAD))]
    text = [f"{name}: {value}" for name, value in about.items()] + [""]
    for number, line in enumerate(lines):
        padded = [line[0].ljust(widths[0])]
        padded += [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
        text.append("  ".join(padded).rstrip())
        if number == 0:
            text.append("  ".join("-" * width for width in widths))
    missed = len(unmet(rows))
    goals = sum(one["met"] is not None for one in rows)
    text += ["", f"{goals - missed} of {goals} goals met"]
    return "\n".join(text) + "\n"


def curve_points(count):
    """Places in an ordered list that show its slow end as well as its middle: as far apart in the
    picture as they can be, whose axis is logarithmic."""
    return sorted({count - max(1, round(count ** (step / CURVE_STEPS)))
                   for step in range(CURVE_STEPS + 1)})


def write_curves(results, path):
    """For the picture: how much of the messages took longer, one block of lines for each curve."""
    with open(path, "w", encoding="ascii") as out:
        for result in results:
            if "phases" not in result or "limit" not in result:
                continue
            for who, values in (("ours", result["ours"]), ("bare", result["limit"])):
                ordered = sorted(values)
                out.write(f"\"{who}, {result['measure'].split(', ', 1)[1]}\"\n")
                for number in curve_points(len(ordered)):
                    out.write(f"{ordered[number]:.2f} {1 - number / len(ordered):.6f}\n")
                out.write("\n\n")


def write_page(path, text):
    """Puts the table into the page between its two marks."""
    with open(path, encoding="utf-8") as source:
        page = source.read()
    begin = page.index(TABLE_BEGIN) + len(TABLE_BEGIN)
    end = page.index(TABLE_END)
    with open(path, "w", encoding="utf-8") as out:
        out.write(f"{page[:begin]}\n```\n{text}```\n{page[end:]}")


def read(path):
    with open(path, encoding="utf-8") as source:
        return json.load(source)


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("results", help="lines of JSON")
    parser.add_argument("--parts", help="what Google Benchmark saw, as JSON")
    parser.add_argument("--goals", required=True)
    parser.add_argument("--about", required=True, help="machine and so on, as JSON")
    parser.add_argument("--table", required=True)
    parser.add_argument("--document", required=True)
    parser.add_argument("--curves", required=True)
    parser.add_argument("--ratios", required=True, help="the stored ratios")
    parser.add_argument("--page", help="gets the table, when it is stored")
    parser.add_argument("--store", action="store_true")
    parser.add_argument("--check", action="store_true")
    chosen = parser.parse_args(arguments)

    with open(chosen.results, encoding="utf-8") as lines:
        results = [json.loads(line) for line in lines if line.strip()]
    if chosen.parts:
        results += parts(read(chosen.parts))
    rows = rows_of(results)
    missing = judge(rows, read(chosen.goals))
    about = read(chosen.about)
    text = table(rows, about)
    with open(chosen.table, "w", encoding="utf-8") as out:
        out.write(text)
    with open(chosen.document, "w", encoding="utf-8") as out:
        json.dump({"about": about, "rows": rows, "unmet": unmet(rows)}, out, indent=1)
        out.write("\n")
    write_curves(results, chosen.curves)
    if chosen.store:
        with open(chosen.ratios, "w", encoding="utf-8") as out:
            json.dump(scores(rows), out, indent=1)
            out.write("\n")
        if chosen.page:
            write_page(chosen.page, text)
    complaints = [f"{name}: has a goal and was not measured" for name in missing]
    if chosen.check:
        complaints += regressions(rows, read(chosen.ratios))
    for line in complaints:
        print(f"bench: {line}", file=sys.stderr)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
