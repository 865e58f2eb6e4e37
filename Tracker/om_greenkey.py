"""The AI keyer's alpha: a colour-difference key with automatic levels and a guided-filter edge.

No matting network can be installed here, so the alpha is the classical one, done carefully:

1. The screen: pixels where g - max(r, b) > 0.05 are green candidates, b - max(r, g) > 0.05 blue
   ones (the application's own screen detection); the larger group wins, and the screen colour is
   the median of its cleaner half (the most dominant pixels), so edges and spill don't pull it.
2. The raw key: 1 - d / d_screen, with d = key - max(other two) (the colour difference), 0 on the
   screen and 1 or more on anything without the screen's dominance. Where the subject's colour
   is itself far from the screen's, a mixed pixel's raw key saturates early; so the alpha of the
   edge is (d_bg - d) / (d_bg - d_fg), with d_fg and d_bg the mean differences of the solid
   subject and of the clean screen within a few edge widths (both from step 3's levels).
3. Levels: the noise of the raw key on the screen (median and MAD of the pixels near 0) sets clip
   black at median + 4 sigma and clip white at 1 - 4 sigma, so grain neither holes the subject nor
   speckles the screen.
4. Edges: inside the band where the clipped alpha is neither 0 nor 1 around, a colour guided
   filter (He, Sun and Tang 2010) with the picture as guide: a soft edge that follows the
   picture's own edges (hair, motion blur) instead of the key's noise.

Despill is the application's kernel's work: only the alpha goes out, 8-bit, 255 = subject.
"""
import os

import cv2
import numpy as np

from om_common import Heartbeat, JobError, Video, log, need, reply
import om_frames
from om_frames import text


def as_rgb(picture):
    """H x W x 3 float32 RGB in 0..1 from what OpenCV read (BGR or BGRA, 8 or 16 bits or float)."""
    if picture.ndim == 2:
        picture = cv2.cvtColor(picture, cv2.COLOR_GRAY2BGR)
    picture = picture[..., :3]
    if picture.dtype == np.uint8:
        f = picture.astype(np.float32) / 255.0
    elif picture.dtype == np.uint16:
        f = picture.astype(np.float32) / 65535.0
    else:
        f = np.clip(picture.astype(np.float32), 0.0, 1.0)
    return np.ascontiguousarray(f[..., ::-1])


def find_screen(rgb):
    """(channel of the screen: 1 green or 2 blue, its RGB colour), or None when the picture has
    no screen (fewer than 1 pixel in 200 dominant either way)."""
    h, w = rgb.shape[:2]
    s = min(1.0, 512.0 / max(h, w))
    small = cv2.resize(rgb, (max(1, int(w * s)), max(1, int(h * s))), interpolation=cv2.INTER_AREA) if s < 1 else rgb
    px = small.reshape(-1, 3)
    best = None
    for ch in (1, 2):
        others = [c for c in (0, 1, 2) if c != ch]
        dom = px[:, ch] - np.maximum(px[:, others[0]], px[:, others[1]])
        group = dom > 0.05
        if group.sum() * 200 < len(px):
            continue
        if best is None or group.sum() > best[0]:
            clean = group & (dom >= np.median(dom[group]))
            best = (group.sum(), ch, np.median(px[clean], axis=0))
    return None if best is None else (best[1], best[2])


def difference(rgb, ch, colour):
    """The colour difference d = key - max(other two) of each pixel, and the screen's own."""
    others = [c for c in (0, 1, 2) if c != ch]
    d = rgb[..., ch] - np.maximum(rgb[..., others[0]], rgb[..., others[1]])
    return d, max(1e-3, float(colour[ch] - max(colour[others[0]], colour[others[1]])))


def near_mean(values, where, r, fallback):
    """The mean of `values` over the pixels `where` within a box of radius r, `fallback` where the
    box holds none of them."""
    k = (2 * r + 1, 2 * r + 1)
    w = cv2.boxFilter(where.astype(np.float32), -1, k, borderType=cv2.BORDER_REFLECT)
    s = cv2.boxFilter(np.where(where, values, 0).astype(np.float32), -1, k, borderType=cv2.BORDER_REFLECT)
    return np.where(w > 1e-3, s / np.maximum(w, 1e-3), fallback)


def levels(raw):
    """(clip black, clip white) from the key's noise on the screen."""
    near = raw[raw < 0.25]
    if near.size < 100:
        return 0.1, 0.9
    m = float(np.median(near))
    sigma = 1.4826 * float(np.median(np.abs(near - m)))
    return min(0.35, max(0.0, m + 4 * sigma)), max(0.65, min(1.0, 1.0 - 4 * sigma))


def guided(guide, p, r, eps):
    """He et al.'s guided filter with a colour guide (H x W x 3) on p (H x W), box radius r."""
    k = (2 * r + 1, 2 * r + 1)

    def box(x):
        return cv2.boxFilter(x, -1, k, borderType=cv2.BORDER_REFLECT)

    I = [np.ascontiguousarray(guide[..., c]) for c in range(3)]
    mI = [box(c) for c in I]
    mp = box(p)
    cov = [box(I[c] * p) - mI[c] * mp for c in range(3)]
    v = {}
    for a in range(3):
        for b in range(a, 3):
            v[a, b] = box(I[a] * I[b]) - mI[a] * mI[b] + (eps if a == b else 0.0)
    # The 3 x 3 covariance of each window, inverted by cofactors.
    rr, rg, rb, gg, gb, bb = v[0, 0], v[0, 1], v[0, 2], v[1, 1], v[1, 2], v[2, 2]
    i_rr = gg * bb - gb * gb
    i_rg = gb * rb - rg * bb
    i_rb = rg * gb - gg * rb
    i_gg = rr * bb - rb * rb
    i_gb = rb * rg - rr * gb
    i_bb = rr * gg - rg * rg
    det = rr * i_rr + rg * i_rg + rb * i_rb
    a0 = (i_rr * cov[0] + i_rg * cov[1] + i_rb * cov[2]) / det
    a1 = (i_rg * cov[0] + i_gg * cov[1] + i_gb * cov[2]) / det
    a2 = (i_rb * cov[0] + i_gb * cov[1] + i_bb * cov[2]) / det
    b = mp - a0 * mI[0] - a1 * mI[1] - a2 * mI[2]
    return box(a0) * I[0] + box(a1) * I[1] + box(a2) * I[2] + box(b)


class Keyer:
    """Keys pictures one after another; the screen colour and the levels are smoothed from frame
    to frame so that a shot's alpha doesn't flicker with each frame's statistics."""

    def __init__(self):
        self.screen = None  # (channel, colour)
        self.clips = None

    def key(self, rgb):
        """The 8-bit alpha, or None when no screen has been seen yet."""
        found = find_screen(rgb)
        if found is not None:
            if self.screen is None or self.screen[0] != found[0]:
                self.screen = found
            else:
                self.screen = (found[0], 0.7 * self.screen[1] + 0.3 * found[1])
        if self.screen is None:
            return None
        ch, colour = self.screen
        d, ds = difference(rgb, ch, colour)
        # A light blur first: the levels must clear the grain, and the less grain there is the less
        # they crush the thin values at the edge.
        d = cv2.GaussianBlur(d, (0, 0), 1.0)
        raw = 1.0 - d / ds
        clips = np.array(levels(raw))
        self.clips = clips if self.clips is None else 0.7 * self.clips + 0.3 * clips
        cb, cw = self.clips
        # A mixed pixel's difference lies between the screen's and the subject's: with the subject's
        # own difference (often well below 0) taken from the solid subject nearby, and the screen's
        # from the clean screen nearby (uneven lighting), the alpha is linear in the mix.
        h, w = d.shape
        r = max(2, int(round(max(h, w) / 480.0)))
        d_fg = np.minimum(near_mean(d, raw >= cw, 6 * r, 0.0), 0.5 * ds)
        d_bg = np.maximum(near_mean(d, raw <= cb, 6 * r, ds), d_fg + 0.05)
        mix = np.where(raw >= cw, 1.0, (d_bg - d) / (d_bg - d_fg))  # what the plain key holds solid stays so
        alpha = np.clip((mix - cb) / max(1e-3, cw - cb), 0.0, 1.0).astype(np.float32)

        kernel = np.ones((2 * r + 1, 2 * r + 1), np.uint8)
        band = (cv2.dilate(alpha, kernel) - cv2.erode(alpha, kernel)) > 1.0 / 255
        if band.any():
            soft = np.clip(guided(rgb, alpha, r, 1e-4), 0.0, 1.0)
            alpha = np.where(band, soft, alpha)
        return (alpha * 255.0 + 0.5).astype(np.uint8)


def key_frame(request):
    image, out = need(request, "image", "out")
    picture = cv2.imread(image, cv2.IMREAD_UNCHANGED)
    if picture is None:
        raise JobError(text("no_image", image))
    alpha = Keyer().key(as_rgb(picture))
    if alpha is None:
        raise JobError(text("no_screen"))
    om_frames.write_png(out, alpha)
    reply({"status": "done"})


def key_video(request):
    video, outdir = need(request, "video", "outdir")
    v = Video(video, 0)
    om_frames.out_dir(outdir)
    keyer = Keyer()
    beat = Heartbeat()
    done = 0
    waiting = 0  # frames before the first with a screen: nothing keyed on them
    for i, frame in enumerate(v._decoded()):
        beat.beat(i)
        alpha = om_frames.beating(text("keying", i + 1), keyer.key, as_rgb(frame))
        if alpha is None:
            waiting += 1
            alpha = np.full(frame.shape[:2], 255, np.uint8)
        om_frames.write_png(os.path.join(outdir, "%05d.png" % i), alpha)
        done += 1
        reply({"seg": done})
    if waiting:
        log("greenkey: no screen on the first %d frames, left whole" % waiting)
    if keyer.screen is None:
        raise JobError(text("no_screen"))
    reply({"status": "done"})
