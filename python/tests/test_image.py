import os
import struct

import numpy as np
import pytest

import orucore
from conftest import IMAGES
from resize_model import model_box2, model_nn, model_resize_bilinear


def model_nearest(src, dw, dh):
    """Exact halving takes the 2 x 2 box whatever the method."""
    half = src.shape[:2] == (2 * dh, 2 * dw)
    return model_box2(src) if half else model_nn(src, dw, dh)


def read_bmp_numpy(path):
    """A 24-bit uncompressed BMP decoded with NumPy alone: bottom-up rows padded to 4 bytes."""
    raw = open(path, "rb").read()
    offset, = struct.unpack_from("<I", raw, 10)
    width, height, _, bits = struct.unpack_from("<iiHH", raw, 18)
    assert bits == 24
    stride = (3 * width + 3) & ~3
    rows = np.frombuffer(raw, np.uint8, stride * abs(height), offset).reshape(abs(height), stride)
    pixels = rows[:, :3 * width].reshape(abs(height), width, 3)
    return pixels[::-1] if height > 0 else pixels


@pytest.mark.parametrize("name", sorted(f for f in os.listdir(IMAGES) if f.endswith(".bmp")))
def test_imread_matches_a_numpy_decoder(name):
    path = os.path.join(IMAGES, name)
    np.testing.assert_array_equal(orucore.imread(path), read_bmp_numpy(path))


@pytest.mark.parametrize("shape", [(1, 1), (3, 5), (17, 31, 3), (2, 9, 3), (40, 7)])
def test_arrays_and_bmp_files_round_trip(shape, tmp_path):
    a = np.random.default_rng(sum(shape)).integers(0, 256, shape, dtype=np.uint8)
    with orucore.Image.from_array(a) as image:
        assert (image.width, image.height) == (shape[1], shape[0])
        assert image.format == (orucore.GRAY if len(shape) == 2 else orucore.BGR)
        np.testing.assert_array_equal(image.to_array(), a)
    path = str(tmp_path / "round.bmp")
    orucore.imwrite(path, a)
    np.testing.assert_array_equal(orucore.imread(path), a)
    if len(shape) == 3:
        np.testing.assert_array_equal(read_bmp_numpy(path), a)


@pytest.mark.parametrize("method,model", [("bilinear", model_resize_bilinear), ("nearest", model_nearest)])
@pytest.mark.parametrize("src,dst", [((37, 53), (20, 11)), ((20, 30), (45, 61)), ((16, 24), (8, 12)),
                                     ((9, 9), (9, 9)), ((64, 48), (33, 70))])
@pytest.mark.parametrize("channels", [1, 3])
def test_resize_matches_the_numpy_model(method, model, src, dst, channels):
    shape = src if channels == 1 else src + (3,)
    a = np.random.default_rng(src[0] * dst[1]).integers(0, 256, shape, dtype=np.uint8)
    out = orucore.resize(a, (dst[1], dst[0]), method)
    assert out.shape == (dst if channels == 1 else dst + (3,))
    np.testing.assert_array_equal(out, model(a, dst[1], dst[0]))


GOOD = np.zeros((4, 6, 3), np.uint8)


@pytest.mark.parametrize("call,what", [
    (lambda: orucore.Image.from_array(GOOD.astype(np.float32)), "dtype"),
    (lambda: orucore.Image.from_array(np.zeros(5, np.uint8)), "dimensions"),
    (lambda: orucore.Image.from_array(np.zeros((4, 6, 4), np.uint8)), "channels"),
    (lambda: orucore.Image.from_array(GOOD[:, ::2]), "contiguous"),
    (lambda: orucore.Image.from_array([[1, 2]]), "NumPy array"),
    (lambda: orucore.Image.from_array(GOOD, orucore.GRAY), "format"),
    (lambda: orucore.imwrite("/tmp/x.bmp", np.zeros((2, 2), np.int16)), "dtype"),
    (lambda: orucore.resize(GOOD, (3, 3), "cubic"), "method"),
    (lambda: orucore.imread("x.bmp", "cmyk"), "mode"),
])
def test_bad_arguments_raise_value_error(call, what):
    with pytest.raises(ValueError, match=what):
        call()


def test_failed_calls_raise_with_the_status_and_the_report(tmp_path, capfd):
    with pytest.raises(orucore.OrucoreError) as e:
        orucore.imread(str(tmp_path / "missing.bmp"))
    assert e.value.status is None and e.value.function == "oru_create_image_from_file"
    assert e.value.message
    with pytest.raises(orucore.OrucoreError) as e:
        orucore.imwrite(str(tmp_path / "no" / "such" / "dir.bmp"), GOOD)
    assert e.value.status == 8 and e.value.message
    with pytest.raises(orucore.OrucoreError) as e:
        orucore.resize(GOOD, (0, 5))
    assert "Your input params are wrong!" in str(e.value)
    # The report became the exception; it is not printed as well.
    assert "Error occurred" not in capfd.readouterr().out


def test_closing_releases_once():
    image = orucore.Image.from_array(GOOD)
    image.close()
    image.close()
    with pytest.raises(ValueError, match="closed"):
        image.to_array()
