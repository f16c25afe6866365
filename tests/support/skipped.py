#!/usr/bin/env python3
"""skipped.py RESULTS.xml…: what ctest --output-junit tells of tests that were skipped, by reason, and of samples.

A sample is told by a test that prints "sample: 12 of 340 faults".
"""

import collections
import os
import re
import sys
import xml.etree.ElementTree as ElementTree

REASON = re.compile(r"^skipped: (.*)$|: Skipped\n((?:[^\[\n].*\n)+)", re.MULTILINE)
SAMPLE = re.compile(r"^sample: (\d+) of (\d+) (.+)$", re.MULTILINE)

skipped = collections.defaultdict(list)
sampled = collections.defaultdict(lambda: [0, 0])
for file in filter(os.path.exists, sys.argv[1:]):
    for test in ElementTree.parse(file).iter("testcase"):
        output = test.findtext("system-out") or ""
        if test.find("skipped") is not None:
            reason = REASON.search(output)
            words = (reason[1] or reason[2]) if reason else "no reason told"
            skipped[words.strip().replace("\n", "; ")].append(test.get("name"))
        for some, all_there_are, what in SAMPLE.findall(output):
            sampled[what][0] += int(some)
            sampled[what][1] += int(all_there_are)

for what, (some, all_there_are) in sorted(sampled.items()):
    print(f"sampled: {some:,} of {all_there_are:,} {what}")
for reason, names in sorted(skipped.items()):
    print(f"skipped, {reason}: {', '.join(dict.fromkeys(names))}")
