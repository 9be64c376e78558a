"""Threads: every call runs without the GIL on the calling thread's own
environment, so that threads run the library at once, with the results of a
serial run."""

import threading
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np

import sorn
from conftest import random_image


def work(img, other):
    """A bit of everything, as one tuple of results."""
    grey = img[..., 0]
    return (
        sorn.add(img, other),
        sorn.subtract(img, 3, saturate=False),
        sorn.multiply(img, other, scale=-4),
        sorn.histogram(grey, 64),
        sorn.sum(img),
        sorn.minmax(grey, positions=True),
        sorn.compare(img, other, "<"),
        sorn.matmul(grey[:32, :48].astype(np.float32), grey[:48, :20].astype(np.float32)),
        sorn.mser(np.ascontiguousarray(grey)),
        sorn.component_tree(np.ascontiguousarray(grey[:40, :40])).level,
        sorn.box_filter(grey, (5, 3), border="wrap"),
        sorn.max_filter(grey, 4),
        sorn.threshold(img, 100, 0),
        sorn.otsu_threshold(grey),
        sorn.border(img, 3, border="reflect"),
        sorn.resize(img, (50, 333)),
        sorn.muladd(img, other, 3),
        sorn.gaussian_filter(img, (5, 3), sigma=1.2),
        sorn.sep_filter(grey, [0.25, 0.5, 0.25], [1, -1], border="replicate"),
        sorn.morphology(img, "open", grey[:3, :4] > 128),
    )


def environments_come_back_to(count):
    """A joined Python thread may still be ending at the system's level,
    where its environment is given back: wait a moment for it."""
    for _ in range(500):
        if sorn._live_environments() == count:
            return True
        time.sleep(0.01)
    return False


def same(x, y):
    if isinstance(x, tuple):
        return all(same(a, b) for a, b in zip(x, y))
    if isinstance(x, sorn.Regions):
        return x == y
    return np.array_equal(x, y)


def test_eight_threads_give_the_serial_results(rng):
    images = [(random_image(rng, (120, 160, 3), np.uint8), random_image(rng, (120, 160, 3), np.uint8))
              for _ in range(16)]
    serial = [work(a, b) for a, b in images]
    live = sorn._live_environments()
    for _ in range(3):
        with ThreadPoolExecutor(max_workers=8) as pool:
            threaded = list(pool.map(lambda ab: work(*ab), images))
        assert all(same(s, t) for s, t in zip(serial, threaded))
    # Each thread's environment ends with its thread.
    assert environments_come_back_to(live)


def test_calls_run_at_once_without_the_gil(rng):
    """While one thread is inside a library call, another runs Python: a
    thread that held the GIL through its calls would leave no moment of the
    other's inside them."""
    img = random_image(rng, (1000, 1000), np.uint8)
    calls, ticks = [], []
    done = threading.Event()

    def run():
        for _ in range(5):
            t0 = time.perf_counter()
            sorn.mser(img)
            calls.append((t0, time.perf_counter()))
        done.set()

    def watch():
        while not done.is_set():
            ticks.append(time.perf_counter())

    threads = [threading.Thread(target=watch), threading.Thread(target=run)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    ticks = np.array(ticks)
    inside = sum(int(((ticks > t0) & (ticks < t1)).sum()) for t0, t1 in calls)
    assert inside > 0


def test_an_environment_is_made_per_thread_and_ended_with_it():
    before = sorn._live_environments()
    seen = []

    def run():
        sorn.sum(np.ones((4, 4), np.uint8))
        seen.append(sorn._live_environments())

    threads = [threading.Thread(target=run) for _ in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert max(seen) > before
    assert environments_come_back_to(before)
