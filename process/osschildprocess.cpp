// Starting another program. The operation checks and normalises; below it one half starts the child
// and the other waits for it.
#include <windows.h>

#include <cstdlib>
#include <memory>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ipc/ossipcsecurity.h"
#include "ossprocess.h"
#include "process/osscommandline.h"

using namespace oss;

struct OSSHProcess::Layout {
  OSS_FIELD(OSSHProcess, mustWait_, 0, 1);
  OSS_FIELD(OSSHProcess, created_, 1, 1);
  OSS_FIELD(OSSHProcess, flags_, 8, 8);
  OSS_FIELD(OSSHProcess, processHandle_, 16, 8);
};

namespace {

// Deliberate: of the values that no bits explain, 10 is accepted.
constexpr bool isAccepted(uint64_t flags) noexcept {
  constexpr uint64_t kAllBits =
      OSS_PROCESS_DETACHED | OSS_PROCESS_SYNCHRONOUS | OSS_PROCESS_INHERIT;
  return flags <= kAllBits || flags == 10;
}

// Deliberate: a child that is neither detached nor waited for inherits nothing.
constexpr uint64_t normalised(uint64_t flags) noexcept {
  return (flags & (OSS_PROCESS_DETACHED | OSS_PROCESS_SYNCHRONOUS)) != 0 ? flags : 0;
}

// Memory of the C run-time's, for as long as a child takes to start.
struct Releaser {
  void operator()(char* text) const noexcept { std::free(text); }
};
using Text = std::unique_ptr<char, Releaser>;

Text allocateText(uint64_t bytes) noexcept {
  Text text(static_cast<char*>(std::malloc(bytes)));
  // The run-time may leave no error.
  if (text == nullptr && ::GetLastError() == NO_ERROR) ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return text;
}

STARTUPINFOA hiddenWindow() noexcept {
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  return startup;
}

}  // namespace

OSSHProcess::OSSHProcess() noexcept : processHandle_(INVALID_HANDLE_VALUE) {}

OSSErr OSSHProcess::create(OSSProcessParam* param, unsigned long* processID,
                           OSSProcessStatus* status) noexcept {
  Operation op(Func::OSSHProcess_create);
  if (const OSSErr rc = op.check(param)) return rc;
  if (param->program == nullptr) return op.fail(30, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  if (!isAccepted(param->flags)) return op.failField(30, param->flags);

  param->flags = flags_ = normalised(param->flags);
  if (const OSSErr rc = createProcess(*param, processID, status))
    return op.failCalled(40, Func::OSSHProcess_createProcess, rc);
  return op.exit();
}

OSSErr OSSHProcess::createProcess(const OSSProcessParam& param, unsigned long* processID,
                                  OSSProcessStatus* status) noexcept {
  Operation op(Func::OSSHProcess_createProcess);

  uint64_t bytes = commandBytes(param.program);
  const Text command = allocateText(bytes);
  if (command == nullptr) return op.failSystem(10, SysCall::Malloc, {{1, uint(bytes)}});
  writeCommand(param.program, command.get());

  Text whole;
  if (param.arguments != nullptr) {
    bytes = commandLineBytes(command.get(), param.arguments);
    whole = allocateText(bytes);
    if (whole == nullptr) return op.failSystem(20, SysCall::Malloc, {{1, uint(bytes)}});
    writeCommandLine(command.get(), param.arguments, whole.get());
  }
  char* const commandLine = whole != nullptr ? whole.get() : command.get();

  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  if (const OSSErr rc = ossIPCBuildSecurityAttributes(&descriptor, &attributes))
    return op.failCalled(30, Func::ossInitSecurityAttributes, rc);

  const BOOL inherit = (flags_ & OSS_PROCESS_INHERIT) != 0;
  const DWORD creation =
      NORMAL_PRIORITY_CLASS | ((flags_ & OSS_PROCESS_DETACHED) != 0 ? DETACHED_PROCESS : 0);
  char* const environment = const_cast<char*>(param.environment);  // which the system only reads
  STARTUPINFOA startup = hiddenWindow();
  PROCESS_INFORMATION child = {};
  if (!::CreateProcessA(nullptr, commandLine, &attributes, &attributes, inherit, creation,
                        environment, nullptr, &startup, &child))
    return op.failSystem(40, SysCall::CreateProcessA, {{5, uint(inherit)}, {6, hex(creation)}});
  ::CloseHandle(child.hThread);

  created_ = true;
  mustWait_ = (flags_ & OSS_PROCESS_SYNCHRONOUS) != 0;
  processHandle_ = child.hProcess;
  const OSSErr rc = mustWait_ ? wait(child.dwProcessId, status) : ECF_OK;
  closeHandle(processHandle_);
  processHandle_ = INVALID_HANDLE_VALUE;
  if (rc == ECF_OK && processID != nullptr) *processID = child.dwProcessId;
  return op.exit(rc);
}

// The handle tells which process; its identifier is for platforms that have nothing else.
OSSErr OSSHProcess::wait(unsigned long /*processID*/, OSSProcessStatus* status) noexcept {
  Operation op(Func::OSSHProcess_wait);
  // Deliberate: the record is create's.
  if (!created_)
    return op.failAs(Func::OSSHProcess_create, 10, ECF_PROCESS_NOT_CREATED, OSS_LOG_INFO);

  OSSProcessStatus unasked;
  OSSProcessStatus& ended = status != nullptr ? *status : unasked;
  ended = {};
  const DWORD result = waitForHandle(processHandle_, INFINITE);
  if (result == WAIT_FAILED)
    return op.failSystem(50, SysCall::WaitForSingleObject, {{1, hex(processHandle_)}});
  if (result != WAIT_OBJECT_0) return op.fail(60, ECF_FAILED, OSS_LOG_INFO, {hex(result)});
  mustWait_ = false;

  DWORD exitCode = 0;
  if (!::GetExitCodeProcess(processHandle_, &exitCode))
    return op.failSystem(70, SysCall::GetExitCodeProcess, {{1, hex(processHandle_)}});
  ended.exitCode = exitCode;
  return op.exit();
}
