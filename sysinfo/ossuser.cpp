// The user that runs the process, and its log-on session.
#include <windows.h>

#include <algorithm>
#include <limits>

#include "core/ossoperation.h"
#include "ossstring.h"
#include "osssysinfo.h"

using namespace oss;

OSSErr ossGetCurrentUserName(const OSSUserParam* param, char* out) noexcept {
  Operation op(Func::ossGetCurrentUserName);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(out)) return rc;
  op.trace(10, *param);

  auto size =
      static_cast<DWORD>(std::min<uint64_t>(param->size, std::numeric_limits<DWORD>::max()));
  if (!::GetUserNameA(out, &size))
    return op.failSystem(40, SysCall::GetUserNameA, {{2, uint(size)}, {3, uint(param->size)}});
  return op.exit();
}

OSSErr ossGetCurrentUserDisplay(const OSSUserParam* param, char* out) noexcept {
  Operation op(Func::ossGetCurrentUserDisplay);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(out)) return rc;
  op.trace(10, *param);

  constexpr DWORD kAccess = TOKEN_QUERY | READ_CONTROL;
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), kAccess, &token))
    return op.failSystem(30, SysCall::OpenProcessToken, {{2, hex(kAccess)}});

  DWORD session = 0;
  DWORD size = 0;
  // Deliberate: the token stays open.
  if (!::GetTokenInformation(token, TokenSessionId, &session, sizeof session, &size))
    return op.failSystem(40, SysCall::GetTokenInformation, {{1, hex(token)}});

  ossSnprintf(out, param->size, "%d", static_cast<int>(session));
  if (!::CloseHandle(token)) return op.failSystem(50, SysCall::CloseHandle, {{1, hex(token)}});
  return op.exit();
}
