"""Checks of the files the package reads and writes, so that a missing file,
a folder or a device given in place of a file is named as such before the
library sees it."""

from __future__ import annotations

import os
import stat
from typing import Union

PathLike = Union[str, "os.PathLike[str]"]


def readable_file(path: PathLike, what: str) -> str:
    """The path as a str when it names a regular file that can be read.
    FileNotFoundError, IsADirectoryError, PermissionError or ValueError (a
    device or pipe, which could block or never end) otherwise."""
    name = os.fspath(path)
    try:
        mode = os.stat(name).st_mode
    except FileNotFoundError:
        raise FileNotFoundError(f"cannot read {what} {name}: no such file") from None
    except OSError as error:
        raise type(error)(f"cannot read {what} {name}: {error.strerror}") from None
    if stat.S_ISDIR(mode):
        raise IsADirectoryError(f"cannot read {what} {name}: it is a folder, not a {what} file")
    if not stat.S_ISREG(mode):
        raise ValueError(f"cannot read {what} {name}: it is not a regular file (a device or a pipe)")
    if not os.access(name, os.R_OK):
        raise PermissionError(f"cannot read {what} {name}: permission denied")
    return name


def writable_target(path: PathLike, example: str) -> str:
    """The path as a str, after making the folders it needs. IsADirectoryError
    when it names a folder (``example`` is a file name to suggest in it), the
    OSError of the folder that cannot be made otherwise."""
    name = os.fspath(path)
    if os.path.isdir(name):
        raise IsADirectoryError(f"cannot write {name}: it is a folder; name a file in it, such as "
                                f"{os.path.join(name, example)}")
    folder = os.path.dirname(name)
    if folder:
        try:
            os.makedirs(folder, exist_ok=True)
        except (FileExistsError, NotADirectoryError):
            raise NotADirectoryError(f"cannot write {name}: folder {folder} cannot be made: a file is in the way") \
                from None
        except OSError as error:
            raise type(error)(f"cannot write {name}: folder {folder} cannot be made: {error.strerror}") from None
    return name
