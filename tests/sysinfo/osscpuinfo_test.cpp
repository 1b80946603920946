// The topology probe where it meets the system: what it looks up, and what it leaves behind.
#include "sysinfo/osscpuinfo.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <optional>

#include "harness/importhook.h"
#include "sysinfo/osscpuid.h"
#include "sysinfo/simulatedprocessors.h"

using namespace osse_test;
using namespace testing;

namespace {

BOOL WINAPI getMask(HANDLE process, DWORD_PTR* ofProcess, DWORD_PTR* ofSystem) {
  EXPECT_EQ(process, ::GetCurrentProcess());
  *ofProcess = SimulatedProcessors::current().readMask();
  *ofSystem = ~DWORD_PTR{0};
  return *ofProcess != 0;
}
BOOL WINAPI setMask(HANDLE process, DWORD_PTR mask) {
  EXPECT_EQ(process, ::GetCurrentProcess());
  return SimulatedProcessors::current().restrictTo(mask);
}

// The probe on a simulated machine: the instruction is its own, the system answers for it.
class TopologyProbe : public Test {
 protected:
  oss::Topology probe(SimulatedProcessors& machine) {
    looked_.clear();
    ImportHook lookUp("GetProcAddress", [this](Call& call) -> void* {
      const std::string name = call.argument<const char*>(1);
      looked_.push_back(name);
      if (name == missing_) return nullptr;
      return name == "GetProcessAffinityMask" ? reinterpret_cast<void*>(&getMask)
                                              : reinterpret_cast<void*>(&setMask);
    });
    std::optional<ImportHook> sleep;
    if (missing_.empty() && machine.refused != 0)
      sleep.emplace("Sleep", [&](Call& call) {
        EXPECT_EQ(call.argument<DWORD>(0), 0u);
        machine.yield();
      });
    return oss::probeTopology(&SimulatedProcessors::cpuid);
  }

  std::vector<std::string> looked_;
  std::string missing_;
};

TEST_F(TopologyProbe, VisitsEachProcessorOnceAndRestoresTheAffinity) {
  for (const uint32_t processors : {1u, 2u, 4u, 64u}) {
    SimulatedProcessors machine(processors, 2, 1);
    const oss::Topology topology = probe(machine);
    EXPECT_EQ(topology.threadsPerCore, processors == 1 ? 1u : 2u);
    EXPECT_EQ(topology.coresPerPackage, 1u);
    EXPECT_EQ(machine.restrictions, wholeWalk(machine.mask));
    EXPECT_EQ(machine.yields, static_cast<int>(processors));
    EXPECT_EQ(machine.affinity(), machine.mask);
    EXPECT_THAT(looked_, ElementsAre("GetProcessAffinityMask", "SetProcessAffinityMask"));
  }
}

TEST_F(TopologyProbe, RestoresTheAffinityWhenAStepIsRefused) {
  for (const uint32_t processors : {2u, 4u, 64u}) {
    SimulatedProcessors machine(processors, 64, 1);
    machine.refused = processors / 2;
    EXPECT_EQ(probe(machine).threadsPerCore, processors / 2);
    EXPECT_EQ(machine.restrictions.size(), processors / 2 + 2);
    EXPECT_EQ(machine.affinity(), machine.mask);
  }
}

TEST_F(TopologyProbe, RestoresTheAffinityOfAMachineWhoseOnlyProcessorIsRefused) {
  SimulatedProcessors machine(1, 2, 1);
  machine.refused = 0;
  EXPECT_EQ(probe(machine).threadsPerCore, 1u);
  EXPECT_EQ(machine.restrictions.size(), 2u);
  EXPECT_EQ(machine.affinity(), machine.mask);
}

TEST_F(TopologyProbe, WithoutEitherFunctionACoreRunsOneThread) {
  for (const char* const name : {"GetProcessAffinityMask", "SetProcessAffinityMask"}) {
    missing_ = name;
    SimulatedProcessors machine(2, 2, 1);
    EXPECT_EQ(probe(machine).threadsPerCore, 1u);
    EXPECT_THAT(machine.restrictions, IsEmpty());
  }
}

// What is loaded is freed, and what is not is not.
TEST_F(TopologyProbe, LoadsItsModuleOnlyWhereItIsNotLoadedAndThenFreesIt) {
  const HMODULE kernel = ::GetModuleHandleA("KERNEL32");
  ASSERT_NE(kernel, nullptr);
  {
    CallCounter loads("LoadLibraryA"), frees("FreeLibrary");
    SimulatedProcessors machine(2, 2, 1);
    EXPECT_EQ(probe(machine).threadsPerCore, 2u);
    EXPECT_EQ(loads.calls(), 0);
    EXPECT_EQ(frees.calls(), 0);
  }
  // The program's own calls come through the same table.
  const auto asks = [](Call& call) {
    const char* const name = call.argument<const char*>(0);
    return name != nullptr && std::strcmp(name, "KERNEL32") == 0;
  };
  ImportHook notLoaded("GetModuleHandleA",
                       [&](Call& call) -> Word { return asks(call) ? 0 : call.passOn(); });
  {
    ImportHook loads("LoadLibraryA", [&](Call& call) {
      EXPECT_TRUE(asks(call));
      return kernel;
    });
    ImportHook frees("FreeLibrary", [&](Call& call) {
      EXPECT_EQ(call.argument<HMODULE>(0), kernel);
      return TRUE;
    });
    SimulatedProcessors machine(2, 2, 1);
    EXPECT_EQ(probe(machine).threadsPerCore, 2u);
    EXPECT_EQ(loads.calls(), 1);
    EXPECT_EQ(frees.calls(), 1);
  }
  FailingCall fails("LoadLibraryA", ERROR_MOD_NOT_FOUND);
  CallCounter frees("FreeLibrary");
  SimulatedProcessors machine(2, 2, 1);
  EXPECT_EQ(oss::probeTopology(&SimulatedProcessors::cpuid).threadsPerCore, 1u);
  EXPECT_THAT(machine.restrictions, IsEmpty());
  EXPECT_EQ(frees.calls(), 0);
}

// ---- This machine ----

TEST_F(TopologyProbe, LeavesTheAffinityOfThisProcessAsItWas) {
  DWORD_PTR before = 0, after = 0, ofSystem = 0;
  ASSERT_TRUE(::GetProcessAffinityMask(::GetCurrentProcess(), &before, &ofSystem));
  // A processor that makes the probe walk over the real ones.
  SimulatedProcessors machine(64, 64, 1);
  const oss::Topology topology = oss::probeTopology(&SimulatedProcessors::cpuid);
  // The simulated thread does not move: every processor is of one package.
  EXPECT_EQ(topology.threadsPerCore, static_cast<uint64_t>(std::popcount(before)));
  ASSERT_TRUE(::GetProcessAffinityMask(::GetCurrentProcess(), &after, &ofSystem));
  EXPECT_EQ(after, before);
}

// The instruction also answers to the compiler's own way of asking.
TEST(CpuId, AnswersAsTheProcessorDoes) {
  for (const uint32_t leaf : {0u, 4u, 0x80000000u}) {
    uint32_t eax = leaf, ebx = 0, ecx = 0, edx = 0;
    __asm__ volatile("cpuid" : "+a"(eax), "=b"(ebx), "+c"(ecx), "=d"(edx));
    const oss::CpuRegisters registers = oss::cpuid(leaf);
    EXPECT_EQ(registers.ebx, ebx);
    EXPECT_EQ(registers.ecx, ecx);
    EXPECT_EQ(registers.edx, edx);
    // The threads that share a cache are not the same for each of a machine's processors.
    if (leaf != 4) {
      EXPECT_EQ(registers.eax, eax);
    }
  }
}

TEST(CpuId, AFaultIsTold) {
  EXPECT_EQ(ossCpuidInto(0, nullptr), 0);
  oss::CpuRegisters registers;
  EXPECT_EQ(ossCpuidInto(0, &registers), 1);
  EXPECT_NE(registers.ebx, 0u);
}

}  // namespace
