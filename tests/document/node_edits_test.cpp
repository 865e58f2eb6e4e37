// A node's own menu: renamed, duplicated, held on the viewer or the inspector, bypassed; each change
// of the graph one step of the history.
#include <gtest/gtest.h>

#include "temp_model.h"

using namespace ombrik;

TEST(NodeEdits, RenameTrimsFallsBackToTheKindsTitleAndIsOneUndoStep) {
  test::GraphDesk d;
  const Uuid blur = d.start("blur", {200, 140});
  const std::string kindTitle = d.node(blur).kind->title.value();
  struct Case {
    const char* typed;
    const char* name;   // what the node keeps
    std::string shown;  // what it is called on screen
  };
  const std::vector<Case> cases = {
      {"Flou du fond", "Flou du fond", "Flou du fond"},
      {"  Flou & net  ", "Flou & net", "Flou & net"},
      {"   ", "", kindTitle},
      {kindTitle.c_str(), "", kindTitle},
  };
  for (const Case& c : cases) {
    d.m.renameNode(blur, c.typed);
    EXPECT_EQ(d.node(blur).name, c.name) << c.typed;
    EXPECT_EQ(d.node(blur).title(), c.shown) << c.typed;
  }
  d.m.renameNode(Uuid::generate(), "personne");  // unknown ids are ignored
  d.settle();
  d.m.renameNode(blur, "Fond");
  d.settle();
  d.m.undo();
  EXPECT_EQ(d.node(blur).name, "");
  d.m.redo();
  EXPECT_EQ(d.node(blur).name, "Fond");
}

TEST(NodeEdits, DuplicateKeepsInnerWiresAndLeavesTheClipboard) {
  test::GraphDesk d;
  const Uuid output = d.m._nodes.front().id;
  const Uuid color = d.add("color", {200, 140}), blur = d.add("blur", {400, 140});
  d.m.connect(color, blur, 0, 0);
  d.m.connect(blur, output, 0, 0);
  d.m.renameNode(blur, "Fond");
  d.m.select(color);
  d.m.copyNodes();

  d.m.duplicateNodes({color, blur, output}, {0, 200});
  ASSERT_EQ(d.m._nodes.size(), 5u) << "the output has no copy";
  EXPECT_EQ(d.m._selection.size(), 2u);
  const Node& copy = d.m._nodes.back();
  EXPECT_EQ(copy.kind->id, "blur");
  EXPECT_EQ(copy.name, "Fond");
  EXPECT_EQ(*d.m.layout.position(copy.id), (Point{400, 340}));
  int inner = 0, toOutput = 0;
  for (const Edge& e : d.m._edges) {
    inner += e.to == copy.id;
    toOutput += e.to == output;
  }
  EXPECT_EQ(inner, 1) << "the wire between the copies is kept";
  EXPECT_EQ(toOutput, 1) << "the wire to a node left out is not";
  ASSERT_EQ(d.m.copiedNodes.size(), 1u);
  EXPECT_EQ(d.m.copiedNodes.front().id, color) << "the clipboard still holds what was copied";
}

TEST(NodeEdits, ViewAndInspectorLocksMoveAndRelease) {
  test::GraphDesk d;
  const Uuid color = d.add("color"), blur = d.start("blur", {200, 0});
  d.m.toggleViewLock(color);
  EXPECT_TRUE(d.m._viewLocked);
  EXPECT_TRUE(d.m.renderQueued);
  d.m.select(blur);
  EXPECT_EQ(d.m.displayedNodeID(), color);
  // Another node moves the lock; the locked node again releases it.
  d.m.toggleViewLock(blur);
  EXPECT_TRUE(d.m._viewLocked);
  EXPECT_EQ(d.m.displayedNodeID(), blur);
  d.m.toggleViewLock(blur);
  EXPECT_FALSE(d.m._viewLocked);
  d.m.toggleViewLock(Uuid::generate());
  EXPECT_FALSE(d.m._viewLocked) << "a node that isn't there locks nothing";

  d.m.toggleInspectorLock(color);
  EXPECT_EQ(d.m.inspectorLock, color);
  d.m.toggleInspectorLock(blur);
  EXPECT_EQ(d.m.inspectorLock, blur);
  d.m.toggleInspectorLock(blur);
  EXPECT_FALSE(d.m.inspectorLock);
}

TEST(NodeEdits, BypassIsAnUndoableChangeOfTheGraph) {
  test::GraphDesk d;
  const Uuid color = d.start("color");
  d.m.setBypass(color, false);  // unchanged: nothing to record
  d.settle();
  EXPECT_TRUE(d.m.history.undo.empty());
  EXPECT_FALSE(d.m.renderQueued);

  d.m.setBypass(color, true);
  EXPECT_TRUE(d.node(color).bypass);
  EXPECT_TRUE(d.m.renderQueued) << "the picture follows";
  d.settle();
  EXPECT_EQ(d.m.history.undo.size(), 1u);
  d.m.undo();
  EXPECT_FALSE(d.node(color).bypass);
  d.m.redo();
  EXPECT_TRUE(d.node(color).bypass);
  d.m.setBypass(Uuid::generate(), true);  // a node that isn't there: no harm
}
