#pragma once
#include <cstddef>

namespace ombrik {
// The machine's physical memory in bytes (8 GiB when the system won't say); caches size from it.
std::size_t physicalMemoryBytes();
}  // namespace ombrik
