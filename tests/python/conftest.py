"""Shared pieces of the Python tests: generated frames and the programs."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import vemo

REPO = Path(__file__).resolve().parents[2]


def textured_frames(count: int, width: int, height: int, shift=(1.5, 0.75), seed: int = 1) -> list:
    """Frames of a smooth random texture moving by `shift` pixels per frame,
    as uint8 H x W x 3."""
    rng = np.random.default_rng(seed)
    waves = [(rng.uniform(0.02, 0.25, 2), rng.uniform(0, 2 * np.pi, 3), rng.uniform(10, 30)) for _ in range(12)]
    y, x = np.mgrid[0:height, 0:width].astype(np.float64)
    frames = []
    for t in range(count):
        image = np.full((height, width, 3), 128.0)
        for (fx, fy), phase, amplitude in waves:
            arg = fx * (x - t * shift[0]) + fy * (y - t * shift[1])
            image += amplitude * np.sin(arg[..., None] + phase)
        frames.append(np.clip(image, 0, 255).astype(np.uint8))
    return frames


def write_ppm(path, frame: np.ndarray) -> None:
    height, width = frame.shape[:2]
    with open(path, "wb") as f:
        f.write(b"P6\n%d %d\n255\n" % (width, height))
        f.write(np.ascontiguousarray(frame, dtype=np.uint8).tobytes())


def program(name: str) -> str:
    """A vemo program of the same build as the imported package: the CMake
    build's when the package is the one staged in build/, else the one pip
    installed beside this Python (a stale install must not stand in)."""
    installed, built = Path(sys.executable).parent / name, REPO / "build" / name
    # (the staged package links to python/vemo/: do not resolve the links)
    from_build = (REPO / "build") in Path(os.path.abspath(vemo.__file__)).parents
    for candidate in ((built, installed) if from_build else (installed, built)):
        if candidate.is_file() and os.access(candidate, os.X_OK):
            return str(candidate)
    found = shutil.which(name)
    if found is None:
        pytest.skip(f"the {name} program is not built")
    return found


def run_program(name: str, *args, cwd=None) -> subprocess.CompletedProcess:
    env = dict(os.environ, VEMO_DEVICE="cpu")
    return subprocess.run([program(name), *map(str, args)], cwd=cwd, env=env, capture_output=True, text=True,
                          check=True, timeout=300)
