"""Thresholds and Otsu's threshold, against references written here in
numpy."""

import operator

import numpy as np
import pytest

import sorn
from conftest import random_image

OPS = {"<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge,
       "==": operator.eq, "!=": operator.ne}


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32])
@pytest.mark.parametrize("op", list(OPS))
def test_elements_meeting_the_condition_take_the_value(rng, dtype, op):
    img = random_image(rng, (13, 17), dtype, 0, 40)
    got = sorn.threshold(img, 20, 3, op=op)
    np.testing.assert_array_equal(got, np.where(OPS[op](img, 20), 3, img))


def test_without_a_value_the_threshold_itself_is_written(rng):
    img = random_image(rng, (9, 11), np.int16)
    np.testing.assert_array_equal(sorn.threshold(img, 1000, op=">"), np.minimum(img, 1000))
    np.testing.assert_array_equal(sorn.threshold(img, -50), np.maximum(img, -50))


def test_one_threshold_and_value_per_channel(rng):
    img = random_image(rng, (8, 10, 3), np.uint8)
    got = sorn.threshold(img, (50, 100, 150), (1, 2, 3), op=">=")
    want = np.where(img >= np.array([50, 100, 150]), np.array([1, 2, 3]), img)
    np.testing.assert_array_equal(got, want)


def test_float_thresholds_and_thresholds_rounded_into_the_type(rng):
    img = random_image(rng, (10, 12), np.float32, -1, 1)
    np.testing.assert_array_equal(sorn.threshold(img, 0.25, -5.0), np.where(img < 0.25, -5.0, img).astype(np.float32))
    u8 = np.arange(10, dtype=np.uint8).reshape(2, 5)
    # 3.5 rounds to 4 in uint8: elements below 4 take the value.
    np.testing.assert_array_equal(sorn.threshold(u8, 3.5, 99), np.where(u8 < 4, 99, u8))


def test_an_image_of_thresholds_is_compared_element_by_element(rng):
    img = random_image(rng, (14, 9), np.int16)
    t = random_image(rng, (14, 9), np.int16)
    np.testing.assert_array_equal(sorn.threshold(img, t, 0, op="<="), np.where(img <= t, 0, img))


def test_stacks_whole_and_plane_by_plane(rng):
    stack = random_image(rng, (3, 11, 13, 1), np.uint8)
    t = random_image(rng, (3, 11, 13, 1), np.uint8)
    for s in (stack, stack[::-1], stack[:, ::-1]):
        np.testing.assert_array_equal(sorn.threshold(s, 100, 0), np.where(s < 100, 0, s))
        np.testing.assert_array_equal(sorn.threshold(s, t[::-1], 7), np.where(s < t[::-1], 7, s))
    with pytest.raises(ValueError, match="stack"):
        sorn.threshold(stack, method="otsu")


def test_in_place_and_views(rng):
    big = random_image(rng, (20, 30), np.uint8)
    view = big[::-2, 5:25]
    want = np.where(view > 128, 255, view)
    assert sorn.threshold(view, 128, 255, op=">", out=view) is view
    np.testing.assert_array_equal(view, want)


def otsu_bin(img, bins=256):
    """The last bin of the lower class: the parting of the histogram with the
    largest variance between the two classes (the first of equals)."""
    counts = np.bincount(img.ravel(), minlength=bins).astype(np.float64)
    values = np.arange(bins, dtype=np.float64)
    w0 = np.cumsum(counts)
    s0 = np.cumsum(counts * values)
    total, stotal = w0[-1], s0[-1]
    w1 = total - w0
    with np.errstate(divide="ignore", invalid="ignore"):
        between = w0 * w1 * (s0 / w0 - (stotal - s0) / w1) ** 2
    between[~np.isfinite(between)] = -1
    return int(np.argmax(between))


def two_populations(rng, shape=(40, 50)):
    img = np.where(rng.random(shape) < 0.4, rng.normal(60, 8, shape), rng.normal(170, 12, shape))
    return np.clip(np.rint(img), 0, 255).astype(np.uint8)


def test_otsu_parts_the_histogram_where_the_classes_differ_most(rng):
    img = two_populations(rng)
    t = sorn.otsu_threshold(img)
    k = otsu_bin(img)
    # img < t is the lower class: bins 0 .. k.
    assert k < t <= k + 1
    assert np.array_equal(img < t, img <= k)


def test_the_otsu_method_binarises_below_and_at_or_above_the_threshold(rng):
    img = two_populations(rng)
    t = sorn.otsu_threshold(img)
    np.testing.assert_array_equal(sorn.threshold(img, method="otsu"), np.where(img < t, 0, 255))


def test_the_blur_method_compares_each_pixel_with_its_window_mean(rng):
    # The box filter's rounded mean of the window around each pixel is the
    # pixel's threshold: below it 0, at or above it 255.
    img = two_populations(rng, (30, 35))
    mean = sorn.box_filter(img, (7, 5))
    out = np.full_like(img, 7)
    sorn.threshold(img, method="blur", window=(7, 5), out=out)
    np.testing.assert_array_equal(out, np.where(img < mean, 0, 255))


def test_thresholds_refuse_what_they_cannot_take(rng):
    img = random_image(rng, (6, 6), np.uint8)
    with pytest.raises(TypeError, match="no kernel"):
        sorn.threshold(img.astype(np.int8), 3, 0)
    with pytest.raises(TypeError, match="thresh"):
        sorn.threshold(img)
    with pytest.raises(TypeError, match="no thresh"):
        sorn.threshold(img, 3, method="otsu")
    with pytest.raises(ValueError, match="method"):
        sorn.threshold(img, method="mean")
    with pytest.raises(ValueError, match="op"):
        sorn.threshold(img, 3, 0, op="<>")
    with pytest.raises(ValueError, match="one channel"):
        sorn.otsu_threshold(np.zeros((4, 4, 3), np.uint8))
    with pytest.raises(ValueError, match="NaN"):
        sorn.threshold(img, float("nan"), 0)
    with pytest.raises(ValueError, match="differ in shape"):
        sorn.threshold(img, img[:3], 0)
