// ossreadable.h - how much of the memory around a fault can be read.
//
// A fault may lie at the end of what is mapped, and its registers may hold anything: every address
// here is a number until the memory says that it can be read. Sums of addresses wrap around.
#pragma once

#include <cstdint>

namespace oss {

// What can tell whether memory can be read: the process's own, or a test's.
class Memory {
 public:
  Memory() = default;
  virtual ~Memory() = default;
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  // True when all of these bytes can be read.
  virtual bool isReadable(uint64_t address, uint64_t bytes) const noexcept = 0;
};

// ---- Instructions ----

struct InstructionArea {
  uint64_t address = 0;
  uint32_t bytes = 0;  // 0 to 64

  bool operator==(const InstructionArea&) const = default;
};

// The instructions around the instruction pointer, from 32 bytes in front of it on.
InstructionArea findInstructions(const Memory& memory, uint64_t instructionPointer) noexcept;

// ---- The raw stack ----

// How many 8-byte words of a stack are worth keeping, which may be more than can be read: from the
// stack pointer to the last frame's, that one included, but never less than 8 KiB.
uint64_t wantedStackWords(uint64_t stackPointer, uint64_t lastFrame) noexcept;

// How many of the words from an address on can be read, up to the first that cannot.
uint64_t readableWords(const Memory& memory, uint64_t address, uint64_t words) noexcept;

}  // namespace oss
