"""Multiply-accumulate (muladd, mulsub, mulrsub) against a per-element
reference written here in numpy, over every type combination of the
library's kernel tables, constants of every class, views, out= and the
refusals."""

import itertools

import numpy as np
import pytest

import sorn
from conftest import random_image

U8, S16, S32, F32 = (np.dtype(t) for t in (np.uint8, np.int16, np.int32, np.float32))
TYPES = [U8, S16, S32, F32]
_BY = {"u8": U8, "s16": S16, "s32": S32, "f32": F32}


def quads(text):
    return [tuple(_BY[t] for t in q.split()) for q in text.strip().split(",")]


# The three-image kernels: destination, a, b, c.
ARRAY_QUADS = quads("""
u8 u8 u8 u8, u8 s16 s16 s16, u8 s32 u8 u8, u8 s32 s32 u8, u8 s32 s32 s16, u8 s32 s32 s32,
u8 f32 s16 s16, u8 f32 s32 s32, u8 f32 f32 f32,
s16 u8 u8 u8, s16 s16 s16 s16, s16 s32 u8 u8, s16 s32 s32 u8, s16 s32 s32 s16, s16 s32 s32 s32,
s16 f32 s16 s16, s16 f32 s32 s32, s16 f32 f32 f32,
s32 u8 u8 u8, s32 s16 s16 s16, s32 s32 u8 u8, s32 s32 s32 u8, s32 s32 s32 s16, s32 s32 s32 s32,
s32 f32 s16 s16, s32 f32 s32 s32, s32 f32 f32 f32,
f32 u8 u8 u8, f32 s16 s16 s16, f32 s32 s32 s32, f32 f32 u8 u8, f32 f32 s16 s16, f32 f32 s32 u8,
f32 f32 s32 s16, f32 f32 s32 s32, f32 f32 f32 f32""")
# The kernels of an image times a constant: destination, a, b, the type the
# constant is held in.
CONSTANT_QUADS = quads("""
u8 u8 u8 u8, u8 s16 s16 s16, u8 s32 u8 u8, u8 s32 u8 s32, u8 s32 s16 s32, u8 s32 s32 s32,
u8 f32 s16 s16, u8 f32 s32 s32, u8 f32 f32 f32,
s16 u8 u8 u8, s16 u8 u8 f32, s16 s16 s16 s16, s16 s32 u8 u8, s16 s32 u8 s32, s16 s32 s16 s32,
s16 s32 s32 s32, s16 f32 s16 s16, s16 f32 s32 s32, s16 f32 f32 f32,
s32 u8 u8 u8, s32 s16 s16 s16, s32 s32 u8 u8, s32 s32 u8 s32, s32 s32 s16 s32, s32 s32 s32 s32,
s32 f32 s16 s16, s32 f32 s32 s32, s32 f32 f32 f32,
f32 u8 u8 u8, f32 s16 s16 s16, f32 s32 s32 s32, f32 f32 u8 u8, f32 f32 u8 s32, f32 f32 s16 s16,
f32 f32 s16 s32, f32 f32 s32 s32, f32 f32 f32 f32""")

SCALES = [0, 1, 3, 40, -1, -3, -31, -32]

# How each function joins its first operand x to the product p, and whether
# the library negates the difference afterwards.
JOINS = {"muladd": ("add", False), "mulsub": ("sub", False), "mulrsub": ("sub", True)}


def join(how, x, p):
    return x + p if how == "add" else x - p if how == "sub" else p - x


def lo_hi(t):
    info = np.iinfo(t)
    return float(info.min), float(info.max)


def clamp(t, v):
    lo, hi = lo_hi(t)
    return np.clip(v, lo, hi)


def float_into(d, r):
    """A float result into an integer destination: rounded to nearest even;
    what leaves the int32 range (and NaN) is the least int32, then clamped."""
    with np.errstate(invalid="ignore"):
        q = np.rint(r.astype(np.float64))
        i = np.where((q >= -2147483648.0) & (q < 2147483648.0), q, -2147483648.0)
    return i if d == S32 else clamp(d, i)


def mac_reference(d, tx, tb, tc, x, b, c, how, sf):
    """x joined to b * c, element by element, as float64 holding the
    destination's values."""
    floats = F32 in (tx, tb, tc)
    wide = S32 in (tx, tb, tc)
    with np.errstate(all="ignore"):
        if floats and wide:
            if tb != F32 and tc != F32:
                p = (b.astype(np.int64) * c.astype(np.int64)).astype(np.float64)
            else:
                p = b.astype(np.float64) * c.astype(np.float64)
            r = join(how, x.astype(np.float64), p)
            return r.astype(F32).astype(np.float64) if d == F32 else float_into(d, r)
        if floats:
            r = join(how, x.astype(F32), b.astype(F32) * c.astype(F32))
            return r.astype(np.float64) if d == F32 else float_into(d, r)
        s = join(how, x.astype(np.int64), b.astype(np.int64) * c.astype(np.int64))
        if d == F32:
            return s.astype(F32).astype(np.float64)
        if sf == 0:
            return clamp(d, s.astype(np.float64))
        lo, hi = lo_hi(d)
        if sf > 0:
            v = (s.astype(np.uint64) << np.uint64(sf & 63)).astype(np.int64)
            return np.clip(v, int(lo), int(hi)).astype(np.float64)
        f = np.float32(1) / np.float32(np.int64(1 << ((-sf) & 31)).astype(np.int32))
        if wide:
            return clamp(d, np.rint(s.astype(np.float64) * np.float64(f)))
        return clamp(d, np.rint((s.astype(F32) * f).astype(np.float64)))


def negated(d, v):
    return -v if d == F32 else clamp(d, -v)


def expect(got, d, want):
    assert got.dtype == d
    g = got.astype(np.float64)
    same = (g == want) | (np.isnan(g) & np.isnan(want))
    assert same.all(), f"first difference at {np.argwhere(~same)[0]}: " \
        f"got {g[tuple(np.argwhere(~same)[0])]}, want {want[tuple(np.argwhere(~same)[0])]}"


def operand(rng, shape, t):
    """Values over the whole range of the type; float32 ones now and then
    infinite, NaN or zero."""
    if t == F32:
        v = random_image(rng, shape, t, -3e4, 3e4)
        odd = rng.integers(0, 16, size=shape) == 0
        v[odd] = rng.choice(np.array([np.nan, np.inf, -np.inf, 0.0, -0.0], F32),
                            size=int(odd.sum()))
        return v
    return random_image(rng, shape, t)


def shape_of(rng):
    ch = int(rng.integers(1, 5))
    return (int(rng.integers(1, 9)), int(rng.integers(1, 15)), ch)


def constant_of(rng, cls, first):
    """A constant that the library holds in type cls: bytes, int16 (one
    negative at least), integers beyond int16, fractions."""
    if cls == U8:
        return float(rng.integers(0, 256))
    if cls == S16:
        return -1.0 - float(rng.integers(0, 32767)) if first else float(rng.integers(-32768, 32768))
    if cls == S32:
        v = 40000.0 + float(rng.integers(0, 16000000))
        return v if rng.integers(0, 2) else -v
    return float(rng.integers(-1000, 1001)) + 0.25 + 0.5 * float(rng.integers(0, 2))


def stored(t, c):
    return np.float64(np.float32(c)) if t == F32 else np.float64(c)


# ---------------------------------------------------------------- the examples

def test_the_worked_examples():
    one = lambda v, t=U8: np.full((1, 1), v, t)  # noqa: E731
    assert sorn.muladd(one(200), one(10), one(10))[0, 0] == 255
    assert sorn.mulsub(one(200), one(10), one(10))[0, 0] == 100
    assert sorn.mulrsub(one(3, S16), one(2, S16), one(2, S16))[0, 0] == 1
    with pytest.raises(sorn.SornNotSupportedError):
        sorn.mulrsub(one(3), one(2), one(2))
    # A uint8 factor and a float32 one are exchanged before the lookup: the
    # product is the same either way round.
    b, c = one(3), one(2.5, F32)
    assert sorn.muladd(one(1, F32), b, c)[0, 0] == sorn.muladd(one(1, F32), c, b)[0, 0] == 8.5
    # A constant beyond float32's mantissa joins in double.
    assert sorn.muladd(one(1.0, F32), one(1, S32), 16777217.0, dtype=np.int32)[0, 0] == 16777218
    # A fraction is the float32 constant: 0.1f, not 0.1.
    assert sorn.muladd(0.0, one(3.0, F32), 0.1)[0, 0] == np.float32(3.0) * np.float32(0.1)


# ---------------------------------------------------------------- three images

@pytest.mark.parametrize("function", list(JOINS))
def test_every_kernel_of_three_images(rng, function):
    how, neg = JOINS[function]
    f = getattr(sorn, function)
    for (d, ta, tb, tc), sf in itertools.product(ARRAY_QUADS, SCALES):
        shape = shape_of(rng)
        a, b, c = operand(rng, shape, ta), operand(rng, shape, tb), operand(rng, shape, tc)
        what = f"{function} {d} {ta} {tb} {tc} sf {sf} shape {shape}"
        if neg and d == U8:
            with pytest.raises(sorn.SornNotSupportedError):
                f(a, b, c, scale=sf, dtype=d)
            continue
        want = mac_reference(d, ta, tb, tc, a, b, c, how, sf)
        if neg:
            want = negated(d, want)
        try:
            expect(f(a, b, c, scale=sf, dtype=d), d, want)
        except AssertionError as e:
            raise AssertionError(f"{what}: {e}") from None


@pytest.mark.parametrize("function", list(JOINS))
def test_combinations_without_a_kernel_go_through_tiles(rng, function):
    """Every other combination of the four types: small values, for which
    every way forms the same exact sum, saturated at the end."""
    how, neg = JOINS[function]
    f = getattr(sorn, function)
    table = set(ARRAY_QUADS)
    runs = 0
    for d, ta, tb, tc in itertools.product(TYPES, repeat=4):
        x, y = (tc, tb) if tc.itemsize > tb.itemsize or (tc == F32 and tb != F32) else (tb, tc)
        if (d, ta, x, y) in table:
            continue
        runs += 1
        shape = (int(rng.integers(1, 26)), int(rng.integers(1, 41)), int(rng.integers(1, 5)))
        small = lambda t: (rng.integers(0, 16, size=shape) if t == U8 else  # noqa: E731
                           rng.integers(-30, 31, size=shape)).astype(t)
        a, b, c = small(ta), small(tb), small(tc)
        sf = int(rng.integers(0, 3))
        if neg and d == U8:
            with pytest.raises(sorn.SornNotSupportedError):
                f(a, b, c, scale=sf, dtype=d)
            continue
        v = join(how, a.astype(np.float64), b.astype(np.float64) * c.astype(np.float64))
        floating = F32 in (ta, tb, tc)
        if d != F32:
            if not floating:
                v = v * (1 << sf)
            v = clamp(d, v)
        if neg:
            v = negated(d, v)
        got = f(a, b, c, scale=sf, dtype=d)
        assert got.dtype == d
        np.testing.assert_array_equal(got.astype(np.float64), v,
                                      err_msg=f"{function} {d} {ta} {tb} {tc} sf {sf}")
    assert runs > 200


# ---------------------------------------------------------------- constants

def constant_type(cls, tb):
    """The type the library holds a constant of class cls in beside a
    factor of type tb."""
    if cls == F32 or tb == F32:
        return F32
    if cls == tb or cls == U8:
        return tb
    return S16 if (cls == S16 and tb == S16) else S32


@pytest.mark.parametrize("function", list(JOINS))
def test_every_kernel_of_an_image_times_a_constant(rng, function):
    how, neg = JOINS[function]
    f = getattr(sorn, function)
    for (d, ta, tb, tt), sf in itertools.product(CONSTANT_QUADS, SCALES):
        shape = shape_of(rng)
        a, b = operand(rng, shape, ta), operand(rng, shape, tb)
        # Constants of the class that the quadruple holds them in.
        cls = tt if constant_type(tt, tb) == tt else U8
        cvec = [constant_of(rng, cls, k == 0) for k in range(shape[2])]
        assert constant_type(cls, tb) == tt
        what = f"{function} {d} {ta} {tb} constant {tt} {cvec} sf {sf} shape {shape}"
        if neg and d == U8:
            with pytest.raises(sorn.SornNotSupportedError):
                f(a, b, cvec, scale=sf, dtype=d)
            continue
        c = np.broadcast_to(np.array([stored(tt, v) for v in cvec]), shape)
        want = mac_reference(d, ta, tb, tt, a, b, c, how, sf)
        if neg:
            want = negated(d, want)
        try:
            # The constant on either side of the image factor.
            expect(f(a, b, cvec, scale=sf, dtype=d), d, want)
            expect(f(a, cvec, b, scale=sf, dtype=d), d, want)
        except AssertionError as e:
            raise AssertionError(f"{what}: {e}") from None


@pytest.mark.parametrize("function", list(JOINS))
def test_two_constants_join_the_first_to_the_image_times_the_second(rng, function):
    """function(k2, img, k1): k2 joined to img * k1, every destination and
    image type, with constants of the image's class."""
    f = getattr(sorn, function)
    for d, tu, sf in itertools.product(TYPES, TYPES, SCALES):
        shape = shape_of(rng)
        img = operand(rng, shape, tu)
        k1 = [constant_of(rng, tu, k == 0) for k in range(shape[2])]
        k2 = [constant_of(rng, S16 if tu == F32 else U8, False) for _ in range(shape[2])]
        c1 = np.broadcast_to(np.array([stored(tu, v) for v in k1]), shape)
        c2 = np.broadcast_to(np.array([stored(tu, v) for v in k2]), shape)
        # The library's forms: img * k1 + k2, img * k1 - k2 and its negation.
        if function == "muladd":
            want, refused = mac_reference(d, tu, tu, tu, c2, img, c1, "add", sf), False
        elif function == "mulrsub":
            want, refused = mac_reference(d, tu, tu, tu, c2, img, c1, "rev", sf), False
        else:
            want = negated(d, mac_reference(d, tu, tu, tu, c2, img, c1, "rev", sf))
            refused = d == U8
        what = f"{function} {d} {tu} k1 {k1} k2 {k2} sf {sf}"
        if refused:
            with pytest.raises(sorn.SornNotSupportedError):
                f(k2, img, k1, scale=sf, dtype=d)
            continue
        try:
            expect(f(k2, img, k1, scale=sf, dtype=d), d, want)
            expect(f(k2, k1, img, scale=sf, dtype=d), d, want)
        except AssertionError as e:
            raise AssertionError(f"{what}: {e}") from None


# ---------------------------------------------------------------- layouts and out

def test_views_out_and_in_place(rng):
    base = [random_image(rng, (20, 30, 3), t, -50, 50) for t in (np.int16,) * 3]
    a, b, c = base[0][1::2, ::3], base[1][::-2, 2:12], base[2][3:13, ::-3]
    want = a.astype(np.int64) + b.astype(np.int64) * c
    np.testing.assert_array_equal(sorn.muladd(a, b, c), want.astype(np.int16))
    # Into a given array, a view too.
    out = np.zeros((12, 40, 3), np.int32)
    view = out[1:11, ::4]
    r = sorn.muladd(a, b, c, out=view)
    assert r is view
    np.testing.assert_array_equal(view, want)
    assert (out[:, 1::4] == 0).all()
    # Accumulating in place: out is a.
    acc = a.astype(np.int32)
    sorn.muladd(acc, b, c, out=acc)
    np.testing.assert_array_equal(acc, want)


@pytest.mark.parametrize("dtype", [S32, F32])
@pytest.mark.parametrize("function", ["muladd", "mulsub"])
def test_accumulating_in_place_with_every_pair_of_factors(rng, dtype, function):
    """out is a itself, of a four-byte type, with factors of every pair of
    types, those without a kernel of their own too: the sum sees a's
    values, not a product formed in its place."""
    sign = 1 if function == "muladd" else -1
    for tb, tc in itertools.product(TYPES, repeat=2):
        a, b, c = (rng.integers(lo, 100, size=(9, 11, 2)).astype(t)
                   for lo, t in ((-100, dtype), (0, tb), (0, tc)))
        want = a.astype(np.float64) + sign * b.astype(np.float64) * c
        r = getattr(sorn, function)(a, b, c, out=a)
        assert r is a
        np.testing.assert_array_equal(a, want.astype(dtype), err_msg=f"{tb} {tc}")


def test_the_default_destination_is_the_widest_image(rng):
    a = random_image(rng, (4, 5), np.uint8)
    b = random_image(rng, (4, 5), np.int16, -9, 9)
    assert sorn.muladd(a, b, b).dtype == S16
    assert sorn.muladd(a, a, 2).dtype == U8
    assert sorn.muladd(a, a.astype(np.float32), a).dtype == F32
    assert sorn.muladd(3, b, 2).dtype == S16
    assert sorn.muladd(a, b, b, out=np.empty((4, 5), np.int32)).dtype == S32


def test_tiles_on_dask_give_the_whole_image(rng):
    da = pytest.importorskip("dask.array")
    import sorn.dask as sd
    a, b = (random_image(rng, (30, 40, 3), np.int16, -99, 99) for _ in range(2))
    c = random_image(rng, (30, 40, 3), np.uint8)
    x, y, z = (da.from_array(v, chunks=(11, 13, 3)) for v in (a, b, c))
    got = sd.elementwise(sorn.mulsub, x, y, z).compute(scheduler="synchronous")
    np.testing.assert_array_equal(got, sorn.mulsub(a, b, c))


# ---------------------------------------------------------------- refusals

def test_refusals(rng):
    a = random_image(rng, (4, 5), np.uint8)
    with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
        sorn.muladd(a.astype(np.uint16), a, a)
    with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
        sorn.muladd(a, a, a, dtype=np.float64)
    with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
        sorn.mulsub(a, a.astype(np.int8), 2)
    with pytest.raises(ValueError, match="differ in shape"):
        sorn.muladd(a, a, a[:3])
    with pytest.raises(ValueError):
        sorn.muladd(a, a, np.dstack([a, a]))
    with pytest.raises(TypeError, match="b or c must be an image"):
        sorn.muladd(a, 2, 3)
    with pytest.raises(TypeError, match="one of b and c must be a constant"):
        sorn.muladd(1, a, a)
    with pytest.raises(ValueError, match="values for 3 channels"):
        sorn.muladd(np.dstack([a] * 3), np.dstack([a] * 3), (1, 2))
    with pytest.raises(ValueError):
        sorn.muladd(a[None, ..., None], a[None, ..., None], a[None, ..., None])
    with pytest.raises(ValueError):
        sorn.muladd(a, a, a, out=np.empty((4, 6), np.uint8))
    with pytest.raises(sorn.SornNotSupportedError):
        sorn.mulrsub(a, a, 2)
    with pytest.raises(sorn.SornNotSupportedError):
        sorn.mulsub(2, a, 3)
