"""The worker's neural models: where they are, loading them once, and what each takes and gives.

The ONNX files come from scripts/setup (Tracker/models_setup/install_models.sh) and run on OpenCV's
own dnn module: no other runtime. They are looked for in $OMBRIK_MODELS first, then in the
`models` folder beside this file. A missing file is a JobError naming it.
"""
import os

import cv2
import numpy as np

from om_common import JobError, log, texts

SELFIE = "selfie.onnx"
FACES = "face_detection_back_256x256_barracuda.onnx"

_TEXTS = {
    "missing": ("modèle absent : {} (cherché dans {}). Lancez scripts/setup pour installer les modèles.",
                "model missing: {} (looked in {}). Run scripts/setup to install the models."),
}


text = texts(_TEXTS)


def folders():
    here = os.path.join(os.path.dirname(os.path.abspath(__file__)), "models")
    env = os.environ.get("OMBRIK_MODELS", "")
    return [d for d in (env, here) if d]


def path(name):
    for d in folders():
        p = os.path.join(d, name)
        if os.path.isfile(p):
            return p
    raise JobError(text("missing", name, " ; ".join(folders())))


_nets = {}


def net(name):
    """The network of `name`, read on first use and kept for the worker's life."""
    if name not in _nets:
        p = path(name)
        _nets[name] = cv2.dnn.readNetFromONNX(p)
        log("model loaded:", p)
    return _nets[name]


def person(bgr):
    """Selfie segmentation: the probability (float32, 0..1) that each pixel shows a person, at the
    picture's size. The network sees the whole picture stretched to 256 x 256, RGB 0..1; its output
    is already a sigmoid."""
    n = net(SELFIE)
    n.setInput(cv2.dnn.blobFromImage(bgr, 1 / 255.0, (256, 256), swapRB=True))
    prob = n.forward()[0, 0]
    H, W = bgr.shape[:2]
    return np.clip(cv2.resize(prob, (W, H), interpolation=cv2.INTER_LINEAR), 0, 1)


def _anchors():
    # 16 x 16 cells with 2 anchors each, then 8 x 8 cells with 6, row-major: the network's order.
    out = []
    for grid, per in ((16, 2), (8, 6)):
        ys, xs = np.mgrid[0:grid, 0:grid]
        c = np.stack([(xs.ravel() + 0.5) / grid, (ys.ravel() + 0.5) / grid], 1)
        out.append(np.repeat(c, per, axis=0))
    return np.concatenate(out).astype(np.float32)


_ANCHORS = _anchors()


def faces(bgr, threshold=0.5):
    """BlazeFace (back camera, 256): faces as [(x0, y0, x1, y1, score)] in pixels of the picture.
    The picture is padded to a centred square with black, so that faces keep their shape. The box
    spans brows to chin, not the hair."""
    H, W = bgr.shape[:2]
    side = max(W, H)
    left, top = (side - W) // 2, (side - H) // 2
    square = cv2.copyMakeBorder(bgr, top, side - H - top, left, side - W - left, cv2.BORDER_CONSTANT, value=0)
    x = cv2.cvtColor(cv2.resize(square, (256, 256), interpolation=cv2.INTER_AREA), cv2.COLOR_BGR2RGB)
    x = x.astype(np.float32) / 127.5 - 1.0
    n = net(FACES)
    n.setInput(x[None])  # this network takes NHWC
    s16, s8, r16, r8 = n.forward(["Identity:0", "Identity_1:0", "Identity_2:0", "Identity_3:0"])
    raw = np.concatenate([s16.reshape(-1), s8.reshape(-1)])
    reg = np.concatenate([r16.reshape(-1, 16), r8.reshape(-1, 16)])
    score = 1 / (1 + np.exp(-np.clip(raw, -80, 80)))
    keep = np.nonzero(score >= threshold)[0]
    if keep.size == 0:
        return []
    c = reg[keep, :2] / 256 + _ANCHORS[keep]
    wh = reg[keep, 2:4] / 256
    boxes = np.concatenate([c - wh / 2, c + wh / 2], 1) * side - [left, top, left, top]
    rects = [[float(b[0]), float(b[1]), float(b[2] - b[0]), float(b[3] - b[1])] for b in boxes]
    chosen = cv2.dnn.NMSBoxes(rects, score[keep].tolist(), float(threshold), 0.3)
    found = []
    for i in np.asarray(chosen).reshape(-1):
        x0, y0, x1, y1 = np.clip(boxes[i], 0, [W, H, W, H])
        if x1 > x0 and y1 > y0:
            found.append((float(x0), float(y0), float(x1), float(y1), float(score[keep][i])))
    return sorted(found, key=lambda f: -f[4])
