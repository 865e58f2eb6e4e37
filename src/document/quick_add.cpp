#include "document/quick_add.h"

#include <QString>
#include <QStringList>
#include <algorithm>

namespace ombrik {

namespace {
QString folded(const std::string& s) { return QString::fromStdString(s).toLower(); }

// What can be added: every kind the categories offer, in their order, then the user's own.
std::vector<KindRef> offered(const std::vector<KindRef>& own) {
  std::vector<KindRef> kinds;
  for (const KindCategory& c : NodeKind::categories()) kinds.insert(kinds.end(), c.kinds.begin(), c.kinds.end());
  kinds.insert(kinds.end(), own.begin(), own.end());
  return kinds;
}
}  // namespace

std::vector<KindRef> quickAddResults(std::string_view query, const std::vector<std::string>& recents,
                                     const std::vector<KindRef>& own) {
  const std::vector<KindRef> all = offered(own);
  const QStringList terms =
      QString::fromUtf8(query.data(), qsizetype(query.size())).trimmed().toLower().split(' ', Qt::SkipEmptyParts);
  std::vector<KindRef> out;
  if (terms.isEmpty()) {
    for (const std::string& id : recents)
      for (const KindRef& k : all)
        if (k->id == id && std::find(out.begin(), out.end(), k) == out.end()) out.push_back(k);
    for (const KindRef& k : all)
      if (std::find(out.begin(), out.end(), k) == out.end()) out.push_back(k);
    return out;
  }
  for (const KindRef& k : all) {
    // Shown texts in the running language, so that the artist finds a kind by what they read.
    const QString text = folded(k->title.value() + " " + k->category.value() + " " + k->info.value() + " " + k->id);
    if (std::all_of(terms.begin(), terms.end(), [&](const QString& t) { return text.contains(t); })) out.push_back(k);
  }
  std::stable_sort(out.begin(), out.end(), [](const KindRef& a, const KindRef& b) {
    return QString::localeAwareCompare(QString::fromStdString(a->title.value()), QString::fromStdString(b->title.value())) < 0;
  });
  return out;
}

}  // namespace ombrik
