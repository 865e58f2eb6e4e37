#pragma once
// Timelines to and from OpenTimelineIO's JSON (.otio), the exchange format of editing software.
//
// Writing: a Timeline.1 whose Stack.1 holds one video Track.1 per layer, so that overlapping
// layers survive. OTIO lays later tracks over earlier ones, so the stack runs bottom first: the
// last layer is the first track ("V1"). A track holds a Gap.1 of `start` frames (left out when 0)
// and the layer's Clip.2, source_range = [inPoint, inPoint + length) at the timeline's fps, clip
// `enabled` = the layer's. Its media is an ExternalReference.1 (a file:// URL; a relative path
// stays a relative URL) or, for a source with no file, a MissingReference.1. What OTIO has no field
// for goes under the metadata key "ombrik": the layer's id, source, opacity and blend on the clip;
// the timeline's id, fps, size, fixed duration, background and film path on the timeline. Our own
// file read back gives an equal Timeline.
//
// Reading: every track of kind Video (a track without a kind is one), every clip in order; gaps
// and clips advance the position, transitions don't (OTIO overlaps them with their neighbours).
// Each clip becomes a layer named after it; tracks later in the stack are higher, and the clips of
// one track keep their order: layers = last track's clips, ..., first track's clips. Times at any
// rate become frames of the timeline's fps (ends rounded, so that adjacent clips stay adjacent).
// The fps is the "ombrik" one, else the first clip's rate, else global_start_time's, else 25.
// inPoint counts from the start of the media's available_range when it has one (a media whose
// timecode starts at 01:00:00:00 has its first frame at 0). A clip without source_range takes its
// media's available_range. Clip.1 (one media_reference) is read too. A layer is off when its clip
// or its track is. Without "ombrik" metadata the size is 1920 x 1080 and ids are new ones.
// Skipped, with a French message in `messages`: objects of an unknown schema or version (named),
// clips without a duration, of no length, or that the resolver can't place, nested compositions
// (their length still advances the track). Skipped silently: audio and other non-video tracks,
// transitions. A track's own source_range (a trim of the whole track) is not applied.
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "editorial/timeline.h"

namespace ombrik::otio {

// What a read clip says about its media, for the caller to find the source.
struct ClipRef {
  std::string name;                           // the clip's name
  std::optional<std::filesystem::path> path;  // its target_url as a path; relative when the URL is
  std::optional<LayerSource> source;          // what an .otio of ours recorded
};

using PathOf = std::function<std::optional<std::filesystem::path>(const LayerSource&)>;
using Resolve = std::function<std::optional<LayerSource>(const ClipRef&)>;

// The .otio text, indented.
std::string write(const Timeline& timeline, const PathOf& pathOf);

// The timeline, or nullopt with the reason in French in `error` (text not JSON, not a Timeline.1,
// a field of the wrong type). Never throws. What was skipped is added to `messages`.
std::optional<Timeline> read(const std::string& text, const Resolve& resolve, std::vector<std::string>& messages,
                             std::string* error = nullptr);

// Whole file or nothing (the old file stays on failure); false with the reason in `error`.
bool writeFile(const std::filesystem::path& file, const Timeline& timeline, const PathOf& pathOf,
               std::string* error = nullptr);

// As read(); relative media paths are taken from the file's folder.
std::optional<Timeline> readFile(const std::filesystem::path& file, const Resolve& resolve,
                                 std::vector<std::string>& messages, std::string* error = nullptr);

}  // namespace ombrik::otio
