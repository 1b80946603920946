// osssysinfo.h - what the system tells of itself: processors and operating system, memory, disks,
// load, users.
//
// The caller owns every record; an operation fills it and keeps nothing of it. The values carry
// their own status (osssysvalue.h), so that a record can be filled in part.
//
// Every operation is traced. It first refuses, with a log record at level Error and without
// writing anything,
//   a null record                     ECF_INVALID_PARAMETER, probe 1111
//   a record older than 20040702      ECF_INVALID_VERSION,   probe 1112
// and any other null pointer like a null record. Any thread may call the operations at any time,
// each with records of its own, unless one says otherwise.
#pragma once

#include "ossdisk.h"      // drives, disks
#include "ossmachine.h"   // processors, the operating system, limits of its kernel, its directory
#include "osssysvalue.h"  // the values of information records

// ---- Memory ----

// Amounts are mebibytes, rounded up.

struct OSSPhysMemInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoSint total;         ///< the machine's
  OSSSysInfoSint available;     ///< of it
  OSSSysInfoSint usable;        ///< by the process: no more than its address space has left
  OSSSysInfoSint addressSpace;  ///< the process's, whole
};
OSS_LAYOUT(OSSPhysMemInfo, 72);
OSS_FIELD(OSSPhysMemInfo, version, 0, 8);
OSS_FIELD(OSSPhysMemInfo, total, 8, 16);
OSS_FIELD(OSSPhysMemInfo, available, 24, 16);
OSS_FIELD(OSSPhysMemInfo, usable, 40, 16);
OSS_FIELD(OSSPhysMemInfo, addressSpace, 56, 16);

struct OSSPhysSwapInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoSint total;      ///< the page-file limit without the physical memory
  OSSSysInfoSint available;  ///< what is left of it, without the available physical memory
};
OSS_LAYOUT(OSSPhysSwapInfo, 40);
OSS_FIELD(OSSPhysSwapInfo, version, 0, 8);
OSS_FIELD(OSSPhysSwapInfo, total, 8, 16);
OSS_FIELD(OSSPhysSwapInfo, available, 24, 16);

struct OSSVirtualMemInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoSint total;      ///< physical and swap
  OSSSysInfoSint reserved;   ///< not supported on this platform
  OSSSysInfoSint committed;  ///< not supported on this platform
  OSSSysInfoSint available;  ///< physical and swap
};
OSS_LAYOUT(OSSVirtualMemInfo, 72);
OSS_FIELD(OSSVirtualMemInfo, version, 0, 8);
OSS_FIELD(OSSVirtualMemInfo, total, 8, 16);
OSS_FIELD(OSSVirtualMemInfo, reserved, 24, 16);
OSS_FIELD(OSSVirtualMemInfo, committed, 40, 16);
OSS_FIELD(OSSVirtualMemInfo, available, 56, 16);

// ---- Load ----

struct OSSCPULoadInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoDouble shortAverage;
  OSSSysInfoDouble mediumAverage;
  OSSSysInfoDouble longAverage;
};
OSS_LAYOUT(OSSCPULoadInfo, 56);
OSS_FIELD(OSSCPULoadInfo, version, 0, 8);
OSS_FIELD(OSSCPULoadInfo, shortAverage, 8, 16);
OSS_FIELD(OSSCPULoadInfo, mediumAverage, 24, 16);
OSS_FIELD(OSSCPULoadInfo, longAverage, 40, 16);

// ---- Users ----

struct OSSUserParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t size = 0;      ///< bytes at the buffer that the operation writes into
  uint64_t reserved = 0;  ///< traced and not used
};
OSS_LAYOUT(OSSUserParam, 24);
OSS_FIELD(OSSUserParam, version, 0, 8);
OSS_FIELD(OSSUserParam, size, 8, 8);
OSS_FIELD(OSSUserParam, reserved, 16, 8);

extern "C" {

/// Tells the physical memory of the machine and the address space of the process.
/// \retval 0  always, for a record that passes the checks. The statuses of total and available are
///            not written; the constructor has cleared them
OSS_API OSSErr ossGetPhysMemInfo(OSSPhysMemInfo* info) noexcept;

/// Tells the swap space. A page-file limit below the physical memory wraps around: its difference
/// is taken as an unsigned number of 64 bits, before it is rounded.
/// \retval 0  always, for a record that passes the checks. Statuses are not written
OSS_API OSSErr ossGetPhysSwapInfo(OSSPhysSwapInfo* info) noexcept;

/// Tells physical memory and swap space together.
/// \retval 0                  total and available are written, their statuses are not
/// \retval ECF_NOT_SUPPORTED  one of the two amounts is not supported
/// \retval ECF_FAILED         or cannot be told; the statuses of total and available stay as they
///                            were. Traced (probe 10: physical memory, 20: swap), not logged
OSS_API OSSErr ossGetVirtualMemInfo(OSSVirtualMemInfo* info) noexcept;

/// Tells load averages, which this platform has not: the status of every member becomes
/// ECF_NOT_SUPPORTED, values are not touched.
/// \retval ECF_NOT_SUPPORTED  always, for a record that passes the checks; not logged
OSS_API OSSErr ossGetAvgCPULoad(OSSCPULoadInfo* info) noexcept;

/// Writes the log-on name of the user that runs the process.
/// \param param  its size counts the terminator; more than 32 bits are all ones
/// \param out    receives the name, NUL-terminated, in the ANSI code page
/// \retval 0                     written
/// \retval ECF_BUFFER_TOO_SMALL  the name does not fit (probe 40)
/// \return otherwise the system's refusal, mapped (40). The record shows the size that the system
///         reported back and the one in the record
OSS_API OSSErr ossGetCurrentUserName(const OSSUserParam* param, char* out) noexcept;

/// Writes the number of the log-on session of the process, in decimal. A text that does not fit is
/// cut; into a buffer of no size nothing is written.
/// \param out  receives the number, NUL-terminated
/// \retval 0  written, or cut
/// \return otherwise the system's refusal, mapped and logged: of the process's token (30), of its
///         session (40; the token stays open) or of the token's end (50; the text is written)
OSS_API OSSErr ossGetCurrentUserDisplay(const OSSUserParam* param, char* out) noexcept;

}  // extern "C"
