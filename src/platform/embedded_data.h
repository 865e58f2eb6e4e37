#pragma once
// The JSON tables linked into the program (see cmake/EmbedFiles.cmake).
#include <string_view>

namespace ombrik {

std::string_view embeddedNodeKindsJson();
std::string_view embeddedUserDefaultsJson();
std::string_view embeddedCatalogueEnJson();

}  // namespace ombrik
