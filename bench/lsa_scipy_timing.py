#!/usr/bin/env python3
"""Times SciPy's linear_sum_assignment on uniform square costs, the peer figure of
bench_tracking's BM_Assignment. Run: /usr/bin/python3 bench/lsa_scipy_timing.py"""
import time
import timeit

import numpy as np
from scipy.optimize import linear_sum_assignment

rng = np.random.default_rng(100)
for n in (50, 200):
    mats = [rng.random((n, n), dtype=np.float32) for _ in range(8)]
    state = {"k": 0}

    def run():
        linear_sum_assignment(mats[state["k"] % 8])
        state["k"] += 1

    reps = 2000 if n == 50 else 200
    # CPU time of this process, as Google Benchmark's CPU column, so that a busy machine
    # doesn't skew the ratio.
    best = min(timeit.repeat(run, number=reps, repeat=5, timer=time.process_time)) / reps
    print(f"scipy linear_sum_assignment {n}x{n}: {best * 1e6:.1f} us")
