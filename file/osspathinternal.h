// osspathinternal.h - operations on paths that the library keeps to itself. They are traced and
// logged under their own identifiers like exported ones. Paths are never null, except where a line
// says so.
#pragma once

#include "osstypes.h"

namespace oss {

// True for a path of a device or a volume; a null path is none.
bool ossIsNTVolume(const char* path) noexcept;

// Removes an empty directory: probe 30.
OSSErr oss_directory_delete(const char* path) noexcept;

// Removes a directory and all that is in it: probes 10 ("NUL"), 70 (no directory), 50 and 60 (its
// listing), 20 (a directory in it), 40 (a file in it), 80 (a path that is too long), 30 (itself).
OSSErr oss_directory_delete_recursive(const char* path) noexcept;

// Copies a file, never over an existing one: probe 10.
OSSErr oss_copy(const char* from, const char* to) noexcept;

}  // namespace oss
