#!/usr/bin/env python3
"""Weight files for the model loader tests and fuzz seeds: N little-endian 32-bit words,
then the MD5 digest of those 4N bytes (hashlib), then optionally trailing bytes.
Run from the repository root:  /usr/bin/python3 tests/oracles/model_files.py
"""
import hashlib
import os
import struct

ROOT = os.path.join(os.path.dirname(__file__), "..", "..")


def model(words, tail=b""):
    body = struct.pack("<%dI" % len(words), *words)
    return body + hashlib.md5(body).digest() + tail


def main():
    words = [(i * 2654435761) & 0xFFFFFFFF for i in range(1, 101)]
    out = os.path.join(ROOT, "tests", "data", "ops")
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "model_100.bin"), "wb") as f:
        f.write(model(words))
    with open(os.path.join(out, "model_100_tail.bin"), "wb") as f:
        f.write(model(words, b"anything behind the digest"))
    seeds = os.path.join(ROOT, "fuzz", "corpus", "model")
    os.makedirs(seeds, exist_ok=True)
    # The fuzz target takes its word count from the first byte of its input.
    for name, data in (("valid_3", model([3, 7, 11])), ("valid_0", model([0])),
                       ("truncated", model([5, 1, 2, 3, 4, 5])[:14]), ("empty_digest", struct.pack("<I", 1))):
        with open(os.path.join(seeds, name + ".bin"), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    main()
