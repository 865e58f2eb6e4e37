#pragma once
// The stored form of timelines in the project file: keyed objects under fixed keys. A layer's
// source is an object with exactly one key, "media" or "batch", holding {"_0": "<UUID>"}.
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "editorial/timeline.h"

namespace ombrik::timelinecodec {

nlohmann::json encode(const std::vector<Timeline>& timelines);
// Throws jsonfields::Unreadable with the reason when a record can't be read.
std::vector<Timeline> decode(const nlohmann::json& array);

}  // namespace ombrik::timelinecodec
