"""The library through its C interface, for agreement tests: ctypes over
libSorn.so.1, records made by __sorn_array__$xtrn, one environment per
call."""

import ctypes
import os

import numpy as np
import sorn

lib = ctypes.CDLL(os.path.join(os.path.dirname(sorn.__file__), "libSorn.so.1"))

CODES = {np.dtype(np.uint8): 1, np.dtype(np.uint16): 2, np.dtype(np.uint32): 3,
         np.dtype(np.uint64): 4, np.dtype(np.int8): 9, np.dtype(np.int16): 10,
         np.dtype(np.int32): 11, np.dtype(np.int64): 12, np.dtype(np.float32): 13,
         np.dtype(np.float64): 14}


class SornArray(ctypes.Structure):
    _fields_ = [("dims", ctypes.c_int32 * 4), ("bounds", ctypes.c_int32 * 4),
                ("strides", ctypes.c_int32 * 4), ("ndims", ctypes.c_uint16),
                ("ndimsall", ctypes.c_uint16), ("elemtype", ctypes.c_uint32),
                ("reserved", ctypes.c_uint32), ("marker", ctypes.c_uint32),
                ("offset", ctypes.c_int64), ("data", ctypes.c_void_p), ("link", ctypes.c_uint64)]


class SornXE(ctypes.Structure):
    _fields_ = [("mmstack", ctypes.c_void_p), ("state", ctypes.c_uint64),
                ("openarg", ctypes.c_uint64), ("stackstore", ctypes.c_uint64 * 6),
                ("mark", ctypes.c_uint64 * 3), ("tail", ctypes.c_uint64)]


_xtrn = getattr(lib, "__sorn_array__$xtrn")
_xtrn.argtypes = [ctypes.POINTER(SornArray), ctypes.c_uint32, ctypes.POINTER(ctypes.c_int32),
                  ctypes.c_uint32, ctypes.c_void_p, ctypes.c_void_p,
                  ctypes.POINTER(ctypes.c_int32)]


def record(arr):
    """The record of a C-ordered array of 2 (one channel) or 3 axes."""
    assert arr.flags.c_contiguous
    shape = arr.shape if arr.ndim == 3 else arr.shape + (1,)
    dims = (ctypes.c_int32 * 3)(*shape)
    es = arr.itemsize
    strides = (ctypes.c_int32 * 3)(shape[1] * shape[2] * es, shape[2] * es, es)
    rec = SornArray()
    _xtrn(ctypes.byref(rec), 3 | 3 << 8, dims, CODES[arr.dtype], arr.ctypes.data, None, strides)
    return rec


class Env:
    def __init__(self):
        self.xe = SornXE()
        lib.SornXEinit(ctypes.byref(self.xe), None)

    def __enter__(self):
        return ctypes.byref(self.xe)

    def __exit__(self, *exc):
        lib.SornXEfini(ctypes.byref(self.xe))


def _status(fn):
    fn.restype = ctypes.c_int64
    return fn


def arith2(name, dst, a, b, sf=0):
    """A two-array entry (SornAdd, SornSubq, ...): the status."""
    fn = _status(getattr(lib, name))
    with Env() as xe:
        return fn(xe, ctypes.c_uint64(0), ctypes.byref(record(dst)), ctypes.byref(record(a)),
                  ctypes.byref(record(b)), None, None, None, ctypes.c_int32(sf), ctypes.c_uint32(0))


def arith2c(name, dst, a, values, sf=0):
    """A constant entry (SornAddC, ...): the status."""
    fn = _status(getattr(lib, name))
    cvec = (ctypes.c_double * 4)(*values)
    with Env() as xe:
        return fn(xe, ctypes.c_uint64(0), ctypes.byref(record(dst)), ctypes.byref(record(a)),
                  cvec, None, None, ctypes.c_int32(sf), ctypes.c_uint32(0))


def reduce(name, src):
    """SornSum or SornMean: (status, one double per channel)."""
    fn = _status(getattr(lib, name))
    out = (ctypes.c_double * 4)()
    with Env() as xe:
        st = fn(xe, ctypes.c_uint64(0), ctypes.byref(record(src)), None, out)
    channels = src.shape[2] if src.ndim == 3 else 1
    return st, np.array(out[:channels])


def arith1(name, dst, a, sf=0, flags=0):
    """A one-source entry (SornNegate, SornExp, ...): the status."""
    fn = _status(getattr(lib, name))
    with Env() as xe:
        return fn(xe, ctypes.c_uint64(flags), ctypes.byref(record(dst)), ctypes.byref(record(a)),
                  None, None, ctypes.c_int32(sf), ctypes.c_uint32(0))


def logic2(name, dst, a, b):
    fn = _status(getattr(lib, name))
    with Env() as xe:
        return fn(xe, ctypes.c_uint64(0), ctypes.byref(record(dst)), ctypes.byref(record(a)),
                  ctypes.byref(record(b)), None, None, None)
