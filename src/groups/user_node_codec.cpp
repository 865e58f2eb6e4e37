// The JSON of user node definitions: the library's files and the array a project carries.
#include <nlohmann/json.hpp>
#include <regex>

#include "groups/user_node_def.h"
#include "platform/bounded_json.h"

namespace ombrik {

namespace {

using json = nlohmann::json;

const json& field(const json& o, const char* key) {
  if (!o.is_object()) throw UserNodeFileError("objet attendu");
  auto it = o.find(key);
  if (it == o.end()) throw UserNodeFileError(std::string("champ manquant : ") + key);
  return *it;
}
const json* optField(const json& o, const char* key) {
  auto it = o.find(key);
  return it == o.end() || it->is_null() ? nullptr : &*it;
}
[[noreturn]] void wrongType(const char* key, const char* expected) {
  throw UserNodeFileError(std::string(key) + " : " + expected + " attendu");
}
double number(const json& o, const char* key) {
  const json& v = field(o, key);
  if (!v.is_number()) wrongType(key, "nombre");
  return v.get<double>();
}
int integer(const json& o, const char* key) {
  const json& v = field(o, key);
  if (!v.is_number_integer() || v.get<std::int64_t>() < INT32_MIN || v.get<std::int64_t>() > INT32_MAX)
    wrongType(key, "entier");
  return v.get<int>();
}
bool boolean(const json& o, const char* key) {
  const json& v = field(o, key);
  if (!v.is_boolean()) wrongType(key, "booléen");
  return v.get<bool>();
}
std::string text(const json& o, const char* key) {
  const json& v = field(o, key);
  if (!v.is_string()) wrongType(key, "texte");
  return v.get<std::string>();
}
const json& array(const json& o, const char* key) {
  const json& v = field(o, key);
  if (!v.is_array()) wrongType(key, "tableau");
  return v;
}

json paramJ(const UserParam& p) {
  json j = {{"key", p.key}, {"label", p.label}, {"min", p.min}, {"max", p.max}, {"def", p.def}};
  if (p.step) j["step"] = *p.step;
  if (p.unit) j["unit"] = *p.unit;
  if (p.toggle) j["toggle"] = *p.toggle;
  if (p.options) j["options"] = *p.options;
  return j;
}

UserParam paramFrom(const json& j) {
  UserParam p{text(j, "key"), text(j, "label"), number(j, "min"), number(j, "max"), number(j, "def"), {}, {}, {}, {}};
  if (optField(j, "step")) p.step = number(j, "step");
  if (optField(j, "unit")) p.unit = text(j, "unit");
  if (optField(j, "toggle")) p.toggle = boolean(j, "toggle");
  if (optField(j, "options")) {
    p.options.emplace();
    for (const auto& o : array(j, "options")) {
      if (!o.is_string()) wrongType("options", "texte");
      p.options->push_back(o.get<std::string>());
    }
  }
  return p;
}

json paramsJ(const std::vector<UserParam>& params) {
  json a = json::array();
  for (const auto& p : params) a.push_back(paramJ(p));
  return a;
}
std::vector<UserParam> paramsFrom(const json& o) {
  std::vector<UserParam> out;
  for (const auto& p : array(o, "params")) out.push_back(paramFrom(p));
  return out;
}

std::optional<GroupRef> groupFrom(const json& o) {
  if (!optField(o, "group")) return std::nullopt;
  return GroupRef::fromStored(field(o, "group").dump());
}

json versionJ(const UserNodeVersion& v) {
  json j = {{"n", v.n},           {"date", v.date},       {"name", v.name}, {"info", v.info},
            {"params", paramsJ(v.params)}, {"helpers", v.helpers}, {"code", v.code}, {"back", v.back}};
  if (v.group) j["group"] = json::parse(v.group->stored());
  return j;
}

UserNodeVersion versionFrom(const json& j) {
  return {integer(j, "n"),  number(j, "date"), text(j, "name"),    text(j, "info"), paramsFrom(j),
          text(j, "helpers"), text(j, "code"), boolean(j, "back"), groupFrom(j)};
}

json defJ(const UserNodeDef& d) {
  json j = {{"id", d.id},          {"name", d.name},       {"info", d.info},       {"author", d.author},
            {"created", d.created}, {"params", paramsJ(d.params)}, {"helpers", d.helpers}, {"code", d.code},
            {"back", d.back}};
  if (d.group) j["group"] = json::parse(d.group->stored());
  if (d.versions) {
    json versions = json::array();
    for (const auto& v : *d.versions) versions.push_back(versionJ(v));
    j["versions"] = versions;
  }
  if (d.version) j["version"] = *d.version;
  return j;
}

UserNodeDef defFrom(const json& j) {
  UserNodeDef d;
  d.id = text(j, "id");
  // The id names the file and the kernel: only a prefix and plain characters are taken.
  static const std::regex shape("^(user|usergroup)\\.[A-Za-z0-9_-]{1,64}$");
  if (!std::regex_match(d.id, shape)) throw UserNodeFileError("identifiant invalide : " + d.id.substr(0, 80));
  d.name = text(j, "name");
  d.info = text(j, "info");
  d.author = text(j, "author");
  d.created = number(j, "created");
  d.params = paramsFrom(j);
  d.helpers = text(j, "helpers");
  d.code = text(j, "code");
  d.back = boolean(j, "back");
  d.group = groupFrom(j);
  if (optField(j, "versions")) {
    d.versions.emplace();
    for (const auto& v : array(j, "versions")) d.versions->push_back(versionFrom(v));
  }
  if (optField(j, "version")) d.version = integer(j, "version");
  return d;
}

json parsed(const std::string& text) {
  std::string why;
  auto j = parseBoundedJson(text, &why);
  if (!j) throw UserNodeFileError(why);
  return std::move(*j);
}

}  // namespace

std::string encodeUserNodeFile(const UserNodeDef& def) {
  const json file = {{"format", "ombrik-node"}, {"version", 1}, {"node", defJ(def)}};
  return file.dump(2) + "\n";
}

UserNodeDef decodeUserNodeFile(const std::string& text) {
  const json j = parsed(text);
  if (!j.is_object() || !j.contains("format") || j["format"] != "ombrik-node")
    throw UserNodeFileError("Ce fichier n'est pas un node Ombrik.");
  return defFrom(field(j, "node"));
}

std::string encodeUserNodeDefs(const std::vector<UserNodeDef>& defs) {
  json a = json::array();
  for (const auto& d : defs) a.push_back(defJ(d));
  return a.dump();
}

std::vector<UserNodeDef> decodeUserNodeDefs(const std::string& text) {
  std::vector<UserNodeDef> out;
  const auto a = parseBoundedJson(text);
  if (!a || !a->is_array()) return out;
  for (const auto& d : *a) try {
      out.push_back(defFrom(d));
    } catch (const UserNodeFileError&) {  // that node alone is lost
    }
  return out;
}

}  // namespace ombrik
