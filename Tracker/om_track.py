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

# Request types this worker serves; every other one of the protocol's table answers "not available".
HANDLERS = {}


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
    handler = HANDLERS.get(kind)
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
