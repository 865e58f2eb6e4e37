#include <gtest/gtest.h>

#include "temp_model.h"

using namespace ombrik;

namespace {
struct History : test::GraphDesk {
  Uuid color = start("color", {10, 10});
  void slide(double v) { m.setParams(color, {{"sat", v}}); }
  double sat() { return m.nodeByID(color)->params.at("sat"); }
};
}  // namespace

TEST(UndoHistory, QuickChangesMakeOneStepPausesMakeTwoAndATakenBackChangeNone) {
  History h;
  h.slide(0.1);
  h.clock->advance(0.1);  // undone before its step is even committed
  h.m.undo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.92);
  h.slide(0.5);
  h.clock->advance(0.2);
  h.slide(0.6);  // within 0.35 s: the timer restarts
  h.clock->advance(0.4);
  EXPECT_EQ(h.m.history.undo.size(), 1u);
  h.slide(0.7);
  h.clock->advance(0.4);  // a pause, then another move
  h.slide(0.8);
  h.clock->advance(0.4);
  EXPECT_EQ(h.m.history.undo.size(), 3u);
  h.m.undo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.7);
  h.m.undo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.6);
  h.m.undo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.92);
  h.m.undo();
  EXPECT_EQ(h.m._status, "Rien à annuler.");
  h.m.redo();
  h.m.redo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.7);

  // A change taken back within the delay leaves no step and keeps redo; a real one empties it.
  h.slide(0.3);
  h.clock->advance(0.5);
  h.m.undo();
  ASSERT_EQ(h.m.history.redo.size(), 1u);
  h.slide(0.5);
  h.slide(0.7);  // back where it was
  h.clock->advance(0.5);
  EXPECT_EQ(h.m.history.redo.size(), 1u);
  h.slide(0.4);
  h.clock->advance(0.5);
  EXPECT_TRUE(h.m.history.redo.empty());
}

TEST(UndoHistory, TwoHundredStepsAtMost) {
  History h;
  for (int i = 1; i <= 201; ++i) {
    h.slide(i / 1000.0);
    h.clock->advance(0.5);
  }
  EXPECT_EQ(h.m.history.undo.size(), 200u);
  while (!h.m.history.undo.empty()) h.m.undo();
  EXPECT_DOUBLE_EQ(h.sat(), 0.001);  // the oldest state went
}

TEST(UndoHistory, UndoAndRedoRoundTripToEqualGraphs) {
  History h;
  const GraphSnapshot start = h.m.snapshot();
  const Uuid grain = h.m.addNode(*NodeKind::find("grain"), {200, 50});
  h.m.connect(h.color, grain, 0, 0);
  h.m.setKey(h.color, "exposure", 0, 1.5);
  h.m.layout.set(h.color, {99, 99});
  h.clock->advance(0.5);
  const GraphSnapshot edited = h.m.snapshot();
  h.m.select(grain);
  h.m.undo();
  EXPECT_EQ(h.m.snapshot(), start);
  EXPECT_FALSE(h.m._selected);  // the selected node was undone away
  h.m.redo();
  EXPECT_EQ(h.m.snapshot(), edited);
}

TEST(UndoHistory, ARunningTrackOrAGestureCommitsAsOneStep) {
  History h;
  h.m._trackingProgress = 0.2;
  for (int i = 0; i < 5; ++i) {
    h.slide(0.1 * i);
    h.clock->advance(0.5);
  }
  h.m.undo();
  EXPECT_EQ(h.m._status, "Attendez la fin du calcul pour annuler.");
  h.m._trackingProgress.reset();
  h.clock->advance(0.5);
  EXPECT_EQ(h.m.history.undo.size(), 1u);

  // A slider's drag with pauses in it: one step, taken the moment the drag ends.
  History g;
  g.m.beginGesture();
  for (int i = 0; i < 5; ++i) {
    g.slide(0.1 * i);
    g.clock->advance(0.5);
  }
  EXPECT_TRUE(g.m.history.undo.empty());
  g.m.endGesture();
  EXPECT_EQ(g.m.history.undo.size(), 1u);
  g.m.undo();
  EXPECT_DOUBLE_EQ(g.sat(), 0.92);
}

TEST(UndoHistory, DirtyUntilSavedStepsShareNodesAndWorldSnapshots) {
  History h;
  TempDir dir;
  EXPECT_TRUE(h.m.history.dirty);  // the fixture added a node
  ASSERT_TRUE(h.m.write(dir.path / "p.tarvom"));
  EXPECT_FALSE(h.m.history.dirty);
  h.slide(0.2);
  EXPECT_TRUE(h.m.history.dirty);
  ASSERT_TRUE(h.m.write(dir.path / "p.tarvom"));
  EXPECT_FALSE(h.m.history.dirty);
  h.m.layout.set(h.color, {1, 1});  // moving a node counts too
  EXPECT_TRUE(h.m.history.dirty);

  // Steps share the nodes that did not change.
  for (int i = 0; i < 20; ++i) h.m.addNode(*NodeKind::find("grain"), {double(i), 0});
  h.clock->advance(0.5);
  h.slide(0.3);
  h.clock->advance(0.5);
  const SharedGraph& before = h.m.history.undo.back();
  const SharedGraph& now = *h.m.history.stable;
  int shared = 0;
  for (std::size_t i = 0; i < now.nodes.size(); ++i) shared += now.nodes[i] == before.nodes[i];
  EXPECT_EQ(shared, int(now.nodes.size()) - 1);  // only the changed node was copied
  EXPECT_EQ(now.edges, before.edges);

  // World snapshots: ten at most, and undoing one reopens its world.
  const std::size_t nodes = h.m._nodes.size();
  for (int i = 0; i < 11; ++i) h.m.pushWorldUndo("la suppression de W" + std::to_string(i));
  EXPECT_EQ(h.m.worldUndo.size(), 10u);
  EXPECT_EQ(h.m.worldUndo.front().label, "la suppression de W1");
  const Uuid world = *h.m._currentBatchID;
  h.m._batches.clear();
  h.m.undoWorld();
  EXPECT_EQ(h.m._status, "Annulé : la suppression de W10.");
  EXPECT_EQ(h.m._currentBatchID, world);
  EXPECT_EQ(h.m._nodes.size(), nodes);
}
