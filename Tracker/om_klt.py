#!/usr/bin/env python3
"""The fast engine: one job per process, `om_klt.py JOB_JSON`, replies on stdout (PROTOCOL.md).

Seeds are good features to track inside the outline, topped up by a grid where the outline holds
too little texture. Each frame pair runs pyramidal Lucas-Kanade forward, then backward from where
the points landed; a point passes when it comes back within FB_MAX working pixels of where it
started (Kalal, Mikolajczyk and Matas, "Forward-backward error", ICPR 2010). On good features LK
converges to a tenth of a pixel, so a whole pixel of round-trip error means the window slid:
occlusion, blur or repeated texture.

"point" mode: a point that fails is lost for good. "planar" mode: the plate moves as one, so a
point that fails is put back where the plate's fit (homography with `perspective`, else similarity)
of the passing points says it is, reported not visible for that frame, and tracked again from there.
"""
import json
import sys

import cv2
import numpy as np

import om_common
from om_common import Heartbeat, JobError, Video, booster, frame_report, log, need, reply, text

FB_MAX = 1.0
WINDOW = 21
# A point nearer the edge than half the LK window is lost: the window there sees only part of its
# texture, and a point leaving the picture sticks to the edge (2.3 px off with no margin, 0.25 px
# with this one, on a plate sliding out).
EDGE_MARGIN = WINDOW // 2
LK = dict(winSize=(WINDOW, WINDOW), maxLevel=3, criteria=(cv2.TERM_CRITERIA_COUNT | cv2.TERM_CRITERIA_EPS, 30, 0.01))


def choose_seeds(grey, poly, count):
    """Up to `count` points inside `poly` (working pixels): corners first, then a grid when fewer
    than 7 in 10 were found."""
    mask = np.zeros(grey.shape, np.uint8)
    cv2.fillPoly(mask, [np.round(poly).astype(np.int32)], 255)
    area = max(1, int(cv2.countNonZero(mask)))
    spacing = max(1.0, (area / max(1, count)) ** 0.5)
    min_dist = max(2.0, spacing / 2)
    found = cv2.goodFeaturesToTrack(grey, maxCorners=count, qualityLevel=0.01, minDistance=min_dist, mask=mask,
                                    blockSize=7)
    seeds = [] if found is None else [tuple(p) for p in found.reshape(-1, 2)]
    want = count * 7 // 10
    if len(seeds) < want:
        x0, y0 = poly.min(0)
        x1, y1 = poly.max(0)
        h, w = grey.shape
        for y in np.arange(y0 + spacing / 2, y1, spacing):
            for x in np.arange(x0 + spacing / 2, x1, spacing):
                if len(seeds) >= want:
                    break
                xi, yi = int(round(x)), int(round(y))
                if not (0 <= xi < w and 0 <= yi < h) or not mask[yi, xi]:
                    continue
                if all((x - sx) ** 2 + (y - sy) ** 2 >= min_dist ** 2 for sx, sy in seeds):
                    seeds.append((x, y))
    return np.array(seeds, np.float32).reshape(-1, 2)


def plate_fit(src, dst, perspective, threshold):
    """A function mapping seeds to where the plate carries them, or None."""
    if perspective and len(src) >= 4:
        H, _ = cv2.findHomography(src, dst, cv2.RANSAC, threshold)
        if H is not None:
            return lambda p: cv2.perspectiveTransform(p.reshape(-1, 1, 2), H).reshape(-1, 2)
    if len(src) >= 2:
        A, _ = cv2.estimateAffinePartial2D(src, dst, method=cv2.RANSAC, ransacReprojThreshold=threshold)
        if A is not None:
            return lambda p: p @ A[:, :2].T.astype(np.float32) + A[:, 2].astype(np.float32)
    return None


def track(job):
    video, start, poly = need(job, "video", "start", "poly")
    start = int(start)
    if len(poly) < 3:
        raise JobError(text("bad_poly"))
    v = Video(video, int(job.get("side", 1920) or 1920))
    planar = job.get("mode", "planar") == "planar"
    perspective = bool(job.get("perspective", False))
    boost = booster(job.get("boost"), job.get("boost_size"), v.scale)
    frames = v.frames(start, bool(job.get("backward", False)), job.get("limit"), Heartbeat())
    first = next(frames, None)
    if first is None:
        raise JobError(text("bad_start", start))
    prev = boost(first[1]) if boost else first[1]
    outline = np.asarray(poly, np.float64).reshape(-1, 2) * (v.w, v.h) - 0.5
    seeds = choose_seeds(prev, outline.astype(np.float32), max(1, int(job.get("count", 100))))
    if len(seeds) == 0:
        raise JobError(text("no_points"))
    reply({"seeds": [[round(float(x), 6), round(float(y), 6)] for x, y in v.to_norm(seeds)]})
    pts = seeds.copy()
    alive = np.ones(len(seeds), bool)
    frame_report(start, v.to_norm(pts), alive)
    threshold = max(1.0, 0.003 * max(v.w, v.h))
    for f, g in frames:
        if boost:
            g = boost(g)
        idx = np.flatnonzero(alive)
        passed = np.zeros(len(pts), bool)
        if len(idx):
            p = pts[idx].reshape(-1, 1, 2)
            nxt, st, _ = cv2.calcOpticalFlowPyrLK(prev, g, p, None, **LK)
            back, st2, _ = cv2.calcOpticalFlowPyrLK(g, prev, nxt, None, **LK)
            nxt = nxt.reshape(-1, 2)
            fb = np.linalg.norm(back.reshape(-1, 2) - p.reshape(-1, 2), axis=1)
            ok = (st.ravel() == 1) & (st2.ravel() == 1) & (fb < FB_MAX) & v.inside(nxt, EDGE_MARGIN)
            pts[idx[ok]] = nxt[ok]
            passed[idx[ok]] = True
        if planar:
            fit = plate_fit(seeds[passed], pts[passed], perspective, threshold) if passed.sum() >= 2 else None
            if fit is not None and (~passed).any():
                pts[~passed] = fit(seeds[~passed])
            visible = passed
        else:
            alive &= passed
            visible = alive
        if passed.sum() < 4:
            reply({"weak": True})
        frame_report(f, v.to_norm(pts), visible)
        prev = g
    reply({"status": "done"})


def main(argv):
    om_common.threads()
    try:
        if len(argv) < 1:
            raise JobError(text("missing", "job"))
        try:
            job = json.loads(argv[0])
        except ValueError as e:
            raise JobError(text("bad_json", e))
        if not isinstance(job, dict):
            raise JobError(text("not_object"))
        kind = job.get("kind", "track")
        if kind != "track":
            raise JobError(text("unknown_kind", kind))
        track(job)
        return 0
    except JobError as e:
        log("job refused:", e)
        reply({"error": str(e)})
        return 1
    except Exception as e:  # a fault of ours or of a library: said, with the trace in the log
        import traceback
        traceback.print_exc(file=sys.stderr)
        reply({"error": "%s: %s" % (type(e).__name__, e)})
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
