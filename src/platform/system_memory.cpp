#include "platform/system_memory.h"

#include <unistd.h>

namespace ombrik {

std::size_t physicalMemoryBytes() {
  const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
  return pages > 0 && size > 0 ? std::size_t(pages) * std::size_t(size) : std::size_t(8) << 30;
}

}  // namespace ombrik
