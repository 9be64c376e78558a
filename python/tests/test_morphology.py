"""Morphology by masks and rectangles against references written here in
numpy: the extremes over the set cells of the element, chains whose second
pass sees the first pass's results within the image only, and the
differences of top-hat and black-hat saturated."""

import numpy as np
import pytest

import sorn
from conftest import random_image

TYPES = [np.uint8, np.int16, np.int32, np.float32]
OPS = ["erode", "dilate", "open", "close", "tophat", "blackhat"]
PAD_MODES = {"reflect101": "reflect", "reflect": "symmetric", "replicate": "edge",
             "wrap": "wrap", "const": "constant"}


def lowest(dtype):
    dtype = np.dtype(dtype)
    return np.finfo(dtype).min if dtype.kind == "f" else np.iinfo(dtype).min


def highest(dtype):
    dtype = np.dtype(dtype)
    return np.finfo(dtype).max if dtype.kind == "f" else np.iinfo(dtype).max


def extreme(img, mask, anchor, which, border, value=0):
    """The smallest (erode) or largest (dilate) value over the set cells of
    the mask, laid with its anchor on each pixel; a mask with no set cell
    gives the type's greatest or least value."""
    h, w = mask.shape
    ay, ax = anchor
    widths = [(ay, h - 1 - ay), (ax, w - 1 - ax)]
    if border == "const":
        p = np.pad(img, widths, mode="constant", constant_values=value)
    else:
        p = np.pad(img, widths, mode=PAD_MODES[border])
    win = np.lib.stride_tricks.sliding_window_view(p, (h, w))
    keep = mask != 0
    if which == "erode":
        return np.where(keep, win, highest(img.dtype)).min(axis=(2, 3)).astype(img.dtype)
    return np.where(keep, win, lowest(img.dtype)).max(axis=(2, 3)).astype(img.dtype)


def difference(x, y):
    """x - y, saturated in the integer types."""
    if x.dtype.kind == "f":
        return x - y
    info = np.iinfo(x.dtype)
    return np.clip(x.astype(np.int64) - y, info.min, info.max).astype(x.dtype)


def morph_reference(img, op, mask, anchor=None, border="reflect101", value=0):
    """One channel. The second pass of a chain reads beyond the image the
    neutral value of that pass, so only the first pass's results count."""
    anchor = anchor or (mask.shape[0] // 2, mask.shape[1] // 2)
    if op in ("erode", "dilate"):
        return extreme(img, mask, anchor, op, border, value)
    if op in ("open", "tophat"):
        e = extreme(img, mask, anchor, "erode", border, value)
        r = extreme(e, mask, anchor, "dilate", "const", lowest(img.dtype))
        return r if op == "open" else difference(img, r)
    d = extreme(img, mask, anchor, "dilate", border, value)
    r = extreme(d, mask, anchor, "erode", "const", highest(img.dtype))
    return r if op == "close" else difference(r, img)


def per_channel(img, op, mask, anchor=None, border="reflect101", value=0):
    if img.ndim == 2:
        return morph_reference(img, op, mask, anchor, border, value)
    values = np.broadcast_to(np.asarray(value, np.float64), (img.shape[2],))
    return np.stack([morph_reference(img[..., c], op, mask, anchor, border, values[c])
                     for c in range(img.shape[2])], axis=-1)


def image(rng, shape, dtype):
    if np.dtype(dtype) == np.float32:
        return random_image(rng, shape, dtype, -1e4, 1e4)
    return random_image(rng, shape, dtype)


CROSS = np.array([[0, 255, 0], [255, 255, 255], [0, 255, 0]], np.uint8)
# Masks of every shape the library has a kernel for: a row, a column, 2 by 2,
# 2 and 3 columns, 1 by 2 and 2 by 1, and any other.
MASK_SHAPES = [(1, 2), (2, 1), (1, 3), (3, 1), (1, 6), (6, 1), (2, 2), (2, 3), (3, 2), (3, 3),
               (5, 2), (4, 3), (4, 5), (7, 6)]


def random_mask(rng, shape):
    m = (rng.integers(0, 3, size=shape) > 0).astype(np.uint8) * 255
    m.flat[rng.integers(0, m.size)] = 255
    return m


# ---------------------------------------------------------------- masks

@pytest.mark.parametrize("dtype", TYPES)
@pytest.mark.parametrize("op", OPS)
def test_masks_of_every_shape(rng, dtype, op):
    img = image(rng, (13, 16), dtype)
    for shape in MASK_SHAPES:
        mask = random_mask(rng, shape)
        anchor = (int(rng.integers(0, shape[0])), int(rng.integers(0, shape[1])))
        got = sorn.morphology(img, op, mask, anchor=anchor)
        assert got.dtype == img.dtype
        np.testing.assert_array_equal(got, morph_reference(img, op, mask, anchor),
                                      err_msg=f"mask {mask.tolist()} anchor {anchor}")


@pytest.mark.parametrize("dtype", TYPES)
@pytest.mark.parametrize("op", OPS)
@pytest.mark.parametrize("size", [(3, 3), (1, 5), (4, 2), (7, 9), (15, 1)])
def test_rectangles(rng, dtype, op, size):
    img = image(rng, (23, 37), dtype)
    full = np.full(size, 255, np.uint8)
    want = morph_reference(img, op, full)
    np.testing.assert_array_equal(sorn.morphology(img, op, size=size), want)
    # A mask of all ones is the same rectangle.
    np.testing.assert_array_equal(sorn.morphology(img, op, full), want)


@pytest.mark.parametrize("channels", [1, 2, 3, 4])
@pytest.mark.parametrize("op", OPS)
def test_every_channel_alone(rng, channels, op):
    img = image(rng, (9, 11, channels), np.int16)
    np.testing.assert_array_equal(sorn.morphology(img, op, CROSS), per_channel(img, op, CROSS))
    np.testing.assert_array_equal(sorn.morphology(img, op, size=(2, 3)),
                                  per_channel(img, op, np.ones((2, 3), np.uint8)))


@pytest.mark.parametrize("border", list(PAD_MODES))
@pytest.mark.parametrize("op", OPS)
def test_border_kinds_reach_the_first_pass(rng, border, op):
    img = image(rng, (10, 12, 3), np.uint8)
    value = (0, 255, 77)
    for mask, anchor in ((CROSS, None), (random_mask(rng, (3, 4)), (0, 3)),
                         (np.full((2, 5), 255, np.uint8), (1, 0))):
        got = sorn.morphology(img, op, mask, anchor=anchor, border=border, value=value)
        want = per_channel(img, op, mask, anchor, border, value)
        np.testing.assert_array_equal(got, want, err_msg=f"mask {mask.tolist()}")


def test_the_worked_cases(rng):
    img = image(rng, (8, 9), np.uint8)
    # One set cell shifts the image.
    one = np.zeros((3, 3), np.uint8)
    one[0, 2] = 255
    shifted = sorn.morphology(img, "dilate", one)
    np.testing.assert_array_equal(shifted[1:, :-1], img[:-1, 1:])
    # No set cell: the type's least value for dilation, its greatest for
    # erosion (the greatest finite float32).
    none = np.zeros((2, 3), np.uint8)
    assert (sorn.morphology(img, "dilate", none) == 0).all()
    assert (sorn.morphology(img, "erode", none) == 255).all()
    f = img.astype(np.float32)
    assert (sorn.morphology(f, "erode", none) == np.finfo(np.float32).max).all()
    assert (sorn.morphology(f, "dilate", none) == np.finfo(np.float32).min).all()
    # A cross differs from the rectangle at a corner feature.
    corner = np.zeros((7, 7), np.uint8)
    corner[2:5, 2:5] = 200
    assert sorn.morphology(corner, "dilate", CROSS)[1, 1] == 0
    assert sorn.morphology(corner, "dilate")[1, 1] == 200
    # Top-hat of a constant image is zero; a mask of one cell is a copy,
    # whatever the operation and whatever the cell.
    flat = np.full((6, 6), 90, np.int16)
    assert (sorn.morphology(flat, "tophat", CROSS) == 0).all()
    assert (sorn.morphology(flat, "blackhat", size=4) == 0).all()
    for op in OPS:
        for cell in (0, 255):
            np.testing.assert_array_equal(sorn.morphology(img, op, np.full((1, 1), cell, np.uint8)),
                                          img)
        np.testing.assert_array_equal(sorn.morphology(img, op, size=1), img)
    # Any non-zero mask cell counts, and bool masks are taken.
    np.testing.assert_array_equal(sorn.morphology(img, "erode", CROSS // 255),
                                  sorn.morphology(img, "erode", CROSS))
    np.testing.assert_array_equal(sorn.morphology(img, "open", CROSS > 0),
                                  sorn.morphology(img, "open", CROSS))


def test_views_stacks_and_out(rng):
    base = image(rng, (3, 30, 40), np.float32)
    mask = random_mask(rng, (3, 5))
    view = base[1, 3:27:2, ::-2]
    np.testing.assert_array_equal(sorn.morphology(view, "close", mask),
                                  morph_reference(view, "close", mask))
    out = np.zeros((14, 22), np.float32)
    r = sorn.morphology(view, "tophat", mask, out=out[1:13, 1:21])
    np.testing.assert_array_equal(r, morph_reference(view, "tophat", mask))
    assert out[0].sum() == 0 and out[:, 0].sum() == 0
    stack = base[:, ::2, 4:30, None]
    got = sorn.morphology(stack, "open", mask, border="replicate")
    for p in range(3):
        np.testing.assert_array_equal(
            got[p, ..., 0], morph_reference(stack[p, ..., 0], "open", mask, border="replicate"))


def test_refusals(rng):
    img = image(rng, (6, 7), np.uint8)
    with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
        sorn.morphology(img.astype(np.float64), "erode")
    with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
        sorn.morphology(img.astype(np.int8), "erode", CROSS)
    with pytest.raises(ValueError, match="'erode', 'dilate'"):
        sorn.morphology(img, "gradient")
    with pytest.raises(ValueError, match="anchor"):
        sorn.morphology(img, "dilate", CROSS, anchor=(3, 0))
    with pytest.raises(ValueError, match="anchor"):
        sorn.morphology(img, "open", size=(2, 4), anchor=(0, 4))
    with pytest.raises(TypeError, match="uint8 or bool"):
        sorn.morphology(img, "erode", CROSS.astype(np.int16))
    with pytest.raises(TypeError):
        sorn.morphology(img, "erode", [[1, 1], [1, 1]])
    with pytest.raises(ValueError, match="two axes"):
        sorn.morphology(img, "erode", CROSS[None])
    with pytest.raises(ValueError, match="two axes"):
        sorn.morphology(img, "erode", np.zeros((0, 3), np.uint8))
    with pytest.raises(TypeError, match="mask or size"):
        sorn.morphology(img, "erode", CROSS, size=3)
    with pytest.raises(ValueError):
        sorn.morphology(img, "erode", size=0)
    with pytest.raises(ValueError, match="border"):
        sorn.morphology(img, "erode", border="mirror")
    with pytest.raises(ValueError):
        sorn.morphology(img, "erode", out=img)
    with pytest.raises(ValueError):
        sorn.morphology(np.dstack([img] * 3), "erode", out=np.empty((6, 7), np.uint8))


def test_tiles_on_dask_give_the_morphology_of_the_whole_image(rng):
    da = pytest.importorskip("dask.array")
    import sorn.dask as sd
    img = image(rng, (41, 53), np.uint8)
    x = da.from_array(img, chunks=(12, 15))
    mask = random_mask(rng, (4, 3))
    for op in OPS:
        got = sd.morphology(x, op, mask, anchor=(3, 0)).compute(scheduler="synchronous")
        np.testing.assert_array_equal(got, sorn.morphology(img, op, mask, anchor=(3, 0)),
                                      err_msg=op)
        got = sd.morphology(x, op, size=(5, 2)).compute(scheduler="synchronous")
        np.testing.assert_array_equal(got, sorn.morphology(img, op, size=(5, 2)), err_msg=op)
