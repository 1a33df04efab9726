import subprocess

import numpy as np
import pytest

import orucore
from conftest import program


def scripted_scene(frames=40, seed=7):
    """Boxes moving in straight lines with jitter; one object leaves halfway, one enters
    late, and one frame has no detections at all."""
    rng = np.random.default_rng(seed)
    starts = np.array([[20, 30], [200, 40], [100, 150], [300, 200]], np.float32)
    speeds = np.array([[3, 1], [-2, 2], [1, -1], [-3, 0]], np.float32)
    scene = []
    for t in range(frames):
        boxes = []
        for k in range(4):
            if (k == 1 and t > frames // 2) or (k == 3 and t < frames // 3) or t == 25:
                continue
            x, y = starts[k] + t * speeds[k] + rng.normal(0, 0.7, 2)
            boxes.append([x, y, x + 40 + rng.normal(0, 0.5), y + 50 + rng.normal(0, 0.5), rng.uniform(0.5, 1)])
        scene.append(np.array(boxes, np.float32).reshape(-1, 5))
    return scene


@pytest.mark.parametrize("max_age,min_hits,iou", [(1, 3, 0.3), (3, 1, 0.2), (0, 2, 0.5)])
def test_ids_equal_the_c_tracker(max_age, min_hits, iou):
    scene = scripted_scene()
    text = "".join("frame %d\n" % t + "".join("%.9g %.9g %.9g %.9g %.9g\n" % tuple(d) for d in dets)
                   for t, dets in enumerate(scene))
    run = subprocess.run([program("ORUCORE_TEST_SORT_SCENE"), str(max_age), str(min_hits), str(iou)],
                         input=text, capture_output=True, text=True, check=True)
    expected = [[int(v) for v in line.split()[1:]] for line in run.stdout.splitlines() if line.startswith("frame")]
    assert len(expected) == len(scene)
    with orucore.Sort(max_age, min_hits, iou) as tracker:
        got = []
        for dets in scene:
            tracks = tracker.update(dets)
            assert tracks.boxes.shape == (len(tracks.ids), 4) and tracks.times.shape == tracks.ids.shape
            got.append(tracks.ids.tolist())
        assert tracker.frame_count == len(scene)
    assert got == expected
    assert len({i for ids in got for i in ids}) >= 4  # the scene did make several tracks


def test_bad_detections_raise_value_error():
    with orucore.Sort() as tracker:
        for bad, what in [(np.zeros((2, 5), np.int32), "dtype"), (np.zeros(5, np.float32), "dimensions"),
                          (np.zeros((2, 6), np.float32), "N x 4 or N x 5"),
                          (np.zeros((5, 2), np.float32).T, "contiguous"), ([[0, 0, 1, 1, 1]], "NumPy")]:
            with pytest.raises(ValueError, match=what):
                tracker.update(bad)
        # N x 4 and float64 are accepted as the same detections.
        a = tracker.update(np.array([[10, 10, 50, 60]], np.float64))
        assert a.ids.tolist() == [0]
    with pytest.raises(orucore.OrucoreError):
        orucore.Sort(min_hits=0)
