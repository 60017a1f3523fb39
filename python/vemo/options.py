"""The method's parameters, device names and thread counts as every front
end takes them: their defaults, their ranges (those of ``vemo-flow``), and
the checks that turn a wrong type into TypeError and a value out of range
into ValueError before any work."""

from __future__ import annotations

import math
import numbers
import re
import warnings
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Tuple

import numpy as np


@dataclass(frozen=True)
class Parameter:
    """One parameter of the method: its keyword, default and range
    (``low``..``high`` inclusive; ``eta`` has none but finiteness and not 1)."""

    name: str
    default: Any
    low: Optional[float]
    high: Optional[float]
    whole: bool
    help: str

    @property
    def range_text(self) -> str:
        if self.low is None:
            return "any finite number but 1"
        high = f"{self.high:g}" if self.high < 1e6 else "1e6"
        return f"{'a whole number' if self.whole else 'a number'} from {self.low:g} to {high}"


PARAMETERS = (
    Parameter("sigma", 0.8, 0, 100, False, "presmoothing std. deviation"),
    Parameter("alpha", 30, 0, 1e6, False, "smoothness weight"),
    Parameter("beta", 300, 0, 1e6, False, "descriptor-matching weight"),
    Parameter("gamma", 5, 0, 1e6, False, "gradient-constancy weight"),
    Parameter("eta", 0.95, None, None, False,
              "pyramid scaling factor (outside 0..1 no pyramid: only the full-size passes run)"),
    Parameter("fixed_point_iters", 5, 0, 1000, True, "outer iterations per pyramid level"),
    Parameter("solver_iters", 10, 0, 10000, True, "linear-solver iterations"),
)
DEFAULTS = {p.name: p.default for p in PARAMETERS}
MAX_THREADS = 1024
DEVICE_NAMES = "auto, cpu, cuda or cuda:N"
_FLOAT32_MAX = 3.4028234663852886e38


def shown(value: Any) -> str:
    """A value for a message: whole numbers without decimals."""
    if isinstance(value, numbers.Real) and not isinstance(value, bool):
        number = float(value)
        if math.isfinite(number) and number.is_integer() and abs(number) < 1e16:
            return str(int(number))
        return repr(number)
    return repr(value)


def _type_name(value: Any) -> str:
    return type(value).__name__


def whole_number(name: str, value: Any) -> int:
    """value as an int: Python and numpy integers; TypeError for anything
    else (bool, float, str)."""
    if isinstance(value, bool) or not isinstance(value, numbers.Integral):
        raise TypeError(f"{name} must be a whole number (int), not {_type_name(value)} {shown(value)}")
    return int(value)


def real_number(name: str, value: Any) -> float:
    """value as a float: Python and numpy integers and floats; TypeError for
    anything else (bool, str, complex)."""
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise TypeError(f"{name} must be a number (int or float), not {_type_name(value)} {shown(value)}")
    return float(value)


def check_parameters(**values: Any) -> Dict[str, Any]:
    """The seven parameters (missing ones at their defaults) as Python floats
    and ints, checked as ``vemo-flow`` checks its options. TypeError for a
    wrong type or an unknown name, ValueError for a value out of range."""
    unknown = sorted(set(values) - set(DEFAULTS))
    if unknown:
        raise TypeError(f"unknown parameter {unknown[0]}; the parameters are {', '.join(DEFAULTS)}")
    checked: Dict[str, Any] = {}
    for p in PARAMETERS:
        value = values.get(p.name, p.default)
        number = whole_number(p.name, value) if p.whole else real_number(p.name, value)
        if p.low is None:
            # Any factor a float holds but 1 (compared as the float it becomes).
            if not abs(number) <= _FLOAT32_MAX:
                raise ValueError(f"{p.name} must be a finite number, not {shown(number)}")
            if float(np.float32(number)) == 1.0:
                raise ValueError(f"{p.name} cannot be 1 (a pyramid that never shrinks has no number of scales; "
                                 f"the default is {p.default})")
        elif not p.low <= number <= p.high:
            raise ValueError(f"{p.name} must be {p.range_text}, not {shown(number)}")
        checked[p.name] = number
    return checked


def preset_names() -> List[str]:
    """The presets, fastest first: "ultrafast", "fast", "default", "quality"."""
    from . import _vemo

    return list(_vemo.preset_names())


def check_preset(preset: Any) -> str:
    """A preset name; TypeError for a wrong type, ValueError listing the
    names for an unknown one."""
    if not isinstance(preset, str):
        raise TypeError(f"preset must be a str, not {_type_name(preset)} {shown(preset)}")
    names = preset_names()
    if preset not in names:
        raise ValueError(f'unknown preset "{preset}"; the presets are {", ".join(names)}')
    return preset


def resolve_parameters(preset: Any = None, **given: Any) -> Tuple[str, Dict[str, Any]]:
    """The preset (None: "default") and the seven parameters a computation
    uses: the preset's values, each parameter given (not None) over its own,
    checked as by :func:`check_parameters`."""
    from . import _vemo

    name = check_preset("default" if preset is None else preset)
    values: Dict[str, Any] = dict(zip(DEFAULTS, _vemo.preset_parameters(name)))
    values.update({key: value for key, value in given.items() if value is not None})
    return name, check_parameters(**values)


def check_threads(threads: Any) -> Optional[int]:
    """None (all cores) or a thread count from 1 to 1024."""
    if threads is None:
        return None
    count = whole_number("threads", threads)
    if not 1 <= count <= MAX_THREADS:
        raise ValueError(f"threads must be from 1 to {MAX_THREADS} (or None for all cores), not {count}")
    return count


def check_device(device: Any) -> str:
    """A device name: "auto", "cpu", "cuda" or "cuda:N"."""
    if not isinstance(device, str):
        raise TypeError(f"device must be a str ({DEVICE_NAMES}), not {_type_name(device)} {shown(device)}")
    if device not in ("auto", "cpu", "cuda") and not re.fullmatch(r"cuda:[0-9]{1,9}", device):
        raise ValueError(f"device must be {DEVICE_NAMES}, not {device!r}")
    return device


def warn_fallback(device: str, reason: str, stacklevel: int = 3) -> None:
    """The warning every front end gives when a CUDA device was asked for
    and cannot be used: the work runs on the CPU instead."""
    warnings.warn(f"{reason}; running on the cpu backend instead of {device}", RuntimeWarning,
                  stacklevel=stacklevel)
