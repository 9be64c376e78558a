"""Component trees and stable regions: the trees' own laws, shapes whose
regions are known, and agreement with the sorn tool, which calls the library
from C."""

import json
import os
import pickle
import subprocess
from collections import deque

import numpy as np
import pytest

import sorn
from conftest import random_image


def blobs(size=64):
    """A bright field with a dark square and a brighter square."""
    img = np.full((size, size), 150, np.uint8)
    img[10:30, 12:32] = 40
    img[40:56, 36:60] = 240
    return img


def smooth_noise(rng, shape):
    x = rng.normal(size=shape)
    for axis in (0, 1):
        x = (x + np.roll(x, 1, axis) + np.roll(x, -1, axis)) / 3
    x = (x - x.min()) / (x.max() - x.min())
    return (x * 255).astype(np.uint8)


def connected(points, connectivity):
    """Whether a set of (row, column) points is one connected set."""
    todo = {tuple(p) for p in points}
    if not todo:
        return True
    steps = [(0, 1), (1, 0), (0, -1), (-1, 0)]
    if connectivity == 8:
        steps += [(1, 1), (1, -1), (-1, 1), (-1, -1)]
    queue = deque([todo.pop()])
    while queue:
        r, c = queue.popleft()
        for dr, dc in steps:
            q = (r + dr, c + dc)
            if q in todo:
                todo.remove(q)
                queue.append(q)
    return not todo


@pytest.mark.parametrize("bright", [False, True])
@pytest.mark.parametrize("connectivity", [4, 8])
def test_a_component_tree_obeys_its_laws(rng, bright, connectivity):
    img = smooth_noise(rng, (40, 45))
    t = sorn.component_tree(img, bright=bright, connectivity=connectivity)
    assert len(t) > 5 and t.parent[0] == -1 and (t.parent[1:] >= 0).all()
    assert (t.parent[1:] < np.arange(1, len(t))).all()  # pre-order
    seen = set()
    for i in range(len(t)):
        px = t.pixels(i)
        assert len(px) == t.size[i]
        kids = t.children(i)
        assert t.size[i] == t.own[i] + t.size[kids].sum()
        values = img[px[:, 0], px[:, 1]]
        assert (values >= t.level[i]).all() if bright else (values <= t.level[i]).all()
        if len(kids):
            assert ((t.level[kids] > t.level[i]) if bright else (t.level[kids] < t.level[i])).all()
        assert connected(px, connectivity)
        own = {tuple(p) for p in t.own_pixels(i)}
        assert not own & seen
        seen |= own
    assert t.size[0] == img.size


def test_a_bright_tree_is_the_dark_tree_of_the_inverted_image(rng):
    img = smooth_noise(rng, (30, 33))
    bright, dark = sorn.component_tree(img, bright=True), sorn.component_tree(255 - img)
    np.testing.assert_array_equal(bright.parent, dark.parent)
    np.testing.assert_array_equal(bright.level, 255 - dark.level)
    np.testing.assert_array_equal(bright.points, dark.points)


def test_a_tree_under_a_mask_leaves_the_masked_pixels_out(rng):
    img = smooth_noise(rng, (30, 30))
    mask = np.ones((30, 30), bool)
    mask[:, 10:13] = False
    t = sorn.component_tree(img, mask=mask)
    px = t.points
    assert not (~mask[px[:, 0], px[:, 1]]).any()
    assert t.size[0] <= mask.sum()


def test_trees_of_flat_images_and_bad_arguments():
    assert len(sorn.component_tree(np.full((10, 10), 7, np.uint8))) == 0
    img = blobs()
    with pytest.raises(TypeError):
        sorn.component_tree(img.astype(np.int16))
    with pytest.raises(ValueError):
        sorn.component_tree(np.zeros((4, 4, 3), np.uint8))
    with pytest.raises(ValueError):
        sorn.component_tree(img, connectivity=6)
    with pytest.raises(ValueError):
        sorn.component_tree(img, seed=(64, 0))


@pytest.mark.parametrize("plain", [False, True])
def test_stable_regions_find_the_squares(plain):
    img = blobs()
    r = sorn.mser(img, plain=plain)
    dark = [set(map(tuple, r[i])) for i in range(len(r)) if r.dark[i]]
    bright = [set(map(tuple, r[i])) for i in range(len(r)) if not r.dark[i]]
    square = {(y, x) for y in range(10, 30) for x in range(12, 32)}
    patch = {(y, x) for y in range(40, 56) for x in range(36, 60)}
    assert square in dark
    assert patch in bright
    for i in range(len(r)):
        assert len(r[i]) == r.size[i]
    assert sorn.mser(img, mode="dark").dark.all()
    assert not sorn.mser(img, mode="bright").dark.any()


def test_the_fast_flooding_leaves_column_zero_out():
    img = blobs()
    img[10:30, 0:20] = 40
    fast, plain = sorn.mser(img, mode="dark"), sorn.mser(img, mode="dark", plain=True)
    assert fast.points[:, 1].min() >= 1
    assert plain.points[:, 1].min() == 0


def test_regions_are_plain_picklable_data(rng):
    r = sorn.mser(smooth_noise(rng, (60, 70)))
    back = pickle.loads(pickle.dumps(r))
    assert back == r and len(back) == len(r) > 0
    boxes = r.bounding_boxes()
    for i in range(len(r)):
        assert r.label(i).sum() == r.size[i]
        assert boxes[i, 0] == r[i][:, 0].min() and boxes[i, 3] == r[i][:, 1].max()
    t = sorn.component_tree(smooth_noise(rng, (20, 20)))
    t2 = pickle.loads(pickle.dumps(t))
    np.testing.assert_array_equal(t2.pixels(3), t.pixels(3))


def test_stable_region_arguments_are_checked():
    img = blobs()
    with pytest.raises(ValueError):
        sorn.mser(img, mode="grey")
    with pytest.raises(ValueError):
        sorn.mser(img, connectivity=8)
    with pytest.raises(ValueError):
        sorn.mser(img, max_area=float("nan"))
    with pytest.raises(ValueError):
        sorn.mser(img, delta=300)
    assert len(sorn.mser(img, plain=True, connectivity=8)) > 0


TOOL = os.environ.get("SORN_TOOL")


@pytest.mark.skipif(not TOOL, reason="the sorn tool is built with libpng only")
def test_stable_regions_agree_with_the_sorn_tool(rng, tmp_path):
    img = smooth_noise(rng, (90, 120))
    pgm = tmp_path / "in.pgm"
    pgm.write_bytes(b"P5\n120 90\n255\n" + img.tobytes())
    out = tmp_path / "regions.json"
    subprocess.run([TOOL, "mser", str(pgm), "--json", str(out)], check=True,
                   stdout=subprocess.DEVNULL)
    listed = json.loads(out.read_text())["regions"]
    r = sorn.mser(img)
    assert len(listed) == len(r) > 0
    boxes = r.bounding_boxes()
    # The tool lists the regions in an order of its own: the same regions,
    # each with its pass, level, size, pixel count and bounding box.
    tool = sorted((reg["pass"], reg["level"], reg["size"], reg["pixels"], reg["bbox"]["y"],
                   reg["bbox"]["x"], reg["bbox"]["height"], reg["bbox"]["width"])
                  for reg in listed)
    mine = sorted(("dark" if r.dark[i] else "bright", int(r.level[i]), int(r.size[i]), len(r[i]),
                   int(boxes[i, 0]), int(boxes[i, 1]), int(boxes[i, 2] - boxes[i, 0] + 1),
                   int(boxes[i, 3] - boxes[i, 1] + 1)) for i in range(len(r)))
    assert tool == mine
