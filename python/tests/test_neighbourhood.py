"""Borders, the box, minimum and maximum filters, and resizing, against
references written here in numpy."""

import numpy as np
import pytest

import sorn
from conftest import random_image

# The border kinds and the numpy pad modes that make the same frame.
PAD_MODES = {"reflect101": "reflect", "reflect": "symmetric", "replicate": "edge",
             "wrap": "wrap", "const": "constant"}


def padded(img, top, left, bottom, right, border, value=0):
    widths = [(top, bottom), (left, right)] + [(0, 0)] * (img.ndim - 2)
    if border == "const":
        return np.pad(img, widths, mode="constant", constant_values=value)
    return np.pad(img, widths, mode=PAD_MODES[border])


def windows(img, size, anchor, border, value=0):
    """Every pixel's window as the last two axes: (rows, cols, h, w)."""
    h, w = size
    ay, ax = anchor
    p = padded(img, ay, ax, h - 1 - ay, w - 1 - ax, border, value)
    return np.lib.stride_tricks.sliding_window_view(p, (h, w))


def box_reference(img, size, anchor=None, border="reflect101", value=0):
    """The window's sum as float32 times float32 1 / cells, rounded to nearest
    even and saturated into the integer type."""
    anchor = anchor or (size[0] // 2, size[1] // 2)
    wide = np.float64 if img.dtype.kind == "f" else np.int64
    sums = windows(img.astype(wide), size, anchor, border, value).sum(axis=(2, 3))
    scale = np.float32(1) / np.float32(size[0] * size[1])
    mean = sums.astype(np.float32) * scale
    if img.dtype.kind == "f":
        return mean
    info = np.iinfo(img.dtype)
    return np.clip(np.rint(mean.astype(np.float64)), info.min, info.max).astype(img.dtype)


def extreme_reference(img, size, anchor, border, which, value=0):
    anchor = anchor or (size[0] // 2, size[1] // 2)
    win = windows(img, size, anchor, border, value)
    return win.min(axis=(2, 3)) if which == "min" else win.max(axis=(2, 3))


# ---------------------------------------------------------------- borders

@pytest.mark.parametrize("border", list(PAD_MODES))
def test_a_frame_follows_its_border_kind_like_numpy_pad(rng, border):
    img = random_image(rng, (7, 9, 3), np.uint8)
    got = sorn.border(img, (2, 3, 4, 1), border=border, value=(1, 2, 3))
    want = padded(img, 2, 3, 4, 1, border, 0)
    if border == "const":
        want = np.pad(img, [(2, 4), (3, 1), (0, 0)])
        want[:2], want[-4:], want[:, :3], want[:, -1:] = (1, 2, 3), (1, 2, 3), (1, 2, 3), (1, 2, 3)
    np.testing.assert_array_equal(got, want)


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32, np.float32, np.float64])
def test_frames_of_every_type_and_frames_wider_than_the_image(rng, dtype):
    img = random_image(rng, (3, 4), dtype)
    np.testing.assert_array_equal(sorn.border(img, 7, border="wrap"), np.pad(img, 7, mode="wrap"))
    np.testing.assert_array_equal(sorn.border(img, 2, border="replicate"),
                                  np.pad(img, 2, mode="edge"))
    np.testing.assert_array_equal(sorn.border(img, 0), img)


def test_frames_of_a_stack_plane_by_plane(rng):
    stack = random_image(rng, (3, 5, 6, 2), np.int32)
    np.testing.assert_array_equal(sorn.border(stack[::-1], (1, 2, 3, 4), border="reflect"),
                                  np.pad(stack[::-1], [(0, 0), (1, 3), (2, 4), (0, 0)],
                                         mode="symmetric"))


def test_a_frame_of_a_view_into_out(rng):
    big = random_image(rng, (20, 30), np.int16)
    view = big[3:13:2, 25:5:-3]
    out = np.empty((view.shape[0] + 2, view.shape[1] + 2), np.int16)
    assert sorn.border(view, 1, out=out) is out
    np.testing.assert_array_equal(out, np.pad(view, 1, mode="reflect"))
    with pytest.raises(ValueError, match="shape"):
        sorn.border(view, 2, out=out)
    with pytest.raises(ValueError, match="border must be"):
        sorn.border(view, 1, border="mirror")
    with pytest.raises(ValueError):
        sorn.border(view, -1)
    with pytest.raises(ValueError, match="2 GiB"):
        sorn.border(view, 1 << 20)


# ---------------------------------------------------------------- filters

@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32])
@pytest.mark.parametrize("size", [(3, 3), (1, 5), (4, 2), (7, 9), (15, 1)])
def test_box_filters_of_integer_images_are_the_rounded_window_means(rng, dtype, size):
    img = random_image(rng, (23, 37), dtype, *((-5000, 5000) if dtype == np.int32 else ()))
    np.testing.assert_array_equal(sorn.box_filter(img, size), box_reference(img, size))


def test_box_filters_of_float_images_are_the_window_means(rng):
    img = random_image(rng, (30, 41), np.float32, -10, 10)
    got = sorn.box_filter(img, (5, 7))
    np.testing.assert_allclose(got, box_reference(img, (5, 7)), rtol=0, atol=2e-5)


@pytest.mark.parametrize("which", ["min", "max"])
@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32, np.float32])
def test_minimum_and_maximum_filters_are_the_window_extremes(rng, which, dtype):
    fn = sorn.min_filter if which == "min" else sorn.max_filter
    img = random_image(rng, (19, 33), dtype)
    for size, anchor in [((3, 3), None), ((5, 2), (0, 1)), ((1, 9), (0, 8)), ((6, 6), (4, 1))]:
        np.testing.assert_array_equal(fn(img, size, anchor=anchor),
                                      extreme_reference(img, size, anchor, "reflect101", which))


@pytest.mark.parametrize("border", ["reflect", "replicate", "wrap", "const"])
def test_filters_read_the_border_kind_beyond_the_edges(rng, border):
    img = random_image(rng, (12, 14), np.uint8)
    np.testing.assert_array_equal(
        sorn.box_filter(img, (5, 3), anchor=(1, 2), border=border, value=200),
        box_reference(img, (5, 3), (1, 2), border, 200))
    np.testing.assert_array_equal(
        sorn.max_filter(img, 4, border=border, value=7),
        extreme_reference(img, (4, 4), None, border, "max", 7))


def test_filters_of_views_stacks_and_into_out(rng):
    big = random_image(rng, (40, 50), np.int16)
    view = big[30:2:-3, 4:44:2]
    np.testing.assert_array_equal(sorn.min_filter(view, 3), extreme_reference(view, (3, 3), None, "reflect101", "min"))
    stack = random_image(rng, (3, 11, 13, 1), np.uint8)
    got = sorn.box_filter(stack, 3)
    for p in range(3):
        np.testing.assert_array_equal(got[p, :, :, 0], box_reference(stack[p, :, :, 0], (3, 3)))
    for border in ["wrap", "const"]:
        got = sorn.min_filter(stack[::-1], (4, 3), border=border, value=9)
        for p in range(3):
            np.testing.assert_array_equal(
                got[p, :, :, 0], extreme_reference(stack[::-1][p, :, :, 0], (4, 3), None, border,
                                                   "min", 9))
    out = np.empty_like(view)
    assert sorn.max_filter(view, 2, out=out) is out
    np.testing.assert_array_equal(out, extreme_reference(view, (2, 2), None, "reflect101", "max"))
    np.testing.assert_array_equal(sorn.box_filter(view, 1), view)


@pytest.mark.parametrize("channels", [2, 3, 4])
def test_filters_of_several_channels_filter_each_channel(rng, channels):
    img = random_image(rng, (13, 17, channels), np.uint8)
    value = list(range(10, 10 + channels))
    got = sorn.box_filter(img, (3, 5), border="const", value=value)
    lo = sorn.min_filter(img, (4, 2), anchor=(1, 0))
    hi = sorn.max_filter(img[:, ::-1], 3)
    for c in range(channels):
        np.testing.assert_array_equal(
            got[..., c], box_reference(img[..., c], (3, 5), None, "const", value[c]))
        np.testing.assert_array_equal(
            lo[..., c], extreme_reference(img[..., c], (4, 2), (1, 0), "reflect101", "min"))
        np.testing.assert_array_equal(
            hi[..., c], extreme_reference(img[:, ::-1, c], (3, 3), None, "reflect101", "max"))
    out = np.zeros_like(img)
    assert sorn.box_filter(img, 3, out=out) is out
    np.testing.assert_array_equal(out, sorn.box_filter(img, 3))


def test_filters_refuse_what_they_cannot_take(rng):
    img = random_image(rng, (8, 8), np.uint8)
    with pytest.raises(TypeError, match="no kernel"):
        sorn.box_filter(img.astype(np.uint16))
    with pytest.raises(ValueError, match="anchor"):
        sorn.min_filter(img, 3, anchor=(3, 0))
    with pytest.raises(ValueError, match="size"):
        sorn.max_filter(img, 0)
    with pytest.raises(ValueError, match="shares memory"):
        sorn.box_filter(img, out=img)


# ---------------------------------------------------------------- resizing

def source_indexes(s, d):
    """The source index of each destination index, along one axis, for columns
    and for rows."""
    g = 1.0 / (d / s)
    i = np.arange(d, dtype=np.float64)
    cols = np.trunc(i * g) if g >= 1 else np.rint(i * g)
    rows = np.trunc(i * g + (0.5 if 1 - g > 2.0 ** -23 else 0.0))
    return np.minimum(rows, s - 1).astype(int), np.minimum(cols, s - 1).astype(int)


def resize_reference(img, rows, cols):
    r, _ = source_indexes(img.shape[-3] if img.ndim == 4 else img.shape[0], rows)
    _, c = source_indexes(img.shape[-2] if img.ndim == 4 else img.shape[1], cols)
    if img.ndim == 4:
        return img[:, r][:, :, c]
    return img[r][:, c]


@pytest.mark.parametrize("dtype,channels", [(np.uint8, 1), (np.uint8, 4), (np.int16, 2),
                                             (np.float32, 1), (np.float32, 3), (np.int32, 4),
                                             (np.uint8, 3), (np.uint8, 2)])
@pytest.mark.parametrize("shape", [(5, 7), (24, 40), (13, 100), (1, 3)])
def test_resizing_takes_the_source_pixels_of_its_rule(rng, dtype, channels, shape):
    img = random_image(rng, (17, 29, channels) if channels > 1 else (17, 29), dtype)
    np.testing.assert_array_equal(sorn.resize(img, shape), resize_reference(img, *shape))


def test_the_rule_in_small_cases():
    row = np.array([[10, 20, 30, 40]], np.uint8)
    np.testing.assert_array_equal(sorn.resize(row, (1, 2)), [[10, 30]])
    np.testing.assert_array_equal(sorn.resize(row[:, :2], (1, 4)), [[10, 10, 20, 20]])
    col = np.array([[1], [2]], np.uint8)
    np.testing.assert_array_equal(sorn.resize(col, (4, 1))[:, 0], [1, 2, 2, 2])


def test_resizing_views_stacks_and_into_out(rng):
    big = random_image(rng, (60, 80), np.uint8)
    view = big[50:5:-2, 3:70:3]
    np.testing.assert_array_equal(sorn.resize(view, (31, 9)), resize_reference(view, 31, 9))
    stack = random_image(rng, (2, 10, 12, 1), np.float32)
    np.testing.assert_array_equal(sorn.resize(stack, (7, 25)), resize_reference(stack, 7, 25))
    colour = random_image(rng, (3, 9, 7, 3), np.uint8)
    np.testing.assert_array_equal(sorn.resize(colour, (4, 15)), resize_reference(colour, 4, 15))
    into = np.zeros((5, 6, 3), np.uint8)
    assert sorn.resize(colour[1], out=into) is into
    np.testing.assert_array_equal(into, resize_reference(colour[1], 5, 6))
    with pytest.raises(ValueError, match="shape"):
        sorn.resize(colour[1], out=np.zeros((5, 6, 4), np.uint8))
    out = np.zeros((8, 8), np.uint8)
    assert sorn.resize(view, out=out) is out
    np.testing.assert_array_equal(out, resize_reference(view, 8, 8))
    for dtype, shape in [(np.int16, (4, 4, 3)), (np.int16, (4, 4)), (np.float64, (4, 4, 3))]:
        with pytest.raises(sorn.SornNotSupportedError, match="SornResize"):
            sorn.resize(random_image(rng, shape, dtype), (2, 2))
    with pytest.raises(TypeError, match="shape"):
        sorn.resize(view)
    with pytest.raises(ValueError):
        sorn.resize(view, (0, 4))
    with pytest.raises(ValueError, match="2 GiB"):
        sorn.resize(view, (100000, 100000))
