"""How arrays reach the library: described where they lie for every layout
whose rows the library can walk, copied only where it cannot, and written
back into out= views of any layout."""

import numpy as np
import pytest
from numpy.lib.stride_tricks import as_strided

import sorn
from conftest import random_image


def copies():
    return sorn._copies_made()


def ref_add(a, b):
    return np.clip(a.astype(np.int64) + b, 0, 255).astype(np.uint8)


@pytest.fixture
def pair(rng):
    return (random_image(rng, (24, 40, 3), np.uint8), random_image(rng, (24, 40, 3), np.uint8))


def views(x):
    """Views whose rows the library walks as they lie."""
    return {
        "whole": x,
        "rows": x[3:17],
        "crop": x[2:19, 5:31],
        "every other row": x[::2],
        "upside down": x[::-1],
        "upside down crop": x[20:3:-3, 4:9],
    }


@pytest.mark.parametrize("kind", list(views(np.zeros((2, 2, 3)))))
def test_walkable_views_are_read_in_place(pair, kind):
    a, b = (views(x)[kind] for x in pair)
    before = copies()
    r = sorn.add(a, b)
    assert copies() == before
    np.testing.assert_array_equal(r, ref_add(a, b))
    out = np.zeros_like(pair[0])
    target = views(out)[kind]
    sorn.add(a, b, out=target)
    assert copies() == before
    np.testing.assert_array_equal(target, ref_add(a, b))


def test_rows_repeated_by_a_zero_stride_are_read_in_place(rng):
    row = random_image(rng, (1, 50), np.uint8)
    rows = np.broadcast_to(row, (30, 50))
    assert rows.strides[0] == 0
    others = np.broadcast_to(row[:, ::-1].copy(), (30, 50))
    before = copies()
    np.testing.assert_array_equal(sorn.sum(rows), 30.0 * row.sum())
    np.testing.assert_array_equal(sorn.add(rows, others), ref_add(rows, others))
    assert copies() == before


@pytest.mark.parametrize("make", [
    lambda x: x.T,                         # transposed
    lambda x: x[:, ::-1],                  # columns backwards
    lambda x: x.T[::-1, ::-1],             # both, and rows backwards
])
def test_order_free_operations_read_transposed_and_mirrored_arrays_in_place(rng, make):
    a = make(random_image(rng, (33, 21), np.uint8))
    b = make(random_image(rng, (33, 21), np.uint8))
    before = copies()
    r = sorn.add(a, b)
    assert copies() == before
    np.testing.assert_array_equal(r, ref_add(a, b))
    h = sorn.histogram(a)
    assert copies() == before
    np.testing.assert_array_equal(h, np.bincount(a.ravel(), minlength=256))


def test_layouts_the_library_cannot_walk_are_copied(rng):
    big = random_image(rng, (20, 30, 4), np.uint8)
    other = random_image(rng, (20, 30, 4), np.uint8)
    flat, flat2 = big[..., 0].copy(), other[..., 0].copy()
    cases = [
        (flat[:, ::2], flat2[:, ::2]),           # every other column
        (big[..., :3], other[..., :3]),          # channels picked out of a pixel
        (big[:, :, 1], other[:, :, 2]),          # one channel of each
        (flat[:15, :15].T, flat2[:15, :15]),     # one transposed, one not
    ]
    for a, b in cases:
        before = copies()
        np.testing.assert_array_equal(sorn.add(a, b), ref_add(a, b))
        assert copies() > before


def test_misaligned_elements_are_copied(rng):
    values = random_image(rng, (6 * 7,), np.float32)
    raw = np.zeros(values.nbytes + 1, np.uint8)
    raw[1:] = values.view(np.uint8)
    odd = np.frombuffer(raw.data, dtype=np.float32, offset=1).reshape(6, 7)
    assert not odd.flags.aligned
    before = copies()
    np.testing.assert_array_equal(sorn.add(odd, odd), odd + odd)
    assert copies() > before


def test_out_of_any_layout_receives_the_result(rng):
    a = random_image(rng, (10, 12), np.uint8)
    b = random_image(rng, (10, 12), np.uint8)
    big = np.full((10, 24), 7, np.uint8)
    target = big[:, ::2]
    sorn.add(a, b, out=target)
    np.testing.assert_array_equal(big[:, ::2], ref_add(a, b))
    assert (big[:, 1::2] == 7).all()


def test_fresh_results_follow_the_orientation_the_sources_are_read_in(rng):
    a = random_image(rng, (5, 9), np.uint8).T
    b = random_image(rng, (5, 9), np.uint8).T
    r = sorn.add(a, b)
    np.testing.assert_array_equal(r, ref_add(a, b))
    assert r.shape == a.shape and not r.flags.c_contiguous


def test_the_very_same_array_twice_is_the_library_form_for_like_sources(rng):
    import clib
    x = random_image(rng, (6, 10), np.uint8)
    want = np.zeros_like(x)
    assert clib.arith2("SornAddq", want, x, x) == 0
    np.testing.assert_array_equal(sorn.add(x, x), want)
    np.testing.assert_array_equal(sorn.add(x, x.copy()), ref_add(x, x))


def test_a_record_reaches_at_most_two_gigabytes():
    small = np.zeros(16, np.uint8)
    far = as_strided(small, shape=(2, 2), strides=(2 ** 31, 1))
    with pytest.raises(ValueError, match="2 GiB"):
        sorn.sum(far)
    wide = as_strided(small, shape=(3, 2), strides=(2 ** 30, 1))
    with pytest.raises(ValueError, match="2 GiB"):
        sorn.sum(wide)


def test_a_stack_of_planes_is_read_in_place(rng):
    stack = random_image(rng, (3, 16, 20, 3), np.uint8)
    before = copies()
    sums = sorn.sum(stack)
    assert copies() == before
    np.testing.assert_array_equal(sums, stack.sum(axis=(1, 2)).astype(float))
    np.testing.assert_array_equal(sorn.sum(stack[::-1]), sums[::-1])
