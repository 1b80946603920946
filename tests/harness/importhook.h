// importhook.h - decides what the system answers to the library.
//
// The library calls the system through the import table of its module. A hook exchanges one entry
// of that table for the length of a scope, so that a test can count a call, refuse it with any
// error, or answer it with a made-up result. The library has no part in it.
//
//   CallCounter opens("CreateFileA");                  // passes on and counts
//   FailingCall fails("ReadFile", ERROR_CRC);          // refuses the first call
//   ImportHook sleeps("Sleep", [&](Call& call) { slept.push_back(call.argument<DWORD>(0)); });
//
// A test program that loads the DLL calls the system through a table of its own, so a hook never
// meets the test's own calls. Where the library's objects are linked into the program, both share
// one. Mind that the library's log writes its records through the same table as the operation that
// fails.
//
// A name that the module does not import fails the test, and so does a hook, other than a counter,
// that nobody has called by the end of its scope: such a test would prove nothing. Hooks of one
// function nest; they are removed in reverse order. Several threads may call through one hook.
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "harness/peimage.h"

namespace osse_test {

// An argument or a result as it travels: every one of a system call fits into a 64-bit register or
// stack slot. What it does not fill is undefined.
using Word = uint64_t;
inline constexpr Word kAllOnes = ~Word{0};

// No function that the library imports takes more arguments; where it takes fewer, the rest is
// whatever lies there, and is passed on unread.
inline constexpr size_t kMostArguments = 12;
using Arguments = std::array<Word, kMostArguments>;
using AnyFunction = Word(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

// One call that arrived at a hook.
class Call {
 public:
  Call(AnyFunction* original, const Arguments& arguments)
      : original_(original), arguments_(arguments) {}

  // The argument at that place, counted from 0: an integer of any width, or a pointer.
  template <class T>
  T argument(size_t index) const {
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) <= sizeof(Word));
    T value;
    std::memcpy(&value, &arguments_[index], sizeof value);
    return value;
  }

  // Makes the call as the library asked for it and returns the system's result.
  Word passOn() const;

 private:
  AnyFunction* original_;
  Arguments arguments_;
};

class ImportHook {
 public:
  // Answers the calls of `function`, as the system names it, by `answer`: a callable that takes a
  // Call& and returns the result (an integer or a pointer; nothing counts as 0). It must not throw.
  template <class Answer>
  ImportHook(const char* function, Answer answer, HMODULE module = libraryModule())
      : ImportHook(function, wrap(std::move(answer)), MustFire::Yes, module) {}
  ~ImportHook();
  ImportHook(const ImportHook&) = delete;
  ImportHook& operator=(const ImportHook&) = delete;

  int calls() const { return calls_.load(); }

 private:
  friend class CallCounter;
  friend class FailingCall;
  template <size_t Slot>
  friend Word enter(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

  using Handler = std::function<Word(Call&)>;
  enum class MustFire : bool { No, Yes };

  ImportHook(const char* function, Handler handler, MustFire mustFire, HMODULE module);

  template <class Answer>
  static Handler wrap(Answer answer) {
    return [answer = std::move(answer)](Call& call) mutable -> Word {
      if constexpr (std::is_void_v<decltype(answer(call))>) {
        answer(call);
        return 0;
      } else if constexpr (std::is_pointer_v<decltype(answer(call))>) {
        return reinterpret_cast<Word>(answer(call));
      } else {
        return static_cast<Word>(answer(call));
      }
    };
  }

  Word take(const Arguments& arguments);

  std::string function_;
  Handler handler_;
  MustFire mustFire_;
  size_t slot_;
  std::vector<void**> entries_;
  void* original_ = nullptr;
  std::atomic<int> calls_{0};
};

// Passes every call on and counts.
class CallCounter {
 public:
  explicit CallCounter(const char* function, HMODULE module = libraryModule());

  int calls() const { return hook_.calls(); }

 private:
  ImportHook hook_;
};

// Refuses one call as the system would: sets the error and returns the result that means failure.
// The calls before and after it are passed on. A call that it waited for and that did not come
// fails the test.
class FailingCall {
 public:
  struct Way {
    Word result = 0;
    int onCall = 1;  // which call is refused, counted from 1
  };

  FailingCall(const char* function, DWORD error);
  FailingCall(const char* function, DWORD error, Way way);
  ~FailingCall();

  int calls() const { return hook_.calls(); }

 private:
  std::string function_;
  Way way_;
  std::atomic<int> seen_{0};
  ImportHook hook_;
};

}  // namespace osse_test
