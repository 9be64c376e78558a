"""What the region analysis returns: plain arrays, picklable, with a few
readers over them."""

import numpy as np


class ComponentTree:
    """A component tree, nodes in pre-order (a parent before its children).

    Arrays, one entry per node:
      parent  index of the parent node, -1 at the root
      level   grey level of the node (its pixels are at or below it, or at or
              above it in a bright tree)
      size    pixels of the node, its descendants' included
      pivot   (row, column) of the pixel where the node began
      own     pixels the node holds itself, its descendants' not included
    points holds every node's pixels as (row, column) pairs: a node's own
    pixels first, then those of its descendants, so that pixels(i) is one
    slice of it. shape is the image's (rows, columns).
    """

    def __init__(self, parent, level, size, pivot, start, stop, own, points, shape, bright):
        self.parent = parent
        self.level = level
        self.size = size
        self.pivot = pivot
        self.own = own
        self.points = points
        self.shape = tuple(shape)
        self.bright = bool(bright)
        self._start = start
        self._stop = stop

    def __len__(self):
        return len(self.parent)

    def __repr__(self):
        kind = "bright" if self.bright else "dark"
        return f"<sorn.ComponentTree of {len(self)} nodes, {kind}, image {self.shape}>"

    @property
    def root(self):
        """Index of the root node, or None for a tree without nodes."""
        return 0 if len(self) else None

    def pixels(self, i):
        """Every pixel of node i, (row, column) pairs: its own, then its
        descendants'."""
        return self.points[self._start[i]:self._stop[i]]

    def own_pixels(self, i):
        """The pixels node i holds itself."""
        return self.points[self._start[i]:self._start[i] + self.own[i]]

    def children(self, i):
        """Indexes of the children of node i."""
        return np.flatnonzero(self.parent == i)

    def label(self, i):
        """A boolean image of the pixels of node i."""
        out = np.zeros(self.shape, dtype=bool)
        p = self.pixels(i)
        out[p[:, 0], p[:, 1]] = True
        return out

    def __getstate__(self):
        return self.__dict__.copy()

    def __setstate__(self, state):
        self.__dict__.update(state)


class Regions:
    """Stable regions. Arrays, one entry per region, dark regions first:
      dark    True for a dark region (a set of pixels at or below its level),
              False for a bright one
      level   the region's grey level
      size    pixels of the region
    points holds all regions' pixels as (row, column) pairs; region i's are
    points[offsets[i]:offsets[i + 1]]. shape is the image's (rows, columns).
    """

    def __init__(self, dark, level, size, offsets, points, shape):
        self.dark = dark
        self.level = level
        self.size = size
        self.offsets = offsets
        self.points = points
        self.shape = tuple(shape)

    def __len__(self):
        return len(self.level)

    def __repr__(self):
        n_dark = int(np.count_nonzero(self.dark))
        return (f"<sorn.Regions: {n_dark} dark, {len(self) - n_dark} bright, "
                f"image {self.shape}>")

    def __getitem__(self, i):
        """The pixels of region i, (row, column) pairs."""
        if i < 0:
            i += len(self)
        if not 0 <= i < len(self):
            raise IndexError(i)
        return self.points[self.offsets[i]:self.offsets[i + 1]]

    def __iter__(self):
        for i in range(len(self)):
            yield self[i]

    def bounding_boxes(self):
        """(row0, column0, row1, column1) of every region, inclusive; an
        array of shape (len(self), 4)."""
        out = np.zeros((len(self), 4), dtype=np.int32)
        for i, p in enumerate(self):
            if len(p):
                out[i, :2] = p.min(axis=0)
                out[i, 2:] = p.max(axis=0)
        return out

    def label(self, i):
        """A boolean image of the pixels of region i."""
        out = np.zeros(self.shape, dtype=bool)
        p = self[i]
        out[p[:, 0], p[:, 1]] = True
        return out

    def __eq__(self, other):
        if not isinstance(other, Regions):
            return NotImplemented
        return (self.shape == other.shape
                and all(np.array_equal(getattr(self, k), getattr(other, k))
                        for k in ("dark", "level", "size", "offsets", "points")))

    __hash__ = None
