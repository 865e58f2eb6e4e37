#include "tracking/homography.h"

#include <algorithm>
#include <cmath>

namespace ombrik {

namespace {

constexpr double kPivotEps = 1e-12;

bool finite(const Homography& h) {
  return std::all_of(h.m.begin(), h.m.end(), [](double v) { return std::isfinite(v); });
}

// Hartley normalisation: centred on the mean, mean distance from it √2.
Homography normaliser(const std::vector<Point>& pts, std::size_t n) {
  double mx = 0, my = 0;
  for (std::size_t i = 0; i < n; ++i) mx += pts[i].x, my += pts[i].y;
  mx /= double(n), my /= double(n);
  double dist = 0;
  for (std::size_t i = 0; i < n; ++i) dist += std::hypot(pts[i].x - mx, pts[i].y - my);
  dist /= double(n);
  const double s = dist <= 1e-9 ? 1.0 : std::sqrt(2.0) / dist;
  Homography t;
  t.m = {s, 0, -s * mx, 0, s, -s * my, 0, 0, 1};
  return t;
}

// Gauss-Jordan with partial pivoting on an N x N system held row by row; none on a tiny pivot.
template <std::size_t N>
std::optional<std::array<double, N>> solve(std::array<std::array<double, N>, N> a, std::array<double, N> b) {
  for (std::size_t col = 0; col < N; ++col) {
    std::size_t pivot = col;
    for (std::size_t r = col + 1; r < N; ++r)
      if (std::abs(a[r][col]) > std::abs(a[pivot][col])) pivot = r;
    if (!(std::abs(a[pivot][col]) > kPivotEps)) return std::nullopt;  // NaN lands here too
    std::swap(a[col], a[pivot]);
    std::swap(b[col], b[pivot]);
    const double inv = 1.0 / a[col][col];
    for (std::size_t c = col; c < N; ++c) a[col][c] *= inv;
    b[col] *= inv;
    for (std::size_t r = 0; r < N; ++r) {
      if (r == col || a[r][col] == 0) continue;
      const double f = a[r][col];
      for (std::size_t c = col; c < N; ++c) a[r][c] -= f * a[col][c];
      b[r] -= f * b[col];
    }
  }
  return b;
}

double det3(const std::array<std::array<double, 3>, 3>& a) {
  return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
         a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
}

}  // namespace

Homography Homography::operator*(const Homography& o) const {
  Homography r;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) r(i, j) = (*this)(i, 0) * o(0, j) + (*this)(i, 1) * o(1, j) + (*this)(i, 2) * o(2, j);
  return r;
}

Homography Homography::translation(double dx, double dy) {
  Homography t;
  t.m = {1, 0, dx, 0, 1, dy, 0, 0, 1};
  return t;
}

std::optional<Homography> Homography::inverse() const {
  const std::array<std::array<double, 3>, 3> a{{{m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]}}};
  const double d = det3(a);
  if (!(std::abs(d) > kPivotEps)) return std::nullopt;
  Homography r;
  r.m = {(m[4] * m[8] - m[5] * m[7]) / d, (m[2] * m[7] - m[1] * m[8]) / d, (m[1] * m[5] - m[2] * m[4]) / d,
         (m[5] * m[6] - m[3] * m[8]) / d, (m[0] * m[8] - m[2] * m[6]) / d, (m[2] * m[3] - m[0] * m[5]) / d,
         (m[3] * m[7] - m[4] * m[6]) / d, (m[1] * m[6] - m[0] * m[7]) / d, (m[0] * m[4] - m[1] * m[3]) / d};
  return r;
}

Homography Homography::scaledToUnitM22() const {
  if (!(std::abs(m[8]) > kPivotEps)) return *this;
  Homography r = *this;
  for (double& v : r.m) v /= m[8];
  return r;
}

std::optional<Homography> Homography::fit(const std::vector<Point>& src, const std::vector<Point>& dst) {
  const std::size_t n = std::min(src.size(), dst.size());
  if (n < 4) return std::nullopt;
  const Homography ts = normaliser(src, n), td = normaliser(dst, n);
  std::array<std::array<double, 8>, 8> ata{};
  std::array<double, 8> atb{};
  auto accumulate = [&](const std::array<double, 8>& row, double rhs) {
    for (std::size_t i = 0; i < 8; ++i) {
      if (row[i] == 0) continue;
      for (std::size_t j = 0; j < 8; ++j) ata[i][j] += row[i] * row[j];
      atb[i] += row[i] * rhs;
    }
  };
  for (std::size_t i = 0; i < n; ++i) {
    const Point p = apply(ts, src[i]), q = apply(td, dst[i]);
    accumulate({p.x, p.y, 1, 0, 0, 0, -q.x * p.x, -q.x * p.y}, q.x);
    accumulate({0, 0, 0, p.x, p.y, 1, -q.y * p.x, -q.y * p.y}, q.y);
  }
  const auto h = solve(ata, atb);
  if (!h) return std::nullopt;
  Homography hn;
  std::copy(h->begin(), h->end(), hn.m.begin());
  hn.m[8] = 1;
  // td is a scale and a shift, so its inverse is written out rather than solved for.
  const double s = td.m[0];
  Homography tdInv;
  tdInv.m = {1 / s, 0, -td.m[2] / s, 0, 1 / s, -td.m[5] / s, 0, 0, 1};
  Homography out = tdInv * hn * ts;
  if (!(std::abs(out.m[8]) > kPivotEps)) return std::nullopt;
  out = out.scaledToUnitM22();
  if (!finite(out)) return std::nullopt;
  return out;
}

std::optional<Homography> Homography::affine(const std::vector<Point>& src, const std::vector<Point>& dst) {
  const std::size_t n = std::min(src.size(), dst.size());
  if (n < 3) return std::nullopt;
  std::array<std::array<double, 3>, 3> a{};
  std::array<double, 3> bu{}, bv{};
  for (std::size_t i = 0; i < n; ++i) {
    const double row[3] = {src[i].x, src[i].y, 1};
    for (std::size_t r = 0; r < 3; ++r) {
      for (std::size_t c = 0; c < 3; ++c) a[r][c] += row[r] * row[c];
      bu[r] += row[r] * dst[i].x;
      bv[r] += row[r] * dst[i].y;
    }
  }
  if (!(std::abs(det3(a)) > 1e-9)) return std::nullopt;
  const auto u = solve(a, bu), v = solve(a, bv);
  if (!u || !v) return std::nullopt;
  Homography out;
  out.m = {(*u)[0], (*u)[1], (*u)[2], (*v)[0], (*v)[1], (*v)[2], 0, 0, 1};
  if (!finite(out)) return std::nullopt;
  return out;
}

Homography Homography::normalized(const Homography& h, double W, double H) {
  const double s[3] = {W, H, 1};
  Homography r;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) r(i, j) = h(i, j) * s[j] / s[i];
  return r.scaledToUnitM22();
}

Point Homography::apply(const Homography& h, Point p) {
  const double x = h.m[0] * p.x + h.m[1] * p.y + h.m[2];
  const double y = h.m[3] * p.x + h.m[4] * p.y + h.m[5];
  const double w = h.m[6] * p.x + h.m[7] * p.y + h.m[8];
  if (std::abs(w) > 1e-12) return {x / w, y / w};
  return {x, y};
}

std::optional<Homography> Homography::ransac(const std::vector<Point>& src, const std::vector<Point>& dst,
                                             double threshold, std::mt19937& rng) {
  const std::size_t n = std::min(src.size(), dst.size());
  if (n < 4) return std::nullopt;
  std::uniform_int_distribution<std::size_t> pick(0, n - 1);
  auto inliersOf = [&](const Homography& h) {
    std::vector<std::size_t> in;
    for (std::size_t i = 0; i < n; ++i) {
      const Point p = apply(h, src[i]);
      if (std::hypot(p.x - dst[i].x, p.y - dst[i].y) < threshold) in.push_back(i);
    }
    return in;
  };
  std::vector<std::size_t> best;
  for (int round = 0; round < 300; ++round) {
    std::array<std::size_t, 4> idx{};
    for (std::size_t k = 0; k < 4; ++k) {
      do idx[k] = pick(rng);
      while (std::find(idx.begin(), idx.begin() + std::ptrdiff_t(k), idx[k]) != idx.begin() + std::ptrdiff_t(k));
    }
    std::vector<Point> s, d;
    for (std::size_t i : idx) s.push_back(src[i]), d.push_back(dst[i]);
    const auto h = fit(s, d);
    if (!h) continue;
    auto in = inliersOf(*h);
    if (in.size() > best.size()) best = std::move(in);
    if (best.size() > n * 92 / 100) break;
  }
  if (best.size() < 6) return std::nullopt;
  std::vector<Point> s, d;
  for (std::size_t i : best) s.push_back(src[i]), d.push_back(dst[i]);
  return fit(s, d);
}

std::optional<Homography> Homography::fromArray(const std::vector<double>& values) {
  if (values.size() != 9) return std::nullopt;
  Homography h;
  std::copy(values.begin(), values.end(), h.m.begin());
  return h;
}

std::vector<double> Homography::toArray() const { return {m.begin(), m.end()}; }

}  // namespace ombrik
