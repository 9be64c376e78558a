#!/usr/bin/env python3
"""Sorn's Python module beside OpenCV's on the same numpy arrays, and stable
regions of many pictures on threads and on a local Dask cluster.

  1. Call overhead: add, histogram and sum of a 64x64 uint8 image, time of
     one call from Python, result allocated by the call.
  2. Throughput: the same at 1920x1080.
  3. Stable regions of 16 one-megapixel pictures: one after another, on 2
     Python threads, and on a local Dask cluster of 2 worker processes.

OpenCV runs on one thread (cv2.setNumThreads(1)), as Sorn does in one call;
it is Debian's python3-opencv (bench/compare/setup-peers.sh --python installs
it), and without it the peer's columns stay empty.
Writes its section "## Python" of bench/RESULTS.md (or of --out), replacing
the section a run wrote before and leaving the rest of the file as it is.
Run from the build tree:

    cmake --build --preset release --target sorn_python_bench

or PYTHONPATH=build/release/python /usr/bin/python3 bench/python/bench_python.py.
"""

import argparse
import datetime
import os
import platform
import statistics
import sys
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np

import sorn
import sorn.dask

try:
    import cv2
except ImportError:  # the peer is optional; its columns stay empty
    cv2 = None

HERE = os.path.dirname(os.path.abspath(__file__))
RESULTS = os.path.join(os.path.dirname(HERE), "RESULTS.md")
BEGIN = "<!-- python: written by bench/python/bench_python.py -->"
END = "<!-- end of python -->"


def put_section(path, text):
    """text between the markers in the file at path: in place of what a run
    wrote before, or at the end."""
    old = open(path).read() if os.path.exists(path) else ""
    block = f"{BEGIN}\n{text}\n{END}\n"
    if BEGIN in old and END in old:
        head, rest = old.split(BEGIN, 1)
        tail = rest.split(END, 1)[1].lstrip("\n")
        new = head + block + tail
    else:
        new = old + ("\n" if old and not old.endswith("\n\n") else "") + block
    with open(path, "w") as f:
        f.write(new)


def batch_size(fn, seconds):
    """How many calls of fn fill about `seconds`."""
    fn()
    n = 1
    while True:
        t0 = time.perf_counter()
        for _ in range(n):
            fn()
        t = time.perf_counter() - t0
        if t > seconds / 4:
            return max(1, int(n * seconds / t))
        n *= 4


def per_call(fns, min_seconds=0.2, repeats=15):
    """For each of fns, the median over repeats of the time of one call, in
    seconds. The batches of the functions take turns, so that a change in
    the machine's load falls on all of them alike."""
    sizes = [batch_size(fn, min_seconds / repeats) for fn in fns]
    runs = [[] for _ in fns]
    for _ in range(repeats):
        for fn, n, r in zip(fns, sizes, runs):
            t0 = time.perf_counter()
            for _ in range(n):
                fn()
            r.append((time.perf_counter() - t0) / n)
    return [statistics.median(r) for r in runs]


def operations(a, b):
    """(name, sorn call, OpenCV call) on the same arrays."""
    ops = [("add u8, saturating", lambda: sorn.add(a, b),
            (lambda: cv2.add(a, b)) if cv2 else None),
           ("histogram u8, 256 bins", lambda: sorn.histogram(a),
            (lambda: cv2.calcHist([a], [0], None, [256], [0, 256])) if cv2 else None),
           ("sum u8", lambda: sorn.sum(a), (lambda: cv2.sumElems(a)) if cv2 else None)]
    return ops


def calls(shape, rng, min_seconds):
    a = rng.integers(0, 256, size=shape, dtype=np.uint8)
    b = rng.integers(0, 256, size=shape, dtype=np.uint8)
    rows = []
    for name, mine, peer in operations(a, b):
        if peer:
            t_sorn, t_peer = per_call([mine, peer], min_seconds)
        else:
            (t_sorn,), t_peer = per_call([mine], min_seconds), None
        rows.append((name, t_sorn, t_peer))
    return rows


def pictures(count, shape, rng):
    out = []
    for _ in range(count):
        x = rng.normal(size=shape).astype(np.float32)
        for _ in range(3):
            for axis in (0, 1):
                x = (x + np.roll(x, 1, axis) + np.roll(x, -1, axis)) / 3
        img = ((x - x.min()) / (x.max() - x.min()) * 200 + 25).astype(np.uint8)
        for _ in range(20):
            r, c = rng.integers(0, shape[0] - 80), rng.integers(0, shape[1] - 80)
            h, w = rng.integers(8, 80, size=2)
            img[r:r + h, c:c + w] = rng.choice([10, 245])
        out.append(img)
    return out


def regions(images, repeats):
    from dask.distributed import Client, LocalCluster

    def serial():
        return [sorn.mser(img) for img in images]

    def threads():
        with ThreadPoolExecutor(max_workers=2) as pool:
            return list(pool.map(sorn.mser, images))

    want = serial()
    times = {"serial": [], "2 threads": [], "Dask, 2 workers": []}
    cluster = LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                           dashboard_address=None)
    client = Client(cluster)
    try:
        assert sorn.dask.map_images(sorn.mser, images) == want  # warm the workers
        for _ in range(repeats):
            for name, run in (("serial", serial), ("2 threads", threads),
                              ("Dask, 2 workers", lambda: sorn.dask.map_images(sorn.mser, images))):
                t0 = time.perf_counter()
                got = run()
                times[name].append(time.perf_counter() - t0)
                assert got == want, name
    finally:
        client.close()
        cluster.close()
    return {k: min(v) for k, v in times.items()}, sum(len(r) for r in want)


def cpu_name():
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or "unknown"


def us(t):
    return f"{t * 1e6:.2f}"


def ms(t):
    return f"{t * 1e3:.3f}"


def ratio(a, b):
    return f"{a / b:.2f}" if b else ""


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", default=RESULTS)
    parser.add_argument("--quick", action="store_true", help="shorter runs, for trying it out")
    args = parser.parse_args(argv)
    if cv2 is not None:
        cv2.setNumThreads(1)
    rng = np.random.default_rng(7)
    min_seconds = 0.1 if args.quick else 0.5
    small = calls((64, 64), rng, min_seconds)
    large = calls((1080, 1920), rng, min_seconds)
    images = pictures(16, (1000, 1000), rng)
    region_times, count = regions(images, 1 if args.quick else 3)
    load = " ".join(f"{x:.2f}" for x in os.getloadavg())

    lines = [
        "## Python",
        "",
        "Sorn's Python module beside OpenCV's. Written by `bench/python/bench_python.py`; "
        "run it again to refresh this section "
        "(`cmake --build --preset release --target sorn_python_bench`).",
        "",
        f"- Date: {datetime.datetime.utcnow():%Y-%m-%d %H:%M} UTC",
        f"- CPU: {cpu_name()}, {os.cpu_count()} cores; load average at the end of the run: "
        f"{load}",
        f"- Python {platform.python_version()}, numpy {np.__version__}, "
        f"OpenCV {cv2.__version__ if cv2 else 'absent'} (Debian's python3-opencv, "
        "cv2.setNumThreads(1))",
        "- Method: the same numpy arrays of uniform random values for both; each call from "
        "Python allocates its result; median over 15 batches of the time of one call, the batches of the two "
        "libraries taking turns"
        + (" (a quick run: --quick)." if args.quick else "."),
        "",
        "Goal: call overhead and throughput no worse than OpenCV's Python module "
        "(ratio <= 1.00). Ratio is Sorn's time over OpenCV's.",
        "",
        "### Call overhead, 64x64 uint8",
        "",
        "| Operation | Sorn us | OpenCV us | Ratio |",
        "|---|--:|--:|--:|",
    ]
    for name, t_sorn, t_peer in small:
        lines.append(f"| {name} | {us(t_sorn)} | {us(t_peer) if t_peer else ''} | "
                     f"{ratio(t_sorn, t_peer)} |")
    lines += [
        "",
        "### Throughput, 1920x1080 uint8",
        "",
        "| Operation | Sorn ms | Sorn Mpixel/s | OpenCV ms | Ratio |",
        "|---|--:|--:|--:|--:|",
    ]
    for name, t_sorn, t_peer in large:
        lines.append(f"| {name} | {ms(t_sorn)} | {1920 * 1080 / t_sorn / 1e6:.0f} | "
                     f"{ms(t_peer) if t_peer else ''} | {ratio(t_sorn, t_peer)} |")
    serial = region_times["serial"]
    lines += [
        "",
        "### Stable regions of 16 one-megapixel pictures",
        "",
        f"sorn.mser with its defaults on 16 pictures of 1000x1000 (blurred noise with "
        f"shapes), {count} regions in all; every way gives the serial regions. Best of "
        f"{1 if args.quick else 3} runs.",
        "",
        "| How | s | Speed-up |",
        "|---|--:|--:|",
    ]
    for name, t in region_times.items():
        lines.append(f"| {name} | {t:.3f} | {serial / t:.2f} |")
    lines += [
        "",
        f"The speed-ups are bounded by the machine's {os.cpu_count()} cores and by whatever "
        "else runs on them: see the load average above.",
        "",
    ]
    text = "\n".join(lines)
    put_section(args.out, text)
    print(text)
    print(f"wrote {args.out}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
