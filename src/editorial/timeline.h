#pragma once
// Timelines: layered edits of worlds and media. A layer is a trimmed span of one source placed at
// a frame of the timeline; every number is a frame of the timeline counted from 0, and a layer
// shows source frame inPoint + (f - start) at timeline frame f.
#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "graph/uuid.h"

namespace ombrik {

// What a layer shows: a media item or a world.
struct LayerSource {
  enum class Kind { media, batch };
  Kind kind = Kind::media;
  Uuid id;
  static LayerSource media(const Uuid& id) { return {Kind::media, id}; }
  static LayerSource batch(const Uuid& id) { return {Kind::batch, id}; }
  bool isBatch() const { return kind == Kind::batch; }
  bool operator==(const LayerSource&) const = default;
};

enum class LayerBlend { normal = 0, add = 1, screen = 2, multiply = 3 };

struct TLayer {
  Uuid id;
  std::string name;
  LayerSource source;
  int start = 0;    // first frame on the timeline, at least 0
  int inPoint = 0;  // first source frame used, at least 0
  int length = 1;   // frames on the timeline, at least 1
  bool enabled = true;
  double opacity = 1;
  int blend = 0;  // LayerBlend
  int end() const { return start + length; }  // one past the last frame
  // Source frame shown at timeline frame f.
  int sourceFrame(int f) const { return f - start + inPoint; }
  bool operator==(const TLayer&) const = default;
};

struct Timeline {
  Uuid id;
  std::string name;
  double fps = 25;
  int width = 1920;
  int height = 1080;
  std::vector<TLayer> layers;  // index 0 is the top of the stack and the first row on screen
  std::optional<int> fixedDuration;
  std::optional<std::vector<double>> background;
  std::optional<std::string> filmPath;  // set when the timeline is a cut film

  // fixedDuration, else the end of the last layer (disabled ones included), at least 1.
  int duration() const;
  // The background's red, green and blue; components the array lacks are 0.
  std::array<double, 3> bg() const;
  TLayer* layer(const Uuid& id);
  const TLayer* layer(const Uuid& id) const;
  int indexOf(const Uuid& id) const;  // -1 when absent
  bool operator==(const Timeline&) const = default;
};

enum class Workspace { batch, timeline };

// The way back from a layer's world to the film it was opened from.
struct FilmReturn {
  Uuid timelineID;
  Uuid layerID;
  bool fromWorld = false;
  bool operator==(const FilmReturn&) const = default;
};

// What the application holds for timelines; the edits live in timeline_edits.h.
struct TimelineState {
  std::vector<Timeline> timelines;
  std::optional<Uuid> currentTimelineID;
  Workspace workspace = Workspace::batch;
  std::set<Uuid> tlSelection;
  std::vector<std::vector<Timeline>> tlUndo, tlRedo;  // whole copies of `timelines`, newest last
  std::optional<FilmReturn> filmReturn;
  bool filmFromWorld = false;
  bool timelineSettingsOpen = false;

  Timeline* find(const Uuid& id);
  const Timeline* find(const Uuid& id) const;
  Timeline* current() { return currentTimelineID ? find(*currentTimelineID) : nullptr; }
  const Timeline* current() const { return currentTimelineID ? find(*currentTimelineID) : nullptr; }
};

}  // namespace ombrik
