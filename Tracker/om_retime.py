"""Retime by optical flow: each output frame is the source at a time of `times`, the in-betweens
made from the two frames around that time and the dense flow between them (OpenCV's DIS, as the
precise tracker uses it), both ways.

For t in (0, 1) between frames I0 and I1 with flows F01 and F10, the flows from the in-between to
each frame are approximated as in Super SloMo (Jiang et al. 2018), exact for steady motion:

    Ft0 = -(1 - t) t F01 + t^2 F10        Ft1 = (1 - t)^2 F01 - t (1 - t) F10

Each frame is warped backwards by its flow (cv2.remap) and the two are blended by distance in
time, each weighted by whether what it shows is also visible in the other frame: a pixel of I0
whose flow isn't undone by the backward flow (occluded in I1) takes I1's picture out of the blend,
and the other way round (the consistency test of Sundaram et al. 2010, soft).

Frames come from the ffmpeg program in RGB as the application's reader makes them (the clip's
matrix and range), and go out through it as ProRes 422 HQ tagged BT.709 at the clip's own rate,
so that the application reads back the colours it would have shown.
"""
import cv2
import numpy as np

from om_common import Heartbeat, JobError, log, need, reply, text as common_text
import om_frames
from om_frames import text

FLOW_SIDE = 2048  # flows are computed with the long side at most this, then scaled up


class Source:
    """Random access over a clip decoded only forward: the last few frames are kept, and a frame
    behind them restarts the decoder from the first frame."""

    def __init__(self, video, stream, keep=4):
        self.frames = om_frames.RgbFrames(video, stream)
        self.kept = {}
        self.keep = keep
        self.count = None  # known once the end was reached
        self.beat = Heartbeat()

    def get(self, i):
        if self.count is not None:
            i = min(i, self.count - 1)
        if i in self.kept:
            return self.kept[i]
        if self.frames.proc is None or i < self.frames.index:
            self.frames.restart()
        while self.frames.index <= i:
            at = self.frames.index
            picture = self.frames.next()
            if picture is None:
                self.count = at
                if at == 0:
                    return None
                return self.get(at - 1)
            if at >= i - self.keep + 1:
                self.kept[at] = picture
                for k in [k for k in self.kept if k <= at - self.keep]:
                    del self.kept[k]
            self.beat.beat(at)
        return self.kept[i]


def grey8(rgb, scale):
    g = cv2.cvtColor((rgb * 255.0 + 0.5).astype(np.uint8), cv2.COLOR_RGB2GRAY)
    if scale < 1:
        g = cv2.resize(g, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
    return g


class Flows:
    """The flow pair of one frame pair, kept while consecutive in-betweens use the same pair."""

    def __init__(self, width, height):
        self.dis = cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM)
        self.scale = min(1.0, FLOW_SIDE / max(width, height))
        self.size = (width, height)
        self.key = None
        self.pair = None

    def between(self, a, I0, I1):
        if self.key != a:
            g0, g1 = grey8(I0, self.scale), grey8(I1, self.scale)
            f01, f10 = self.dis.calc(g0, g1, None), self.dis.calc(g1, g0, None)
            if self.scale < 1:
                f01 = cv2.resize(f01, self.size, interpolation=cv2.INTER_LINEAR) / self.scale
                f10 = cv2.resize(f10, self.size, interpolation=cv2.INTER_LINEAR) / self.scale
            self.key, self.pair = a, (f01, f10)
        return self.pair


def warp(picture, grid, flow):
    return cv2.remap(picture, grid[0] + flow[..., 0], grid[1] + flow[..., 1], cv2.INTER_LINEAR,
                     borderMode=cv2.BORDER_REPLICATE)


def visible(f, f_back, grid):
    """How far each pixel's flow is undone by the flow back from where it lands (1: fully, 0: an
    occlusion), soft around the Sundaram et al. bound."""
    back = warp(f_back, grid, f)
    err = np.sum((f + back) ** 2, axis=2)
    bound = 0.01 * (np.sum(f * f, axis=2) + np.sum(back * back, axis=2)) + 0.5
    return np.exp(-err / bound).astype(np.float32)


def inbetween(I0, I1, f01, f10, t, grid):
    ft0 = -(1 - t) * t * f01 + t * t * f10
    ft1 = (1 - t) * (1 - t) * f01 - t * (1 - t) * f10
    w0 = warp(I0, grid, ft0)
    w1 = warp(I1, grid, ft1)
    # I1's picture is right where the I0 content that lands here is visible in I1, and the other way round.
    seen_in_1 = warp(visible(f01, f10, grid), grid, ft0)
    seen_in_0 = warp(visible(f10, f01, grid), grid, ft1)
    a = (1 - t) * (seen_in_0 + 1e-3)
    b = t * (seen_in_1 + 1e-3)
    return (w0 * a[..., None] + w1 * b[..., None]) / (a + b)[..., None]


def parse_times(times):
    if not isinstance(times, list) or not times:
        raise JobError(text("bad_times"))
    out = []
    for t in times:
        if isinstance(t, bool) or not isinstance(t, (int, float)) or not np.isfinite(t) or t < 0:
            raise JobError(text("bad_times"))
        out.append(float(t))
    return out


def retime_flow(request):
    video, times, out = need(request, "video", "times", "out")
    times = parse_times(times)
    om_frames.ffmpeg_path()
    stream = om_frames.probe(video)
    if stream is None or not stream.get("width"):
        raise JobError(common_text("no_video", video))
    src = Source(video, stream)
    first = src.get(0)
    if first is None:
        raise JobError(common_text("no_video", video))
    H, W = first.shape[:2]
    rate = om_frames.rate_of(stream)
    log("retime: %d output frames of %dx%d at %s frames/s" % (len(times), W, H, rate))
    flows = Flows(W, H)
    grid = np.meshgrid(np.arange(W, dtype=np.float32), np.arange(H, dtype=np.float32))
    movie = om_frames.MovieWriter(out, W, H, rate)
    try:
        for i, t in enumerate(times):
            a = int(np.floor(t + 1e-6))
            frac = t - a
            I0 = src.get(a)
            if frac < 1e-3 or (src.count is not None and a >= src.count - 1):
                picture = I0  # on a frame, or past the last one: the frame itself
            else:
                I1 = src.get(a + 1)
                if src.count is not None and a + 1 >= src.count:
                    picture = I0
                else:
                    def make(I0=I0, I1=I1, a=a, frac=frac):
                        f01, f10 = flows.between(a, I0, I1)
                        return inbetween(I0, I1, f01, f10, frac, grid)
                    picture = om_frames.beating(text("retiming", i + 1), make)
            movie.write(picture)
            reply({"seg": i + 1})
        movie.finish()
    except BaseException:
        movie.abandon()
        raise
    finally:
        src.frames.close()
    reply({"status": "done"})
