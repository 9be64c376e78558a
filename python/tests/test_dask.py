"""sorn.dask on a local cluster of two worker processes: every result the
same, bit for bit, as the serial run."""

import struct
import zlib

import dask
import dask.array as da
import dask.bag as db
import numpy as np
import pytest
from dask.distributed import Client, LocalCluster

import sorn
import sorn.dask as sd
from sorn import io as sio


@pytest.fixture(scope="module")
def client():
    cluster = LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                           dashboard_address=None)
    c = Client(cluster)
    yield c
    c.close()
    cluster.close()


def pictures(seed, count=6, shape=(96, 128)):
    rng = np.random.default_rng(seed)
    out = []
    for _ in range(count):
        x = rng.normal(size=shape)
        for axis in (0, 1):
            x = (x + np.roll(x, 1, axis) + np.roll(x, -1, axis)) / 3
        out.append(((x - x.min()) / (x.max() - x.min()) * 255).astype(np.uint8))
    return out


def test_batches_of_arrays_and_bags_give_the_serial_results(client):
    images = pictures(1)
    serial = [sorn.mser(img, delta=5) for img in images]
    assert sd.map_images(sorn.mser, images, delta=5) == serial
    assert sd.map_images(sorn.mser, db.from_sequence(images, npartitions=3), delta=5) == serial
    sums = sd.map_images(sorn.histogram, images, 32)
    for got, img in zip(sums, images):
        np.testing.assert_array_equal(got, sorn.histogram(img, 32))


def test_a_folder_of_pictures(client, tmp_path):
    images = pictures(2)
    rgb = np.stack([images[0], images[1], images[2]], axis=2)
    sio.write_png(tmp_path / "a.png", images[0])
    sio.write_pgm(tmp_path / "b.pgm", images[1])
    np.save(tmp_path / "c.npy", images[2])
    sio.write_png(tmp_path / "d.png", rgb)
    (tmp_path / "notes.txt").write_text("not a picture")
    serial = [sorn.mser(img) for img in (images[0], images[1], images[2], sio.grey(rgb))]
    assert sd.stable_regions(tmp_path) == serial
    assert sd.stable_regions(str(tmp_path), read_on_client=True) == serial


@pytest.mark.filterwarnings("ignore:Running on a single-machine scheduler")
@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
def test_tiled_histograms_and_sums_are_those_of_the_whole_image(client, dtype):
    rng = np.random.default_rng(3)
    if dtype == np.float32:
        whole = rng.uniform(-50, 50, size=(900, 700)).astype(dtype)
    else:
        info = np.iinfo(dtype)
        whole = rng.integers(info.min, info.max, size=(900, 700), dtype=dtype)
    x = da.from_array(whole, chunks=(250, 333))
    np.testing.assert_array_equal(sd.histogram(x).compute(), sorn.histogram(whole))
    r = (10, 200) if dtype == np.uint8 else (-40, 40)
    np.testing.assert_array_equal(sd.histogram(x, 17, r).compute(), sorn.histogram(whole, 17, r))
    tiled = sd.sum(x).compute()
    serial = sd.sum(x).compute(scheduler="sync")
    assert tiled == serial
    if dtype == np.float32:
        assert tiled == pytest.approx(sorn.sum(whole), rel=1e-12)
    else:
        assert tiled == sorn.sum(whole)
        assert sd.mean(x).compute() == sorn.sum(whole) / whole.size


def test_tiled_channels_and_element_wise_operations(client):
    rng = np.random.default_rng(4)
    a = rng.integers(0, 255, size=(600, 500, 3), dtype=np.uint8)
    b = rng.integers(0, 255, size=(600, 500, 3), dtype=np.uint8)
    x, y = da.from_array(a, chunks=(200, 128, 1)), da.from_array(b, chunks=(150, 256, 3))
    np.testing.assert_array_equal(sd.sum(x).compute(), sorn.sum(a))
    np.testing.assert_array_equal(sd.histogram(x).compute(), sorn.histogram(a))
    np.testing.assert_array_equal(sd.elementwise(sorn.add, x, y).compute(), sorn.add(a, b))
    np.testing.assert_array_equal(sd.elementwise(sorn.compare, x, y, op="<").compute(),
                                  sorn.compare(a, b, "<"))
    with pytest.raises(TypeError):
        sd.sum(a)


def test_window_filters_of_tiles_are_those_of_the_whole_image(client):
    rng = np.random.default_rng(5)
    u8 = rng.integers(0, 256, size=(500, 430), dtype=np.uint8)
    s16 = rng.integers(-30000, 30000, size=(500, 430), dtype=np.int16)
    x, y = da.from_array(u8, chunks=(120, 97)), da.from_array(s16, chunks=(170, 150))
    # Windows off their centre reach further on one side: the depth is the
    # longer reach.
    np.testing.assert_array_equal(sd.box_filter(x, (5, 9), anchor=(0, 7)).compute(),
                                  sorn.box_filter(u8, (5, 9), anchor=(0, 7)))
    np.testing.assert_array_equal(sd.box_filter(y, 7).compute(), sorn.box_filter(s16, 7))
    np.testing.assert_array_equal(sd.min_filter(y, (3, 11), border="replicate").compute(),
                                  sorn.min_filter(s16, (3, 11), border="replicate"))
    np.testing.assert_array_equal(sd.max_filter(x, 4, border="const", value=9).compute(),
                                  sorn.max_filter(u8, 4, border="const", value=9))
    f32 = rng.uniform(-1, 1, size=(300, 260)).astype(np.float32)
    z = da.from_array(f32, chunks=(100, 90))
    np.testing.assert_array_equal(sd.max_filter(z, 5).compute(), sorn.max_filter(f32, 5))
    # float32 box sums run along each tile: equal to the last bits or so.
    np.testing.assert_allclose(sd.box_filter(z, 5).compute(), sorn.box_filter(f32, 5), atol=1e-6)


def test_firefly_blurs_of_tiles_are_those_of_the_whole_image(client):
    rng = np.random.default_rng(6)
    u8 = rng.integers(0, 256, size=(260, 300), dtype=np.uint8)
    x = da.from_array(u8, chunks=(100, 110))
    np.testing.assert_array_equal(sd.firefly(x, window=3).compute(), sorn.firefly(u8, window=3))
    np.testing.assert_array_equal(sd.firefly(x, "copy").compute(), u8)
    with pytest.raises(ValueError):
        sd.firefly(x, "crb")
    with pytest.raises(ValueError):
        sd.firefly(x, 4)


def test_relative_box_counts_of_tiles_are_those_of_the_whole_image(client):
    rng = np.random.default_rng(6)
    u8 = rng.integers(40, 200, size=(300, 410), dtype=np.uint8)
    x = da.from_array(u8, chunks=(110, 130))
    np.testing.assert_array_equal(sd.count_rel_box(x, "<=", (7, 9), anchor=(6, 1)).compute(),
                                  sorn.count_rel_box(u8, "<=", (7, 9), anchor=(6, 1)))
    # A large box binned by the image's own range, which no tile has alone.
    np.testing.assert_array_equal(
        sd.count_rel_box(x, "<", (40, 70), speed="fast2", dtype=np.int16).compute(),
        sorn.count_rel_box(u8, "<", (40, 70), speed="fast2", dtype=np.int16))


# ---------------------------------------------------------------- pictures

def png_with_filters(img):
    """img as a PNG whose rows use the filters 0 to 4 in turn."""
    rows = img.astype(np.int32)
    raw = b""
    for y in range(rows.shape[0]):
        kind = y % 5
        line, prior = rows[y], rows[y - 1] if y else np.zeros_like(rows[0])
        left = np.concatenate([[0], line[:-1]])
        upleft = np.concatenate([[0], prior[:-1]])
        if kind == 1:
            line = line - left
        elif kind == 2:
            line = line - prior
        elif kind == 3:
            line = line - (left + prior) // 2
        elif kind == 4:
            p = left + prior - upleft
            pa, pb, pc = abs(p - left), abs(p - prior), abs(p - upleft)
            pred = np.where((pa <= pb) & (pa <= pc), left, np.where(pb <= pc, prior, upleft))
            line = line - pred
        raw += bytes([kind]) + (line & 0xFF).astype(np.uint8).tobytes()

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    head = struct.pack(">IIBBBBB", img.shape[1], img.shape[0], 8, 0, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(raw))
            + chunk(b"IEND", b""))


def test_pictures_are_read_back_as_written(tmp_path):
    img = pictures(5, 1, (23, 31))[0]
    (tmp_path / "f.png").write_bytes(png_with_filters(img))
    np.testing.assert_array_equal(sio.read_image(tmp_path / "f.png"), img)
    rgba = np.stack([img, 255 - img, img // 2, img], axis=2)
    sio.write_png(tmp_path / "c.png", rgba)
    np.testing.assert_array_equal(sio.read_image(tmp_path / "c.png"), rgba)
    sio.write_pgm(tmp_path / "g.pgm", img)
    np.testing.assert_array_equal(sio.read_image(tmp_path / "g.pgm"), img)
    with pytest.raises(ValueError):
        sio.read_image(tmp_path.joinpath("x.txt").write_text("x") and tmp_path / "x.txt")
