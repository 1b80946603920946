// osslibrary.h - dynamic libraries that are loaded at run time, and the functions in them.
//
// A handle is a plain value: it is constructed empty, owns its library from a successful load()
// until a successful unload(), and no destructor releases anything. One thread loads and unloads
// through a handle at a time; while the library is loaded, any threads may look functions up.
//
// Every operation is traced. One with a parameter record first refuses a null record
// (ECF_INVALID_PARAMETER, probe 1111) and one older than 20040702 (ECF_INVALID_VERSION, probe
// 1112), logged at level Error. Every other refusal is logged, too, unless the call is quiet: what
// the operation finds itself at level Info, what the system refuses as its mapping says
// (ossErrorMapSystem).
#pragma once

#include "osstypes.h"

/// What a look-up finds; to be cast to the function's own type.
using OSSFunctionAddress = int (*)();

/// Bits of the flags of OSSHLibrary::load; other bits are ignored. All but the first are options of
/// the system's loader.
inline constexpr uint64_t OSS_LIB_QUIET = 2;                 ///< a failure writes no log record
inline constexpr uint64_t OSS_LIB_DONT_RESOLVE = 8;          ///< neither imports nor its start-up
inline constexpr uint64_t OSS_LIB_IGNORE_AUTHZ_LEVEL = 16;   ///< no software restriction policies
inline constexpr uint64_t OSS_LIB_AS_DATAFILE = 32;          ///< for its resources; no functions
inline constexpr uint64_t OSS_LIB_ALTERED_SEARCH_PATH = 64;  ///< what it needs lies beside it

/// A bit of OSSLibGetFuncAddressParam::flags: a failure writes no log record.
inline constexpr uint64_t OSS_LIB_LOOKUP_QUIET = 1;

struct OSSLibGetFuncAddressParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* functionName = nullptr;  ///< as the library exports it
  uint64_t flags = 0;                  ///< OSS_LIB_LOOKUP_QUIET
};
OSS_LAYOUT(OSSLibGetFuncAddressParam, 24);
OSS_FIELD(OSSLibGetFuncAddressParam, version, 0, 8);
OSS_FIELD(OSSLibGetFuncAddressParam, functionName, 8, 8);
OSS_FIELD(OSSLibGetFuncAddressParam, flags, 16, 8);

struct OSSLibGetFuncAddressInfo {
  uint64_t version = OSS_VERSION_CURRENT;  ///< not examined
  OSSFunctionAddress functionAddress = nullptr;
};
OSS_LAYOUT(OSSLibGetFuncAddressInfo, 16);
OSS_FIELD(OSSLibGetFuncAddressInfo, version, 0, 8);
OSS_FIELD(OSSLibGetFuncAddressInfo, functionAddress, 8, 8);

struct OSSLibGetFunctionAddressesParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t count = 0;
  const char* const* functionNames = nullptr;  ///< `count` of them
};
OSS_LAYOUT(OSSLibGetFunctionAddressesParam, 24);
OSS_FIELD(OSSLibGetFunctionAddressesParam, version, 0, 8);
OSS_FIELD(OSSLibGetFunctionAddressesParam, count, 8, 8);
OSS_FIELD(OSSLibGetFunctionAddressesParam, functionNames, 16, 8);

class OSS_API OSSHLibrary {
 public:
  /// Constructs an empty handle.
  OSSHLibrary() noexcept = default;

  /// Loads a library, and what it needs.
  /// \param path   NUL-terminated, in the ANSI code page; a bare name is searched for by the system
  /// \param flags  OSS_LIB_...
  /// \retval 0                       loaded
  /// \retval ECF_LIB_ALREADY_LOADED  the handle has a library, which stays (probe 20)
  /// \retval ECF_LIB_CANNOT_LOAD     the system finds no such module, or none that it needs (30)
  /// \retval ECF_INVALID_PARAMETER   `path` is null (1111)
  /// \return otherwise the system's refusal, mapped and logged with path and options (30)
  OSSErr load(const char* path, uint64_t flags) noexcept;

  /// Unloads the library. Functions found in it must not be called any more.
  /// \retval 0                   unloaded
  /// \retval ECF_LIB_NOT_LOADED  the handle has no library (10)
  /// \return otherwise the system's refusal, mapped and logged (20); the library stays loaded
  OSSErr unload() noexcept;

  /// Looks a function up.
  /// \param info  info->functionAddress receives the address, null when there is none; untouched
  ///              when no library is loaded
  /// \retval 0                       found
  /// \retval ECF_LIB_NOT_LOADED      the handle has no library (20)
  /// \retval ECF_LIB_FUNC_NOT_FOUND  the library exports no such name. The record shows the
  ///                                 system's error and its mapped code, module and name (30)
  /// \retval ECF_INVALID_PARAMETER   `info` is null (1111)
  OSSErr getFuncAddress(const OSSLibGetFuncAddressParam* param,
                        OSSLibGetFuncAddressInfo* info) noexcept;

  /// The same, not quiet.
  /// \param function  receives the address on success only; null is refused like a null `info`
  OSSErr getFuncAddress(const char* name, OSSFunctionAddress* function) noexcept;

  /// Looks several functions up. A name that is missing is logged twice: by the look-up itself and
  /// with its name at probe 40.
  /// \param functions  receives `count` addresses, null for each one that is missing
  /// \retval 0                      all are found, or `count` is 0
  /// \retval ECF_PARTIAL_INFO       a warning: some are missing
  /// \retval ECF_INVALID_PARAMETER  `functions` or the names are null while `count` is not 0 (1111)
  /// \return otherwise the code of the look-up that failed, logged once more at probe 50; that
  ///         position and those behind it stay unwritten
  OSSErr getFunctionAddresses(OSSLibGetFunctionAddressesParam* param,
                              OSSFunctionAddress* functions) noexcept;

 private:
  struct Layout;

  void* module_ = nullptr;
  bool loaded_ = false;
};
OSS_LAYOUT(OSSHLibrary, 16);
