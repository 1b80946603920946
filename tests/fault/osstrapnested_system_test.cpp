// Faults inside the capture of a fault: of the debugging-help library, which initialize() calls,
// and under a handler that sees them before the capture does.
#include <cstring>
#include <map>
#include <thread>

#include "fault/fakedebughelp.h"
#include "fault/osstrapfixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- Faults of the debugging-help library ----

// One whose functions answer, but for the one that faults.
std::string_view faultyFunction;
bool tellsSearchPath = true;
DWORD helpOptions = 2;
bool hasDeferred = false;
std::vector<std::string> searchPaths;

void faultIn(std::string_view function) {
  if (function == faultyFunction) writeToNothing();
}
DWORD answerGetOptions() {
  faultIn("SymGetOptions");
  return helpOptions;
}
DWORD answerSetOptions(DWORD options) {
  faultIn("SymSetOptions");
  hasDeferred = hasDeferred || (options & SYMOPT_DEFERRED_LOADS) != 0;
  return helpOptions = options;
}
// Without success, so that each trap file tries again.
BOOL answerInitialize() {
  faultIn("SymInitialize");
  return FALSE;
}
BOOL answerGetSearchPath(HANDLE, char* path, DWORD) {
  faultIn("SymGetSearchPath");
  std::strcpy(path, "C:\\before");
  return tellsSearchPath;
}
BOOL answerSetSearchPath(HANDLE, const char* path) {
  faultIn("SymSetSearchPath");
  searchPaths.emplace_back(path);
  return TRUE;
}
API_VERSION* answerVersion() {
  static API_VERSION version = {1, 2, 3, 0};
  faultIn("ImagehlpApiVersion");
  return &version;
}

template <class Function>
Word wordOf(Function* function) {
  return reinterpret_cast<Word>(function);
}

using Replacements = std::map<std::string, Word>;

// The library finds these where it looks functions up for the first time.
class Replaced {
 public:
  explicit Replaced(Replacements functions)
      : find_("GetProcAddress", [functions = std::move(functions)](Call& call) {
          const auto found = functions.find(call.argument<const char*>(1));
          return found != functions.end() ? found->second : call.passOn();
        }) {}

 private:
  ImportHook find_;
};

const std::vector<std::string> kBothPaths = {"C:\\symbols", "C:\\before"};

CHILD_ROLE(dumpAmongFaults) {
  const Replaced help({{"SymGetOptions", wordOf(answerGetOptions)},
                       {"SymSetOptions", wordOf(answerSetOptions)},
                       {"SymInitialize", wordOf(answerInitialize)},
                       {"SymGetSearchPath", wordOf(answerGetSearchPath)},
                       {"SymSetSearchPath", wordOf(answerSetSearchPath)},
                       {"ImagehlpApiVersion", wordOf(answerVersion)}});
  EXCEPTION_RECORD exception = {};
  exception.ExceptionCode = 0xC0000005;
  // The function that faults, and the one that does when the object ends.
  const auto dump = [&](std::string_view faulty, std::string_view faultyAtEnd) {
    const std::string path = arguments[0] + std::string(faulty);
    searchPaths.clear();
    hasDeferred = false;
    faultyFunction = faulty;
    {
      OpenTrapFile file(path);
      file.initialize(0, &exception, nullptr, "C:\\symbols");
      file.dump(OSS_TRAP_HEADER | OSS_TRAP_EXCEPTION, 0, &exception, nullptr);
      faultyFunction = faultyAtEnd;
    }
    EXPECT_EQ(helpOptions, 2u);
    EXPECT_THAT(heldGuards(), IsEmpty());
    TrapBytes file(readFile(path));
    const auto header = file.take<OSSTrapHeader>();
    EXPECT_EQ(file.take(file.left()), bytesOf(exception));
    EXPECT_EQ(header.contents, faulty == "ImagehlpApiVersion"
                                   ? OSS_TRAP_HAS_EXCEPTION
                                   : OSS_TRAP_HAS_EXCEPTION | OSS_TRAP_HAS_LIBRARY_VERSION);
  };

  for (const std::string_view faulty :
       {"SymGetOptions", "SymSetOptions", "SymInitialize", "SymGetSearchPath", "SymSetSearchPath",
        "ImagehlpApiVersion"}) {
    SCOPED_TRACE(faulty);
    dump(faulty, faulty);
    // Whatever faulted before, symbols are loaded with the host's options changed again.
    EXPECT_EQ(hasDeferred, faulty != "SymGetOptions" && faulty != "SymSetOptions");
    const bool isOfPath = faulty == "SymGetSearchPath" || faulty == "SymSetSearchPath";
    EXPECT_EQ(searchPaths, isOfPath ? std::vector<std::string>() : kBothPaths);
  }
  dump("at the end", "SymSetSearchPath");
  EXPECT_THAT(searchPaths, ElementsAre("C:\\symbols"));
  dump("nowhere", "");
  EXPECT_EQ(searchPaths, kBothPaths);
  tellsSearchPath = false;
  dump("no path", "");
  EXPECT_THAT(searchPaths, ElementsAre("C:\\symbols"));
  return 0;
}

TEST_F(TrapFileTest, AFaultOfTheDebuggingHelpLibraryEndsOneCallOfInitialize) {
  EXPECT_EQ(runChild("dumpAmongFaults", {newPath()}), 0u);
}

// ---- A handler that sees the faults first ----

const char* trapPath = nullptr;
uint32_t faultsSeen = 0;

LONG WINAPI appendTrapFile(EXCEPTION_POINTERS* trap) {
  constexpr uint32_t kFarTooMany = 20;
  if (++faultsSeen == kFarTooMany) ::TerminateProcess(::GetCurrentProcess(), kFarTooMany);
  OpenTrapFile file(trapPath);
  file.seekToEnd();
  file.initialize(0, trap->ExceptionRecord, trap->ContextRecord, "C:\\symbols");
  file.dump(OSS_TRAP_ALL & ~(OSS_TRAP_SYSTEM | OSS_TRAP_ENVIRONMENT), 0, trap->ExceptionRecord,
            trap->ContextRecord);
  return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI endWithCount(EXCEPTION_POINTERS*) {
  ::TerminateProcess(::GetCurrentProcess(), faultsSeen);
  return EXCEPTION_EXECUTE_HANDLER;
}

Word succeed() { return 1; }

CHILD_ROLE(faultUnderAVectoredHandler) {
  trapPath = arguments[0].c_str();
  const Replaced help({{"SymInitialize", wordOf(faultNow)},
                       {"SymRegisterCallback64", wordOf(succeed)},
                       {"StackWalk64", wordOf(faultNow)},
                       {"SymSetSearchPath", wordOf(succeed)},
                       {"EnumerateLoadedModules64", wordOf(faultNow)}});
  ::SetUnhandledExceptionFilter(endWithCount);
  ::AddVectoredExceptionHandler(1, appendTrapFile);
  writeToNothing();
  return 0;
}

TEST_F(TrapFileTest, AVectoredHandlerDumpsTheFirstFaultOnly) {
  const std::string path = newPath();
  // The process's own, that of SymInitialize, and those of three sections.
  EXPECT_EQ(runChild("faultUnderAVectoredHandler", {path}), 5u);
  TrapBytes file(readFile(path));
  const auto header = file.take<OSSTrapHeader>();
  EXPECT_EQ(header.contents, 0x3Bu);
  EXPECT_EQ(header.modules, 0u);
  const auto exception = file.take<EXCEPTION_RECORD>();
  EXPECT_EQ(exception.ExceptionCode, EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(file.take<CONTEXT>().Rip, reinterpret_cast<uint64_t>(exception.ExceptionAddress));
  file.take(8 + header.instructionBytes);
  EXPECT_EQ(file.take<uint64_t>(), 0u);  // modules in their section
  EXPECT_EQ(file.left(), 0u);
}

TEST_F(TrapFileTest, AThreadThatIsInsideDoesNotStartOver) {
  const std::string path = newPath();
  OpenTrapFile other(path);
  other.initialize(0, nullptr, nullptr, nullptr);
  const auto dumpOther = [&] { other.dump(OSS_TRAP_EXCEPTION, 0, &exception_, nullptr); };
  ImportHook system("GetSystemInfo", [&](Call& call) {
    OSSTrapHeader before, after;
    OpenTrapFile fresh(newPath());
    before = fresh.header();
    fresh.initialize(0, &exception_, &context_, nullptr);
    after = fresh.header();
    EXPECT_EQ(bytesOf(after), bytesOf(before));
    dumpOther();
    EXPECT_EQ(readFile(path), "");
    std::thread(dumpOther).join();
    EXPECT_EQ(readFile(path), bytesOf(exception_));
    return call.passOn();
  });
  EXPECT_EQ(dump(OSS_TRAP_SYSTEM).left(), 48u + 148 + 64);
  dumpOther();
  EXPECT_EQ(readFile(path), bytesOf(exception_) + bytesOf(exception_));
}

}  // namespace
