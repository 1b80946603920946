// ossprocess.h - processes: starting another program, and the one that runs.
//
// A program is started and let go of, or started and waited for. Either way nothing of it is left
// with the caller but its identifier and, waited for, its exit code: no system handle outlives
// OSSHProcess::create, and there is nothing to close.
//
// OSSHProcess::create is traced, and so are its two inner halves. It first refuses a null record
// (ECF_INVALID_PARAMETER, probe 1111) and one older than 20040702 (ECF_INVALID_VERSION, probe
// 1112), logged at level Error. Every other refusal is logged, too: what the operation finds itself
// at level Info, what the system refuses as its mapping says (ossErrorMapSystem). One thread uses
// an OSSHProcess at a time.
#pragma once

#include "osslibrary.h"  // dynamic libraries
#include "ossthread.h"   // threads, thread-specific data
#include "osstypes.h"

extern "C" {

/// The system's identifier of the process. Any thread, any time; not traced.
OSS_API uint32_t ossProcessID() noexcept;

/// The parent is not known on this platform: 0xFFFFFFFF, always. Not traced.
OSS_API uint32_t ossProcessParentID() noexcept;

/// Ends the process with an exit code. Does not return; not traced.
[[noreturn]] OSS_API void ossProcessExit(uint32_t code) noexcept;

}  // extern "C"

// ---- Starting a program -------------------------------------------------------------------------

/// Bits of OSSProcessParam::flags. Their sums are accepted, and 8 beside OSS_PROCESS_SYNCHRONOUS
/// alone. Without one of the first two no bit counts: inheritance alone is none.
inline constexpr uint64_t OSS_PROCESS_DETACHED = 1;     ///< without the caller's console
inline constexpr uint64_t OSS_PROCESS_SYNCHRONOUS = 2;  ///< create waits for the child's end
inline constexpr uint64_t OSS_PROCESS_INHERIT = 4;      ///< the child has the inheritable handles

struct OSSProcessParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* program = nullptr;  ///< a path, which is put in quotation marks unless it begins with
                                  ///< one; then it may be more than a path. Required
  const char* arguments = nullptr;    ///< NUL-terminated texts, one behind the other, ended by an
                                      ///< empty one; null for none
  const char* environment = nullptr;  ///< a block as the system takes it: NAME=value texts, ended
                                      ///< by an empty one; null for the caller's own
  uint64_t flags = 0;                 ///< OSS_PROCESS_...; create may set it to 0
};
OSS_LAYOUT(OSSProcessParam, 40);
OSS_FIELD(OSSProcessParam, version, 0, 8);
OSS_FIELD(OSSProcessParam, program, 8, 8);
OSS_FIELD(OSSProcessParam, arguments, 16, 8);
OSS_FIELD(OSSProcessParam, environment, 24, 8);
OSS_FIELD(OSSProcessParam, flags, 32, 8);

/// How a child ended.
struct OSSProcessStatus {
  uint32_t reserved0 = 0;  ///< 0 on this platform
  uint32_t exitCode = 0;   ///< whatever the child gave, 259 too
  uint32_t reserved2 = 0;  ///< 0 on this platform
};
OSS_LAYOUT(OSSProcessStatus, 12);
OSS_FIELD(OSSProcessStatus, reserved0, 0, 4);
OSS_FIELD(OSSProcessStatus, exitCode, 4, 4);
OSS_FIELD(OSSProcessStatus, reserved2, 8, 4);

class OSS_API OSSHProcess {
 public:
  /// Constructs a handle without a child.
  OSSHProcess() noexcept;

  /// Starts a program in the caller's working directory, with its window hidden. The command line
  /// is the program and the arguments, with a blank between each:
  ///
  ///   program C:\tools\a.exe, arguments "x", "y z"   ->   "C:\tools\a.exe" x y z
  ///
  /// Arguments are joined as they are. One with a blank or a quotation mark in it reaches the
  /// child's main as the caller means it only if the caller has quoted it. An object may be used
  /// again and again.
  /// \param param      param->flags becomes 0 unless one of the first two bits is set
  /// \param processID  receives the child's identifier: at once or, synchronous, when it has ended;
  ///                   may be null
  /// \param status     synchronous, receives how the child ended; may be null
  /// \retval 0                      the child runs or, synchronous, has ended, whatever its code
  /// \retval ECF_INVALID_PARAMETER  the program is null or the flags are not accepted (probe 30)
  /// \return otherwise the code of the inner half, logged once more at probe 40: memory for the
  ///         command line (10, 20), the security attributes (30), the system's refusal of the
  ///         program (40), logged under the half that starts it; the wait (50), a wait that ends
  ///         otherwise, as ECF_FAILED (60), the exit code (70), logged under the half that waits.
  ///         From 50 on the child was started, and at 70 it has ended; *status is all 0, and
  ///         *processID is not set.
  OSSErr create(OSSProcessParam* param, unsigned long* processID,
                OSSProcessStatus* status) noexcept;

 private:
  struct Layout;

  OSSErr createProcess(const OSSProcessParam& param, unsigned long* processID,
                       OSSProcessStatus* status) noexcept;
  OSSErr wait(unsigned long processID, OSSProcessStatus* status) noexcept;

  bool mustWait_ = false;  // the child was started synchronously and not waited for
  bool created_ = false;   // a child was started
  uint64_t flags_ = 0;
  void* processHandle_;  // all ones outside create
};
OSS_LAYOUT(OSSHProcess, 24);
