#include "document/key_anim.h"

#include <algorithm>

namespace ombrik {

std::pair<double, double> KeyAnim::influences(const Keyframe& a, const Keyframe& b) {
  double out = std::clamp(a.outInf, 0.001, 1.0);
  double in = std::clamp(b.inInf, 0.001, 1.0);
  if (out + in > 1) {
    const double sum = out + in;
    out /= sum;
    in /= sum;
  }
  return {out, in};
}

double KeyAnim::segment(const Keyframe& a, const Keyframe& b, double f) {
  const std::int64_t span = b.f - a.f;
  if (span < 1) return b.v;
  switch (a.interp) {
    case KeyInterp::linear:
      return a.v + (f - double(a.f)) * (b.v - a.v) / double(span);
    case KeyInterp::hold:
      return a.v;
    case KeyInterp::bezier: {
      const auto [out, in] = influences(a, b);
      const double s = double(span);
      const double x0 = double(a.f), x1 = double(a.f) + out * s, x2 = double(b.f) - in * s, x3 = double(b.f);
      const double y0 = a.v, y1 = a.v + out * a.outSlope * s, y2 = b.v - in * b.inSlope * s, y3 = b.v;
      auto cubic = [](double t, double p0, double p1, double p2, double p3) {
        const double u = 1 - t;
        return u * u * u * p0 + 3 * u * u * t * p1 + 3 * u * t * t * p2 + t * t * t * p3;
      };
      // The handles stay inside the segment, so x(t) rises: bisect on it, 28 rounds exactly.
      double lo = 0, hi = 1;
      for (int round = 0; round < 28; ++round) {
        const double mid = (lo + hi) * 0.5;
        if (cubic(mid, x0, x1, x2, x3) < f) lo = mid;
        else hi = mid;
      }
      return cubic((lo + hi) * 0.5, y0, y1, y2, y3);
    }
  }
  return a.v;
}

double KeyAnim::value(const std::vector<Keyframe>& ks, double f) {
  if (ks.empty()) return 0;
  if (f <= double(ks.front().f)) return ks.front().v;
  if (f >= double(ks.back().f)) return ks.back().v;
  // The segment that starts at the last key at or before f: on an inner key, the next segment.
  auto next = std::upper_bound(ks.begin(), ks.end(), f, [](double x, const Keyframe& k) { return x < double(k.f); });
  return segment(*(next - 1), *next, f);
}

}  // namespace ombrik
