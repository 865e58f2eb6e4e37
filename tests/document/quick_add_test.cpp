// The Tab search: every word must be found, names sort the matches, recent kinds lead an empty search.
#include <gtest/gtest.h>

#include <QString>
#include <algorithm>

#include "document/quick_add.h"

using namespace ombrik;

namespace {
bool has(const std::vector<KindRef>& list, std::string_view id) {
  return std::any_of(list.begin(), list.end(), [&](const KindRef& k) { return k->id == id; });
}
}  // namespace

TEST(QuickAdd, EveryTermMustMatchAndNamesSortTheResults) {
  const std::vector<KindRef> blur = quickAddResults("  BLUR ", {});
  ASSERT_FALSE(blur.empty());
  EXPECT_TRUE(has(blur, "blur")) << "the internal name, in any case, blanks trimmed";
  for (std::size_t i = 1; i < blur.size(); ++i)
    EXPECT_LE(QString::localeAwareCompare(QString::fromStdString(blur[i - 1]->title.value()),
                                          QString::fromStdString(blur[i]->title.value())),
              0);
  // Two words narrow the list: each must be found somewhere in the kind's texts.
  const std::vector<KindRef> narrowed = quickAddResults("blur " + blur.front()->category.value(), {});
  EXPECT_LE(narrowed.size(), blur.size());
  for (const KindRef& k : narrowed) EXPECT_TRUE(has(blur, k->id));
  EXPECT_TRUE(quickAddResults("blur zzzz", {}).empty());
  // The shown title finds its kind.
  const KindRef colour = NodeKind::color();
  EXPECT_TRUE(has(quickAddResults(colour->title.value(), {}), "color"));
  // What the browser doesn't offer isn't found.
  EXPECT_FALSE(has(quickAddResults("output", {}), "output"));
}

TEST(QuickAdd, AnEmptySearchListsTheRecentKindsFirst) {
  const std::vector<KindRef> all = quickAddResults("", {});
  const std::vector<KindRef> recent = quickAddResults("", {"glow", "gone-kind", "blur", "glow"});
  ASSERT_EQ(recent.size(), all.size()) << "every kind once, a vanished one left out";
  EXPECT_EQ(recent[0]->id, "glow");
  EXPECT_EQ(recent[1]->id, "blur");
  // The rest keep the catalogue's order.
  std::vector<KindRef> rest;
  for (const KindRef& k : all)
    if (k->id != "glow" && k->id != "blur") rest.push_back(k);
  EXPECT_TRUE(std::equal(rest.begin(), rest.end(), recent.begin() + 2));
}
