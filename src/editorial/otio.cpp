#include "editorial/otio.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "platform/atomic_file.h"
#include "platform/bounded_file.h"
#include "platform/bounded_json.h"
#include "platform/json_fields.h"

namespace ombrik::otio {

using namespace jsonfields;
namespace fs = std::filesystem;

namespace {

constexpr const char* kOurs = "ombrik";  // our metadata key
constexpr const char* kDefaultMedia = "DEFAULT_MEDIA";
constexpr std::uintmax_t kMaxFileBytes = 64u << 20;

// ---- URLs ----

bool unreserved(unsigned char c) { return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~'; }

std::string percentEncoded(const std::string& bytes) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : bytes) {
    if (unreserved(c) || c == '/') out += char(c);
    else out += {'%', hex[c >> 4], hex[c & 15]};
  }
  return out;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int hi = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
    const int lo = hi >= 0 ? hexDigit(text[i + 2]) : -1;
    if (lo >= 0) {
      out += char(hi * 16 + lo);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string urlOf(const fs::path& p) {
  const std::string encoded = percentEncoded(p.generic_string());
  return p.is_absolute() ? "file://" + encoded : encoded;
}

// A file URL's path (its host, "localhost" or none, is dropped); a URL without a scheme is a path,
// maybe relative. Other schemes (http...) give nothing.
std::optional<fs::path> pathOfUrl(const std::string& url) {
  if (url.empty()) return std::nullopt;
  const std::size_t colon = url.find(':');
  bool scheme = colon != std::string::npos && colon > 1 && std::isalpha((unsigned char)url[0]);
  for (std::size_t i = 0; scheme && i < colon; ++i) {
    const unsigned char c = (unsigned char)url[i];
    scheme = std::isalnum(c) || c == '+' || c == '-' || c == '.';
  }
  if (!scheme) return fs::path(percentDecoded(url));
  std::string name = url.substr(0, colon);
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (name != "file") return std::nullopt;
  std::string rest = url.substr(colon + 1);
  if (rest.starts_with("//")) {
    const std::size_t slash = rest.find('/', 2);
    if (slash == std::string::npos) return std::nullopt;
    rest = rest.substr(slash);
  }
  return fs::path(percentDecoded(rest));
}

// ---- writing ----

json rationalTime(int frames, double rate) {
  return {{"OTIO_SCHEMA", "RationalTime.1"}, {"rate", rate}, {"value", double(frames)}};
}

json timeRange(int start, int duration, double rate) {
  return {{"OTIO_SCHEMA", "TimeRange.1"},
          {"start_time", rationalTime(start, rate)},
          {"duration", rationalTime(duration, rate)}};
}

// The fields every Item and Composition has.
json item(const char* schema, const std::string& name, json sourceRange, json metadata = json::object()) {
  return {{"OTIO_SCHEMA", schema}, {"name", name},      {"metadata", std::move(metadata)},
          {"source_range", std::move(sourceRange)}, {"effects", json::array()}, {"markers", json::array()},
          {"enabled", true}};
}

json mediaReference(const LayerSource& source, const PathOf& pathOf) {
  const auto path = pathOf ? pathOf(source) : std::nullopt;
  json ref = {{"OTIO_SCHEMA", path ? "ExternalReference.1" : "MissingReference.1"},
              {"name", path ? path->filename().string() : std::string()},
              {"metadata", json::object()},
              {"available_range", nullptr},
              {"available_image_bounds", nullptr}};
  if (path) ref["target_url"] = urlOf(*path);
  return ref;
}

json clipOf(const TLayer& l, double fps, const PathOf& pathOf) {
  const json ours = {{"layerId", l.id.toString()},
                     {"source", {{"kind", l.source.isBatch() ? "batch" : "media"}, {"id", l.source.id.toString()}}},
                     {"opacity", l.opacity},
                     {"blend", l.blend}};
  json clip = item("Clip.2", l.name, timeRange(l.inPoint, l.length, fps), {{kOurs, ours}});
  clip["enabled"] = l.enabled;
  clip["media_references"] = {{kDefaultMedia, mediaReference(l.source, pathOf)}};
  clip["active_media_reference_key"] = kDefaultMedia;
  return clip;
}

json timelineMetadata(const Timeline& t) {
  json ours = {{"id", t.id.toString()}, {"fps", t.fps}, {"width", t.width}, {"height", t.height}};
  if (t.fixedDuration) ours["fixedDuration"] = *t.fixedDuration;
  if (t.background) ours["background"] = *t.background;
  if (t.filmPath) ours["filmPath"] = *t.filmPath;
  return {{kOurs, ours}};
}

// ---- reading: schemas and fields ----

enum class Kind { timeline, stack, track, clip1, clip2, gap, transition, external, missing, unknown };

Kind kindOf(const json& o, std::string& schema) {
  schema = text(field(object(o), "OTIO_SCHEMA"));
  static const std::pair<const char*, Kind> known[] = {
      {"Timeline.1", Kind::timeline}, {"Stack.1", Kind::stack},           {"Track.1", Kind::track},
      {"Clip.1", Kind::clip1},        {"Clip.2", Kind::clip2},            {"Gap.1", Kind::gap},
      {"Transition.1", Kind::transition}, {"ExternalReference.1", Kind::external},
      {"MissingReference.1", Kind::missing}};
  for (const auto& [name, kind] : known)
    if (schema == name) return kind;
  return Kind::unknown;
}

std::string unexpected(Kind k, const std::string& schema) {
  return (k == Kind::unknown ? "Schéma OTIO inconnu ignoré : " : "Objet OTIO ignoré à cette place : ") + schema;
}

// A failure inside `f` says where it happened.
template <class F>
auto within(const std::string& where, F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const Unreadable& e) {
    throw Unreadable(where + " : " + e.what());
  }
}

std::string nameOf(const json& o) {
  const json* n = optField(o, "name");
  return n ? text(*n) : std::string();
}

bool enabledOf(const json& o) {
  const json* e = optField(o, "enabled");
  return !e || boolean(*e);
}

const json& childrenOf(const json& o) {
  static const json none = json::array();
  const json* c = optField(o, "children");
  return c ? within("children", [&]() -> const json& { return array(*c); }) : none;
}

void checkSchema(const json& o, const char* expected) {
  const json* s = optField(object(o), "OTIO_SCHEMA");
  if (s && text(*s) != expected) throw Unreadable(std::string(expected) + " attendu, pas " + text(*s));
}

struct Time {
  double value = 0, rate = 1;
  double seconds() const { return value / rate; }
};
struct Range {
  Time start, duration;
};

Time timeOf(const json& v) {
  checkSchema(v, "RationalTime.1");
  const Time t{number(field(v, "value")), number(field(v, "rate"))};
  if (!std::isfinite(t.value) || !std::isfinite(t.rate) || !(t.rate > 0)) throw Unreadable("temps invalide");
  return t;
}

std::optional<Range> rangeOf(const json& o, const char* key) {
  const json* r = optField(o, key);
  if (!r) return std::nullopt;
  return within(key, [&] {
    checkSchema(*r, "TimeRange.1");
    return Range{within("start_time", [&] { return timeOf(field(*r, "start_time")); }),
                 within("duration", [&] { return timeOf(field(*r, "duration")); })};
  });
}

// Our metadata on an object, if there is any. Foreign hands may have changed it, so its fields are
// read leniently: a value of the wrong type is left aside.
const json* oursOf(const json& o) {
  const json* m = optField(o, "metadata");
  if (!m || !m->is_object()) return nullptr;
  const auto it = m->find(kOurs);
  return it != m->end() && it->is_object() ? &*it : nullptr;
}
const json* oursField(const json* ours, const char* key) {
  if (!ours) return nullptr;
  const auto it = ours->find(key);
  return it == ours->end() ? nullptr : &*it;
}
std::optional<double> oursNumber(const json* ours, const char* key) {
  const json* v = oursField(ours, key);
  if (!v || !v->is_number() || !std::isfinite(v->get<double>())) return std::nullopt;
  return v->get<double>();
}
std::optional<int> oursInt(const json* ours, const char* key, int min, int max) {
  const auto d = oursNumber(ours, key);
  return d && *d == std::trunc(*d) && *d >= min && *d <= max ? std::optional(int(*d)) : std::nullopt;
}
std::optional<std::string> oursText(const json* ours, const char* key) {
  const json* v = oursField(ours, key);
  return v && v->is_string() ? std::optional(v->get<std::string>()) : std::nullopt;
}
std::optional<Uuid> oursId(const json* ours, const char* key) {
  const auto t = oursText(ours, key);
  return t ? Uuid::parse(*t) : std::nullopt;
}
std::optional<LayerSource> oursSource(const json* ours) {
  const json* s = oursField(ours, "source");
  if (!s || !s->is_object()) return std::nullopt;
  const auto kind = oursText(s, "kind");
  const auto id = oursId(s, "id");
  if (!id || !kind || (*kind != "media" && *kind != "batch")) return std::nullopt;
  return LayerSource{*kind == "batch" ? LayerSource::Kind::batch : LayerSource::Kind::media, *id};
}

// ---- reading: the tree ----

// A layer before the timeline's fps is known: its times in seconds.
struct Pending {
  TLayer layer;
  double start = 0, in = 0, length = 0;
};

struct Reading {
  const Resolve& resolve;
  std::vector<std::string>& messages;
  std::optional<double> firstRate;
};

struct Media {
  std::optional<fs::path> path;
  std::optional<Range> available;
};

Media mediaOf(const json& clip, Kind clipKind, Reading& r) {
  const json* ref = nullptr;
  if (clipKind == Kind::clip1) {
    ref = optField(clip, "media_reference");
  } else if (const json* refs = optField(clip, "media_references")) {
    const json* key = optField(clip, "active_media_reference_key");
    const auto it = object(*refs).find(key ? text(*key) : std::string(kDefaultMedia));
    if (it != refs->end() && !it->is_null()) ref = &*it;
  }
  Media m;
  if (!ref) return m;
  return within("media_reference", [&] {
    std::string schema;
    const Kind k = kindOf(*ref, schema);
    if (k == Kind::external || k == Kind::missing) {
      m.available = rangeOf(*ref, "available_range");
      const json* url = optField(*ref, "target_url");
      if (k == Kind::external && url) m.path = pathOfUrl(text(*url));
    } else {
      r.messages.push_back(unexpected(k, schema));
    }
    return m;
  });
}

// Seconds an item takes in its track: a nested composition is still skipped over as a whole.
double durationOf(const json& o, Kind k, Reading& r) {
  if (const auto range = rangeOf(o, "source_range")) return range->duration.seconds();
  double sum = 0, longest = 0;
  switch (k) {
    case Kind::clip1:
    case Kind::clip2: {
      std::vector<std::string> ignored;
      Reading quiet{r.resolve, ignored, {}};
      const auto available = mediaOf(o, k, quiet).available;
      return available ? available->duration.seconds() : 0;
    }
    case Kind::track:
    case Kind::stack:
      for (const json& c : childrenOf(o)) {
        std::string schema;
        const Kind ck = kindOf(c, schema);
        const double d = ck == Kind::transition ? 0 : durationOf(c, ck, r);
        sum += d;
        longest = std::max(longest, d);
      }
      return k == Kind::track ? sum : longest;
    default:
      return 0;
  }
}

void readClip(const json& clip, Kind k, bool trackOn, double& position, std::vector<Pending>& out, Reading& r) {
  const std::string name = nameOf(clip);
  const Media media = mediaOf(clip, k, r);
  auto range = rangeOf(clip, "source_range");
  if (!range) range = media.available;
  if (!range) {
    r.messages.push_back("Plan OTIO sans durée ignoré : « " + name + " »");
    return;
  }
  if (!r.firstRate) r.firstRate = range->duration.rate;
  Pending p;
  p.start = position;
  p.length = range->duration.seconds();
  p.in = range->start.seconds() - (media.available ? media.available->start.seconds() : 0);
  position += p.length;
  if (!(p.length > 0)) {
    r.messages.push_back("Plan OTIO vide ignoré : « " + name + " »");
    return;
  }
  const json* ours = oursOf(clip);
  const auto source = r.resolve ? r.resolve(ClipRef{name, media.path, oursSource(ours)}) : std::nullopt;
  if (!source) {
    r.messages.push_back("Plan OTIO ignoré, sa source est introuvable : « " + name + " »");
    return;
  }
  TLayer& l = p.layer;
  l.id = oursId(ours, "layerId").value_or(Uuid());
  l.name = name;
  l.source = *source;
  l.enabled = enabledOf(clip) && trackOn;
  l.opacity = std::clamp(oursNumber(ours, "opacity").value_or(1.0), 0.0, 1.0);
  l.blend = oursInt(ours, "blend", 0, int(LayerBlend::multiply)).value_or(0);
  out.push_back(std::move(p));
}

std::vector<Pending> readTrack(const json& track, Reading& r) {
  std::vector<Pending> out;
  const bool on = enabledOf(track);
  double position = 0;
  for (const json& child : childrenOf(track)) {
    std::string schema;
    const Kind k = kindOf(child, schema);
    const std::string name = nameOf(child);
    within("« " + name + " » (" + schema + ")", [&] {
      switch (k) {
        case Kind::clip1:
        case Kind::clip2:
          readClip(child, k, on, position, out, r);
          break;
        case Kind::gap:
          position += durationOf(child, k, r);
          break;
        case Kind::transition:
          break;
        case Kind::track:
        case Kind::stack:
          r.messages.push_back("Composition OTIO imbriquée ignorée : « " + name + " »");
          position += durationOf(child, k, r);
          break;
        default:
          r.messages.push_back(unexpected(k, schema));
      }
    });
  }
  return out;
}

int frames(double seconds, double fps) {
  const double f = std::round(seconds * fps);
  if (!(std::abs(f) <= 1e9)) throw Unreadable("temps hors limites");
  return int(f);
}

Timeline timelineOf(const json& top, Reading& r) {
  std::string schema;
  if (!top.is_object() || !top.contains("OTIO_SCHEMA") || kindOf(top, schema) != Kind::timeline)
    throw Unreadable("ce n'est pas une timeline OTIO (Timeline.1 attendu" + (schema.empty() ? "" : ", pas " + schema) +
                     ")");
  const json& stack = field(top, "tracks");
  if (within("tracks", [&] { return kindOf(stack, schema); }) != Kind::stack)
    throw Unreadable("tracks : Stack.1 attendu, pas " + schema);

  std::vector<std::vector<Pending>> tracks;  // bottom first, as in the stack
  for (const json& child : childrenOf(stack)) {
    const Kind k = kindOf(child, schema);
    const std::string name = nameOf(child);
    if (k != Kind::track) {
      r.messages.push_back(unexpected(k, schema));
      continue;
    }
    const json* kind = optField(child, "kind");
    if (!kind || text(*kind) == "Video")
      tracks.push_back(within("piste « " + name + " »", [&] { return readTrack(child, r); }));
  }

  const json* ours = oursOf(top);
  Timeline t;
  t.id = oursId(ours, "id").value_or(Uuid::generate());
  t.name = nameOf(top);
  const auto fps = oursNumber(ours, "fps");
  std::optional<double> startRate;
  if (const json* g = optField(top, "global_start_time"))
    startRate = within("global_start_time", [&] { return timeOf(*g).rate; });
  t.fps = fps && *fps > 0 ? *fps : r.firstRate.value_or(startRate.value_or(25.0));
  t.width = oursInt(ours, "width", 1, INT32_MAX).value_or(t.width);
  t.height = oursInt(ours, "height", 1, INT32_MAX).value_or(t.height);
  t.fixedDuration = oursInt(ours, "fixedDuration", 1, INT32_MAX);
  t.filmPath = oursText(ours, "filmPath");
  if (const json* bg = oursField(ours, "background")) {
    try {
      t.background = numbers(*bg);
    } catch (const Unreadable&) {
    }
  }

  std::set<Uuid> ids;
  for (auto track = tracks.rbegin(); track != tracks.rend(); ++track) {
    for (Pending& p : *track) {
      TLayer& l = p.layer;
      l.start = std::max(0, frames(p.start, t.fps));
      l.length = std::max(1, frames(p.start + p.length, t.fps) - l.start);
      l.inPoint = std::max(0, frames(p.in, t.fps));
      // A clip copied by hand in another program carries the same id twice.
      if (l.id.isNil() || !ids.insert(l.id).second) {
        l.id = Uuid::generate();
        ids.insert(l.id);
      }
      t.layers.push_back(std::move(l));
    }
  }
  return t;
}

}  // namespace

std::string write(const Timeline& t, const PathOf& pathOf) {
  json tracks = json::array();
  for (auto l = t.layers.rbegin(); l != t.layers.rend(); ++l) {
    json children = json::array();
    if (l->start > 0) children.push_back(item("Gap.1", "", timeRange(0, l->start, t.fps)));
    children.push_back(clipOf(*l, t.fps, pathOf));
    std::string name = "V";  // (not "V" + to_string: GCC 12 warns falsely on it)
    name += std::to_string(tracks.size() + 1);
    json track = item("Track.1", name, nullptr);
    track["children"] = std::move(children);
    track["kind"] = "Video";
    tracks.push_back(std::move(track));
  }
  json stack = item("Stack.1", "tracks", nullptr);
  stack["children"] = std::move(tracks);
  const json top = {{"OTIO_SCHEMA", "Timeline.1"},
                    {"name", t.name},
                    {"metadata", timelineMetadata(t)},
                    {"global_start_time", nullptr},
                    {"tracks", std::move(stack)}};
  // A name that is not UTF-8 would make dump() throw; its bad bytes become U+FFFD instead.
  return top.dump(4, ' ', false, json::error_handler_t::replace) + "\n";
}

std::optional<Timeline> read(const std::string& text, const Resolve& resolve, std::vector<std::string>& messages,
                             std::string* error) {
  const auto fail = [&](const std::string& why) -> std::optional<Timeline> {
    if (error) *error = "Fichier OTIO illisible : " + why;
    return std::nullopt;
  };
  try {
    std::string why;
    const auto tree = parseBoundedJson(text, &why);
    if (!tree) return fail(why);
    std::vector<std::string> found;  // left out of `messages` when the whole read fails
    Reading r{resolve, found, {}};
    Timeline t = timelineOf(*tree, r);
    messages.insert(messages.end(), found.begin(), found.end());
    return t;
  } catch (const Unreadable& e) {
    return fail(e.what());
  } catch (const std::exception& e) {
    return fail(e.what());
  } catch (...) {
    return fail("erreur inattendue");
  }
}

bool writeFile(const fs::path& file, const Timeline& timeline, const PathOf& pathOf, std::string* error) {
  std::optional<std::string> why;
  try {
    why = writeFileAtomically(file, write(timeline, pathOf));
  } catch (const std::exception& e) {
    why = e.what();
  }
  if (why && error) *error = "Impossible d'écrire « " + file.filename().string() + " » : " + *why;
  return !why;
}

std::optional<Timeline> readFile(const fs::path& file, const Resolve& resolve, std::vector<std::string>& messages,
                                 std::string* error) {
  std::string why;
  const auto text = readBoundedFile(file, kMaxFileBytes, &why);
  if (!text) {
    if (error) *error = "Impossible de lire « " + file.filename().string() + " » : " + why;
    return std::nullopt;
  }
  std::error_code ec;
  const fs::path folder = fs::absolute(file, ec).parent_path();
  const Resolve inFolder = [&](const ClipRef& clip) {
    ClipRef c = clip;
    if (c.path && c.path->is_relative()) c.path = (folder / *c.path).lexically_normal();
    return resolve ? resolve(c) : std::nullopt;
  };
  return read(*text, inFolder, messages, error);
}

}  // namespace ombrik::otio
