"""What the worker programs share: the reply stream, texts, video frames at a working size, the boost.

stdout carries the JSON replies and nothing else; everything meant for a person goes to stderr,
which the application sends to the log files. The conventions are in PROTOCOL.md.
"""
import json
import os
import sys
import time

import cv2
import numpy as np

# The replies go to the real stdout; a stray print() from any library lands in the log instead.
_replies = sys.stdout
sys.stdout = sys.stderr

LANG = "en" if os.environ.get("OMBRIK_LANG", "fr").startswith("en") else "fr"

# Texts shown to the user (status bar, or after the tool's "impossible" prefix).
_TEXTS = {
    "bad_json": ("requête illisible (JSON attendu) : {}", "unreadable request (JSON expected): {}"),
    "not_object": ("requête illisible : un objet JSON est attendu", "unreadable request: a JSON object is expected"),
    "unavailable": ("{} : pas encore disponible dans ce worker", "{}: not available in this worker yet"),
    "no_track": ("le suivi de points n'est pas servi par ce worker (--no-track)",
                 "point tracking is not served by this worker (--no-track)"),
    "no_video": ("vidéo illisible : {}", "unreadable video: {}"),
    "missing": ("clé manquante dans la requête : {}", "key missing from the request: {}"),
    "bad_start": ("image de départ {} hors de la vidéo", "start frame {} is outside the video"),
    "reading": ("Lecture de la vidéo : {} images", "Reading the video: {} frames"),
    "no_points": ("aucun point à suivre", "no points to track"),
    "bad_poly": ("contour trop petit (3 points au moins)", "outline too small (3 points at least)"),
    "unknown_kind": ("{} : travail inconnu de om_klt", "{}: job unknown to om_klt"),
}


def texts(table):
    """The text function of a module's table of (French, English) pairs, in OMBRIK_LANG."""
    def text(key, *args):
        fr, en = table[key]
        return (en if LANG == "en" else fr).format(*args)
    return text


text = texts(_TEXTS)


class JobError(Exception):
    """A job that can't be done: its text is the `error` reply."""


def reply(obj):
    _replies.write(json.dumps(obj, separators=(",", ":")) + "\n")
    _replies.flush()


def log(*parts):
    print(*parts, file=sys.stderr, flush=True)


def threads():
    try:
        n = int(os.environ.get("OM_THREADS", "0"))
    except ValueError:
        n = 0
    if n > 0:
        cv2.setNumThreads(n)


def need(request, *keys):
    for k in keys:
        if k not in request:
            raise JobError(text("missing", k))
    return [request[k] for k in keys]


class Heartbeat:
    """A status line at most once a second during long reads, so that the application can tell a
    slow worker from a hung one."""

    def __init__(self):
        self.last = time.monotonic()

    def beat(self, frames):
        now = time.monotonic()
        if now - self.last >= 1.0:
            self.last = now
            reply({"status": text("reading", frames)})


IMAGE_EXTS = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".exr", ".bmp", ".dpx", ".webp"}


class Video:
    """A video read strictly in decoding order from its first frame, so that frame n is the n-th
    decoded picture, as in the application's own reader (seeking by frame index is not exact on
    long-GOP files). A still image is a video of one frame."""

    def __init__(self, path, side):
        self.path = path
        self.still = os.path.splitext(path)[1].lower() in IMAGE_EXTS
        if self.still:
            first = cv2.imread(path, cv2.IMREAD_COLOR)
            if first is None:
                raise JobError(text("no_video", path))
            self.H, self.W = first.shape[:2]
        else:
            cap = cv2.VideoCapture(path)
            ok, first = cap.read() if cap.isOpened() else (False, None)
            cap.release()
            if not ok:
                raise JobError(text("no_video", path))
            self.H, self.W = first.shape[:2]
        # The working size: long side `side`, never enlarged.
        self.scale = min(1.0, float(side) / max(self.W, self.H)) if side else 1.0
        self.w = max(1, int(round(self.W * self.scale)))
        self.h = max(1, int(round(self.H * self.scale)))
        self.sx, self.sy = self.w / self.W, self.h / self.H

    def grey(self, bgr):
        g = cv2.cvtColor(bgr, cv2.COLOR_BGR2GRAY)
        if (self.w, self.h) != (self.W, self.H):
            g = cv2.resize(g, (self.w, self.h), interpolation=cv2.INTER_AREA)
        return g

    def _decoded(self):
        if self.still:
            yield cv2.imread(self.path, cv2.IMREAD_COLOR)
            return
        cap = cv2.VideoCapture(self.path)
        try:
            while True:
                ok, frame = cap.read()
                if not ok:
                    return
                yield frame
        finally:
            cap.release()

    def forward(self, start, last, beat):
        """Grey frames start..last (inclusive, `last` None: to the end), as (index, picture)."""
        for i, frame in enumerate(self._decoded()):
            if last is not None and i > last:
                return
            if i < start:
                beat.beat(i)
                continue
            yield i, self.grey(frame)

    def backward(self, start, last, beat, budget_bytes=768 << 20):
        """Grey frames start down to last, as (index, picture). Decoding only runs forward, so the
        range is held in memory in chunks that fit `budget_bytes`; each chunk below the first
        decodes again from frame 0, which only long backward runs pay."""
        chunk = max(8, budget_bytes // (self.w * self.h))
        hi = start
        while hi >= last:
            lo = max(last, hi - chunk + 1)
            frames = []
            for i, frame in enumerate(self._decoded()):
                if i > hi:
                    break
                if i >= lo:
                    frames.append(self.grey(frame))
                beat.beat(i)
            if len(frames) != hi - lo + 1:
                return  # fewer frames than the start said: the caller reports what it got
            for k in range(len(frames) - 1, -1, -1):
                yield lo + k, frames[k]
            hi = lo - 1

    def frames(self, start, backward, limit, beat):
        if backward:
            last = 0 if limit is None else max(0, start - int(limit))
            return self.backward(start, last, beat)
        last = None if limit is None else start + int(limit)
        return self.forward(start, last, beat)

    # Points: the application's coordinates are continuous, the picture spanning [0, W] x [0, H];
    # OpenCV puts the centre of pixel i at i, hence the half-pixel shifts.
    def to_work(self, pts_px):
        p = np.asarray(pts_px, np.float64).reshape(-1, 2)
        return np.stack([p[:, 0] * self.sx - 0.5, p[:, 1] * self.sy - 0.5], 1).astype(np.float32)

    def to_norm(self, pts_work):
        p = np.asarray(pts_work, np.float64).reshape(-1, 2)
        return np.stack([(p[:, 0] + 0.5) / self.w, (p[:, 1] + 0.5) / self.h], 1)

    def inside(self, pts_work, margin=0.0):
        """Points at least `margin` working pixels inside the picture."""
        p = np.asarray(pts_work).reshape(-1, 2)
        lo, hx, hy = margin - 0.5, self.w - 0.5 - margin, self.h - 0.5 - margin
        return (p[:, 0] >= lo) & (p[:, 0] <= hx) & (p[:, 1] >= lo) & (p[:, 1] <= hy)


def booster(gain, size, scale):
    """Local contrast for flat textures (walls, skin, sky): g + gain * (g - blur(g)), the blur
    sigma a third of `size` video pixels. None when there is no boost."""
    gain = float(gain or 0)
    if gain <= 0:
        return None
    sigma = max(0.5, float(size or 24) * scale / 3.0)

    def apply(g):
        f = g.astype(np.float32)
        out = f + gain * (f - cv2.GaussianBlur(f, (0, 0), sigma))
        return np.clip(out, 0, 255).astype(np.uint8)

    return apply


def frame_report(f, norm, vis):
    pts = [[round(float(x), 6), round(float(y), 6), 1.0 if v else 0.0] for (x, y), v in zip(norm, vis)]
    reply({"f": int(f), "pts": pts})
