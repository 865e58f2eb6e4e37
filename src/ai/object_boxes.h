#pragma once
// boxes.json of an Objet IA node: the objects the search found on one frame, each a normalised box
// x0, y0, x1, y1 and, when the worker gave one, its confidence (0..1).
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ombrik {

struct ObjectBoxes {
  int frame = 0;
  std::vector<std::vector<double>> boxes;  // 4 or 5 numbers each
};

// The file's content, or none with the reason in French in `why` (missing, not JSON, or not the
// expected shape).
std::optional<ObjectBoxes> objectBoxes(const std::filesystem::path& file, std::string* why = nullptr);
std::string objectBoxesJson(const ObjectBoxes& boxes);
// Rewrites the file without box `index`. Nothing when done, else why; the file is left as it was.
std::optional<std::string> removeBox(const std::filesystem::path& file, std::size_t index);
// " · confiance 87 %" for a box with a confidence, else nothing.
std::string confidenceText(const std::vector<double>& box);

}  // namespace ombrik
