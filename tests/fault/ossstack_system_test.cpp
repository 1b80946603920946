// Stacks as return addresses, steps of a walk, and the modules of the process.
#include <gmock/gmock.h>
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <algorithm>

#include "fault/fakedebughelp.h"
#include "harness/startline.h"
#include "ossfault.h"
#include "ossprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

uint64_t addressOf(const void* code) { return reinterpret_cast<uint64_t>(code); }

// ---- A real stack ----

constexpr size_t kDepth = 12;

// What a walk through a chain of calls finds, and where each call returns to as it knows itself.
struct Chain {
  std::vector<uint64_t> returns;  // innermost first
  std::vector<uint64_t> found;
  uint64_t skip = 0;
};

[[gnu::noinline]] void innermost(Chain& chain) {
  chain.returns.insert(chain.returns.begin(), addressOf(__builtin_return_address(0)));
  EXPECT_EQ(ossWalkStackCollect(chain.skip, chain.found.data(), chain.found.size()),
            chain.found.size());
}

// Each depth is a function of its own, with a frame of its own size.
template <size_t Depth>
[[gnu::noinline]] void call(Chain& chain) {
  [[maybe_unused]] volatile char frame[Depth * 24 + 1];
  frame[Depth] = 1;
  chain.returns.insert(chain.returns.begin(), addressOf(__builtin_return_address(0)));
  if constexpr (Depth < kDepth)
    call<Depth + 1>(chain);
  else
    innermost(chain);
  frame[Depth] = 2;  // so the call is no jump
}

Chain walk(uint64_t skip, size_t count) {
  Chain chain{{}, std::vector<uint64_t>(count, 0x7777), skip};
  call<1>(chain);
  return chain;
}

// The first found address is in the innermost function; the others are what its callers know.
void expectRight(const Chain& chain) {
  ASSERT_EQ(chain.returns.size(), kDepth + 1);
  const uint64_t begin = addressOf(reinterpret_cast<const void*>(&innermost));
  EXPECT_GT(chain.found[0], begin);
  EXPECT_LT(chain.found[0], begin + 0x200);
  for (size_t i = 0; i <= kDepth; ++i) EXPECT_EQ(chain.found[i + 1], chain.returns[i]) << i;
}

TEST(WalkStackCollect, FindsTheReturnAddressesOfOptimisedCode) {
  const Chain chain = walk(0, kDepth + 2);
  expectRight(chain);
}

TEST(WalkStackCollect, LeavesCallersOut) {
  const Chain chain = walk(3, 5);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(chain.found[i], chain.returns[i + 2]) << i;
  EXPECT_THAT(walk(1000, 5).found, Each(0u));
  EXPECT_THAT(walk(~uint64_t{0}, 5).found, Each(0u));
}

// The thread's start is the last frame.
TEST(WalkStackCollect, FillsUpWithZeros) {
  const Chain chain = walk(0, 200);
  const auto end = std::find(chain.found.begin(), chain.found.end(), 0u);
  EXPECT_GT(end - chain.found.begin(), 13);
  EXPECT_LT(end - chain.found.begin(), 100);
  EXPECT_TRUE(std::all_of(end, chain.found.end(), [](uint64_t address) { return address == 0; }));
}

TEST(WalkStackCollect, WithoutRoomReturnsItsCount) {
  uint64_t address = 0x7777;
  EXPECT_EQ(ossWalkStackCollect(0, &address, 0), 0u);
  EXPECT_EQ(address, 0x7777u);
  EXPECT_EQ(ossWalkStackCollect(0, nullptr, 4), 4u);
}

// Through the library's own code.
TEST(WalkStackCollect, PassesThroughTheLibrary) {
  Chain chain{{}, std::vector<uint64_t>(kDepth + 8), 0};
  OSSThreadParam param;
  param.flags = OSS_THREAD_JOINABLE;
  OSSHThread thread;
  const auto entry = [](void* argument) { call<1>(*static_cast<Chain*>(argument)); };
  ASSERT_EQ(thread.create(entry, &chain, &param, nullptr), 0u);
  ASSERT_EQ(thread.wait(), 0u);
  EXPECT_EQ(thread.close(), 0u);

  expectRight(chain);
  std::vector<HMODULE> modules;
  for (const uint64_t address : chain.found) {
    if (address == 0) break;
    modules.emplace_back();
    EXPECT_TRUE(::GetModuleHandleExA(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<const char*>(address), &modules.back()));
  }
  EXPECT_THAT(modules, Contains(libraryModule()));
}

TEST(WalkStackCollect, ServesEightThreadsAtOnce) {
  constexpr int kThreads = 8, kWalks = 2;
  StartLine line(kThreads);
  std::vector<std::vector<Chain>> chains(kThreads);
  std::vector<std::thread> threads;
  for (std::vector<Chain>& own : chains)
    threads.emplace_back([&line, &own] {
      line.pass();
      for (int i = 0; i < kWalks; ++i) own.push_back(walk(0, kDepth + 2));
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::vector<Chain>& own : chains)
    for (const Chain& chain : own) expectRight(chain);
  EXPECT_THAT(heldGuards(), IsEmpty());
}

// ---- Steps among a fake ----

class WalkSteps : public Test {
 protected:
  // Walks as many steps as asked for, each to an address of its own.
  void walkSteps(Word steps) {
    help_.answer("StackWalk64", [this, steps](const FakeCall& call) {
      if (++taken_ > steps) return FALSE;
      call.argument<STACKFRAME64*>(3)->AddrPC.Offset = 1000 + taken_;
      return TRUE;
    });
  }

  std::vector<uint64_t> collect(uint64_t skip, uint64_t count) {
    std::vector<uint64_t> addresses(count, 0x7777);
    EXPECT_EQ(help_.find<decltype(ossWalkStackCollect)>("ossWalkStackCollect")(
                  skip, addresses.data(), count),
              count);
    return addresses;
  }

  Word taken_ = 0;
  FakeDebugHelp help_;
};

TEST_F(WalkSteps, TheFirstTwoStepsAreTheCollectorsOwn) {
  walkSteps(100);
  EXPECT_THAT(collect(0, 3), ElementsAre(1003, 1004, 1005));
  EXPECT_EQ(taken_, 5u);
  EXPECT_THAT(collect(2, 2), ElementsAre(1010, 1011));
}

TEST_F(WalkSteps, NobodyStepsOnBehindTheEnd) {
  walkSteps(4);
  EXPECT_THAT(collect(0, 6), ElementsAre(1003, 1004, 0, 0, 0, 0));
  EXPECT_EQ(taken_, 5u);
}

TEST_F(WalkSteps, StartsFlatAtTheCallersRegisters) {
  bool isFirst = true;
  help_.answer("StackWalk64", [&isFirst](const FakeCall& call) {
    const auto& frame = *call.argument<STACKFRAME64*>(3);
    const auto& context = *call.argument<CONTEXT*>(4);
    EXPECT_EQ(call.argument<DWORD>(0), DWORD{IMAGE_FILE_MACHINE_AMD64});
    EXPECT_EQ(call.argument<HANDLE>(1), ::GetCurrentProcess());
    EXPECT_EQ(call.argument<HANDLE>(2), ::GetCurrentThread());
    EXPECT_EQ(call.arguments[5], 0u);
    EXPECT_EQ(call.arguments[8], 0u);
    STACKFRAME64 expected = {};
    expected.AddrPC = {context.Rip, 0, AddrModeFlat};
    expected.AddrFrame = {context.Rbp, 0, AddrModeFlat};
    expected.AddrStack = {context.Rsp, 0, AddrModeFlat};
    EXPECT_EQ(std::memcmp(&frame, &expected, sizeof frame), 0);
    EXPECT_LT(context.Rsp, addressOf(&isFirst));
    isFirst = false;
    return FALSE;
  });
  EXPECT_THAT(collect(0, 2), Each(0u));
  EXPECT_FALSE(isFirst);
}

// The walker's own calls arrive under their mutexes, inside that of the walk.
TEST_F(WalkSteps, HoldsASecondMutexWhileTheWalkerAsks) {
  RUNTIME_FUNCTION entry = {0x11, 0x22, {0x33}};
  help_.answer("SymFunctionTableAccess64",
               [&entry](const FakeCall&) { return reinterpret_cast<Word>(&entry); });
  help_.answer("SymGetModuleBase64", [](const FakeCall&) { return 0x140000000; });
  std::vector<RUNTIME_FUNCTION*> entries;
  help_.answer("StackWalk64", [&](const FakeCall& call) {
    const auto process = call.argument<HANDLE>(1);
    const auto access = call.argument<PFUNCTION_TABLE_ACCESS_ROUTINE64>(6);
    for (const DWORD begin : {0x11u, 0x44u}) {
      entry.BeginAddress = begin;
      entries.push_back(static_cast<RUNTIME_FUNCTION*>(access(process, 0x1234)));
      EXPECT_EQ(std::memcmp(entries.back(), &entry, sizeof entry), 0);
    }
    EXPECT_EQ(call.argument<PGET_MODULE_BASE_ROUTINE64>(7)(process, 0x5678), 0x140000000u);
    return TRUE;
  });

  STACKFRAME64 frame = {};
  CONTEXT context = {};
  EXPECT_EQ(help_.find<decltype(ossStackWalk)>("ossStackWalk")(::GetCurrentProcess(), nullptr,
                                                               &frame, &context),
            TRUE);
  EXPECT_NE(entries.at(0), &entry);
  EXPECT_EQ(entries.at(0), entries.at(1));
  std::vector<std::pair<std::string, std::vector<std::string>>> held;
  for (const FakeCall& call : help_.calls()) held.emplace_back(call.function, call.held);
  const auto inside = [](const char* function) {
    return Pair(function, UnorderedElementsAre("StackWalk64", function));
  };
  EXPECT_THAT(held, ElementsAre(Pair("StackWalk64", ElementsAre("StackWalk64")),
                                inside("SymFunctionTableAccess64"),
                                inside("SymFunctionTableAccess64"), inside("SymGetModuleBase64")));
  EXPECT_THAT(heldGuards(), IsEmpty());
}

TEST_F(WalkSteps, AnAddressWithoutAFunctionHasNoEntry) {
  help_.answer("StackWalk64", [](const FakeCall& call) {
    const auto access = call.argument<PFUNCTION_TABLE_ACCESS_ROUTINE64>(6);
    EXPECT_EQ(access(call.argument<HANDLE>(1), 0x1234), nullptr);
    ::SetLastError(1234);
    return FALSE;
  });
  STACKFRAME64 frame = {};
  CONTEXT context = {};
  const auto step = help_.find<decltype(ossStackWalk)>("ossStackWalk");
  EXPECT_EQ(step(::GetCurrentProcess(), nullptr, &frame, &context), FALSE);
  EXPECT_EQ(::GetLastError(), 1234u);
}

TEST_F(WalkSteps, WithoutTheDebuggingHelpLibraryIsAllZeros) {
  help_.offer(FakeDebugHelp::Offer::Nothing);
  EXPECT_THAT(collect(0, 4), Each(0u));
  EXPECT_THAT(collect(2, 4), Each(0u));
  help_.offer(FakeDebugHelp::Offer::All);
  walkSteps(3);
  EXPECT_THAT(collect(0, 2), ElementsAre(1003, 0));
}

// ---- Modules ----

TEST(EnumerateLoadedModules, NamesEachModuleWithItsImage) {
  std::vector<uint64_t> bases;
  const auto note = [](const char* name, uint64_t base, unsigned long size, void* list) {
    EXPECT_STRNE(name, "");
    EXPECT_GT(size, 0u);
    static_cast<std::vector<uint64_t>*>(list)->push_back(base);
    return 1;
  };
  EXPECT_TRUE(ossEnumerateLoadedModules(::GetCurrentProcess(), note, &bases));
  EXPECT_THAT(bases, Contains(addressOf(::GetModuleHandleA(nullptr))));
  EXPECT_THAT(bases, Contains(addressOf(libraryModule())));
  EXPECT_THAT(bases, Contains(addressOf(::GetModuleHandleA("kernel32.dll"))));
}

}  // namespace
