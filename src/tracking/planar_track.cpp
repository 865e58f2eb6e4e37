#include "tracking/planar_track.h"

#include <cmath>

#include "tracking/frame_keys.h"
#include "tracking/roto.h"
#include "tracking/track_offset.h"

namespace ombrik {

namespace {

// Tracking switches are on unless stored off.
bool channelOn(const Node& node, const char* key) {
  const auto it = node.params.find(key);
  return it == node.params.end() || it->second > 0.5;
}

Homography fromSimilarity(const Similarity& s) {
  Homography h;
  h.m = {s.a, -s.b, s.tx, s.b, s.a, s.ty, 0, 0, 1};
  return h;
}

}  // namespace

std::optional<Homography> planarHomographyRaw(const Node& node, int frame, double compW, double compH) {
  if (!node.kind || node.kind->id != "mask" || node.planarH.empty()) return std::nullopt;
  if (!channelOn(node, "trk_pos") || !channelOn(node, "trk_rot") || !channelOn(node, "trk_scale"))
    return std::nullopt;
  const std::vector<double>* stored = nearestKey(node.planarH, frame);
  const auto h = stored ? Homography::fromArray(*stored) : std::nullopt;
  if (!h) return std::nullopt;
  if (channelOn(node, "trk_persp") || node.shape.size() < 2) return h;

  std::vector<Point> src, dst;
  for (const Point& p : Roto::flatten(node.shape, node.shapeClosed, 4)) {
    const Point px{p.x * compW, p.y * compH};
    const Point mapped = Homography::apply(*h, p);  // w is divided out when it can be
    src.push_back(px);
    dst.push_back({mapped.x * compW, mapped.y * compH});
  }
  std::optional<Homography> reduced;
  if (channelOn(node, "trk_skew")) {
    reduced = Homography::affine(src, dst);
  } else if (const auto s = TrackFitter::similarity(src, dst)) {
    reduced = fromSimilarity(*s);
  }
  if (!reduced) return std::nullopt;
  return Homography::normalized(*reduced, compW, compH);
}

std::optional<Homography> planarHomography(const Node& node, int frame, double compW, double compH) {
  auto h = planarHomographyRaw(node, frame, compW, compH);
  if (!h) return h;
  const Point o = trackOffsetValue(node.trackOff, frame);
  if (std::abs(o.x) + std::abs(o.y) >= 1e-12) h = Homography::translation(o.x / 100, o.y / 100) * *h;
  return h;
}

void shiftPlanar(std::map<int, std::vector<double>>& planarH, double dx, double dy) {
  const Homography t = Homography::translation(dx, dy);
  for (auto& [frame, values] : planarH)
    if (const auto h = Homography::fromArray(values)) values = (t * *h).toArray();
}

std::optional<Homography> planarStartH(const std::map<int, std::vector<double>>& planarH, int s, Point o) {
  const std::vector<double>* stored = nearestKey(planarH, s);
  auto h = stored ? Homography::fromArray(*stored) : std::nullopt;
  if (h && (o.x != 0 || o.y != 0)) h = Homography::translation(o.x / 100, o.y / 100) * *h;
  return h;
}

std::optional<Homography> planarFrameH(const std::vector<Point>& seedsPx, const std::vector<TrackPoint>& points,
                                       double W, double H, const Homography& H0, Point o, std::mt19937& rng) {
  std::vector<Point> src, dst;
  const std::size_t n = std::min(seedsPx.size(), points.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!points[i].visible) continue;
    src.push_back(seedsPx[i]);
    dst.push_back({points[i].p.x * W, points[i].p.y * H});
  }
  const auto h = Homography::ransac(src, dst, std::max(W, H) * 0.003, rng);
  if (!h) return std::nullopt;
  Homography out = Homography::normalized(*h, W, H) * H0;
  if (o.x != 0 || o.y != 0) out = Homography::translation(-o.x / 100, -o.y / 100) * out;
  return out;
}

}  // namespace ombrik
