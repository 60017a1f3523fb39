"""Middlebury ``.flo`` files, as the programs and OpenCV's
``cv2.readOpticalFlow`` / ``cv2.writeOpticalFlow`` read and write them:
the tag ``PIEH``, width and height as little-endian int32, then u, v
float32 pairs row by row."""

from __future__ import annotations

import os
import tempfile

import numpy as np

from .paths import PathLike, readable_file, writable_target

TAG = b"PIEH"
HEADER_BYTES = 12


def flo_size(width: int, height: int) -> int:
    """Bytes of a ``.flo`` file of width x height vectors."""
    return HEADER_BYTES + 8 * width * height


def read_flo_header(path: PathLike) -> tuple[int, int]:
    """(width, height) of a ``.flo`` file whose tag, sizes and length agree.

    Raises ValueError for a file that is not a complete ``.flo`` file, and
    OSError when it cannot be read.
    """
    with open(path, "rb") as f:
        header = f.read(HEADER_BYTES)
        length = os.fstat(f.fileno()).st_size
    name = os.fspath(path)
    if len(header) < HEADER_BYTES or header[:4] != TAG:
        raise ValueError(f"cannot read {name}: not a .flo flow file (it does not start with the tag PIEH)")
    width, height = (int(v) for v in np.frombuffer(header, dtype="<i4", count=2, offset=4))
    if width < 0 or height < 0:
        raise ValueError(f"cannot read {name}: a damaged .flo file: its header says {width} x {height} vectors")
    if length != flo_size(width, height):
        raise ValueError(f"cannot read {name}: a damaged .flo file: its header says {width} x {height} vectors "
                         f"({flo_size(width, height)} bytes) but it holds {length} bytes")
    return width, height


def read_flo(path: PathLike) -> np.ndarray:
    """The flow of a ``.flo`` file as float32 H x W x 2 (u, v).

    Raises ValueError for a file whose tag is not PIEH or whose length does
    not match its sizes, and OSError when it cannot be read.
    """
    width, height = read_flo_header(readable_file(path, "flow"))
    data = np.fromfile(path, dtype="<f4", offset=HEADER_BYTES)
    return data.reshape(height, width, 2).astype(np.float32, copy=False)


def write_flo(path: PathLike, flow: np.ndarray) -> None:
    """Writes an H x W x 2 flow as a ``.flo`` file, atomically.

    The values are stored as float32 (other float dtypes are converted).
    The file is written beside its target and renamed onto it, so a reader
    never sees a partial file; missing folders of the path are made. Raises
    TypeError or ValueError for another dtype or shape and OSError when the
    file cannot be written.
    """
    if not isinstance(flow, np.ndarray):
        raise TypeError(f"flow must be a numpy array, not {type(flow).__name__}")
    if flow.dtype.kind != "f":
        raise TypeError(f"flow has dtype {flow.dtype}; a float array is needed")
    if flow.ndim != 3 or flow.shape[2] != 2:
        raise ValueError(f"flow has shape {flow.shape}; flow fields are H x W x 2 (u, v)")
    height, width = flow.shape[:2]
    target = writable_target(path, "flow.flo")
    folder = os.path.dirname(os.path.abspath(target))
    fd, temp = tempfile.mkstemp(prefix=".vemo-", suffix=".flo.tmp", dir=folder)
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(TAG)
            f.write(np.array([width, height], dtype="<i4").tobytes())
            f.write(np.ascontiguousarray(flow, dtype="<f4").tobytes())
        os.chmod(temp, 0o666 & ~_umask())
        os.replace(temp, target)
    except BaseException:
        if os.path.exists(temp):
            os.unlink(temp)
        raise


def _umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask
