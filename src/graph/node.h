#pragma once
// One node of a graph: a plain value, copied freely (the document, resolved per-frame copies,
// undo snapshots and the clipboard each hold their own).
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "graph/gmask.h"
#include "graph/indirect.h"
#include "graph/keyframe.h"
#include "graph/mask_key.h"
#include "graph/node_kind.h"
#include "graph/paint_layer.h"
#include "graph/point.h"
#include "graph/tracker_pt.h"
#include "graph/uuid.h"

namespace ombrik {

struct NodeGroup;

struct Node {
  Uuid id;
  KindRef kind;
  Indirect<NodeGroup> group;              // inner graph when the node is a group
  std::map<std::string, double> params;   // every declared key at creation
  bool bypass = false;
  std::optional<Uuid> mediaID;
  std::map<int, MaskKey> track;
  std::map<int, MaskKey> pins;
  std::map<int, std::vector<double>> trackOff;
  std::vector<std::vector<double>> keySamples;
  std::vector<TrackerPt> trackers;
  std::optional<std::vector<double>> stabM;  // resolved copies only
  std::vector<Uuid> trackerLinks;
  std::vector<int> followPts;
  std::optional<Uuid> followSrc;
  std::vector<SplinePoint> shape;
  bool shapeClosed = false;
  std::optional<MaskKey> shapeBase;
  bool ellipse = false;
  std::vector<MagicPoint> magicPoints;
  int magicFrame = 0;
  std::optional<std::string> magicFile;     // resolved copies only
  std::optional<std::string> magicDirPath;
  std::optional<std::string> cacheFile;     // resolved copies only
  std::optional<std::string> retimeSource;  // resolved copies only
  int magicCur = 0;
  std::string prompt;
  std::string path;
  std::vector<Point> mesh;
  std::vector<Point> meshBase;
  std::map<int, std::vector<Point>> meshTrack;
  std::vector<Point> meshNow;  // resolved copies only
  std::vector<int> meshTracked;
  std::vector<std::vector<double>> faceStrokes;
  std::vector<float> faceDabs;  // resolved copies only
  std::vector<PaintLayer> paintLayers;
  int paintIndex = 0;
  std::vector<BeautyLayerRT> beautyLayers;  // resolved copies only
  std::vector<float> zonePolys;             // resolved copies only
  std::optional<MaskKey> trackBase;         // resolved copies only
  std::optional<MaskKey> trackNow;          // resolved copies only
  std::optional<int> trackRef;
  std::map<int, std::vector<double>> planarH;
  std::vector<GMask> masks;
  int maskIndex = 0;
  std::vector<GMask> maskLayers;  // resolved copies only
  bool maskSolo = false;
  std::map<std::string, std::vector<Keyframe>> anim;
  std::string name;  // given by the user; empty: the node goes by its kind's title

  Node() = default;
  // A fresh node of a kind: every declared parameter at its default.
  Node(KindRef kind, Uuid id);
  explicit Node(KindRef kind) : Node(std::move(kind), Uuid::generate()) {}

  // A parameter as the engine reads it: the stored value, else the kind's default, else 0.
  float p(std::string_view key) const;
  // A switch: the same value, strictly above 0.5.
  bool on(std::string_view key) const;
  // What the node is called on screen: its own name, else its kind's title.
  std::string title() const;

  // ---- the masks of a mask node (node_masks.cpp). The live fields hold the active mask; its
  // stored copy in `masks` is stale while it is active, so readers of every mask use allMasks.
  static const std::vector<std::string>& maskParamKeys();  // the 14 per-mask keys, in order
  GMask activeMask() const;
  std::vector<GMask> allMasks() const;
  void loadMask(const GMask& mask);
  GMask freshMask() const;
  std::vector<int> maskOutputs() const;  // indices of masks with an output port of their own
  GMask sourceMask(int fromPort) const;  // mask fromPort - 2 when in range, else the active one
  // Input ports offered in the schematic (a Composite shows as many matte ports as "mattes").
  int inputCount() const;

  bool operator==(const Node& o) const;

private:
  double value(std::string_view key) const;
};

}  // namespace ombrik
