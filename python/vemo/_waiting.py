"""Long library calls that Ctrl-C can interrupt.

A computation in the extension module runs without the GIL, but the main
thread waiting for it only sees KeyboardInterrupt once the call returns. The
call runs on a worker thread instead, and the caller waits in short joins:
Ctrl-C reaches it within a fraction of a second. ``cancel`` (when given) then
asks the computation to stop (its cancel flag), and the caller waits for it
to do so; without it the worker finishes on its own and its result is
dropped.
"""

from __future__ import annotations

import threading
from typing import Any, Callable, Optional

# How often the waiting thread looks up from the join, in seconds.
POLL = 0.05


def call(function: Callable[..., Any], *args: Any, cancel: Optional[Callable[[], None]] = None) -> Any:
    """function(*args), run on a worker thread; its exception is raised here."""
    outcome: dict = {}

    def work() -> None:
        try:
            outcome["value"] = function(*args)
        except BaseException as error:  # handed to the waiting thread
            outcome["error"] = error

    worker = threading.Thread(target=work, name="vemo computation", daemon=True)
    worker.start()
    try:
        while worker.is_alive():
            worker.join(POLL)
    except KeyboardInterrupt:
        if cancel is not None:
            cancel()
            worker.join()  # the computation stops at its next check
        raise
    if "error" in outcome:
        raise outcome["error"]
    return outcome["value"]
