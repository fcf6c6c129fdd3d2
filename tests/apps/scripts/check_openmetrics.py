#!/usr/bin/python3
"""vstat show --format openmetrics, read back by both parsers of the Prometheus client library: the
classic text parser (the format of the node exporter's textfile collector) and the OpenMetrics one.
The expected figures are read from the report XML itself with the standard library's XML parser.

usage: check_openmetrics.py VSTAT REPORT.xml"""
import subprocess
import sys
import xml.etree.ElementTree as ET

from prometheus_client.openmetrics.parser import text_string_to_metric_families as openmetrics_parser
from prometheus_client.parser import text_string_to_metric_families as classic_parser

ALL_BITS = 2**64 - 1


def series(families, documentation, kind, collection):
    """{(sample suffix, le): value} of the one family of that help text and type, for one collection."""
    matching = [f for f in families if f.documentation == documentation and f.type == kind]
    assert len(matching) == 1, (documentation, kind, [f.name for f in matching])
    family = matching[0]
    return {(s.name[len(family.name):], float(s.labels["le"]) if "le" in s.labels else None): s.value
            for s in family.samples if s.labels.get("collection") == collection}


def check(families, report):
    checked = 0
    for kind in {f.type for f in families}:
        assert kind in ("gauge", "histogram"), kind
    for family in families:
        for sample in family.samples:
            assert sample.timestamp is None, sample
    stamp = [f for f in families if f.name == "vstat_report_timestamp_seconds"]
    assert len(stamp) == 1 and stamp[0].samples[0].value > 0
    for collection in ET.parse(report).getroot().iter("collection"):
        name = collection.get("name")
        for counter in collection:
            what = (name, counter.get("name"))
            value = int(counter.find("value").text)
            if counter.find("sum") is None:
                assert series(families, counter.get("name"), "gauge", name) == {("", None): value}, what
            else:
                got = series(families, counter.get("name"), "histogram", name)
                assert got.pop(("_count", None)) == value, what
                assert got.pop(("_sum", None)) == int(counter.find("sum").text), what
                assert got.pop(("_bucket", float("inf"))) == value, what
                cumulative = 0
                for bucket in counter.findall("histValue"):
                    cumulative += int(bucket.text)
                    if int(bucket.get("max")) != ALL_BITS:
                        assert got.pop(("_bucket", float(bucket.get("max")))) == cumulative, what
                assert got == {}, (what, got)
                largest = series(families, "Largest sample of " + counter.get("name"), "gauge", name)
                assert largest == {("", None): int(counter.find("max").text)}, what
            checked += 1
    return checked


def main(vstat, report):
    text = subprocess.run([vstat, "show", report, "--format", "openmetrics"], check=True,
                          capture_output=True, text=True).stdout
    assert text.endswith("\n# EOF\n"), "no # EOF at the end"
    for parser in (classic_parser, openmetrics_parser):
        checked = check(list(parser(text)), report)
    print("ok: %d figures checked with both parsers" % checked)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
