// A node's own menu: renamed, duplicated, and each change one step of the history.
#include <gtest/gtest.h>

#include "document/app_model.h"
#include "document/history_state.h"
#include "platform/scheduler.h"

using namespace ombrik;

namespace {
struct Desk {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock}};
  Uuid add(const char* kind, Point at) { return m.addNode(*NodeKind::find(kind), at); }
  void pause() { clock->advance(HistoryState::kQuiet + 0.1); }
};
}  // namespace

TEST(NodeEdits, RenameTrimsAndFallsBackToTheKindsTitle) {
  Desk d;
  const Uuid blur = d.add("blur", {200, 140});
  const std::string kindTitle = d.m.nodeByID(blur)->kind->title.value();
  struct Case {
    const char* typed;
    const char* name;   // what the node keeps
    std::string shown;  // what it is called on screen
  };
  const std::vector<Case> cases = {
      {"Flou du fond", "Flou du fond", "Flou du fond"},
      {"  Flou & net  ", "Flou & net", "Flou & net"},
      {"   ", "", kindTitle},
      {"Arrière-plan", "Arrière-plan", "Arrière-plan"},
      {kindTitle.c_str(), "", kindTitle},
  };
  for (const Case& c : cases) {
    d.m.renameNode(blur, c.typed);
    EXPECT_EQ(d.m.nodeByID(blur)->name, c.name) << c.typed;
    EXPECT_EQ(d.m.nodeByID(blur)->title(), c.shown) << c.typed;
  }
  d.m.renameNode(Uuid::generate(), "personne");  // unknown ids are ignored
}

TEST(NodeEdits, RenameIsOneUndoStep) {
  Desk d;
  const Uuid blur = d.add("blur", {200, 140});
  d.pause();
  d.m.renameNode(blur, "Fond");
  d.pause();
  d.m.undo();
  EXPECT_EQ(d.m.nodeByID(blur)->name, "");
  d.m.redo();
  EXPECT_EQ(d.m.nodeByID(blur)->name, "Fond");
}

TEST(NodeEdits, DuplicateKeepsInnerWiresAndLeavesTheClipboard) {
  Desk d;
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
