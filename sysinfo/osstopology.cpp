#include "sysinfo/osstopology.h"

#include <bit>
#include <cstring>

namespace oss {
namespace {

constexpr uint32_t kVendorLeaf = 0;
constexpr uint32_t kFeatureLeaf = 1;
constexpr uint32_t kCacheLeaf = 4;
constexpr uint32_t kExtendedLeaf = 0x80000000;
constexpr uint32_t kExtendedSizeLeaf = 0x80000008;

// Leaf 1.
constexpr uint32_t kFamily = 0xF00;
constexpr uint32_t kExtendedFamily = 0xF00000;
constexpr uint32_t kMultiThreading = uint32_t{1} << 28;

// The text lies in EBX, EDX and ECX, in this order.
bool isVendor(const CpuRegisters& registers, const char (&text)[13]) noexcept {
  const uint32_t words[] = {registers.ebx, registers.edx, registers.ecx};
  return std::memcmp(words, text, sizeof words) == 0;
}

}  // namespace

CpuIdentity identify(Cpuid cpuid) noexcept {
  const CpuRegisters registers = cpuid(kVendorLeaf);
  CpuIdentity identity;
  if (isVendor(registers, "GenuineIntel")) identity.vendor = CpuVendor::Intel;
  if (isVendor(registers, "AuthenticAMD")) identity.vendor = CpuVendor::Amd;
  identity.highestLeaf = registers.eax;
  identity.highestExtendedLeaf = cpuid(kExtendedLeaf).eax;
  return identity;
}

bool isMultiThreadingCapable(Cpuid cpuid, CpuVendor vendor) noexcept {
  const CpuRegisters registers = cpuid(kFeatureLeaf);
  if ((registers.eax & kFamily) < kFamily && (registers.eax & kExtendedFamily) == 0) return false;
  return vendor == CpuVendor::Intel && (registers.edx & kMultiThreading) != 0;
}

uint32_t logicalProcessorsPerPackage(Cpuid cpuid) noexcept {
  return cpuid(kFeatureLeaf).ebx >> 16 & 0xFF;
}

uint32_t interruptControllerId(Cpuid cpuid) noexcept { return cpuid(kFeatureLeaf).ebx >> 24; }

uint32_t coresPerPackage(Cpuid cpuid, const CpuIdentity& identity) noexcept {
  if (identity.vendor == CpuVendor::Intel && identity.highestLeaf >= kCacheLeaf)
    return (cpuid(kCacheLeaf).eax >> 26) + 1;
  if (identity.vendor == CpuVendor::Amd && identity.highestExtendedLeaf >= kExtendedSizeLeaf)
    return (cpuid(kExtendedSizeLeaf).ecx & 0xFF) + 1;
  return 1;
}

uint32_t threadBits(uint32_t threads) noexcept {
  return static_cast<uint32_t>(std::bit_width(threads - 1));
}

}  // namespace oss
