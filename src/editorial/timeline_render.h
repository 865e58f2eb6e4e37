#pragma once
// One frame of a timeline as a value made on the main thread, and its rendering: each world
// layer evaluated at its own size, fitted into the frame, the layers blended over the background.
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "editorial/timeline.h"
#include "gpu/texture.h"
#include "graph/edge.h"
#include "graph/media_item.h"
#include "graph/node.h"

namespace ombrik {

class Engine;
class TimelineReader;

struct TimelineJob {
  struct Item {
    TLayer layer;
    int frame = 0;  // the source frame
    std::vector<MediaItem> media;
    std::vector<Node> nodes;  // the world's graph, resolved; empty for a media layer
    std::vector<Edge> edges;
    std::optional<Uuid> output;
    int srcW = 0, srcH = 0;  // the natural size of the layer's picture
  };
  std::vector<Item> items;  // bottom of the stack first
  int width = 0, height = 0;
  double fps = 25;
  std::array<double, 3> bg{0, 0, 0};

  // The composite at the engine's comp size; nothing without a comp size or a device.
  gpu::TexturePtr render(Engine& engine, TimelineReader& reader) const;
};

// The layers shown at `frame`, bottom first: enabled, start <= frame < end, with their source frame.
std::vector<std::pair<const TLayer*, int>> activeLayers(const Timeline& timeline, int frame);
// The size a world layer works at: its picture fitted whole into width x height, at least 16 a side.
std::pair<int, int> layerWorkingSize(int width, int height, int srcW, int srcH);

}  // namespace ombrik
