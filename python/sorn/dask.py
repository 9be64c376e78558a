"""Sorn on Dask: many images on a dask.distributed cluster, and large images
cut into tiles.

Batches of images
  map_images(func, images, *args, **kwargs)
      func(image, *args, **kwargs) for every image, in the order of images.
      images is a sequence of arrays, a folder (its pictures read where they
      are processed, in name order), or a dask.bag of arrays.
  stable_regions(images, **params)
      sorn.mser of every picture, taken as grey: a list of sorn.Regions.

Both run on the scheduler Dask has in use: the dask.distributed Client made
last, which Dask takes as its default (Client("tcp://scheduler:8786") for a
real cluster, or a LocalCluster), or the one given with scheduler=. With a
folder, the workers read the pictures themselves, so on a cluster of several
machines the folder must be where every worker finds it (a shared disk);
read_on_client=True reads them here and sends the pixels instead.

Large images as dask arrays (two axes, or three with the channels last; the
channel axis is never cut)
  histogram(x, bins=256, range=None)   counts per tile, added exactly
  sum(x), mean(x)                      per tile, added exactly
  elementwise(func, *arrays, **kwargs) func (sorn.add, sorn.compare,
                                       sorn.muladd, ...) tile by tile
  neighbourhood(func, x, size=3, anchor=None, **kwargs)
      a window filter (sorn.box_filter, min_filter, max_filter) tile by
      tile, each tile read with the pixels around it that the window reaches
      (Dask's map_overlap); box_filter(x, ...), min_filter(x, ...) and
      max_filter(x, ...) are that for each filter
  sep_filter(x, kernel_y, kernel_x, ...), gaussian_filter(x, size=5, ...)
      the separable and Gaussian filters, tile by tile the same way
  morphology(x, op, mask=None, ...)
      sorn.morphology tile by tile; a chain (open, close, tophat,
      blackhat) reads twice as far, as its second pass reads the first
      pass's results around each pixel
  firefly(x, kind='gauss', window=5, ...)
      sorn.firefly's blurs (and its copy) tile by tile, each tile read
      with the pixels its largest window (15 times window) reaches; the
      rank kinds depend on the whole image and are refused
  count_rel_box(x, op='<=', box=5, ...)
      sorn.count_rel_box tile by tile, each tile read with the pixels its
      boxes reach; the range of values is settled for the whole image first
      where the count would take it from each tile
Each returns a dask array; .compute() runs it. The results are those of
the operation on the whole image: counts are added as 64-bit integers, the
integer sums of tiles are exact in double and are added as integers, and
element-wise operations look at one element at a time, and a window filter
of a tile that carries the pixels its windows reach reads what the filter of
the whole image reads (the border beyond the image's edges included, as no
tile reaches past them). float32 sums are the
library's double sums of each tile, added with math.fsum, which rounds once:
the result is the same on any cluster and in any order of tiles, and may
differ in the last bits from one call of sorn.sum on the whole image, whose
additions run in another order. Likewise a float32 box filter keeps
running sums along each row and down the image, which start again in each
tile: its last bits may differ from the filter of the whole image (so may
those of a float32 separable filter with a box along an axis), while
integer box filters, the minimum and maximum filters, the separable and
Gaussian filters and morphology are exact.

The library works on one record of at most 2 GiB per call: tiles are how
larger images reach it.

sorn's functions live in its extension module and do not pickle; these
functions send them to the workers by name (portable(func) does that for a
function of your own Dask code).
"""

import functools
import math
import os

import dask
import dask.array as da
import dask.bag as db
import numpy as np

import sorn

from . import io as _io

__all__ = ["map_images", "stable_regions", "picture_paths", "portable", "histogram", "sum",
           "mean", "elementwise", "neighbourhood", "box_filter", "min_filter", "max_filter",
           "sep_filter", "gaussian_filter", "morphology", "firefly", "count_rel_box"]

_builtin_sum = sum

# ---------------------------------------------------------------- batches


def picture_paths(folder):
    """The pictures of a folder that sorn.io reads, in name order."""
    names = sorted(n for n in os.listdir(folder) if n.lower().endswith(_io.EXTENSIONS))
    return [os.path.join(folder, n) for n in names]


class _Named:
    """A function of sorn by its name. The module's functions are built into
    the extension and cannot be pickled themselves; this stands for one on
    the workers, where it looks the function up in their own sorn."""

    def __init__(self, name):
        self.name = name

    def __call__(self, *args, **kwargs):
        return getattr(sorn, self.name)(*args, **kwargs)

    def __repr__(self):
        return f"sorn.{self.name}"


def portable(func):
    """func in a form that reaches Dask's workers: sorn's own functions (also
    inside functools.partial) by name, any other as it is."""
    if isinstance(func, functools.partial):
        return functools.partial(portable(func.func), *func.args, **func.keywords)
    name = getattr(func, "__name__", None)
    if name and getattr(sorn, name, None) is func:
        return _Named(name)
    return func


def _apply(func, args, kwargs, image):
    return func(image, *args, **kwargs)


def _read_and_apply(func, args, kwargs, path):
    return func(_io.read_image(path), *args, **kwargs)


def map_images(func, images, *args, scheduler=None, read_on_client=False, **kwargs):
    """func(image, *args, **kwargs) for every image, as a list in the order
    of images. See the module's help for images and scheduler."""
    func = portable(func)
    if isinstance(images, db.Bag):
        bag = images.map(functools.partial(_apply, func, args, kwargs))
    else:
        if isinstance(images, (str, os.PathLike)):
            items = picture_paths(images)
            if read_on_client:
                items = [_io.read_image(p) for p in items]
                step = functools.partial(_apply, func, args, kwargs)
            else:
                step = functools.partial(_read_and_apply, func, args, kwargs)
        else:
            items = list(images)
            step = functools.partial(_apply, func, args, kwargs)
        if not items:
            return []
        # One task per picture (up to a thousand tasks), so that the workers
        # share the pictures as they come free.
        bag = db.from_sequence(items, npartitions=min(len(items), 1000)).map(step)
    return bag.compute(scheduler=scheduler)


def _grey_regions(image, **params):
    return sorn.mser(np.ascontiguousarray(_io.grey(image)), **params)


def stable_regions(images, scheduler=None, read_on_client=False, **params):
    """sorn.mser(grey picture, **params) for every picture: a list of
    sorn.Regions."""
    return map_images(_grey_regions, images, scheduler=scheduler,
                      read_on_client=read_on_client, **params)


# ---------------------------------------------------------------- tiles


def _image_array(x, function):
    if not isinstance(x, da.Array):
        raise TypeError(f"{function}: x must be a dask array, not {type(x).__name__}")
    if x.ndim not in (2, 3):
        raise ValueError(f"{function}: x must have the axes (rows, columns) or "
                         "(rows, columns, channels)")
    if x.ndim == 3 and len(x.chunks[2]) > 1:
        x = x.rechunk({2: -1})
    return x


def _tiles(x):
    return list(x.to_delayed().ravel())


def _tile_histogram(tile, bins, range_):
    counts = sorn.histogram(np.ascontiguousarray(tile), bins, range_)
    return counts.astype(np.uint64)


def _add_counts(parts):
    return functools.reduce(np.add, parts)


def histogram(x, bins=256, range=None):
    """Counts of x's values as sorn.histogram gives them for the whole image,
    as uint64: (bins,) for two axes, (channels, bins) for three. The default
    range of int32 and float32 images is the data's, found first (NaN left
    out), so that every tile counts in the same bins."""
    x = _image_array(x, "histogram")
    if range is None and np.dtype(x.dtype) in (np.dtype(np.int32), np.dtype(np.float32)):
        lo, hi = dask.compute(da.nanmin(x), da.nanmax(x))
        range = (0.0, 1.0) if np.isnan(lo) or np.isnan(hi) else (float(lo), float(hi))
    parts = [dask.delayed(_tile_histogram)(t, bins, range) for t in _tiles(x)]
    shape = (bins,) if x.ndim == 2 else (x.shape[2], bins)
    return da.from_delayed(dask.delayed(_add_counts)(parts), shape=shape, dtype=np.uint64)


def _tile_sum(tile):
    return np.atleast_1d(sorn.sum(np.ascontiguousarray(tile))).copy()


def _add_sums(parts, integer):
    parts = np.stack(parts)
    if integer:
        # Each tile's sum is an integer held exactly in double; added as
        # integers, the total is exact, and rounded once into double as the
        # library rounds its 64-bit total.
        return np.array([float(_builtin_sum(int(v) for v in parts[:, c]))
                         for c in range(parts.shape[1])])
    return np.array([math.fsum(parts[:, c]) for c in range(parts.shape[1])])


def _sums(x, function):
    x = _image_array(x, function)
    integer = np.dtype(x.dtype).kind in "iu"
    parts = [dask.delayed(_tile_sum)(t) for t in _tiles(x)]
    channels = 1 if x.ndim == 2 else x.shape[2]
    return x, dask.delayed(_add_sums)(parts, integer), channels


def sum(x):
    """The sum of every channel, as sorn.sum: a 0-D dask array for two axes,
    one value per channel for three."""
    x, total, channels = _sums(x, "sum")
    out = da.from_delayed(total, shape=(channels,), dtype=np.float64)
    return out[0] if x.ndim == 2 else out


def mean(x):
    """The mean of every channel: the exact sum over the pixel count."""
    x, total, channels = _sums(x, "mean")
    count = x.shape[0] * x.shape[1]
    out = da.from_delayed(dask.delayed(np.divide)(total, float(count)), shape=(channels,),
                          dtype=np.float64)
    return out[0] if x.ndim == 2 else out


def _tile_call(func, kwargs, *tiles):
    return func(*[np.ascontiguousarray(t) for t in tiles], **kwargs)


def elementwise(func, *arrays, **kwargs):
    """func(*tiles, **kwargs) over tiles at the same places of every array:
    for sorn's element-wise operations (add, subtract, multiply, divide,
    muladd, mulsub, mulrsub, compare, the bitwise operations, negative, exp,
    log, sigmoid, and
    convert without range, scale or offset, whose maps measure the whole
    image), whose result at a pixel depends on that pixel alone. Constants
    pass as keywords or in a partial of func."""
    if not arrays:
        raise TypeError("elementwise: no arrays")
    first = _image_array(arrays[0], "elementwise")
    func = portable(func)
    arrays = [first] + [_image_array(a, "elementwise").rechunk(first.chunks) for a in arrays[1:]]
    # The type of the result, from one pixel of each.
    probe = func(*[np.zeros((1, 1) + a.shape[2:], a.dtype) for a in arrays], **kwargs)
    return da.map_blocks(functools.partial(_tile_call, func, kwargs), *arrays, dtype=probe.dtype,
                         chunks=first.chunks if probe.ndim == first.ndim else None)


def _window_reach(size, anchor, function):
    """How far a window reaches from its anchor, rows and columns: the depth
    of overlap each tile needs."""
    rows, cols = (size, size) if np.ndim(size) == 0 else tuple(size)
    if anchor is None:
        anchor = (rows // 2, cols // 2)
    ay, ax = anchor
    if not (0 <= ay < rows and 0 <= ax < cols):
        raise ValueError(f"{function}: anchor must lie in the window")
    return max(ay, rows - 1 - ay), max(ax, cols - 1 - ax)


def _tile_filter(func, kwargs, tile):
    return func(np.ascontiguousarray(tile), **kwargs)


def _overlapped(func, x, reach, kwargs, function, dtype=None):
    """func(tile, **kwargs) over the tiles of x, each widened by reach =
    (rows, columns) pixels (as far as the image goes) and cut back
    afterwards; the result is of x's type, or of dtype."""
    x = _image_array(x, function)
    func = portable(func)
    depth = {0: reach[0], 1: reach[1]}
    if x.ndim == 3:
        depth[2] = 0
    # No border from Dask: at the image's edges the filter makes its own.
    return da.map_overlap(functools.partial(_tile_filter, func, kwargs), x, depth=depth,
                          boundary="none", dtype=x.dtype if dtype is None else np.dtype(dtype),
                          trim=True)


def neighbourhood(func, x, size=3, anchor=None, **kwargs):
    """func(tile, size=size, anchor=anchor, **kwargs) over the tiles of x,
    each tile widened by the pixels the window reaches beyond it (as far as
    the image goes) and cut back afterwards: the result is the filter of the
    whole image. For sorn.box_filter, min_filter and max_filter, whose
    keywords (border=, value=) pass on."""
    reach = _window_reach(size, anchor, "neighbourhood")
    return _overlapped(func, x, reach, dict(kwargs, size=size, anchor=anchor), "neighbourhood")


def box_filter(x, size=3, **kwargs):
    """sorn.box_filter of a dask array, tile by tile (see neighbourhood)."""
    return neighbourhood(sorn.box_filter, x, size, **kwargs)


def min_filter(x, size=3, **kwargs):
    """sorn.min_filter of a dask array, tile by tile (see neighbourhood)."""
    return neighbourhood(sorn.min_filter, x, size, **kwargs)


def max_filter(x, size=3, **kwargs):
    """sorn.max_filter of a dask array, tile by tile (see neighbourhood)."""
    return neighbourhood(sorn.max_filter, x, size, **kwargs)


def sep_filter(x, kernel_y=None, kernel_x=None, *, size=None, anchor=None, **kwargs):
    """sorn.sep_filter of a dask array, tile by tile: each tile reads the
    pixels its window reaches, the window sized by the kernels (or by size
    where a kernel is None, 3 by default)."""
    rows, cols = (3, 3) if size is None else (size, size) if np.ndim(size) == 0 else size
    rows = rows if kernel_y is None else len(kernel_y)
    cols = cols if kernel_x is None else len(kernel_x)
    reach = _window_reach((rows, cols), anchor, "sep_filter")
    kwargs = dict(kwargs, kernel_y=kernel_y, kernel_x=kernel_x, size=size, anchor=anchor)
    return _overlapped(sorn.sep_filter, x, reach, kwargs, "sep_filter")


def gaussian_filter(x, size=5, **kwargs):
    """sorn.gaussian_filter of a dask array, tile by tile (see
    neighbourhood)."""
    return neighbourhood(sorn.gaussian_filter, x, size, **kwargs)


def morphology(x, op, mask=None, *, size=None, anchor=None, **kwargs):
    """sorn.morphology of a dask array, tile by tile. Erosion and dilation
    read as far as the element reaches; the chains twice as far, since
    their second pass reads the first pass's results, which near a tile's
    edge would be those of the tile alone."""
    if mask is not None:
        shape = np.shape(mask)
    else:
        shape = (3, 3) if size is None else (size, size) if np.ndim(size) == 0 else tuple(size)
    dy, dx = _window_reach(shape, anchor, "morphology")
    if op not in ("erode", "dilate"):
        dy, dx = 2 * dy, 2 * dx
    kwargs = dict(kwargs, op=op, mask=mask, size=size, anchor=anchor)
    return _overlapped(sorn.morphology, x, (dy, dx), kwargs, "morphology")


def firefly(x, kind="gauss", *, window=5, **kwargs):
    """sorn.firefly of a dask array, tile by tile, for the kinds whose
    pixels depend on their neighbourhood alone: the blurs ('gauss', 5), each
    tile widened by the reach of the largest of the three windows (15 times
    window), and the copy ('copy', 0). The rank kinds ('crb', 3, 'crbln', 4)
    take their gain from the whole image's histogram, and 'crbln' stretches
    by the whole mix's extremes: a tile alone would give other values, so
    they raise ValueError."""
    if isinstance(kind, str) and kind in ("crb", "crbln") or kind in (3, 4):
        raise ValueError("firefly: the rank kinds depend on the whole image (its histogram and "
                         "extremes); call sorn.firefly on the computed image")
    rows, cols = (window, window) if np.ndim(window) == 0 else tuple(window)
    if rows == 1 and cols == 1:
        rows = cols = 5
    reach = _window_reach((15 * rows, 15 * cols), None, "firefly")
    kwargs = dict(kwargs, kind=kind, window=window)
    return _overlapped(sorn.firefly, x, reach, kwargs, "firefly")


def count_rel_box(x, op="<=", box=5, *, anchor=None, range=None, speed=None, dtype="uint8",
                  **kwargs):
    """sorn.count_rel_box of a dask array, tile by tile: each tile reads the
    pixels its boxes reach. A large box takes its range of values from the
    image, and the speed bins follow the range: with speed given, that
    range is taken from the whole image here and given to every tile, so
    that the result is the count of the whole image."""
    rows, cols = (box, box) if np.ndim(box) == 0 else tuple(box)
    reach = _window_reach((rows, cols), anchor, "count_rel_box")
    if range is None and speed is not None and (cols >= 64 or rows >= 32) and rows * cols > 256:
        lo, hi = dask.compute(_image_array(x, "count_rel_box").min(),
                              _image_array(x, "count_rel_box").max())
        range = (float(lo), float(hi))
    kwargs = dict(kwargs, op=op, box=box, anchor=anchor, range=range, speed=speed, dtype=dtype)
    return _overlapped(sorn.count_rel_box, x, reach, kwargs, "count_rel_box", dtype)
