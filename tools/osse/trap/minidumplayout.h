// minidumplayout.h - the records of a minidump, as its format is published: a header, a directory
// of streams, and records that refer to others by their offset in the file ("rva").
#pragma once

#include "osstypes.h"
#include "trap/systemrecords.h"

namespace oss::tool::minidump {

inline constexpr uint32_t kSignature = 0x504D444D;  // "MDMP"
inline constexpr uint32_t kVersion = 0xA793;

enum class StreamType : uint32_t {
  ThreadList = 3,
  ModuleList = 4,
  MemoryList = 5,
  Exception = 6,
  SystemInfo = 7,
  MiscInfo = 15,
};

struct Header {
  uint32_t signature;
  uint32_t version;
  uint32_t streams;
  uint32_t directory;
  uint32_t checkSum;
  uint32_t time;
  uint64_t flags;
};
OSS_LAYOUT(Header, 32);

struct Location {
  uint32_t bytes;
  uint32_t rva;
};
OSS_LAYOUT(Location, 8);

struct DirectoryEntry {
  StreamType type;
  Location location;
};
OSS_LAYOUT(DirectoryEntry, 12);

struct Memory {
  uint64_t address;
  Location location;
};
OSS_LAYOUT(Memory, 16);

struct Thread {
  uint32_t id;
  uint32_t suspendCount;
  uint32_t priorityClass;
  uint32_t priority;
  uint64_t environmentBlock;
  Memory stack;
  Location context;
};
OSS_LAYOUT(Thread, 48);

struct SystemInfo {
  uint16_t architecture;
  uint16_t level;
  uint16_t revision;
  uint8_t processors;
  uint8_t productType;
  uint32_t major;
  uint32_t minor;
  uint32_t build;
  uint32_t platform;
  uint32_t servicePack;  // rva of a text
  uint16_t suites;
  uint16_t reserved;
  uint64_t features[3];
};
OSS_LAYOUT(SystemInfo, 56);

struct ExceptionStream {
  uint32_t thread;
  uint32_t padding;
  ExceptionRecord exception;
  Location context;
};
OSS_LAYOUT(ExceptionStream, 168);

struct MiscInfo {
  static constexpr uint32_t kHasProcess = 1;

  uint32_t bytes;
  uint32_t flags;
  uint32_t process;
  uint32_t times[3];
};
OSS_LAYOUT(MiscInfo, 24);

// Not aligned: 108 bytes each, one behind the other.
#pragma pack(push, 4)
struct Module {
  uint64_t base;
  uint32_t bytes;
  uint32_t checkSum;
  uint32_t time;
  uint32_t name;  // rva of a text
  uint32_t versionInfo[13];
  Location debugRecord;
  Location miscRecord;
  uint64_t reserved[2];
};
#pragma pack(pop)
OSS_LAYOUT(Module, 108);

}  // namespace oss::tool::minidump
