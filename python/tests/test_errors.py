"""Errors: statuses as exceptions, wrong arguments refused before the
library is called, and no argument at all that brings the interpreter
down."""

import inspect

import numpy as np
import pytest

import sorn

STATUSES = {
    -65514: ("SORN_EINVAL", sorn.SornInvalidError),
    -65508: ("SORN_ENOSPC", sorn.SornEmptyRegionError),
    -65441: ("SORN_ENOTSUP", sorn.SornNotSupportedError),
    -65498: ("SORN_ENOTIMP", sorn.SornNotImplementedError),
    -65524: ("SORN_ENOMEM", sorn.SornMemoryError),
}


@pytest.mark.parametrize("status", sorted(STATUSES))
def test_every_status_raises_its_class_with_status_and_function(status):
    name, cls = STATUSES[status]
    with pytest.raises(cls) as info:
        sorn._raise_status(status, "SornSomething")
    e = info.value
    assert isinstance(e, sorn.SornError)
    assert (e.status, e.status_name, e.function) == (status, name, "SornSomething")
    assert str(e).startswith(f"SornSomething: {name}")


def test_out_of_memory_is_a_memory_error_too():
    with pytest.raises(MemoryError):
        sorn._raise_status(-65524, "SornXE")
    with pytest.raises(sorn.SornError) as info:
        sorn._raise_status(-65000, "SornX")
    assert type(info.value) is sorn.SornError and info.value.status == -65000


def test_statuses_of_real_calls():
    with pytest.raises(sorn.SornEmptyRegionError) as info:
        sorn.sum(np.zeros((0, 5), np.uint8))
    assert info.value.function == "SornSum"
    # Above 16384 pixels a 2-channel byte image is compared with a constant
    # through tables, which take 1, 3 or 4 channels.
    with pytest.raises(sorn.SornNotSupportedError):
        sorn.compare(np.zeros((130, 130, 2), np.uint8), 5, "<")
    assert sorn.compare(np.zeros((100, 100, 2), np.uint8), 5, "<").all()


@pytest.mark.parametrize("bad,kind", [
    ([[1, 2], [3, 4]], TypeError),                      # not an array
    (np.zeros((4, 4), bool), TypeError),                # no library type
    (np.zeros((4, 4), np.float16), TypeError),
    (np.zeros((4, 4), ">i2"), TypeError),               # not the machine's byte order
    (np.zeros((4, 4), np.complex64), TypeError),
    (np.zeros((4, 4, 5), np.uint8), ValueError),        # five channels
    (np.zeros((4,), np.uint8), ValueError),             # one axis
    (np.zeros((2, 2, 2, 2, 2), np.uint8), ValueError),  # five axes
])
def test_wrong_images_are_refused_before_the_call(bad, kind):
    with pytest.raises(kind):
        sorn.sum(bad)
    with pytest.raises(kind):
        sorn.add(bad, np.zeros((4, 4), np.uint8)) if not isinstance(bad, list) else sorn.add(bad, bad)


# ---------------------------------------------------------------- random arguments

def random_array(rng):
    if rng.random() < 0.5:
        # Mostly images the library takes, so that calls get through.
        dtype = rng.choice([np.uint8, np.int16, np.int32, np.float32])
        shape = (int(rng.integers(1, 40)), int(rng.integers(1, 40)))
        if rng.random() < 0.4:
            shape += (int(rng.choice([1, 3, 4])),)
    else:
        dtype = rng.choice([np.uint8, np.int8, np.uint16, np.int16, np.uint32, np.int32,
                            np.int64, np.float32, np.float64, bool])
        shape = tuple(int(rng.choice([0, 1, 2, 3, 4, 5, 7, 16, 33]))
                      for _ in range(int(rng.integers(0, 6))))
    a = np.asarray((rng.random(shape) * 300 - 40).astype(dtype))
    if a.ndim and rng.random() < 0.4:
        index = tuple(slice(None, None, int(rng.choice([-2, -1, 1, 2]))) for _ in range(a.ndim))
        a = a[index]
    if a.ndim >= 2 and rng.random() < 0.2:
        a = a.swapaxes(0, 1)
    if rng.random() < 0.1:
        a.flags.writeable = False
    return a


def random_value(rng):
    kind = rng.integers(0, 10)
    if kind <= 4:
        return random_array(rng)
    return [None, 0, -1, 3.5, float("nan"), 2 ** 40, "==", "both", (1, 2), [0.5] * 3,
            object()][int(rng.integers(0, 11))]


def test_random_arguments_never_bring_the_interpreter_down():
    rng = np.random.default_rng(0x5e55)
    functions = [getattr(sorn, n) for n in dir(sorn)
                 if not n.startswith("_") and callable(getattr(sorn, n))
                 and not inspect.isclass(getattr(sorn, n))]
    keywords = ["out", "dtype", "scale", "saturate", "round", "mask", "invert_mask", "bins",
                "range", "positions", "fast", "value", "outside", "shift", "accuracy", "true",
                "false", "bright", "connectivity", "seed", "delta", "min_area", "max_area",
                "mode", "plain", "slope", "op", "size", "anchor", "border", "shape", "method",
                "window", "thresh", "bogus"]
    allowed = (TypeError, ValueError, sorn.SornError, MemoryError, OverflowError)
    counts = {"ok": 0, "refused": 0}
    for i in range(3000):
        fn = functions[i % len(functions)]
        args = [random_value(rng) for _ in range(int(rng.choice([1, 2, 2, 3, 0])))]
        kwargs = {str(rng.choice(keywords)): random_value(rng)
                  for _ in range(int(rng.choice([0, 0, 0, 1, 2])))}
        try:
            fn(*args, **kwargs)
            counts["ok"] += 1
        except allowed:
            counts["refused"] += 1
    assert counts["ok"] > 40 and counts["refused"] > 1000
