"""Dense optical flow between two frames.

vemo computes the flow from frame 1 to frame 2 with a coarse-to-fine
variational method plus a descriptor-matching term, on a CUDA GPU where one
is usable and on the CPU otherwise, with the same code as the ``vemo``
programs::

    import vemo
    flow = vemo.flow(frame1, frame2)          # H x W x 2 float32, u then v
    engine = vemo.Engine()                    # one backend for many pairs
    forward, backward, occluded = engine.flow_pair(frame1, frame2)

Frames are numpy arrays, H x W x 3 or H x W (grey), of uint8, uint16 or
float32 on the 0..255 scale (uint16 is scaled by 255/65535). ``vemo.batch``
computes whole folders of sequences and videos on a Dask cluster;
``vemo.read_video`` yields the frames of a video file.
"""

from . import _vemo
from .engine import Engine, PairFlow, flow
from .flo import read_flo, write_flo
from .tools import evaluate, flow_to_rgb, read_frame
from .video import VideoError, read_video, write_video

__version__ = _vemo.version()

__all__ = ["Engine", "PairFlow", "flow", "read_flo", "write_flo", "evaluate", "flow_to_rgb", "read_frame", "read_video",
           "write_video", "VideoError"]
