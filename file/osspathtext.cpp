#include "file/osspathtext.h"

#include <algorithm>
#include <cstring>

namespace oss {
namespace {

using namespace std::string_view_literals;

constexpr char kSeparator = '\\';
constexpr size_t kNone = std::string_view::npos;

// Part of a text; the standard's own ways to it check their bounds and would bring the run-time's
// exceptions into the DLL.
std::string_view first(std::string_view text, size_t count) noexcept {
  return {text.data(), count};
}
std::string_view from(std::string_view text, size_t begin) noexcept {
  return {text.data() + begin, text.size() - begin};
}

bool startsWith(std::string_view text, std::string_view start) noexcept {
  return text.size() >= start.size() && first(text, start.size()) == start;
}

// Copies a text and tells where it ends.
char* append(char* place, std::string_view text) noexcept {
  return std::copy(text.begin(), text.end(), place);
}

// The last separator that has something behind it.
size_t lastDividerOf(std::string_view path) noexcept {
  return path.size() < 2 ? kNone : path.rfind(kSeparator, path.size() - 2);
}

// The length of what is never created: "C:\" or "\\server\share\".
size_t rootLengthOf(std::string_view path) noexcept {
  if (startsWith(path, R"(\\)")) {
    size_t end = 0;
    for (int separators = 0; separators < 4 && end < path.size(); ++end)
      if (path[end] == kSeparator) ++separators;
    return end;
  }
  const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return path.size() >= 3 && isLetter(path[0]) && startsWith(from(path, 1), R"(:\)") ? 3 : 0;
}

}  // namespace

bool isDevicePath(std::string_view path) noexcept {
  constexpr auto kDevice = R"(\\.\)"sv;
  if (startsWith(path, R"(\\?\Volume)")) return true;
  if (!startsWith(path, kDevice)) return false;
  return (path.size() > 5 && path[5] == ':') ||
         startsWith(from(path, kDevice.size()), "PhysicalDrive");
}

DirectoryPart directoryPartOf(std::string_view path) noexcept {
  size_t index = lastDividerOf(path);
  // The first byte counts even with nothing behind it.
  if (index == kNone && path[0] == kSeparator) index = 0;
  if (index == kNone) return {"."sv, 0};
  // Deliberate: the terminator of "\" is not counted.
  return {first(path, index == 0 ? 1 : index), index + 1};
}

BasePart basePartOf(std::string_view path) noexcept {
  const size_t divider = lastDividerOf(path);
  const std::string_view text = from(path, divider == kNone ? 0 : divider + 1);
  // Deliberate: "\file" is a root as well.
  const bool isRoot = path[0] == kSeparator && (divider == kNone || divider == 0);
  return {text, text.size() + 1, isRoot};
}

void writeBase(const BasePart& part, char* out) noexcept {
  if (part.isRoot)
    *out++ = kSeparator;
  else
    out = std::remove_copy(part.text.begin(), part.text.end(), out, kSeparator);
  *out = '\0';
}

void copyBounded(std::string_view text, char* out, uint64_t outSize) noexcept {
  if (outSize == 0) return;
  const auto count = static_cast<size_t>(std::min<uint64_t>(text.size(), outSize - 1));
  *append(out, first(text, count)) = '\0';
}

const char* withoutTrailingSeparator(const char* path, char (&buffer)[kPathTextBytes]) noexcept {
  const std::string_view text = path;
  if (text.size() < 2 || text.back() != kSeparator || text[text.size() - 2] == ':') return path;
  if (text.size() > sizeof buffer) return path;
  copyBounded(first(text, text.size() - 1), buffer, sizeof buffer);
  return buffer;
}

bool isSelfOrParent(std::string_view name) noexcept { return name == "." || name == ".."; }

bool joinPath(std::string_view directory, std::string_view name,
              char (&joined)[kPathBytes]) noexcept {
  if (directory.size() + 1 + name.size() >= sizeof joined) return false;
  char* end = append(joined, directory);
  *end++ = kSeparator;
  *append(end, name) = '\0';
  return true;
}

PathWalk::PathWalk(std::string_view path) noexcept : path_(path) { walkTo(rootLengthOf(path)); }

void PathWalk::step() noexcept {
  const size_t separator = path_.find(kSeparator, walked_);
  walkTo(separator == kNone ? path_.size() : separator + 1);
}

void PathWalk::walkTo(size_t end) noexcept {
  append(prefix_ + walked_, from(first(path_, end), walked_));
  walked_ = end;
}

}  // namespace oss
