#include "tracking/track_fitter.h"

#include <algorithm>
#include <cmath>

namespace ombrik {

namespace {

// The upper median: element count/2 of the sorted values.
double upperMedian(std::vector<double> v) {
  const auto mid = v.begin() + std::ptrdiff_t(v.size() / 2);
  std::nth_element(v.begin(), mid, v.end());
  return *mid;
}

double residual(const Similarity& s, Point p, Point q) {
  const Point m = s.apply(p);
  return std::hypot(m.x - q.x, m.y - q.y);
}

std::optional<Similarity> fitOn(const std::vector<Point>& p, const std::vector<Point>& q,
                                const std::vector<std::size_t>& idx) {
  std::vector<Point> a, b;
  a.reserve(idx.size()), b.reserve(idx.size());
  for (std::size_t i : idx) a.push_back(p[i]), b.push_back(q[i]);
  return TrackFitter::similarity(a, b);
}

}  // namespace

void TrackFitter::pairs(const std::vector<TrackPoint>& points, std::vector<Point>& from,
                        std::vector<Point>& to) const {
  const std::size_t n = std::min(points.size(), p0.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!points[i].visible) continue;
    from.push_back(p0[i]);
    to.push_back({points[i].p.x * W, points[i].p.y * H});
  }
}

Point TrackFitter::medianMove(const std::vector<Point>& from, const std::vector<Point>& to) const {
  std::vector<double> dx, dy;
  for (std::size_t i = 0; i < from.size(); ++i) dx.push_back(to[i].x - from[i].x), dy.push_back(to[i].y - from[i].y);
  return {upperMedian(std::move(dx)), upperMedian(std::move(dy))};
}

std::optional<MaskKey> TrackFitter::key(const std::vector<TrackPoint>& points) {
  std::vector<Point> from, to;
  pairs(points, from, to);
  if (from.size() < 4) return std::nullopt;
  const Point c{k0.cx / 100 * W, k0.cy / 100 * H};
  MaskKey k = k0;
  if (mode == TrackMode::point) {
    const Point d = medianMove(from, to);
    k.cx = (c.x + d.x) / W * 100;
    k.cy = (c.y + d.y) / H * 100;
    return k;
  }
  const auto s = ransacSimilarity(from, to, 0.004 * std::max(W, H), rng);
  if (!s) return std::nullopt;
  const Point moved = s->apply(c);
  const double scale = std::hypot(s->a, s->b);
  k.cx = moved.x / W * 100;
  k.cy = moved.y / H * 100;
  k.rx = k0.rx * scale;
  k.ry = k0.ry * scale;
  k.rot = k0.rot + std::atan2(s->b, s->a) * 180 / M_PI;
  return k;
}

std::optional<MaskKey> TrackFitter::forced(const std::vector<TrackPoint>& points,
                                           const std::optional<MaskKey>& last) const {
  if (!last) return std::nullopt;
  std::vector<Point> from, to;
  pairs(points, from, to);
  if (from.empty()) return last;
  const Point d = medianMove(from, to);
  MaskKey k = *last;
  k.cx = (k0.cx / 100 * W + d.x) / W * 100;
  k.cy = (k0.cy / 100 * H + d.y) / H * 100;
  return k;
}

std::optional<Similarity> TrackFitter::similarity(const std::vector<Point>& p, const std::vector<Point>& q) {
  const std::size_t n = std::min(p.size(), q.size());
  if (n < 2) return std::nullopt;
  Point mp, mq;
  for (std::size_t i = 0; i < n; ++i) mp.x += p[i].x, mp.y += p[i].y, mq.x += q[i].x, mq.y += q[i].y;
  mp = {mp.x / double(n), mp.y / double(n)};
  mq = {mq.x / double(n), mq.y / double(n)};
  double sa = 0, sb = 0, d = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double px = p[i].x - mp.x, py = p[i].y - mp.y, qx = q[i].x - mq.x, qy = q[i].y - mq.y;
    sa += qx * px + qy * py;
    sb += qy * px - qx * py;
    d += px * px + py * py;
  }
  if (!(d > 1e-9)) return std::nullopt;
  Similarity s{sa / d, sb / d, 0, 0};
  s.tx = mq.x - (s.a * mp.x - s.b * mp.y);
  s.ty = mq.y - (s.b * mp.x + s.a * mp.y);
  return s;
}

std::optional<Similarity> TrackFitter::ransacSimilarity(const std::vector<Point>& p, const std::vector<Point>& q,
                                                        double threshold, std::mt19937& rng) {
  const std::size_t n = std::min(p.size(), q.size());
  if (n < 2) return std::nullopt;
  std::uniform_int_distribution<std::size_t> pick(0, n - 1);
  auto within = [&](const Similarity& s, double limit, const std::vector<std::size_t>& among) {
    std::vector<std::size_t> in;
    for (std::size_t i : among)
      if (residual(s, p[i], q[i]) < limit) in.push_back(i);
    return in;
  };
  std::vector<std::size_t> all(n);
  for (std::size_t i = 0; i < n; ++i) all[i] = i;

  std::vector<std::size_t> best;
  for (int round = 0; round < 200; ++round) {
    const std::size_t i = pick(rng);
    std::size_t j = pick(rng);
    if (j == i) j = (i + 1) % n;
    const auto s = fitOn(p, q, {i, j});
    if (!s) continue;
    auto in = within(*s, threshold, all);
    if (in.size() > best.size()) best = std::move(in);
    if (best.size() > n * 9 / 10) break;
  }
  if (best.size() < 4) best = all;
  const auto fit = fitOn(p, q, best);
  if (!fit) return std::nullopt;
  // A second pass on the points the fit explains best keeps stragglers just inside the
  // threshold from pulling the result.
  const auto tight = within(*fit, 0.6 * threshold, best);
  const bool useTight = best.size() < 8 ? tight.size() >= 4 : tight.size() * 2 >= best.size();
  if (useTight)
    if (const auto refit = fitOn(p, q, tight)) return refit;
  return fit;
}

void WeakWatch::note(int frame, bool strong) {
  if (strong) {
    run_ = 0;
    return;
  }
  if (run_ == 0) runStart_ = frame;
  if (++run_ >= 4 && !weakAt) weakAt = runStart_;
}

}  // namespace ombrik
