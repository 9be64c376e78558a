"""Shared helpers of the Python tests: seeded generators, random images of
every type, and clib, which calls libSorn.so.1 through its C interface
directly (ctypes, records made by the library's own constructor), so that
the module's results can be held against the library's."""

import os
import sys

import numpy as np
import pytest

sys.path.insert(0, os.path.dirname(__file__))

# Every element type the module maps, in the library's order of codes.
ALL_TYPES = [np.uint8, np.uint16, np.uint32, np.uint64, np.int8, np.int16, np.int32,
             np.int64, np.float32, np.float64]


@pytest.fixture
def rng(request):
    """A generator seeded from the test's name, printed on failure."""
    seed = sum(ord(c) * (i + 1) for i, c in enumerate(request.node.name)) % (2 ** 32)
    print(f"seed {seed}")
    return np.random.default_rng(seed)


def random_image(rng, shape, dtype, low=None, high=None):
    """Random values over the type's range (or low..high), floats with
    fractions."""
    dtype = np.dtype(dtype)
    if dtype.kind == "f":
        lo = -1000.0 if low is None else low
        hi = 1000.0 if high is None else high
        return rng.uniform(lo, hi, size=shape).astype(dtype)
    info = np.iinfo(dtype)
    lo = info.min if low is None else low
    hi = info.max if high is None else high
    return rng.integers(lo, hi, size=shape, endpoint=True, dtype=dtype)
