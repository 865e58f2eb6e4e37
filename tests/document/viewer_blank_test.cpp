// What the viewer says when it has no picture, the name over the picture, the keys the time bar
// marks, select all, and the help's texts.
#include <gtest/gtest.h>

#include "document/help_topics.h"
#include "document/viewer_blank.h"
#include "groups/node_group.h"
#include "platform/string_catalogue.h"
#include "temp_model.h"

using namespace ombrik;

namespace {
Node media(std::optional<Uuid> id) {
  Node n(NodeKind::media());
  n.mediaID = id;
  return n;
}
Edge wire(const Node& from, const Node& to, int port = 0) { return Edge{Uuid::generate(), from.id, to.id, port, 0}; }
}  // namespace

TEST(ViewerBlank, SaysWhyThereIsNoPicture) {
  using Why = ViewerBlank::Why;
  const Uuid good = Uuid::generate(), lost = Uuid::generate(), bad = Uuid::generate();
  const std::map<Uuid, MediaTrouble> troubles = {{lost, {"fond.png", kNotFound}}, {bad, {"plan.mov", "fichier vide"}}};
  const Node out(NodeKind::output()), blur(*NodeKind::find("blur")), color(NodeKind::color()),
      plate = media(good), unset = media(std::nullopt), fond = media(lost), plan = media(bad);
  Node named = color;
  named.name = "Étalonnage";
  NodeGroup inside;
  inside.nodes = {Node(NodeKind::glow())};
  Node group(NodeKind::group("Groupe", inside));
  group.group = inside;
  struct Case {
    const char* what;
    std::vector<Node> nodes;
    std::vector<Edge> edges;
    std::optional<Uuid> shown;
    ViewerFacts facts;  // `shown` is taken from the case
    ViewerBlank says;
  };
  auto facts = [](bool media, bool engine = true, bool pending = false) {
    ViewerFacts f;
    f.projectHasMedia = media, f.hasEngine = engine, f.renderPending = pending;
    return f;
  };
  const ViewerFacts withMedia = facts(true), empty = facts(false);
  const Case cases[] = {
      {"nothing on screen", {plate}, {}, std::nullopt, withMedia, {Why::nothingShown, "", ""}},
      {"nothing on screen, nothing imported", {out}, {}, std::nullopt, empty, {Why::emptyProject, "", ""}},
      {"a blur alone in a new project", {out, blur}, {}, blur.id, empty, {Why::emptyProject, "", ""}},
      {"a blur alone", {plate, blur}, {}, blur.id, withMedia, {Why::notConnected, "Blur", ""}},
      {"the break is upstream, named as the user named it", {plate, named, blur, out}, {wire(named, blur), wire(blur, out)},
       out.id, withMedia, {Why::notConnected, "Étalonnage", ""}},
      {"only the matte input is wired", {plate, blur}, {wire(plate, blur, 1)}, blur.id, withMedia, {Why::notConnected, "Blur", ""}},
      {"a media node without media", {plate, unset, out}, {wire(unset, out)}, out.id, withMedia, {Why::noMedia, "Media", ""}},
      {"a missing file", {fond, color, out}, {wire(fond, color), wire(color, out)}, out.id, withMedia, {Why::mediaMissing, "fond.png", ""}},
      {"an unreadable file", {plan, out}, {wire(plan, out)}, out.id, withMedia, {Why::mediaUnreadable, "plan.mov", "fichier vide"}},
      {"a trouble outranks an empty project", {plan, out}, {wire(plan, out)}, out.id, empty, {Why::mediaUnreadable, "plan.mov", "fichier vide"}},
      {"well wired, no GPU", {plate, blur}, {wire(plate, blur)}, blur.id, facts(true, false), {Why::noEngine, "", ""}},
      {"well wired, a render on its way", {plate, blur}, {wire(plate, blur)}, blur.id, facts(true, true, true), {Why::computing, "Blur", ""}},
      {"well wired, nothing came", {plate, blur}, {wire(plate, blur)}, blur.id, withMedia, {Why::noResult, "Blur", ""}},
      {"a group makes its own pictures", {group, out}, {wire(group, out)}, out.id, empty, {Why::noResult, "Sortie", ""}},
      {"a cycle is no missing wire", {color, blur}, {wire(color, blur), wire(blur, color)}, blur.id, withMedia, {Why::noResult, "Blur", ""}},
  };
  for (const Case& c : cases) {
    ViewerFacts f = c.facts;
    f.shown = c.shown;
    EXPECT_EQ(whyViewerBlank(c.nodes, c.edges, troubles, f), c.says) << c.what;
  }
}

TEST(ViewerBlank, EveryReasonHasItsTextsInBothLanguages) {
  using Why = ViewerBlank::Why;
  for (Why why : {Why::nothingShown, Why::emptyProject, Why::notConnected, Why::noMedia, Why::mediaMissing,
                  Why::mediaUnreadable, Why::noEngine, Why::computing, Why::noResult}) {
    const ViewerBlank b{why, "x", ""};
    const std::string headline = b.headline(), advice = b.advice();
    EXPECT_FALSE(headline.empty()) << int(why);
    EXPECT_TRUE(catalogueHasEnglish(headline)) << headline;
    if (!advice.empty()) {
      EXPECT_TRUE(catalogueHasEnglish(advice)) << advice;
    }
    // A reason about a node or a file names it.
    const bool namesSubject = why == Why::notConnected || why == Why::noMedia || why == Why::mediaMissing ||
                              why == Why::mediaUnreadable || why == Why::computing || why == Why::noResult;
    EXPECT_EQ(headline.find("%s") != std::string::npos, namesSubject) << headline;
    EXPECT_EQ(b.offersImport(), why == Why::emptyProject);
  }
}

// The name over the picture is the node on screen, whichever rule put it there; the time bar
// marks the keys of the inspected node, which may be another.
TEST(ViewerBlank, TheTitleAndTheTimeBarFollowTheirOwnNodeAndSelectAll) {
  test::GraphDesk d;
  AppModel& m = d.m;
  EXPECT_EQ(m.viewedTitle(), "Sortie") << "nothing selected: the output is shown";
  const Uuid color = d.add("color"), blur = d.add("blur"), mask = d.add("mask");
  m.setKey(color, "exposure", 3, 0.1);
  m.setKey(color, "exposure", 40, 0.5);
  m.setKey(color, "saturation", 40, 1.2);
  m.setKey(blur, "size", 7, 4);
  EXPECT_TRUE(m.keyedFrames().empty()) << "nothing selected";
  m.select(blur);
  EXPECT_EQ(m.viewedTitle(), "Blur");
  m.select(color);
  EXPECT_EQ(m.keyedFrames(), (std::set<int>{3, 40})) << "one mark a frame, whatever the parameters";
  m.nodeByID(color)->name = "Fond";
  EXPECT_EQ(m.viewedTitle(), "Fond");
  m.toggleInspectorLock(blur);
  EXPECT_EQ(m.keyedFrames(), (std::set<int>{7})) << "the inspector's node, as the curve editor";
  EXPECT_EQ(m.viewedTitle(), "Fond") << "the inspector elsewhere doesn't change what the viewer shows";
  m.toggleViewLock(mask);
  m.select(blur);
  EXPECT_EQ(m.viewedTitle(), "Masque de forme");
  m.viewWithoutMatte = true;
  EXPECT_EQ(m.viewedTitle(), "Masque de forme · plein cadre, sans alpha");
  EXPECT_EQ(m.viewerBlank().why, ViewerBlank::Why::emptyProject) << "no media yet";

  // Select all takes every node and keeps the inspected one, or gives the inspector one.
  m.select(color);
  m.selectAll();
  EXPECT_EQ(m._selection.size(), m._nodes.size());
  EXPECT_EQ(m._selected, color);
  m.select(std::nullopt);
  m.selectAll();
  EXPECT_EQ(m._selected, m._nodes.front().id);
}

TEST(HelpTopics, EveryTextHasEnglishAndEveryFolderIsTheProgramsOwn) {
  for (const HelpKeyGroup& group : helpKeyGroups()) {
    EXPECT_TRUE(catalogueHasEnglish(group.title)) << group.title;
    EXPECT_FALSE(group.keys.empty()) << group.title;
    for (const HelpKey& key : group.keys) {
      EXPECT_TRUE(catalogueHasEnglish(key.what)) << key.what;
      if (!group.windowWide) {
        EXPECT_TRUE(catalogueHasEnglish(key.keys)) << key.keys;
      }
    }
  }
  TempDir t;
  AppPaths::Inputs in;
  in.home = t.path / "home";
  in.executableDir = t.path / "bin";
  in.sourceRoot = t.path / "repo";
  in.env = [&](const std::string& k) -> std::optional<std::string> {
    if (k == "OMBRIK_SUPPORT") return (t.path / "support").string();
    return std::nullopt;
  };
  const AppPaths paths = AppPaths::resolve(in);
  const auto folders = helpFolders(paths);
  auto where = [&](const std::string& label) {
    for (const auto& f : folders)
      if (label == f.label) return f.path;
    return std::filesystem::path();
  };
  EXPECT_EQ(where("Journaux"), paths.logs);
  EXPECT_EQ(where("Modèles IA"), paths.models);
  EXPECT_EQ(where("Projets"), paths.projectsDir());
  for (const auto& f : folders) EXPECT_TRUE(catalogueHasEnglish(f.label)) << f.label;
}
