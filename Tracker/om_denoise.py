"""Denoise: OpenCV's multi-frame non-local means, written as the noise it removed.

No denoising network can be installed here. Both engines are cv2.fastNlMeansDenoisingColoredMulti
(Buades et al.; 7 x 7 patches, searched 5 px around in each frame of the window):
- "fast": a window of 5 frames;
- "scunet": a window of 7 frames (the network isn't installed; the job says so in its log).
The search stays small on purpose: with the temporal window supplying similar patches, a wider
search only adds dissimilar ones (measured on a textured plate: 21 px costs 2 to 3 dB of PSNR).
The filter strength is h = 0.6 sigma for luma and colour, sigma in 8-bit levels; sigma 0 means
measured on the frame: the median absolute response of each channel to the 3 x 3 Laplacian-like
mask [1 -2 1; -2 4 -2; 1 -2 1] / 6 (Immerkaer 1996, with a median so that texture doesn't count).

What goes out is what the application's k_denoise kernel takes: the noise, centred on 0.5,
noise = decoded - denoised + 0.5 (values of 0..1), which the kernel subtracts from the plate as
the engine decodes it: at strength 1 the result is the denoised plate, in the engine's own
colours whatever matrix OpenCV's decoder used.
"""
import os

import cv2
import numpy as np

from om_common import Heartbeat, JobError, Video, log, need, reply
import om_frames
from om_frames import text

ENGINES = {"fast": 5, "scunet": 7}  # temporal window
SEARCH = 11
PATCH = 7
STRENGTH = 0.6  # h / sigma


def noise_sigma(bgr):
    """The noise's standard deviation in 8-bit levels, the mean of the three channels' estimates."""
    mask = np.array([[1, -2, 1], [-2, 4, -2], [1, -2, 1]], np.float32) / 6.0
    sig = []
    for c in range(3):
        r = cv2.filter2D(bgr[..., c].astype(np.float32), -1, mask)[1:-1, 1:-1]
        sig.append(np.median(np.abs(r)) / 0.6745)
    return float(np.mean(sig))


def engine_window(request):
    engine = str(request.get("engine", "fast"))
    if engine not in ENGINES:
        raise JobError(text("bad_engine", engine))
    if engine == "scunet":
        log("denoise: no SCUNet network here; non-local means over 7 frames (OpenCV) instead")
        reply({"status": text("no_scunet")})
    return ENGINES[engine]


def strength(request, frame):
    try:
        sigma = float(request.get("sigma", 0) or 0)
    except (TypeError, ValueError):
        sigma = 0.0
    if sigma <= 0:
        sigma = noise_sigma(frame)
        log("denoise: measured noise sigma %.2f" % sigma)
    return max(0.5, STRENGTH * sigma)


def denoise(frames, centre, window, h):
    """`frames[centre]` denoised against its neighbours (`frames` holds exactly `window` of them)."""
    return cv2.fastNlMeansDenoisingColoredMulti(frames, centre, window, None, h, h, PATCH, SEARCH)


def noise_rgb(frame, clean):
    """The removed noise centred on 0.5, RGB float32."""
    return (frame.astype(np.float32) - clean.astype(np.float32))[..., ::-1] / 255.0 + 0.5


def mirrored(j, n):
    if n == 1:
        return 0
    j = abs(j)
    if j > n - 1:
        j = 2 * (n - 1) - j
    return min(max(j, 0), n - 1)


def windows(v, window, last, beat):
    """(index, its window of frames) for frames 0..last (None: to the end), the window centred on
    the frame and mirrored at the clip's ends, decoding once and holding `window` frames."""
    r = window // 2
    held = {}
    n = None
    decoded = v._decoded()
    top = -1
    i = 0
    while n is None or i < n:
        while n is None and top < i + r:
            frame = next(decoded, None)
            if frame is None:
                n = top + 1
                break
            top += 1
            held[top] = frame
            beat.beat(top)
        if n is not None and i >= n:
            break
        m = n if n is not None else top + r + 1  # beyond the end is only mirrored once n is known
        yield i, [held[mirrored(j, m)] for j in range(i - r, i + r + 1)]
        if last is not None and i >= last:
            return
        for k in [k for k in held if k < i - r + 1]:
            del held[k]
        i += 1


def denoise_frame(request):
    video, frame, out = need(request, "video", "frame", "out")
    frame = int(frame)
    window = engine_window(request)
    v = Video(video, 0)
    if frame < 0:
        raise JobError(text("bad_frame", frame, "?"))
    beat = Heartbeat()
    count = 0
    for i, frames in windows(v, window, frame, beat):
        count = i + 1
        if i < frame:
            continue
        centre = frames[window // 2]
        clean = om_frames.beating(text("denoising", i + 1), denoise, frames, window // 2, window,
                                  strength(request, centre))
        noise = np.clip(noise_rgb(centre, clean), 0.0, 1.0)[..., ::-1]
        om_frames.write_png(out, (noise * 65535.0 + 0.5).astype(np.uint16))  # 16 bits: 0.5 is kept
        reply({"status": "done"})
        return
    raise JobError(text("bad_frame", frame, count))


def denoise_video(request):
    video, outdir = need(request, "video", "outdir")
    window = engine_window(request)
    v = Video(video, 0)
    om_frames.out_dir(outdir)
    beat = Heartbeat()
    h = None
    for i, frames in windows(v, window, None, beat):
        centre = frames[window // 2]
        if h is None:
            h = strength(request, centre)
        clean = om_frames.beating(text("denoising", i + 1), denoise, frames, window // 2, window, h)
        om_frames.write_dn(os.path.join(outdir, "%05d.dn" % i), noise_rgb(centre, clean))
        reply({"seg": i + 1})
    reply({"status": "done"})
