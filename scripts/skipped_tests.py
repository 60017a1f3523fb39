#!/usr/bin/env python3
"""Lists the tests ctest skipped in its last run, grouped by the reason the
test gave (GoogleTest's "Skipped" message), from Testing/Temporary/LastTest.log.

    python3 scripts/skipped_tests.py [BUILD_DIR] [PREFIX]

Prints one line per reason: PREFIX, the count, the reason and the tests'
names (shortened); nothing when no test was skipped."""

from __future__ import annotations

import re
import sys
from collections import OrderedDict
from pathlib import Path


def skipped(log: str) -> "OrderedDict[str, list]":
    """Reason -> names of the skipped tests."""
    reasons: "OrderedDict[str, list]" = OrderedDict()
    for section in re.split(r"\n(?=\d+/\d+ Testing: )", log):
        head = re.match(r"\d+/\d+ Testing: (\S+)", section)
        if not head or "Skip regular expression found" not in section:
            continue
        why = re.search(r": Skipped\n(.*)\n", section)
        reason = why.group(1).strip() if why and why.group(1).strip() else "no reason given"
        reasons.setdefault(reason, []).append(head.group(1))
    return reasons


def main() -> int:
    build = Path(sys.argv[1] if len(sys.argv) > 1 else "build")
    prefix = sys.argv[2] if len(sys.argv) > 2 else ""
    log = build / "Testing" / "Temporary" / "LastTest.log"
    if not log.is_file():
        return 0
    for reason, names in skipped(log.read_text(errors="replace")).items():
        shown = ", ".join(names[:3]) + (f" and {len(names) - 3} more" if len(names) > 3 else "")
        print(f"{prefix}{len(names)} test{'s' if len(names) > 1 else ''}: {reason} ({shown})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
