#pragma once

namespace ombrik {

// The program's version, as the build gives it ("dev" when built without one).
const char* ombrikVersion();

}  // namespace ombrik
