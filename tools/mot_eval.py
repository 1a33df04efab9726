#!/usr/bin/env python3
"""Scores a tracker's output against ground truth, both in the MOT text format
("frame,id,x,y,w,h,..."; the fields after h are not read).

    /usr/bin/python3 tools/mot_eval.py GT.txt RESULT.txt

A ground-truth box and a tracker box may belong together when their IoU is at least 0.5.

CLEAR-MOT, frame by frame: a pair that was matched in the object's last matched frame
stays matched while its IoU allows; the other boxes are paired by SciPy's assignment on
1 - IoU. Unpaired tracker boxes are false positives, unpaired ground-truth boxes misses,
and an object whose tracker id differs from the one it last had is an ID switch.
MOTA = 1 - (misses + false positives + ID switches) / ground-truth boxes.

Identity F1: every ground-truth id is given at most one tracker id for the whole video,
so that the number of frames in which the two match (IDTP) is the largest possible;
IDF1 = 2 IDTP / (ground-truth boxes + tracker boxes).
"""
import sys
from collections import defaultdict

import numpy as np
from scipy.optimize import linear_sum_assignment

IOU_MIN = 0.5


def read_mot(path):
    """{frame: [(id, x0, y0, x1, y1), ...]} from a MOT text file."""
    frames = defaultdict(list)
    with open(path) as f:
        for number, line in enumerate(f, 1):
            line = line.strip()
            if not line:
                continue
            fields = line.split(",")
            if len(fields) < 6:
                raise ValueError(f"{path}:{number}: expected frame,id,x,y,w,h,...")
            frame, tid = int(float(fields[0])), int(float(fields[1]))
            x, y, w, h = (float(v) for v in fields[2:6])
            frames[frame].append((tid, x, y, x + w, y + h))
    return frames


def iou_matrix(a, b):
    """IoU of every box of a (rows) with every box of b (columns), boxes x0 y0 x1 y1."""
    a = np.asarray(a, dtype=np.float64).reshape(-1, 4)
    b = np.asarray(b, dtype=np.float64).reshape(-1, 4)
    iw = np.clip(np.minimum(a[:, None, 2], b[None, :, 2]) - np.maximum(a[:, None, 0], b[None, :, 0]), 0, None)
    ih = np.clip(np.minimum(a[:, None, 3], b[None, :, 3]) - np.maximum(a[:, None, 1], b[None, :, 1]), 0, None)
    inter = iw * ih
    area_a = (a[:, 2] - a[:, 0]) * (a[:, 3] - a[:, 1])
    area_b = (b[:, 2] - b[:, 0]) * (b[:, 3] - b[:, 1])
    union = area_a[:, None] + area_b[None, :] - inter
    return np.where(union > 0, inter / np.where(union > 0, union, 1), 0.0)


def clear_mot(gt, res):
    """Counts and per-frame pairs {frame: {gt id: tracker id}}."""
    last = {}  # gt id -> tracker id of its last match
    matches = {}
    misses = false_positives = switches = total = 0
    for frame in sorted(set(gt) | set(res)):
        g, r = gt.get(frame, []), res.get(frame, [])
        total += len(g)
        iou = iou_matrix([b[1:] for b in g], [b[1:] for b in r])
        pairs = {}
        # matches of the last frame first, where they still hold
        r_index = {b[0]: j for j, b in enumerate(r)}
        for i, b in enumerate(g):
            j = r_index.get(last.get(b[0]))
            if j is not None and iou[i, j] >= IOU_MIN and j not in pairs.values():
                pairs[i] = j
        free_g = [i for i in range(len(g)) if i not in pairs]
        free_r = [j for j in range(len(r)) if j not in pairs.values()]
        if free_g and free_r:
            sub = iou[np.ix_(free_g, free_r)]
            rows, cols = linear_sum_assignment(np.where(sub >= IOU_MIN, 1.0 - sub, 1e6))
            for i, j in zip(rows, cols):
                if sub[i, j] >= IOU_MIN:
                    pairs[free_g[i]] = free_r[j]
        frame_matches = {}
        for i, j in pairs.items():
            gid, rid = g[i][0], r[j][0]
            if gid in last and last[gid] != rid:
                switches += 1
            last[gid] = rid
            frame_matches[gid] = rid
        matches[frame] = frame_matches
        misses += len(g) - len(pairs)
        false_positives += len(r) - len(pairs)
    return {"gt": total, "misses": misses, "false_positives": false_positives, "switches": switches,
            "matches": matches}


def id_f1(gt, res):
    gt_ids = sorted({b[0] for boxes in gt.values() for b in boxes})
    res_ids = sorted({b[0] for boxes in res.values() for b in boxes})
    n_gt = sum(len(v) for v in gt.values())
    n_res = sum(len(v) for v in res.values())
    if n_gt + n_res == 0:
        return 1.0
    together = np.zeros((len(gt_ids), len(res_ids)))
    gi = {t: k for k, t in enumerate(gt_ids)}
    ri = {t: k for k, t in enumerate(res_ids)}
    for frame in set(gt) & set(res):
        g, r = gt[frame], res[frame]
        iou = iou_matrix([b[1:] for b in g], [b[1:] for b in r])
        for i, j in zip(*np.nonzero(iou >= IOU_MIN)):
            together[gi[g[i][0]], ri[r[j][0]]] += 1
    idtp = 0.0
    if together.size:
        rows, cols = linear_sum_assignment(together, maximize=True)
        idtp = together[rows, cols].sum()
    return 2.0 * idtp / (n_gt + n_res)


def evaluate(gt_path, res_path):
    gt, res = read_mot(gt_path), read_mot(res_path)
    m = clear_mot(gt, res)
    m["mota"] = 1.0 - (m["misses"] + m["false_positives"] + m["switches"]) / m["gt"] if m["gt"] else 0.0
    m["idf1"] = id_f1(gt, res)
    m["gt_tracks"] = len({b[0] for boxes in gt.values() for b in boxes})
    return m


def main(argv):
    if len(argv) != 3:
        sys.stderr.write("usage: mot_eval.py GT.txt RESULT.txt\n")
        return 2
    m = evaluate(argv[1], argv[2])
    print(f"MOTA {m['mota']:.4f}  IDF1 {m['idf1']:.4f}  ID switches {m['switches']}  "
          f"false positives {m['false_positives']}  misses {m['misses']}  "
          f"ground truth {m['gt']} boxes in {m['gt_tracks']} tracks")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
