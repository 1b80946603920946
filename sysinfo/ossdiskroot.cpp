#include "sysinfo/ossdiskroot.h"

#include <cstring>

#include "ossdisk.h"

namespace oss {
namespace {

bool isLetter(char character) noexcept {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

}  // namespace

void copyAsDirectory(const char* path, char (&root)[kDiskRootBytes]) noexcept {
  size_t length = ::strnlen(path, kDiskPathBytes);
  std::memcpy(root, path, length);
  if (length == 0 || root[length - 1] != '\\') root[length++] = '\\';
  root[length] = '\0';
}

void cutToDriveRoot(char* root) noexcept {
  if (isLetter(root[0]) && root[1] == ':' && root[2] == '\\') root[3] = '\0';
}

uint64_t driveTypeOf(uint32_t systemType) noexcept {
  switch (systemType) {
    case 2: return OSS_DRIVE_REMOVABLE;
    case 3:  // fixed
    case 4:  // remote
    case 5:  // optical
    case 6:  // in memory
      return OSS_DRIVE_STATIONARY;
    default: return 0;
  }
}

}  // namespace oss
