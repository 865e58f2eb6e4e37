// Nodes held on the viewer or in the inspector whatever is selected, and bypassed nodes.
#include <gtest/gtest.h>

#include "document/app_model.h"
#include "platform/scheduler.h"

using namespace ombrik;

namespace {
struct Locks {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock}};
  Uuid color, blur;
  Locks() {
    color = m.addNode(NodeKind::color(), {0, 0});
    blur = m.addNode(*NodeKind::find("blur"), {200, 0});
    clock->advance(1);
    m.resetHistory();
  }
};
}  // namespace

TEST(NodeLocks, TheViewerStaysOnTheLockedNodeUntilItIsReleased) {
  Locks l;
  l.m.toggleViewLock(l.color);
  EXPECT_TRUE(l.m._viewLocked);
  EXPECT_TRUE(l.m.renderQueued);
  EXPECT_EQ(l.m._status.rfind("Vue verrouillée : Réglage couleur", 0), 0u) << l.m._status;
  l.m.select(l.blur);
  EXPECT_EQ(l.m.displayedNodeID(), l.color);

  // Another node moves the lock; the locked node again releases it.
  l.m.toggleViewLock(l.blur);
  EXPECT_TRUE(l.m._viewLocked);
  EXPECT_EQ(l.m.displayedNodeID(), l.blur);
  l.m.toggleViewLock(l.blur);
  EXPECT_FALSE(l.m._viewLocked);
  EXPECT_EQ(l.m._status, "Vue verrouillée retirée : le viewer suit à nouveau la sélection.");
  l.m.toggleViewLock(Uuid::generate());
  EXPECT_FALSE(l.m._viewLocked) << "a node that isn't there locks nothing";
}

TEST(NodeLocks, TheInspectorLockMovesAndReleases) {
  Locks l;
  l.m.toggleInspectorLock(l.color);
  EXPECT_EQ(l.m.inspectorLock, l.color);
  EXPECT_EQ(l.m._status, "Réglages verrouillés sur Réglage couleur · double-clic pour libérer ou changer.");
  l.m.toggleInspectorLock(l.blur);
  EXPECT_EQ(l.m.inspectorLock, l.blur);
  l.m.toggleInspectorLock(l.blur);
  EXPECT_FALSE(l.m.inspectorLock);
  EXPECT_EQ(l.m._status, "Réglages libérés : le panneau suit à nouveau la sélection.");
}

TEST(NodeLocks, BypassIsAnUndoableChangeOfTheGraph) {
  Locks l;
  l.m.setBypass(l.color, false);  // unchanged: nothing to record
  l.clock->advance(1);
  EXPECT_TRUE(l.m.history.undo.empty());
  EXPECT_FALSE(l.m.renderQueued);

  l.m.setBypass(l.color, true);
  EXPECT_TRUE(l.m.nodeByID(l.color)->bypass);
  EXPECT_TRUE(l.m.renderQueued) << "the picture follows";
  l.clock->advance(1);
  EXPECT_EQ(l.m.history.undo.size(), 1u);
  l.m.undo();
  EXPECT_FALSE(l.m.nodeByID(l.color)->bypass);
  l.m.redo();
  EXPECT_TRUE(l.m.nodeByID(l.color)->bypass);
  l.m.setBypass(Uuid::generate(), true);  // a node that isn't there: no harm
}
