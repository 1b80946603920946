#include "memory/ossblock.h"

namespace oss {

std::string_view baseNameOf(const char* path) noexcept {
  if (path == nullptr) return {};
  const char* name = path;
  for (; *path != '\0'; ++path)
    if (*path == '\\' || *path == '/') name = path + 1;
  return {name, static_cast<size_t>(path - name)};
}

uint32_t hashOf(std::string_view baseName) noexcept {
  const char* at = baseName.data();
  size_t left = baseName.size();
  const auto byte = [&at](size_t i) { return uint32_t{static_cast<unsigned char>(at[i])}; };

  uint32_t hash = 0;
  if (left >= 7) hash = (byte(3) << 28 | byte(4) << 21 | byte(5) << 13) + byte(6) * 32;
  for (; left >= 4; left -= 4, at += 4)
    hash ^= byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
  for (size_t i = 0; i < left; ++i) hash ^= byte(i) << (8 * (left - 1 - i));
  return hash;
}

}  // namespace oss
