"""tools/mot_eval.py on hand-made cases whose metrics are worked out by hand."""
import os
import sys

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools"))
import mot_eval  # noqa: E402

A = (0, 0, 10, 10)
B_NEAR = (3, 0, 13, 10)  # IoU with A: 7 / 13 = 0.54
HALF = (0, 0, 10, 5)     # IoU with A: exactly 0.5
LESS = (0, 0, 10, 4)     # IoU with A: 0.4
FAR = (100, 100, 110, 110)


def mot_lines(rows):
    """rows of (frame, id, (x0, y0, x1, y1)) -> MOT text."""
    return "".join(f"{f},{i},{b[0]},{b[1]},{b[2] - b[0]},{b[3] - b[1]},1,-1,-1,-1\n" for f, i, b in rows)


CASES = {
    # name: (ground truth, result, MOTA, IDF1, switches, false positives, misses)
    "perfect": ([(1, 1, A), (2, 1, A), (2, 2, FAR)], [(1, 5, A), (2, 5, A), (2, 9, FAR)], 1.0, 1.0, 0, 0, 0),
    # one object, its tracker id changes after two of four frames
    "switch": ([(f, 1, A) for f in range(1, 5)], [(1, 3, A), (2, 3, A), (3, 4, A), (4, 4, A)],
               0.75, 0.5, 1, 0, 0),
    # a split of 3 + 2 frames: IDTP 3 of 5 + 5 boxes
    "split": ([(f, 1, A) for f in range(1, 6)], [(f, 7 if f <= 3 else 8, A) for f in range(1, 6)],
              0.8, 0.6, 1, 0, 0),
    # an object never found and a box where there is none: 2 misses, 1 false positive of 4
    "miss_and_false_positive": ([(1, 1, A), (1, 2, FAR), (2, 1, A), (2, 2, FAR)], [(1, 1, A), (2, 1, A), (1, 4, B_NEAR)],
                                0.25, 4 / 7, 0, 1, 2),
    "iou_at_threshold": ([(1, 1, A)], [(1, 1, HALF)], 1.0, 1.0, 0, 0, 0),
    "iou_below_threshold": ([(1, 1, A)], [(1, 1, LESS)], -1.0, 0.0, 0, 1, 1),
    # B appears beside A; the pair A-1 of frame 1 still holds (IoU 0.54) and is kept,
    # although swapping the ids would give both pairs an IoU of 1; for IDF1 all three
    # pairings count (IoU >= 0.5), so IDTP is 3 of 3 + 3 boxes
    "keeps_last_pairs": ([(1, 1, A), (2, 1, A), (2, 2, B_NEAR)], [(1, 1, A), (2, 1, B_NEAR), (2, 2, A)],
                         1.0, 1.0, 0, 0, 0),
    # an object that leaves and comes back under another id switches once
    "switch_after_gap": ([(1, 1, A), (2, 1, A), (5, 1, A)], [(1, 1, A), (2, 1, A), (5, 2, A)],
                         2 / 3, 2 / 3, 1, 0, 0),
    # frames with only one side
    "empty_frames": ([(1, 1, A), (3, 1, A)], [(1, 1, A), (2, 1, FAR), (3, 1, A)], 0.5, 0.8, 0, 1, 0),
}


@pytest.mark.parametrize("name", sorted(CASES))
def test_hand_made_case(name, tmp_path):
    gt_rows, res_rows, mota, idf1, switches, false_positives, misses = CASES[name]
    gt, res = tmp_path / "gt.txt", tmp_path / "res.txt"
    gt.write_text(mot_lines(gt_rows))
    res.write_text(mot_lines(res_rows))
    m = mot_eval.evaluate(str(gt), str(res))
    assert m["switches"] == switches
    assert m["false_positives"] == false_positives
    assert m["misses"] == misses
    assert m["mota"] == pytest.approx(mota)
    assert m["idf1"] == pytest.approx(idf1)


def test_command_line_prints_the_figures(tmp_path, capsys):
    gt = tmp_path / "gt.txt"
    gt.write_text(mot_lines(CASES["switch"][0]))
    res = tmp_path / "res.txt"
    res.write_text(mot_lines(CASES["switch"][1]))
    assert mot_eval.main(["mot_eval.py", str(gt), str(res)]) == 0
    out = capsys.readouterr().out
    assert "MOTA 0.7500" in out and "IDF1 0.5000" in out and "ID switches 1" in out
    assert mot_eval.main(["mot_eval.py", str(gt)]) == 2
