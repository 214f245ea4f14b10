#!/usr/bin/env python3
"""The interactive chart in a real browser: the page runs its script without
an error, and every parameter's curve is drawn in its colour.

    check_page.py QDPARAM CHROMIUM EXAMPLE WORKDIR
"""
import json
import pathlib
import re
import subprocess
import sys

import matplotlib.image
import numpy as np

qdparam, chromium, example, work = sys.argv[1:5]
work = pathlib.Path(work)
work.mkdir(parents=True, exist_ok=True)
page = work / "chart.html"
shot = work / "chart.png"
subprocess.run([qdparam, "plot", example, "--html", str(page), "--force"], check=True)

browser = [chromium, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
           "--user-data-dir=" + str(work / "profile")]
dom = subprocess.run(browser + ["--dump-dom", page.as_uri()], check=True, timeout=120,
                     capture_output=True, text=True).stdout
assert 'data-ready="yes"' in dom, "the page's script did not finish"
assert 'data-error="yes"' not in dom, "the page reported a script error"

subprocess.run(browser + ["--window-size=1000,2400", "--screenshot=" + str(shot), page.as_uri()],
               check=True, timeout=120, capture_output=True)
pixels = matplotlib.image.imread(str(shot))[:, :, :3]

text = page.read_text(encoding="utf-8")
data = json.loads(re.search(r'id="chart-data">(.*?)</script>', text, re.S).group(1))
assert data["panels"], "no panel"
for panel in data["panels"]:
    colour = np.array([int(panel["colour"][i:i + 2], 16) / 255 for i in (1, 3, 5)])
    near = np.all(np.abs(pixels - colour) < 0.08, axis=2).sum()
    assert near >= 150, f'{panel["title"]}: only {near} pixels of its colour {panel["colour"]}'
print(f'{len(data["panels"])} curves drawn, no script error')
