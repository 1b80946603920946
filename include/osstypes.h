// osstypes.h - what every public header shares: widths, the return code, versions, export, layouts.
//
// The library speaks in fixed widths only, and no public header includes a platform header: system
// handles are void*, system records are forward-declared.
#pragma once

#include <cstddef>
#include <cstdint>

// Marks what the library exports. A program that links the library's objects into itself instead
// of loading the DLL (as the unit tests do) defines OSS_STATIC.
#if defined(OSS_BUILDING_LIBRARY) && defined(_WIN32)
#define OSS_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(OSS_STATIC)
#define OSS_API __declspec(dllimport)
#else
#define OSS_API
#endif

// A function that formats like printf in the C run-time's own dialect (%I64u and its kin), so that
// the compiler checks the arguments of each call: the numbers of the format and of the first one.
#if defined(_WIN32) && defined(__clang__)
#define OSS_PRINTF_LIKE(text, first) __attribute__((format(printf, text, first)))
#elif defined(_WIN32)
#define OSS_PRINTF_LIKE(text, first) __attribute__((format(ms_printf, text, first)))
#else
#define OSS_PRINTF_LIKE(text, first)
#endif

/// A 32-bit return code: 0 is success. Bit 31 is set for errors and clear for warnings, so success
/// is a comparison with 0, never with the sign. Fields and names: osscatalog.h.
using OSSErr = uint32_t;

/// The version that the constructors of parameter records stamp.
inline constexpr uint64_t OSS_VERSION_CURRENT = 0x09010007;
/// The oldest record version that operations accept; an older one gives ECF_INVALID_VERSION.
inline constexpr uint64_t OSS_VERSION_OLDEST = 20040702;

/// Log levels, from the gravest on. An Event is recorded whatever a facility's level is.
inline constexpr uint64_t OSS_LOG_SEVERE = 1;
inline constexpr uint64_t OSS_LOG_ERROR = 2;
inline constexpr uint64_t OSS_LOG_WARNING = 3;
inline constexpr uint64_t OSS_LOG_INFO = 4;
inline constexpr uint64_t OSS_LOG_EVENT = 5;

// A fixed layout is a table in the code: one row for the record, one for each member. A member that
// moves breaks the build by name.
#define OSS_LAYOUT(Type, bytes) \
  static_assert(sizeof(Type) == (bytes), #Type " must be " #bytes " bytes long")
#define OSS_FIELD(Type, member, offset, bytes)                              \
  static_assert(offsetof(Type, member) == (offset) &&                       \
                    sizeof(static_cast<Type*>(nullptr)->member) == (bytes), \
                #Type "::" #member " must lie at " #offset ", " #bytes " bytes wide")
