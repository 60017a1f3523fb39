"""What every flow under an output folder was made with.

A batch records, for each output it is about to write, the settings it
computes it with (the method's parameters and the name of the preset they
came from, None for parameters given one by one) in OUTPUT/vemo-settings.json,
so that a rerun with other settings does not take those flows for its own.
The record is written before the work is handed out, after the outputs it
replaces are deleted: whatever stops the batch, a flow on disk was made with
the settings recorded for it.
"""

from __future__ import annotations

import json
import os
import tempfile
from typing import Any, Dict, Optional

import numpy as np

RECORD = "vemo-settings.json"

def settings_of(parameters: Dict[str, Any], preset: Optional[str] = None) -> Dict[str, Any]:
    """The settings a flow is made with, as recorded."""
    return dict(preset=preset, **parameters)


def same_settings(a: Optional[Dict[str, Any]], b: Dict[str, Any]) -> bool:
    """Whether flows made with a equal flows made with b: the same preset
    name and the same parameters as the library takes them (float32)."""
    if a is None or set(a) != set(b) or a.get("preset") != b.get("preset"):
        return False
    return all(np.float32(a[k]) == np.float32(b[k]) for k in b if k != "preset")


def describe(settings: Dict[str, Any]) -> str:
    """'alpha 30, beta 300, ...' (and the preset first, when there is one)."""
    words = [f"preset {settings['preset']}"] if settings.get("preset") else []
    words += [f"{k} {v:g}" for k, v in settings.items() if k != "preset"]
    return ", ".join(words)


class Record:
    """The settings of every recorded output, by path relative to the output
    folder ('walk/frame_0001.flo')."""

    def __init__(self, output: str) -> None:
        self.path = os.path.join(output, RECORD)
        self.outputs: Dict[str, Dict[str, Any]] = {}
        try:
            with open(self.path) as f:
                document = json.load(f)
            table = document["settings"]
            self.outputs = {name: table[index] for name, index in document["outputs"].items()}
        except FileNotFoundError:
            pass
        except (OSError, ValueError, KeyError, IndexError, TypeError) as error:
            raise ValueError(f"{self.path} cannot be read ({error}); remove it, and give --overwrite to "
                             "recompute the flows it was recording") from error

    def made_with(self, relative: str) -> Optional[Dict[str, Any]]:
        return self.outputs.get(relative)

    def save(self) -> None:
        """Writes the record atomically (settings kept once, outputs by index)."""
        table: list = []
        index: Dict[str, int] = {}
        outputs = {}
        for name in sorted(self.outputs):
            key = json.dumps(self.outputs[name], sort_keys=True)
            if key not in index:
                index[key] = len(table)
                table.append(self.outputs[name])
            outputs[name] = index[key]
        write_json(self.path, {"settings": table, "outputs": outputs})


def write_json(path: str, document: Any) -> None:
    """Writes a JSON document atomically (a temporary file renamed onto it)."""
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    fd, temp = tempfile.mkstemp(prefix=".vemo-", suffix=".json.tmp", dir=folder)
    try:
        with os.fdopen(fd, "w") as f:
            json.dump(document, f, indent=1)
        os.replace(temp, path)
    except BaseException:
        if os.path.exists(temp):
            os.unlink(temp)
        raise
