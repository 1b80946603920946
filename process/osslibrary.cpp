// Dynamic libraries.
#include "osslibrary.h"

#include <windows.h>

#include "core/ossoperation.h"

using namespace oss;

struct OSSHLibrary::Layout {
  OSS_FIELD(OSSHLibrary, module_, 0, 8);
  OSS_FIELD(OSSHLibrary, loaded_, 8, 1);
};

namespace {

struct Option {
  uint64_t flag;
  DWORD option;
};
constexpr Option kOptions[] = {
    {OSS_LIB_DONT_RESOLVE, DONT_RESOLVE_DLL_REFERENCES},
    {OSS_LIB_IGNORE_AUTHZ_LEVEL, LOAD_IGNORE_CODE_AUTHZ_LEVEL},
    {OSS_LIB_AS_DATAFILE, LOAD_LIBRARY_AS_DATAFILE},
    {OSS_LIB_ALTERED_SEARCH_PATH, LOAD_WITH_ALTERED_SEARCH_PATH},
};

DWORD optionsOf(uint64_t flags) noexcept {
  DWORD options = 0;
  for (const Option& each : kOptions)
    if ((flags & each.flag) != 0) options |= each.option;
  return options;
}

}  // namespace

OSSErr OSSHLibrary::load(const char* path, uint64_t flags) noexcept {
  Operation op(Func::OSSHLibrary_load);
  const bool quiet = (flags & OSS_LIB_QUIET) != 0;
  if (path == nullptr) return quiet ? op.exit(ECF_INVALID_PARAMETER) : op.checkNotNull(path);
  if (loaded_)
    return quiet ? op.exit(ECF_LIB_ALREADY_LOADED)
                 : op.fail(20, ECF_LIB_ALREADY_LOADED, OSS_LOG_INFO);

  *this = OSSHLibrary();
  const DWORD options = optionsOf(flags);
  const HMODULE module = ::LoadLibraryExA(path, nullptr, options);
  if (module != nullptr) {
    module_ = module;
    loaded_ = true;
    return op.exit();
  }

  const DWORD error = ::GetLastError();
  // Deliberate: a missing module is not mapped to a missing file.
  const bool missing = error == ERROR_MOD_NOT_FOUND;
  if (quiet)
    return missing ? op.failTraced(30, ECF_LIB_CANNOT_LOAD)
                   : op.failUnlogged(30, SysCall::LoadLibraryExA, error);
  const LogArgs args = {{1, string(path)}, {3, hex(options)}};
  return missing ? op.failUnmapped(30, SysCall::LoadLibraryExA, ECF_LIB_CANNOT_LOAD, args)
                 : op.failSystem(30, SysCall::LoadLibraryExA, args);
}

OSSErr OSSHLibrary::unload() noexcept {
  Operation op(Func::OSSHLibrary_unload);
  if (!loaded_) return op.fail(10, ECF_LIB_NOT_LOADED, OSS_LOG_INFO);

  if (!::FreeLibrary(static_cast<HMODULE>(module_)))
    return op.failSystem(20, SysCall::FreeLibrary, {{1, hex(module_)}});
  *this = OSSHLibrary();
  return op.exit();
}

OSSErr OSSHLibrary::getFuncAddress(const OSSLibGetFuncAddressParam* param,
                                   OSSLibGetFuncAddressInfo* info) noexcept {
  Operation op(Func::OSSHLibrary_getFuncAddress);
  if (const OSSErr rc = op.check(param)) return rc;
  const bool quiet = (param->flags & OSS_LIB_LOOKUP_QUIET) != 0;
  if (info == nullptr) return quiet ? op.exit(ECF_INVALID_PARAMETER) : op.checkNotNull(info);
  if (!loaded_)
    return quiet ? op.exit(ECF_LIB_NOT_LOADED) : op.fail(20, ECF_LIB_NOT_LOADED, OSS_LOG_INFO);

  const char* const name = param->functionName;
  const FARPROC found = ::GetProcAddress(static_cast<HMODULE>(module_), name);
  info->functionAddress = reinterpret_cast<OSSFunctionAddress>(reinterpret_cast<void*>(found));
  if (found != nullptr) return op.exit();

  // Deliberate: the mapped code is for the record and the trace; callers see one code.
  static_cast<void>(
      quiet ? op.failUnlogged(30, SysCall::GetProcAddress, ::GetLastError())
            : op.failSystem(30, SysCall::GetProcAddress, {{1, hex(module_)}, {2, string(name)}}));
  return op.exit(ECF_LIB_FUNC_NOT_FOUND);
}

OSSErr OSSHLibrary::getFuncAddress(const char* name, OSSFunctionAddress* function) noexcept {
  OSSLibGetFuncAddressParam param;
  param.functionName = name;
  if (function == nullptr) return getFuncAddress(&param, nullptr);  // which refuses it

  OSSLibGetFuncAddressInfo info;
  if (const OSSErr rc = getFuncAddress(&param, &info)) return rc;
  *function = info.functionAddress;
  return ECF_OK;
}

OSSErr OSSHLibrary::getFunctionAddresses(OSSLibGetFunctionAddressesParam* param,
                                         OSSFunctionAddress* functions) noexcept {
  Operation op(Func::OSSHLibrary_getFunctionAddresses);
  if (const OSSErr rc = op.check(param)) return rc;
  if (param->count == 0) return op.exit();
  if (const OSSErr rc = op.checkNotNull(param->functionNames)) return rc;
  if (const OSSErr rc = op.checkNotNull(functions)) return rc;

  OSSErr missed = ECF_OK;
  for (uint64_t i = 0; i < param->count; ++i) {
    OSSLibGetFuncAddressParam one;
    one.functionName = param->functionNames[i];
    OSSLibGetFuncAddressInfo found;
    const OSSErr rc = getFuncAddress(&one, &found);
    if (rc != ECF_OK && rc != ECF_LIB_FUNC_NOT_FOUND)
      return op.failCalled(50, Func::OSSHLibrary_getFuncAddress, rc);
    functions[i] = found.functionAddress;
    if (rc == ECF_OK) continue;
    // Deliberate: the second record of this miss.
    missed =
        op.failCalled(40, Func::OSSHLibrary_getFuncAddress, rc, {{1, string(one.functionName)}});
  }
  return op.exit(missed == ECF_OK ? ECF_OK : ECF_PARTIAL_INFO);
}
