#include "platform/bounded_json.h"

namespace ombrik {

namespace {

// Whether arrays and objects nest deeper than `bound` anywhere in the text, brackets inside
// strings aside. One pass, nothing allocated. On a broken text the count may be off past the
// first fault, but the parser stops at that fault, so it never goes deeper than counted here.
// (nlohmann's parser callback also sees depths, but removing the values it keeps track of
// scans each array again at every object's end: minutes for a large project.)
bool deeperThan(const std::string& text, int bound) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') ++i;
      else if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > bound) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace

std::optional<nlohmann::json> parseBoundedJson(const std::string& text, std::string* error) {
  if (deeperThan(text, kMaxJsonDepth)) {
    if (error) *error = "imbrication trop profonde : plus de " + std::to_string(kMaxJsonDepth) + " niveaux";
    return std::nullopt;
  }
  try {
    return nlohmann::json::parse(text);
  } catch (const std::exception&) {
    if (error) *error = "JSON illisible";
    return std::nullopt;
  }
}

}  // namespace ombrik
