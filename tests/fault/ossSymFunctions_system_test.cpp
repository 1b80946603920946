// The wrappers among a debugging-help library that answers as the test wants: arguments, results,
// last errors and mutexes.
#include <gmock/gmock.h>
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <cstring>

#include "fault/fakedebughelp.h"
#include "ossfault.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr DWORD kAnyError = 4321;
constexpr DWORD kFakeError = 1234;
constexpr DWORD kReleaseError = 99;

void* pointer(uint64_t value) { return reinterpret_cast<void*>(value); }

// One wrapper, called with arguments that are all different.
struct Wrapper {
  const char* function;
  const char* mutex;
  std::vector<Word> arguments;                     // what must arrive
  bool keepsError;                                 // of a call that failed
  std::function<Word(const FakeDebugHelp&)> call;  // the result as it comes
};

template <class Result>
Word wordOf(Result result) {
  if constexpr (std::is_pointer_v<Result>)
    return reinterpret_cast<Word>(result);
  else
    return static_cast<Word>(result);
}

#define CALLING(wrapper, ...)                                           \
  [=](const FakeDebugHelp& help) {                                      \
    return wordOf(help.find<decltype(wrapper)>(#wrapper)(__VA_ARGS__)); \
  }

int symbolCallback(void*, unsigned long, uint64_t, uint64_t) { return 0; }
int moduleCallback(const char*, uint64_t, unsigned long, void*) { return 0; }

std::vector<Wrapper> wrappers() {
  static char text[4], text2[4];
  const Word textAt = reinterpret_cast<Word>(text), text2At = reinterpret_cast<Word>(text2);
  static uint64_t number;
  const Word numberAt = reinterpret_cast<Word>(&number);
  const Word symbolAt = reinterpret_cast<Word>(&symbolCallback);
  const Word moduleAt = reinterpret_cast<Word>(&moduleCallback);
  auto* const module = static_cast<IMAGEHLP_MODULE64*>(pointer(0x30));
  auto* const symbol = static_cast<IMAGEHLP_SYMBOL64*>(pointer(0x40));
  auto* const frame = static_cast<STACKFRAME64*>(pointer(0x60));
  auto* const context = static_cast<CONTEXT*>(pointer(0x70));
  auto* const version = static_cast<API_VERSION*>(pointer(0x50));
  const auto process = pointer(0x11);
  return {
      {"SymFunctionTableAccess64",
       "SymFunctionTableAccess64",
       {0x11, 0x22},
       true,
       CALLING(ossSymFunctionTableAccess, process, 0x22)},
      {"SymGetModuleInfo64",
       "SymGetModuleInfo64",
       {0x11, 0x22, 0x30},
       true,
       CALLING(ossSymGetModuleInfo, process, 0x22, module)},
      {"SymRegisterCallback64",
       "SymRegisterCallback64",
       {0x11, symbolAt, 0x33},
       true,
       CALLING(ossSymRegisterCallback, process, symbolCallback, 0x33)},
      {"SymGetModuleBase64",
       "SymGetModuleBase64",
       {0x11, 0},
       true,
       CALLING(ossSymGetModuleBase, process, 0)},
      {"SymGetModuleBase64",
       "SymGetModuleBase64",
       {0x11, 0x22},
       false,
       CALLING(ossSymGetModuleBase, process, 0x22)},
      {"StackWalk64",
       "StackWalk64",
       {IMAGE_FILE_MACHINE_AMD64, 0x11, 0x22, 0x60, 0x70, 0},
       true,
       CALLING(ossStackWalk, process, pointer(0x22), frame, context)},
      {"EnumerateLoadedModules64",
       "EnumerateLoadedModules64",
       {0x11, moduleAt, 0x33},
       true,
       CALLING(ossEnumerateLoadedModules, process, moduleCallback, pointer(0x33))},
      {"SymGetSymFromAddr64",
       "SymGetSymFromAddr64",
       {0x11, 0x22, numberAt, 0x40},
       true,
       CALLING(ossSymGetSymFromAddr, process, 0x22, &number, symbol)},
      {"SymInitialize",
       "SymInitialize",
       {0x11, textAt, 1},
       true,
       CALLING(ossSymInitialize, process, text, 1)},
      {"SymGetSearchPath",
       "SymGetSearchPath",
       {0x11, textAt, 4},
       true,
       CALLING(ossSymGetSearchPath, process, text, 4)},
      {"SymSetSearchPath",
       "SymSetSearchPath",
       {0x11, textAt},
       true,
       CALLING(ossSymSetSearchPath, process, text)},
      {"SymGetOptions", "SymGetOptons", {}, false, CALLING(ossSymGetOptions)},
      {"SymSetOptions", "SymSetOptons", {0x77}, false, CALLING(ossSymSetOptions, 0x77)},
      {"GetTimestampForLoadedLibrary",
       "GetTimestampForLoadedLibrary",
       {0x11},
       true,
       CALLING(ossGetTimestampForLoadedLibrary, process)},
      {"ImagehlpApiVersion", "ImagehlpApiVersion", {}, false, CALLING(ossImagehlpApiVersion)},
      {"ImagehlpApiVersionEx",
       "ImagehlpApiVersionEx",
       {0x50},
       false,
       CALLING(ossImagehlpApiVersionEx, version)},
      {"SymLoadModule64",
       "SymLoadModule64",
       {0x11, 0x22, textAt, text2At, 0x55, 0x66},
       true,
       CALLING(ossSymLoadModule, process, pointer(0x22), text, text2, 0x55, 0x66)},
      {"SymUnloadModule64",
       "SymUnloadModule64",
       {0x11, 0x22},
       true,
       CALLING(ossSymUnloadModule, process, 0x22)},
  };
}

// The leading arguments of a call, narrowed to what the function takes of each.
std::vector<Word> leading(const FakeCall& call, const std::vector<Word>& like) {
  std::vector<Word> arguments(call.arguments.begin(),
                              call.arguments.begin() + static_cast<ptrdiff_t>(like.size()));
  for (size_t i = 0; i < like.size(); ++i)
    if (like[i] <= 0xFFFFFFFF) arguments[i] &= 0xFFFFFFFF;
  return arguments;
}

TEST(SymbolWrappers, PassArgumentsAndResultUnderTheirMutexAlone) {
  FakeDebugHelp help;
  for (const Wrapper& wrapper : wrappers()) {
    SCOPED_TRACE(wrapper.function);
    for (const Word result : {Word{0}, Word{0x1234567}}) {
      help.answer(wrapper.function, [result](const FakeCall&) {
        ::SetLastError(kFakeError);
        return result;
      });
      ::SetLastError(kAnyError);

      EXPECT_EQ(wrapper.call(help), result);
      EXPECT_EQ(::GetLastError(), kFakeError);

      const std::vector<FakeCall> calls = help.calls();
      ASSERT_EQ(calls.size(), 1u);
      EXPECT_EQ(calls[0].function, wrapper.function);
      EXPECT_EQ(leading(calls[0], wrapper.arguments), wrapper.arguments);
      EXPECT_THAT(calls[0].held, ElementsAre(wrapper.mutex));
      EXPECT_THAT(heldGuards(), IsEmpty());
    }
  }
}

// Also on the first call, which looks the function up and makes the mutexes.
TEST(SymbolWrappers, LeaveTheLastErrorOfACallThatTouchesNone) {
  FakeDebugHelp help;
  for (const Wrapper& wrapper : wrappers()) {
    SCOPED_TRACE(wrapper.function);
    help.answer(wrapper.function, [](const FakeCall&) { return 1; });
    ::SetLastError(kAnyError);
    EXPECT_EQ(wrapper.call(help), 1u);
    EXPECT_EQ(::GetLastError(), kAnyError);
  }
}

// A release of the mutex that sets an error of its own.
Word releaseWithError(Call& call) {
  const Word result = call.passOn();
  ::SetLastError(kReleaseError);
  return result;
}

TEST(SymbolWrappers, KeepTheErrorOfAFailedCallOverTheRelease) {
  FakeDebugHelp help;
  for (const Wrapper& wrapper : wrappers()) {
    SCOPED_TRACE(wrapper.function);
    const ImportHook releases("ReleaseMutex", releaseWithError, help.module());
    help.answer(wrapper.function, [](const FakeCall&) {
      ::SetLastError(kFakeError);
      return 0;
    });

    EXPECT_EQ(wrapper.call(help), 0u);
    EXPECT_EQ(::GetLastError(), wrapper.keepsError ? kFakeError : kReleaseError);
  }
}

// Deliberate: the address decides, not the result.
TEST(SymbolWrappers, TheModuleBaseOfAddressZeroKeepsTheErrorWhateverTheResult) {
  FakeDebugHelp help;
  const auto moduleBase = help.find<decltype(ossSymGetModuleBase)>("ossSymGetModuleBase");
  const ImportHook releases("ReleaseMutex", releaseWithError, help.module());
  for (const Word result : {Word{0}, Word{0x140000000}}) {
    help.answer("SymGetModuleBase64", [result](const FakeCall&) {
      ::SetLastError(kFakeError);
      return result;
    });
    EXPECT_EQ(moduleBase(pointer(0x11), 0), result);
    EXPECT_EQ(::GetLastError(), kFakeError);
    EXPECT_EQ(moduleBase(pointer(0x11), 0x22), result);
    EXPECT_EQ(::GetLastError(), kReleaseError);
  }
}

// Once it is there it is found.
TEST(SymbolWrappers, AnswerNothingWhileTheLibraryOrTheFunctionIsMissing) {
  FakeDebugHelp help;
  const auto expectNothing = [&help](DWORD error) {
    for (const Wrapper& wrapper : wrappers()) {
      SCOPED_TRACE(wrapper.function);
      ::SetLastError(kAnyError);
      EXPECT_EQ(wrapper.call(help), 0u);
      EXPECT_EQ(::GetLastError(), error);
    }
    EXPECT_THAT(help.calls(), IsEmpty());
  };
  help.offer(FakeDebugHelp::Offer::Nothing);
  expectNothing(ERROR_MOD_NOT_FOUND);
  help.offer(FakeDebugHelp::Offer::NoFunctions);
  expectNothing(ERROR_PROC_NOT_FOUND);

  help.offer(FakeDebugHelp::Offer::All);
  for (const Wrapper& wrapper : wrappers()) {
    help.answer(wrapper.function, [](const FakeCall&) { return 1; });
    EXPECT_EQ(wrapper.call(help), 1u) << wrapper.function;
  }
}

// ---- Initialisation ----

TEST(SymInitialize, IsCalledUntilItFirstSucceeds) {
  FakeDebugHelp help;
  auto* const initialize = help.find<decltype(ossSymInitialize)>("ossSymInitialize");
  for (const Word result : {0u, 0u, 5u}) {
    help.answer("SymInitialize", [result](const FakeCall&) { return result; });
    EXPECT_EQ(static_cast<Word>(initialize(pointer(0x11), nullptr, TRUE)), result);
    EXPECT_EQ(help.calls().size(), 1u);
  }

  ::SetLastError(kAnyError);
  EXPECT_EQ(initialize(pointer(0x11), nullptr, TRUE), 0);
  EXPECT_EQ(initialize(pointer(0x12), "path", FALSE), 0);
  EXPECT_EQ(::GetLastError(), kAnyError);
  EXPECT_THAT(help.calls(), IsEmpty());
}

// A thread that comes while the first is being served waits, and then has nothing left to do.
TEST(SymInitialize, SucceedsOnceAlthoughTwoThreadsTry) {
  FakeDebugHelp help;
  auto* const initialize = help.find<decltype(ossSymInitialize)>("ossSymInitialize");
  Event waits;
  ImportHook wait(
      "WaitForSingleObject",
      [&waits](Call& call) {
        if (::WaitForSingleObject(call.argument<HANDLE>(0), 0) == WAIT_TIMEOUT) {
          waits.set();
          return call.passOn();
        }
        return Word{WAIT_OBJECT_0};
      },
      help.module());
  std::thread second;
  int secondResult = 1;
  help.answer("SymInitialize", [&](const FakeCall&) {
    second = std::thread([&] { secondResult = initialize(pointer(0x11), nullptr, TRUE); });
    EXPECT_TRUE(waits.wait());
    return 1;
  });

  EXPECT_EQ(initialize(pointer(0x11), nullptr, TRUE), 1);
  second.join();
  EXPECT_EQ(secondResult, 0);
  EXPECT_EQ(help.calls().size(), 1u);
}

TEST(SymCleanup, DoesNothing) {
  FakeDebugHelp help;
  ::SetLastError(kAnyError);
  EXPECT_EQ(help.find<decltype(ossSymCleanup)>("ossSymCleanup")(pointer(0x11)), 0);
  EXPECT_EQ(::GetLastError(), kAnyError);
  EXPECT_THAT(help.calls(), IsEmpty());
  // The fake is there all the same.
  help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")();
  EXPECT_EQ(help.calls().size(), 1u);
}

// ---- Names ----

struct Name {
  std::string text;
  uint64_t displacement;

  bool operator==(const Name&) const = default;
};

void PrintTo(const Name& name, std::ostream* out) { *out << name.text << '+' << name.displacement; }

class SymbolName : public Test {
 protected:
  SymbolName() {
    help_.answer("SymGetSymFromAddr64", [this](const FakeCall& call) {
      auto* const symbol = call.argument<IMAGEHLP_SYMBOL64*>(3);
      EXPECT_EQ(symbol->SizeOfStruct, sizeof *symbol);
      EXPECT_EQ(symbol->MaxNameLength, 260u);
      if (name_.empty()) return FALSE;
      std::memcpy(symbol->Name, name_.data(), name_.size());
      *call.argument<DWORD64*>(2) = 0x123;
      return TRUE;
    });
  }

  Name nameOf(uint64_t address, uint64_t size = 300) {
    char text[300];
    std::memset(text, '#', sizeof text);
    uint64_t displacement = 77;
    const auto name = help_.find<decltype(ossSymbolNameForAddress)>("ossSymbolNameForAddress");
    EXPECT_EQ(name(address, text, size, &displacement), &displacement);
    if (size < sizeof text) {
      EXPECT_EQ(text[size], '#') << "written behind the end";
    }
    return {size == 0 ? "" : text, displacement};
  }

  std::string name_;
  FakeDebugHelp help_;
};

TEST_F(SymbolName, IsCopiedWithItsDisplacement) {
  name_ = "function";
  EXPECT_EQ(nameOf(0x1234), (Name{"function", 0x123}));
  EXPECT_EQ(nameOf(0), (Name{"function", 0x123}));
  EXPECT_EQ(nameOf(0x1234, 9), (Name{"function", 0x123}));
}

TEST_F(SymbolName, IsCutToTheBuffer) {
  name_ = "function";
  EXPECT_EQ(nameOf(0x1234, 8), (Name{"functio", 0x123}));
  EXPECT_EQ(nameOf(0x1234, 1), (Name{"", 0x123}));
}

TEST_F(SymbolName, MayHave260Characters) {
  name_ = std::string(260, 'n');
  EXPECT_EQ(nameOf(0x1234), (Name{name_, 0x123}));
}

TEST_F(SymbolName, OfAnUnknownAddressIsTheAddress) {
  EXPECT_EQ(nameOf(0x1234), (Name{"0x0000000000001234", 0}));
  EXPECT_EQ(nameOf(0xFEDCBA9876543210), (Name{"0xFEDCBA9876543210", 0}));
  EXPECT_EQ(nameOf(0xABCDEF, 5), (Name{"0x00", 0}));
  EXPECT_EQ(nameOf(0), (Name{"?unknown", 0}));
}

TEST_F(SymbolName, IsNotWrittenWithoutRoom) {
  name_ = "function";
  EXPECT_EQ(nameOf(0x1234, 0), (Name{"", 0}));
  const auto name = help_.find<decltype(ossSymbolNameForAddress)>("ossSymbolNameForAddress");
  uint64_t displacement = 77;
  EXPECT_EQ(name(0x1234, nullptr, 10, &displacement), &displacement);
  EXPECT_EQ(displacement, 0u);
  char text[10];
  EXPECT_EQ(name(0x1234, text, sizeof text, nullptr), nullptr);
  EXPECT_STREQ(text, "function");
}

// Each module's symbols are read when one of them is asked for; the options are put back.
TEST_F(SymbolName, InitialisesSymbolsWithAllModulesOnce) {
  constexpr Word kOptions = 2;
  help_.answer("SymGetOptions", [](const FakeCall&) { return kOptions; });
  help_.answer("SymInitialize", [](const FakeCall&) { return 1; });
  nameOf(0x1234);
  nameOf(0x1234);

  std::vector<std::pair<std::string, std::vector<Word>>> calls;
  for (const FakeCall& call : help_.calls()) {
    const bool initializes = call.function == "SymInitialize";
    const bool sets = call.function == "SymSetOptions";
    calls.emplace_back(call.function, leading(call, std::vector<Word>(initializes ? 3
                                                                      : sets      ? 1
                                                                                  : 0)));
  }
  EXPECT_THAT(
      calls,
      ElementsAre(Pair("SymGetOptions", IsEmpty()),
                  Pair("SymSetOptions", ElementsAre(kOptions | SYMOPT_DEFERRED_LOADS)),
                  Pair("SymInitialize", ElementsAre(0xFFFFFFFF, 0, 1)),
                  Pair("SymSetOptions", ElementsAre(kOptions)),
                  Pair("SymGetSymFromAddr64", IsEmpty()), Pair("SymGetSymFromAddr64", IsEmpty())));
}

// The second thread comes between the first one's question for the options and their change.
TEST_F(SymbolName, OneThreadChangesTheOptionsAndPutsThemBack) {
  Word options = 2;
  Event done;
  std::thread second;
  help_.answer("SymInitialize", [](const FakeCall&) { return 1; });
  help_.answer("SymSetOptions", [&options](const FakeCall& call) {
    options = call.argument<DWORD>(0);
    return options;
  });
  help_.answer("SymGetOptions", [&](const FakeCall&) {
    second = std::thread([&] {
      nameOf(0x1234);
      done.set();
    });
    EXPECT_TRUE(done.wait());
    return options;
  });
  nameOf(0x1234);
  second.join();

  EXPECT_EQ(options, 2u);
  std::vector<std::string> functions;
  for (const FakeCall& call : help_.calls()) functions.push_back(call.function);
  EXPECT_THAT(functions, ElementsAre("SymGetOptions", "SymInitialize", "SymGetSymFromAddr64",
                                     "SymSetOptions", "SymSetOptions", "SymGetSymFromAddr64"));
}

// ---- The system's own debugging-help library ----

TEST(SymbolNames, OfExportedFunctionsAreFound) {
  const auto nameAt = [](const void* address, uint64_t behind) {
    char text[100] = {};
    uint64_t displacement = 0;
    ossSymbolNameForAddress(reinterpret_cast<uint64_t>(address) + behind, text, sizeof text,
                            &displacement);
    return Name{text, displacement};
  };
  const HMODULE library = libraryModule();
  for (const char* const name : {"ossWalkStackCollect", "ossMemAlloc", "ossSnprintf"}) {
    const auto* const address = reinterpret_cast<const void*>(::GetProcAddress(library, name));
    EXPECT_EQ(nameAt(address, 0), (Name{name, 0}));
    EXPECT_EQ(nameAt(address, 1), (Name{name, 1}));
  }
  EXPECT_EQ(nameAt(nullptr, 0), (Name{"?unknown", 0}));
  EXPECT_EQ(nameAt(nullptr, 0x1234), (Name{"0x0000000000001234", 0}));
}

}  // namespace
