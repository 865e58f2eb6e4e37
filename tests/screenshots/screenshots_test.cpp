// Every view of the window shot in French and in English on a real X server (Xvfb), saved under
// <build>/screenshots for people to look at; a view that cannot be shown fails. Adding a view is
// one row.
#include "screenshot_views.h"

using namespace ombrik;

namespace {

struct View {
  const char* name;
  void (*setUp)(test::Shot&);
  bool bilingual = true;  // false: shot once, in the process's language, its pictures named without one
};

const View kViews[] = {
    {"example_world", test::exampleWorldView, false},
    {"clip_and_wipe", test::clipAndWipeView, false},
    {"mask_tools", test::maskToolsView},
    {"render", test::renderView},
    {"worlds_panel", test::worldsPanelView},
    {"first_hour", test::firstHourView},
    {"imported_clip", test::importedClipView},
    {"unconnected_node", test::unconnectedNodeView},
    {"ai_panels", test::aiPanelsView},
    {"inspector", test::inspectorView},
    {"curve_editor", test::curveEditorView},
    {"timeline", test::timelineView},
    {"node_editor", test::nodeEditorView},
    {"groups", test::groupsView},
    {"my_nodes", test::myNodesView},
};

struct Case {
  const View* view;
  AppLanguage language;
};

std::vector<Case> cases() {
  std::vector<Case> out;
  for (const View& v : kViews)
    if (v.bilingual)
      for (AppLanguage language : {AppLanguage::french, AppLanguage::english}) out.push_back({&v, language});
    else
      out.push_back({&v, interfaceLanguage()});
  return out;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.view->name << " " << c.language.code(); }

struct Screenshots : ::testing::TestWithParam<Case> {};

TEST_P(Screenshots, ViewIsShownAndSaved) {
  test::Shot shot(GetParam().language, GetParam().view->bilingual);
  GetParam().view->setUp(shot);
}

INSTANTIATE_TEST_SUITE_P(Views, Screenshots, ::testing::ValuesIn(cases()), [](const auto& info) {
  std::string name = info.param.view->name;
  if (info.param.view->bilingual) name.append("_").append(info.param.language.code());
  return name;
});

}  // namespace
