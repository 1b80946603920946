// ossblock.h - what surrounds the user data of a heap block, for each mode.
//
//   NONE                                             |header| user data
//   OFF            |mode record                      |header| user data, to a multiple of 8
//   LIGHT          |mode record                      |header| user data |slack|trailer
//   FULL  |pad|... |full record                      |header| user data |slack|pad|...|trailer
//         start                                             user
//
// One description serves allocation, check and release: BlockLayout knows every distance, so no
// offset is computed twice. The last word before the header is the mode of the block, in every mode
// but NONE, so a check can tell the layout from the user address alone.
#pragma once

#include <cstdint>
#include <string_view>

#include "ossmemory.h"
#include "osstypes.h"

namespace oss {

inline constexpr uint32_t kFreedMode = 0xF4EEDA7A;
inline constexpr uint32_t kMarkAllocated = 0xA7C055E0;
inline constexpr uint32_t kMarkAllocatedE1 = 0xA7C055E1;
inline constexpr uint32_t kMarkFreed = 0xDEAD055E;
inline constexpr uint64_t kGuard = 0xFEEDFACE600DBEEF;
inline constexpr uint8_t kSlackFill = 0xCC;
inline constexpr uint8_t kDataFill = 0xFF;

// Marks are told apart by their upper 28 bits.
constexpr bool isMark(uint32_t mark, uint32_t kind) noexcept {
  return (mark & 0xFFFFFFF0) == (kind & 0xFFFFFFF0);
}

struct BlockHeader {
  uint32_t mark;
  uint32_t size;  // requested bytes, the low 32 bits
  uint32_t fileHash;
  uint32_t line;
};
OSS_LAYOUT(BlockHeader, 16);
OSS_FIELD(BlockHeader, mark, 0, 4);
OSS_FIELD(BlockHeader, size, 4, 4);
OSS_FIELD(BlockHeader, fileHash, 8, 4);
OSS_FIELD(BlockHeader, line, 12, 4);

// In front of the header in OFF (guard 0) and LIGHT; also the trailer of LIGHT.
struct ModeRecord {
  uint64_t guard;
  uint32_t size;
  uint32_t mode;
};
OSS_LAYOUT(ModeRecord, 16);
OSS_FIELD(ModeRecord, guard, 0, 8);
OSS_FIELD(ModeRecord, size, 8, 4);
OSS_FIELD(ModeRecord, mode, 12, 4);

// In front of the header in FULL: a node of the list of live blocks.
struct FullRecord {
  FullRecord* next;
  FullRecord* previous;
  char file[24];  // base name, cut, NUL-terminated
  uint64_t size;
  uint32_t line;
  uint32_t frontPads;
  uint32_t backPads;
  uint32_t mode;
};
OSS_LAYOUT(FullRecord, 64);
OSS_FIELD(FullRecord, next, 0, 8);
OSS_FIELD(FullRecord, previous, 8, 8);
OSS_FIELD(FullRecord, file, 16, 24);
OSS_FIELD(FullRecord, size, 40, 8);
OSS_FIELD(FullRecord, line, 48, 4);
OSS_FIELD(FullRecord, frontPads, 52, 4);
OSS_FIELD(FullRecord, backPads, 56, 4);
OSS_FIELD(FullRecord, mode, 60, 4);

// The trailer of FULL; the block reserves 16 bytes for it.
struct FullTrailer {
  uint64_t size;
  uint32_t mode;
};
OSS_FIELD(FullTrailer, size, 0, 8);
OSS_FIELD(FullTrailer, mode, 8, 4);

// What a block's address tells without knowing its mode: the 24 bytes in front of the user data.
struct BlockTag {
  uint32_t recordSize;  // the mode record's; means nothing in FULL
  uint32_t mode;
  BlockHeader header;
};
OSS_LAYOUT(BlockTag, 24);
OSS_FIELD(BlockTag, mode, 4, 4);
OSS_FIELD(BlockTag, header, 8, 16);

class BlockLayout {
 public:
  // An eye-catcher that is no mode counts as OFF.
  constexpr BlockLayout(uint32_t eyeCatcher, uint64_t size, uint32_t frontPads,
                        uint32_t backPads) noexcept
      : mode_(modeOf(eyeCatcher)),
        size_(size),
        frontPads_(mode_ == OSS_MEM_DEBUG_FULL ? frontPads : 0),
        backPads_(mode_ == OSS_MEM_DEBUG_FULL ? backPads : 0) {}

  constexpr uint32_t mode() const noexcept { return mode_; }
  constexpr uint64_t size() const noexcept { return size_; }
  constexpr uint32_t frontPads() const noexcept { return frontPads_; }
  constexpr uint32_t backPads() const noexcept { return backPads_; }

  // False when the block would be larger than any memory.
  constexpr bool isPossible() const noexcept { return size_ <= ~uint64_t{0} - kMostOverhead; }

  // The user data's size in the block.
  constexpr uint64_t rounded() const noexcept {
    return mode_ == OSS_MEM_DEBUG_NONE ? size_ : (size_ + 7) & ~uint64_t{7};
  }
  constexpr uint64_t slack() const noexcept { return rounded() - size_; }

  // The whole block, and the bytes of it in front of the user data.
  constexpr uint64_t total() const noexcept { return before() + rounded() + behind(); }
  constexpr uint64_t before() const noexcept {
    return frontPadBytes() + recordBytes() + sizeof(BlockHeader);
  }

  // Distances behind the user address.
  constexpr uint64_t slackAt() const noexcept { return size_; }
  constexpr uint64_t backPadsAt() const noexcept { return rounded(); }
  constexpr uint64_t trailerAt() const noexcept { return rounded() + backPadBytes(); }

  // Distances in front of the user address.
  static constexpr uint64_t headerBefore() noexcept { return sizeof(BlockHeader); }
  constexpr uint64_t recordBefore() const noexcept { return sizeof(BlockHeader) + recordBytes(); }

 private:
  // Records, trailer and as many pads as 32 bits can count, twice.
  static constexpr uint64_t kMostOverhead = uint64_t{1} << 40;

  static constexpr uint32_t modeOf(uint32_t eyeCatcher) noexcept {
    switch (eyeCatcher) {
      case OSS_MEM_DEBUG_NONE:
      case OSS_MEM_DEBUG_LIGHT:
      case OSS_MEM_DEBUG_FULL: return eyeCatcher;
      default: return OSS_MEM_DEBUG_OFF;
    }
  }

  constexpr uint64_t frontPadBytes() const noexcept { return uint64_t{frontPads_} * 8; }
  constexpr uint64_t backPadBytes() const noexcept { return uint64_t{backPads_} * 8; }

  constexpr uint64_t recordBytes() const noexcept {
    switch (mode_) {
      case OSS_MEM_DEBUG_NONE: return 0;
      case OSS_MEM_DEBUG_FULL: return sizeof(FullRecord);
      default: return sizeof(ModeRecord);
    }
  }
  constexpr uint64_t behind() const noexcept {
    switch (mode_) {
      case OSS_MEM_DEBUG_LIGHT: return sizeof(ModeRecord);
      case OSS_MEM_DEBUG_FULL: return backPadBytes() + 16;
      default: return 0;
    }
  }

  uint32_t mode_;
  uint64_t size_;
  uint32_t frontPads_;
  uint32_t backPads_;
};
static_assert(BlockLayout(OSS_MEM_DEBUG_NONE, 5, 2, 2).total() == 21);
static_assert(BlockLayout(OSS_MEM_DEBUG_OFF, 5, 2, 2).total() == 40);
static_assert(BlockLayout(OSS_MEM_DEBUG_LIGHT, 5, 2, 2).total() == 56);
static_assert(BlockLayout(OSS_MEM_DEBUG_FULL, 5, 2, 2).total() == 136);

inline BlockHeader& headerOf(char* user) noexcept {
  return *reinterpret_cast<BlockHeader*>(user - BlockLayout::headerBefore());
}

// A live block seen from its user address.
struct BlockView {
  char* user;
  BlockLayout layout;

  BlockHeader& header() const noexcept { return headerOf(user); }
  ModeRecord& modeRecord() const noexcept {
    return *reinterpret_cast<ModeRecord*>(user - layout.recordBefore());
  }
  ModeRecord& modeTrailer() const noexcept {
    return *reinterpret_cast<ModeRecord*>(user + layout.trailerAt());
  }
  FullRecord& fullRecord() const noexcept {
    return *reinterpret_cast<FullRecord*>(user - layout.recordBefore());
  }
  FullTrailer& fullTrailer() const noexcept {
    return *reinterpret_cast<FullTrailer*>(user + layout.trailerAt());
  }
  uint64_t* frontPad() const noexcept { return reinterpret_cast<uint64_t*>(start()); }
  uint64_t* backPad() const noexcept {
    return reinterpret_cast<uint64_t*>(user + layout.backPadsAt());
  }
  uint8_t* slack() const noexcept { return reinterpret_cast<uint8_t*>(user + layout.slackAt()); }
  char* start() const noexcept { return user - layout.before(); }
};

// The text behind the last "\" or "/", a part of `path`; empty for null.
std::string_view baseNameOf(const char* path) noexcept;

// A hash of a base name, for the block header.
uint32_t hashOf(std::string_view baseName) noexcept;

// The same for a path, of which the base name counts.
uint32_t hashOfFile(const char* path) noexcept;

}  // namespace oss
