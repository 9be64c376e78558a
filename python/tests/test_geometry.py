"""Plane geometry on point arrays (convex hull, signed area, least-area
bounding rectangle) against plain references written here, and the measures
of stable regions against numpy's own over each region's pixels."""

import math
import pickle

import numpy as np
import pytest

import sorn

DTYPES = [np.int32, np.float32, np.float64]


def cross(o, a, b):
    return (a[0] - o[0]) * (b[1] - o[1]) - (a[1] - o[1]) * (b[0] - o[0])


def monotone_chain(points):
    """The strict convex hull (no points on edges) of a list of tuples, by
    Andrew's monotone chain, in exact Python arithmetic."""
    pts = sorted(set(points))
    if len(pts) < 3:
        return pts
    lower, upper = [], []
    for p in pts:
        while len(lower) >= 2 and cross(lower[-2], lower[-1], p) <= 0:
            lower.pop()
        lower.append(p)
    for p in reversed(pts):
        while len(upper) >= 2 and cross(upper[-2], upper[-1], p) <= 0:
            upper.pop()
        upper.append(p)
    return lower[:-1] + upper[:-1]


def as_tuples(a):
    return [tuple(float(v) for v in p) for p in np.asarray(a, dtype=np.float64)]


def shoelace(points):
    """The usual shoelace sum: positive for a ring turning from x toward y."""
    p = np.asarray(points, dtype=np.float64)
    if len(p) < 2:
        return 0.0
    x, y = p[:, 0], p[:, 1]
    return 0.5 * float(np.sum(x * np.roll(y, -1) - np.roll(x, -1) * y))


def least_area_rectangle(points):
    """The least area of a bounding rectangle with a side along an edge of
    the hull (where the least one lies), by trying every edge."""
    hull = np.array(monotone_chain(as_tuples(points)))
    best = math.inf
    for i in range(len(hull)):
        e = hull[(i + 1) % len(hull)] - hull[i]
        u = e / np.hypot(*e)
        v = np.array([-u[1], u[0]])
        pu, pv = hull @ u, hull @ v
        best = min(best, (pu.max() - pu.min()) * (pv.max() - pv.min()))
    return best


def random_points(rng, n, dtype, span=100):
    if np.dtype(dtype).kind == "i":
        return rng.integers(-span, span, size=(n, 2), endpoint=True).astype(dtype)
    return rng.uniform(-span, span, size=(n, 2)).astype(dtype)


# ---------------- convex hull ----------------


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("n", [4, 5, 10, 50, 1000])
def test_the_hull_is_the_monotone_chains(rng, dtype, n):
    for _ in range(20):
        p = random_points(rng, n, dtype)
        h = sorn.convex_hull(p)
        assert h.dtype == np.dtype(dtype) and h.ndim == 2 and h.shape[1] == 2
        ref = monotone_chain(as_tuples(p))
        if len(ref) < 3:  # all on one line: every point comes back
            continue
        got = as_tuples(h)
        assert len(got) == len(ref) and set(got) == set(ref)
        # from the lowest point, in one sense around the hull
        assert got[0] == min(ref)
        assert polygon_sign(h) == polygon_sign(np.array(ref)) * hull_sense()


def polygon_sign(points):
    return int(np.sign(shoelace(points)))


def hull_sense():
    """Whether the library's hulls go the monotone chain's way (1) or the
    other (-1), from one square."""
    h = sorn.convex_hull(np.array([[0, 0], [2, 0], [2, 2], [0, 2], [1, 1]], np.int32))
    return polygon_sign(h)


def test_hulls_go_around_the_lowest_point_by_angle():
    sq = np.array([[0, 0], [2, 0], [2, 2], [0, 2], [1, 1]], np.int32)
    for perm in ([0, 1, 2, 3, 4], [4, 3, 2, 1, 0], [2, 4, 0, 3, 1]):
        h = sorn.convex_hull(sq[perm])
        assert h.tolist() == [[0, 0], [0, 2], [2, 2], [2, 0]]
    # against the monotone chain's sense: a positive area in the library's terms
    assert sorn.polygon_area(h) == 4.0
    assert hull_sense() == -1


@pytest.mark.parametrize("dtype", DTYPES)
def test_points_on_edges_and_duplicates_leave_the_hull(rng, dtype):
    # a square's edges sampled, every point twice, the inside filled
    edge = [(0, t) for t in range(11)] + [(10, t) for t in range(11)]
    edge += [(t, 0) for t in range(11)] + [(t, 10) for t in range(11)]
    inside = [(r, c) for r in range(1, 10) for c in range(1, 10)]
    p = np.array(edge * 2 + inside, dtype=dtype)
    for _ in range(5):
        h = sorn.convex_hull(p[rng.permutation(len(p))])
        assert sorted(as_tuples(h)) == [(0, 0), (0, 10), (10, 0), (10, 10)]


@pytest.mark.parametrize("dtype", DTYPES)
def test_points_on_one_line_come_back_all_sorted(rng, dtype):
    t = rng.integers(-50, 50, size=12)
    p = np.stack([3 * t, -2 * t + 7], axis=1).astype(dtype)
    h = sorn.convex_hull(p)
    assert sorted(as_tuples(h)) == sorted(as_tuples(p))
    assert np.all(np.diff(h[:, 0].astype(np.float64)) >= 0)  # along the line from its lowest end


@pytest.mark.parametrize("dtype", DTYPES)
def test_fewer_than_four_points_come_back_as_they_are(dtype):
    for p in ([], [[5, 1]], [[5, 1], [2, 2]], [[5, 1], [2, 2], [9, 9]], [[1, 1]] * 3):
        a = np.array(p, dtype=dtype).reshape(-1, 2)
        h = sorn.convex_hull(a)
        assert h.dtype == np.dtype(dtype) and h.shape == a.shape
        assert np.array_equal(h, a)


def test_integer_hulls_are_exact_at_the_largest_coordinates(rng):
    big = 2 ** 30 - 1
    p = rng.integers(-big, big, size=(200, 2), endpoint=True).astype(np.int32)
    p[:4] = [[-big, -big], [big, -big], [big, big], [-big, big]]
    assert sorted(as_tuples(sorn.convex_hull(p))) == sorted(as_tuples(p[:4]))
    assert sorn.polygon_area(p[[0, 3, 2, 1]]) == 4.0 * big * big


# ---------------- signed area ----------------


@pytest.mark.parametrize("dtype", DTYPES)
def test_the_area_is_minus_the_shoelace_sum(rng, dtype):
    for n in [0, 1, 2, 3, 7, 100]:
        p = random_points(rng, n, dtype)
        a = sorn.polygon_area(p)
        assert isinstance(a, float)
        ref = -shoelace(p)
        if np.dtype(dtype).kind == "i":
            assert a == ref
        else:
            assert a == pytest.approx(ref, rel=1e-5, abs=1e-2)


def test_the_area_of_known_rings():
    tri = np.array([[0, 0], [4, 0], [0, 3]], np.int32)  # turns from x toward y
    assert sorn.polygon_area(tri) == -6.0
    assert sorn.polygon_area(tri[::-1]) == 6.0
    assert sorn.polygon_area(tri.astype(np.float32)) == -6.0
    assert sorn.polygon_area(np.array([[0.5, 0.5], [1.5, 0.5], [1.5, 2.5], [0.5, 2.5]])) == -2.0
    assert sorn.polygon_area([[0.0, 0.0], [3.0, 3.0]]) == 0.0  # two points: a ring with no area


# ---------------- least-area quadrilateral ----------------


def inside_quad(q, points, tol):
    """Every point within the quadrilateral q (corners in order), up to tol."""
    q = np.asarray(q, np.float64)
    p = np.asarray(points, np.float64)
    sense = np.sign(shoelace(q)) or 1.0
    for i in range(4):
        a, b = q[i], q[(i + 1) % 4]
        e = b - a
        side = sense * (e[0] * (p[:, 1] - a[1]) - e[1] * (p[:, 0] - a[0])) / np.hypot(*e)
        if (side < -tol).any():
            return False
    return True


def rect_sides(q):
    q = np.asarray(q, np.float64)
    w, h = q[1] - q[0], q[3] - q[0]
    return w, h


@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("n", [3, 4, 8, 40, 500])
def test_the_quad_holds_the_hull_with_the_least_area(rng, dtype, n):
    for _ in range(10):
        p = random_points(rng, n, dtype)
        if len(monotone_chain(as_tuples(p))) < 3:
            continue
        q = sorn.min_area_quad(p)
        assert q.shape == (4, 2)
        assert q.dtype == (np.float32 if dtype == np.float32 else np.float64)
        tol = 1e-2 if dtype == np.float32 else 1e-6
        assert inside_quad(q, p, tol)
        w, h = rect_sides(q)
        assert abs(np.dot(w, h)) <= 1e-4 * np.hypot(*w) * np.hypot(*h)  # a rectangle
        area = np.hypot(*w) * np.hypot(*h)
        hull_area = abs(sorn.polygon_area(sorn.convex_hull(p)))
        assert area >= hull_area * (1 - 1e-6)
        assert area == pytest.approx(least_area_rectangle(p), rel=1e-4 if tol > 1e-3 else 1e-9)


def test_the_quad_agrees_with_opencv_on_the_area(rng):
    cv2 = pytest.importorskip("cv2")
    for dtype in (np.int32, np.float32):
        for _ in range(30):
            p = random_points(rng, int(rng.integers(4, 60)), dtype)
            if len(monotone_chain(as_tuples(p))) < 3:
                continue
            (_, _), (w, h), _ = cv2.minAreaRect(p)
            w2, h2 = rect_sides(sorn.min_area_quad(p))
            assert np.hypot(*w2) * np.hypot(*h2) == pytest.approx(w * h, rel=1e-3)


@pytest.mark.parametrize("dtype", DTYPES)
def test_degenerate_lists_give_the_bounding_box(dtype):
    one = np.array([[3, 4]], dtype)
    assert sorn.min_area_quad(one).tolist() == [[3, 4]] * 4
    two = np.array([[3, 4], [1, 8]], dtype)
    assert sorn.min_area_quad(two).tolist() == [[1, 4], [1, 8], [3, 8], [3, 4]]
    for line in ([[0, 0], [2, 2], [4, 4], [1, 1]], [[0, 0], [2, 2], [4, 4]]):
        q = sorn.min_area_quad(np.array(line, dtype))
        w, h = rect_sides(q)
        assert np.hypot(*w) * np.hypot(*h) == 0.0
        assert sorted(as_tuples(q)) == [(0, 0), (0, 0), (4, 4), (4, 4)]
    for n in (3, 5):
        assert np.isnan(sorn.min_area_quad(np.array([[7, 7]] * n, dtype))).all()


@pytest.mark.parametrize("dtype", DTYPES)
def test_three_points_either_way_round_give_one_rectangle(rng, dtype):
    for _ in range(50):
        p = random_points(rng, 3, dtype)
        if len(monotone_chain(as_tuples(p))) < 3:
            continue
        a, b = sorn.min_area_quad(p), sorn.min_area_quad(p[::-1])
        tol = 1e-2 if dtype == np.float32 else 1e-6
        assert inside_quad(a, p, tol) and inside_quad(b, p, tol)
        area = [np.hypot(*rect_sides(q)[0]) * np.hypot(*rect_sides(q)[1]) for q in (a, b)]
        assert area[0] == pytest.approx(area[1], rel=1e-5)


def test_large_integer_lists_are_sent_to_float64():
    p = np.array([[0, 0], [1024, 0], [0, 5], [3, 3]], np.int32)
    with pytest.raises(ValueError, match="float64"):
        sorn.min_area_quad(p)
    q = sorn.min_area_quad(p.astype(np.float64))
    assert inside_quad(q, p, 1e-6)
    with pytest.raises(ValueError, match="float64"):
        sorn.min_area_quad(p // 2 + 2 ** 24)
    assert sorn.min_area_quad(p // 2 + 2 ** 24 - 600).shape == (4, 2)


# ---------------- arguments ----------------


@pytest.mark.parametrize("fn", [sorn.convex_hull, sorn.polygon_area, sorn.min_area_quad])
def test_wrong_points_are_refused_before_the_library(fn):
    for dtype in (np.int64, np.int16, np.uint32, np.float16, np.complex128, bool):
        with pytest.raises(TypeError, match="int32, float32 or float64"):
            fn(np.zeros((4, 2), dtype))
    with pytest.raises(TypeError):
        fn([[1, 2], [3, 4]])  # Python ints become int64
    for shape in ((4,), (4, 3), (2, 4, 2), (4, 1)):
        with pytest.raises(ValueError, match=r"\(N, 2\)"):
            fn(np.zeros(shape, np.float64))
    with pytest.raises(ValueError, match="finite"):
        fn(np.array([[0, 0], [1, np.nan], [2, 0], [0, 1]]))
    with pytest.raises(ValueError, match="finite"):
        fn(np.array([[0, 0], [1, np.inf], [2, 0], [0, 1]], np.float32))
    for v in (2 ** 30, -2 ** 30, 2 ** 31 - 1, -2 ** 31):
        with pytest.raises(ValueError, match="2\\*\\*30"):
            fn(np.array([[0, 0], [1, v], [0, 1], [1, 1]], np.int32))


def test_views_lists_and_foreign_byte_order_are_read_as_they_are(rng):
    p = random_points(rng, 40, np.float64)
    big = np.ascontiguousarray(np.vstack([p, p])[::2].T).T  # strided, Fortran-ordered
    assert np.array_equal(sorn.convex_hull(big), sorn.convex_hull(np.array(big)))
    assert np.array_equal(sorn.convex_hull(p.tolist()), sorn.convex_hull(p))
    swapped = p.astype(p.dtype.newbyteorder())
    assert np.array_equal(sorn.convex_hull(swapped), sorn.convex_hull(p))
    with pytest.raises(ValueError, match="no points"):
        sorn.min_area_quad(np.zeros((0, 2), np.float32))


# ---------------- measures of stable regions ----------------


def shapes_image():
    """A dark filled ellipse and a bright filled rectangle on grey."""
    img = np.full((90, 120), 128, np.uint8)
    r, c = np.mgrid[:90, :120]
    img[((r - 40) / 14.0) ** 2 + ((c - 45) / 25.0) ** 2 <= 1] = 20
    img[55:80, 75:110] = 235
    return img


def region_numpy_measures(p):
    p = p.astype(np.float64)
    m = p.mean(axis=0)
    d = p - m
    return m, np.array([np.mean(d[:, 0] ** 2), np.mean(d[:, 0] * d[:, 1]), np.mean(d[:, 1] ** 2)])


@pytest.mark.parametrize("plain", [False, True])
def test_region_measures_are_those_of_the_pixels(plain):
    img = shapes_image()
    regions = sorn.mser(img, measures=True, plain=plain)
    m = regions.measures
    assert isinstance(m, sorn.RegionMeasures) and len(m) == len(regions) > 0
    assert sorn.mser(img, plain=plain).measures is None
    assert sorn.mser(img, plain=plain) == regions  # the same regions either way
    for i, p in enumerate(regions):
        centroid, moments = region_numpy_measures(p)
        np.testing.assert_allclose(m.centroid[i], centroid, rtol=1e-12)
        np.testing.assert_allclose(m.moments[i], moments, rtol=1e-9, atol=1e-9)
        q = p.astype(np.int64)
        sums = [q[:, 0].sum(), q[:, 1].sum(), (q[:, 0] ** 2).sum(), (q[:, 0] * q[:, 1]).sum(),
                (q[:, 1] ** 2).sum()]
        assert m.sums[i].tolist() == [float(s) for s in sums]
        lo, hi = p.min(axis=0), p.max(axis=0)
        assert m.box[i].tolist() == [lo[0], lo[1], hi[0] - lo[0], hi[1] - lo[1]]
        # the hull is the region's, and its area the shoelace one
        assert sorted(as_tuples(m.hull(i))) == sorted(monotone_chain(as_tuples(p)))
        assert np.array_equal(m.hull(i), sorn.convex_hull(p))
        assert m.hull_area[i] == abs(shoelace(monotone_chain(as_tuples(p))))
        # the rectangle holds the pixels, with the least area
        assert inside_quad(m.quad[i], p, 1e-6)
        assert np.array_equal(m.quad[i], sorn.min_area_quad(p))
        assert m.quad_area[i] == pytest.approx(least_area_rectangle(p), rel=1e-9)
        assert m.quad_area[i] >= m.hull_area[i] - 1e-9
        # the ellipse: centre at the centroid, semi-axes twice the roots of
        # the eigenvalues of the central moments, smaller first
        ev = np.linalg.eigvalsh([[moments[0], moments[1]], [moments[1], moments[2]]])
        e = m[i].ellipse
        assert (e.row, e.column) == pytest.approx(tuple(centroid), rel=1e-9)
        assert (e.a, e.b) == pytest.approx(tuple(2 * np.sqrt(ev)), rel=1e-9)
        assert m.ellipse_area[i] == pytest.approx(math.pi * e.a * e.b, rel=1e-12)


def test_the_shapes_are_measured_as_drawn():
    img = shapes_image()
    regions = sorn.mser(img, measures=True, plain=True)
    m = regions.measures
    sizes = regions.size.tolist()
    ell_pixels = int(np.count_nonzero(img == 20))
    i = sizes.index(ell_pixels)
    assert regions.dark[i]
    e = m[i].ellipse
    # a filled ellipse gives its own semi-axes back, b along the columns
    assert (e.row, e.column) == pytest.approx((40.0, 45.0), abs=1e-9)
    assert e.a == pytest.approx(14.0, rel=0.03) and e.b == pytest.approx(25.0, rel=0.03)
    assert math.sin(e.rotation) == pytest.approx(0.0, abs=1e-9)
    assert m.ellipse_area[i] == pytest.approx(ell_pixels, rel=0.02)
    j = sizes.index(25 * 35)
    assert not regions.dark[j]
    assert m.box[j].tolist() == [55, 75, 24, 34]
    assert m.hull_area[j] == 24 * 34 and m.quad_area[j] == pytest.approx(24 * 34, rel=1e-12)
    assert sorted(as_tuples(m.hull(j))) == [(55, 75), (55, 109), (79, 75), (79, 109)]


def test_measures_travel_with_the_regions():
    regions = sorn.mser(shapes_image(), measures=True)
    back = pickle.loads(pickle.dumps(regions))
    assert back == regions
    for k in vars(regions.measures):
        assert np.array_equal(getattr(back.measures, k), getattr(regions.measures, k))
    r = regions.measures[-1]
    assert isinstance(r, sorn.RegionMeasure) and isinstance(r.ellipse, sorn.Ellipse)
    assert len(list(regions.measures)) == len(regions)
    with pytest.raises(IndexError):
        regions.measures[len(regions)]


def test_no_regions_no_measures():
    m = sorn.mser(np.full((20, 20), 7, np.uint8), measures=True).measures
    assert len(m) == 0 and m.quad.shape == (0, 4, 2) and m.ellipse.shape == (0, 5)
    assert m.hull_points.shape == (0, 2) and m.hull_offsets.tolist() == [0]


@pytest.mark.parametrize("plain", [False, True])
def test_regions_wider_than_the_integer_calipers_are_measured_in_doubles(plain):
    img = np.full((40, 1300), 200, np.uint8)
    r, c = np.mgrid[:40, :1300]
    img[np.abs((r - 20) - (c - 650) * 0.01) <= 6] = 30  # a long, slightly slanted bar
    regions = sorn.mser(img, measures=True, plain=plain, mode="dark", max_area=0.9)
    m = regions.measures
    wide = [i for i in range(len(regions)) if m.box[i, 3] >= 1024]
    assert wide
    for i in wide:
        p = regions[i]
        assert inside_quad(m.quad[i], p, 1e-6)
        assert m.quad_area[i] == pytest.approx(least_area_rectangle(p), rel=1e-9)
        assert np.allclose(m.quad[i], sorn.min_area_quad(p.astype(np.float64)))
