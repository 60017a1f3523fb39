"""Flow of every consecutive pair of many sequences, on a Dask cluster.

    from vemo.batch import run_batch
    result = run_batch(["videos/"], "flows/")            # a LocalCluster here
    result = run_batch(["videos/"], "flows/", client=client)
    print(result.summary())

or from a shell: ``python -m vemo.batch videos/ -o flows/ [--scheduler tcp://HOST:PORT]``.
Inputs are folders of numbered frames; other kinds of input plug in
through :func:`register_source`.
"""

from .plan import Chunk
from .run import BatchInterrupted, BatchResult, run_batch
from .sources import Sequence, discover, register_source

__all__ = ["run_batch", "BatchResult", "BatchInterrupted", "Sequence", "Chunk", "discover", "register_source"]
