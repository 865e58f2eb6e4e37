#include "tracking/pin_plan.h"

#include <algorithm>

#include "tracking/roto.h"

namespace ombrik {

namespace {

MaskKey lerp(const MaskKey& a, const MaskKey& b, double t) {
  auto mix = [t](double x, double y) { return x + (y - x) * t; };
  return {mix(a.cx, b.cx), mix(a.cy, b.cy), mix(a.rx, b.rx), mix(a.ry, b.ry), mix(a.rot, b.rot)};
}

// A run's homography at a frame made absolute, scaled to m22 = 1; none when it holds none.
std::optional<Homography> absoluteAt(const PinResult& r, int frame, const Homography& start) {
  const auto it = r.planarH.find(frame);
  if (it == r.planarH.end()) return std::nullopt;
  const auto h = Homography::fromArray(it->second);
  if (!h) return std::nullopt;
  return (*h * start).scaledToUnitM22();
}

}  // namespace

std::optional<MaskKey> pinPose(const std::map<int, MaskKey>& pins, int frame) {
  if (pins.empty()) return std::nullopt;
  if (frame <= pins.begin()->first) return pins.begin()->second;
  if (frame >= pins.rbegin()->first) return pins.rbegin()->second;
  const auto b = pins.upper_bound(frame), a = std::prev(b);
  const double t = double(frame - a->first) / std::max(b->first - a->first, 1);
  return lerp(a->second, b->second, t);
}

std::vector<PinRun> planPinRuns(const std::map<int, MaskKey>& pins) {
  if (pins.size() < 2) return {};
  std::vector<int> f;
  for (const auto& [frame, key] : pins) f.push_back(frame);
  std::vector<PinRun> plan{{f.front(), false, std::nullopt, std::nullopt}};
  for (std::size_t i = 0; i + 1 < f.size(); ++i) {
    plan.push_back({f[i], true, f[i + 1], int(i)});
    plan.push_back({f[i + 1], false, f[i], int(i)});
  }
  plan.push_back({f.back(), true, std::nullopt, std::nullopt});
  return plan;
}

std::optional<Homography> pinPoseH(const std::vector<SplinePoint>& shape, const std::optional<MaskKey>& base,
                                   const MaskKey& pin, double W, double H) {
  if (!base || shape.size() < 3) return std::nullopt;
  std::vector<Point> src, dst;
  for (const SplinePoint& s : shape) {
    src.push_back(s.p);
    dst.push_back(Roto::xform(s.p, *base, pin, W, H));
  }
  // A move between placements is affine, so three anchors determine it.
  return Homography::affine(src, dst);
}

PinResult fusePinRuns(const std::vector<PinRun>& plan, const std::vector<PinResult>& results,
                      const std::map<int, Homography>& poseH) {
  PinResult out;
  const std::size_t n = std::min(plan.size(), results.size());
  auto startH = [&](int pin) {
    const auto it = poseH.find(pin);
    return it == poseH.end() ? Homography::identity() : it->second;
  };
  for (std::size_t i = 0; i < n; ++i) {
    if (plan[i].seg) continue;
    for (const auto& [f, k] : results[i].track) out.track[f] = k;
    for (const auto& [f, h] : results[i].planarH)
      if (auto a = absoluteAt(results[i], f, startH(plan[i].frame))) out.planarH[f] = a->toArray();
  }
  for (std::size_t i = 0; i + 1 < n; ++i) {
    const PinRun& fw = plan[i];
    const PinRun& bw = plan[i + 1];
    if (!fw.seg || !fw.forward || !fw.limit || bw.seg != fw.seg || bw.forward) continue;
    const int f0 = fw.frame, f1 = *fw.limit;
    const PinResult& F = results[i];
    const PinResult& B = results[i + 1];
    const Homography hF = startH(f0), hB = startH(f1);
    for (int f = f0; f <= f1; ++f) {
      const double t = double(f - f0) / std::max(f1 - f0, 1);
      const auto kf = F.track.find(f), kb = B.track.find(f);
      if (kf != F.track.end() && kb != B.track.end()) out.track[f] = lerp(kf->second, kb->second, t);
      else if (kf != F.track.end()) out.track[f] = kf->second;
      else if (kb != B.track.end()) out.track[f] = kb->second;

      const auto af = absoluteAt(F, f, hF), ab = absoluteAt(B, f, hB);
      if (af && ab) {
        Homography blend;
        for (std::size_t e = 0; e < 9; ++e) blend.m[e] = af->m[e] * (1 - t) + ab->m[e] * t;
        out.planarH[f] = blend.toArray();
      } else if (af || ab) {
        out.planarH[f] = (af ? *af : *ab).toArray();
      }
    }
    ++i;  // the backward run of this segment is used up
  }
  return out;
}

}  // namespace ombrik
