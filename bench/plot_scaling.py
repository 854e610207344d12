#!/usr/bin/python3
"""Runs scaling_bench and plots its curves into a PNG.

usage: plot_scaling.py SCALING_BENCH OUTPUT.png [--seconds=S]

The benchmark's table goes to stdout as it runs; the plot has three panels
against the number of subscribers: frames delivered per second (with the
ideal of 30 a subscriber), process CPU time per delivered frame (with and
without the feeder's putImage), and the 99th percentile of a fetch.
"""
import csv
import os
import subprocess
import sys
import tempfile

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402


def main(argv):
    if len(argv) < 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    binary, output = argv[1], argv[2]
    extra = argv[3:]
    with tempfile.TemporaryDirectory() as scratch:
        table = os.path.join(scratch, "scaling.csv")
        subprocess.run([binary, "--csv=" + table] + extra, check=True)
        with open(table, newline="") as f:
            rows = list(csv.DictReader(f))

    series = {}
    for row in rows:
        series.setdefault(row["formats"], []).append(row)
    labels = {"one": "all one format (RGB 888)", "different": "each a different format"}

    fig, axes = plt.subplots(1, 3, figsize=(15, 4.5))
    for formats, points in series.items():
        n = [int(p["subscribers"]) for p in points]
        label = labels.get(formats, formats)
        axes[0].plot(n, [float(p["frames_per_second"]) for p in points], "o-", label=label)
        line = axes[1].plot(n, [float(p["cpu_us_per_frame"]) for p in points], "o-", label=label)[0]
        axes[1].plot(
            n,
            [float(p["cpu_us_per_frame_without_feeder"]) for p in points],
            "o--",
            color=line.get_color(),
            label=label + ", without the feeder",
        )
        axes[2].plot(n, [float(p["fetch_us_p99"]) / 1000 for p in points], "o-", label=label)
    n = sorted({int(r["subscribers"]) for r in rows})
    axes[0].plot(n, [30 * k for k in n], ":", color="grey", label="ideal: 30 a subscriber")
    axes[0].set_ylabel("frames delivered per second")
    axes[1].set_ylabel("CPU time per delivered frame (us)")
    axes[2].set_ylabel("fetch time, 99th percentile (ms)")
    for ax in axes:
        ax.set_xscale("log", base=2)
        ax.set_xticks(n)
        ax.set_xticklabels([str(k) for k in n])
        ax.set_xlabel("subscribers of one 640x480 camera at 30 Hz")
        ax.grid(True, alpha=0.3)
        ax.legend(fontsize=8)
    for ax in axes:
        ax.set_yscale("log")
    fig.tight_layout()
    fig.savefig(output, dpi=100)
    print("wrote " + output)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
