"""The sweep's generator on small made-up headers: what it sweeps, what it leaves out and
why, and the exclusion lists it refuses."""
import subprocess
import sys
from pathlib import Path

import pytest

GENERATOR = Path(__file__).with_name("gen_misuse_sweep.py")

HEADER = """
#define ORU_API __attribute__((visibility("default")))
typedef struct oru_rec { int a; } oru_rec;
typedef oru_rec oru_alias;
typedef struct oru_opaque oru_opaque;
typedef void (*oru_cb)(int k, const float *a);
ORU_API extern const char *const oru_table[3];      /* a data symbol */
ORU_API void array1d_add_real32(float *d, long n, const float *a);
ORU_API unsigned oru_tensor_scale_real32(oru_alias *t, float s);
ORU_API unsigned oru_handle_run_fpi16(oru_opaque *h);
ORU_API void mat_mul_4x4_kernel(int k, oru_cb cb,
                                float *c);
ORU_API unsigned oru_create_thing(const char *path);
/* ORU_API void oru_commented_out(void); */
ORU_API unsigned oru_slow_thing(int n);
"""


def generate(tmp_path, exclusions, header=HEADER):
    include = tmp_path / "include"
    include.mkdir(exist_ok=True)
    (include / "oru_a.h").write_text(header)
    (tmp_path / "exclusions.txt").write_text(exclusions)
    out = tmp_path / "table.inc"
    run = subprocess.run([sys.executable, str(GENERATOR), str(include), str(tmp_path / "exclusions.txt"), str(out)],
                         capture_output=True, text=True)
    return run, (out.read_text() if out.exists() else "")


def swept(table):
    return {line.split("(")[1].split(")")[0] for line in table.splitlines() if "ORU_MISUSE_TARGET(" in line}


def test_flat_patterns_spare_functions_that_take_records(tmp_path):
    run, table = generate(tmp_path, "flat *_real32 raw floats\nflat *_fpi16 raw q\nflat mat_mul_* tiles\n"
                                    "skip oru_slow_thing takes minutes\n")
    assert run.returncode == 0, run.stderr
    # Records through an alias and an opaque handle count; a callback and raw arrays don't.
    assert swept(table) == {"oru_tensor_scale_real32", "oru_handle_run_fpi16", "oru_create_thing"}
    assert '{"array1d_add_real32", "raw floats"}' in table
    assert '{"mat_mul_4x4_kernel", "tiles"}' in table
    assert '{"oru_slow_thing", "takes minutes"}' in table
    assert "kMisuseExclusionCount = 3;" in table
    assert "oru_table" not in table and "oru_commented_out" not in table
    assert '#include "oru_a.h"' in table  # the declarations come with the table


def test_skip_leaves_out_any_function(tmp_path):
    run, table = generate(tmp_path, "skip oru_tensor_* owned by another sweep\n")
    assert run.returncode == 0, run.stderr
    assert "oru_tensor_scale_real32" not in swept(table)
    assert "array1d_add_real32" in swept(table)


@pytest.mark.parametrize("exclusions, message", [
    ("skip oru_gone no longer declared\n", "oru_gone"),
    ("skip oru_slow_thing\n", "expected"),
    ("drop oru_slow_thing some reason\n", "expected"),
])
def test_bad_exclusion_lists_stop_the_build(tmp_path, exclusions, message):
    run, _ = generate(tmp_path, exclusions)
    assert run.returncode != 0
    assert message in run.stderr + run.stdout


def test_no_exclusions_still_compiles(tmp_path):
    run, table = generate(tmp_path, "# nothing left out\n")
    assert run.returncode == 0, run.stderr
    assert len(swept(table)) == 6
    assert "kMisuseExclusionCount = 0;" in table and '{"", ""}' in table
