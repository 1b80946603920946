// osscatalog.h - return codes, function identifiers, the catalog that names them, the mapping of
// system errors, and the flags that tell on which platform the process runs.
//
//   return code   31 30..28 27..23 22......0     function
//   identifier   31..27  26....19 18.16 15....0
//                [E |  set |  0   |  index ] [product|component|kind|function]
//
// A code is 0 ("OK") or an index into error set 1; E is set for errors and clear for warnings. The
// library's own operations are product 1, component 3, kind 2 (0x081A0000 + number); the system
// calls that they make are product 1, component 2, kind 4 (0x08140000 + number). All indexes count
// from 1.
//
// Everything here is a constant, a pure function of its arguments, or set once while the library
// loads: any thread may use it at any time. Strings live as long as the library; nobody frees them.
#pragma once

#include "osstypes.h"

// ---- Return codes -------------------------------------------------------------------------------

inline constexpr uint32_t OSS_ERR_FLAG = 0x80000000;
inline constexpr uint32_t OSS_ERR_SET_1 = 0x10000000;
inline constexpr uint32_t OSS_ERR_INDEX_MASK = 0x007FFFFF;

inline constexpr OSSErr ECF_OK = 0;
#define ECF_ERROR(index, name, owner, description) \
  inline constexpr OSSErr name = OSS_ERR_FLAG | OSS_ERR_SET_1 | (index);
#define ECF_WARNING(index, name, owner, description) \
  inline constexpr OSSErr name = OSS_ERR_SET_1 | (index);
#include "ecf_codes.def"
#undef ECF_ERROR
#undef ECF_WARNING

// ---- Function identifiers -----------------------------------------------------------------------

namespace oss {

/// The 3-bit tag of a function identifier. The catalog ignores it; trace filters may select on it.
enum class FunctionKind : uint32_t {
  None = 0,
  Internal = 1,
  Operation = 2,
  Callback = 3,
  SystemCall = 4,
  Reserved5 = 5,
  Reserved6 = 6,
  Reserved7 = 7,
};

/// Builds a function identifier from its four fields, each cut to its width.
constexpr uint32_t makeFunctionId(uint32_t product, uint32_t component, FunctionKind kind,
                                  uint32_t function) {
  return (product & 0x1F) << 27 | (component & 0xFF) << 19 | static_cast<uint32_t>(kind) << 16 |
         (function & 0xFFFF);
}

/// The library's own operations.
enum class Func : uint32_t {
#define ECF_FUNCTION(number, enumerator, name) \
  enumerator = makeFunctionId(1, 3, FunctionKind::Operation, number),
#include "ecf_functions.def"
#undef ECF_FUNCTION
};

/// The system calls whose failures the library reports.
enum class SysCall : uint32_t {
#define ECF_SYSCALL(number, enumerator, name) \
  enumerator = makeFunctionId(1, 2, FunctionKind::SystemCall, number),
#include "ecf_syscalls.def"
#undef ECF_SYSCALL
};

}  // namespace oss

// ---- The catalog --------------------------------------------------------------------------------

extern "C" {

/// The number of products, 3.
OSS_API uint32_t ecfGetNumProducts() noexcept;
/// The number of component slots of a product; 0 for a product that does not exist.
OSS_API uint32_t ecfGetNumComponents(uint32_t product) noexcept;
/// The number of function slots of a component; 0 for a product or component that does not exist.
OSS_API uint32_t ecfGetNumFunctions(uint32_t product, uint32_t component) noexcept;

/// The name of the identifier's product; null when there is no such product.
OSS_API const char* ecfGetProductName(uint32_t funcId) noexcept;
/// The long name of the identifier's component ("OSSe"); null when there is no such component.
OSS_API const char* ecfGetComponentName(uint32_t funcId) noexcept;
/// The short name of the identifier's component ("COMP_OSSE"); null when there is none.
OSS_API const char* ecfGetComponentShortName(uint32_t funcId) noexcept;
/// The name of the identifier's function ("OSSHFile::close"), whatever its kind bits; null when
/// there is no such function or its slot is empty.
OSS_API const char* ecfGetFunctionName(uint32_t funcId) noexcept;

/// The index of the product of that name, compared byte by byte; 0 when none or `name` is null.
OSS_API uint32_t ecfFindProductIndex(const char* name) noexcept;
/// The index of the component of that short name. The last slot of a product is never found by
/// name. 0 when none, when `product` does not exist, or `shortName` is null.
OSS_API uint32_t ecfFindComponentIndex(uint32_t product, const char* shortName) noexcept;
/// The index of the function of that name. The last slot of a component is never found by name.
/// 0 when none, when product or component do not exist, or `name` is null.
OSS_API uint32_t ecfFindFunctionIndex(uint32_t product, uint32_t component,
                                      const char* name) noexcept;

/// The name of the code's error set ("setecf"); null when the set does not exist (so also for 0).
OSS_API const char* ecfErrorGetSetName(OSSErr rc) noexcept;
/// The number of codes of an error set, 1322 for set 1; 0 for a set that does not exist.
OSS_API uint32_t ecfErrorGetNumCodes(uint32_t set) noexcept;
/// The code's symbolic name ("ECF_FAILED"), whatever its bit 31; "OK" for 0; null when the code is
/// not catalogued.
OSS_API const char* ecfErrorGetCodeName(OSSErr rc) noexcept;
/// The code's description ("Failed"); "OK" for 0; null when the code is not catalogued.
OSS_API const char* ecfErrorGetDescription(OSSErr rc) noexcept;
/// The name of the product that owns the code; null when it is not catalogued, and for 0.
OSS_API const char* ecfErrorGetProductName(OSSErr rc) noexcept;
/// The long name of the component that owns the code; null when not catalogued, and for 0.
OSS_API const char* ecfErrorGetComponentName(OSSErr rc) noexcept;

// ---- System errors ------------------------------------------------------------------------------

/// Turns the error that a failed system call reported into the return code of the operation.
/// \param funcId       the operation; takes no part in the mapping
/// \param probe        the place in the operation; takes no part in the mapping
/// \param sysCallId    the call that failed, 0x08140000 + number
/// \param sysError     its error: errno for access and _stat, GetLastError() for every other call
/// \param logLevelOut  receives the level to log the failure at: 2 (Error) for ECF_UNKNOWN,
///                     ECF_NO_MEMORY, ECF_FILE_PROCESS_MAX, ECF_FILE_DEVICE_UNAVAILABLE and
///                     ECF_FILE_SHARE, 4 (Info) for every other code; may be null
/// \return the code; ECF_UNKNOWN for a pairing that is not in the table
OSS_API OSSErr ossErrorMapSystem(uint32_t funcId, uint64_t probe, uint64_t sysCallId,
                                 uint64_t sysError, uint64_t* logLevelOut) noexcept;

/// The symbolic name of a system error ("ERROR_FILE_NOT_FOUND"), or null when it has none. Some
/// errors that map to a code have no name: a log record then shows their number alone.
OSS_API const char* ossErrorNameMapSystem(uint64_t sysCallId, uint64_t sysError) noexcept;

// ---- Start-up -----------------------------------------------------------------------------------
//
// The library initialises itself when the process loads it. The flags are 0 until detection sets
// them to 1 during the load and never change afterwards, so they are read without a lock. They are
// cumulative within the NT family: a test for a minimum version reads one flag.

extern OSS_API int32_t g_bIsPlatformID_Win32On95;  ///< not the NT family
extern OSS_API int32_t g_bIsPlatformID_Win98;      ///< not NT, minor version 10
extern OSS_API int32_t g_bIsPlatformID_WinMe;      ///< not NT, minor version 90
extern OSS_API int32_t g_bIsPlatformID_Win32OnNT;  ///< the NT family
extern OSS_API int32_t g_bIsPlatformID_Win2k;      ///< NT 5.0 or later
extern OSS_API int32_t g_bIsPlatformID_WinXP;      ///< NT 5.1 or later
extern OSS_API int32_t g_bIsPlatformID_Win2k3;     ///< NT 5.2 or later
extern OSS_API int32_t g_bIsPlatformID_Vista;      ///< NT 6.0 or later
extern OSS_API int32_t g_bIsPlatformID_Longhorn;   ///< NT 6.0 or later

/// Terminal services run, in either mode.
extern OSS_API int32_t g_bRunningTerminalService;
/// Terminal services run in the single-session remote-administration mode.
extern OSS_API int32_t g_bRunningTerminalServiceRemoteAdminMode;

/// Always 0. Its presence identifies a module as a library of the system.
extern OSS_API uint32_t sqlzThisIsAKT5Library;

/// Has no effect: the library has initialised itself by the time anybody can call it.
OSS_API void ossOneTimeOnly() noexcept;

/// Writes the list of unfreed allocations when memory debugging asks for one. The library calls it
/// itself when the process unloads it; an earlier call by the host writes an earlier list as well.
OSS_API void ossTerminate() noexcept;

/// Asks whether terminal services are installed in one of their modes.
/// \param mode  0 for the single-session suite, 1 for the terminal-server suite
/// \return `mode` when that suite is present; 2 when it is not, when `mode` is neither 0 nor 1, or
///         when the system cannot be asked (which is logged). Windows NT 4 answers 0 for either.
OSS_API uint32_t ossCheckTerminalServices(uint32_t mode) noexcept;

}  // extern "C"
