// Builds the kind catalogues from the embedded kind table (graph/tables/node_kinds.json).
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "graph/node_kind.h"
#include "platform/embedded_data.h"

namespace ombrik {

namespace {

using nlohmann::json;

ParamSpec readParam(const json& j) {
  ParamSpec p;
  p.key = j.at("key").get<std::string>();
  p.label.raw = j.at("label").get<std::string>();
  p.min = j.at("min").get<double>();
  p.max = j.at("max").get<double>();
  p.def = j.at("default").get<double>();
  p.step = j.at("step").get<double>();
  p.unit = j.at("unit").get<std::string>();
  p.isToggle = j.at("toggle").get<bool>();
  p.options.raw = j.at("options").get<std::vector<std::string>>();
  return p;
}

KindRef readKind(const json& j) {
  auto k = std::make_shared<NodeKind>();
  k->id = j.at("id").get<std::string>();
  k->title.raw = j.at("title").get<std::string>();
  k->tag.raw = j.at("tag").get<std::string>();
  k->category.raw = j.at("category").get<std::string>();
  k->tintHex = static_cast<std::uint32_t>(std::stoul(j.at("tint").get<std::string>(), nullptr, 16));
  for (const auto& port : j.at("inputs")) k->inputs.push_back({port.at("name").get<std::string>(), port.at("matte").get<bool>()});
  for (const auto& param : j.at("params")) k->params.push_back(readParam(param));
  k->info.raw = j.at("info").get<std::string>();
  k->hint.raw = j.at("hint").get<std::string>();
  k->hasOutput = j.at("hasOutput").get<bool>();
  if (j.contains("kernel")) k->kernel = j["kernel"].get<std::string>();
  if (j.contains("blurParam")) k->blurParam = j["blurParam"].get<std::string>();
  return KindRef(std::move(k));
}

struct Catalogue {
  std::unordered_map<std::string, KindRef> byID;
  std::vector<KindRef> all, fx, fxMore, localAI;
  std::vector<KindCategory> categories;
  std::unordered_set<std::string> makesMatte;
  Localized defaultHint;

  const KindRef& at(const std::string& id) const {
    auto it = byID.find(id);
    if (it == byID.end()) {
      std::fprintf(stderr, "ombrik: the kind table has no kind \"%s\"\n", id.c_str());
      std::abort();
    }
    return it->second;
  }

  Catalogue() {
    const json table = json::parse(embeddedNodeKindsJson());
    for (const auto& k : table.at("kinds")) {
      KindRef kind = readKind(k);
      byID.emplace(kind->id, kind);
    }
    defaultHint.raw = table.at("defaultHint").get<std::string>();
    for (const auto& id : table.at("makesMatte")) makesMatte.insert(id.get<std::string>());
    for (const auto& id : table.at("fx")) fx.push_back(at(id.get<std::string>()));
    for (const auto& id : table.at("fxMore")) fxMore.push_back(at(id.get<std::string>()));

    std::vector<KindRef> candidates;
    for (const auto& id : table.at("candidates")) candidates.push_back(at(id.get<std::string>()));
    candidates.insert(candidates.end(), fx.begin(), fx.end());
    candidates.insert(candidates.end(), fxMore.begin(), fxMore.end());

    for (const auto& name : table.at("categoryNames")) {
      KindCategory cat{Localized{name.get<std::string>()}, {}};
      for (const auto& k : candidates)
        if (k->category == cat.name) cat.kinds.push_back(k);
      if (!cat.kinds.empty()) categories.push_back(std::move(cat));
    }
    for (const auto& cat : categories) {
      all.insert(all.end(), cat.kinds.begin(), cat.kinds.end());
      for (const auto& k : cat.kinds)
        if (k->tag.raw == "IA" || k->id == "camtrack") localAI.push_back(k);
    }
    all.push_back(at("output"));
    all.push_back(at("dot"));
  }
};

const Catalogue& catalogue() {
  static const Catalogue c;
  return c;
}

}  // namespace

bool NodeKind::makesMatte() const { return catalogue().makesMatte.count(id) > 0; }
bool NodeKind::isModel() const { return id.rfind("model.", 0) == 0; }
std::uint32_t NodeKind::tint() const { return isModel() ? tintHex : 0x8E9198; }  // grey (142, 145, 152)

const ParamSpec* NodeKind::param(std::string_view key) const {
  for (const auto& p : params)
    if (p.key == key) return &p;
  return nullptr;
}

const std::vector<KindCategory>& NodeKind::categories() { return catalogue().categories; }
const std::vector<KindRef>& NodeKind::all() { return catalogue().all; }
const std::unordered_map<std::string, KindRef>& NodeKind::byID() { return catalogue().byID; }
const std::vector<KindRef>& NodeKind::fx() { return catalogue().fx; }
const std::vector<KindRef>& NodeKind::fxMore() { return catalogue().fxMore; }
const std::vector<KindRef>& NodeKind::localAI() { return catalogue().localAI; }
const Localized& NodeKind::defaultHint() { return catalogue().defaultHint; }

const KindRef* NodeKind::find(std::string_view id) {
  const auto& map = catalogue().byID;
  auto it = map.find(std::string(id));
  return it == map.end() ? nullptr : &it->second;
}

const KindRef& NodeKind::media() { return catalogue().at("media"); }
const KindRef& NodeKind::mask() { return catalogue().at("mask"); }
const KindRef& NodeKind::color() { return catalogue().at("color"); }
const KindRef& NodeKind::beauty() { return catalogue().at("beauty"); }
const KindRef& NodeKind::glow() { return catalogue().at("glow"); }
const KindRef& NodeKind::denoise() { return catalogue().at("denoise"); }
const KindRef& NodeKind::greenkey() { return catalogue().at("greenkey"); }
const KindRef& NodeKind::greenkeyai() { return catalogue().at("greenkeyai"); }
const KindRef& NodeKind::retime() { return catalogue().at("retime"); }
const KindRef& NodeKind::renoise() { return catalogue().at("renoise"); }
const KindRef& NodeKind::mux() { return catalogue().at("mux"); }
const KindRef& NodeKind::motionvec() { return catalogue().at("motionvec"); }
const KindRef& NodeKind::camtrack() { return catalogue().at("camtrack"); }
const KindRef& NodeKind::tracker() { return catalogue().at("tracker"); }
const KindRef& NodeKind::stabilize() { return catalogue().at("stabilize"); }
const KindRef& NodeKind::meshwarp() { return catalogue().at("meshwarp"); }
const KindRef& NodeKind::facereshape() { return catalogue().at("facereshape"); }
const KindRef& NodeKind::paintbeauty() { return catalogue().at("paintbeauty"); }
const KindRef& NodeKind::beautyzones() { return catalogue().at("beautyzones"); }
const KindRef& NodeKind::grain() { return catalogue().at("grain"); }
const KindRef& NodeKind::magicmask() { return catalogue().at("magicmask"); }
const KindRef& NodeKind::objectmask() { return catalogue().at("objectmask"); }
const KindRef& NodeKind::bodymask() { return catalogue().at("bodymask"); }
const KindRef& NodeKind::dot() { return catalogue().at("dot"); }
const KindRef& NodeKind::hairmatte() { return catalogue().at("hairmatte"); }
const KindRef& NodeKind::genfill() { return catalogue().at("genfill"); }
const KindRef& NodeKind::xform() { return catalogue().at("xform"); }
const KindRef& NodeKind::freeze() { return catalogue().at("freeze"); }
const KindRef& NodeKind::output() { return catalogue().at("output"); }

}  // namespace ombrik
