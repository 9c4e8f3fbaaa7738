#!/usr/bin/env python3
"""Tables, charts and target checks for the side-by-side benchmarks.

    sidebyside.py SPEC.json SAMPLES OUT_PREFIX

SAMPLES holds one measurement a line, "CASE PROGRAM VALUE", in the order the
rounds ran; for every case the n-th value of its peer and the n-th value of
the measured program come from the same round, so each round gives one ratio. The spec
(JSON) names the cases:

    {"title": "...", "note": "...", "ours": "dlplay" (the default), "chart": "throughput MiB/s" | null,
     "cases": [{"case": KEY, "label": TEXT, "peer": PROGRAM,
                "unit": "seconds" | "MiB" | "CPU s/GiB" | ...,
                "bytes": N,            # with "seconds": shown as MiB/s
                "better": "lower" | "higher",
                "target": {"on": "ratio" | "ours", "op": ">=" | "<=", "value": X}}]}

The ratio of a round is the peer's value over dlplay's when lower is better
(times, memory: above 1 means dlplay did better), dlplay's over the peer's
otherwise. A target is checked against the median of the per-round ratios, or
against the measured program's median value. Writes OUT_PREFIX.md (and OUT_PREFIX.png with
OUT_PREFIX.dat when the spec asks for a chart), prints the table and exits 1
when a target is missed.
"""
import json
import statistics
import subprocess
import textwrap
import sys
import time

# The measured side; a spec's "ours" renames it (a bench host instead of dlplay).
OURS = "dlplay"
OURS_COLOUR = "#1f77b4"
# A peer keeps its colour from chart to chart; others take the spare ones in turn.
KNOWN_PEER_COLOURS = {"curl": "#d62728", "ffmpeg": "#2ca02c", "cat": "#ff7f0e", "curl-x64": "#e377c2",
                      "curl-parallel": "#9467bd", "pwrite": "#8c564b"}
SPARE_COLOURS = ["#17becf", "#bcbd22", "#7f7f7f"]
MIB = 1024 * 1024
# Fewer rounds than this show whether a script works, not a figure.
MIN_ROUNDS = 7


def read_samples(path):
    samples = {}
    with open(path) as f:
        for line in f:
            if not line.strip():
                continue
            case, program, value = line.split()
            samples.setdefault(case, {}).setdefault(program, []).append(float(value))
    return samples


def shown(case, value):
    """What a table or chart shows of one measured value: throughput for times of a known size."""
    if case["unit"] == "seconds" and case.get("bytes"):
        return case["bytes"] / MIB / value
    return value


def shown_unit(case):
    return "MiB/s" if case["unit"] == "seconds" and case.get("bytes") else case["unit"]


def ratio(numerator, denominator):
    # A side that used nothing (memory growth of 0) beats any other.
    return numerator / denominator if denominator else float("inf")


def summarise(case, samples):
    peer_values = samples[case["case"]][case["peer"]]
    ours_values = samples[case["case"]][OURS]
    if len(peer_values) != len(ours_values):
        sys.exit(f"sidebyside: {case['case']}: {len(peer_values)} peer rounds, {len(ours_values)} of {OURS}")
    lower_better = case.get("better", "lower") == "lower"
    ratios = [ratio(p, o) if lower_better else ratio(o, p) for p, o in zip(peer_values, ours_values)]
    return {
        "peer": [shown(case, v) for v in peer_values],
        "ours": [shown(case, v) for v in ours_values],
        "ours_raw": ours_values,
        "ratios": ratios,
        "ratio": statistics.median(ratios),
    }


def target_met(case, summary):
    target = case.get("target")
    if not target:
        return None
    figure = summary["ratio"] if target["on"] == "ratio" else statistics.median(summary["ours_raw"])
    return figure >= target["value"] if target["op"] == ">=" else figure <= target["value"]


def target_text(case):
    target = case.get("target")
    if not target:
        return ""
    subject = "ratio" if target["on"] == "ratio" else f"{OURS} {case['unit']}"
    return f"{subject} {target['op']} {target['value']:g}"


def number(value):
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


def spread(values):
    return f"{number(statistics.median(values))} [{number(min(values))}, {number(max(values))}]"


def table(spec, summaries, rounds):
    when = time.strftime("%Y-%m-%dT%H:%MZ", time.gmtime())
    lines = [f"# {spec['title']}, {when}", ""]
    if spec.get("note"):
        lines += [spec["note"], ""]
    lines += [
        f"{rounds} rounds, alternating which side runs first (even rounds the peer, odd rounds {OURS}). "
        f"Values: median [min, max] over the rounds; ratio: median [min, max] of the per-round ratios, above 1 "
        f"meaning {OURS} did better.",
        "",
        f"| case | peer | unit | peer | {OURS} | ratio | target | met |",
        "|---|---|---|---|---|---|---|---|",
    ]
    missed = 0
    for case, summary in zip(spec["cases"], summaries):
        met = target_met(case, summary)
        missed += met is False
        lines.append(
            f"| {case['label']} | {case['peer']} | {shown_unit(case)} | {spread(summary['peer'])} | "
            f"{spread(summary['ours'])} | {summary['ratio']:.3f} [{min(summary['ratios']):.3f}, "
            f"{max(summary['ratios']):.3f}] | {target_text(case)} | {'' if met is None else 'yes' if met else 'NO'} |")
    if rounds < MIN_ROUNDS:
        lines += ["", f"Only {rounds} rounds: a check of the script, not a figure to write down."]
    return lines, missed


def chart(spec, summaries, prefix):
    """Bars of the median with min-max error bars, one colour a program, the ratio above each pair."""
    colours = {OURS: OURS_COLOUR}
    for case in spec["cases"]:
        if shown_unit(case) == spec["chart"] and case["peer"] not in colours:
            spare = SPARE_COLOURS[(len(colours) - 1) % len(SPARE_COLOURS)]
            colours[case["peer"]] = KNOWN_PEER_COLOURS.get(case["peer"], spare)
    charted = [(c, s) for c, s in zip(spec["cases"], summaries) if shown_unit(c) == spec["chart"]]
    bars, labels, tics = [], [], []
    for index, (case, summary) in enumerate(charted):
        centre = index * 3
        for offset, program, values in ((-0.5, case["peer"], summary["peer"]), (0.5, OURS, summary["ours"])):
            bars.append(f"{centre + offset}\t{statistics.median(values):.3f}\t{min(values):.3f}\t{max(values):.3f}\t"
                        f"{int(colours[program][1:], 16)}")
        top = max(summary["peer"] + summary["ours"])
        labels.append(f"{centre}\t{top:.3f}\t\"{summary['ratio']:.2f}x\"")
        wrapped = "\\n".join(textwrap.wrap(case["label"], 24))
        tics.append(f"\"{wrapped}\" {centre}")
    with open(f"{prefix}.dat", "w") as f:
        f.write("# x\tmedian\tmin\tmax\tcolour\n" + "\n".join(bars) + "\n\n\n")
        f.write("# x\ttop\tratio\n" + "\n".join(labels) + "\n")
    keys = ", ".join(f"NaN with boxes lc rgb \"{colour}\" title \"{program}\"" for program, colour in colours.items())
    script = f"""
set terminal png size 1100,600
set termoption noenhanced
set output "{prefix}.png"
set title "{spec['title']} ({spec['chart']}, median and min-max of the rounds; ratio above each pair)"
set ylabel "{spec['chart']}"
set yrange [0:*]
set offsets 0, 0, graph 0.08, 0
set xrange [-1.5:{len(charted) * 3 - 1.5}]
set xtics ({", ".join(tics)})
set style fill solid 0.8 border -1
set boxwidth 0.9
set grid ytics
set key outside top center horizontal
set bmargin 6
plot "{prefix}.dat" index 0 using 1:2:5 with boxes lc rgb variable notitle, \\
     "" index 0 using 1:2:3:4 with yerrorbars lc rgb "black" pt 0 notitle, \\
     "" index 1 using 1:2:3 with labels offset 0,1 notitle, \\
     {keys}
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    spec_path, samples_path, prefix = sys.argv[1:]
    with open(spec_path) as f:
        spec = json.load(f)
    global OURS
    OURS = spec.get("ours", OURS)
    samples = read_samples(samples_path)
    summaries = [summarise(case, samples) for case in spec["cases"]]
    rounds = min(len(s["ratios"]) for s in summaries)
    lines, missed = table(spec, summaries, rounds)
    with open(f"{prefix}.md", "w") as f:
        f.write("\n".join(lines) + "\n")
    if spec.get("chart"):
        chart(spec, summaries, prefix)
    print("\n".join(lines))
    print("all targets met" if not missed else f"{missed} target(s) missed")
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
