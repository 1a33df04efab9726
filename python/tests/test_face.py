import os
import re
import subprocess

import numpy as np
import pytest

import orucore
from conftest import IMAGES, SOURCE, WEIGHTS, program


@pytest.fixture(scope="module")
def detector():
    with orucore.FaceDetector(WEIGHTS) as d:
        yield d


@pytest.mark.parametrize("name,keep_aspect", [("faces-1.bmp", False), ("faces-3.bmp", True)])
def test_boxes_equal_the_face_detect_program(detector, name, keep_aspect, tmp_path):
    path = os.path.join(IMAGES, name)
    command = [program("ORUCORE_TEST_FACE_DETECT"), path, "--model", WEIGHTS, "-o", str(tmp_path / "out.bmp")]
    run = subprocess.run(command + (["--keep-aspect"] if keep_aspect else []), capture_output=True, text=True,
                         check=True)
    expected = np.array([[float(v) for v in line.split()] for line in run.stdout.splitlines()
                         if re.fullmatch(r"[-0-9. ]+", line)], np.float32)
    faces = detector.detect(orucore.imread(path), keep_aspect=keep_aspect)
    assert len(expected) > 0 and faces.shape == expected.shape
    # The program prints two decimals for the corners and four for the score.
    np.testing.assert_allclose(faces[:, :4], expected[:, :4], atol=0.0051)
    np.testing.assert_allclose(faces[:, 4], expected[:, 4], atol=0.000051)
    # An Image gives the same as its array, and a higher threshold keeps a prefix.
    with orucore.Image.read(path) as image:
        np.testing.assert_array_equal(detector.detect(image, keep_aspect=keep_aspect), faces)
    strict = detector.detect(orucore.imread(path), threshold=0.95, keep_aspect=keep_aspect)
    np.testing.assert_array_equal(strict, faces[faces[:, 4] > 0.95])


def test_fixed_point_network_or_a_clear_refusal():
    """With the fixed-point network in the detector library, its faces come near the
    float network's; without it, fixed=True says so."""
    try:
        fixed = orucore.FaceDetector(WEIGHTS, fixed=True)
    except NotImplementedError as e:
        assert "ultraface_create_backend" in str(e)
        return
    with fixed, orucore.FaceDetector(WEIGHTS) as real:
        image = orucore.imread(os.path.join(IMAGES, "faces-1.bmp"))
        a, b = fixed.detect(image), real.detect(image)
        assert abs(len(a) - len(b)) <= max(2, len(b) // 10)


def test_backend_constant_matches_the_header():
    header = open(os.path.join(SOURCE, "examples", "face_detect", "ultraface.h")).read()
    found = re.search(r"ULTRAFACE_BACKEND_FIXED\s*=?\s*\(?(\d+)u?", header)
    if not found:
        pytest.skip("this ultraface.h has no fixed-point backend yet")
    assert int(found.group(1)) == orucore.face.BACKEND_FIXED


def test_bad_input_raises(detector):
    image = np.zeros((240, 320, 3), np.uint8)
    for bad, what in [(image.astype(np.float64), "dtype"), (image[:, :, 0], "dimensions"),
                      (image[:, ::-1], "contiguous"), (np.zeros((240, 320, 4), np.uint8), "axis 2")]:
        with pytest.raises(ValueError, match=what):
            detector.detect(bad)
    with pytest.raises(ValueError, match="method"):
        orucore.FaceDetector(WEIGHTS, method=1)
    with pytest.raises(orucore.OrucoreError, match="weights"):
        orucore.FaceDetector(os.path.join(SOURCE, "CMakeLists.txt"))
    # A grey image is refused by the detector itself, as an exception.
    with orucore.Image.from_array(np.zeros((24, 32), np.uint8)) as grey:
        with pytest.raises(orucore.OrucoreError):
            detector.detect(grey)
