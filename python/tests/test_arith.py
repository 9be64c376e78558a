"""Element-wise arithmetic: the worked examples, numpy references written
here, and agreement with the library's C interface over every pair of
element types."""

import itertools

import numpy as np
import pytest

import clib
import sorn
from conftest import ALL_TYPES, random_image

U8 = np.uint8


def full(v, dtype=U8, shape=(3, 5)):
    return np.full(shape, v, dtype=dtype)


# ---------------------------------------------------------------- add, subtract

def test_add_saturates_wraps_and_scales_as_the_library_does():
    a, b = full(200), full(100)
    assert sorn.add(a, b)[0, 0] == 255
    assert sorn.add(a, b, saturate=False)[0, 0] == 44
    assert sorn.add(a, b, scale=1, saturate=False)[0, 0] == 255
    assert sorn.add(a, b, scale=-1)[0, 0] == 150
    # 125.5 rounds to the even 126.
    assert sorn.add(full(151), b, scale=-1)[0, 0] == 126


def test_subtract_wraps_clamps_or_goes_signed():
    a, b = full(10), full(20)
    assert sorn.subtract(a, b, saturate=False)[0, 0] == 246
    assert sorn.subtract(a, b)[0, 0] == 0
    signed = sorn.subtract(a, b, dtype=np.int8)
    assert signed.dtype == np.int8 and signed[0, 0] == -10
    assert sorn.add(full(100), full(100), dtype=np.int8)[0, 0] == 127


def test_the_result_takes_the_wider_source_type(rng):
    a = random_image(rng, (4, 6), np.uint8)
    b = random_image(rng, (4, 6), np.int16, -1000, 1000)
    r = sorn.add(a, b, saturate=False)
    assert r.dtype == np.int16
    np.testing.assert_array_equal(r, (a.astype(np.int64) + b).astype(np.int16))
    f = random_image(rng, (4, 6), np.float32)
    assert sorn.add(a, f).dtype == np.float32


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32, np.float32])
@pytest.mark.parametrize("channels", [None, 1, 3, 4])
def test_add_and_subtract_match_numpy(rng, dtype, channels):
    shape = (7, 13) if channels is None else (7, 13, channels)
    lo, hi = (-1e6, 1e6) if dtype == np.float32 else (None, None)
    a, b = random_image(rng, shape, dtype, lo, hi), random_image(rng, shape, dtype, lo, hi)
    wide_a, wide_b = a.astype(np.float64 if dtype == np.float32 else np.int64), b
    for op, name in ((np.add, "add"), (np.subtract, "subtract")):
        exact = op(wide_a, wide_b)
        if dtype == np.float32:
            np.testing.assert_array_equal(getattr(sorn, name)(a, b), op(a, b))
            continue
        info = np.iinfo(dtype)
        np.testing.assert_array_equal(getattr(sorn, name)(a, b, saturate=False),
                                      exact.astype(dtype))
        np.testing.assert_array_equal(getattr(sorn, name)(a, b),
                                      np.clip(exact, info.min, info.max).astype(dtype))
        # scale -2: f32 product with 0.25, rounded to nearest even, clamped.
        scaled = np.rint(exact.astype(np.float32) * np.float32(0.25)).astype(np.float64)
        np.testing.assert_array_equal(getattr(sorn, name)(a, b, scale=-2),
                                      np.clip(scaled, info.min, info.max).astype(dtype))


def test_constants_on_either_side(rng):
    a = random_image(rng, (5, 8, 3), np.uint8)
    wide = a.astype(np.int64)
    np.testing.assert_array_equal(sorn.add(a, 7), np.clip(wide + 7, 0, 255))
    np.testing.assert_array_equal(sorn.add(7, a), np.clip(wide + 7, 0, 255))
    np.testing.assert_array_equal(sorn.add(a, (1, 2, 3)), np.clip(wide + [1, 2, 3], 0, 255))
    np.testing.assert_array_equal(sorn.subtract(a, [1, 2, 3]), np.clip(wide - [1, 2, 3], 0, 255))
    np.testing.assert_array_equal(sorn.subtract(200, a), np.clip(200 - wide, 0, 255))
    np.testing.assert_array_equal(sorn.subtract(200, a, saturate=False),
                                  (200 - wide).astype(np.uint8))
    f = random_image(rng, (4, 4), np.float32)
    np.testing.assert_array_equal(sorn.add(f, 1.5), f + np.float32(1.5))
    with pytest.raises(ValueError, match="3 channels"):
        sorn.add(a, (1, 2))


def _pairs():
    return itertools.product(ALL_TYPES, ALL_TYPES, ALL_TYPES)


@pytest.mark.parametrize("family,forms", [
    ("add", (("SornAdd", False), ("SornAddq", True))),
    ("subtract", (("SornSub", False), ("SornSubq", True))),
])
def test_every_type_triple_agrees_with_the_c_interface(rng, family, forms):
    """Where the module offers a triple its result is the C entry's; where it
    raises TypeError the C entry refuses the triple too."""
    offered = 0
    for (da, db, dd), (entry, saturate) in itertools.product(_pairs(), forms):
        a = random_image(rng, (3, 9, 2), da, *((-300, 300) if np.dtype(da).kind != "u" else (0, 300)) if np.dtype(da).itemsize > 1 else (None, None))
        b = random_image(rng, (3, 9, 2), db, *((-300, 300) if np.dtype(db).kind != "u" else (0, 300)) if np.dtype(db).itemsize > 1 else (None, None))
        want = np.zeros((3, 9, 2), dtype=dd)
        status = clib.arith2(entry, want, a, b, sf=-1 if saturate else 0)
        try:
            got = getattr(sorn, family)(a, b, saturate=saturate, scale=-1 if saturate else 0,
                                        dtype=dd)
        except TypeError:
            assert status < 0, f"{entry} takes {dd.__name__}, {da.__name__}, {db.__name__}"
            continue
        offered += 1
        assert status == 0, f"{entry} {dd.__name__} {da.__name__} {db.__name__}: {status}"
        np.testing.assert_array_equal(got, want, err_msg=f"{entry} {dd} {da} {db}")
    assert offered >= 26


# ---------------------------------------------------------------- multiply, divide

def test_multiply_clamps_and_squares_wrap():
    assert sorn.multiply(full(16), full(16))[0, 0] == 255
    assert sorn.multiply(full(16), full(16), scale=-2)[0, 0] == 64
    x = full(16)
    # The very same array takes the square kernel, which wraps at scale 0.
    assert sorn.multiply(x, x)[0, 0] == 0
    assert sorn.multiply(x, 3)[0, 0] == 48


def test_divide_truncates_or_rounds():
    assert sorn.divide(full(7), full(2))[0, 0] == 3
    assert sorn.divide(full(7), full(2), round=True)[0, 0] == 4
    assert sorn.divide(full(5), full(2), round=True)[0, 0] == 2
    # The constant is rounded into the type first: rint(2.5) is 2.
    assert sorn.divide(full(9), 2.5)[0, 0] == 4
    assert sorn.divide(12, full(5))[0, 0] == 2
    f = np.array([[1.0, 3.0]], dtype=np.float32)
    np.testing.assert_array_equal(sorn.divide(f, f + 1), f / (f + 1))
    with pytest.raises(TypeError, match="no kernel"):
        sorn.divide(full(7), full(2, np.int16))
    with pytest.raises(ValueError, match="1, 3 or 4 channels"):
        sorn.divide(full(7, shape=(2, 2, 2)), 3)


def test_a_zero_divisor_is_no_crash():
    r = sorn.divide(full(7), full(0))
    assert r.shape == (3, 5)
    sorn.divide(full(7, np.int32), full(0, np.int32))
    sorn.divide(full(7), 0)


# ---------------------------------------------------------------- logic, unary

@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32])
def test_bitwise_operations_match_numpy(rng, dtype):
    a, b = random_image(rng, (6, 11, 3), dtype), random_image(rng, (6, 11, 3), dtype)
    np.testing.assert_array_equal(sorn.bitwise_and(a, b), a & b)
    np.testing.assert_array_equal(sorn.bitwise_or(a, b), a | b)
    np.testing.assert_array_equal(sorn.bitwise_xor(a, b), a ^ b)
    np.testing.assert_array_equal(sorn.bitwise_not(a), ~a)
    np.testing.assert_array_equal(sorn.bitwise_and(a, 0x5A), a & dtype(0x5A))


def test_bitwise_constants_are_clamped_into_the_type():
    a = full(0xAB)
    assert sorn.bitwise_and(a, 300)[0, 0] == 0xAB
    assert sorn.bitwise_or(a, -1)[0, 0] == 0xAB
    with pytest.raises(TypeError):
        sorn.bitwise_xor(full(1.0, np.float32), 1)


def test_negative_wraps_or_clamps():
    assert sorn.negative(full(5))[0, 0] == 251
    s = np.array([[-32768, 5]], dtype=np.int16)
    np.testing.assert_array_equal(sorn.negative(s, saturate=True), [[32767, -5]])
    np.testing.assert_array_equal(sorn.negative(s, saturate=True, dtype=np.uint8), [[255, 0]])
    with pytest.raises(TypeError):
        sorn.negative(full(5), saturate=True)


def test_exp_log_and_sigmoid_follow_their_approximations(rng):
    x = rng.uniform(-5, 5, size=(8, 9)).astype(np.float32)
    np.testing.assert_allclose(sorn.exp(x), np.exp(x), rtol=1e-6)
    assert sorn.exp(np.array([[100, -100]], np.float32)).tolist() == [[np.inf, 0.0]]
    p = np.abs(x) + np.float32(0.01)
    np.testing.assert_allclose(sorn.log(p), np.log(p), rtol=1e-5, atol=1e-6)
    assert sorn.log(np.array([[0, -1]], np.float32)).tolist() == [[-np.inf, -np.inf]]
    np.testing.assert_allclose(sorn.sigmoid(x, 2.0), 1 / (np.exp(2 * x) + 1), rtol=1e-5)
    np.testing.assert_array_equal(sorn.sigmoid(x, 0.0), np.full_like(x, 0.5))
    for acc in ("fast", "superfast"):
        assert np.isfinite(sorn.exp(x, accuracy=acc)).all()
    with pytest.raises(ValueError, match="accuracy"):
        sorn.log(x, accuracy="fast")
    with pytest.raises(TypeError):
        sorn.exp(full(1))


def test_unary_and_logic_agree_with_the_c_interface(rng):
    for da, dd in itertools.product(ALL_TYPES, ALL_TYPES):
        a = random_image(rng, (4, 7), da, *((-100, 100) if np.dtype(da).kind == "f" else (None, None)))
        for name, entry, kw, flags in (("negative", "SornNegate", {}, 0),
                                       ("negative", "SornNegateq", {"saturate": True}, 0),
                                       ("bitwise_not", "SornNot", {}, 0),
                                       ("exp", "SornExp", {}, 0)):
            want = np.zeros((4, 7), dtype=dd)
            if entry == "SornNot":
                fn = clib._status(clib.lib.SornNot)
                with clib.Env() as xe:
                    st = fn(xe, clib.ctypes.c_uint64(0), clib.ctypes.byref(clib.record(want)),
                            clib.ctypes.byref(clib.record(a)), None, None)
            else:
                st = clib.arith1(entry, want, a, flags=flags)
            try:
                got = getattr(sorn, name)(a, dtype=dd, **kw)
            except TypeError:
                assert st < 0, f"{entry} takes {dd.__name__} from {da.__name__}"
                continue
            assert st == 0, f"{entry} {dd.__name__} {da.__name__}"
            np.testing.assert_array_equal(got, want, err_msg=f"{entry} {dd} {da}")


# ---------------------------------------------------------------- out=

def test_out_may_be_a_source_and_takes_its_type(rng):
    a = random_image(rng, (5, 6), np.uint8)
    b = random_image(rng, (5, 6), np.uint8)
    want = np.clip(a.astype(int) + b, 0, 255)
    r = sorn.add(a, b, out=a)
    assert r is a
    np.testing.assert_array_equal(a, want)
    wide = np.zeros((5, 6), np.int16)
    sorn.add(a, b, out=wide, saturate=False)
    np.testing.assert_array_equal(wide, a.astype(np.int16) + b)


def test_out_is_checked_before_the_call():
    a = full(1)
    with pytest.raises(ValueError, match="shape"):
        sorn.add(a, a, out=np.zeros((3, 4), U8))
    with pytest.raises(TypeError, match="element type"):
        sorn.add(a, a, out=np.zeros((3, 5), np.int16), dtype=U8)
    ro = np.zeros((3, 5), U8)
    ro.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        sorn.add(a, a, out=ro)
    big = np.zeros((3, 6), U8)
    with pytest.raises(ValueError, match="shares memory"):
        sorn.add(big[:, :5], big[:, :5], out=big[:, 1:])
