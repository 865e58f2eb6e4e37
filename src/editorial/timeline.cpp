#include "editorial/timeline.h"

#include <algorithm>

namespace ombrik {

int Timeline::duration() const {
  if (fixedDuration) return *fixedDuration;
  int end = 1;
  for (const auto& l : layers) end = std::max(end, l.end());
  return end;
}

std::array<double, 3> Timeline::bg() const {
  std::array<double, 3> c{0, 0, 0};
  if (background)
    for (std::size_t i = 0; i < 3 && i < background->size(); ++i) c[i] = (*background)[i];
  return c;
}

int Timeline::indexOf(const Uuid& id) const {
  for (std::size_t i = 0; i < layers.size(); ++i)
    if (layers[i].id == id) return int(i);
  return -1;
}

TLayer* Timeline::layer(const Uuid& id) {
  const int i = indexOf(id);
  return i < 0 ? nullptr : &layers[std::size_t(i)];
}

const TLayer* Timeline::layer(const Uuid& id) const {
  const int i = indexOf(id);
  return i < 0 ? nullptr : &layers[std::size_t(i)];
}

Timeline* TimelineState::find(const Uuid& id) {
  for (auto& t : timelines)
    if (t.id == id) return &t;
  return nullptr;
}

const Timeline* TimelineState::find(const Uuid& id) const {
  for (const auto& t : timelines)
    if (t.id == id) return &t;
  return nullptr;
}

}  // namespace ombrik
