"""The precise engine: seed points carried by dense optical flow (OpenCV's DIS) from frame to frame.

Every frame pair gets a forward and a backward flow field at the working size; a point moves by the
forward flow at its position, sharpened by one local Lucas-Kanade step, and stays visible while
the backward flow from where it landed brings it back near where it was (the consistency test of
Sundaram, Brox and Keutzer, "Dense point trajectories by GPU-accelerated large displacement optical
flow", ECCV 2010):

    |w + w'|^2 < 0.01 (|w|^2 + |w'|^2) + 0.5      (working pixels)

where w is the forward flow at the point and w' the backward flow where it lands. The constant term
allows ~0.7 px of disagreement, above the sub-pixel noise of the flow on texture; the relative term
lets fast motion disagree a little more. Occluded or disoccluded points break it by whole pixels.
A point that fails, or leaves the picture, is lost for good: it is reported at its last place with
visibility 0, because a point that comes back elsewhere would tear the fitted pose.
"""
import cv2
import numpy as np

from om_common import Heartbeat, JobError, Video, booster, frame_report, need, reply, text


REFINE_WINDOW = 15
# A point nearer the edge than half the refining window is lost: there the window and the flow's
# patches see only part of their texture, and a point leaving the picture sticks to its edge
# (measured on a plate sliding out: up to 6 px off with no margin, under 1.2 px with this one).
EDGE_MARGIN = REFINE_WINDOW // 2


def sample(flow, pts):
    """The flow field (h x w x 2) at sub-pixel points (N x 2), bilinear, edges repeated."""
    if len(pts) == 0:
        return np.zeros((0, 2), np.float32)
    mx = np.ascontiguousarray(pts[:, 0].reshape(-1, 1), np.float32)
    my = np.ascontiguousarray(pts[:, 1].reshape(-1, 1), np.float32)
    return cv2.remap(flow, mx, my, cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE).reshape(-1, 2)


def refine(prev, cur, pts, landed):
    """The flow's landing places sharpened by one Lucas-Kanade step from them: the flow field is
    smooth by design and rounds off sub-pixel motion that the local window still sees. A point whose
    step fails or strays more than a pixel keeps the flow's place."""
    p = pts.reshape(-1, 1, 2).astype(np.float32)
    guess = landed.reshape(-1, 1, 2).astype(np.float32).copy()
    out, st, _ = cv2.calcOpticalFlowPyrLK(prev, cur, p, guess, winSize=(REFINE_WINDOW, REFINE_WINDOW), maxLevel=1,
                                          flags=cv2.OPTFLOW_USE_INITIAL_FLOW,
                                          criteria=(cv2.TERM_CRITERIA_COUNT | cv2.TERM_CRITERIA_EPS, 20, 0.01))
    out = out.reshape(-1, 2)
    keep = (st.ravel() == 1) & (np.linalg.norm(out - landed, axis=1) < 1.0)
    return np.where(keep[:, None], out, landed)


def consistent(w, wb):
    err = np.sum((w + wb) ** 2, 1)
    return err < 0.01 * (np.sum(w * w, 1) + np.sum(wb * wb, 1)) + 0.5


def track(request):
    video, start, points = need(request, "video", "start", "points")
    start = int(start)
    backward = bool(request.get("backward", False))
    res = int(request.get("res", 512) or 512)
    v = Video(video, res)
    if len(points) == 0:
        raise JobError(text("no_points"))
    boost = booster(request.get("boost"), request.get("boost_size"), v.scale)
    pts = v.to_work(points)
    alive = v.inside(pts)
    dis = cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM)
    beat = Heartbeat()
    prev = None
    done = 0
    for f, g in v.frames(start, backward, request.get("limit"), beat):
        if boost:
            g = boost(g)
        if prev is not None and alive.any():
            idx = np.flatnonzero(alive)
            forward = dis.calc(prev, g, None)
            back = dis.calc(g, prev, None)
            w = sample(forward, pts[idx])
            landed = pts[idx] + w
            ok = consistent(w, sample(back, landed)) & v.inside(landed, EDGE_MARGIN)
            landed = refine(prev, g, pts[idx], landed)
            pts[idx[ok]] = landed[ok]
            alive[idx[~ok]] = False
        frame_report(f, v.to_norm(pts), alive)
        prev = g
        done += 1
        if done % 10 == 0:
            reply({"seg": done})
    if done == 0:
        raise JobError(text("bad_start", start))
    reply({"status": "done"})
