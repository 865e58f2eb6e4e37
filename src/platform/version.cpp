#include "platform/version.h"

#ifndef OMBRIK_VERSION
#define OMBRIK_VERSION "dev"
#endif

namespace ombrik {

const char* ombrikVersion() { return OMBRIK_VERSION; }

}  // namespace ombrik
