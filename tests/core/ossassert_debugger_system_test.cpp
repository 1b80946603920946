// A fatal assertion as a debugger sees it that watches the process from outside.
#include <gmock/gmock.h>
#include <windows.h>

#include <regex>
#include <string>

#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "harness/tempdir.h"
#include "ossassert.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint32_t kWentOn = 7;
constexpr DWORD kPatienceMilliseconds = 120'000;

// Arguments: the directory for the report, where the thread leaves its identifier, the two events.
CHILD_ROLE(assertUnderADebugger) {
  const SharedBlock<DWORD> thread(arguments[1]);
  Event ready(arguments[2]);
  Event watched(arguments[3]);
  *thread = ::GetCurrentThreadId();
  ready.set();
  EXPECT_TRUE(watched.wait());
  EXPECT_TRUE(::IsDebuggerPresent());
  ossAssertFailureAction("fatal", "file", 1, arguments[0].c_str(), 1, nullptr);
  return kWentOn;
}

// What happened to one thread of the process that is watched, and nothing of the others: a debugger
// that attaches stops a thread of its own making first.
struct Seen {
  std::string text;
  int stops = 0;
};

std::string textOf(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& told) {
  std::string text(told.nDebugStringLength, '\0');
  SIZE_T read = 0;
  EXPECT_TRUE(
      ::ReadProcessMemory(process, told.lpDebugStringData, text.data(), text.size(), &read));
  return text.c_str();
}

// Continues every event until the process ends.
Seen watch(HANDLE process, const SharedBlock<DWORD>& thread) {
  Seen seen;
  for (bool runs = true; runs;) {
    DEBUG_EVENT event;
    if (!::WaitForDebugEvent(&event, kPatienceMilliseconds)) {
      ADD_FAILURE() << "nothing happens: error " << ::GetLastError();
      return seen;
    }
    const bool isOurs = event.dwThreadId == *thread;
    DWORD answer = DBG_CONTINUE;
    switch (event.dwDebugEventCode) {
      case CREATE_PROCESS_DEBUG_EVENT: ::CloseHandle(event.u.CreateProcessInfo.hFile); break;
      case LOAD_DLL_DEBUG_EVENT: ::CloseHandle(event.u.LoadDll.hFile); break;
      case OUTPUT_DEBUG_STRING_EVENT:
        if (isOurs) seen.text += textOf(process, event.u.DebugString);
        break;
      case EXCEPTION_DEBUG_EVENT:
        if (event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT)
          answer = static_cast<DWORD>(DBG_EXCEPTION_NOT_HANDLED);
        else if (isOurs)
          ++seen.stops;
        break;
      case EXIT_PROCESS_DEBUG_EVENT: runs = false; break;
      default: break;
    }
    EXPECT_TRUE(::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer));
  }
  return seen;
}

std::string withoutTime(const std::string& text) {
  return std::regex_replace(text, std::regex("Time       = .*\n"), "Time       = now\n");
}

// The debugger is told the text, then sees one breakpoint, and may let the process go on.
TEST(AssertDebugger, SeesTheTextAndOneBreakpointAndMayContinue) {
  TempDirectory dir;
  const SharedBlock<DWORD> thread;
  Event ready;
  Event watched;
  Child child =
      startChild("assertUnderADebugger", {dir.path(), thread.name(), ready.name(), watched.name()});
  ASSERT_TRUE(ready.wait());
  const UniqueHandle process(::OpenProcess(PROCESS_ALL_ACCESS, FALSE, child.id()));
  ASSERT_NE(process, nullptr);
  ASSERT_TRUE(::DebugActiveProcess(child.id())) << "error " << ::GetLastError();
  watched.set();
  const Seen seen = watch(process.get(), thread);
  EXPECT_EQ(child.wait(), kWentOn);

  EXPECT_EQ(seen.stops, 1);
  EXPECT_EQ(withoutTime(seen.text),
            "ASSERTION FAILED!!!\r\nTime       = now\nExpr       = fatal"
            "\r\nPID        = " +
                std::to_string(child.id()) + "\r\nTID        = " + std::to_string(*thread) +
                "\r\nFile       = file\r\nLine       = 1\r\n");
  ASSERT_THAT(dir.names(), SizeIs(1));
  EXPECT_EQ(readFile(dir.file(dir.names().front())), seen.text);
}

}  // namespace
