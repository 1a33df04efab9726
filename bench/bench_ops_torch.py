#!/usr/bin/env python3
"""PyTorch timings of the shapes in bench_ops.cpp, single-threaded, for the same report.
Run:  /usr/bin/python3 bench/bench_ops_torch.py
"""
import time
import timeit

import torch
import torch.nn.functional as F


def best_us(fn, number):
    # Best of five batches of process CPU time, as Google Benchmark's CPU column: the least
    # disturbed by other work on a shared machine.
    return min(timeit.repeat(fn, number=number, repeat=5, timer=time.process_time)) / number * 1e6


def main():
    torch.set_num_threads(1)
    torch.manual_seed(0)
    s = torch.rand(4420, 2) * 16 - 8
    x = torch.rand(1 << 20) * 16 - 8
    p = torch.rand(1, 64, 60, 80) * 8 - 4
    out_x = torch.empty_like(x)
    with torch.no_grad():
        cases = [
            ("softmax_4420x2", lambda: torch.softmax(s, dim=1), 2000),
            ("sigmoid_1M", lambda: torch.sigmoid(x, out=out_x), 50),
            ("hswish_1M", lambda: F.hardswish(x), 50),
            ("maxpool2x2_64x80x60", lambda: F.max_pool2d(p, 2), 200),
            ("global_avgpool_64x80x60", lambda: F.adaptive_avg_pool2d(p, 1), 200),
        ]
        for name, fn, n in cases:
            print("torch %-26s %10.1f us" % (name, best_us(fn, n)))


if __name__ == "__main__":
    main()
