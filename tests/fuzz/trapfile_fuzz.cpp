// Reads trap files of any bytes, and a whole one that was damaged and cut. What must hold: nothing
// outside the bytes is read; sections lie behind each other; the JSON parses, and the text has no
// control characters; every reference in the minidump stays inside it.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "tests/fuzz/require.h"
#include "tests/tools/trapparts.h"
#include "trap/minidump.h"
#include "trap/showtext.h"

namespace {

using namespace oss::tool;

// A file of few words on its stack: more of them teach nothing, and cost time.
std::string smallFile() {
  constexpr uint64_t kWords = 16;
  osse_test::TrapParts parts;
  osse_test::put<uint64_t>(parts.rawStack, 0, kWords);
  parts.rawStack.resize((kWords + 1) * sizeof(uint64_t));
  return parts.whole();
}

// Takes four bytes a change: where, what, and how.
std::string damaged(const uint8_t* data, size_t size) {
  static const std::string kWhole = smallFile();
  std::string file = kWhole;
  for (; size >= 4; data += 4, size -= 4) {
    const size_t at = (data[0] | static_cast<size_t>(data[1]) << 8) % file.size();
    if (data[3] == 0) {
      file.resize(at + 1);
    } else if (data[3] < 8) {
      file.erase(at, data[2]);
      if (file.empty()) return file;
    } else {
      file[at] = static_cast<char>(data[2]);
    }
  }
  return file;
}

void checkPlaces(const TrapFile& trap, size_t size) {
  uint64_t behind = 0;
  for (const TrapFile::Place& place : trap.places) {
    require(place.offset >= behind);
    behind = place.offset + place.bytes;
  }
  require(behind <= size);
}

void checkText(const TrapFile& trap) {
  const TrapDocument document = describe(trap);
  require(TrapDocument::parse(document.dump()) == document);
  std::string text;
  Output output(
      [](void* target, const char* bytes, size_t count) {
        static_cast<std::string*>(target)->append(bytes, count);
        return true;
      },
      &text);
  writeText(document, true, output);
  output.flush();
  for (const char c : text) require(c == '\n' || static_cast<unsigned char>(c) >= ' ');
}

void checkMinidump(const TrapFile& trap) {
  const std::string dump = minidumpOf(trap);
  const auto streams = osse_test::get<uint32_t>(dump, 8);
  const auto directory = osse_test::get<uint32_t>(dump, 12);
  require(directory + 12 * streams == dump.size());
  for (uint32_t i = 0; i < streams; ++i) {
    const uint64_t bytes = osse_test::get<uint32_t>(dump, directory + 12 * i + 4);
    require(bytes + osse_test::get<uint32_t>(dump, directory + 12 * i + 8) <= directory);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string file = data[0] % 4 != 0 ? damaged(data + 1, size - 1)
                                      : std::string(reinterpret_cast<const char*>(data), size);
  if (data[0] % 8 == 0) file.insert(0, "*TPHDE64");
  // A block of its own, so that no byte behind it can be read.
  const auto block = std::make_unique<char[]>(file.size());
  std::memcpy(block.get(), file.data(), file.size());
  const std::optional<TrapFile> trap = readTrapFile({block.get(), file.size()});
  if (!trap) return 0;
  checkPlaces(*trap, file.size());
  // The text takes most of the time.
  if (data[0] % 16 < 3) checkText(*trap);
  checkMinidump(*trap);
  return 0;
}
