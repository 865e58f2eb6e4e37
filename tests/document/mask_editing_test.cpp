// Masks of a mask node edited as the viewer edits them: gestures in normalised picture points,
// several masks with their ports, undo, the example world's mask, and shapes that can't be drawn.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <numbers>

#include "document/roto_drag.h"
#include "engine/engine.h"
#include "temp_model.h"
#include "tracking/homography.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {
struct Roto {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{tempModelOptions(dir, clock, false)};
  RotoDrag drag{m};
  Uuid mask;
  Roto() {
    m._compSize = {200, 100};
    mask = m.addNode(*NodeKind::find("mask"), {10, 10});
    m.select(mask);
    clock->advance(1);
    m.resetHistory();
  }
  const Node& node() { return *m.nodeByID(mask); }
  // A click: press and release at one point of a picture shown 400 x 200 points large.
  void click(Point at, RotoKeys keys = {}) {
    drag.press(at, keys, 400, 200);
    drag.release(at);
    clock->advance(1);  // each gesture its own undo step
  }
  void pull(Point from, Point to, RotoKeys keys = {}) {
    drag.press(from, keys, 400, 200);
    drag.drag({(from.x + to.x) / 2, (from.y + to.y) / 2});
    drag.release(to);
    clock->advance(1);
  }
  void square() {
    for (Point p : {Point{0.2, 0.2}, Point{0.8, 0.2}, Point{0.8, 0.8}, Point{0.2, 0.8}}) click(p);
    click({0.202, 0.203});  // within 9 points of the first point: closes
  }
};
}  // namespace

TEST(MaskEditing, DrawCloseShapeTangentsDeleteAndUndoBackToNothing) {
  Roto r;
  r.square();
  ASSERT_EQ(r.node().shape.size(), 4u);
  EXPECT_TRUE(r.node().shapeClosed);
  EXPECT_EQ(r.m.roto.rotoTool, RotoTool::select);
  ASSERT_TRUE(r.node().shapeBase);
  EXPECT_EQ(r.node().shape[2].p, (Point{0.8, 0.8}));

  // A double-click makes point 1 smooth: a sixth of the chord between its neighbours.
  EXPECT_TRUE(r.drag.doubleClick({0.8, 0.2}, 400, 200));
  EXPECT_NEAR(r.node().shape[1].outT.y, 0.1, 1e-12);
  r.clock->advance(1);
  // Its outgoing tip (0.9, 0.3) dragged: the incoming one mirrors it; Alt breaks the mirror.
  r.click({0.8, 0.2});
  r.pull({0.9, 0.3}, {0.95, 0.3});
  EXPECT_NEAR(r.node().shape[1].outT.x, 0.15, 1e-9);
  EXPECT_NEAR(r.node().shape[1].inT.x, -0.15, 1e-9);
  r.pull({0.65, 0.1}, {0.7, 0.15}, {.alt = true});
  EXPECT_NEAR(r.node().shape[1].inT.x, -0.1, 1e-9);
  EXPECT_NEAR(r.node().shape[1].inT.y, -0.05, 1e-9);
  EXPECT_NEAR(r.node().shape[1].outT.x, 0.15, 1e-9);
  // A point dragged, then two deleted with Alt: under 3 points the outline opens.
  r.pull({0.8, 0.8}, {0.7, 0.9});
  EXPECT_EQ(r.node().shape[2].p, (Point{0.7, 0.9}));
  r.click({0.7, 0.9}, {.alt = true});
  ASSERT_EQ(r.node().shape.size(), 3u);
  EXPECT_TRUE(r.node().shapeClosed);
  r.click({0.2, 0.8}, {.alt = true});
  EXPECT_EQ(r.node().shape.size(), 2u);
  EXPECT_FALSE(r.node().shapeClosed);

  for (int i = 0; i < 40 && !r.m.history.undo.empty(); ++i) r.m.undo();
  EXPECT_TRUE(r.node().shape.empty());
  EXPECT_FALSE(r.node().shapeBase);
  r.m.redo();
  EXPECT_EQ(r.node().shape.size(), 1u);
}

TEST(MaskEditing, InsertSelectSeveralAndMoveTheWholeMask) {
  Roto r;
  r.square();
  // A held inserts on the nearest segment; Ctrl only near one.
  r.click({0.5, 0.21}, {.aHeld = true});
  ASSERT_EQ(r.node().shape.size(), 5u);
  EXPECT_NEAR(r.node().shape[1].p.x, 0.5, 1e-9);
  r.click({0.5, 0.5}, {.ctrl = true});  // far from every segment: nothing inserted
  EXPECT_EQ(r.node().shape.size(), 5u);
  r.click({0.81, 0.5}, {.ctrl = true});
  ASSERT_EQ(r.node().shape.size(), 6u);
  EXPECT_NEAR(r.node().shape[3].p.x, 0.8, 1e-9);

  // A marquee (Shift drag from free space) over the right-hand points, then they move together.
  r.pull({0.75, 0.1}, {0.9, 0.9}, {.shift = true});
  EXPECT_EQ(r.m.roto.selectedPoints, (std::set<int>{2, 3, 4}));
  r.pull({0.8, 0.5}, {0.85, 0.55});
  EXPECT_NEAR(r.node().shape[2].p.x, 0.85, 1e-9);
  EXPECT_NEAR(r.node().shape[4].p.y, 0.85, 1e-9);
  EXPECT_NEAR(r.node().shape[0].p.x, 0.2, 1e-9);

  // Inside the outline the mask moves: its placement, and the shape shown with it.
  const double cx = r.m.key(r.node()).cx;
  r.pull({0.4, 0.5}, {0.5, 0.6});
  EXPECT_NEAR(r.m.key(r.node()).cx, cx + 10, 1e-9);
  const Node shown = r.m.resolvedMask(r.node());
  EXPECT_NEAR(shown.shape[0].p.x, 0.3, 1e-9);
  EXPECT_NEAR(shown.shape[0].p.y, 0.3, 1e-9);
  // New points land where they are clicked, whatever the placement.
  r.m.shapeMovePoint(r.mask, 0, {0.25, 0.25});
  EXPECT_NEAR(r.m.resolvedMask(r.node()).shape[0].p.x, 0.25, 1e-9);
}

TEST(MaskEditing, SeveralMasksKeepTheirEditsPortsAndStatus) {
  Roto r;
  EXPECT_EQ(r.m.newMask(r.mask), 0);  // the empty mask is reused
  EXPECT_TRUE(r.node().masks.empty());
  r.square();
  // The ellipse tool in free space starts a second mask, sized by the drag.
  r.m.setRotoTool(RotoTool::ellipse);
  r.pull({0.9, 0.9}, {0.95, 0.98});
  ASSERT_EQ(r.node().allMasks().size(), 2u);
  EXPECT_TRUE(r.node().ellipse);
  EXPECT_NEAR(r.node().params.at("rx"), 5, 1e-9);  // 0.05 of 200 px is 10 px: 5 %
  EXPECT_NEAR(r.node().params.at("ry"), 8, 1e-9);
  EXPECT_EQ(r.m.newMask(r.mask), 2);
  // Switching masks keeps each one's own fields.
  r.m.selectMask(r.mask, 0);
  EXPECT_EQ(r.node().shape.size(), 4u);
  EXPECT_FALSE(r.node().ellipse);
  r.m.setMaskParam(r.mask, 1, "feather", 0.9);
  r.m.setMaskBlend(r.mask, 1, 3);
  EXPECT_EQ(r.node().allMasks()[1].params.at("blend"), 3);

  // Wires from each mask's port; deleting mask 0 of 3 removes port 2 and moves the others down.
  const Uuid colour = r.m.addNode(*NodeKind::find("color"), {300, 10});
  for (int port : {2, 3, 4}) r.m._edges.push_back({Uuid::generate(), r.mask, colour, 1, port});
  r.m.deleteMask(r.mask, 0);
  std::vector<int> ports;
  for (const Edge& e : r.m._edges) ports.push_back(e.fromPort);
  EXPECT_EQ(ports, (std::vector<int>{2, 3}));
  EXPECT_EQ(r.node().maskIndex, 0);
  EXPECT_TRUE(r.node().ellipse);

  // Resolved for the engine: every mask a layer, and the active one alone while isolated.
  r.m.select(r.mask);
  r.m.inspectedID = r.mask;
  r.m.toggleMaskIsolate();
  EXPECT_EQ(r.m._status, "Mask 01 seul · double I pour revoir tous les masques");
  const Node resolved = r.m.resolved(r.node());
  EXPECT_EQ(resolved.maskLayers.size(), 2u);
  EXPECT_TRUE(resolved.maskSolo);
  r.m.deleteMask(r.mask, 1);
  r.m.deleteMask(r.mask, 0);
  EXPECT_TRUE(r.node().masks.empty());
  EXPECT_FALSE(r.node().ellipse);
  EXPECT_FALSE(r.m.roto.maskIsolate);
}

TEST(MaskEditing, ClearingATrackedShapeKeepsItWhereItIsSeen) {
  Roto r;
  r.square();
  // A track and a homography shifting the normalised picture by (0.1, 0.05) at this frame.
  Node& n = *r.m.nodeByID(r.mask);
  n.track = {{0, MaskKey{55, 45, 20, 20, 0}}};
  n.planarH = {{3, {1, 0, 0.1, 0, 1, 0.05, 0, 0, 1}}};
  n.params["cx"] = 55, n.params["cy"] = 45;
  r.m.clearTrack(r.mask);
  EXPECT_TRUE(r.node().track.empty() && r.node().planarH.empty());
  EXPECT_EQ(r.m.key(r.node()).cx, 55);
  EXPECT_NEAR(r.node().shape[0].p.x, 0.3, 1e-12);  // the nearest homography key was applied
  EXPECT_NEAR(r.node().shape[0].p.y, 0.25, 1e-12);
  // Drawing anew on an emptied tracked mask starts from a still one.
  r.m.nodeByID(r.mask)->track = {{0, MaskKey{50, 50, 20, 20, 0}}};
  r.m.shapeClear(r.mask);
  EXPECT_TRUE(r.node().shape.empty() && r.node().track.empty());
  EXPECT_EQ(r.m.roto.rotoTool, RotoTool::bezier);
}

TEST(MaskEditing, AnimatedAndTrackedPlacementsFollowTheHandAndIIsolates) {
  Roto r;
  r.m.setRotoTool(RotoTool::ellipse);  // the empty mask becomes an ellipse at the kind's placement
  ASSERT_TRUE(r.node().ellipse);
  r.m.toggleAnim(r.mask, "cx");
  r.m._currentFrame = 10;
  r.m.setRotoTool(RotoTool::select);
  const double cx = r.m.key(r.m.resolved(r.node())).cx;
  r.pull({cx / 100, 0.5}, {cx / 100 + 0.1, 0.5});  // inside the ellipse: the whole mask moves
  ASSERT_EQ(r.node().anim.at("cx").size(), 2u);  // a key at frame 10
  EXPECT_NEAR(r.m.key(r.m.resolved(r.node())).cx, cx + 10, 1e-9);
  r.m._currentFrame = 0;
  EXPECT_NEAR(r.m.key(r.m.resolved(r.node())).cx, cx, 1e-9);
  // With hand correction off, a tracked mask's slider shifts every tracked placement.
  r.m.setTrackCorrect(false);
  r.m.nodeByID(r.mask)->track = {{0, MaskKey{40, 50, 20, 20, 0}}, {5, MaskKey{45, 50, 20, 20, 0}}};
  r.m.binding(r.mask, "cy").set(60);
  EXPECT_EQ(r.node().track.at(5).cy, 60);
  EXPECT_EQ(r.node().track.at(0).cy, 60);

  // I hides the guides and shows them again; twice quickly it isolates the mask instead.
  r.m.iKey();
  EXPECT_TRUE(r.m._overlaysHidden);
  r.clock->advance(1);
  r.m.iKey();
  EXPECT_FALSE(r.m._overlaysHidden);
  r.clock->advance(1);
  r.m.iKey();
  r.clock->advance(0.2);
  r.m.iKey();
  EXPECT_FALSE(r.m._overlaysHidden);
  EXPECT_TRUE(r.m.roto.maskIsolate);
}

TEST(MaskEditing, DraggingATrackedMaskCorrectsItWithOffsetKeysOverTheRawTrack) {
  Roto r;
  r.square();
  Node& n = *r.m.nodeByID(r.mask);
  for (int f = 0; f <= 20; ++f) n.track[f] = MaskKey{40.0 + f, 50, 20, 20, 0};
  n.trackRef = 0;
  n.planarH = {{0, Homography::identity().toArray()}};
  const auto cxAt = [&](int f) { return r.m.key(r.m.resolvedMask(r.node(), f)).cx; };
  r.m._currentFrame = 10;
  r.m.setMaskParams(r.mask, {{"cx", cxAt(10) + 6}, {"cy", 48}});
  using Off = std::map<int, std::vector<double>>;
  EXPECT_EQ(r.node().trackOff, (Off{{0, {0, 0}}, {10, {6, -2}}}));  // ramps in from the track's start
  EXPECT_EQ(r.node().track.at(10).cx, 50);                       // the track itself stays raw
  EXPECT_NEAR(cxAt(5), 45 + 3, 1e-9);
  EXPECT_NEAR(cxAt(15), 55 + 6, 1e-9);  // after the last key its value holds
  r.m._currentFrame = 15;
  r.m.offsetZeroHere(r.mask);
  EXPECT_NEAR(cxAt(15), 55, 1e-9);

  // After a weak zone, a first correction ramps in from where the zone began.
  r.m.nodeByID(r.mask)->trackOff.clear();
  r.m.tracking.weak[r.mask] = 4;
  r.m._currentFrame = 12;
  r.m.setMaskParams(r.mask, {{"cx", cxAt(12) - 3}});
  EXPECT_EQ(r.node().trackOff, (Off{{4, {0, 0}}, {12, {-3, 0}}}));

  // Off, the hand moves the whole track and its homographies, and the choice is remembered.
  r.m.nodeByID(r.mask)->trackOff.clear();
  r.m.setTrackCorrect(false);
  r.m.setMaskParams(r.mask, {{"cx", cxAt(12) + 5}});
  EXPECT_TRUE(r.node().trackOff.empty());
  EXPECT_EQ(r.node().track.at(0).cx, 45);
  EXPECT_NEAR(r.node().planarH.at(0)[2], 0.05, 1e-12);
  AppModel again(tempModelOptions(r.dir, r.clock, false));
  EXPECT_FALSE(again.tracking.correct);
}

TEST(MaskEditing, PinsAreSetAndMovedBeforeATrackAndTrackingBetweenThemNeedsTwo) {
  Roto r;
  r.square();
  struct Refusal { std::function<void(Node&)> prepare; const char* status; } refusals[] = {
      {[](Node&) {}, "Posez au moins deux clés (début et fin) pour tracker entre les clés."},
      {[](Node& n) { n.pins = {{0, {}}, {9, {}}}, n.track = {{0, {}}}; },
       "Effacez d'abord le track : le suivi entre les clés repart de zéro."},
      {[](Node& n) { n.pins = {{0, {}}, {9, {}}}, n.shapeClosed = false; }, "Dessinez d'abord une forme dans le viewer."},
  };
  const Node drawn = r.node();
  for (const Refusal& c : refusals) {
    Node& n = *r.m.nodeByID(r.mask);
    n = drawn;
    c.prepare(n);
    const Node prepared = n;
    r.m.trackWithPins(r.mask);
    EXPECT_EQ(r.m._status, c.status);
    EXPECT_FALSE(r.m._trackingProgress);
    EXPECT_TRUE(r.node() == prepared) << c.status;
  }
  *r.m.nodeByID(r.mask) = drawn;

  r.m._currentFrame = 3;
  r.m.pinHere(r.mask);
  EXPECT_EQ(r.m._status, "Clé posée à l'image 4 · 1 clé.");
  r.m._currentFrame = 9;
  const MaskKey k = r.m.key(r.m.resolved(r.node()));
  r.m.setMaskParams(r.mask, {{"cx", k.cx + 10}, {"feather", 2}});  // a pose key moves the pin of this frame
  ASSERT_EQ(r.node().pins.size(), 2u);
  EXPECT_EQ(r.node().pins.at(9).cx, k.cx + 10);
  EXPECT_EQ(r.node().params.at("feather"), 2);
  EXPECT_NEAR(r.m.key(r.m.resolvedMask(r.node(), 6)).cx, k.cx + 5, 1e-9);  // halfway between the pins
  r.m.pinHere(r.mask);
  r.m.removePin(r.mask, 9);
  EXPECT_EQ(r.node().pins.size(), 1u);
  r.m.nodeByID(r.mask)->track = {{0, k}};
  r.m.pinHere(r.mask);  // on a tracked mask pins don't go
  EXPECT_EQ(r.m._status, "Effacez d'abord le track pour poser des clés de référence (elles se posent avant de tracker).");
  EXPECT_EQ(r.node().pins.size(), 1u);
  r.m.clearPins(r.mask);
  EXPECT_TRUE(r.node().pins.empty());
}

// The example world a first start opens: a beauty plate graded inside an ellipse.
TEST(MaskEditing, TheExampleWorldsMaskLimitsItsGrade) {
  TempDir dir;
  AppModel::Options o = tempModelOptions(dir, std::make_shared<ManualScheduler>());
  o.blankStart = false;
  AppModel m(o);
  ASSERT_TRUE(m.engine) << m._status;
  ASSERT_EQ(m._media.size(), 1u);
  m.setPreviewScale(0.125);
  m.performRender(true);
  const Node *mask = m.nodeByID(nodeOfKind(m, "mask")), *colour = m.nodeByID(nodeOfKind(m, "color")),
             *media = m.nodeByID(nodeOfKind(m, "media"));
  ASSERT_TRUE(mask && colour && media);
  EXPECT_TRUE(mask->ellipse);
  const auto matte = m.engine->readPixels(m.engine->outputs.at(mask->id));
  const auto plate = m.engine->readPixels(m.engine->outputs.at(media->id));
  const auto graded = m.engine->readPixels(m.engine->outputs.at(colour->id));
  EXPECT_GT(meanChannel(plate, 0) + meanChannel(plate, 1) + meanChannel(plate, 2), 0.15) << "a picture, not black";
  const int W = m.engine->compW, H = m.engine->compH;
  auto ellipseAt = [&](int x, int y) {
    const double dx = (x + 0.5 - mask->p("cx") / 100 * W) / (mask->p("rx") / 100 * W);
    const double dy = (y + 0.5 - mask->p("cy") / 100 * H) / (mask->p("ry") / 100 * H);
    return std::hypot(dx, dy);
  };
  int inside = 0, outside = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const std::size_t i = (std::size_t(y) * W + x) * 4;
      const double d = ellipseAt(x, y);
      if (d < 1 - mask->p("feather") - 0.05) {
        EXPECT_EQ(matte[i], 1.0f);
        inside += std::abs(graded[i] - plate[i]) > 0.01f;
      } else if (d > 1.05) {
        EXPECT_EQ(matte[i], 0.0f);
        EXPECT_NEAR(graded[i], plate[i], 2e-3) << x << "," << y;
        ++outside;
      }
    }
  EXPECT_GT(inside, 100);  // the grade shows inside the ellipse
  EXPECT_GT(outside, 100);
  // The selected mask node shows its rush under the shape, not a bare matte.
  m.select(mask->id);
  m.performRender(true);
  const auto state = m.viewerState();
  EXPECT_EQ(state.mode, 1);
  EXPECT_TRUE(state.before);
}

TEST(MaskEditing, ProjectsWithShapesThatCantBeDrawnOpenAndRenderThemEmpty) {
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  // The fourth shape's second point loses its x below, as a hand-edited or damaged file would.
  std::vector<std::vector<Point>> shapes = {{}, {{0.5, 0.5}}, {{0.1, 0.1}, {0.9, 0.9}},
                                            {{0.1, 0.1}, {0.5, 0.4}, {0.9, 0.9}, {0.1, 0.9}}, {}};
  for (int i = 0; i < 100000; ++i) {
    const double a = 2 * std::numbers::pi * i / 100000;
    shapes.back().push_back({0.5 + 0.3 * std::cos(a), 0.5 + 0.3 * std::sin(a)});
  }
  std::vector<Uuid> ids;
  const auto file = dir.path / "formes.tarvom";
  {
    AppModel m(tempModelOptions(dir, clock));
    for (const auto& pts : shapes) {
      const Uuid id = m.addNode(*NodeKind::find("mask"), {0, 0});
      Node& n = *m.nodeByID(id);
      for (Point p : pts) n.shape.push_back({p, {}, {}});
      n.shapeClosed = true;
      n.shapeBase = m.key(n);
      ids.push_back(id);
    }
    ASSERT_TRUE(m.write(file)) << m._status;
  }
  {
    std::ifstream in(file);
    nlohmann::json j = nlohmann::json::parse(in);
    std::function<void(nlohmann::json&)> damage = [&](nlohmann::json& v) {
      if (v.is_object() && v.contains("id") && v["id"] == ids[3].toString() && v.contains("shape"))
        v["shape"][1][0] = nullptr;
      if (v.is_structured())
        for (auto& child : v) damage(child);
    };
    damage(j);
    std::ofstream(file) << j.dump();
  }
  AppModel m(tempModelOptions(dir, clock));
  ASSERT_TRUE(m.load(file)) << m._status;
  m.setPreviewScale(0.125);
  m.performRender(true);
  for (std::size_t k = 0; k < ids.size(); ++k) {
    ASSERT_TRUE(m.nodeByID(ids[k])) << k;
    EXPECT_EQ(m.nodeByID(ids[k])->shape.size(), shapes[k].size());
    const auto px = m.engine->readPixels(m.engine->outputs.at(ids[k]));
    const int W = m.engine->compW, H = m.engine->compH;
    const float centre = px[(std::size_t(H / 2) * W + W / 2) * 4];
    EXPECT_EQ(centre, k + 1 == ids.size() ? 1.0f : 0.0f) << k;
  }
}
