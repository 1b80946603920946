// Identifiers of shared objects. How a name is put together is in ossipcname.cpp.
#include "ossipcresource.h"

#include <iterator>

#include "core/ossoperation.h"
#include "ipc/ossipcname.h"

using namespace oss;

namespace {

static_assert(kIPCNameBytes == std::extent_v<decltype(OSSIPCResID::name)>);

// Deliberate: an identifier that is older than the flag does not know of it. Nor does the record of
// its caller, which ends in front of the flag.
NameScope scopeOf(const OSSIPCGetResIDParam& in, const OSSIPCResID& out) noexcept {
  const bool local = out.version >= OSS_VERSION_LOCAL_NAMES && in.local;
  return !local && g_bRunningTerminalServiceRemoteAdminMode ? NameScope::Global
                                                            : NameScope::Session;
}

// Deliberate: `local` stays behind. The names behind a queue's first one follow the platform.
OSSIPCGetResIDParam numbered(const OSSIPCGetResIDParam& in, uint32_t distance) noexcept {
  OSSIPCGetResIDParam param;
  param.path = in.path;
  param.spare = in.spare;
  param.projectID = static_cast<int32_t>(static_cast<uint32_t>(in.projectID) + distance);
  return param;
}

}  // namespace

OSSErr ossIPCGetResID(const OSSIPCGetResIDParam* in, OSSIPCResID* out) noexcept {
  Operation op(Func::ossIPCGetResID);
  if (const OSSErr rc = op.check(out)) return rc;
  if (const OSSErr rc = op.checkNotNull(in)) return rc;

  if (in->path == nullptr) {
    out->name[0] = '\0';
    return op.exit();
  }
  formIPCName(in->path, in->projectID, scopeOf(*in, *out), out->name);
  const char* const name = out->name;
  op.trace(60, name);
  return op.exit();
}

OSSErr ossIPCGetQueResID(const OSSIPCGetResIDParam* in, OSSIPCQueResID* out) noexcept {
  Operation op(Func::ossIPCGetQueResID);
  if (const OSSErr rc = op.check(out)) return rc;
  if (const OSSErr rc = op.checkNotNull(in)) return rc;

  if (const OSSErr rc = ossIPCGetResID(in, &out->memory)) return op.failTraced(20, rc);
  const OSSIPCGetResIDParam second = numbered(*in, 1);
  if (const OSSErr rc = ossIPCGetResID(&second, &out->dataSemaphore)) return op.failTraced(30, rc);
  const OSSIPCGetResIDParam third = numbered(*in, 2);
  if (const OSSErr rc = ossIPCGetResID(&third, &out->spaceSemaphore)) return op.failTraced(40, rc);
  return op.exit();
}

OSSErr ossIPCGenerateSeed(...) noexcept { return ECF_NOT_SUPPORTED; }
