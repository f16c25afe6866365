#!/usr/bin/env python3
"""summary.py RESULTS.xml…: what several runs of ctest --output-junit tell together: how large the samples were, which tests
were skipped, by reason, and how many failed, in CTest's own words.

A sample is told by a test that prints "sample: 12 of 340 faults".
"""

import collections
import os
import re
import sys
import xml.etree.ElementTree as ElementTree

REASON = re.compile(r"^skipped: (.*)$|: Skipped\n((?:[^\[\n].*\n)+)", re.MULTILINE)
CASE = re.compile(r"^(test_\w+) .*\.\.\. skipped ['\"](.*)['\"]$", re.MULTILINE)  # unittest's words
SAMPLE = re.compile(r"^sample: (\d+) of (\d+) (.+)$", re.MULTILINE)

tests = [test for file in filter(os.path.exists, sys.argv[1:]) for test in ElementTree.parse(file).iter("testcase")]
skipped = collections.defaultdict(list)
sampled = collections.defaultdict(lambda: [0, 0])
for test in tests:
    output = test.findtext("system-out") or ""
    if test.find("skipped") is not None:
        reason = REASON.search(output)
        words = (reason[1] or reason[2]) if reason else "no reason told"
        skipped[words.strip().replace("\n", "; ")].append(test.get("name").split("  #")[0])
    for case, reason in CASE.findall(output):
        skipped[reason].append(f"{test.get('name')}.{case}")
    for some, all_there_are, what in SAMPLE.findall(output):
        sampled[what][0] += int(some)
        sampled[what][1] += int(all_there_are)

for what, (some, all_there_are) in sorted(sampled.items()):
    if all_there_are:
        print(f"sampled: {some:,} of {all_there_are:,} {what}")
for reason, names in sorted(skipped.items()):
    print(f"skipped, {reason}: {', '.join(dict.fromkeys(names))}")
failed = sum(test.find("failure") is not None for test in tests)
if tests:
    print(f"\n{100 * (len(tests) - failed) // len(tests)}% tests passed, {failed} tests failed out of {len(tests)}")
