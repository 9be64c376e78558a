"""Fill, matrix products and comparison."""

import numpy as np
import pytest

import sorn
from conftest import random_image


# ---------------------------------------------------------------- fill

def test_fill_rounds_to_even_and_saturates():
    img = np.zeros((3, 4), np.uint8)
    assert sorn.fill(img, 255.5) is img and (img == 255).all()
    sorn.fill(img, 254.5)
    assert (img == 254).all()
    s8 = np.zeros((2, 2), np.int8)
    assert (sorn.fill(s8, -127.6) == -128).all()
    u32 = np.zeros((2, 2), np.uint32)
    assert (sorn.fill(u32, 5e9) == 0).all()
    f = np.zeros((2, 3, 3), np.float32)
    np.testing.assert_array_equal(sorn.fill(f, (1.5, -2, 3.25)), np.broadcast_to([1.5, -2, 3.25], f.shape))


def test_fill_through_pixel_and_element_masks(rng):
    img = random_image(rng, (9, 10, 3), np.uint8)
    mask = rng.random((9, 10)) < 0.5
    want = img.copy()
    want[mask] = (1, 2, 3)
    np.testing.assert_array_equal(sorn.fill(img.copy(), (1, 2, 3), mask=mask), want)
    both = img.copy()
    sorn.fill(both, 9, mask=mask, outside=(4, 5, 6))
    want[~mask] = (4, 5, 6)
    want[mask] = 9
    np.testing.assert_array_equal(both, want)
    elements = rng.random((9, 10, 3)) < 0.5
    want = img.copy()
    want[elements] = 77
    np.testing.assert_array_equal(sorn.fill(img.copy(), 77, mask=elements), want)


def test_fill_of_a_view_and_a_stack(rng):
    big = np.zeros((10, 20), np.int16)
    sorn.fill(big[:, ::2], -5)
    assert (big[:, ::2] == -5).all() and (big[:, 1::2] == 0).all()
    stack = np.zeros((3, 4, 5, 1), np.float32)
    assert (sorn.fill(stack[::-1], 2.5) == 2.5).all()
    ro = np.zeros((2, 2), np.uint8)
    ro.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        sorn.fill(ro, 1)
    with pytest.raises(TypeError):
        sorn.fill(np.zeros((2, 2)), 1)


def test_a_masked_fill_of_a_layout_it_copies_keeps_the_other_pixels(rng):
    big = random_image(rng, (8, 16), np.uint8)
    before = big.copy()
    mask = rng.random((8, 8)) < 0.5
    sorn.fill(big[:, ::2], 0, mask=mask)
    view = before[:, ::2].copy()
    view[mask] = 0
    np.testing.assert_array_equal(big[:, ::2], view)
    np.testing.assert_array_equal(big[:, 1::2], before[:, 1::2])


# ---------------------------------------------------------------- matmul

def test_matmul_of_floats_matrices_vectors_and_lists(rng):
    a = random_image(rng, (7, 5), np.float32, -1, 1)
    b = random_image(rng, (5, 9), np.float32, -1, 1)
    np.testing.assert_allclose(sorn.matmul(a, b), a @ b, rtol=1e-5, atol=1e-6)
    v = random_image(rng, (5,), np.float32, -1, 1)
    np.testing.assert_allclose(sorn.matmul(a, v), a @ v, rtol=1e-5, atol=1e-6)
    vs = [random_image(rng, (5,), np.float32, -1, 1) for _ in range(3)]
    np.testing.assert_allclose(sorn.matmul(a, vs), a @ np.stack(vs, axis=1), rtol=1e-5, atol=1e-6)


def test_matmul_reads_a_transposed_second_source_in_place(rng):
    a = random_image(rng, (6, 40), np.float32, -1, 1)
    c = random_image(rng, (30, 40), np.float32, -1, 1)
    before = sorn._copies_made()
    np.testing.assert_allclose(sorn.matmul(a, c.T), a @ c.T, rtol=1e-5, atol=1e-5)
    assert sorn._copies_made() == before


def test_integer_products_sum_exactly_or_saturate(rng):
    a = random_image(rng, (6, 8), np.uint8, 0, 40)
    b = random_image(rng, (8, 5), np.uint8, 0, 40)
    exact = a.astype(np.int64) @ b
    r = sorn.matmul(a, b)
    assert r.dtype == np.int32
    np.testing.assert_array_equal(r, exact)
    np.testing.assert_array_equal(sorn.matmul(a, b, dtype=np.uint8), np.clip(exact, 0, 255))
    np.testing.assert_array_equal(sorn.matmul(a, b, dtype=np.int16), np.clip(exact, None, 32767))
    np.testing.assert_array_equal(sorn.matmul(a, b, shift=-1),
                                  np.rint(exact / 2.0).astype(np.int64))
    s = np.array([[3]], np.uint8), np.array([[1]], np.uint8)
    assert sorn.matmul(*s, shift=-1, dtype=np.uint8)[0, 0] == 2
    assert sorn.matmul(np.array([[16]], np.uint8), np.array([[16]], np.uint8),
                       dtype=np.uint8)[0, 0] == 255


def test_matmul_arguments_are_checked():
    a = np.zeros((3, 4), np.float32)
    with pytest.raises(ValueError, match="columns"):
        sorn.matmul(a, np.zeros((5, 2), np.float32))
    with pytest.raises(TypeError, match="one type"):
        sorn.matmul(a, np.zeros((4, 2), np.int32))
    with pytest.raises(TypeError):
        sorn.matmul(np.zeros((3, 4), np.int16), np.zeros((4, 2), np.int16))
    with pytest.raises(ValueError):
        sorn.matmul(a, [])


# ---------------------------------------------------------------- compare

OPS = {"==": np.equal, "!=": np.not_equal, "<": np.less, "<=": np.less_equal,
       ">": np.greater, ">=": np.greater_equal}


@pytest.mark.parametrize("dtype", [np.uint8, np.int8, np.int16, np.int32])
def test_compare_masks_of_integer_images(rng, dtype):
    a = random_image(rng, (9, 13, 3), dtype, -5 if np.dtype(dtype).kind == "i" else 0, 5)
    b = random_image(rng, (9, 13, 3), dtype, -5 if np.dtype(dtype).kind == "i" else 0, 5)
    for op, ref in OPS.items():
        np.testing.assert_array_equal(sorn.compare(a, b, op), np.where(ref(a, b), 255, 0))
        np.testing.assert_array_equal(sorn.compare(a, 2, op), np.where(ref(a, 2), 255, 0))
        np.testing.assert_array_equal(sorn.compare(2, a, op), np.where(ref(2, a), 255, 0))
        wide = sorn.compare(a, b, op, dtype=np.int32)
        np.testing.assert_array_equal(wide, np.where(ref(a, b), -1, 0))


def test_compare_of_floats_has_a_tolerance_and_a_mask_value_of_its_own():
    a = np.array([[1.0, 1.0, np.nan, 3.0]], np.float32)
    b = np.array([[1.0 + 1e-7, 2.0, 1.0, 3.0]], np.float32)
    assert sorn.compare(a, b, "==").tolist() == [[255, 0, 0, 255]]
    assert sorn.compare(a, b, "<").tolist() == [[0, 255, 0, 0]]
    assert sorn.compare(a, b, "!=").tolist() == [[0, 255, 255, 0]]
    f = sorn.compare(a, b, "==", dtype=np.float32)
    assert f.view(np.uint32)[0, 0] == 0x3FFFFFFF


def test_compare_writes_values_sources_or_keeps(rng):
    a = random_image(rng, (6, 7), np.uint8)
    r = sorn.compare(a, 128, "<", true=0, false="source")
    np.testing.assert_array_equal(r, np.where(a < 128, 0, a))
    out = np.full((6, 7), 9, np.uint8)
    sorn.compare(a, 128, ">=", true=200, out=out)
    np.testing.assert_array_equal(out, np.where(a >= 128, 200, 9))
    # A constant is rounded into the image's type first: < 3.5 is < 4.
    assert sorn.compare(np.array([[3, 4]], np.uint8), 3.5, "<").tolist() == [[255, 0]]
    with pytest.raises(ValueError, match="out"):
        sorn.compare(a, 1, "<", true=5)
    with pytest.raises(ValueError, match="op"):
        sorn.compare(a, 1, "=<")
    with pytest.raises(TypeError, match="one type"):
        sorn.compare(a, a.astype(np.int16), "<")
