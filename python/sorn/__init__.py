"""Sorn: image-processing and computer-vision primitives on numpy arrays.

Images are numpy arrays: (rows, columns) for one channel, (rows, columns,
channels) with 1 to 4 channels, and (planes, rows, columns, channels) for the
operations that take stacks. The library reads and writes them where they
lie: views, slices, crops and padded or upside-down rows are described to it
without copying.

Every call runs without the GIL on an execution environment of the calling
thread, so Python threads run Sorn on several cores at once. A negative
status of the library raises sorn.SornError (or its subclass for the status:
SornInvalidError, SornEmptyRegionError, SornNotSupportedError,
SornNotImplementedError, SornMemoryError, which is a MemoryError too); wrong
types and shapes raise TypeError and ValueError before the library is called.

sorn.dask runs the same operations over many images, or over the tiles of a
large image, on a dask.distributed cluster.
"""

# Every function of the extension's table of families, and the exceptions:
# a family added to the table is here without a line of its own.
from ._sorn import *  # noqa: F401,F403
from ._sorn import _copies_made, _live_environments, _raise_status  # noqa: F401
from ._regions import ComponentTree, Ellipse, RegionMeasure, RegionMeasures, Regions  # noqa: F401

__version__ = "1.0.0"
