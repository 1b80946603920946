// Cores and threads of machines of other makes and sizes than this one.
#include "sysinfo/osstopology.h"

#include <gmock/gmock.h>

#include "sysinfo/simulatedprocessors.h"

using namespace osse_test;
using namespace oss;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The affinity of the simulated machine, by the names that the topology knows.
struct Affinity {
  bool isOffered() const { return machine.isOffered(); }
  uint64_t mask() const { return machine.readMask(); }
  bool restrictTo(uint64_t wanted) const { return machine.restrictTo(wanted); }
  void yield() const { machine.yield(); }

  SimulatedProcessors& machine;
};

Topology probeOf(SimulatedProcessors& machine) {
  Affinity affinity{machine};
  return probe(&SimulatedProcessors::cpuid, affinity);
}

// ---- What the instruction tells ----

TEST(CpuIdentity, NamesTwoVendorsAndTheHighestLeaves) {
  SimulatedProcessors machine(1, 1, 1);
  machine.leaves[0x80000000] = {.eax = 0x80000004};
  const struct {
    const char* name;
    CpuVendor vendor;
  } cases[] = {{kIntel, CpuVendor::Intel},
               {kAmd, CpuVendor::Amd},
               {"CentaurHauls", CpuVendor::Other},
               {"GenuineIntfl", CpuVendor::Other},
               {"genuineIntel", CpuVendor::Other}};
  for (const auto& each : cases) {
    machine.leaves[0] = vendorRegisters(each.name, 22);
    const CpuIdentity identity = probeOf(machine).identity;
    EXPECT_EQ(identity.vendor, each.vendor) << each.name;
    EXPECT_EQ(identity.highestLeaf, 22u);
    EXPECT_EQ(identity.highestExtendedLeaf, 0x80000004u);
  }
  EXPECT_EQ(static_cast<uint32_t>(CpuVendor::Intel), 1u);
  EXPECT_EQ(static_cast<uint32_t>(CpuVendor::Amd), 2u);
}

// Deliberate: current processors are of family 6 or another vendor's, and so are not capable.
TEST(MultiThreading, NeedsFamily15OrAnExtendedFamilyIntelAndTheFeature) {
  SimulatedProcessors machine(1, 1, 1);
  const auto isCapable = [&](uint32_t eax, uint32_t edx, CpuVendor vendor) {
    machine.leaves[1] = {.eax = eax, .edx = edx};
    return isMultiThreadingCapable(&SimulatedProcessors::cpuid, vendor);
  };
  constexpr uint32_t kAnything = 0xFFFFFFFF;
  EXPECT_TRUE(isCapable(0x00000F00, kMultiThreading, CpuVendor::Intel));
  EXPECT_TRUE(isCapable(0x00100600, kMultiThreading, CpuVendor::Intel));
  EXPECT_TRUE(isCapable(kAnything, kAnything, CpuVendor::Intel));
  EXPECT_FALSE(isCapable(0x000906EA, kAnything, CpuVendor::Intel));
  EXPECT_FALSE(isCapable(0x00000E00, kAnything, CpuVendor::Intel));
  EXPECT_FALSE(isCapable(0xFF0FF0FF, kAnything, CpuVendor::Intel));
  EXPECT_FALSE(isCapable(0x00000F00, ~kMultiThreading, CpuVendor::Intel));
  EXPECT_FALSE(isCapable(0x00800F12, kAnything, CpuVendor::Amd));
  EXPECT_FALSE(isCapable(0x00000F00, kAnything, CpuVendor::Other));
}

TEST(LeafOne, HoldsThreadsAndIdentifierInAByteEach) {
  SimulatedProcessors machine(1, 1, 1);
  machine.ids = {0xC3};
  machine.leaves[1] = {.ebx = 0x00A5FFFF};
  EXPECT_EQ(logicalProcessorsPerPackage(&SimulatedProcessors::cpuid), 0xA5u);
  EXPECT_EQ(interruptControllerId(&SimulatedProcessors::cpuid), 0xC3u);
}

TEST(CoresPerPackage, AreTheVendorsOwnLeafWhereThereIsOne) {
  SimulatedProcessors machine(1, 1, 1);
  machine.leaves[4] = {.eax = 0xFFFFFFFF};
  machine.leaves[0x80000008] = {.ecx = 0xFFFFFFFF};
  const auto cores = [](const CpuIdentity& identity) {
    return coresPerPackage(&SimulatedProcessors::cpuid, identity);
  };
  EXPECT_EQ(cores({CpuVendor::Intel, 4, 0}), 64u);
  EXPECT_EQ(cores({CpuVendor::Intel, 3, 0x80000008}), 1u);
  EXPECT_EQ(cores({CpuVendor::Amd, 0, 0x80000008}), 256u);
  EXPECT_EQ(cores({CpuVendor::Amd, 4, 0x80000007}), 1u);
  EXPECT_EQ(cores({CpuVendor::Other, 4, 0x80000008}), 1u);

  machine.leaves[4] = {.eax = 0x07FFFFFF};
  machine.leaves[0x80000008] = {.ecx = 0x00007007};
  EXPECT_EQ(cores({CpuVendor::Intel, 4, 0}), 2u);
  EXPECT_EQ(cores({CpuVendor::Amd, 0, 0x80000008}), 8u);
}

TEST(ThreadBits, AreTheDoublingsThatReachTheNumberOfThreads) {
  const struct {
    uint32_t threads, bits;
  } cases[] = {{1, 0}, {2, 1}, {3, 2},   {4, 2},   {5, 3},
               {8, 3}, {9, 4}, {128, 7}, {129, 8}, {255, 8}};
  for (const auto& each : cases) EXPECT_EQ(threadBits(each.threads), each.bits) << each.threads;
}

// ---- The walk over the processors ----

TEST(Topology, OfMachinesFromOneProcessorToSixtyFour) {
  const struct {
    uint32_t processors, threads, cores;
    uint64_t threadsPerCore;
  } cases[] = {
      {1, 2, 1, 1},     // one of two threads is switched off
      {2, 2, 1, 2},     // one core
      {2, 2, 2, 1},     // two cores
      {4, 2, 1, 2},     // two packages of one core
      {4, 4, 2, 2},     // two cores of one package
      {4, 3, 1, 4},     // three threads need as many bits as four
      {64, 8, 4, 2},    // eight packages
      {64, 64, 32, 2},  // one
      {64, 2, 1, 2},    // thirty-two
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << each.processors << " processors, " << each.threads
                                    << " threads, " << each.cores << " cores");
    SimulatedProcessors machine(each.processors, each.threads, each.cores);
    const Topology topology = probeOf(machine);
    EXPECT_EQ(topology.threadsPerCore, each.threadsPerCore);
    EXPECT_EQ(topology.coresPerPackage, each.cores);
    EXPECT_EQ(machine.restrictions, wholeWalk(machine.mask));
    EXPECT_EQ(machine.yields, static_cast<int>(each.processors));
    EXPECT_EQ(machine.affinity(), machine.mask);
  }
}

TEST(Topology, OnlyTheProcessorsOfTheMaskAreVisited) {
  SimulatedProcessors machine(64, 4, 1);
  machine.mask = 0x8000000000000C02;
  machine.ids[1] = 2;
  machine.ids[10] = 3;
  machine.ids[11] = 4;
  machine.ids[63] = 0;
  EXPECT_EQ(probeOf(machine).threadsPerCore, 3u);
  EXPECT_THAT(machine.restrictions,
              ElementsAre(0x2u, 0x400u, 0x800u, 0x8000000000000000u, 0x8000000000000C02u));
}

TEST(Topology, ARefusedStepEndsTheWalkAndTheAffinityIsRestored) {
  for (const size_t refused : {0u, 1u, 2u, 3u}) {
    SimulatedProcessors machine(4, 4, 1);
    machine.refused = refused;
    EXPECT_EQ(probeOf(machine).threadsPerCore, refused == 0 ? 1 : refused);
    EXPECT_EQ(machine.restrictions.size(), refused + 2);
    EXPECT_EQ(machine.restrictions.back(), 0xFu);
    EXPECT_EQ(machine.affinity(), 0xFu);
    EXPECT_EQ(machine.yields, static_cast<int>(refused));
  }
}

TEST(Topology, AnAffinityThatIsNotToldIsNotChanged) {
  SimulatedProcessors machine(4, 4, 2);
  machine.mask = 0;
  EXPECT_EQ(probeOf(machine).threadsPerCore, 0u);
  EXPECT_THAT(machine.restrictions, IsEmpty());

  machine.leaves[4] = {};
  EXPECT_EQ(probeOf(machine).threadsPerCore, 1u);
}

TEST(Topology, WithoutAffinityOrMultiThreadingACoreRunsOneThread) {
  SimulatedProcessors machine(4, 4, 2);
  machine.offered = false;
  EXPECT_EQ(probeOf(machine).threadsPerCore, 1u);
  EXPECT_EQ(probeOf(machine).coresPerPackage, 2u);

  machine.offered = true;
  machine.leaves[1].edx = 0;
  EXPECT_EQ(probeOf(machine).threadsPerCore, 1u);
  EXPECT_THAT(machine.restrictions, IsEmpty());
}

// Deliberate: one is divided by the cores.
TEST(Topology, APackageOfLessThanTwoThreadsHasNoneACoreWhenItHasSeveralCores) {
  for (const uint32_t threads : {0u, 1u}) {
    SimulatedProcessors one(2, threads, 1);
    EXPECT_EQ(probeOf(one).threadsPerCore, 1u);
    EXPECT_THAT(one.restrictions, IsEmpty());
    SimulatedProcessors two(2, threads, 2);
    EXPECT_EQ(probeOf(two).threadsPerCore, 0u);
    EXPECT_THAT(two.restrictions, IsEmpty());
  }
}

// It answers with zeros.
TEST(Topology, AnInstructionThatFaultsMeansOneThreadAndOneCore) {
  SimulatedProcessors machine(2, 2, 2);
  machine.leaves.clear();
  machine.ids = {0, 0};
  const Topology topology = probeOf(machine);
  EXPECT_EQ(topology.identity.vendor, CpuVendor::Other);
  EXPECT_EQ(topology.threadsPerCore, 1u);
  EXPECT_EQ(topology.coresPerPackage, 1u);
  EXPECT_THAT(machine.restrictions, IsEmpty());
}

}  // namespace
