// The stack section: instructions, frames, the raw stack.
#include "fault/osstrapfixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

// A stack section without instructions, taken apart.
struct Stack {
  std::vector<STACKFRAME64> frames;
  std::vector<uint64_t> words;
};

Stack takeStack(TrapBytes file) {
  Stack stack;
  stack.frames = takeFrames(file);
  stack.words.resize(file.take<uint64_t>());
  for (uint64_t& word : stack.words) word = file.take<uint64_t>();
  EXPECT_EQ(file.left(), 0u);
  return stack;
}

std::vector<uint64_t> wordsAt(uint64_t address, size_t count) {
  const auto* const words = reinterpret_cast<const uint64_t*>(address);
  return std::vector<uint64_t>(words, words + count);
}

class TrapStackTest : public TrapFileTest {
 protected:
  // The instruction bytes have tests of their own.
  Stack dumpStack() {
    TrapBytes file = dump(OSS_TRAP_STACK);
    file.take(header_.instructionBytes);
    return takeStack(std::move(file));
  }

  // Stacks from here on are noted by what a walk finds below it.
  [[gnu::noinline]] void dumpHere(Stack& stack) {
    ::RtlCaptureContext(&context_);
    stack = dumpStack();
  }

  // The same below a frame of that many bytes.
  [[gnu::noinline]] void dumpBelow(size_t bytes, Stack& stack) {
    auto* const room = static_cast<volatile char*>(__builtin_alloca(bytes));
    for (size_t i = 0; i < bytes; i += 1024) room[i] = static_cast<char>(i >> 10);
    dumpHere(stack);
    room[0] = 1;
  }
};

TEST_F(TrapStackTest, AWalkToTheThreadsStartEndsWithReturnAddress0) {
  Stack stack;
  dumpHere(stack);
  ASSERT_GT(stack.frames.size(), 5u);
  EXPECT_EQ(stack.frames.front().AddrPC.Offset, context_.Rip);
  EXPECT_EQ(stack.frames.front().AddrStack.Offset, context_.Rsp);
  EXPECT_EQ(stack.frames.back().AddrReturn.Offset, 0u);
  for (size_t i = 1; i < stack.frames.size(); ++i)
    EXPECT_EQ(stack.frames[i].AddrPC.Offset, stack.frames[i - 1].AddrReturn.Offset) << i;
}

TEST_F(TrapStackTest, AFailedWalkEndsWithTheMarker) {
  alignas(16) static uint64_t words[3000];
  for (uint64_t i = 0; i < std::size(words); ++i) words[i] = 0x1000 + i;
  context_.Rip = 0x1234;
  context_.Rsp = reinterpret_cast<DWORD64>(words);
  const Stack stack = dumpStack();
  ASSERT_FALSE(stack.frames.empty());
  EXPECT_EQ(stack.frames.back().AddrReturn.Offset, 0xF2A3EBADu);
  // A walk that ends at its start is short.
  ASSERT_GE(stack.words.size(), 1024u);
  EXPECT_EQ(stack.words, wordsAt(context_.Rsp, stack.words.size()));
}

BOOL stayOnTheSpot(DWORD, HANDLE, HANDLE, STACKFRAME64* frame, void*, void*, void*, void*, void*) {
  frame->AddrReturn.Offset = frame->AddrPC.Offset;
  return TRUE;
}

// From each of two frames to the other one.
BOOL alternate(DWORD, HANDLE, HANDLE, STACKFRAME64* frame, void*, void*, void*, void*, void*) {
  const bool isHigh = frame->AddrPC.Offset == 0x2000;
  frame->AddrPC.Offset = isHigh ? 0x1000 : 0x2000;
  frame->AddrStack.Offset = isHigh ? 0x10000 : 0x20000;
  frame->AddrReturn.Offset = isHigh ? 0x2000 : 0x1000;
  return TRUE;
}

// Through code without end, on one place of the stack.
BOOL stand(DWORD, HANDLE, HANDLE, STACKFRAME64* frame, void*, void*, void*, void*, void*) {
  frame->AddrPC.Offset += 16;
  frame->AddrReturn.Offset = frame->AddrPC.Offset + 16;
  return TRUE;
}

using Walker = decltype(&stand);
const std::map<std::string, Walker> kWalkers = {
    {"stayOnTheSpot", stayOnTheSpot}, {"alternate", alternate}, {"stand", stand}};

// In a process that has yet to look StackWalk64 up.
CHILD_ROLE(dumpWalkOf) {
  const Walker walker = kWalkers.at(arguments[0]);
  ImportHook find("GetProcAddress", [walker](Call& call) {
    const std::string_view name = call.argument<const char*>(1);
    return name == "StackWalk64" ? reinterpret_cast<Word>(walker) : call.passOn();
  });
  OpenTrapFile file(arguments[1]);
  CONTEXT context;
  ::RtlCaptureContext(&context);
  context.ContextFlags = 0;
  file.initialize(0, nullptr, &context, nullptr);
  file.dump(OSS_TRAP_STACK, 0, nullptr, &context);
  return 0;
}

// A walker that makes no way is one that has failed.
TEST_F(TrapStackTest, AWalkOnTheSpotIsEnded) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("dumpWalkOf", {"stayOnTheSpot", path}), 0u);
  const Stack stack = takeStack(TrapBytes(readFile(path)));
  ASSERT_EQ(stack.frames.size(), 2u);
  EXPECT_EQ(stack.frames[0].AddrReturn.Offset, stack.frames[0].AddrPC.Offset);
  EXPECT_EQ(stack.frames[1].AddrReturn.Offset, 0xF2A3EBADu);
  EXPECT_EQ(stack.words.size(), 1024u);
}

TEST_F(TrapStackTest, AWalkInACircleIsEnded) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("dumpWalkOf", {"alternate", path}), 0u);
  TrapBytes file(readFile(path));
  const std::vector<STACKFRAME64> frames = takeFrames(file);
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].AddrReturn.Offset, frames[1].AddrPC.Offset);
  EXPECT_EQ(frames[1].AddrReturn.Offset, 0xF2A3EBADu);
}

TEST_F(TrapStackTest, AWalkOnOnePlaceOfTheStackIsEnded) {
  const std::string path = newPath();
  ASSERT_EQ(runChild("dumpWalkOf", {"stand", path}), 0u);
  const Stack stack = takeStack(TrapBytes(readFile(path)));
  ASSERT_EQ(stack.frames.size(), 18u);
  for (size_t i = 0; i < 17; ++i)
    EXPECT_EQ(stack.frames[i].AddrReturn.Offset, stack.frames[i + 1].AddrPC.Offset) << i;
  EXPECT_EQ(stack.frames.back().AddrReturn.Offset, 0xF2A3EBADu);
}

TEST_F(TrapStackTest, TheRawStackReachesToTheLastFrame) {
  Stack stack;
  dumpBelow(20000, stack);
  const uint64_t span = stack.frames.back().AddrStack.Offset + 8 - context_.Rsp;
  EXPECT_GT(span, 20000u);
  EXPECT_LT(span, 8193 * 8u);
  EXPECT_EQ(stack.words.size(), span / 8);
  EXPECT_EQ(stack.words[stack.words.size() - 2],
            wordsAt(stack.frames.back().AddrStack.Offset - 8, 1)[0]);
}

TEST_F(TrapStackTest, TheRawStackIsCutAt8193Words) {
  Stack stack;
  dumpBelow(100000, stack);
  EXPECT_EQ(stack.words.size(), 8193u);
  EXPECT_EQ(stack.frames.back().AddrReturn.Offset, 0u);
}

// The memory ends before 8 KiB are reached.
TEST_F(TrapStackTest, TheRawStackEndsWhereTheMemoryDoes) {
  constexpr size_t kPage = 4096;
  auto* const pages = static_cast<char*>(
      ::VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  DWORD old = 0;
  ASSERT_TRUE(::VirtualProtect(pages + kPage, kPage, PAGE_NOACCESS, &old));
  std::memset(pages, 0x5A, kPage);
  context_.Rip = 0x1234;
  for (const size_t words : {512u, 10u, 1u}) {
    context_.Rsp = reinterpret_cast<DWORD64>(pages + kPage - 8 * words);
    const Stack stack = dumpStack();
    EXPECT_EQ(stack.words, std::vector<uint64_t>(words, 0x5A5A5A5A5A5A5A5A));
    EXPECT_EQ(stack.frames.back().AddrReturn.Offset, 0xF2A3EBADu);
  }
  context_.Rsp = reinterpret_cast<DWORD64>(pages + kPage);
  EXPECT_TRUE(dumpStack().words.empty());
  ::VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace
