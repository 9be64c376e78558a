"""What the region analysis returns: plain arrays, picklable, with a few
readers over them."""

from collections import namedtuple

import numpy as np

# One region's measures; RegionMeasures[i] gives it.
RegionMeasure = namedtuple(
    "RegionMeasure",
    "centroid moments sums box ellipse quad hull hull_area quad_area ellipse_area")
RegionMeasure.__doc__ = """The measures of one stable region; see sorn.RegionMeasures."""

# An ellipse: centre (row, column), semi-axes a <= b, rotation in radians.
Ellipse = namedtuple("Ellipse", "row column a b rotation")


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


class RegionMeasures:
    """The measures of stable regions, taken over each region's pixels as
    (row, column) points: the first coordinate is the row. Arrays, one
    entry per region, in the order of the regions:
      centroid      (n, 2) mean row and column
      moments       (n, 3) central second moments m20, m11, m02: the means of
                    dr * dr, dr * dc and dc * dc about the centroid
      sums          (n, 5) sums of r, c, r * r, r * c, c * c (exact; with
                    plain=True, the moment feature the flooding gathered
                    over the region)
      box           (n, 4) int32 bounding box: least row, least column, and
                    the extents as greatest minus least (no plus one)
      ellipse       (n, 5) the ellipse of the central moments: centre row,
                    centre column, semi-axes a <= b (twice the square roots
                    of the moments' eigenvalues, which gives back a filled
                    ellipse's own semi-axes) and the rotation in radians
                    (0 for a region elongated along the columns)
      quad          (n, 4, 2) the bounding rectangle of least area, its
                    corners in order (see sorn.min_area_quad; a region that
                    spans 1024 pixels or more either way is measured in
                    doubles, where the integer calipers could overflow)
      hull_area     (n,) area of the convex hull of the pixel centres
      quad_area     (n,) area of quad (its width times its height)
      ellipse_area  (n,) pi * a * b
    The convex hull of region i (sorn.convex_hull of its pixels, int32
    (row, column) vertices) is hull(i), a slice of hull_points. An empty
    region's moments and ellipse are not numbers.
    """

    def __init__(self, sums, centroid, moments, box, ellipse, quad, hull_offsets, hull_points,
                 hull_area, quad_area, ellipse_area):
        self.sums = sums
        self.centroid = centroid
        self.moments = moments
        self.box = box
        self.ellipse = ellipse
        self.quad = quad
        self.hull_offsets = hull_offsets
        self.hull_points = hull_points
        self.hull_area = hull_area
        self.quad_area = quad_area
        self.ellipse_area = ellipse_area

    def __len__(self):
        return len(self.centroid)

    def __repr__(self):
        return f"<sorn.RegionMeasures of {len(self)} regions>"

    def hull(self, i):
        """The convex hull of region i, (row, column) vertices."""
        return self.hull_points[self.hull_offsets[i]:self.hull_offsets[i + 1]]

    def __getitem__(self, i):
        """Region i's measures as a RegionMeasure; ellipse as an Ellipse."""
        if i < 0:
            i += len(self)
        if not 0 <= i < len(self):
            raise IndexError(i)
        return RegionMeasure(
            centroid=self.centroid[i], moments=self.moments[i], sums=self.sums[i],
            box=self.box[i], ellipse=Ellipse(*(float(v) for v in self.ellipse[i])),
            quad=self.quad[i], hull=self.hull(i), hull_area=float(self.hull_area[i]),
            quad_area=float(self.quad_area[i]), ellipse_area=float(self.ellipse_area[i]))

    def __iter__(self):
        for i in range(len(self)):
            yield self[i]


class Regions:
    """Stable regions. Arrays, one entry per region, dark regions first:
      dark    True for a dark region (a set of pixels at or below its level),
              False for a bright one
      level   the region's grey level
      size    pixels of the region
    points holds all regions' pixels as (row, column) pairs; region i's are
    points[offsets[i]:offsets[i + 1]]. shape is the image's (rows, columns).
    measures is a sorn.RegionMeasures when sorn.mser was asked for them
    (measures=True), else None.
    """

    def __init__(self, dark, level, size, offsets, points, shape, measures=None):
        self.dark = dark
        self.level = level
        self.size = size
        self.offsets = offsets
        self.points = points
        self.shape = tuple(shape)
        self.measures = measures

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
