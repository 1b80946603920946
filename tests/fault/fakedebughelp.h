// fakedebughelp.h - a debugging-help library that answers as the test wants, and the mutexes of its
// functions.
//
//   FakeDebugHelp help;
//   help.answer("SymGetOptions", [](const FakeCall&) { return 7; });
//   EXPECT_EQ(help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")(), 7u);
//
// The fake serves a copy of the library of its own, which looks its functions up for the first
// time. One at a time.
#pragma once

#include <windows.h>

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "harness/importhook.h"
#include "harness/loadedlibrary.h"
#include "harness/sharedobjects.h"

namespace osse_test {

// The functions, and the names of their mutexes, in the order of the table.
struct GuardName {
  const char* function;
  const char* mutex;  // null: none of its own
};
inline constexpr GuardName kGuardNames[] = {
    {"SymFunctionTableAccess64", "SymFunctionTableAccess64"},
    {"SymGetModuleInfo64", "SymGetModuleInfo64"},
    {"SymRegisterCallback64", "SymRegisterCallback64"},
    {"SymGetModuleBase64", "SymGetModuleBase64"},
    {"StackWalk64", "StackWalk64"},
    {"EnumerateLoadedModules64", "EnumerateLoadedModules64"},
    {"SymGetSymFromAddr64", "SymGetSymFromAddr64"},
    {"SymInitialize", "SymInitialize"},
    {"SymGetSearchPath", "SymGetSearchPath"},
    {"SymSetSearchPath", "SymSetSearchPath"},
    {"SymCleanup", nullptr},
    {"SymGetOptions", "SymGetOptons"},
    {"SymSetOptions", "SymSetOptons"},
    {"GetTimestampForLoadedLibrary", "GetTimestampForLoadedLibrary"},
    {"ImagehlpApiVersion", "ImagehlpApiVersion"},
    {"ImagehlpApiVersionEx", "ImagehlpApiVersionEx"},
    {"SymLoadModule64", "SymLoadModule64"},
    {"SymUnloadModule64", "SymUnloadModule64"},
};

// The mutex of this process; null when nobody has made it.
inline UniqueHandle openGuard(const std::string& name) {
  const std::string full = name + '-' + std::to_string(::GetCurrentProcessId());
  return UniqueHandle(::OpenMutexA(SYNCHRONIZE, FALSE, full.c_str()));
}

// The mutexes that a thread other than the caller finds held.
inline std::vector<std::string> heldGuards() {
  std::vector<std::string> held;
  std::thread([&held] {
    for (const GuardName& row : kGuardNames) {
      const UniqueHandle mutex = openGuard(row.mutex != nullptr ? row.mutex : "SymCleanup");
      if (mutex == nullptr) continue;
      if (::WaitForSingleObject(mutex.get(), 0) == WAIT_TIMEOUT)
        held.emplace_back(row.mutex);
      else
        ::ReleaseMutex(mutex.get());
    }
  }).join();
  return held;
}

using FakeArguments = std::array<Word, 9>;

// A call that arrived: with which arguments, and under which mutexes.
struct FakeCall {
  std::string function;
  FakeArguments arguments;
  std::vector<std::string> held;

  template <class T>
  T argument(size_t index) const {
    T value;
    std::memcpy(&value, &arguments[index], sizeof value);
    return value;
  }
};

using FakeAnswer = std::function<Word(const FakeCall&)>;

class FakeDebugHelp {
 public:
  FakeDebugHelp() {
    library_.emplace(copyOfLibrary(dir_));
    hooks_.emplace(module());
    current_ = this;
  }
  ~FakeDebugHelp() {
    unload();
    current_ = nullptr;
  }

  // A function that the library exports.
  template <class Function>
  Function* find(const char* name) const {
    return library_->find<Function>(name);
  }
  HMODULE module() const { return library_->module(); }

  void answer(const std::string& function, FakeAnswer answer) {
    answers_[function] = std::move(answer);
  }

  // What the library finds: everything, no library, or a library without functions.
  enum class Offer { All, Nothing, NoFunctions };
  void offer(Offer offer) { offer_ = offer; }

  // What arrived since the last time.
  std::vector<FakeCall> calls() { return std::exchange(calls_, {}); }

  // Ends the library, which may call the fake once more; no thread can start meanwhile.
  void unload() {
    hooks_.reset();
    isEnding_ = true;
    library_.reset();
  }

 private:
  template <size_t Row>
  static Word arrive(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i) {
    return current_->take(kGuardNames[Row].function, {a, b, c, d, e, f, g, h, i});
  }

  Word take(const char* function, const FakeArguments& arguments) {
    const DWORD error = ::GetLastError();
    const FakeCall call{function, arguments, isEnding_ ? std::vector<std::string>() : heldGuards()};
    calls_.push_back(call);
    ::SetLastError(error);
    const auto found = answers_.find(function);
    return found != answers_.end() ? found->second(call) : 0;
  }

  template <size_t... Row>
  static void* fakeOf(const char* name, std::index_sequence<Row...>) {
    void* fake = nullptr;
    ((std::strcmp(name, kGuardNames[Row].function) == 0 &&
      (fake = reinterpret_cast<void*>(&arrive<Row>))),
     ...);
    return fake;
  }

  // The library finds the fake where it loads the debugging-help library.
  struct Hooks {
    explicit Hooks(HMODULE library)
        : load(
              "LoadLibraryA",
              [](Call& call) {
                EXPECT_STREQ(call.argument<const char*>(0), "dbghelp.dll");
                return current_->offer_ == Offer::Nothing ? Word{0} : Word{1};
              },
              library),
          find(
              "GetProcAddress",
              [](Call& call) {
                constexpr auto kRows = std::make_index_sequence<std::size(kGuardNames)>();
                return current_->offer_ == Offer::All ? fakeOf(call.argument<const char*>(1), kRows)
                                                      : nullptr;
              },
              library) {}

    ImportHook load;
    ImportHook find;
  };

  TempDirectory dir_;
  std::optional<LoadedLibrary> library_;
  std::optional<Hooks> hooks_;
  Offer offer_ = Offer::All;
  bool isEnding_ = false;
  std::map<std::string, FakeAnswer> answers_;
  std::vector<FakeCall> calls_;

  static inline FakeDebugHelp* current_ = nullptr;
};

}  // namespace osse_test
