"""Sums, means, extremes and histograms against references written here."""

import numpy as np
import pytest

import clib
import sorn
from conftest import random_image


def sequential_sums(img):
    """Per channel, the elements added one by one in address order in
    double: the order the library adds float32 images in."""
    flat = img.reshape(-1, img.shape[2] if img.ndim == 3 else 1).astype(np.float64)
    return np.cumsum(flat, axis=0)[-1]


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32, np.float32])
@pytest.mark.parametrize("channels", [None, 1, 3, 4])
def test_sum_and_mean_per_channel(rng, dtype, channels):
    shape = (19, 23) if channels is None else (19, 23, channels)
    img = random_image(rng, shape, dtype)
    want = sequential_sums(img)
    got, mean = sorn.sum(img), sorn.mean(img)
    if channels is None:
        assert isinstance(got, float) and got == want[0]
        assert mean == want[0] / (19 * 23)
    else:
        assert got.shape == (channels,)
        np.testing.assert_array_equal(got, want)
        np.testing.assert_array_equal(mean, want / (19 * 23))
    status, c_sums = clib.reduce("SornSum", np.ascontiguousarray(img))
    assert status == 0
    np.testing.assert_array_equal(np.atleast_1d(got), c_sums)


def test_integer_sums_are_exact_beyond_32_bits():
    img = np.full((3000, 3000), 255, np.uint8)
    assert sorn.sum(img) == 255.0 * 3000 * 3000
    # The narrow accumulators wrap at 32 bits, as the library's fast sums do.
    assert sorn.sum(img, fast=True) == float(np.int32(np.uint32((255 * 9_000_000) % 2 ** 32)))


def test_a_masked_sum_and_mean_take_the_selected_pixels(rng):
    img = random_image(rng, (10, 12), np.int16)
    mask = rng.random((10, 12)) < 0.3
    assert sorn.sum(img, mask=mask) == img[mask].sum()
    assert sorn.mean(img, mask=mask.astype(np.uint8) * 7) == img[mask].mean()
    inverse = np.where(mask, 255, 0).astype(np.uint8)
    assert sorn.sum(img, mask=inverse, invert_mask=True) == img[~mask].sum()
    assert sorn.mean(img, mask=np.zeros((10, 12), bool)) == 0.0


def test_sums_of_a_stack_are_one_row_per_plane(rng):
    stack = random_image(rng, (4, 9, 11, 3), np.uint8)
    np.testing.assert_array_equal(sorn.sum(stack), stack.sum(axis=(1, 2)))
    mask = rng.random((9, 11)) < 0.5
    np.testing.assert_array_equal(sorn.sum(stack[..., :1], mask=mask),
                                  stack[..., :1][:, mask].sum(axis=1))


def test_two_channels_have_no_sum_kernel():
    with pytest.raises(ValueError, match="1, 3, 4 channels"):
        sorn.sum(np.zeros((4, 4, 2), np.uint8))


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32, np.float32])
def test_minmax_and_their_first_places(rng, dtype):
    img = random_image(rng, (13, 17), dtype)
    lo, hi = sorn.minmax(img)
    assert (lo, hi) == (img.min(), img.max())
    lo, hi, lo_at, hi_at = sorn.minmax(img, positions=True)
    assert lo_at == np.unravel_index(np.argmin(img), img.shape)
    assert hi_at == np.unravel_index(np.argmax(img), img.shape)
    rgb = random_image(rng, (5, 6, 3), dtype)
    lo, hi = sorn.minmax(rgb)
    np.testing.assert_array_equal(lo, rgb.min(axis=(0, 1)))
    np.testing.assert_array_equal(hi, rgb.max(axis=(0, 1)))


def test_minmax_under_a_mask_and_a_mask_that_selects_nothing(rng):
    img = random_image(rng, (8, 9), np.uint8)
    mask = rng.random((8, 9)) < 0.4
    assert sorn.minmax(img, mask=mask) == (img[mask].min(), img[mask].max())
    with pytest.raises(sorn.SornEmptyRegionError):
        sorn.minmax(img, mask=np.zeros((8, 9), np.uint8))


# ---------------------------------------------------------------- histograms

def test_uint8_histogram_counts_every_value_by_default(rng):
    img = random_image(rng, (31, 47), np.uint8)
    np.testing.assert_array_equal(sorn.histogram(img), np.bincount(img.ravel(), minlength=256))
    np.testing.assert_array_equal(sorn.histogram(img, 128),
                                  np.bincount(img.ravel() // 2, minlength=128))
    np.testing.assert_array_equal(sorn.histogram(img, 16, (0, 255)),
                                  np.bincount(img.ravel().astype(int) * 16 // 256, minlength=16))


def test_integer_bins_by_the_library_rule(rng):
    img = random_image(rng, (20, 20), np.int16, -500, 500)
    bins, lo, hi = 10, -300, 299
    h = sorn.histogram(img, bins, (lo, hi))
    # 32-bit arithmetic with the division truncating toward zero: values just
    # below low (within one bin's width) fall in bin 0 too.
    x = (img.ravel().astype(np.int64) - lo) * bins
    b = np.sign(x) * (np.abs(x) // (hi - lo + 1))
    want = np.bincount(b[(b >= 0) & (b < bins)], minlength=bins)
    np.testing.assert_array_equal(h, want)


def test_float_bins_put_high_in_the_last_bin(rng):
    img = random_image(rng, (25, 30), np.float32, -2, 3)
    img[0, 0], img[0, 1], img[0, 2] = np.nan, 7.0, -9.0
    bins, lo, hi = 20, -1.0, 2.5
    low, high = np.float32(lo), np.float32(hi)
    scale = np.float64(np.float32(bins - 1) / (high - low))
    b = np.trunc((img.ravel() - low).astype(np.float64) * scale)
    keep = np.isfinite(b) & (b >= 0) & (b < bins)
    np.testing.assert_array_equal(sorn.histogram(img, bins, (lo, hi)),
                                  np.bincount(b[keep].astype(int), minlength=bins))
    # The default range is the data's, NaN left out.
    h = sorn.histogram(img, 5)
    assert h.sum() == img.size - 1


def test_histograms_of_channels_masks_and_stacks(rng):
    rgb = random_image(rng, (12, 14, 3), np.uint8)
    h = sorn.histogram(rgb)
    assert h.shape == (3, 256)
    for c in range(3):
        np.testing.assert_array_equal(h[c], np.bincount(rgb[..., c].ravel(), minlength=256))
    grey = rgb[..., 0].copy()
    mask = rng.random((12, 14)) < 0.5
    np.testing.assert_array_equal(sorn.histogram(grey, mask=mask),
                                  np.bincount(grey[mask], minlength=256))
    stack = random_image(rng, (3, 8, 9, 1), np.uint8)
    want = np.bincount(stack.ravel(), minlength=256)
    # Whole through the library's call frame, or plane by plane where rows
    # run backwards or repeat.
    for view in (stack, stack[::-1], stack[:, ::-1], stack[:, :, ::-1]):
        np.testing.assert_array_equal(sorn.histogram(view)[0], want)


def test_histogram_arguments_are_checked():
    img = np.zeros((4, 4), np.uint8)
    with pytest.raises(ValueError):
        sorn.histogram(img, 0)
    with pytest.raises(ValueError):
        sorn.histogram(img, 16, (10, 5))
    with pytest.raises(ValueError):
        sorn.histogram(img, 16, (-5, 300))
    with pytest.raises(TypeError):
        sorn.histogram(img, 16, 5)
    with pytest.raises(TypeError):
        sorn.histogram(np.zeros((4, 4), np.int8), mask=np.ones((4, 4), bool))
    with pytest.raises(ValueError, match="32-bit"):
        sorn.histogram(np.zeros((4, 4), np.int32), 100000, (-2 ** 30, 2 ** 30))
