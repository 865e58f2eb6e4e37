#pragma once
#include "graph/uuid.h"

namespace ombrik {

// One wire. `port` indexes the destination kind's inputs; `fromPort` picks the source's output:
// 0 the picture, 1 the alpha side-channel, 2 and above the separate output of mask fromPort - 2.
struct Edge {
  Uuid id;
  Uuid from;
  Uuid to;
  int port = 0;
  int fromPort = 0;
  bool operator==(const Edge&) const = default;
};

}  // namespace ombrik
