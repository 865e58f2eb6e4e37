#include "ai/object_boxes.h"

#include <nlohmann/json.hpp>

#include "ai/fixed_text.h"
#include "platform/atomic_file.h"
#include "platform/bounded_file.h"
#include "platform/bounded_json.h"

namespace ombrik {

namespace {

std::optional<ObjectBoxes> refuse(std::string* why, const std::string& reason) {
  if (why) *why = "boxes.json illisible : " + reason;
  return std::nullopt;
}

}  // namespace

std::optional<ObjectBoxes> objectBoxes(const std::filesystem::path& file, std::string* why) {
  std::string reason;
  const std::optional<std::string> bytes = readBoundedFile(file, 16u << 20, &reason);
  if (!bytes) return refuse(why, reason);
  const std::optional<nlohmann::json> doc = parseBoundedJson(*bytes, &reason);
  if (!doc) return refuse(why, reason);
  const auto frame = doc->is_object() ? doc->find("frame") : doc->end();
  const auto list = doc->is_object() ? doc->find("boxes") : doc->end();
  if (frame == doc->end() || !frame->is_number_integer() || list == doc->end() || !list->is_array())
    return refuse(why, "« frame » (entier) et « boxes » (liste) attendus");
  ObjectBoxes out;
  out.frame = frame->get<int>();
  for (const auto& box : *list) {
    if (!box.is_array() || box.size() < 4 || box.size() > 5)
      return refuse(why, "chaque cadre a 4 nombres et une confiance facultative");
    std::vector<double> values;
    for (const auto& v : box) {
      if (!v.is_number()) return refuse(why, "chaque cadre a 4 nombres et une confiance facultative");
      values.push_back(v.get<double>());
    }
    out.boxes.push_back(std::move(values));
  }
  return out;
}

std::string objectBoxesJson(const ObjectBoxes& boxes) {
  return nlohmann::json{{"frame", boxes.frame}, {"boxes", boxes.boxes}}.dump() + "\n";
}

std::optional<std::string> removeBox(const std::filesystem::path& file, std::size_t index) {
  std::string why;
  std::optional<ObjectBoxes> boxes = objectBoxes(file, &why);
  if (!boxes) return why;
  if (index >= boxes->boxes.size()) return "Objet IA : ce cadre n'existe plus.";
  boxes->boxes.erase(boxes->boxes.begin() + static_cast<std::ptrdiff_t>(index));
  return writeFileAtomically(file, objectBoxesJson(*boxes));
}

std::string confidenceText(const std::vector<double>& box) {
  if (box.size() < 5) return {};
  return " · confiance " + fixedText(box[4] * 100, 0) + " %";
}

}  // namespace ombrik
