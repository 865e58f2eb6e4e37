#pragma once
// The picture an AI tool sends to the worker: what enters the node on its Front, or for a mask
// the plate of its media, as the last evaluation left it; null when there is none.
#include "engine/engine.h"

namespace ombrik {

class AppModel;
struct Node;

Engine::Tex aiInput(const AppModel& m, const Node& n);

}  // namespace ombrik
