"""What the matte and selection jobs share: edge refinement by a guided filter, mask files written
so that a reader never sees half of one, and whole-video jobs that stop cleanly.

Debian's python3-opencv has no ximgproc (no contrib), so the guided filter is written here.
"""
import os
import select
import signal
import socket
import stat
import sys

import cv2
import numpy as np

from om_common import JobError, reply, texts

_TEXTS = {
    "no_image": ("image illisible : {}", "unreadable image: {}"),
    "no_video": ("vidéo illisible : {}", "unreadable video: {}"),
    "no_write": ("impossible d'écrire {}", "cannot write {}"),
}


text = texts(_TEXTS)


def guided_filter(guide_bgr, src, radius, eps=1e-4, sub=4):
    """He et al.'s guided filter with a colour guide, computed at 1/`sub` of the size (the fast
    variant; the linear coefficients are smooth, so little is lost) and applied at full size:
    `src` (float32, 0..1) takes the edges of `guide_bgr`. `radius` is in full-size pixels."""
    H, W = src.shape
    I = guide_bgr.astype(np.float32) / 255.0
    sub = max(1, min(sub, int(radius) // 2 or 1))
    w, h = max(1, W // sub), max(1, H // sub)
    Is = cv2.resize(I, (w, h), interpolation=cv2.INTER_AREA)
    ps = cv2.resize(src.astype(np.float32), (w, h), interpolation=cv2.INTER_AREA)
    r = max(1, int(round(radius / sub)))
    k = (2 * r + 1, 2 * r + 1)

    def box(x):
        return cv2.boxFilter(x, -1, k, borderType=cv2.BORDER_REFLECT)

    mI = box(Is)
    mp = box(ps)
    cov = box(Is * ps[..., None]) - mI * mp[..., None]
    # The 3 x 3 covariance of the guide in each window, regularised by eps, inverted in closed form.
    v = {}
    for a in range(3):
        for b in range(a, 3):
            v[a, b] = box(Is[..., a] * Is[..., b]) - mI[..., a] * mI[..., b] + (eps if a == b else 0)
    rr, rg, rb, gg, gb, bb = v[0, 0], v[0, 1], v[0, 2], v[1, 1], v[1, 2], v[2, 2]
    inv = np.stack([gg * bb - gb * gb, gb * rb - rg * bb, rg * gb - gg * rb,
                    rr * bb - rb * rb, rb * rg - rr * gb, rr * gg - rg * rg], -1)
    det = rr * inv[..., 0] + rg * inv[..., 1] + rb * inv[..., 2]
    inv /= det[..., None]
    i00, i01, i02, i11, i12, i22 = (inv[..., n] for n in range(6))
    c0, c1, c2 = cov[..., 0], cov[..., 1], cov[..., 2]
    a = np.stack([i00 * c0 + i01 * c1 + i02 * c2, i01 * c0 + i11 * c1 + i12 * c2,
                  i02 * c0 + i12 * c1 + i22 * c2], -1)
    b = mp - np.einsum("ijk,ijk->ij", a, mI)
    A = cv2.resize(box(a), (W, H), interpolation=cv2.INTER_LINEAR)
    B = cv2.resize(box(b), (W, H), interpolation=cv2.INTER_LINEAR)
    return np.clip(np.einsum("ijk,ijk->ij", A, I) + B, 0, 1)


def refine(bgr, prob, gain=3.0, centre=0.5):
    """A network's soft, blurred probability made into a matte that follows the picture's edges: the
    probability is steepened around `centre` (its blur is the network's low resolution, not a real
    transparency), then guided by the picture over a window of about 1/80 of its long side."""
    H, W = prob.shape
    steep = np.clip((prob - centre) * gain + 0.5, 0, 1).astype(np.float32)
    radius = max(2, max(W, H) // 80)
    return guided_filter(bgr, steep, radius, eps=1e-3)


def colour_distance(lab, sample):
    """Mahalanobis distance of every pixel of `lab` to the colours of `sample` (Lab pixels): a
    texture's own spread counts as near."""
    pts = sample.reshape(-1, 3).astype(np.float64)
    cov = np.cov(pts.T) + np.eye(3) * 4.0  # a floor: a flat sample must not make every pixel "far"
    d = lab.reshape(-1, 3).astype(np.float64) - pts.mean(0)
    return np.sqrt(np.einsum("ij,jk,ik->i", d, np.linalg.inv(cov), d)).reshape(lab.shape[:2])


def to_u8(matte):
    return np.clip(matte * 255.0 + 0.5, 0, 255).astype(np.uint8)


def read_image(path):
    img = cv2.imread(path, cv2.IMREAD_COLOR) if path else None
    if img is None:
        raise JobError(text("no_image", path))
    return img


def write_png(path, mask_u8):
    """The PNG goes to a hidden name beside `path`, then takes its name in one rename: a job cut
    short leaves whole files only."""
    folder, name = os.path.split(path)
    tmp = os.path.join(folder, "." + name + ".part.png")
    try:
        if not cv2.imwrite(tmp, mask_u8):
            raise JobError(text("no_write", path))
        os.replace(tmp, path)
    except BaseException:
        if os.path.exists(tmp):
            os.remove(tmp)
        raise


def frames(path):
    """Every decoded frame of a video, from the first, in order; a still image is one frame."""
    ext = os.path.splitext(path)[1].lower()
    if ext in (".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".webp", ".exr"):
        yield read_image(path)
        return
    cap = cv2.VideoCapture(path)
    if not cap.isOpened():
        raise JobError(text("no_video", path))
    try:
        n = 0
        while True:
            ok, frame = cap.read()
            if not ok:
                break
            n += 1
            yield frame
        if n == 0:
            raise JobError(text("no_video", path))
    finally:
        cap.release()


class Stopped(BaseException):
    """The application stopped the worker (SIGTERM) or closed its input during a job."""


def input_closed():
    """True when the application has closed the worker's input (its end of the socket). Only a
    socket can be looked at without taking a line away; on a pipe this says False."""
    try:
        if not stat.S_ISSOCK(os.fstat(0).st_mode):
            return False
        if not select.select([0], [], [], 0)[0]:
            return False
        s = socket.socket(fileno=os.dup(0))
        try:
            return s.recv(1, socket.MSG_PEEK | socket.MSG_DONTWAIT) == b""
        finally:
            s.close()
    except (OSError, ValueError):
        return False


class Outputs:
    """outdir/%05d.png files of a whole-video job, a `seg` after each. SIGTERM (the application's
    stop) or a closed input ends the worker between two files, so that every file already named is
    whole; use it as a context."""

    def __init__(self, outdir):
        os.makedirs(outdir, exist_ok=True)
        self.outdir, self.count = outdir, 0

    def __enter__(self):
        def on_term(signum, _frame):
            raise Stopped()

        self.previous = signal.signal(signal.SIGTERM, on_term)
        return self

    def __exit__(self, kind, value, trace):
        signal.signal(signal.SIGTERM, self.previous)
        if kind is Stopped:
            sys.exit(0)
        return False

    def write(self, index, mask_u8):
        write_png(os.path.join(self.outdir, "%05d.png" % index), mask_u8)
        self.count += 1
        reply({"seg": self.count})
        if input_closed():
            raise Stopped()


def video_job(path, outdir, each):
    """Runs `each(frame) -> mask_u8` on every frame of `path` into `Outputs`, then says "done"."""
    with Outputs(outdir) as out:
        for n, frame in enumerate(frames(path)):
            out.write(n, each(frame))
    reply({"status": "done"})
