#include "color/lut_lib.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>

#include "color/lut_tables.h"
#include "color/ocio_display.h"

namespace ombrik {

namespace {

// The one process-wide table cache: tables are costly to make and never change under a key.
struct TableCache {
  std::mutex lock;
  std::map<std::string, std::shared_ptr<const LutTable>> tables;
};

TableCache& tableCache() {
  static TableCache cache;
  return cache;
}

// The encoded value of a camera's log curve as linear light.
double decode(std::string_view id, double x) {
  if (id == "logc3")
    return x > 0.149657834105 ? (std::pow(10.0, (x - 0.385537) / 0.24719) - 0.052272) / 5.555556
                              : (x - 0.092809) / 5.367655;
  if (id == "logc4")
    return x >= 0 ? (std::exp2(14 * (x - 0.09286412512218964) / 0.9071358748778103 + 6) - 64) / 2231.8263090676883
                  : 0.1135972086105891 * x - 0.01805699611991131;
  if (id == "slog3")
    return x >= 0.16736099187966763 ? 0.19 * std::pow(10.0, (1023 * x - 420) / 261.5) - 0.01
                                    : (1023 * x - 95) * 0.01125 / 76.21029469289999;
  if (id == "clog3") {
    if (x < 0.097465473) return 0.9 * (std::pow(10.0, (0.12783901 - x) / 0.36726845) - 1) / -14.98325;
    if (x <= 0.15277891) return 0.9 * (x - 0.12512219) / 1.9754798;
    return 0.9 * (std::pow(10.0, (x - 0.12240537) / 0.36726845) - 1) / 14.98325;
  }
  if (id == "vlog") return x < 0.181 ? (x - 0.125) / 5.6 : std::pow(10.0, (x - 0.598206) / 0.241514) - 0.00873;
  if (id == "log3g10")
    return x < 0 ? x / 15.1927 - 0.01 : (std::pow(10.0, x / 0.224282) - 1) / 155.975327 - 0.01;
  if (id == "bmdfilm")
    return x < 0.13388378308 ? (x - 0.09246575342) / 8.283605932
                             : std::exp((x - 0.5300133392) / 0.08692876065) - 0.005494072432;
  if (id == "applelog") {
    if (x >= 0.20855531595464202) return std::exp2((x - 0.69336945) / 0.08550479) - 0.00964052;
    if (x >= 0) return std::sqrt(x / 47.28711236) - 0.05641088;
    return -0.05641088;
  }
  return x;
}

const std::array<double, 9>& gamutMatrix(std::string_view id) {
  for (const auto& row : lut_tables::kMatrices)
    if (id == row.id) return row.m;
  for (const auto& row : lut_tables::kMatrices)
    if (*row.id == '\0') return row.m;
  return lut_tables::kMatrices.back().m;
}

// Filmic tone curve at 0.6 exposure, then gamma 2.4 for display.
double toneAndGamma(double c) {
  const double x = 0.6 * std::max(c, 0.0);
  const double y = std::clamp(x * (2.51 * x + 0.03) / (x * (2.43 * x + 0.59) + 0.14), 0.0, 1.0);
  return std::pow(y, 1 / 2.4);
}

std::uint8_t toByte(float v) { return std::uint8_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)); }

}  // namespace

std::array<float, 3> LutTable::lookup(float r, float g, float b) const {
  const int n = size;
  if (n < 2 || values.size() < std::size_t(4) * n * n * n) return {r, g, b};
  int i0[3];
  float f[3];
  const float in[3] = {r, g, b};
  for (int c = 0; c < 3; ++c) {
    const float p = std::clamp(std::isnan(in[c]) ? 0.0f : in[c], 0.0f, 1.0f) * float(n - 1);
    i0[c] = std::min(int(p), n - 2);
    f[c] = p - float(i0[c]);
  }
  std::array<float, 3> out{};
  for (int corner = 0; corner < 8; ++corner) {
    const int dr = corner & 1, dg = (corner >> 1) & 1, db = (corner >> 2) & 1;
    const float w = (dr ? f[0] : 1 - f[0]) * (dg ? f[1] : 1 - f[1]) * (db ? f[2] : 1 - f[2]);
    const float* e = &values[4 * (std::size_t(i0[0] + dr) + std::size_t(n) * ((i0[1] + dg) + std::size_t(n) * (i0[2] + db)))];
    for (int c = 0; c < 3; ++c) out[c] += w * e[c];
  }
  return out;
}

const std::vector<LUTLib::Generic>& LUTLib::generics() {
  static const std::vector<Generic> list = [] {
    std::vector<Generic> v;
    for (const auto& row : lut_tables::kGenerics) v.push_back({row.id, row.label});
    return v;
  }();
  return list;
}

std::shared_ptr<const LutTable> LUTLib::cached(const std::string& key, std::string* error) {
  TableCache& cache = tableCache();
  {
    std::lock_guard g(cache.lock);
    if (auto it = cache.tables.find(key); it != cache.tables.end()) return it->second;
  }
  // Made outside the lock: a large file doesn't hold up other keys. Two threads asking the same
  // new key both make it; the first one stored wins.
  std::shared_ptr<const LutTable> table;
  if (key.starts_with(kAutoPrefix)) {
    table = std::make_shared<const LutTable>(generic(key.substr(kAutoPrefix.size()), kGenericSize));
  } else if (OcioDisplay::isKey(key)) {
    auto baked = OcioDisplay::bakeKey(key, error);
    if (!baked) return nullptr;
    table = std::make_shared<const LutTable>(std::move(*baked));
  } else {
    auto parsed = parseCube(key, error);
    if (!parsed) return nullptr;
    table = std::make_shared<const LutTable>(std::move(*parsed));
  }
  std::lock_guard g(cache.lock);
  return cache.tables.emplace(key, std::move(table)).first->second;
}

LutTable LUTLib::generic(const std::string& id, int size) {
  const int n = std::clamp(size, 2, kMaxSize);
  const std::array<double, 9>& m = gamutMatrix(id);
  // Each channel's decoded value depends on its grid index only: decode once per index.
  std::vector<double> lin(n);
  for (int i = 0; i < n; ++i) lin[i] = decode(id, double(i) / (n - 1));
  LutTable t;
  t.size = n;
  t.values.resize(std::size_t(4) * n * n * n);
  float* out = t.values.data();
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        const double c[3] = {lin[r], lin[g], lin[b]};
        for (int row = 0; row < 3; ++row)
          *out++ = float(toneAndGamma(m[3 * row] * c[0] + m[3 * row + 1] * c[1] + m[3 * row + 2] * c[2]));
        *out++ = 1;
      }
  return t;
}

std::optional<std::string> LUTLib::short_(const std::optional<std::string>& key) {
  if (!key || key->empty()) return std::nullopt;
  if (key->starts_with(kAutoPrefix)) {
    const std::string_view id = std::string_view(*key).substr(kAutoPrefix.size());
    for (const auto& row : lut_tables::kGenerics)
      if (id == row.id) return std::string(row.shortLabel);
  }
  return std::string("LUT");
}

Picture LUTLib::apply(const Picture& picture, const std::optional<std::string>& key) {
  if (!key || key->empty() || !picture.rgba) return picture;
  const std::size_t count = std::size_t(picture.width) * std::max(picture.height, 0);
  if (picture.rgba->size() < count * 4) return picture;
  const auto table = cached(*key);
  if (!table) return picture;
  auto out = std::make_shared<std::vector<std::uint8_t>>(*picture.rgba);
  std::uint8_t* p = out->data();
  for (std::size_t i = 0; i < count; ++i, p += 4) {
    // Thumbnails are premultiplied: the table applies to the colour, not to its product with alpha.
    const float a = p[3] / 255.0f;
    if (a <= 0) continue;
    const auto c = table->lookup(p[0] / 255.0f / a, p[1] / 255.0f / a, p[2] / 255.0f / a);
    for (int k = 0; k < 3; ++k) p[k] = toByte(c[k] * a);
  }
  return Picture{picture.width, picture.height, std::move(out)};
}

}  // namespace ombrik
