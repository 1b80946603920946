// ossmachine.h - the processors, the operating system, its limits for interprocess communication,
// and the directory that it lives in.
//
// Checks, codes and records: see osssysinfo.h. An operation writes a member that a later version of
// its record has brought only when the record is stamped with that version.
#pragma once

#include "osssysvalue.h"

// ---- Processors ----

struct OSSCPUInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoUint onlineProcessors;      ///< the three counts are
  OSSSysInfoUint configuredProcessors;  ///< one number
  OSSSysInfoUint licensedProcessors;    ///< on this platform
  OSSSysInfoUint speed;                 ///< MHz
  OSSSysInfoUint threadsPerCore;
  OSSSysInfoUint coresPerPackage;  ///< from version 20050715
};
OSS_LAYOUT(OSSCPUInfo, 104);
OSS_FIELD(OSSCPUInfo, version, 0, 8);
OSS_FIELD(OSSCPUInfo, onlineProcessors, 8, 16);
OSS_FIELD(OSSCPUInfo, configuredProcessors, 24, 16);
OSS_FIELD(OSSCPUInfo, licensedProcessors, 40, 16);
OSS_FIELD(OSSCPUInfo, speed, 56, 16);
OSS_FIELD(OSSCPUInfo, threadsPerCore, 72, 16);
OSS_FIELD(OSSCPUInfo, coresPerPackage, 88, 16);

// ---- The operating system ----

struct OSSOSInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoStr platform;  ///< "WIN32_NT", "WIN32_WINDOWS", "WIN32s" or "UNKNOWN"
  OSSSysInfoStr computerName;
  OSSSysInfoStr release;       ///< "6.1": major and minor version number
  OSSSysInfoStr serviceLevel;  ///< "Service Pack 1", or nothing
  OSSSysInfoStr processor;     ///< "AMD64 Family 6, model 143, stepping 8"
  OSSSysInfoStr build;         ///< not supported on this platform; from version 20050715
};
OSS_LAYOUT(OSSOSInfo, 1568);
OSS_FIELD(OSSOSInfo, version, 0, 8);
OSS_FIELD(OSSOSInfo, platform, 8, 260);
OSS_FIELD(OSSOSInfo, computerName, 268, 260);
OSS_FIELD(OSSOSInfo, release, 528, 260);
OSS_FIELD(OSSOSInfo, serviceLevel, 788, 260);
OSS_FIELD(OSSOSInfo, processor, 1048, 260);
OSS_FIELD(OSSOSInfo, build, 1308, 260);

// ---- Limits of the kernel ----

/// Message queues, semaphores and shared memory, on systems whose kernel limits them.
struct OSSKernelIPCInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSSysInfoUint msgMaxQueues;
  OSSSysInfoUint msgMaxQueueBytes;
  OSSSysInfoUint msgMaxMessageSize;
  OSSSysInfoUint msgMaxMessages;
  OSSSysInfoUint msgSegmentSize;
  OSSSysInfoUint msgSegments;
  OSSSysInfoUint msgMapEntries;
  OSSSysInfoUint semMaxSets;
  OSSSysInfoUint semMaxSemaphores;
  OSSSysInfoUint semMaxPerSet;
  OSSSysInfoUint semMaxOperations;
  OSSSysInfoUint semMaxUndo;
  OSSSysInfoUint semMaxUndoPerProcess;
  OSSSysInfoUint semUndoSize;
  OSSSysInfoUint semMaxValue;
  OSSSysInfoUint semMaxAdjust;
  OSSSysInfoUint semMapEntries;
  OSSSysInfoUint shmMaxSegmentSize;
  OSSSysInfoUint shmMinSegmentSize;
  OSSSysInfoUint shmMaxSegments;
  OSSSysInfoUint shmMaxSegmentsPerProcess;
  OSSSysInfoUint shmMaxTotal;  ///< from version 20050401
};
OSS_LAYOUT(OSSKernelIPCInfo, 360);
OSS_FIELD(OSSKernelIPCInfo, version, 0, 8);
OSS_FIELD(OSSKernelIPCInfo, msgMaxQueues, 8, 16);
OSS_FIELD(OSSKernelIPCInfo, msgMaxQueueBytes, 24, 16);
OSS_FIELD(OSSKernelIPCInfo, msgMaxMessageSize, 40, 16);
OSS_FIELD(OSSKernelIPCInfo, msgMaxMessages, 56, 16);
OSS_FIELD(OSSKernelIPCInfo, msgSegmentSize, 72, 16);
OSS_FIELD(OSSKernelIPCInfo, msgSegments, 88, 16);
OSS_FIELD(OSSKernelIPCInfo, msgMapEntries, 104, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxSets, 120, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxSemaphores, 136, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxPerSet, 152, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxOperations, 168, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxUndo, 184, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxUndoPerProcess, 200, 16);
OSS_FIELD(OSSKernelIPCInfo, semUndoSize, 216, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxValue, 232, 16);
OSS_FIELD(OSSKernelIPCInfo, semMaxAdjust, 248, 16);
OSS_FIELD(OSSKernelIPCInfo, semMapEntries, 264, 16);
OSS_FIELD(OSSKernelIPCInfo, shmMaxSegmentSize, 280, 16);
OSS_FIELD(OSSKernelIPCInfo, shmMinSegmentSize, 296, 16);
OSS_FIELD(OSSKernelIPCInfo, shmMaxSegments, 312, 16);
OSS_FIELD(OSSKernelIPCInfo, shmMaxSegmentsPerProcess, 328, 16);
OSS_FIELD(OSSKernelIPCInfo, shmMaxTotal, 344, 16);

// ---- Its directory ----

struct OSSSystemDirectoryInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  char directory[261] = {};  ///< NUL-terminated, in the ANSI code page
};
OSS_LAYOUT(OSSSystemDirectoryInfo, 272);
OSS_FIELD(OSSSystemDirectoryInfo, version, 0, 8);
OSS_FIELD(OSSSystemDirectoryInfo, directory, 8, 261);

extern "C" {

/// Tells the number, the speed and the topology of the processors.
/// \retval 0                 every member is filled in
/// \retval ECF_PARTIAL_INFO  every member but the speed: the platform has none to tell
///                           (ECF_NOT_SUPPORTED), or its entry in the registry cannot be opened
///                           (probe 10) or read (20), which is traced, not logged (ECF_FAILED)
/// Calls ossSysInfoOneTimeOnly().
OSS_API OSSErr ossGetCPUInfo(OSSCPUInfo* info) noexcept;

/// Finds out how the processors are made up, once in a process; every later call returns at once.
/// Not traced. On an Intel processor of family 15, or of an extended family, with several threads a
/// package it restricts the process to one processor after the other, with all its threads, and
/// then restores its affinity; and no lock is taken. So a host calls it while it starts, before its
/// threads do: otherwise the first ossGetCPUInfo() does, and one that runs at the same time may
/// tell a topology of 1 and 1.
///
/// The topology is what the processor's identification says. threadsPerCore is 1 unless that shows
/// an Intel processor of family 15, or of an extended family, that can run several threads on a
/// core; it is 0 where such a one has several cores and its packages one thread, or where the
/// process may run on fewer processors of the first package than that has cores.
OSS_API void ossSysInfoOneTimeOnly() noexcept;

/// Tells the operating system, its version and the machine's name.
/// \retval 0                 every member of the record is filled in; a record that is older than
///                           20050715 only
/// \retval ECF_PARTIAL_INFO  the others are: build is not supported; the computer's name (probe 10)
///                           or platform, release and service level (20) have failed, which is
///                           traced, not logged
/// The processor's status has no share in the code: it is ECF_NOT_SUPPORTED for a 386 and a 486,
/// ECF_FAILED for an unknown architecture. Another x86 than these and the 586 is an empty text.
OSS_API OSSErr ossGetOSInfo(OSSOSInfo* info) noexcept;

/// Tells the limits of the kernel for interprocess communication. This platform has none: the
/// status of every member becomes ECF_NOT_SUPPORTED, values are not touched.
/// \retval ECF_NOT_SUPPORTED  always, for a record that passes the checks; not logged
OSS_API OSSErr ossGetKernelIPCInfo(OSSKernelIPCInfo* info) noexcept;

/// Tells where the system keeps its libraries.
/// \param record  checked for its version, and not used otherwise; may be the same as `info`
/// \param info    receives the directory; its version is not looked at
/// \retval 0  info->directory is set
/// \return otherwise the system's refusal, mapped and logged (20); a directory longer than 260
///         bytes is ECF_BUFFER_TOO_SMALL
OSS_API OSSErr ossGetSystemDirectory(const OSSSystemDirectoryInfo* record,
                                     OSSSystemDirectoryInfo* info) noexcept;

}  // extern "C"
