#pragma once
// Schematic positions of the open world's nodes.
#include <functional>
#include <map>
#include <optional>

#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik {

class NodeLayout {
public:
  const std::map<Uuid, Point>& positions() const { return _positions; }
  std::optional<Point> position(const Uuid& id) const;
  void set(const Uuid& id, Point p);
  void remove(const Uuid& id);
  void replaceAll(std::map<Uuid, Point> positions);

  std::function<void()> onChange;  // called after every change

private:
  void changed() {
    if (onChange) onChange();
  }
  std::map<Uuid, Point> _positions;
};

}  // namespace ombrik
