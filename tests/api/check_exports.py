#!/usr/bin/env python3
"""The shared library exports exactly the names that the public headers declare with ORU_API."""
import re
import subprocess
import sys
from pathlib import Path

nm, lib, include_dir = sys.argv[1:4]
declared = set()
for header in Path(include_dir).glob("*.h"):
    text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
    text = "\n".join(l for l in text.splitlines() if not l.lstrip().startswith("#"))
    for decl in re.findall(r"\bORU_API\b([^;{]*)", text):
        decl = decl.split("(")[0] if "(" in decl else decl.split("[")[0].split("=")[0]
        names = re.findall(r"[A-Za-z_]\w*", decl)
        if names:
            declared.add(names[-1])
declared.discard("ORU_API")

out = subprocess.run([nm, "-D", "--defined-only", lib], capture_output=True, text=True, check=True).stdout
exported = set()
for line in out.splitlines():
    parts = line.split()
    # Sanitizer builds add their own __odr_asan.* markers; they are not ours.
    if len(parts) == 3 and parts[1] in "TDRBG" and not parts[2].startswith("__odr_asan"):
        exported.add(parts[2])
exported -= {"_init", "_fini", "_edata", "_end", "__bss_start"}

missing = sorted(declared - exported)
extra = sorted(exported - declared)
for name in missing:
    print("declared but not exported:", name)
for name in extra:
    print("exported but not declared:", name)
print(f"{len(declared)} declared, {len(exported)} exported")
sys.exit(1 if missing or extra else 0)
