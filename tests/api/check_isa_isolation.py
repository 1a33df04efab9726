#!/usr/bin/env python3
"""No inline or template function is shared between a vector-ISA object (*_avx2, *_avx512,
*_neon) and any other object of the library. The linker keeps one copy of such a symbol,
so a plain form could end up running instructions its CPU lacks."""
import re
import subprocess
import sys
from collections import defaultdict

nm, objects = sys.argv[1], sys.argv[2:]
owners = defaultdict(set)
for obj in objects:
    out = subprocess.run([nm, "--defined-only", obj], capture_output=True, text=True, check=True).stdout
    for line in out.splitlines():
        parts = line.split()
        if len(parts) == 3 and parts[1] in ("W", "V"):
            owners[parts[2]].add(obj)

isa = re.compile(r"_(avx2|avx512|neon)\.cpp\.o$")
bad = sorted(s for s, objs in owners.items() if len(objs) > 1 and any(isa.search(o) for o in objs))
for s in bad:
    print("shared across instruction sets:", s, sorted(owners[s]))
print(f"{len(owners)} weak symbols, {len(bad)} shared with a vector-ISA object")
sys.exit(1 if bad else 0)
