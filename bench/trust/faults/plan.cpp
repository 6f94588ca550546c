#include "plan.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace faults {

Plan* Attach() {
  static Plan* const plan = [] {
    const char* name = getenv("ZAT_FAULTS");
    const int fd = name ? ::open(name, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) return static_cast<Plan*>(nullptr);
    void* at = mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    return at == MAP_FAILED ? nullptr : static_cast<Plan*>(at);
  }();
  return plan;
}

} // namespace faults
