// The memory-read callback: what it answers, and whose callback is withdrawn at the library's end.
#include <gtest/gtest.h>
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include "fault/fakedebughelp.h"
#include "ossfault.h"

using namespace osse_test;
using namespace testing;

namespace {

HANDLE const kOtherProcess = reinterpret_cast<HANDLE>(0x12);

int symbolCallback(void*, unsigned long, uint64_t, uint64_t) { return 0; }

// A registered callback, which the library withdraws when it is unloaded.
class StackWalkCallback : public Test {
 protected:
  StackWalkCallback() {
    help_.answer("SymRegisterCallback64", [this](const FakeCall& call) {
      process_ = call.argument<HANDLE>(0);
      callback_ = call.argument<OSSSymbolCallback>(1);
      return 1;
    });
    const auto registers =
        help_.find<decltype(ossSymRegisterStackWalkCallback)>("ossSymRegisterStackWalkCallback");
    EXPECT_EQ(registers(::GetCurrentProcess()), 1);
    EXPECT_EQ(process_, ::GetCurrentProcess());
  }

  // Asks for memory; the count is what the callback tells of it.
  int read(const void* from, void* to, DWORD bytes, DWORD* count) {
    IMAGEHLP_CBA_READ_MEMORY request = {reinterpret_cast<DWORD64>(from), to, bytes, count};
    return callback_(::GetCurrentProcess(), CBA_READ_MEMORY, reinterpret_cast<uint64_t>(&request),
                     0);
  }

  HANDLE process_ = nullptr;
  OSSSymbolCallback callback_ = nullptr;
  FakeDebugHelp help_;
};

TEST_F(StackWalkCallback, ReadsMemory) {
  const char from[] = "twelve bytes";
  char to[sizeof from] = {};
  DWORD count = 0;
  EXPECT_EQ(read(from, to, sizeof from, &count), TRUE);
  EXPECT_EQ(count, sizeof from);
  EXPECT_STREQ(to, from);
  EXPECT_EQ(read(from, to, 1, nullptr), TRUE);
}

TEST_F(StackWalkCallback, TellsThatNothingCouldBeRead) {
  char to[8] = {};
  DWORD count = 77;
  EXPECT_EQ(read(nullptr, to, sizeof to, &count), FALSE);
  EXPECT_EQ(count, 0u);
}

TEST_F(StackWalkCallback, IgnoresEveryOtherRequest) {
  for (unsigned long request = 0; request < 0x50; ++request) {
    if (request != CBA_READ_MEMORY) {
      EXPECT_EQ(callback_(::GetCurrentProcess(), request, 1, 0), FALSE);
    }
  }
}

TEST_F(StackWalkCallback, IsWithdrawnWhenTheLibraryIsUnloaded) {
  help_.unload();
  EXPECT_EQ(callback_, nullptr);
  EXPECT_EQ(process_, ::GetCurrentProcess());
}

TEST_F(StackWalkCallback, IsLeftAloneOnceTheHostHasReplacedIt) {
  const auto registers = help_.find<decltype(ossSymRegisterCallback)>("ossSymRegisterCallback");
  EXPECT_EQ(registers(::GetCurrentProcess(), symbolCallback, 0), 1);
  help_.unload();
  EXPECT_EQ(callback_, symbolCallback);
}

// A registration that fails, or that is another process's, has replaced nothing.
TEST_F(StackWalkCallback, IsWithdrawnUnlessItWasReplaced) {
  const auto registers = help_.find<decltype(ossSymRegisterCallback)>("ossSymRegisterCallback");
  EXPECT_EQ(registers(kOtherProcess, symbolCallback, 0), 1);
  bool fails = true;
  help_.answer("SymRegisterCallback64", [this, &fails](const FakeCall& call) {
    if (fails) return 0;
    process_ = call.argument<HANDLE>(0);
    callback_ = call.argument<OSSSymbolCallback>(1);
    return 1;
  });
  EXPECT_EQ(registers(::GetCurrentProcess(), symbolCallback, 0), 0);
  fails = false;
  help_.unload();
  EXPECT_EQ(callback_, nullptr);
  EXPECT_EQ(process_, ::GetCurrentProcess());
}

}  // namespace
