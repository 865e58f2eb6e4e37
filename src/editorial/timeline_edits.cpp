#include "editorial/timeline_edits.h"

#include <algorithm>

namespace ombrik::tledit {

namespace {
bool has(const std::vector<Uuid>& ids, const Uuid& id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }
std::string plural(int n) { return n > 1 ? "s" : ""; }
}  // namespace

bool strictlyUnder(const TLayer& l, int frame) { return l.start < frame && frame < l.end(); }

std::vector<Uuid> targetLayers(const Timeline& t, const std::set<Uuid>& selection, int frame, bool underPlayhead) {
  std::vector<Uuid> out;
  for (const auto& l : t.layers)
    if (selection.count(l.id)) out.push_back(l.id);
  if (out.empty() && underPlayhead)
    for (const auto& l : t.layers)
      if (l.enabled && strictlyUnder(l, frame)) out.push_back(l.id);
  return out;
}

void clampLayer(TLayer& l) {
  l.start = std::max(l.start, 0);
  l.inPoint = std::max(l.inPoint, 0);
  l.length = std::max(l.length, 1);
}

std::vector<Uuid> blade(Timeline& t, const std::vector<Uuid>& targets, int frame) {
  std::vector<Uuid> rights;
  for (const Uuid& id : targets) {
    const int i = t.indexOf(id);
    if (i < 0 || !strictlyUnder(t.layers[std::size_t(i)], frame)) continue;
    TLayer& left = t.layers[std::size_t(i)];
    const int off = frame - left.start;
    TLayer right = left;
    right.id = Uuid::generate();
    right.start = frame;
    right.inPoint = left.inPoint + off;
    right.length = left.length - off;
    left.length = off;
    rights.push_back(right.id);
    t.layers.insert(t.layers.begin() + i + 1, std::move(right));
  }
  return rights;
}

int removeLayers(Timeline& t, const std::vector<Uuid>& targets, bool ripple) {
  std::vector<TLayer> removed;
  std::erase_if(t.layers, [&](const TLayer& l) {
    if (!has(targets, l.id)) return false;
    removed.push_back(l);
    return true;
  });
  if (ripple) {
    std::stable_sort(removed.begin(), removed.end(), [](const TLayer& a, const TLayer& b) { return a.start > b.start; });
    int total = 0;
    for (const auto& gone : removed) {
      for (auto& l : t.layers)
        if (l.start >= gone.end()) l.start -= gone.length;
      total += gone.length;
    }
    if (t.fixedDuration) t.fixedDuration = std::max(*t.fixedDuration - total, 1);
  }
  return int(removed.size());
}

void trimToFrame(Timeline& t, const std::vector<Uuid>& targets, int frame, bool start) {
  for (const Uuid& id : targets) {
    TLayer* l = t.layer(id);
    if (!l) continue;
    const int off = frame - l->start;
    if (off <= 0 || off >= l->length) continue;
    if (start) {
      l->inPoint += off;
      l->length -= off;
      l->start = frame;
    } else {
      l->length = off;
    }
  }
}

void moveLayers(Timeline& t, const std::vector<Uuid>& targets, bool up) {
  const int n = int(t.layers.size());
  for (int k = 0; k < n; ++k) {
    const int i = up ? k : n - 1 - k;
    if (!has(targets, t.layers[std::size_t(i)].id)) continue;
    const int j = up ? i - 1 : i + 1;
    if (j < 0 || j >= n || has(targets, t.layers[std::size_t(j)].id)) continue;
    std::swap(t.layers[std::size_t(i)], t.layers[std::size_t(j)]);
  }
}

std::vector<Uuid> duplicateLayers(Timeline& t, const std::vector<Uuid>& targets) {
  std::vector<Uuid> copies;
  for (const Uuid& id : targets) {
    const int i = t.indexOf(id);
    if (i < 0) continue;
    TLayer copy = t.layers[std::size_t(i)];
    copy.id = Uuid::generate();
    copy.name += " copie";
    copies.push_back(copy.id);
    t.layers.insert(t.layers.begin() + i + 1, std::move(copy));
  }
  return copies;
}

void toggleEnabled(Timeline& t, const std::vector<Uuid>& targets) {
  for (const Uuid& id : targets)
    if (TLayer* l = t.layer(id)) l->enabled = !l->enabled;
}

std::optional<int> editPoint(const Timeline& t, int frame, bool next) {
  const int last = t.duration() - 1;
  std::set<int> points{0, last};
  for (const auto& l : t.layers)
    if (l.enabled) points.insert({l.start, l.end()});
  std::optional<int> found;
  if (next) {
    if (auto it = points.upper_bound(frame); it != points.end()) found = *it;
  } else if (auto it = points.lower_bound(frame); it != points.begin()) {
    found = *std::prev(it);
  }
  if (found) found = std::min(*found, last);
  return found;
}

DragPart dragPart(double x, double width) {
  if (x < 8) return DragPart::left;
  if (x > width - 8) return DragPart::right;
  return DragPart::body;
}

TLayer dragged(const TLayer& was, DragPart part, int delta) {
  TLayer l = was;
  switch (part) {
    case DragPart::body:
      l.start = std::max(was.start + delta, 0);
      break;
    case DragPart::left: {
      const int d = std::max(-was.inPoint, std::min(was.length - 1, delta));
      l.start += d;
      l.inPoint += d;
      l.length = was.length - d;
      break;
    }
    case DragPart::right:
      l.length = std::max(was.length + delta, 1);
      break;
  }
  clampLayer(l);
  return l;
}

void checkpoint(TimelineState& s) {
  s.tlUndo.push_back(s.timelines);
  if (s.tlUndo.size() > kUndoDepth) s.tlUndo.erase(s.tlUndo.begin());
  s.tlRedo.clear();
}

bool undo(TimelineState& s) {
  if (s.tlUndo.empty()) return false;
  s.tlRedo.push_back(std::move(s.timelines));
  s.timelines = std::move(s.tlUndo.back());
  s.tlUndo.pop_back();
  const Timeline* t = s.current();
  std::erase_if(s.tlSelection, [&](const Uuid& id) { return !t || !t->layer(id); });
  return true;
}

bool redo(TimelineState& s) {
  if (s.tlRedo.empty()) return false;
  s.tlUndo.push_back(std::move(s.timelines));
  s.timelines = std::move(s.tlRedo.back());
  s.tlRedo.pop_back();
  return true;
}

std::string bladeText(int frame, int n) {
  return "Coupé à l'image " + std::to_string(frame + 1) + " (" + std::to_string(n) + " calque" + plural(n) +
         ") · ⌘Z pour annuler";
}

std::string deletedText(int n, bool ripple) {
  return std::to_string(n) + " calque" + plural(n) + " supprimé" + plural(n) + (ripple ? " (trou refermé)" : "") +
         " · ⌘Z pour annuler";
}

}  // namespace ombrik::tledit
