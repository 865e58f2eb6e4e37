"""Body and hair mattes of a picture or of every frame of a video (PROTOCOL.md, "Mattes").

Body: the selfie segmentation network's person probability, steepened and refined at the edges by a
guided filter on the picture. Hair: around each face the face detector finds, the
person's pixels whose colour is nearer that of a band above the brows than that of the face's skin,
joined to that band, then refined the same way.
"""
import cv2
import numpy as np

import om_models
from om_common import JobError, need, reply, texts
from om_masks import colour_distance, read_image, refine, to_u8, video_job, write_png

_TEXTS = {
    "no_face": ("aucun visage trouvé : la matte des cheveux part d'un visage détecté",
                "no face found: the hair matte starts from a detected face"),
}


text = texts(_TEXTS)


def body(bgr):
    return refine(bgr, om_models.person(bgr), centre=0.7)


def _hair_of_face(bgr, person, face):
    """The hair matte of one face inside its head region, as (x0, y0, matte) or None."""
    H, W = person.shape
    fx0, fy0, fx1, fy1 = face[:4]
    w, h = fx1 - fx0, fy1 - fy0
    cx, cy = (fx0 + fx1) / 2, (fy0 + fy1) / 2
    # Head region: the box spans brows to chin; hair reaches about a face height above it and, when
    # long, down to the shoulders.
    x0, x1 = int(max(0, cx - 1.3 * w)), int(min(W, cx + 1.3 * w))
    y0, y1 = int(max(0, fy0 - 1.1 * h)), int(min(H, fy1 + 1.0 * h))
    if x1 - x0 < 8 or y1 - y0 < 8:
        return None
    crop, p = bgr[y0:y1, x0:x1], person[y0:y1, x0:x1]
    scale = min(1.0, 320.0 / max(crop.shape[:2]))  # colour statistics need no more pixels
    sw, sh = max(8, int(crop.shape[1] * scale)), max(8, int(crop.shape[0] * scale))
    small = cv2.resize(crop, (sw, sh), interpolation=cv2.INTER_AREA)
    ps = cv2.resize(p, (sw, sh), interpolation=cv2.INTER_AREA)
    lab = cv2.cvtColor(small, cv2.COLOR_BGR2LAB)

    def S(v, o):  # full-picture coordinate to the small crop's
        return int(round((v - o) * scale))

    inner = lab[S(cy - 0.2 * h, y0):S(cy + 0.25 * h, y0) + 1, S(cx - 0.25 * w, x0):S(cx + 0.25 * w, x0) + 1]
    if inner.size < 9:
        return None
    d_skin = colour_distance(lab, inner)
    # The face itself, forehead included, is never hair.
    face_area = np.zeros((sh, sw), np.uint8)
    cv2.ellipse(face_area, (S(cx, x0), S(cy - 0.1 * h, y0)),
                (max(1, int(0.45 * w * scale)), max(1, int(0.6 * h * scale))), 0, 0, 360, 1, -1)
    # Seeds: a band above the brows, on the person, not skin-coloured.
    seed = np.zeros((sh, sw), bool)
    seed[max(0, S(fy0 - 0.8 * h, y0)):max(0, S(fy0 - 0.35 * h, y0)),
         max(0, S(cx - 0.4 * w, x0)):max(0, S(cx + 0.4 * w, x0))] = True
    seed &= (ps > 0.6) & (d_skin > 3.0) & (face_area == 0)
    if seed.sum() < 10:
        return None  # no hair above the face (bald, hat, cut off by the frame)
    # Hair: the person's pixels nearer the seeds' colours than the skin's, and near enough.
    d_hair = colour_distance(lab, lab[seed])
    fg = ((ps > 0.5) & (d_hair < 3.0) & (d_hair < d_skin) & (face_area == 0)).astype(np.uint8)
    fg = cv2.morphologyEx(fg, cv2.MORPH_CLOSE, cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (3, 3)))
    # Only hair that holds to the seeds: a patch of the same colour elsewhere is something else.
    n, labels = cv2.connectedComponents(fg, connectivity=8)
    keep = np.unique(labels[seed & (fg > 0)])
    fg = np.isin(labels, keep[keep > 0])
    hair = cv2.resize(fg.astype(np.float32), (x1 - x0, y1 - y0), interpolation=cv2.INTER_LINEAR)
    return x0, y0, refine(crop, hair * np.clip(p * 1.5, 0, 1))


def hair(bgr):
    """The hair matte, or None when no face is found."""
    found = om_models.faces(bgr)
    if not found:
        return None
    person = om_models.person(bgr)
    out = np.zeros(person.shape, np.float32)
    for face in found:
        got = _hair_of_face(bgr, person, face)
        if got is not None:
            x0, y0, m = got
            region = out[y0:y0 + m.shape[0], x0:x0 + m.shape[1]]
            np.maximum(region, m, out=region)
    return out


def body_frame(request):
    image, out = need(request, "image", "out")
    write_png(out, to_u8(body(read_image(image))))
    reply({"status": "done"})


def hair_frame(request):
    image, out = need(request, "image", "out")
    matte = hair(read_image(image))
    if matte is None:
        raise JobError(text("no_face"))
    write_png(out, to_u8(matte))
    reply({"status": "done"})


def body_video(request):
    video, outdir = need(request, "video", "outdir")
    video_job(video, outdir, lambda frame: to_u8(body(frame)))


def hair_video(request):
    video, outdir = need(request, "video", "outdir")

    def each(frame):
        matte = hair(frame)  # a frame without a face has no hair
        return np.zeros(frame.shape[:2], np.uint8) if matte is None else to_u8(matte)

    video_job(video, outdir, each)
