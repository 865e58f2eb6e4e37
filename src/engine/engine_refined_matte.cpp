// The AI mattes a job leaves on disk, one PNG per frame, refined into a matte at the comp size:
// neighbour frames against chatter, the channel of the kind, smoothing, edge shaping, expand (a
// disc-shaped maximum or minimum) and feather, all recorded into the open evaluation.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "engine/engine.h"
#include "engine/engine_eval_state.h"
#include "gpu/device.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

// A parameter as the refinement reads it: the node's value, else the refinement's own default
// (a mask node refining its AI matte has no "contrast" or "chatter" of its own).
float param(const Node& node, const std::string& key, float fallback) {
  auto it = node.params.find(key);
  return it == node.params.end() ? fallback : float(it->second);
}

fs::path frameFile(const fs::path& folder, int frame) {
  char name[32];
  std::snprintf(name, sizeof name, "%05d.png", frame);
  return folder / name;
}

// The rows of the digital disc of radius r: entry i is the largest w with w² + i² <= r², for
// i = 0..floor(r). Worked out in integers so that no rounding of a square root moves an edge.
std::vector<float> discRows(double r) {
  const double r2 = r * r;
  std::vector<float> rows;
  for (long i = 0; double(i * i) <= r2; ++i) {
    long w = long(std::sqrt(std::max(0.0, r2 - double(i * i))));
    while (double((w + 1) * (w + 1) + i * i) <= r2) ++w;
    while (w > 0 && double(w * w + i * i) > r2) --w;
    rows.push_back(float(w));
  }
  return rows;
}

int floorLog2(int v) {  // v >= 1
  int k = 0;
  while ((2 << k) <= v) ++k;
  return k;
}

}  // namespace

bool Engine::isLayeredMatte(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) {
    OIIO::geterror();  // an unreadable file is simply not layered; leave no pending message
    return false;
  }
  return in->spec().nchannels >= 3;  // colour channels; grey and grey with alpha are one matte
}

Engine::Tex Engine::refinedMatte(const Node& node) {
  if (!ev_ || !ev_->commands || !node.magicDirPath || compW < 1 || compH < 1) return nullptr;
  const fs::path folder = *node.magicDirPath;
  const int frame = node.magicCur;
  const Uuid& id = node.id;
  // Frames load on commands of their own, stretched to the comp and kept by date, so playback
  // reads each file once. A grey file arrives with its value in all three channels
  // (SourcePicture::load); a layered one keeps its channels apart.
  auto load = [&](int f) { return cachedImage(frameFile(folder, f), compW, compH); };
  Tex base = load(frame);
  if (!base) return nullptr;

  // Chatter: up to three frames each side, nearest first, weighed by a Gaussian of the distance.
  const int n = std::min(3, int(param(node, "chatter", 0.5f) * 3));
  if (n > 0) {
    const double sigma = std::max(0.8, n / 1.5);
    std::vector<Tex> list{base};
    std::vector<float> P;
    for (int r = 1; r <= n; ++r) {
      const float w = float(std::exp(-double(r * r) / (2 * sigma * sigma)));
      for (int f : {frame - r, frame + r})
        if (f >= 0)
          if (Tex t = load(f)) {
            list.push_back(t);
            P.push_back(w);
          }
    }
    if (!P.empty()) {
      list.resize(7, base);  // unused neighbour places hold the current frame, with weight 0
      list.push_back(tex(id, 57));
      P.resize(6, 0.0f);
      P.push_back(0.12f);
      P.push_back(std::max(1.0f, 2 * pxScale));
      dispatch("k_mattechatter", list, P);
      base = list.back();
    }
  }

  const float grow = param(node, "grow", 0);
  Tex cur = tex(id, 70);
  if (node.kind->id == "hairmatte") {
    // Red is the hair, blue the zone where hair is expected.
    const bool view = param(node, "hview", 0) > 0.5f;
    const float contrast = std::max(1.0f, param(node, "hcontrast", 1));
    dispatch("k_matteshape", {base, cur}, {0, contrast, grow, view ? 2.0f : 1.0f, param(node, "hzone", 0)});
    if (view) return cur;  // the zone as it is, to check where the hair matte works
  } else {
    Tex src = base;
    const float smooth = param(node, "smooth", 2) * pxScale;
    if (smooth > 0.3f) {
      src = tex(id, 71);
      blur(base, src, smooth);  // per channel, so blurring before taking green is the same
    }
    dispatch("k_matteshape", {src, cur}, {1, std::max(1.0f, param(node, "contrast", 3)), grow, 0, 0});
  }

  // Expand: a maximum (or minimum) over a disc, the picture extended by its edge pixels. Each row
  // of the disc is a window of the picture's row it falls on, read as two texels of a running
  // extreme over a power-of-two span (built by doubling); so a pixel costs two reads per row of
  // the disc, never its area, and the shape is the exact digital disc.
  auto morph = [&](const Tex& from, double radius, bool dilate) -> Tex {
    const std::vector<float> rows = discRows(radius);
    const int pad = int(rows[0]);
    if (pad < 1) return from;  // a disc of one pixel
    const int paddedW = compW + 2 * pad;
    auto scratch = [&](int k) {
      std::lock_guard g(poolLock_);
      Tex& t = pool_["morph|" + std::to_string(k)];  // one pair, remade when the width changes
      if (!t || t->width() != paddedW || t->height() != compH)
        t = device_->createTexture(paddedW, compH, gpu::Format::rgba16Float);
      return t;
    };
    const Tex level[2] = {scratch(0), scratch(1)};
    const Tex acc[2] = {tex(id, 72), tex(id, 73)};
    if (!level[0] || !level[1]) return from;
    const float d = dilate ? 1.0f : 0.0f;
    const int top = floorLog2(2 * pad + 1);
    std::vector<int> lo(top + 1, INT_MAX), hi(top + 1, -1);  // the rows each span covers
    for (int i = 0; i < int(rows.size()); ++i) {
      const int k = floorLog2(2 * int(rows[i]) + 1);
      lo[k] = std::min(lo[k], i);
      hi[k] = std::max(hi[k], i);
    }
    dispatch("k_morphlevel", {from, level[0]}, {float(pad), 0, d});
    int cur = 0, next = 0;
    Tex result;
    for (int k = 0; k <= top; ++k) {
      if (k > 0) {
        dispatch("k_morphlevel", {level[cur], level[cur ^ 1]}, {0, float(1 << (k - 1)), d});
        cur ^= 1;
      }
      if (hi[k] < 0) continue;
      const Tex list[] = {level[cur], result ? result : level[cur], acc[next]};
      const float P[] = {float(pad), float(1 << k), float(lo[k]), float(hi[k]), d, result ? 0.0f : 1.0f};
      dispatch("k_morphdisc", list, P, rows);
      result = acc[next];
      next ^= 1;
    }
    return result ? result : from;
  };
  const float e = param(node, "expand", 0) * pxScale;
  if (std::fabs(e) >= 0.5f) cur = morph(cur, std::fabs(e), e > 0);

  const float feather = param(node, "feather", 1) * pxScale;
  if (feather > 0.3f) {
    Tex out = tex(id, 74);
    blur(cur, out, feather);
    cur = out;
  }
  return cur;
}

}  // namespace ombrik
