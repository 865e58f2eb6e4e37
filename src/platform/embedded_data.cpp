#include "platform/embedded_data.h"

extern const unsigned char ombrik_node_kinds_json[];
extern const unsigned long ombrik_node_kinds_json_size;
extern const unsigned char ombrik_user_defaults_json[];
extern const unsigned long ombrik_user_defaults_json_size;
extern const unsigned char ombrik_catalogue_en_json[];
extern const unsigned long ombrik_catalogue_en_json_size;

namespace ombrik {

namespace {
std::string_view view(const unsigned char* data, unsigned long size) {
  return {reinterpret_cast<const char*>(data), size};
}
}  // namespace

std::string_view embeddedNodeKindsJson() { return view(ombrik_node_kinds_json, ombrik_node_kinds_json_size); }
std::string_view embeddedUserDefaultsJson() { return view(ombrik_user_defaults_json, ombrik_user_defaults_json_size); }
std::string_view embeddedCatalogueEnJson() { return view(ombrik_catalogue_en_json, ombrik_catalogue_en_json_size); }

}  // namespace ombrik
