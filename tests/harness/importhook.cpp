#include "harness/importhook.h"

#include <gtest/gtest.h>

namespace osse_test {
namespace {

// A replacement is called by the library without a word about the hook it belongs to. So there are
// as many entrances as there can be hooks at a time, each of which knows its slot.
constexpr size_t kSlots = 16;
std::array<ImportHook*, kSlots> g_hooks = {};

}  // namespace

template <size_t Slot>
Word enter(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k,
           Word l) {
  return g_hooks[Slot]->take({a, b, c, d, e, f, g, h, i, j, k, l});
}

namespace {

template <size_t... Slot>
constexpr std::array<AnyFunction*, kSlots> entrances(std::index_sequence<Slot...>) {
  return {&enter<Slot>...};
}
constexpr auto kEntrances = entrances(std::make_index_sequence<kSlots>());

size_t freeSlot() {
  size_t slot = 0;
  while (slot < kSlots && g_hooks[slot] != nullptr) ++slot;
  return slot;
}

// Import tables may lie in memory that the loader has made read-only.
void store(void** entry, void* function) {
  DWORD protection = 0;
  ::VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
  *entry = function;
  ::VirtualProtect(entry, sizeof *entry, protection, &protection);
}

}  // namespace

Word Call::passOn() const {
  const Arguments& a = arguments_;
  return original_(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11]);
}

ImportHook::ImportHook(const char* function, Handler handler, MustFire mustFire, HMODULE module)
    : function_(function), handler_(std::move(handler)), mustFire_(mustFire), slot_(freeSlot()) {
  if (slot_ == kSlots) {
    ADD_FAILURE() << "no slot is left to hook " << function_;
    return;
  }
  for (const Import& import : importsOf(module)) {
    if (import.function != function_) continue;
    original_ = *import.entry;
    entries_.push_back(import.entry);
  }
  if (entries_.empty()) {
    ADD_FAILURE() << nameOf(module) << " does not import " << function_;
    return;
  }

  g_hooks[slot_] = this;
  for (void** const entry : entries_) store(entry, reinterpret_cast<void*>(kEntrances[slot_]));
}

ImportHook::~ImportHook() {
  if (entries_.empty()) return;

  if (*entries_.front() == reinterpret_cast<void*>(kEntrances[slot_]))
    for (void** const entry : entries_) store(entry, original_);
  else
    ADD_FAILURE() << "hooks of " << function_ << " are not removed in reverse order";
  g_hooks[slot_] = nullptr;
  EXPECT_TRUE(calls() != 0 || mustFire_ == MustFire::No) << "nobody called " << function_;
}

Word ImportHook::take(const Arguments& arguments) {
  ++calls_;
  Call call(reinterpret_cast<AnyFunction*>(original_), arguments);
  return handler_(call);
}

CallCounter::CallCounter(const char* function, HMODULE module)
    : hook_(
          function, [](Call& call) { return call.passOn(); }, ImportHook::MustFire::No, module) {}

FailingCall::FailingCall(const char* function, DWORD error) : FailingCall(function, error, Way()) {}

FailingCall::FailingCall(const char* function, DWORD error, Way way)
    : function_(function),
      way_(way),
      hook_(
          function,
          [this, error](Call& call) {
            if (++seen_ != way_.onCall) return call.passOn();
            ::SetLastError(error);
            return way_.result;
          },
          ImportHook::MustFire::No, libraryModule()) {}

FailingCall::~FailingCall() {
  EXPECT_GE(calls(), way_.onCall) << function_ << " was to be refused, but the call never came";
}

}  // namespace osse_test
