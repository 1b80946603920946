// ossstackframes.h - walks a stack from given registers.
//
//   StackFrames frames(context);
//   while (frames.next()) use(frames.current());
#pragma once

#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include "ossstackwalk.h"

namespace oss {

// The frames of the calling thread, innermost first. Symbols must be initialised.
class StackFrames {
 public:
  explicit StackFrames(const CONTEXT& context) noexcept : context_(context) {
    start(frame_.AddrPC, context.Rip);
    start(frame_.AddrFrame, context.Rbp);
    start(frame_.AddrStack, context.Rsp);
  }

  // False when there is no further frame. The first one is that of the registers.
  bool next() noexcept {
    return ossStackWalk(::GetCurrentProcess(), ::GetCurrentThread(), &frame_, &context_) != FALSE;
  }

  // What the last step left, also when it found no frame.
  STACKFRAME64& current() noexcept { return frame_; }

 private:
  static void start(ADDRESS64& address, DWORD64 offset) noexcept {
    address.Offset = offset;
    address.Mode = AddrModeFlat;
  }

  CONTEXT context_;
  STACKFRAME64 frame_ = {};
};

}  // namespace oss
