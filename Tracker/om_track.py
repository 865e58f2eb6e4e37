#!/usr/bin/env python3
"""Ombrik's worker: one JSON request a line on stdin, JSON replies a line on stdout (PROTOCOL.md).

    om_track.py --ckpt PATH --server [--no-track]

With --server it answers requests until stdin closes; without, it answers the first one and ends.
A request that fails answers one `error` line and the worker goes on serving.
"""
import argparse
import json
import os
import sys
import traceback

import om_common
from om_common import JobError, log, reply, text

# Request types this worker serves, each by a function of a module imported on first use (a model
# loads only when a job needs it); every other type answers "not available".
HANDLERS = {
    "body_frame": ("om_matte", "body_frame"),
    "hair_frame": ("om_matte", "hair_frame"),
    "body_video": ("om_matte", "body_video"),
    "hair_video": ("om_matte", "hair_video"),
    "sam_preview": ("om_select", "preview"),
    "sam_propagate": ("om_select", "propagate"),
    "sam_detect": ("om_select", "detect"),
    "greenkey_frame": ("om_greenkey", "key_frame"),
    "greenkey_video": ("om_greenkey", "key_video"),
    "denoise_frame": ("om_denoise", "denoise_frame"),
    "denoise_video": ("om_denoise", "denoise_video"),
    "retime_flow": ("om_retime", "retime_flow"),
}


def _handler(kind):
    entry = HANDLERS.get(kind)
    if entry is None:
        return None
    import importlib
    try:
        module = importlib.import_module(entry[0])
    except ModuleNotFoundError as e:
        if e.name != entry[0]:  # a library the module needs is missing: say which
            raise JobError("%s: %s" % (entry[0], e))
        return None
    return getattr(module, entry[1], None)


def _track(request):
    import om_flow
    om_flow.track(request)


def handle(line, serve_tracking):
    try:
        request = json.loads(line)
    except ValueError as e:
        raise JobError(text("bad_json", e))
    if not isinstance(request, dict):
        raise JobError(text("not_object"))
    kind = request.get("type")
    if kind is None:
        if not serve_tracking:
            raise JobError(text("no_track"))
        _track(request)
        return
    handler = _handler(kind)
    if handler is None:
        raise JobError(text("unavailable", kind))
    handler(request)


def answer(line, serve_tracking):
    try:
        handle(line, serve_tracking)
    except JobError as e:
        log("job refused:", e)
        reply({"error": str(e)})
    except Exception as e:  # a fault of ours or of a library: the job fails, the worker stays
        traceback.print_exc(file=sys.stderr)
        reply({"error": "%s: %s" % (type(e).__name__, e)})


def main(argv):
    parser = argparse.ArgumentParser(prog="om_track.py")
    parser.add_argument("--ckpt", default="")
    parser.add_argument("--server", action="store_true")
    parser.add_argument("--no-track", action="store_true")
    args = parser.parse_args(argv)
    om_common.threads()
    if args.ckpt and not os.path.exists(args.ckpt):
        log("no model at %s: the precise engine tracks by dense optical flow (OpenCV DIS)" % args.ckpt)
    log("om_track ready, OpenCV %s, threads %d" % (om_common.cv2.__version__, om_common.cv2.getNumThreads()))
    reply({"status": "ready"})
    for line in sys.stdin:
        line = line.strip()
        if not line:
            continue
        answer(line, not args.no_track)
        if not args.server:
            break
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
