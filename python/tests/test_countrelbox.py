"""sorn.count_rel_box against a count of every box written here in numpy:
the operators, boxes and anchors, shifts and saturation, ranges and the
speed bins, both destinations, channels and stacks, and the refusals."""

import numpy as np
import pytest

import sorn
from conftest import random_image

OPS = {"==": np.equal, "<": np.less, "<=": np.less_equal, ">": np.greater, ">=": np.greater_equal}


def bins_of(img, box, value_range, speed):
    """The values as the count compares them: the range's ends as bytes, the
    speed's bin width, values outside the range at its nearer end."""
    h, w = box
    if value_range is None:
        large = (w >= 64 or h >= 32) and h * w > 256
        value_range = (int(img.min()), int(img.max())) if large else (0, 255)
    lo = min(max(int(np.floor(value_range[0])), 0), 255)
    hi = max(lo, min(max(int(np.ceil(value_range[1])), 0), 255))
    levels = hi - lo + 1
    q = 0
    if speed == "fast" and levels > 79:
        q = 1
    if speed == "fast2":
        q = 2 if levels > 79 else 1 if levels >= 40 else 0
    return np.clip(img.astype(np.int32) >> q, lo >> q, hi >> q)


def reference(img, op="<=", box=(5, 5), anchor=None, shift=0, value_range=None, speed=None,
              dtype=np.uint8):
    h, w = box
    ay, ax = anchor if anchor is not None else (h // 2, w // 2)
    b = bins_of(img, box, value_range, speed)
    p = np.pad(b, [(ay, h - 1 - ay), (ax, w - 1 - ax)], mode="reflect")
    win = np.lib.stride_tricks.sliding_window_view(p, (h, w))
    n = OPS[op](win, b[:, :, None, None]).sum(axis=(2, 3)).astype(np.int64)
    n &= 0xFF if h * w <= 256 else 0xFFFF
    n = (n + (1 << (-shift - 1))) >> -shift if shift < 0 else n << shift
    return np.minimum(n, np.iinfo(dtype).max).astype(dtype)


@pytest.mark.parametrize("op", list(OPS))
def test_every_operator_agrees_with_a_numpy_count(rng, op):
    img = random_image(rng, (23, 31), np.uint8)
    for box, anchor in [((3, 3), None), ((1, 7), (0, 6)), ((6, 2), (5, 0)), ((9, 40), (2, 3))]:
        np.testing.assert_array_equal(sorn.count_rel_box(img, op, box, anchor=anchor),
                                      reference(img, op, box, anchor))


def test_words_name_the_operators_too(rng):
    img = random_image(rng, (8, 9), np.uint8)
    np.testing.assert_array_equal(sorn.count_rel_box(img, "ge", 3), sorn.count_rel_box(img, ">=", 3))


def test_shifts_scale_and_saturate_in_both_destinations(rng):
    img = random_image(rng, (17, 19), np.uint8, 0, 40)
    for shift in (-3, -1, 0, 2, 5, 12):
        for dtype in (np.uint8, np.int16):
            got = sorn.count_rel_box(img, "<=", (11, 12), shift=shift, dtype=dtype)
            assert got.dtype == dtype
            np.testing.assert_array_equal(
                got, reference(img, "<=", (11, 12), shift=shift, dtype=dtype))


def test_ranges_and_the_speed_bins(rng):
    img = random_image(rng, (20, 90), np.uint8, 50, 160)
    for speed in (None, "fast", "fast2"):
        for value_range in (None, (50, 160), (100.5, 139.2), (0, 255), (60, 70)):
            for box in ((5, 5), (8, 70), (33, 9)):
                got = sorn.count_rel_box(img, "<", box, range=value_range, speed=speed,
                                         dtype=np.int16)
                np.testing.assert_array_equal(
                    got, reference(img, "<", box, value_range=value_range, speed=speed,
                                   dtype=np.int16), err_msg=f"{speed} {value_range} {box}")


def test_a_flat_sixteen_by_sixteen_box_counts_zero():
    img = np.full((20, 20), 7, np.uint8)
    assert not sorn.count_rel_box(img, "==", 16, dtype=np.int16).any()
    assert (sorn.count_rel_box(img, "==", (16, 17), dtype=np.int16) == 272).all()


def test_a_box_of_one_pixel_counts_the_pixel_itself(rng):
    img = random_image(rng, (5, 6), np.uint8)
    assert (sorn.count_rel_box(img, "<=", 1) == 1).all()
    assert (sorn.count_rel_box(img, "<", 1, shift=3) == 0).all()
    assert (sorn.count_rel_box(img, "==", 1, shift=4) == 16).all()


def test_channels_and_stacks_one_at_a_time(rng):
    img = random_image(rng, (9, 12, 3), np.uint8)
    got = sorn.count_rel_box(img, ">", (3, 5), dtype=np.int16)
    for c in range(3):
        np.testing.assert_array_equal(got[..., c], reference(img[..., c], ">", (3, 5),
                                                              dtype=np.int16))
    stack = random_image(rng, (3, 8, 10), np.uint8)
    got = sorn.count_rel_box(stack[..., None], ">=", 3)
    for p in range(3):
        np.testing.assert_array_equal(got[p, ..., 0], reference(stack[p], ">=", (3, 3)))


def test_into_out_and_in_place(rng):
    img = random_image(rng, (14, 15), np.uint8)
    want = reference(img, "<=", (4, 4))
    out = np.zeros_like(img)
    assert sorn.count_rel_box(img, "<=", 4, out=out) is out
    np.testing.assert_array_equal(out, want)
    sorn.count_rel_box(img, "<=", 4, out=img)
    np.testing.assert_array_equal(img, want)


def test_refusals():
    img = np.zeros((4, 4), np.uint8)
    with pytest.raises(TypeError, match="uint8 into uint8, uint8 into int16"):
        sorn.count_rel_box(np.zeros((4, 4), np.int16))
    with pytest.raises(TypeError):
        sorn.count_rel_box(img, dtype=np.float32)
    with pytest.raises(ValueError, match="op must be"):
        sorn.count_rel_box(img, "!=")
    with pytest.raises(ValueError, match="anchor"):
        sorn.count_rel_box(img, box=3, anchor=(3, 0))
    with pytest.raises(ValueError, match="speed"):
        sorn.count_rel_box(img, speed="faster")
    with pytest.raises(ValueError, match="range"):
        sorn.count_rel_box(img, range=(1, 2, 3))
