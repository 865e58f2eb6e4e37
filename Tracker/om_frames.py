"""What the frame jobs share (green key, denoise, retime): their texts, whole-file writes, the raw
".dn" format, long OpenCV calls that keep the status line alive, and the ffmpeg program's pipes.

Every file goes out under a temporary name ending in ".part" and takes its own name only when
whole: a killed job leaves whole frames and leftovers that no listing of "*.png" or "*.dn" counts.
"""
import json
import os
import shutil
import subprocess
import threading

import cv2
import numpy as np

from om_common import JobError, reply, texts

_TEXTS = {
    "no_image": ("image illisible : {}", "unreadable image: {}"),
    "no_write": ("écriture impossible : {} ({})", "cannot write {} ({})"),
    "bad_frame": ("image {} hors de la vidéo ({} images)", "frame {} is outside the video ({} frames)"),
    "bad_engine": ("moteur de débruitage inconnu : {} (fast ou scunet)", "unknown denoise engine: {} (fast or scunet)"),
    "bad_times": ("temps de sortie invalides (une liste de nombres positifs est attendue)",
                  "invalid output times (a list of non-negative numbers is expected)"),
    "no_screen": ("pas d'écran vert ou bleu reconnu dans l'image", "no green or blue screen found in the picture"),
    "no_ffmpeg": ("le programme ffmpeg est introuvable (il écrit le film)", "the ffmpeg program is missing (it writes the movie)"),
    "ffmpeg_failed": ("ffmpeg a échoué : {}", "ffmpeg failed: {}"),
    "denoising": ("Denoise : image {}…", "Denoise: frame {}…"),
    "keying": ("Keyer IA : image {}…", "AI keyer: frame {}…"),
    "retiming": ("Vitesse : image {}…", "Speed: frame {}…"),
    "no_scunet": ("SCUNet n'est pas installé : débruitage non local sur 7 images (OpenCV)",
                  "SCUNet is not installed: non-local means over 7 frames (OpenCV)"),
}


text = texts(_TEXTS)


# ---- whole-file writes

def write_bytes(path, data):
    tmp = path + ".part"
    try:
        with open(tmp, "wb") as f:
            f.write(data)
            f.flush()
            os.fsync(f.fileno())
        os.replace(tmp, path)
    except OSError as e:
        try:
            os.remove(tmp)
        except OSError:
            pass
        raise JobError(text("no_write", path, e.strerror or e))


def out_dir(path):
    try:
        os.makedirs(path, exist_ok=True)
    except OSError as e:
        raise JobError(text("no_write", path, e.strerror or e))


def write_png(path, picture):
    ok, buf = cv2.imencode(".png", picture)
    if not ok:
        raise JobError(text("no_write", path, "PNG"))
    write_bytes(path, buf.tobytes())


def write_dn(path, rgb):
    """The raw frame: width and height as uint32 little-endian, then RGBA half floats by rows from
    the top; `rgb` is H x W x 3 floats, alpha is 1."""
    h, w = rgb.shape[:2]
    px = np.empty((h, w, 4), "<f2")
    px[..., :3] = rgb
    px[..., 3] = 1.0
    write_bytes(path, np.array([w, h], "<u4").tobytes() + px.tobytes())


def read_dn(path):
    with open(path, "rb") as f:
        w, h = np.frombuffer(f.read(8), "<u4")
        return np.frombuffer(f.read(), "<f2").reshape(int(h), int(w), 4).astype(np.float32)


# ---- long calls

def beating(status, fn, *args):
    """fn(*args) on a second thread while this one says `status` once a second: one OpenCV call on
    a large frame can outlast the application's reply timeout. OpenCV lets go of the interpreter
    lock during its work, so the two threads really run side by side."""
    box = {}

    def work():
        try:
            box["value"] = fn(*args)
        except BaseException as e:  # handed over to the caller's thread
            box["error"] = e

    t = threading.Thread(target=work, daemon=True)
    t.start()
    while True:
        t.join(1.0)
        if not t.is_alive():
            break
        reply({"status": status})
    if "error" in box:
        raise box["error"]
    return box["value"]


# ---- the ffmpeg program

def ffmpeg_path(name="ffmpeg"):
    path = shutil.which(name)
    if not path:
        raise JobError(text("no_ffmpeg"))
    return path


def probe(video):
    """The first video stream's size, rate (as ffmpeg's rational text) and colour tags; None when
    ffprobe can't read the file."""
    cmd = [ffmpeg_path("ffprobe"), "-v", "error", "-select_streams", "v:0", "-show_entries",
           "stream=width,height,r_frame_rate,avg_frame_rate,pix_fmt,color_space,color_range:stream_tags=rotate:"
           "stream_side_data=rotation", "-of", "json", video]
    try:
        out = subprocess.run(cmd, capture_output=True, timeout=30).stdout
        streams = json.loads(out or b"{}").get("streams") or []
    except (OSError, ValueError, subprocess.TimeoutExpired):
        return None
    return streams[0] if streams else None


def rate_of(stream):
    """The nominal frame rate as ffmpeg writes it ("30000/1001"), 25 when the file says nothing."""
    for key in ("r_frame_rate", "avg_frame_rate"):
        r = str(stream.get(key) or "")
        num, _, den = r.partition("/")
        try:
            if float(num) > 0 and float(den or 1) > 0:
                return r
        except ValueError:
            pass
    return "25"


def quarter_turned(stream):
    turns = [(stream.get("tags") or {}).get("rotate")]
    turns += [d.get("rotation") for d in stream.get("side_data_list") or []]
    for t in turns:
        try:
            if int(float(t)) % 180 != 0:
                return True
        except (TypeError, ValueError):
            pass
    return False


def rgb_filter(stream):
    """Scaling options that turn the clip into RGB exactly as the application's reader does: the
    clip's own matrix, or BT.709 from 720 lines up and BT.601 below when it has no tag; full range
    only when the clip says so."""
    space = stream.get("color_space") or "unknown"
    matrix = {"bt709": "bt709", "smpte170m": "smpte170m", "bt470bg": "bt470bg", "bt2020nc": "bt2020",
              "bt2020c": "bt2020", "smpte240m": "smpte240m", "fcc": "fcc"}.get(space)
    if matrix is None:
        matrix = "bt709" if int(stream.get("height") or 0) >= 720 else "bt601"
    full = stream.get("color_range") == "pc" or str(stream.get("pix_fmt", "")).startswith("yuvj")
    return "scale=in_color_matrix=%s:in_range=%s,format=rgb48le" % (matrix, "full" if full else "limited")


class RgbFrames:
    """The clip's frames in decoding order, as H x W x 3 float32 RGB in 0..1, decoded by the ffmpeg
    program (every decoded picture, none dropped or repeated, as the application counts them)."""

    def __init__(self, video, stream):
        self.W, self.H = int(stream["width"]), int(stream["height"])
        if quarter_turned(stream):  # ffmpeg turns the picture upright, as the application shows it
            self.W, self.H = self.H, self.W
        self.cmd = [ffmpeg_path(), "-v", "error", "-nostdin", "-i", video, "-map", "0:v:0", "-fps_mode", "passthrough",
                    "-vf", rgb_filter(stream), "-f", "rawvideo", "-"]
        self.proc = None
        self.index = 0  # the next frame the pipe gives

    def restart(self):
        self.close()
        self.proc = subprocess.Popen(self.cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.index = 0

    def next(self):
        """The next frame, None at the end."""
        if self.proc is None:
            self.restart()
        size = self.W * self.H * 6
        data = self.proc.stdout.read(size)
        if len(data) < size:
            return None
        self.index += 1
        return np.frombuffer(data, "<u2").reshape(self.H, self.W, 3).astype(np.float32) / 65535.0

    def close(self):
        if self.proc is not None:
            self.proc.stdout.close()
            self.proc.kill()
            self.proc.wait()
            self.proc = None


class MovieWriter:
    """RGB frames piped to ffmpeg as 16-bit, written as ProRes 422 HQ (10-bit, BT.709 tags) at the
    clip's own rate, into `out` + ".part.mov", renamed to `out` when ffmpeg ends well."""

    def __init__(self, out, width, height, rate):
        self.out = out
        self.tmp = out + ".part.mov"
        cmd = [ffmpeg_path(), "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "rgb48le", "-s", "%dx%d" % (width, height),
               "-r", rate, "-i", "-", "-vf", "scale=out_color_matrix=bt709:out_range=limited,format=yuv422p10le,"
               "setparams=range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709",
               "-c:v", "prores_ks", "-profile:v", "3", "-f", "mov", self.tmp]
        self.proc = subprocess.Popen(cmd, stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.errors = []
        self.drain = threading.Thread(target=self._read_errors, daemon=True)
        self.drain.start()

    def _read_errors(self):
        for line in self.proc.stderr:
            self.errors.append(line.decode("utf-8", "replace").strip())

    def _failed(self):
        self.proc.wait()
        self.drain.join()
        try:
            os.remove(self.tmp)
        except OSError:
            pass
        return JobError(text("ffmpeg_failed", self.errors[-1] if self.errors else "code %s" % self.proc.returncode))

    def write(self, rgb):
        data = (np.clip(rgb, 0.0, 1.0) * 65535.0 + 0.5).astype("<u2").tobytes()
        try:
            self.proc.stdin.write(data)
        except (BrokenPipeError, OSError):
            raise self._failed()

    def finish(self):
        try:
            self.proc.stdin.close()
        except OSError:
            pass
        if self.proc.wait() != 0:
            raise self._failed()
        self.drain.join()
        try:
            os.replace(self.tmp, self.out)
        except OSError as e:
            raise JobError(text("no_write", self.out, e.strerror or e))

    def abandon(self):
        if self.proc.poll() is None:
            self.proc.kill()
        self.proc.wait()
        try:
            os.remove(self.tmp)
        except OSError:
            pass

