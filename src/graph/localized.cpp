#include "graph/localized.h"

#include "platform/string_catalogue.h"

namespace ombrik {

std::string Localized::value() const { return verbatim ? raw : tr(raw); }

std::vector<std::string> LocalizedList::value() const {
  std::vector<std::string> out;
  out.reserve(raw.size());
  for (const auto& r : raw) out.push_back(tr(r));
  return out;
}

}  // namespace ombrik
