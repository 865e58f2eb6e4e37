"""Object selection from clicks and boxes, carried through a video, and search by name
(PROTOCOL.md, "Selection").

No promptable segmentation network runs on OpenCV 4.6 here, so a selection is GrabCut seeded by the
clicks and boxes, helped by the person network when the clicks fall on a person; a video carries it
by dense optical flow with a GrabCut pass every few frames. Search knows faces (BlazeFace) and
people (the person network, OpenCV's HOG people detector).
"""
import json
import os
import re
import unicodedata

import cv2
import numpy as np

import om_models
from om_common import JobError, log, need, reply, texts
from om_masks import Outputs, colour_distance, frames, read_image, refine, write_png

WORK_SIDE = 512  # GrabCut and the flow run at this long side; the masks are written at full size
REGRAB_EVERY = 5  # frames between two GrabCut passes while carrying a mask

_TEXTS = {
    "no_points": ("aucun point ni cadre pour sélectionner", "no point and no box to select with"),
    "bad_frame": ("image {} hors de la vidéo", "frame {} is outside the video"),
    "unknown_object": ("« {} » : seuls les visages et les personnes peuvent être cherchés avec les modèles installés",
                       "\"{}\": only faces and people can be searched for with the installed models"),
}


text = texts(_TEXTS)


def _working(bgr):
    H, W = bgr.shape[:2]
    s = min(1.0, WORK_SIDE / max(W, H))
    if s == 1.0:
        return bgr, 1.0
    return cv2.resize(bgr, (max(1, int(round(W * s))), max(1, int(round(H * s)))), interpolation=cv2.INTER_AREA), s


def _prompts(request):
    points = [p for p in request.get("points") or [] if len(p) >= 3]
    boxes = [b for b in request.get("boxes") or [] if len(b) >= 4]
    if not points and not boxes:
        raise JobError(text("no_points"))
    return points, boxes


def _person_help(bgr, small, positives, negatives):
    """The person network's mask at the working size when it agrees with the clicks: every positive
    click on it and every negative one off it (probability 0.5), and it leaves most of the picture
    free. None otherwise, or without the model: then GrabCut works from the clicks alone."""
    if not positives:
        return None
    try:
        prob = om_models.person(bgr)
    except JobError as e:
        log("selection without the person network:", e)
        return None
    h, w = small.shape[:2]
    on = cv2.resize(prob, (w, h), interpolation=cv2.INTER_AREA) > 0.5

    def at(x, y):
        return on[min(h - 1, max(0, int(y))), min(w - 1, max(0, int(x)))]

    agrees = all(at(x, y) for x, y in positives) and not any(at(x, y) for x, y in negatives)
    return on if agrees and on.mean() < 0.6 else None


def _keep_seeded(fg, positives):
    """The parts of `fg` that hold a positive click (an object is in one piece; a patch of the same
    colours elsewhere is not it); all of it when there are no clicks."""
    if not positives:
        return fg
    n, labels = cv2.connectedComponents(fg.astype(np.uint8), connectivity=8)
    h, w = fg.shape
    keep = {labels[min(h - 1, int(y)), min(w - 1, int(x))] for x, y in positives} - {0}
    return np.isin(labels, list(keep)) if keep else fg


def _grown(small, pos, neg, radius):
    lab = cv2.cvtColor(small, cv2.COLOR_BGR2LAB)
    h, w = lab.shape[:2]
    disc = np.zeros((h, w), np.uint8)
    for x, y in pos:
        cv2.circle(disc, (int(round(x)), int(round(y))), radius, 1, -1)
    near = ((colour_distance(lab, lab[disc > 0]) < 3.0) | (disc > 0)).astype(np.uint8)
    for x, y in neg:
        cv2.circle(near, (int(round(x)), int(round(y))), radius, 0, -1)
    return _keep_seeded(near > 0, pos)


def select(bgr, points, boxes):
    """The selection at the working size (bool) and the working picture. Points and boxes are
    normalised to the picture."""
    small, _ = _working(bgr)
    h, w = small.shape[:2]
    pos = [(x * w - 0.5, y * h - 0.5) for x, y, label in points if label > 0.5]
    neg = [(x * w - 0.5, y * h - 0.5) for x, y, label in points if label <= 0.5]
    gc = np.full((h, w), cv2.GC_PR_BGD, np.uint8)
    inside = np.zeros((h, w), bool)
    for b in boxes:
        x0, y0, x1, y1 = [int(round(v)) for v in (b[0] * w, b[1] * h, b[2] * w, b[3] * h)]
        inside[max(0, min(y0, y1)):max(y0, y1), max(0, min(x0, x1)):max(x0, x1)] = True
    if boxes:  # outside every box is background for sure, inside is the object until shown otherwise
        gc[:] = cv2.GC_BGD
        gc[inside] = cv2.GC_PR_FGD
    r = max(3, int(round(0.02 * min(w, h))))
    person = _person_help(bgr, small, pos, neg)
    if person is not None:
        gc[person & (gc != cv2.GC_BGD)] = cv2.GC_PR_FGD
        gc[~person & (gc == cv2.GC_PR_FGD)] = cv2.GC_PR_BGD
    elif pos and not boxes:
        # Clicks alone: the object starts as the pixels around the clicks whose colours are near
        # those under them, joined to a click; GrabCut then settles its edge.
        gc[_grown(small, pos, neg, 2 * r)] = cv2.GC_PR_FGD
    for label, pts in ((cv2.GC_FGD, pos), (cv2.GC_BGD, neg)):
        for x, y in pts:
            cv2.circle(gc, (int(round(x)), int(round(y))), r, int(label), -1)
    if not pos and not boxes:
        return np.zeros((h, w), bool), small
    bgd, fgd = np.zeros((1, 65), np.float64), np.zeros((1, 65), np.float64)
    try:
        cv2.grabCut(small, gc, None, bgd, fgd, 5, cv2.GC_INIT_WITH_MASK)
    except cv2.error as e:  # one colour model without pixels (a box over the whole picture)
        log("grabCut:", e)
    fg = (gc == cv2.GC_FGD) | (gc == cv2.GC_PR_FGD)
    return _keep_seeded(fg, pos), small


def full_size(bgr, mask_small):
    """A working-size selection as the picture's 0/255 mask, its edge moved onto the picture's own
    edges by the guided filter."""
    H, W = bgr.shape[:2]
    up = cv2.resize(mask_small.astype(np.float32), (W, H), interpolation=cv2.INTER_LINEAR)
    return np.where(refine(bgr, up, gain=1.0) > 0.5, 255, 0).astype(np.uint8)


def preview(request):
    image, out = need(request, "image", "out")
    points, boxes = _prompts(request)
    bgr = read_image(image)
    mask, _ = select(bgr, points, boxes)
    write_png(out, full_size(bgr, mask))
    reply({"status": "done"})


# ---- carrying a selection through a video -------------------------------------------------------

def _regrab(small, mask):
    """One GrabCut pass confined to a band around the carried mask's edge, so that the flow's drift
    is pulled back onto the object's colours without the selection jumping elsewhere."""
    h, w = mask.shape
    band = max(3, int(0.02 * max(w, h)))
    k = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (2 * band + 1, 2 * band + 1))
    m = mask.astype(np.uint8)
    inner, outer = cv2.erode(m, k) > 0, cv2.dilate(m, k) > 0
    if not inner.any() or outer.all():
        return mask
    gc = np.where(mask, cv2.GC_PR_FGD, cv2.GC_PR_BGD).astype(np.uint8)
    gc[inner], gc[~outer] = cv2.GC_FGD, cv2.GC_BGD
    bgd, fgd = np.zeros((1, 65), np.float64), np.zeros((1, 65), np.float64)
    try:
        cv2.grabCut(small, gc, None, bgd, fgd, 2, cv2.GC_INIT_WITH_MASK)
    except cv2.error:
        return mask
    return (gc == cv2.GC_FGD) | (gc == cv2.GC_PR_FGD)


class _Carrier:
    """Moves a mask from one frame to the next by DIS flow (as om_flow), with a GrabCut pass every
    REGRAB_EVERY frames."""

    def __init__(self, small, mask):
        self.dis = cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM)
        self.grey = cv2.cvtColor(small, cv2.COLOR_BGR2GRAY)
        self.mask, self.steps = mask, 0
        h, w = mask.shape
        self.grid = np.mgrid[0:h, 0:w][::-1].astype(np.float32)

    def next(self, small):
        grey = cv2.cvtColor(small, cv2.COLOR_BGR2GRAY)
        flow = self.dis.calc(grey, self.grey, None)  # where each pixel of this frame was in the last
        warped = cv2.remap(self.mask.astype(np.float32), self.grid[0] + flow[..., 0], self.grid[1] + flow[..., 1],
                           cv2.INTER_LINEAR, borderMode=cv2.BORDER_CONSTANT, borderValue=0)
        self.mask, self.grey = warped > 0.5, grey
        self.steps += 1
        if self.steps % REGRAB_EVERY == 0:
            self.mask = _regrab(small, self.mask)
        return self.mask


def _frames_down(path, start):
    """Frames start-1 down to 0 at the working size. Decoding only runs forward, so they are held
    in chunks of 768 MB at most, each chunk decoding again from frame 0."""
    hi = start - 1
    while hi >= 0:
        held, chunk = [], None
        for i, frame in enumerate(frames(path)):
            if i > hi:
                break
            small = _working(frame)[0]
            chunk = chunk or max(8, (768 << 20) // small.nbytes)
            if i > hi - chunk:
                held.append(small)
        if not held:
            return
        for k in range(len(held) - 1, -1, -1):
            yield hi - (len(held) - 1 - k), held[k]
        hi -= len(held)


def _upscaled(mask, size):
    up = cv2.resize(mask.astype(np.float32), size, interpolation=cv2.INTER_LINEAR)
    return np.where(up > 0.5, 255, 0).astype(np.uint8)


def propagate(request):
    """The selection made on `frame` as preview makes it, carried forward to the last frame, then
    backward to frame 0. Masks are the working-size ones scaled up (no edge pass: the backward run
    holds no full-size frames)."""
    video, frame, outdir = need(request, "video", "frame", "outdir")
    points, boxes = _prompts(request)
    frame = int(frame)
    reference = None
    with Outputs(outdir) as out:
        for i, bgr in enumerate(frames(video)):
            if i < frame:
                continue
            size = bgr.shape[1], bgr.shape[0]
            if reference is None:
                mask, small = select(bgr, points, boxes)
                reference, carrier = (small, mask), _Carrier(small, mask)
            else:
                mask = carrier.next(_working(bgr)[0])
            out.write(i, _upscaled(mask, size))
        if reference is None:
            raise JobError(text("bad_frame", frame))
        carrier = _Carrier(*reference)
        for i, small in _frames_down(video, frame):
            out.write(i, _upscaled(carrier.next(small), size))
    reply({"status": "done"})


# ---- search by name -----------------------------------------------------------------------------

FACE_WORDS = {"visage", "visages", "face", "faces", "figure", "figures", "tete", "tetes", "head", "heads"}
PEOPLE_WORDS = {"personne", "personnes", "person", "persons", "people", "homme", "hommes", "femme", "femmes",
                "man", "men", "woman", "women", "enfant", "enfants", "child", "children", "kid", "kids",
                "gens", "humain", "humains", "human", "humans", "individu", "individus", "silhouette",
                "silhouettes", "joueur", "joueurs", "player", "players", "corps", "body", "bodies"}


def _words(name):
    plain = unicodedata.normalize("NFKD", name).encode("ascii", "ignore").decode().lower()
    return set(re.findall(r"[a-z]+", plain))


def _people(bgr):
    """People as [(x0, y0, x1, y1, confidence, mask)]: the person network's blobs (confidence their
    mean probability), then the HOG detector's finds that no blob explains (confidence the sigmoid
    of its SVM margin; mask the network's pixels in its box)."""
    H, W = bgr.shape[:2]
    prob = om_models.person(bgr)
    on = (prob > 0.5).astype(np.uint8)
    n, labels, stats, _ = cv2.connectedComponentsWithStats(on, connectivity=8)
    found = []
    for k in range(1, n):
        x, y, w, h, area = stats[k]
        if area >= 0.002 * W * H:
            blob = labels == k
            found.append((x, y, x + w, y + h, float(prob[blob].mean()), blob))
    small, s = _working(bgr)
    hog = cv2.HOGDescriptor()
    hog.setSVMDetector(cv2.HOGDescriptor_getDefaultPeopleDetector())
    rects, weights = hog.detectMultiScale(small, winStride=(8, 8), padding=(8, 8), scale=1.05)
    for (x, y, w, h), wt in zip(np.asarray(rects).reshape(-1, 4), np.asarray(weights).reshape(-1)):
        box = np.array([x, y, x + w, y + h], np.float64) / s
        if any(_iou(box, f[:4]) > 0.3 for f in found):
            continue
        x0, y0, x1, y1 = np.clip(box, 0, [W, H, W, H]).astype(int)
        blob = np.zeros((H, W), bool)
        blob[y0:y1, x0:x1] = on[y0:y1, x0:x1] > 0
        found.append((x0, y0, x1, y1, float(1 / (1 + np.exp(-wt))), blob))
    return found


def _faces(bgr, threshold):
    H, W = bgr.shape[:2]
    found = []
    for x0, y0, x1, y1, score in om_models.faces(bgr, threshold=max(0.05, threshold)):
        blob = np.zeros((H, W), np.uint8)
        cv2.ellipse(blob, (int((x0 + x1) / 2), int((y0 + y1) / 2)), (int((x1 - x0) / 2), int((y1 - y0) / 2)),
                    0, 0, 360, 1, -1)
        found.append((x0, y0, x1, y1, score, blob > 0))
    return found


def _iou(a, b):
    ix = max(0.0, min(a[2], b[2]) - max(a[0], b[0]))
    iy = max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
    inter = ix * iy
    union = (a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1]) - inter
    return inter / union if union > 0 else 0.0


def detect(request):
    image, name, out, boxes_out = need(request, "image", "text", "out", "boxes_out")
    threshold = float(request.get("threshold", 0.5))
    most = int(request.get("max", 10))
    words = _words(str(name))
    want_faces, want_people = bool(words & FACE_WORDS), bool(words & PEOPLE_WORDS)
    if not (want_faces or want_people):
        raise JobError(text("unknown_object", name))
    bgr = read_image(image)
    H, W = bgr.shape[:2]
    found = (_faces(bgr, threshold) if want_faces else []) + (_people(bgr) if want_people else [])
    found = sorted((f for f in found if f[4] >= threshold), key=lambda f: -f[4])[:max(0, most)]
    mask = np.zeros((H, W), np.uint8)
    for f in found:
        mask[f[5]] = 255
    boxes = [[round(f[0] / W, 6), round(f[1] / H, 6), round(f[2] / W, 6), round(f[3] / H, 6), round(f[4], 4)]
             for f in found]
    write_png(out, mask)
    tmp = os.path.join(os.path.dirname(boxes_out), "." + os.path.basename(boxes_out) + ".part")
    with open(tmp, "w") as f:
        json.dump({"frame": int(request.get("frame", 0)), "boxes": boxes}, f)
    os.replace(tmp, boxes_out)
    reply({"status": "done"})
