// ossdebughelp.h - the debugging-help library, loaded on first use, one guarded call at a time.
//
//   ossSymGetModuleInfo(...) is
//   return Guarded<decltype(::SymGetModuleInfo64)>::call(GuardRow::SymGetModuleInfo64,
//                                                        keepIfFailed, process, address, module);
//
// It is never freed: symbols stay initialised for the life of the process, and they live in it.
#pragma once

#include "fault/ossguardtable.h"

namespace oss {

// The function of a row, which the library is searched for once. Null, with the last error
// ERROR_MOD_NOT_FOUND or ERROR_PROC_NOT_FOUND, when there is none; otherwise the last error
// survives.
void* debugHelpFunction(GuardRow row) noexcept;

// Whether a call's last error is to survive the release of the mutex.
inline constexpr auto keepIfFailed = [](const auto& result) noexcept { return !result; };
inline constexpr auto keepNothing = [](const auto&) noexcept { return false; };

template <class Function>
struct Guarded;

template <class Result, class... Arguments>
struct Guarded<Result(Arguments...)> {
  using Pointer = Result (*)(Arguments...);

  static Pointer find(GuardRow row) noexcept {
    return reinterpret_cast<Pointer>(debugHelpFunction(row));
  }

  template <class KeepsError>
  static Result call(GuardRow row, KeepsError keepsError, Arguments... arguments) noexcept {
    const Pointer function = find(row);
    if (function == nullptr) return Result{};

    GuardLock lock(row);
    const Result result = function(arguments...);
    if (keepsError(result)) lock.keepError();
    return result;
  }
};

}  // namespace oss
