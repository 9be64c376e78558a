"""Conversion between element types: the plain saturating conversion of
every pair against a numpy reference written here, the maps onto a range
and by a scale and an offset, and the refusals."""

import numpy as np
import pytest

import sorn
from conftest import random_image

TYPES = [np.uint8, np.int16, np.int32, np.float32]


def plain(x, dtype):
    """Each value alone: floats rounded half to even, anything beyond the
    int32 range (infinities and NaN included) the least int32 first, then
    clamped into the destination."""
    dtype = np.dtype(dtype)
    if dtype.kind == "f":
        return x.astype(np.float32)
    v = x.astype(np.float64)
    if x.dtype.kind == "f":
        v = np.rint(v)
        bad = ~(np.abs(v) < 2.0 ** 31)
        v = np.where(bad, -(2.0 ** 31), v)
    info = np.iinfo(dtype)
    return np.clip(v, info.min, info.max).astype(dtype)


@pytest.mark.parametrize("src", TYPES)
@pytest.mark.parametrize("dst", TYPES)
@pytest.mark.parametrize("channels", [None, 1, 3, 4])
def test_every_pair_converts_each_value_alone(rng, src, dst, channels):
    shape = (9, 17) if channels is None else (9, 17, channels)
    if np.dtype(src).kind == "f":
        x = random_image(rng, shape, src, -1e5, 1e5)
        x.flat[:8] = [0.5, 1.5, 2.5, -0.5, -1.5, 254.5, 255.5, -32768.5]
    else:
        x = random_image(rng, shape, src)
        info = np.iinfo(src)
        x.flat[:2] = [info.min, info.max]
    got = sorn.convert(x, dst)
    assert got.dtype == np.dtype(dst) and got.shape == x.shape
    np.testing.assert_array_equal(got, plain(x, dst))


def test_floats_beyond_int32_infinities_and_nan_count_as_the_least_int32():
    x = np.array([[3e9, -3e9, np.nan, np.inf, -np.inf, 2147483520.0]], np.float32)
    np.testing.assert_array_equal(sorn.convert(x, np.uint8), [[0, 0, 0, 0, 0, 255]])
    np.testing.assert_array_equal(sorn.convert(x, np.int16), [[-32768] * 5 + [32767]])
    np.testing.assert_array_equal(sorn.convert(x, np.int32), [[-2 ** 31] * 5 + [2147483520]])


def test_a_range_stretches_the_images_own_range(rng):
    x = random_image(rng, (6, 11), np.uint8, 40, 160)
    x[0, 0], x[0, 1] = 40, 160
    got = sorn.convert(x, range=(0, 255))
    # Bytes onto bytes: a factor of 23 fraction bits, rounded at the end.
    f = round(255 * 2 ** 23 / 120)
    want = ((x.astype(np.int64) - 40) * f + 2 ** 22) >> 23
    np.testing.assert_array_equal(got, want.astype(np.uint8))
    assert got.min() == 0 and got.max() == 255
    into_float = sorn.convert(x, np.float32, range=(0, 1))
    a = 1.0 / 120
    np.testing.assert_array_equal(into_float, (x * a + (0 - 40 * a)).astype(np.float32))


def test_an_image_of_one_value_maps_onto_the_low_end():
    np.testing.assert_array_equal(sorn.convert(np.full((2, 3), 7, np.uint8), range=(3, 9)),
                                  np.full((2, 3), 3, np.uint8))


def test_scale_and_offset_start_at_the_least_value_and_move_back_into_the_type():
    x = np.array([[100, 150, 200]], np.uint8)
    np.testing.assert_array_equal(sorn.convert(x, scale=2, offset=5), [[5, 105, 205]])
    # 100 .. 300 does not fit a byte: the map keeps its slope, moved down.
    np.testing.assert_array_equal(sorn.convert(x, scale=2, offset=100), [[55, 155, 255]])
    # Its width does not fit either: clipped.
    np.testing.assert_array_equal(sorn.convert(x, scale=3, offset=100)[0, 0], 100)
    # Only the offset: the least value moves there.
    np.testing.assert_array_equal(sorn.convert(x, np.int16, offset=-50), [[-50, 0, 50]])


def test_a_negative_scale_falls_into_float_and_gives_the_offset_between_integers():
    x = np.array([[10, 20, 30]], np.uint8)
    np.testing.assert_array_equal(sorn.convert(x, np.float32, scale=-1, offset=100),
                                  [[100, 90, 80]])
    np.testing.assert_array_equal(sorn.convert(x, np.int16, scale=-1, offset=100),
                                  [[100, 100, 100]])


def test_one_scale_for_all_channels_and_channels_that_differ():
    x = np.zeros((2, 2, 3), np.uint8)
    x[1, 1] = (10, 20, 30)
    # The range is the image's, over all channels: 0 .. 30.
    got = sorn.convert(x, np.float32, scale=(2, 2, 2), offset=1)
    np.testing.assert_array_equal(got[0, 0], [1, 1, 1])
    np.testing.assert_array_equal(got[1, 1], [21, 41, 61])
    # Channels whose maps differ are mapped each on its own: channel c onto
    # offset[c] .. offset[c] + 30 * scale[c].
    got = sorn.convert(x, np.float32, scale=(1, 2, 3), offset=(0, 1, 2))
    np.testing.assert_array_equal(got[0, 0], [0, 1, 2])
    np.testing.assert_array_equal(got[1, 1], [10, 41, 92])


def test_into_a_given_output_and_in_place(rng):
    x = random_image(rng, (5, 7), np.float32, -300, 300)
    out = np.zeros((5, 7), np.uint8)
    r = sorn.convert(x, out=out)
    assert r is out
    np.testing.assert_array_equal(out, plain(x, np.uint8))
    y = random_image(rng, (5, 7), np.int16)
    before = y.copy()
    assert sorn.convert(y, out=y) is y
    np.testing.assert_array_equal(y, before)
    # In place with a map: the same memory read and written element by element.
    z = np.array([[10, 20, 30]], np.int16)
    sorn.convert(z, offset=0, out=z)
    np.testing.assert_array_equal(z, [[0, 10, 20]])


def test_refusals():
    x = np.zeros((2, 2), np.uint8)
    with pytest.raises(TypeError, match="range, or scale and offset"):
        sorn.convert(x, range=(0, 1), scale=2)
    with pytest.raises(TypeError, match="float64"):
        sorn.convert(x, np.float64)
    with pytest.raises(TypeError, match="uint16"):
        sorn.convert(x.astype(np.uint16), np.uint8)
    with pytest.raises(ValueError, match="lo <= hi"):
        sorn.convert(x, range=(5, 1))
    with pytest.raises(TypeError, match="pair"):
        sorn.convert(x, range=3)
