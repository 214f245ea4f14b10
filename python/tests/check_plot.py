"""Runs the plotting example and checks that its PNG has a picture in it.

    check_plot.py EXAMPLE.py OUT.png
"""
import pathlib
import subprocess
import sys

import matplotlib.image

example, out = sys.argv[1], pathlib.Path(sys.argv[2])
out.unlink(missing_ok=True)
subprocess.run([sys.executable, example, "--out", str(out)], check=True)
pixels = matplotlib.image.imread(out)
# A blank picture is one colour; curves, labels and axes spread it widely.
assert pixels.ndim == 3 and pixels.shape[0] > 200 and pixels.shape[1] > 200, pixels.shape
assert pixels[..., :3].std() > 0.05, "the picture is blank"
ink = (pixels[..., :3].mean(axis=2) < 0.9).mean()
assert ink > 0.02, f"only {ink:.1%} of the picture has ink"
print(f"{out}: {pixels.shape[1]}x{pixels.shape[0]}, {ink:.1%} ink")
