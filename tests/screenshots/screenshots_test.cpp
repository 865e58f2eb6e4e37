// Every view of the window shot in French and in English on a real X server (Xvfb), saved under
// <build>/screenshots for people to look at; a view that cannot be shown fails. Adding a view is
// one row.
#include "screenshot_views.h"

using namespace ombrik;

namespace {

struct View {
  const char* name;
  void (*setUp)(test::Shot&);
};
void PrintTo(const View& v, std::ostream* os) { *os << v.name; }

const View kViews[] = {
    {"example_world", test::exampleWorldView}, {"clip", test::clipView},
    {"worlds", test::worldsView},              {"blank_project", test::blankProjectView},
    {"ai_panels", test::aiPanelsView},         {"timeline", test::timelineView},
    {"node_editor", test::nodeEditorView},
};

struct Screenshots : ::testing::TestWithParam<std::tuple<View, AppLanguage>> {};

TEST_P(Screenshots, ViewIsShownAndSaved) {
  test::Shot shot(std::get<1>(GetParam()));
  std::get<0>(GetParam()).setUp(shot);
}

INSTANTIATE_TEST_SUITE_P(Views, Screenshots,
                         ::testing::Combine(::testing::ValuesIn(kViews), ::testing::Values(AppLanguage::french, AppLanguage::english)),
                         [](const auto& info) { return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).code(); });

}  // namespace

namespace ombrik {
void PrintTo(const AppLanguage& language, std::ostream* os) { *os << language.code(); }
}  // namespace ombrik
