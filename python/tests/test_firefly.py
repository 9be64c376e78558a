"""The firefly filter: its blurs against the script rebuilt from
sorn.gaussian_filter, sorn.multiply and sorn.muladd; its rank kinds against
a reference written here in numpy (histogram, gain, the rank by a scan of
every window, the mix with the whole-number constants of the arithmetic);
channels, stacks, the kinds by name and number, and the refusals."""

import numpy as np
import pytest

import sorn
from conftest import random_image

TYPES = [np.uint8, np.int16, np.int32, np.float32]


def blurs_script(img, window, weights):
    """Three Gaussians (the window, 5 and 15 times it) mixed by the constant
    forms: dst * w0/sum, + blur1 * w1/sum, + blur2 * w2/sum."""
    total = float(sum(weights))
    views = [sorn.gaussian_filter(img, t * window) for t in (1, 5, 15)]
    dst = sorn.multiply(views[0], weights[0] / total)
    for view, w in zip(views[1:], weights[1:]):
        dst = sorn.muladd(dst, view, w / total)
    return dst


@pytest.mark.parametrize("dtype", TYPES)
def test_blurs_are_their_script(rng, dtype):
    img = random_image(rng, (37, 45), dtype, 0, 200)
    np.testing.assert_array_equal(sorn.firefly(img), blurs_script(img, 5, (1, 6, 9)))
    np.testing.assert_array_equal(sorn.firefly(img, 5, window=3, weights=(2, -1, 3)),
                                  blurs_script(img, 3, (2, -1, 3)))


def test_a_flat_byte_image_keeps_fifteen_sixteenths_and_float_all():
    # 1/16 is a whole-number constant in bytes: 0; 6/16 and 9/16 stay.
    np.testing.assert_array_equal(sorn.firefly(np.full((20, 30), 100, np.uint8)),
                                  np.full((20, 30), 94, np.uint8))
    np.testing.assert_allclose(sorn.firefly(np.full((20, 30), 100, np.float32)), 100.0,
                               rtol=1e-5)


def rank_of(img, side):
    """Each pixel's count of pixels at most its value in the side by side
    window (anchor side // 2) of the image reflected about its edge pixels,
    shifted left by 8 - 2k (side = 2^k) and saturated to a byte; a count of
    256 is 0 in the 8-bit counters of windows of 256 pixels."""
    a = side // 2
    padded = np.pad(img, ((a, side - 1 - a), (a, side - 1 - a)), mode="reflect")
    win = np.lib.stride_tricks.sliding_window_view(padded, (side, side))
    count = (win <= img[:, :, None, None]).sum(axis=(2, 3))
    if side == 16:
        count = count % 256
    k = side.bit_length() - 1
    return np.clip(count.astype(np.int64) << (8 - 2 * k), 0, 255)


def gain_of(img, num, den):
    counts = np.bincount(img.ravel(), minlength=256)
    target = int(num / den * img.size)
    first = int(np.nonzero(counts)[0][0])
    q, total = first, counts[first]
    while total <= target and q < 255:
        q += 1
        total += counts[q]
    return 255.0 / (q if q else 1)


def whole(c):
    """A constant of the byte arithmetic: rounded to a whole number."""
    return float(np.rint(c))


def crb_reference(img, side, num, den, w):
    g = np.clip(img.astype(np.int64) * whole(gain_of(img, num, den)), 0, 255)
    t = np.clip(g * w[1], -32768, 32767)
    t = np.clip(t + rank_of(img, side) * w[2], -32768, 32767)
    t = np.clip(t + img.astype(np.int64) * w[0], -32768, 32767)
    return np.clip(t * whole(1.0 / sum(w)), 0, 255).astype(np.uint8)


def crbln_reference(img, side, num, den, w):
    g = np.clip(img.astype(np.float64) * whole(gain_of(img, num, den)), 0, 255)
    a = np.log1p(img.astype(np.float32)).astype(np.float32)
    b = np.log1p(rank_of(img, side).astype(np.float32)).astype(np.float32)
    c = a - b
    a = a - np.log1p(g.astype(np.float32)).astype(np.float32)
    c = c * np.float32(w[2]) + a * np.float32(w[1])
    lo, hi = float(c.min()), float(c.max())
    if hi - lo <= 2 ** -23:
        return np.zeros(img.shape, np.uint8)
    return np.clip(np.rint((c - lo) * (255.0 / (hi - lo))), 0, 255).astype(np.uint8)


@pytest.mark.parametrize("side", [2, 4, 8, 16])
def test_the_linear_rank_mix_is_its_reference(rng, side):
    img = random_image(rng, (29, 34), np.uint8)
    for w in [(0, 0, 1), (1, 1, -1), (2, 0, -1), (0, 1, 0)]:
        got = sorn.firefly(img, "crb", weights=w, rank_window=side, quantile=(1, 3))
        np.testing.assert_array_equal(got, crb_reference(img, side, 1, 3, w), err_msg=str(w))
    # Weights adding up to more than 2 divide by the whole number 0.
    assert not sorn.firefly(img, 3, weights=(1, 6, 9), rank_window=side).any()


@pytest.mark.parametrize("side", [4, 8])
def test_the_log_ratio_mix_is_its_reference_to_one_level(rng, side):
    img = random_image(rng, (31, 27), np.uint8, 10, 240)
    got = sorn.firefly(img, "crbln", rank_window=side, quantile=0.5)
    want = crbln_reference(img, side, 5000, 10000, (1, 6, 9))
    # The library's logarithm is an approximation of its own.
    assert np.abs(got.astype(int) - want.astype(int)).max() <= 1
    assert (got == want).mean() > 0.95


def test_channels_stacks_kinds_and_out(rng):
    img = random_image(rng, (2, 19, 23, 3), np.uint8)
    got = sorn.firefly(img, "gauss", window=3)
    for p in range(2):
        for c in range(3):
            np.testing.assert_array_equal(got[p, :, :, c], sorn.firefly(img[p, :, :, c], 5, window=3))
    out = np.zeros_like(img)
    assert sorn.firefly(img, "copy", out=out) is out
    np.testing.assert_array_equal(out, img)
    plane = img[0, :, :, 0]
    np.testing.assert_array_equal(sorn.firefly(plane, "crbln"), sorn.firefly(plane, 4))
    np.testing.assert_array_equal(sorn.firefly(plane, "crb", quantile=0.25),
                                  sorn.firefly(plane, 3, quantile=(2500, 10000)))


def test_refusals(rng):
    img = random_image(rng, (16, 16), np.uint8)
    with pytest.raises(ValueError):
        sorn.firefly(img, "median")
    with pytest.raises(ValueError):
        sorn.firefly(img, 6)
    with pytest.raises(ValueError):
        sorn.firefly(img, window=(3, 5))
    with pytest.raises(ValueError):
        sorn.firefly(img, "crb", rank_window=12)
    with pytest.raises(ValueError):
        sorn.firefly(img, "crb", quantile=1.0)
    with pytest.raises(ValueError):
        sorn.firefly(img, "crb", quantile=(3, 3))
    with pytest.raises(ValueError):
        sorn.firefly(img, weights=(1, 2))
    with pytest.raises(TypeError):
        sorn.firefly(img.astype(np.float32), "crbln")
    with pytest.raises(TypeError):
        sorn.firefly(img.astype(np.uint16))
