// trapparts.h - trap files, made section by section in the test's own memory, by the numbers of
// their layout and not by the records of what is tested.
//
//   TrapParts trap;
//   trap.environment.clear();
//   put<uint32_t>(trap.exception, 0, 0xC0000094);
//   readTrapFile(trap.whole());
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace osse_test {

template <class Value>
void put(std::string& bytes, size_t offset, Value value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}
template <class Value>
Value get(const std::string& bytes, size_t offset) {
  Value value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

inline constexpr uint64_t kStackPointer = 0x12FD40;
inline constexpr uint64_t kFaultAddress = 0x140001020;
inline constexpr uint64_t kWalkFailed = 0xF2A3EBAD;

std::string trapModule(const std::string& name, uint64_t base, uint64_t bytes, uint32_t linked,
                       uint64_t marker = 0);
std::string trapFrame(uint64_t pc, uint64_t returning, uint64_t stack);
// A string of the environment, or its end mark.
std::string trapString(const std::string& text);

// The sections of a file that has all of them: process 4242, thread 17, a write to 0x10 in
// child.exe, called from KT5X.dll.
struct TrapParts {
  TrapParts();

  std::string header, system, environment, exception, context, modules, version;
  std::string instructions, frames, rawStack;  // the stack section
  std::string moduleSection;

  std::string whole() const;
};

}  // namespace osse_test
