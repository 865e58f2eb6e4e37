// What each kind computes. A missing Front gives no result and a bypassed node gives Front,
// unless the kind says otherwise. Kinds whose machinery comes later (drawn masks, AI results,
// warps, the effect catalogue) give no result, which reads as unconnected downstream.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <set>

#include "engine/affine.h"
#include "engine/engine.h"
#include "engine/engine_eval_state.h"

namespace ombrik {

namespace {
constexpr double kDeg = std::numbers::pi / 180.0;

bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
}  // namespace

Engine::Tex Engine::produceRaw(const Node& node) {
  const std::string& kind = node.kind->id;
  const Uuid& id = node.id;
  const float px = pxScale;
  auto front = [&] { return input(id, 0); };

  if (kind == "media") {  // bypass has no effect on a source
    if (!node.mediaID) return nullptr;
    auto it = mediaTex_.find(*node.mediaID);
    // A texture conformed at another comp size (a timeline's layers switch sizes) is made again.
    if (dirtyMedia_.count(*node.mediaID) || it == mediaTex_.end() || !it->second || it->second->width() != compW ||
        it->second->height() != compH)
      return conform(*node.mediaID);
    return it->second;
  }

  if (kind == "mask") return produceMask(node);

  if (kind == "magicmask" || kind == "objectmask" || kind == "bodymask" || kind == "hairmatte") {
    // The job's matte for this frame, refined; without one solid black, white with "invert" (an
    // inverted full-white ellipse is black). Front plays no part and bypass leaves it as it is.
    Tex out = tex(id, 0);
    if (Tex m = refinedMatte(node)) {
      if (node.on("invert")) dispatch("k_mattecombine", {m, m, out}, {0, 1, 1, 0});
      else record([m, out](gpu::CommandList& c) { c.copy(m, out); }, {m, out});
    } else {
      dispatch("k_mask", {out}, {0.5f, 0.5f, 10, 10, 0, 0, node.on("invert") ? 0.0f : 1.0f, 0});
    }
    return out;
  }

  if (kind == "dot" || kind == "camtrack" || kind == "tracker" ||
      (kind == "mux" && !(node.on("checkpoint") && !node.bypass && node.magicFile))) {
    if (const Edge* e = edgeInto(id, 0); e && e->fromPort == 0)
      if (Tex a = alphaOut(e->from)) alphaSide_[id] = a;
    return front();
  }

  if (kind == "mux") {  // a checkpoint with its file for this frame
    if (auto picture = SourcePicture::load(*node.magicFile)) {
      Tex out = fitInEvaluation(*picture);
      const std::string& f = *node.magicFile;
      const std::string alphaFile = f.substr(0, f.size() - (endsWith(f, ".tif") ? 4 : 0)) + "_a.tif";
      if (auto alpha = SourcePicture::load(alphaFile))
        if (Tex a = fitInEvaluation(*alpha)) ev_->muxCached[id] = a;
      if (out) return out;
    }
    if (const Edge* e = edgeInto(id, 0); e && e->fromPort == 0)
      if (Tex a = alphaOut(e->from)) alphaSide_[id] = a;
    return front();
  }

  if (node.kind->kernel) return produceFx(node);  // the catalogue's own rules for Front and bypass

  Tex f = front();
  if (!f) return nullptr;

  if (kind == "output") {
    if (Tex m = input(id, 1)) {
      Tex out = tex(id, 0);
      dispatch("k_premultmatte", {f, m, out}, {});
      return out;
    }
    return f;
  }

  if (kind == "freeze") {
    if (node.bypass) return f;
    Tex r = f;
    if (node.magicFile)
      if (Tex still = cachedImage(*node.magicFile, compW, compH)) r = still;
    if (Tex m = input(id, 1)) {
      Tex out = tex(id, 4);
      dispatch("k_premultmatte", {r, m, out}, {});
      return out;
    }
    return r;
  }

  if (node.bypass) return f;

  if (kind == "color") {
    Tex m = input(id, 1);
    Tex out = tex(id, 0);
    dispatch("k_color", {f, m ? m : f, out},
             {node.p("exposure"), node.p("lift"), node.p("gamma"), node.p("gain"), node.p("sat"), node.p("temp"),
              m ? 1.0f : 0.0f, 0});
    return out;
  }

  if (kind == "glow") {
    Tex bright = tex(id, 1), blurred = tex(id, 2), out = tex(id, 0);
    const float P[] = {node.p("thresh"), node.p("intensity"), node.p("warmth"), 0};
    const Tex b[] = {f, bright};
    dispatch("k_bright", b, P);
    blur(bright, blurred, std::max(0.5f, node.p("size") * 0.6f * px));
    const Tex s[] = {f, blurred, out};
    dispatch("k_screen", s, P);
    return limitToMatte(node, f, out);
  }

  if (kind == "grain") {
    Tex out = tex(id, 0);
    dispatch("k_grain", {f, out},
             {node.p("amount"), std::max(1.0f, std::trunc(node.p("size") * px)), evalTime * 50 + 7, 0});
    return limitToMatte(node, f, out);
  }

  if (kind == "beauty") {
    const float s = std::max(0.1f, node.p("scale")) * px;
    const float sigma[] = {1.6f * s, 4.5f * s, 12.0f * s, 32.0f * s};
    Tex g[4];
    Tex prev = f;
    for (int i = 0; i < 4; ++i) {
      g[i] = tex(id, 1 + i);
      const float amount = i == 0 ? sigma[0] : std::sqrt(sigma[i] * sigma[i] - sigma[i - 1] * sigma[i - 1]);
      blur(prev, g[i], std::max(0.5f, amount));
      prev = g[i];
    }
    Tex m = input(id, 1);
    Tex out = tex(id, 0);
    const Tex list[] = {f, g[0], g[1], g[2], g[3], m ? m : f, out};
    const float P[] = {node.p("amount"), node.p("fine"),    node.p("small"), node.p("medium"), node.p("large"),
                       node.p("texture"), node.p("blemish"), node.p("redness"), node.p("shine"), node.p("edges"),
                       node.p("grain"),  node.on("skin") ? 1.0f : 0.0f, node.p("skintol"), node.p("view"),
                       m ? 1.0f : 0.0f, evalTime};
    dispatch("k_beautypro", list, P);
    return out;
  }

  if (kind == "xform") {
    const double W = compW, H = compH;
    Mat3 track;
    const int mode = int(std::lround(node.p("trackmode")));
    if (mode > 0 && node.trackBase && node.trackNow && !(*node.trackBase == *node.trackNow)) {
      const MaskKey& b = *node.trackBase;
      const MaskKey& n = *node.trackNow;
      const double bx = b.cx / 100 * W, by = b.cy / 100 * H, nx = n.cx / 100 * W, ny = n.cy / 100 * H;
      const bool useScale = node.on("usescale");
      const double k = useScale ? std::max(1e-6, n.rx / std::max(1e-6, b.rx)) : 1.0;
      const double turn = useScale ? (n.rot - b.rot) * kDeg : 0.0;
      track = Mat3::translate(nx, ny) * Mat3::rotate(turn) * Mat3::scale(k) * Mat3::translate(-bx, -by);
      if (mode == 2)
        if (auto inv = track.inverse()) track = *inv;
    }
    const double cx = W / 2, cy = H / 2;
    const Mat3 user = Mat3::translate(cx + node.p("tx") / 100.0 * W, cy + node.p("ty") / 100.0 * H) *
                      Mat3::rotate(node.p("angle") * kDeg) * Mat3::scale(std::max(0.01f, node.p("scale"))) *
                      Mat3::translate(-cx, -cy);
    auto inv = (user * track).inverse();
    if (!inv) return f;
    const auto m = inv->rows2();
    ev_->xformParams[id] = m;
    Tex out = tex(id, 0);
    dispatch("k_xform", {f, out}, {m[0], m[1], m[2], m[3], m[4], m[5]});
    return out;
  }

  if (kind == "stabilize") {
    if (!node.stabM || node.stabM->size() != 9) return f;
    Mat3 s;
    std::copy(node.stabM->begin(), node.stabM->end(), s.m.begin());
    Mat3 forward = s;
    if (!node.on("invert"))
      if (auto inv = s.inverse()) forward = *inv;
    auto kernelM = forward.inverse();
    if (!kernelM) return f;
    const auto m = kernelM->rows2();
    Tex out = tex(id, 0);
    dispatch("k_xform", {f, out}, {m[0], m[1], m[2], m[3], m[4], m[5]});
    if (!node.on("invert")) return out;
    Tex plate = input(id, 2);
    if (!plate) {  // the original plate: Front of the first forward stabilize upstream
      Uuid at = id;
      for (int step = 0; step < 64 && !plate; ++step) {
        const Edge* e = edgeInto(at, 0);
        if (!e) break;
        at = e->from;
        const Node* up = ev_->node(at);
        if (up && up->kind->id == "stabilize" && !up->on("invert")) plate = input(at, 0);
      }
    }
    if (!plate) return out;
    Tex over = tex(id, 1);
    dispatch("k_stabover", {out, plate, over}, {});
    return over;
  }

  if (kind == "retime") {
    // In-betweens computed by optical flow: the movie's frame of this output frame replaces the plate.
    if (node.retimeSource)
      if (Tex t = videoFrame(*node.retimeSource, int(node.p("_f")))) return t;
    return f;  // otherwise clip frames come with video reading; the frame passes through
  }

  if (kind == "greenkey" || kind == "greenkeyai") {
    Tex rgb = tex(id, 1), alpha = tex(id, 2);
    dispatch("k_gkey", {f, rgb, alpha},
             {node.p("sr"), node.p("sg"), node.p("sb"), node.p("balance"), node.p("gain"), node.p("clipb"),
              node.p("clipw"), node.p("screen") > 0.5f ? 1.0f : 0.0f, node.p("despill")});
    if (kind == "greenkeyai" && node.magicFile)
      if (Tex ai = cachedImage(*node.magicFile, compW, compH)) alpha = ai;
    const float g = node.p("grow") * px;
    Tex grown = alpha;
    float sense = 0;
    if (std::abs(g) > 0.3f) {
      grown = tex(id, 3);
      blur(alpha, grown, std::abs(g));
      sense = g > 0 ? 1.0f : -1.0f;
    }
    Tex garbage = input(id, 1);
    Tex a = tex(id, 4);
    dispatch("k_gkgrow", {grown, garbage ? garbage : grown, a}, {sense, garbage ? 1.0f : 0.0f});
    if (const float soft = node.p("soft") * px; soft > 0.3f) {
      Tex softened = tex(id, 3);
      blur(a, softened, soft);
      a = softened;
    }
    Tex out = tex(id, 0);
    dispatch("k_gkpremult", {rgb, a, out}, {});
    alphaSide_[id] = a;
    return out;
  }

  if (kind == "denoise") {
    if (!node.magicFile) return f;
    Tex noise;
    if (endsWith(*node.magicFile, ".dn")) {
      noise = rawNoise(*node.magicFile, std::max(compW, compH) <= 2048);
      if (noise && (noise->width() != compW || noise->height() != compH)) {
        Tex sized = tex(id, 1);
        rescale(noise, sized);
        noise = sized;
      }
    } else {
      noise = cachedImage(*node.magicFile, compW, compH);
    }
    if (!noise) return f;
    Tex m = input(id, 1);
    Tex out = tex(id, 0);
    dispatch("k_denoise", {f, noise, m ? m : f, out}, {node.p("strength"), m ? 1.0f : 0.0f});
    return out;
  }

  if (kind == "renoise") {
    Tex original = input(id, 1), denoised = input(id, 2);
    if (!original || !denoised) return f;
    Tex m = input(id, 3);
    Tex out = tex(id, 0);
    dispatch("k_renoise", {f, original, denoised, m ? m : f, out}, {node.p("amount"), m ? 1.0f : 0.0f});
    return out;
  }

  // Warps, motion fields, AI and paint kinds come with their features; everything else is an
  // effect of the catalogue.
  static const std::set<std::string> later = {"meshwarp", "motionvec", "facereshape", "paintbeauty", "beautyzones", "genfill"};
  // The zone a fill or a motion field works on is known before their results exist.
  if (kind == "genfill" || kind == "motionvec")
    if (Tex zone = alphasSum(node, kind == "genfill" ? 1 : 2, 40)) mergedSide[id] = zone;
  if (later.count(kind) || node.kind->isModel()) return nullptr;
  return produceFx(node);
}

}  // namespace ombrik
