// ossdiskroot.h - paths and numbers of disks. No platform header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace oss {

// What counts of a path, a separator behind it, and the NUL.
inline constexpr size_t kDiskPathBytes = 262;
inline constexpr size_t kDiskRootBytes = kDiskPathBytes + 2;

// Copies a path, cut to what counts, and gives it a separator at its end.
void copyAsDirectory(const char* path, char (&root)[kDiskRootBytes]) noexcept;

// Cuts the path of a directory on a drive to the drive's root, "C:\".
void cutToDriveRoot(char* root) noexcept;

// What the record tells for a drive type of the system; 0 for one that says nothing.
uint64_t driveTypeOf(uint32_t systemType) noexcept;

}  // namespace oss
