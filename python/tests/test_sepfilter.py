"""Separable and Gaussian filters against references written here in numpy:
products in double added in tap order, two passes through an image of the
element type, the Gaussian kernels built tap by tap."""

import math

import numpy as np
import pytest

import sorn
from conftest import random_image

TYPES = [np.uint8, np.int16, np.int32, np.float32]
PAD_MODES = {"reflect101": "reflect", "reflect": "symmetric", "replicate": "edge",
             "wrap": "wrap", "const": "constant"}


def padded(img, top, left, bottom, right, border, value=0):
    widths = [(top, bottom), (left, right)]
    if border == "const":
        return np.pad(img, widths, mode="constant", constant_values=value)
    return np.pad(img, widths, mode=PAD_MODES[border])


def into(acc, dtype):
    """A double sum into the element type: to nearest even and clamped for
    uint8 and int16, to nearest even for int32 (out of range: the least
    int32), narrowed for float32."""
    dtype = np.dtype(dtype)
    if dtype == np.float32:
        return acc.astype(np.float32)
    q = np.rint(acc)
    if dtype == np.int32:
        with np.errstate(invalid="ignore"):
            return np.where((q >= -2147483648.0) & (q < 2147483648.0), q,
                            -2147483648.0).astype(np.int32)
    info = np.iinfo(dtype)
    return np.clip(q, info.min, info.max).astype(dtype)


def correlate(x, taps, axis, n, dtype):
    """One pass: n outputs along axis from x, which holds n + len(taps) - 1
    cells there; a kernel of None is the box, the float32 mean."""
    def cells(t):
        return x[t:t + n] if axis == 0 else x[:, t:t + n]
    if taps is None:
        k = x.shape[axis] - n + 1
        wide = np.float64 if np.dtype(dtype).kind == "f" else np.int64
        s = sum(cells(t).astype(wide) for t in range(k))
        mean = s.astype(np.float32) * (np.float32(1) / np.float32(k))
        if np.dtype(dtype).kind == "f":
            return mean
        info = np.iinfo(dtype)
        return np.clip(np.rint(mean.astype(np.float64)), info.min, info.max).astype(dtype)
    acc = taps[0] * cells(0).astype(np.float64)
    for t in range(1, len(taps)):
        acc = acc + taps[t] * cells(t).astype(np.float64)
    return into(acc, dtype)


def sep_reference(img, ky, kx, size, anchor, border="reflect101", value=0):
    """One channel: the column kernel ky and the row kernel kx, the rows
    first when w - 1 >= 2 * h, the intermediate in the element type."""
    h, w = size
    ay, ax = anchor
    rows, cols = img.shape
    p = padded(img, ay, ax, h - 1 - ay, w - 1 - ax, border, value)
    if h == 1:
        return correlate(p, kx, 1, cols, img.dtype)
    if w == 1:
        return correlate(p, ky, 0, rows, img.dtype)
    if w - 1 >= 2 * h:
        return correlate(correlate(p, kx, 1, cols, img.dtype), ky, 0, rows, img.dtype)
    return correlate(correlate(p, ky, 0, rows, img.dtype), kx, 1, cols, img.dtype)


def per_channel(reference, img, *args, **kwargs):
    if img.ndim == 2:
        return reference(img, *args, **kwargs)
    value = kwargs.pop("value", 0)
    values = np.broadcast_to(np.asarray(value, np.float64), (img.shape[2],))
    return np.stack([reference(img[..., c], *args, value=values[c], **kwargs)
                     for c in range(img.shape[2])], axis=-1)


def default_sigma(n):
    return ((n - 1) * 0.5 - 1.0) * 0.3 + 0.8


def sigmas_of(h, w, sigma):
    """Each axis's sigma: from its size, or the given ones with a 0 taking
    its neighbour's value."""
    if sigma is None:
        return [default_sigma(h), default_sigma(w)]
    given = [float(sigma)] * 2 if np.ndim(sigma) == 0 else [float(s) for s in sigma]
    if all(s == 0 for s in given):
        return [default_sigma(h), default_sigma(w)]
    first = next(s for s in given if s != 0)
    out, last = [], first
    for s in given:
        last = s if s != 0 else last
        out.append(last)
    return out


def gaussian_kernel(n, anchor, sigma):
    k = [math.exp(float(-((anchor - t) * (anchor - t))) / ((sigma + sigma) * sigma))
         for t in range(n)]
    total = 0.0
    for v in k:
        total += v
    return [v / total for v in k]


def gaussian_reference(img, size, sigma=None, anchor=None, border="reflect101", value=0):
    h, w = size
    anchor = anchor or (h // 2, w // 2)
    sy, sx = sigmas_of(h, w, sigma)
    ky, kx = gaussian_kernel(h, anchor[0], sy), gaussian_kernel(w, anchor[1], sx)
    return sep_reference(img, ky, kx, size, anchor, border, value)


def image(rng, shape, dtype):
    if np.dtype(dtype) == np.float32:
        return random_image(rng, shape, dtype, -1e4, 1e4)
    return random_image(rng, shape, dtype)


# Windows (rows, columns): each kernel shape the library has, the order of
# the two passes both ways.
SIZES = [(3, 3), (5, 5), (1, 3), (1, 5), (1, 8), (3, 1), (5, 1), (9, 1), (2, 9), (9, 2), (4, 6),
         (7, 4)]


# ---------------------------------------------------------------- separable

@pytest.mark.parametrize("dtype", TYPES)
@pytest.mark.parametrize("size", SIZES)
def test_kernels_of_every_shape_sum_in_double_in_tap_order(rng, dtype, size):
    img = image(rng, (11, 17), dtype)
    ky = list(rng.uniform(-1, 1.5, size[0]))
    kx = list(rng.uniform(-1, 1.5, size[1]))
    if size[0] == 1:
        ky = [1.0]
    if size[1] == 1:
        kx = [1.0]
    anchor = (size[0] // 2, size[1] // 2)
    got = sorn.sep_filter(img, ky, kx)
    assert got.dtype == img.dtype and got.shape == img.shape
    np.testing.assert_array_equal(got, sep_reference(img, ky, kx, size, anchor))


@pytest.mark.parametrize("dtype", TYPES)
@pytest.mark.parametrize("channels", [1, 2, 3, 4])
def test_every_channel_is_filtered_alone(rng, dtype, channels):
    img = image(rng, (9, 12, channels), dtype)
    ky, kx = [0.25, 0.5, 0.25], [0.1, 0.2, 0.4, 0.2, 0.1]
    want = per_channel(sep_reference, img, ky, kx, (3, 5), (1, 2))
    np.testing.assert_array_equal(sorn.sep_filter(img, ky, kx), want)


@pytest.mark.parametrize("border", list(PAD_MODES))
@pytest.mark.parametrize("anchor", [None, (0, 0), (2, 1), (0, 4)])
def test_borders_and_anchors(rng, border, anchor):
    img = image(rng, (10, 13, 3), np.int16)
    ky, kx = [1, -2, 3], [0.5, 0.25, -0.75, 1.0, 0.125]
    a = anchor or (1, 2)
    value = (7, -300, 20)
    got = sorn.sep_filter(img, ky, kx, anchor=anchor, border=border, value=value)
    want = per_channel(sep_reference, img, ky, kx, (3, 5), a, border=border, value=value)
    np.testing.assert_array_equal(got, want)


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.int32])
def test_a_kernel_of_none_is_the_box_along_its_axis(rng, dtype):
    # The box sums in float32, exact for int32 within a few thousands.
    img = random_image(rng, (12, 15), dtype, *((-5000, 5000) if dtype == np.int32 else ()))
    kx = [0.2, -0.3, 1.1]
    for ky, kxx, size in ((None, kx, (5, 3)), ([0.5, 0.5], None, (2, 4)), (None, None, (3, 7))):
        anchor = (size[0] // 2, size[1] // 2)
        got = sorn.sep_filter(img, ky, kxx, size=size)
        np.testing.assert_array_equal(got, sep_reference(img, ky, kxx, size, anchor))
    # Both boxes by default: 3 by 3, rounded between the passes.
    np.testing.assert_array_equal(sorn.sep_filter(img),
                                  sep_reference(img, None, None, (3, 3), (1, 1)))


def test_a_box_of_float32_is_the_mean_to_the_last_bits_of_its_running_sums(rng):
    img = image(rng, (12, 15), np.float32)
    got = sorn.sep_filter(img, None, [0.5, 0.5], size=(3, 2))
    want = sep_reference(img, None, [0.5, 0.5], (3, 2), (1, 1))
    np.testing.assert_allclose(got, want, rtol=1e-5, atol=1e-2)


def test_one_tap_kernels_scale_the_other_axis_and_one_cell_is_a_copy(rng):
    img = image(rng, (8, 9), np.int16)
    kx = [0.5, 1.0, -0.25]
    np.testing.assert_array_equal(sorn.sep_filter(img, [2.0], kx),
                                  sep_reference(img, None, [2 * k for k in kx], (1, 3), (0, 1)))
    np.testing.assert_array_equal(sorn.sep_filter(img, kx, [3.0]),
                                  sep_reference(img, [3 * k for k in kx], None, (3, 1), (1, 0)))
    np.testing.assert_array_equal(sorn.sep_filter(img, [1.0], [1.0]), img)
    np.testing.assert_array_equal(sorn.sep_filter(img, size=1), img)
    np.testing.assert_array_equal(sorn.gaussian_filter(img, 1), img)
    with pytest.raises(ValueError, match="one cell"):
        sorn.sep_filter(img, [2.0], [1.0])
    with pytest.raises(ValueError, match="beside a box"):
        sorn.sep_filter(img, [2.0], None, size=(1, 3))


def test_views_stacks_and_out(rng):
    base = image(rng, (3, 30, 40, 2), np.uint8)
    ky, kx = [0.25, 0.5, 0.25], [1 / 3, 1 / 3, 1 / 3]
    view = base[0, 2:22:2, ::-3]                 # every other row, columns backwards
    want = per_channel(sep_reference, view, ky, kx, (3, 3), (1, 1))
    np.testing.assert_array_equal(sorn.sep_filter(view, ky, kx), want)
    out = np.zeros((12, 16, 2), np.uint8)
    r = sorn.sep_filter(view, ky, kx, out=out[1:11, 1:15])
    np.testing.assert_array_equal(r, want)
    assert out[0].sum() == 0 and out[:, 0].sum() == 0
    # A stack, plane by plane, each with the border of its own.
    stack = base[:, ::2, 5:25]
    got = sorn.sep_filter(stack, ky, kx, border="wrap")
    for p in range(3):
        np.testing.assert_array_equal(
            got[p], per_channel(sep_reference, stack[p], ky, kx, (3, 3), (1, 1), border="wrap"))
    g = sorn.gaussian_filter(stack, (3, 5), sigma=1.3)
    for p in range(3):
        np.testing.assert_array_equal(
            g[p], per_channel(gaussian_reference, stack[p], (3, 5), 1.3))


def test_refusals(rng):
    img = image(rng, (6, 7), np.uint8)
    for f in (lambda x: sorn.sep_filter(x, [1, 2, 1], [1]), lambda x: sorn.gaussian_filter(x)):
        with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
            f(img.astype(np.float64))
        with pytest.raises(TypeError, match="uint8, int16, int32, float32"):
            f(img.astype(np.uint16))
    with pytest.raises(ValueError, match="anchor"):
        sorn.sep_filter(img, [1, 2, 1], [1, 1], anchor=(3, 0))
    with pytest.raises(ValueError, match="anchor"):
        sorn.gaussian_filter(img, 3, anchor=(0, 3))
    with pytest.raises(ValueError):
        sorn.gaussian_filter(img, 0)
    with pytest.raises(ValueError):
        sorn.sep_filter(img, [[1, 2], [3, 4]], [1])
    with pytest.raises(ValueError):
        sorn.sep_filter(img, [], [1])
    with pytest.raises(ValueError, match="agree"):
        sorn.sep_filter(img, [1, 2, 1], None, size=(5, 3))
    with pytest.raises(TypeError):
        sorn.sep_filter(img, "abc", [1])
    with pytest.raises(ValueError, match="border"):
        sorn.gaussian_filter(img, border="mirror")
    with pytest.raises(TypeError, match="sigma"):
        sorn.gaussian_filter(img, sigma="wide")
    with pytest.raises(ValueError, match="values for 3 channels"):
        sorn.gaussian_filter(np.dstack([img] * 3), border="const", value=(1, 2))
    with pytest.raises(ValueError):
        sorn.sep_filter(img, [1, 2, 1], [1, 2, 1], out=img)
    with pytest.raises(ValueError):
        sorn.gaussian_filter(np.dstack([img] * 2), out=np.empty((6, 7, 3), np.uint8))


# ---------------------------------------------------------------- Gaussian

@pytest.mark.parametrize("dtype", TYPES)
@pytest.mark.parametrize("size", [5, (3, 3), (3, 7), (1, 5), (7, 1), (6, 4), (2, 11)])
@pytest.mark.parametrize("sigma", [None, 0, 1.5, (0, 2.0), (3.0, 0), (0.7, 1.9)])
def test_gaussian_kernels_are_built_tap_by_tap(rng, dtype, size, sigma):
    img = image(rng, (13, 14), dtype)
    hw = (size, size) if np.ndim(size) == 0 else size
    got = sorn.gaussian_filter(img, size, sigma=sigma)
    np.testing.assert_array_equal(got, gaussian_reference(img, hw, sigma))


def test_the_default_is_five_by_five_with_sigma_one_point_one(rng):
    img = image(rng, (9, 9), np.float32)
    want = sep_reference(img, gaussian_kernel(5, 2, 1.1), gaussian_kernel(5, 2, 1.1), (5, 5),
                         (2, 2))
    np.testing.assert_array_equal(sorn.gaussian_filter(img), want)
    assert default_sigma(3) == 0.8 and default_sigma(5) == 1.1


@pytest.mark.parametrize("border", list(PAD_MODES))
def test_gaussian_borders_anchors_and_channels(rng, border):
    img = image(rng, (10, 11, 4), np.uint8)
    for anchor in (None, (0, 0), (4, 1)):
        got = sorn.gaussian_filter(img, 5, anchor=anchor, border=border, value=(1, 2, 3, 250))
        want = per_channel(gaussian_reference, img, (5, 5), None, anchor, border=border,
                           value=(1, 2, 3, 250))
        np.testing.assert_array_equal(got, want)


def test_a_flat_image_stays_flat():
    for dtype in (np.uint8, np.int16, np.int32):
        img = np.full((8, 9), 77, dtype)
        for size in (3, 5, (3, 7), (9, 5)):
            np.testing.assert_array_equal(sorn.gaussian_filter(img, size), img)


def test_an_anchor_at_the_start_gives_a_one_sided_kernel():
    img = np.zeros((1, 12), np.float32)
    img[0, 6] = 1000
    got = sorn.gaussian_filter(img, (1, 5), anchor=(0, 0))
    k = gaussian_kernel(5, 0, 1.1)
    assert k[0] > k[1] > k[2]
    # Output i reads cells i .. i + 4: the peak at 6 reaches outputs 2 to 6.
    np.testing.assert_array_equal(got[0, 2:7], np.float32([1000 * v for v in k[::-1]]))
    assert got[0, 6] == got[0].max()


def test_tiles_on_dask_give_the_filter_of_the_whole_image(rng):
    da = pytest.importorskip("dask.array")
    import sorn.dask as sd
    img = image(rng, (40, 50), np.int16)
    x = da.from_array(img, chunks=(13, 17))
    g = sd.gaussian_filter(x, (5, 3), sigma=1.2, border="replicate")
    np.testing.assert_array_equal(g.compute(scheduler="synchronous"),
                                  sorn.gaussian_filter(img, (5, 3), sigma=1.2,
                                                       border="replicate"))
    ky, kx = [0.1, 0.2, 0.3, 0.4], [1, -1]
    s = sd.sep_filter(x, ky, kx, anchor=(0, 1))
    np.testing.assert_array_equal(s.compute(scheduler="synchronous"),
                                  sorn.sep_filter(img, ky, kx, anchor=(0, 1)))
