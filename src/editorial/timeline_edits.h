#pragma once
// The edits of a timeline as plain functions of their inputs: which layers a command works on,
// cutting, trimming, deleting with or without closing the gap, moving in the stack, duplicating,
// edit points, the drag of a bar, and the snapshot undo. Each returns what the status says; the
// model takes the checkpoint and tells the views.
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "editorial/timeline.h"

namespace ombrik::tledit {

// A layer spans the frame strictly: start < frame < start + length. A layer beginning exactly at
// the playhead is not under it.
bool strictlyUnder(const TLayer& layer, int frame);
// The selected layers in list order; with none selected and `underPlayhead`, the enabled layers
// strictly under the frame.
std::vector<Uuid> targetLayers(const Timeline& t, const std::set<Uuid>& selection, int frame, bool underPlayhead);

// The layer's invariants: start and inPoint at least 0, length at least 1.
void clampLayer(TLayer& layer);

// Cuts the targets that span the frame; gives the ids of the right-hand parts, each placed just
// after its left part (empty: nothing was under the playhead).
std::vector<Uuid> blade(Timeline& t, const std::vector<Uuid>& targets, int frame);
// Removes the targets; with `ripple` the layers after each removed one close its gap (the
// removed layers taken from the last start back) and a fixed duration shrinks by their lengths.
// Gives how many went.
int removeLayers(Timeline& t, const std::vector<Uuid>& targets, bool ripple);
// The start (or the end) of each target spanning the frame moved to the frame.
void trimToFrame(Timeline& t, const std::vector<Uuid>& targets, int frame, bool start);
// Each target swapped with its neighbour above (or below) unless that is a target too or the
// end of the list: a block moves as one.
void moveLayers(Timeline& t, const std::vector<Uuid>& targets, bool up);
// A copy of each target named "<name> copie" just after it; gives the copies' ids.
std::vector<Uuid> duplicateLayers(Timeline& t, const std::vector<Uuid>& targets);
void toggleEnabled(Timeline& t, const std::vector<Uuid>& targets);
// The next (or previous) edit point from the frame: 0, the last frame, and both ends of every
// enabled layer, capped at the last frame; nothing when there is none that way.
std::optional<int> editPoint(const Timeline& t, int frame, bool next);

// A drag on a layer's bar: the part grabbed, from where the gesture began in a bar `width`
// pixels wide, and the layer as the delta in frames from the remembered one makes it.
enum class DragPart { body, left, right };
DragPart dragPart(double x, double width);
TLayer dragged(const TLayer& remembered, DragPart part, int delta);

// Snapshot undo, separate from the graph's: whole copies of the timelines, the newest 100 kept.
constexpr std::size_t kUndoDepth = 100;
void checkpoint(TimelineState& s);
bool undo(TimelineState& s);  // false with nothing to undo; drops vanished ids from the selection
bool redo(TimelineState& s);

// The status texts of the edits.
std::string bladeText(int frame, int count);
std::string deletedText(int count, bool ripple);

}  // namespace ombrik::tledit
