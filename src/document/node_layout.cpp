#include "document/node_layout.h"

namespace ombrik {

std::optional<Point> NodeLayout::position(const Uuid& id) const {
  if (auto it = _positions.find(id); it != _positions.end()) return it->second;
  return std::nullopt;
}

void NodeLayout::set(const Uuid& id, Point p) {
  _positions[id] = p;
  changed();
}

void NodeLayout::remove(const Uuid& id) {
  if (_positions.erase(id)) changed();
}

void NodeLayout::replaceAll(std::map<Uuid, Point> positions) {
  _positions = std::move(positions);
  changed();
}

}  // namespace ombrik
