#include "color/ocio_display.h"

#include <OpenColorIO/OpenColorIO.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>

namespace ombrik {

namespace OCIO = OCIO_NAMESPACE;

namespace {
constexpr char kSep = '\x1f';

// OCIO's messages may end in a line break; ours sit on one status line.
std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

std::string unreadable(const std::filesystem::path& config, const std::string& why) {
  return "Configuration OCIO illisible : " + config.filename().string() + " (" + oneLine(why) + ")";
}
}  // namespace

struct OcioDisplay::Config {
  OCIO::ConstConfigRcPtr config;
};

std::optional<std::filesystem::path> OcioDisplay::envConfig() {
  const char* env = std::getenv("OCIO");
  if (!env || !*env) return std::nullopt;
  return std::filesystem::path(env);
}

OcioDisplay::OcioDisplay(const std::filesystem::path& config) : path_(config) {
  // OCIO reports every problem by exception: a missing file, bad YAML, a view naming an unknown
  // colour space (validate). None of them may leave a half-listed config behind.
  try {
    OCIO::ConstConfigRcPtr c = OCIO::Config::CreateFromFile(config.c_str());
    c->validate();
    std::vector<Display> displays;
    for (int i = 0; i < c->getNumDisplays(); ++i) {
      Display d{c->getDisplay(i), {}};
      for (int j = 0; j < c->getNumViews(d.name.c_str()); ++j) d.views.emplace_back(c->getView(d.name.c_str(), j));
      displays.push_back(std::move(d));
    }
    std::string input;
    for (const char* role : {OCIO::ROLE_DEFAULT, OCIO::ROLE_SCENE_LINEAR})
      if (auto space = c->getColorSpace(role); space && input.empty()) input = space->getName();
    if (input.empty() && c->getNumColorSpaces() > 0) input = c->getColorSpaceNameByIndex(0);
    if (input.empty()) throw std::runtime_error("aucun espace colorimétrique");
    displays_ = std::move(displays);
    input_ = std::move(input);
    config_ = std::make_unique<Config>(Config{c});
  } catch (const std::exception& e) {
    error_ = unreadable(config, e.what());
  }
}

OcioDisplay::~OcioDisplay() = default;

std::shared_ptr<const OcioDisplay> OcioDisplay::open(const std::filesystem::path& config, std::string* error) {
  static std::mutex lock;
  static std::map<std::filesystem::path, std::shared_ptr<const OcioDisplay>> opened;
  {
    std::lock_guard g(lock);
    if (auto it = opened.find(config); it != opened.end()) return it->second;
  }
  auto display = std::make_shared<const OcioDisplay>(config);
  if (!display->ok()) {
    if (error) *error = display->error();
    return nullptr;
  }
  std::lock_guard g(lock);
  return opened.emplace(config, std::move(display)).first->second;
}

bool OcioDisplay::offers(const OcioView& v) const {
  for (const Display& d : displays_)
    if (d.name == v.display)
      for (const std::string& view : d.views)
        if (view == v.view) return true;
  return false;
}

std::optional<LutTable> OcioDisplay::bake(const OcioView& v, int size, const LutTable* under, std::string* error) const {
  if (!config_) {
    if (error) *error = error_;
    return std::nullopt;
  }
  const int n = std::clamp(size, 2, LUTLib::kMaxSize);
  LutTable t;
  t.size = n;
  t.values.resize(std::size_t(4) * n * n * n);
  float* p = t.values.data();
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r, p += 4) {
        const float x[3] = {float(r) / float(n - 1), float(g) / float(n - 1), float(b) / float(n - 1)};
        const auto c = under ? under->lookup(x[0], x[1], x[2]) : std::array<float, 3>{x[0], x[1], x[2]};
        p[0] = c[0], p[1] = c[1], p[2] = c[2], p[3] = 1;
      }
  try {
    OCIO::ConstProcessorRcPtr processor =
        config_->config->getProcessor(input_.c_str(), v.display.c_str(), v.view.c_str(), OCIO::TRANSFORM_DIR_FORWARD);
    // The whole grid as one picture n wide and n² high: the table's order is the picture's.
    OCIO::PackedImageDesc grid(t.values.data(), n, long(n) * n, 4);
    processor->getDefaultCPUProcessor()->apply(grid);
  } catch (const std::exception& e) {
    if (error) *error = "Affichage OCIO impossible : " + v.display + " / " + v.view + " (" + oneLine(e.what()) + ")";
    return std::nullopt;
  }
  // A view may divide or take logs: the GPU pass must never meet a NaN or an infinity.
  for (std::size_t i = 0; i < t.values.size(); i += 4) {
    for (int c = 0; c < 3; ++c)
      if (!std::isfinite(t.values[i + c])) t.values[i + c] = 0;
    t.values[i + 3] = 1;
  }
  return t;
}

std::string OcioDisplay::key(const std::filesystem::path& config, const OcioView& v, const std::string& under) {
  return std::string(kPrefix) + config.string() + kSep + v.display + kSep + v.view + kSep + under;
}

std::optional<LutTable> OcioDisplay::bakeKey(const std::string& key, std::string* error) {
  // The world's LUT comes last and is a plain LUTLib key: split on the first three separators only.
  std::vector<std::string> parts;
  std::size_t from = kPrefix.size();
  for (int i = 0; i < 3; ++i) {
    const std::size_t at = key.find(kSep, from);
    if (!isKey(key) || at == std::string::npos) {
      if (error) *error = "Clé OCIO invalide";
      return std::nullopt;
    }
    parts.push_back(key.substr(from, at - from));
    from = at + 1;
  }
  const std::string under = key.substr(from);
  std::shared_ptr<const LutTable> first;
  if (!under.empty() && !(first = LUTLib::cached(under, error))) return std::nullopt;
  const auto config = open(parts[0], error);
  if (!config) return std::nullopt;
  return config->bake({parts[1], parts[2]}, kTableSize, first.get(), error);
}

}  // namespace ombrik
