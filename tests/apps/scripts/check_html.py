#!/usr/bin/python3
"""vstat show --format html, rendered by headless Chromium: the page the browser builds holds one chart
per histogram of the report that has samples (counted in the report XML with the standard library),
fetches nothing and runs no script. Screenshots at desktop and phone width are left in OUT_DIR.

usage: check_html.py VSTAT REPORT.xml OUT_DIR"""
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"]


def chromium(profile, *arguments):
    return subprocess.run(["chromium", *FLAGS, "--user-data-dir=" + profile, *arguments], check=True,
                          capture_output=True, text=True, timeout=120).stdout


def main(vstat, report, out_dir):
    os.makedirs(out_dir, exist_ok=True)
    page = os.path.join(out_dir, "report.html")
    subprocess.run([vstat, "show", report, "--format", "html", "-o", page], check=True)
    html = open(page, encoding="utf-8").read()
    assert "<script" not in html and "http:" not in html.replace("http://www.w3.org/2000/svg", ""), "not self-contained"

    histograms = sum(1 for h in ET.parse(report).getroot().iter("histogramCounter")
                     if any(int(v.text) for v in h.findall("histValue")))
    with tempfile.TemporaryDirectory() as profile:
        dom = chromium(profile, "--dump-dom", "file://" + page)
        charts = len(re.findall(r'<svg class="chart"', dom))
        assert charts == histograms, "%d charts for %d histograms with samples" % (charts, histograms)
        assert "<table>" in dom and "Store totals" in dom
        for name, size in (("report-1280.png", "1280,2400"), ("report-phone.png", "390,2400")):
            chromium(profile, "--hide-scrollbars", "--window-size=" + size,
                     "--screenshot=" + os.path.join(out_dir, name), "file://" + page)
            assert os.path.getsize(os.path.join(out_dir, name)) > 1000, name
    print("ok: %d charts; screenshots in %s" % (charts, out_dir))


if __name__ == "__main__":
    main(*sys.argv[1:4])
