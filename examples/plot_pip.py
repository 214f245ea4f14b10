#!/usr/bin/env python3
"""Draws every numeric parameter of a set over its clip into one PNG.

    python3 examples/plot_pip.py [SET.xml] [--out chart.png] [--duration 10]

Without a set it draws the bundled picture-in-picture example. Each panel is
one parameter: its curve, its keyframes as dots and its limits as dashed
lines. Needs the qdparam module (build/python/ on PYTHONPATH) and matplotlib.
"""
import argparse
import pathlib
import sys

import matplotlib

matplotlib.use("Agg")  # files only, no display needed
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import qdparam  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent


def numeric_params(s):
    """The parameters that answer numbers, in stored order."""
    return [p for p in s if p.value(s.start) is not None]


def draw(s, out, samples=2000):
    """Draws one panel per numeric parameter of `s` into the PNG `out`."""
    params = numeric_params(s)
    if not params:
        raise SystemExit("the set has no numeric parameter to draw")
    times = np.linspace(s.start, s.start + s.duration, samples)
    figure, axes = plt.subplots(len(params), 1, figsize=(8, 1.8 * len(params)), sharex=True)
    for ax, p in zip(np.atleast_1d(axes), params):
        ax.plot(times, p.values(times), linewidth=1.5)
        keys = [k for k in p.keys if s.start <= k.time <= s.start + s.duration]
        ax.plot([k.time for k in keys], [p.value(k.time) for k in keys], "o", markersize=4)
        for limit in (p.min, p.max):
            if limit is not None:
                ax.axhline(limit, color="grey", linestyle="--", linewidth=0.7)
        ax.set_ylabel(f"{p.name}\n{p.unit}" if p.unit else p.name, fontsize=8)
        ax.grid(True, alpha=0.3)
    np.atleast_1d(axes)[-1].set_xlabel("seconds")
    figure.suptitle(f"{len(params)} parameters over a {s.duration:g} s clip")
    figure.tight_layout()
    figure.savefig(out, dpi=80)
    plt.close(figure)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("set", nargs="?", default=HERE / "pip.xml", help="a parameter set file")
    parser.add_argument("--out", default="pip.png", help="the PNG to write")
    parser.add_argument("--duration", type=float, default=10.0, help="the clip's length, s")
    args = parser.parse_args(argv)
    try:
        s = qdparam.load(args.set)
        s.clip = (0.0, args.duration)
    except (qdparam.LoadError, ValueError) as error:
        raise SystemExit(str(error))
    draw(s, args.out)
    print(f"wrote {args.out}")


if __name__ == "__main__":
    sys.exit(main())
