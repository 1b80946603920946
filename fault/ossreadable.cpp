#include "fault/ossreadable.h"

#include <algorithm>

#include "osstrapfile.h"

namespace oss {
namespace {

constexpr uint64_t kWordBytes = 8;
constexpr uint64_t kPageBytes = 4096;
constexpr uint64_t kBytesInFront = 32;
constexpr uint64_t kLeastStackBytes = 8192;

}  // namespace

InstructionArea findInstructions(const Memory& memory, uint64_t instructionPointer) noexcept {
  const uint64_t wanted = instructionPointer - kBytesInFront;
  const auto reads = [&memory](uint64_t address) { return memory.isReadable(address, kWordBytes); };

  uint64_t moved = 0;
  while (moved <= kBytesInFront && !reads(wanted + moved)) ++moved;
  // Deliberate: where the start cannot be read nothing is captured, although there may be more
  // behind it.
  if (moved > 0) return {wanted + moved, 0};

  uint32_t bytes = OSS_TRAP_MOST_INSTRUCTIONS;
  // The first 8 bytes have been read, and yet another thread may unmap them meanwhile.
  while (bytes > 0 && !reads(wanted + bytes - 1)) --bytes;
  return {wanted, bytes};
}

uint64_t wantedStackWords(uint64_t stackPointer, uint64_t lastFrame) noexcept {
  const uint64_t end = lastFrame + kWordBytes;
  const uint64_t span = end > stackPointer ? end - stackPointer : 0;
  return std::min(std::max(span, kLeastStackBytes) / kWordBytes, OSS_TRAP_MOST_STACK_WORDS);
}

uint64_t readableWords(const Memory& memory, uint64_t address, uint64_t words) noexcept {
  uint64_t count = 0;
  while (count < words) {
    // A page can be read as a whole or not at all, so its words are asked for together; one that
    // reaches into the next page is asked for alone.
    const uint64_t at = address + count * kWordBytes;
    const uint64_t inPage = (kPageBytes - at % kPageBytes) / kWordBytes;
    const uint64_t run = std::min(std::max<uint64_t>(inPage, 1), words - count);
    if (!memory.isReadable(at, run * kWordBytes)) break;
    count += run;
  }
  return count;
}

}  // namespace oss
