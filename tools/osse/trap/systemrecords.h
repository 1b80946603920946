// systemrecords.h - the system's own records of which a trap file is made, as x64 has them. The
// reader of trap files runs on every system, so it brings them along.
#pragma once

#include "osstypes.h"

namespace oss::tool {

// SYSTEM_INFO
struct SystemInfo {
  uint16_t architecture;
  uint16_t reserved;
  uint32_t pageSize;
  uint64_t lowestAddress;
  uint64_t highestAddress;
  uint64_t processorMask;
  uint32_t processors;
  uint32_t processorType;
  uint32_t granularity;
  uint16_t level;
  uint16_t revision;
};
OSS_LAYOUT(SystemInfo, 48);
OSS_FIELD(SystemInfo, processors, 32, 4);
OSS_FIELD(SystemInfo, revision, 46, 2);

inline constexpr uint16_t kArchitectureAmd64 = 9;

// OSVERSIONINFOA
struct OsVersion {
  uint32_t size;
  uint32_t major;
  uint32_t minor;
  uint32_t build;
  uint32_t platform;
  char servicePack[128];
};
OSS_LAYOUT(OsVersion, 148);

// MEMORYSTATUSEX
struct MemoryStatusEx {
  uint32_t size;
  uint32_t load;  // per cent
  uint64_t physical, physicalFree;
  uint64_t pageFile, pageFileFree;
  uint64_t addresses, addressesFree;
  uint64_t extendedFree;
};
OSS_LAYOUT(MemoryStatusEx, 64);

// MEMORYSTATUS
struct MemoryStatus {
  uint32_t size;
  uint32_t load;
  uint64_t physical, physicalFree;
  uint64_t pageFile, pageFileFree;
  uint64_t addresses, addressesFree;
};
OSS_LAYOUT(MemoryStatus, 56);

// EXCEPTION_RECORD
struct ExceptionRecord {
  static constexpr uint32_t kMostParameters = 15;

  uint32_t code;
  uint32_t flags;
  uint64_t nested;
  uint64_t address;
  uint32_t parameterCount;
  uint32_t padding;
  uint64_t parameters[kMostParameters];
};
OSS_LAYOUT(ExceptionRecord, 152);
OSS_FIELD(ExceptionRecord, parameters, 32, 120);

struct VectorRegister {
  uint64_t low, high;
};

// CONTEXT
struct Context {
  uint64_t homes[6];
  uint32_t flags;
  uint32_t mxCsr;
  uint16_t cs, ds, es, fs, gs, ss;
  uint32_t eflags;
  uint64_t dr0, dr1, dr2, dr3, dr6, dr7;
  uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
  uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
  uint64_t rip;
  uint8_t floatState[24];
  uint32_t floatMxCsr;
  uint32_t floatMxCsrMask;
  VectorRegister floatRegisters[8];
  VectorRegister xmm[16];
  uint8_t floatReserved[96];
  VectorRegister vectors[26];
  uint64_t vectorControl;
  uint64_t debugControl;
  uint64_t lastBranchTo, lastBranchFrom;
  uint64_t lastExceptionTo, lastExceptionFrom;
};
OSS_LAYOUT(Context, 1232);
OSS_FIELD(Context, flags, 0x30, 4);
OSS_FIELD(Context, cs, 0x38, 2);
OSS_FIELD(Context, eflags, 0x44, 4);
OSS_FIELD(Context, rax, 0x78, 8);
OSS_FIELD(Context, rsp, 0x98, 8);
OSS_FIELD(Context, rip, 0xF8, 8);
OSS_FIELD(Context, floatMxCsr, 0x118, 4);
OSS_FIELD(Context, xmm, 0x1A0, 256);
OSS_FIELD(Context, vectors, 0x300, 416);

// The parts of a context that its flags announce.
inline constexpr uint32_t kContextAmd64 = 0x100000;
inline constexpr uint32_t kContextControl = 0x100001;

// ADDRESS64
struct WalkAddress {
  uint64_t offset;
  uint16_t segment;
  uint16_t padding;
  uint32_t mode;
};
OSS_LAYOUT(WalkAddress, 16);

inline constexpr uint32_t kFlatAddress = 3;

// STACKFRAME64
struct WalkFrame {
  WalkAddress pc;
  WalkAddress returning;
  WalkAddress frame;
  WalkAddress stack;
  WalkAddress backingStore;
  uint64_t functionTable;
  uint64_t parameters[4];
  uint32_t isFar;
  uint32_t isVirtual;
  uint64_t reserved[3];
  uint8_t kernelHelp[112];
};
OSS_LAYOUT(WalkFrame, 264);
OSS_FIELD(WalkFrame, stack, 48, 16);
OSS_FIELD(WalkFrame, parameters, 88, 32);
OSS_FIELD(WalkFrame, isVirtual, 124, 4);

// API_VERSION
struct ApiVersion {
  uint16_t major, minor, revision, reserved;
};
OSS_LAYOUT(ApiVersion, 8);

}  // namespace oss::tool
