"""Progress of a batch on standard error: a bar redrawn in place on a
terminal, a line per finished chunk otherwise (logs, CI)."""

from __future__ import annotations

import sys
import time
from typing import Optional, TextIO


class Progress:
    def __init__(self, total: int, stream: Optional[TextIO] = None, terminal: Optional[bool] = None) -> None:
        self.total = total
        self.done = 0
        self.stream = stream if stream is not None else sys.stderr
        self.terminal = self.stream.isatty() if terminal is None else terminal
        self.start = time.perf_counter()

    def rate(self) -> str:
        seconds = time.perf_counter() - self.start
        return f"{self.done / seconds:.2f} pairs/s" if self.done and seconds > 0 else "-- pairs/s"

    def chunk_done(self, description: str, pairs: int, failed: int) -> None:
        self.done += pairs
        if self.terminal:
            width = 30
            filled = self.done * width // self.total if self.total else width
            line = f"\r[{'#' * filled}{' ' * (width - filled)}] {self.done}/{self.total} pairs, {self.rate()}"
        else:
            note = f", {failed} failed" if failed else ""
            line = f"{description}: {pairs} pair{'s' if pairs != 1 else ''}{note} ({self.done}/{self.total} pairs, {self.rate()})\n"
        self.stream.write(line)
        self.stream.flush()

    def finish(self) -> None:
        if self.terminal and self.total:
            self.stream.write("\n")
            self.stream.flush()
