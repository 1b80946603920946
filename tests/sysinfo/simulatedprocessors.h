// simulatedprocessors.h - a machine with processors of any make and number, as their identification
// instruction and the affinity of the process show it.
//
// The thread runs on the lowest processor that it may run on, and moves only when it yields.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

#include "sysinfo/osstopology.h"

namespace osse_test {

// What leaf 1 says of an Intel processor of family 15 that runs several threads on a core.
inline constexpr uint32_t kFamily15 = 0xF29;
inline constexpr uint32_t kMultiThreading = uint32_t{1} << 28;

inline constexpr char kIntel[] = "GenuineIntel";
inline constexpr char kAmd[] = "AuthenticAMD";

// The registers of leaf 0.
inline oss::CpuRegisters vendorRegisters(const char* vendor, uint32_t highestLeaf) {
  oss::CpuRegisters registers = {.eax = highestLeaf};
  std::memcpy(&registers.ebx, vendor, 4);
  std::memcpy(&registers.edx, vendor + 4, 4);
  std::memcpy(&registers.ecx, vendor + 8, 4);
  return registers;
}

class SimulatedProcessors {
 public:
  // `threads` and `cores` of each package, as the processors tell them.
  SimulatedProcessors(uint32_t processors, uint32_t threads, uint32_t cores)
      : mask(processors == 64 ? ~uint64_t{0} : (uint64_t{1} << processors) - 1), affinity_(mask) {
    leaves[0] = vendorRegisters(kIntel, 5);
    leaves[1] = {.eax = kFamily15, .ebx = threads << 16, .edx = kMultiThreading};
    leaves[4] = {.eax = (cores - 1) << 26};
    for (uint32_t number = 0; number < processors; ++number)
      ids.push_back(static_cast<uint8_t>(number));
    current_ = this;
  }
  ~SimulatedProcessors() { current_ = nullptr; }
  SimulatedProcessors(const SimulatedProcessors&) = delete;
  SimulatedProcessors& operator=(const SimulatedProcessors&) = delete;

  std::map<uint32_t, oss::CpuRegisters> leaves;  // the same on every processor but for the id
  std::vector<uint8_t> ids;                      // at the interrupt controller, by processor
  uint64_t mask;                                 // what the system tells as affinity; 0: nothing
  bool offered = true;                           // whether affinity can be changed
  size_t refused = ~size_t{0};                   // which restriction is refused, from 0

  std::vector<uint64_t> restrictions;  // those asked for, in order
  int yields = 0;

  uint64_t affinity() const { return affinity_; }

  // ---- What the topology asks for ----

  bool isOffered() const { return offered; }
  uint64_t readMask() const { return mask; }
  bool restrictTo(uint64_t wanted) {
    const bool granted = restrictions.size() != refused;
    restrictions.push_back(wanted);
    if (granted) affinity_ = wanted;
    return granted;
  }
  void yield() {
    ++yields;
    running_ = static_cast<size_t>(std::countr_zero(affinity_));
  }

  static oss::CpuRegisters cpuid(uint32_t leaf) noexcept {
    const auto found = current_->leaves.find(leaf);
    if (found == current_->leaves.end()) return {};
    oss::CpuRegisters registers = found->second;
    if (leaf == 1) registers.ebx |= uint32_t{current_->ids[current_->running_]} << 24;
    return registers;
  }

  static SimulatedProcessors& current() { return *current_; }

 private:
  static inline SimulatedProcessors* current_ = nullptr;

  uint64_t affinity_;
  size_t running_ = 0;
};

// A walk that is refused nothing: one processor after the other, and all again.
inline std::vector<uint64_t> wholeWalk(uint64_t mask) {
  std::vector<uint64_t> walk;
  for (uint32_t bit = 0; bit < 64; ++bit)
    if (mask >> bit & 1) walk.push_back(uint64_t{1} << bit);
  walk.push_back(mask);
  return walk;
}

}  // namespace osse_test
