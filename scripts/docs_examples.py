#!/usr/bin/env python3
"""Runs every shell and Python example of README.md and docs/*.md.

Each document gets a fresh temporary folder holding small generated inputs
(see INPUTS below) and a link `build` to the build folder; its fenced
``sh``/``bash``/``shell`` and ``python`` blocks run there in the order they
appear, as a reader following the document would run them, so a later block
may use what an earlier one wrote. Blocks in other languages (C++, diagrams)
are not run here.

A block that cannot run on a CI machine is marked by an HTML comment on the
line before its fence:

    <!-- docs-test: skip REASON -->      never run here (REASON is printed)
    <!-- docs-test: needs gpu -->        run only where a CUDA GPU is usable
    <!-- docs-test: needs video -->      run only where the build reads video

Exit status 0 when every block that ran succeeded, 1 otherwise.

    python scripts/docs_examples.py [--build DIR] [--keep] [FILE.md ...]
"""

from __future__ import annotations

import argparse
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib
from dataclasses import dataclass
from pathlib import Path
from typing import Dict, List, Optional

REPO = Path(__file__).resolve().parents[1]
SHELL = {"sh", "bash", "shell"}
PYTHON = {"python", "py", "python3"}
MARK = re.compile(r"<!--\s*docs-test:\s*(skip|needs)\s*(.*?)\s*-->")
FENCE = re.compile(r"^(\s*)(`{3,}|~{3,})\s*([\w+-]*)")

# The inputs every document's folder starts with. Frames are small (the
# examples run at default parameters) and move by a known constant shift.
WIDTH, HEIGHT, SHIFT = 96, 72, (1.5, 0.5)
INPUTS = """\
  frame1.ppm frame2.ppm truth.flo   a pair and its true flow (vemo-synth)
  frame1.png frame2.png             the same pair as PNG
  frames/00000.png ... 00004.png    five frames of the same motion
  clip.mp4                          those frames as a video
  videos/clip.mp4, videos/street/   a clip and a folder of frames (vemo.batch)"""


@dataclass
class Block:
    document: Path
    line: int
    language: str
    code: str
    mark: Optional[tuple]  # ("skip", reason) or ("needs", feature)

    @property
    def where(self) -> str:
        return f"{self.document.relative_to(REPO) if self.document.is_relative_to(REPO) else self.document}:{self.line}"


def blocks_of(document: Path) -> List[Block]:
    """The fenced blocks of a Markdown file, with the mark on the line
    before each (blank lines between mark and fence allowed)."""
    lines = document.read_text(encoding="utf-8").splitlines()
    found, i = [], 0
    while i < len(lines):
        fence = FENCE.match(lines[i])
        if not fence:
            i += 1
            continue
        indent, ticks, language = fence.group(1), fence.group(2), fence.group(3).lower()
        start, body = i, []
        i += 1
        while i < len(lines) and not lines[i].strip().startswith(ticks):
            body.append(lines[i][len(indent):] if lines[i].startswith(indent) else lines[i])
            i += 1
        i += 1
        mark, j = None, start - 1
        while j >= 0 and not lines[j].strip():
            j -= 1
        if j >= 0:
            m = MARK.search(lines[j])
            if m:
                mark = (m.group(1), m.group(2))
        found.append(Block(document, start + 1, language, "\n".join(body) + "\n", mark))
    return found


# ----------------------------------------------------------------------------
# Generated inputs
# ----------------------------------------------------------------------------

def read_ppm(path: Path) -> tuple:
    data = path.read_bytes()
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        end = pos
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(data[pos:end])
        pos = end
    width, height = int(fields[1]), int(fields[2])
    return width, height, data[pos + 1:pos + 1 + 3 * width * height]


def write_png(path: Path, width: int, height: int, rgb: bytes) -> None:
    """An 8-bit RGB PNG, written with zlib alone."""
    def chunk(kind: bytes, payload: bytes) -> bytes:
        return struct.pack(">I", len(payload)) + kind + payload + struct.pack(">I", zlib.crc32(kind + payload))

    rows = b"".join(b"\0" + rgb[y * 3 * width:(y + 1) * 3 * width] for y in range(height))
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                     + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def run(command: List[str], cwd: Path, env: Dict[str, str], timeout: float = 300) -> subprocess.CompletedProcess:
    return subprocess.run(command, cwd=cwd, env=env, capture_output=True, text=True, timeout=timeout)


def make_inputs(folder: Path, build: Path, env: Dict[str, str], video: bool) -> None:
    synth = str(build / "vemo-synth")
    size = [str(WIDTH), str(HEIGHT)]
    done = run([synth, ".", str(SHIFT[0]), str(SHIFT[1]), *size], folder, env)
    if done.returncode != 0:
        sys.exit(f"docs: vemo-synth failed: {done.stderr}")
    for n in (1, 2):
        write_png(folder / f"frame{n}.png", *read_ppm(folder / f"frame{n}.ppm"))
    # Frame k is the texture shifted by k times the shift: vemo-synth's frame 2.
    frames = folder / "frames"
    frames.mkdir()
    scratch = folder / ".synth"
    for k in range(5):
        run([synth, str(scratch), str(k * SHIFT[0]), str(k * SHIFT[1]), *size], folder, env).check_returncode()
        write_png(frames / f"{k:05d}.png", *read_ppm(scratch / "frame2.ppm"))
    shutil.rmtree(scratch)
    street = folder / "videos" / "street"
    shutil.copytree(frames, street)
    if video:
        code = ("import sys, vemo\n"
                "frames = [vemo.read_frame(f'frames/{k:05d}.png') for k in range(5)]\n"
                "vemo.write_video('clip.mp4', frames)\n")
        done = run([sys.executable, "-c", code], folder, env)
        if done.returncode != 0:
            sys.exit(f"docs: could not write clip.mp4: {done.stderr}")
        shutil.copy(folder / "clip.mp4", folder / "videos" / "clip.mp4")


# ----------------------------------------------------------------------------
# What this machine can run
# ----------------------------------------------------------------------------

def features(build: Path, env: Dict[str, str]) -> Dict[str, Optional[str]]:
    """Each feature a block may need, mapped to None where it is there or to
    the reason it is not."""
    have: Dict[str, Optional[str]] = {}
    probe = run([sys.executable, "-c", "import vemo, vemo.video; print(vemo.video.video_supported())"],
                REPO, env)
    if probe.returncode != 0:
        have["python"] = f"the Python package vemo is not importable by {sys.executable}"
        have["video"] = have["python"]
    else:
        have["python"] = None
        have["video"] = None if probe.stdout.strip() == "True" else "this build has no video support (FFmpeg)"
    gpu = run([sys.executable, "-c", "from vemo import _vemo; print(_vemo.cuda_devices())"], REPO, env)
    have["gpu"] = None if gpu.returncode == 0 and gpu.stdout.strip() not in ("", "0") else "no usable CUDA GPU"
    return have


# ----------------------------------------------------------------------------
# Running
# ----------------------------------------------------------------------------

def run_block(block: Block, folder: Path, env: Dict[str, str], timeout: float) -> subprocess.CompletedProcess:
    if block.language in SHELL:
        command = ["bash", "-e", "-o", "pipefail", "-c", block.code]
    else:
        command = [sys.executable, "-c", block.code]
    return run(command, folder, env, timeout)


def main(argv: Optional[List[str]] = None) -> int:
    p = argparse.ArgumentParser(description="Runs the shell and Python examples of the documentation.")
    p.add_argument("documents", nargs="*", type=Path, help="Markdown files (default: README.md and docs/*.md)")
    p.add_argument("--build", type=Path, default=REPO / "build", help="the CMake build folder with the programs")
    p.add_argument("--keep", action="store_true", help="keep the temporary folders and print where they are")
    p.add_argument("--timeout", type=float, default=300, help="seconds one block may take (default 300)")
    a = p.parse_args(argv)

    build = a.build.resolve()
    if not (build / "vemo-flow").is_file():
        print(f"docs: no programs in {build}: build first (scripts/build.sh)", file=sys.stderr)
        return 1
    documents = a.documents or [REPO / "README.md", *sorted((REPO / "docs").glob("*.md"))]
    env = dict(os.environ)
    env["PATH"] = os.pathsep.join([str(build), str(Path(sys.executable).parent), env.get("PATH", "")])
    have = features(build, env)

    started = time.perf_counter()
    template = Path(tempfile.mkdtemp(prefix="vemo-docs-"))
    make_inputs(template, build, env, have["video"] is None)
    print(f"docs: inputs in each document's folder ({WIDTH} x {HEIGHT} frames):\n{INPUTS}")
    ran = failed = 0
    skipped: List[str] = []
    try:
        for document in documents:
            folder = template.parent / f"{template.name}-{document.stem}"
            shutil.copytree(template, folder)
            (folder / "build").symlink_to(build)
            for block in blocks_of(document.resolve()):
                if block.language not in SHELL | PYTHON:
                    continue
                reason = None
                if block.mark and block.mark[0] == "skip":
                    reason = block.mark[1] or "marked skip"
                elif block.mark and block.mark[0] == "needs":
                    reason = have.get(block.mark[1], f"unknown need '{block.mark[1]}'")
                if reason is None and block.language in PYTHON:
                    reason = have["python"]
                if reason is not None:
                    skipped.append(f"{block.where}: {reason}")
                    print(f"docs: SKIPPED {block.where} ({reason})")
                    continue
                t = time.perf_counter()
                try:
                    done = run_block(block, folder, env, a.timeout)
                    status, out = done.returncode, done.stdout + done.stderr
                except subprocess.TimeoutExpired:
                    status, out = "timeout", f"still running after {a.timeout:.0f} s"
                ran += 1
                if status == 0:
                    print(f"docs: ok      {block.where} ({time.perf_counter() - t:.1f} s)")
                    continue
                failed += 1
                tail = "\n".join(out.splitlines()[-40:])
                print(f"docs: FAILED  {block.where} (status {status}) in {folder}\n--- {block.language}\n"
                      f"{block.code}--- output (last 40 lines)\n{tail}\n---")
                a.keep = True  # the folder of a failure stays for a look
            if not a.keep:
                shutil.rmtree(folder)
            else:
                print(f"docs: {document.name} ran in {folder}")
    finally:
        shutil.rmtree(template)
    print(f"docs: {ran} examples run, {failed} failed, {len(skipped)} skipped "
          f"in {time.perf_counter() - started:.0f} s")
    for line in skipped:
        print(f"docs:   skipped {line}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
