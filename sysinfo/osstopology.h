// osstopology.h - how many cores a package holds and how many threads a core runs, from what the
// processors tell of themselves.
//
// A package is told from another by the identifiers that its threads have at the interrupt
// controller: all bits but the lowest, which number the threads within it, are the same. Each
// processor knows only its own, so the probe restricts the process to one after the other.
//
// No platform header: the instruction and the affinity of the process are the caller's to bring.
#pragma once

#include <cstdint>

namespace oss {

struct CpuRegisters {
  uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// The identification instruction, for a leaf and its sub-leaf 0, on the processor that the thread
// runs on. All zeros when it faults, which every question here takes as no.
using Cpuid = CpuRegisters (*)(uint32_t leaf) noexcept;

enum class CpuVendor : uint32_t { Other = 0, Intel = 1, Amd = 2 };

struct CpuIdentity {
  CpuVendor vendor = CpuVendor::Other;
  uint32_t highestLeaf = 0;
  uint32_t highestExtendedLeaf = 0;
};
CpuIdentity identify(Cpuid cpuid) noexcept;

// Deliberate: false for every processor of family 6, and of every vendor but Intel.
bool isMultiThreadingCapable(Cpuid cpuid, CpuVendor vendor) noexcept;

uint32_t logicalProcessorsPerPackage(Cpuid cpuid) noexcept;
uint32_t interruptControllerId(Cpuid cpuid) noexcept;

// At least 1.
uint32_t coresPerPackage(Cpuid cpuid, const CpuIdentity& identity) noexcept;

// The bits of an identifier that number the `threads` of a package: at least 1 of them.
uint32_t threadBits(uint32_t threads) noexcept;

// The affinity of the process:
//   bool isOffered()            whether the system lets it be changed
//   uint64_t mask()             the processors of the process, a bit each; 0 when that is not told
//   bool restrictTo(uint64_t)   false when the system refuses
//   void yield()                lets the thread move to where it may run
//
// How many processors of the mask belong to the package of the first; at least 1. The mask is
// restored, whatever happens in between.
template <class Affinity>
uint64_t processorsOfFirstPackage(Cpuid cpuid, Affinity& affinity, uint32_t bits) noexcept {
  constexpr uint32_t kUnknown = ~uint32_t{0};
  const uint64_t mask = affinity.mask();
  uint32_t first = kUnknown;
  uint64_t count = 1;
  for (uint64_t rest = mask; rest != 0; rest &= rest - 1) {
    if (!affinity.restrictTo(rest & (~rest + 1))) break;
    affinity.yield();
    const uint32_t package = interruptControllerId(cpuid) >> bits;
    if (first == kUnknown)
      first = package;
    else if (package == first)
      ++count;
  }
  if (mask != 0) affinity.restrictTo(mask);
  return count;
}

struct Topology {
  CpuIdentity identity;
  uint64_t coresPerPackage = 1;
  uint64_t threadsPerCore = 1;
};

template <class Affinity>
uint64_t countThreadsPerCore(Cpuid cpuid, Affinity& affinity, CpuVendor vendor,
                             uint64_t cores) noexcept {
  if (!affinity.isOffered() || !isMultiThreadingCapable(cpuid, vendor)) return 1;

  const uint32_t threads = logicalProcessorsPerPackage(cpuid);
  // Deliberate: 0 where a package has several cores.
  if (threads < 2) return 1 / cores;
  return processorsOfFirstPackage(cpuid, affinity, threadBits(threads)) / cores;
}

template <class Affinity>
Topology probe(Cpuid cpuid, Affinity& affinity) noexcept {
  Topology topology;
  topology.identity = identify(cpuid);
  topology.coresPerPackage = coresPerPackage(cpuid, topology.identity);
  topology.threadsPerCore =
      countThreadsPerCore(cpuid, affinity, topology.identity.vendor, topology.coresPerPackage);
  return topology;
}

}  // namespace oss
