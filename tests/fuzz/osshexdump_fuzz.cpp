// Dumps any bytes with any flags into any room. What must hold: the text is the second writer's, it
// stays in its buffer, and no byte outside the region is read.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "osshexdump.h"
#include "tests/fuzz/require.h"
#include "tests/log/osshexdump_text.h"

namespace {

using oss::hexdump_text::expectedDump;
using oss::hexdump_text::expectedLine;

void checkLine(const uint8_t* bytes, size_t count, uint64_t flags) {
  const auto line = std::make_unique<char[]>(OSS_HEXDUMP_LINE);  // its bounds are watched
  const uint64_t length = ossHexDumpLine(line.get(), bytes, count, flags);
  require(length == std::strlen(line.get()));
  require(line.get() == expectedLine(bytes, count, flags));
}

void checkDump(const uint8_t* bytes, size_t length, size_t outSize, const std::string& prefix,
               uint64_t flags) {
  const auto out = std::make_unique<char[]>(outSize);
  const uint64_t written =
      ossHexDumpToBuffer(bytes, length, out.get(), outSize, prefix.c_str(), flags);
  require(outSize != 0 || written == 0);
  if (outSize == 0) return;
  require(written == std::strlen(out.get()));
  require(out.get() == expectedDump(bytes, length, outSize, prefix, flags));
}

}  // namespace

// The first bytes choose the flags, the room and the length of the prefix, which follows; the rest
// is dumped.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const uint64_t flags = data[0];
  const size_t outSize = data[1] | data[2] % 8U << 8;
  const size_t prefixBytes = data[3] < size - 4 ? data[3] : size - 4;
  const std::string prefix = std::string(reinterpret_cast<const char*>(data) + 4, prefixBytes)
                                 .c_str();  // to its first NUL

  // A block of its own, so that no byte around it can be read.
  const size_t length = size - 4 - prefixBytes;
  const auto bytes = std::make_unique<uint8_t[]>(length);
  if (length != 0) std::memcpy(bytes.get(), data + 4 + prefixBytes, length);

  checkLine(bytes.get(), length < 16 ? length : 16, flags);
  checkDump(bytes.get(), length, outSize, prefix, flags);
  return 0;
}
