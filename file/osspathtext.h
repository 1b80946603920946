// osspathtext.h - paths as text: which part is the directory, the name, the root.
//
// Pure: nothing here asks the system. Paths are bytes that end in a NUL, and the backslash alone
// separates components. Nothing reads behind the NUL or writes behind a buffer's end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace oss {

// The longest path of the system without and with its terminator. Which of them a buffer has, its
// operation decides.
inline constexpr size_t kPathBytes = 260;
inline constexpr size_t kPathTextBytes = kPathBytes + 1;

// "\\.\C:", "\\.\PhysicalDrive0" or "\\?\Volume{...}", in this spelling only.
bool isDevicePath(std::string_view path) noexcept;

// The directory part of a path that is not empty and no device's, and the least size of a buffer
// that it is given to.
struct DirectoryPart {
  std::string_view text;
  uint64_t needed;
};
DirectoryPart directoryPartOf(std::string_view path) noexcept;

// The last component of a path that is not empty, which is written without its backslashes.
struct BasePart {
  std::string_view text;
  uint64_t needed;
  bool isRoot;  // "\" is written instead
};
BasePart basePartOf(std::string_view path) noexcept;
// Writes it; `out` holds at least part.needed bytes.
void writeBase(const BasePart& part, char* out) noexcept;

// Writes as much of the text as fits, and a NUL; nothing into a buffer of no size.
void copyBounded(std::string_view text, char* out, uint64_t outSize) noexcept;

// The path without one backslash at its end, unless a colon stands before that; in the buffer, if
// anything is left away. A path too long for the buffer is no path of the system and stays.
const char* withoutTrailingSeparator(const char* path, char (&buffer)[kPathTextBytes]) noexcept;

// True for the two names that every directory has for itself and the directory around it.
bool isSelfOrParent(std::string_view name) noexcept;

// Puts "directory\name" together. False if it does not fit: a path that is cut names something
// else.
bool joinPath(std::string_view directory, std::string_view name,
              char (&joined)[kPathBytes]) noexcept;

// Steps along a path: "C:\a\b" gives "C:\a\", then "C:\a\b". Its root, a drive's or a share's, is
// never a step of its own.
class PathWalk {
 public:
  static bool canWalk(std::string_view path) noexcept { return path.size() < kPathTextBytes; }

  // The path must be one that canWalk, and outlive the walk.
  explicit PathWalk(std::string_view path) noexcept;

  // A root with nothing behind it.
  bool isBareRoot() const noexcept { return walked_ == path_.size() && walked_ > 0; }

  // Takes the next component; the first step is always taken.
  void step() noexcept;
  bool atEnd() const noexcept { return walked_ == path_.size(); }

  // What is walked so far, up to and including a backslash, or the whole path.
  const char* prefix() const noexcept { return prefix_; }

 private:
  void walkTo(size_t end) noexcept;

  std::string_view path_;
  size_t walked_ = 0;
  char prefix_[kPathTextBytes] = {};
};

}  // namespace oss
