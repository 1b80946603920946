// The memory of the dump reader where the library's allocator is not built. Sanitizers watch its
// bounds.
#include <cstdlib>

#include "osscatalog.h"
#include "trace/dumpsource.h"

namespace oss {

OSSErr allocateDumpBuffer(uint64_t size, void** out) noexcept {
  *out = std::malloc(size);
  return *out != nullptr ? ECF_OK : ECF_NO_MEMORY;
}

void releaseDumpBuffer(void* buffer) noexcept { std::free(buffer); }

}  // namespace oss
