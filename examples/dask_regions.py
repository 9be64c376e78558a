#!/usr/bin/env python3
"""Stable regions of every picture in a folder, on a Dask cluster.

Runs sorn.mser on each picture of FOLDER (PNG, PGM, PPM or .npy, taken as
grey) on the workers of a dask.distributed cluster, and prints for each
picture how many dark and bright regions it has, with the time the whole
folder took.

Without --scheduler it starts a local cluster of --workers processes on this
machine. To use a real cluster, start a scheduler and workers on the
machines that will run it, where sorn is installed and FOLDER can be read
at the same path (a shared disk), and give the scheduler's address:

    dask-scheduler                                 # on one machine: tcp://host:8786
    dask-worker tcp://host:8786 --nthreads 1       # on each machine that works
    examples/dask_regions.py /shared/pictures --scheduler tcp://host:8786

With --send-pixels the pictures are read here and their pixels sent to the
workers, for a cluster that cannot see FOLDER. --make N writes N synthetic
pictures into FOLDER first, to have something to try it on.
"""

import argparse
import json
import os
import sys
import time

import numpy as np


def make_pictures(folder, count, size=(480, 640)):
    """count grey pictures of blurred noise with a few shapes on them."""
    from sorn import io

    os.makedirs(folder, exist_ok=True)
    rng = np.random.default_rng(2024)
    for i in range(count):
        x = rng.normal(size=size)
        for _ in range(3):
            for axis in (0, 1):
                x = (x + np.roll(x, 1, axis) + np.roll(x, -1, axis)) / 3
        img = ((x - x.min()) / (x.max() - x.min()) * 160 + 40).astype(np.uint8)
        for _ in range(6):
            r, c = rng.integers(20, size[0] - 60), rng.integers(20, size[1] - 60)
            h, w = rng.integers(10, 50, size=2)
            img[r:r + h, c:c + w] = rng.choice([15, 240])
        io.write_png(os.path.join(folder, f"picture{i:03d}.png"), img)


def main(argv=None):
    parser = argparse.ArgumentParser(
        description=__doc__.split("\n\n")[0],
        epilog=__doc__.split("\n\n", 1)[1],
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", help="folder of pictures")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="address of a running Dask scheduler, e.g. tcp://host:8786 "
                             "(default: a local cluster)")
    parser.add_argument("--workers", type=int, default=2,
                        help="worker processes of the local cluster (default 2)")
    parser.add_argument("--send-pixels", action="store_true",
                        help="read the pictures here and send their pixels to the workers")
    parser.add_argument("--make", type=int, metavar="N", default=0,
                        help="first write N synthetic pictures into FOLDER")
    parser.add_argument("--delta", type=int, default=10)
    parser.add_argument("--min-area", type=float, default=0.0001)
    parser.add_argument("--max-area", type=float, default=0.75)
    parser.add_argument("--json", metavar="FILE", help="also write the counts as JSON")
    args = parser.parse_args(argv)

    from dask.distributed import Client, LocalCluster

    import sorn.dask

    if args.make:
        make_pictures(args.folder, args.make)
    paths = sorn.dask.picture_paths(args.folder)
    if not paths:
        parser.error(f"{args.folder}: no PNG, PGM, PPM or .npy pictures")

    cluster = None
    if args.scheduler:
        client = Client(args.scheduler)
    else:
        cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        print(f"scheduler: {client.scheduler.address}, "
              f"{len(client.scheduler_info()['workers'])} workers")
        start = time.perf_counter()
        found = sorn.dask.stable_regions(args.folder, read_on_client=args.send_pixels,
                                         delta=args.delta, min_area=args.min_area,
                                         max_area=args.max_area)
        seconds = time.perf_counter() - start
    finally:
        client.close()
        if cluster is not None:
            cluster.close()

    counts = {}
    for path, regions in zip(paths, found):
        dark = int(np.count_nonzero(regions.dark))
        counts[os.path.basename(path)] = {"dark": dark, "bright": len(regions) - dark}
        print(f"{os.path.basename(path)}: {regions.shape[1]}x{regions.shape[0]}, "
              f"{dark} dark, {len(regions) - dark} bright regions")
    print(f"{len(paths)} pictures in {seconds:.3f} s")
    if args.json:
        with open(args.json, "w") as f:
            json.dump({"pictures": counts, "seconds": seconds}, f, indent=2)
    return 0


if __name__ == "__main__":
    sys.exit(main())
