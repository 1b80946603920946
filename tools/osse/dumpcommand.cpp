// `osse trace dump`: a section's control block as a file.
#include <cstring>
#include <memory>

#include "commands.h"
#include "counts.h"
#include "follow.h"
#include "section.h"
#include "solefollower.h"
#include "terminal.h"

namespace oss::tool {
namespace {

int refuse(const std::string& what, OSSErr rc) {
  complain(what, rc);
  return kFailed;
}

int finish(const std::string& path, bool written) {
  if (!written) complain(path + ": could not be written");
  return written ? kDone : kFailed;
}

// The file is created when there is something to write.
int dumpNow(Section& section, const DumpCommand& command) {
  const auto header = std::make_unique<GTraceDumpHeader>();
  const char* data = nullptr;
  uint32_t size = 0;
  if (const OSSErr rc = section.header(true, *header, &data, &size))
    return refuse(command.section, rc);
  if (section.isCounting()) {
    LostCalls lost{{}, section.lostCalls(), 0};
    std::memcpy(lost.magic, LostCalls::kMagic, sizeof lost.magic);
    std::memcpy(static_cast<void*>(&header->ring), &lost, sizeof lost);
  }

  OutputFile file;
  if (!file.open(command.file)) return kFailed;
  bool written = file.write(header.get(), sizeof *header) && file.write(data, size);
  if (section.isCounting()) return finish(command.file, written);

  // Taken last: what was overwritten while it was read counts as overwritten.
  RamboDumpTail tail{};
  if (const OSSErr rc = section.tail(tail)) return refuse(command.section, rc);
  written = written && file.write(&tail, sizeof tail);
  return finish(command.file, written);
}

// The file is none, or has no header: following has not begun, and ends no waiting either.
int refuseToBegin(const std::string& section) {
  complain(
      section +
      ": its program waits until it is followed into another file, or that is ended by Ctrl+C");
  return kFailed;
}

int dumpFollowing(Section& section, const DumpCommand& command) {
  if (section.isCounting()) {
    complain(command.section + ": counts functions and has no chunks to follow");
    return kFailed;
  }
  RamboChunkWalker first{};
  if (const OSSErr rc = section.firstChunk(first)) return refuse(command.section, rc);
  const SoleFollower follower(command.section);
  if (!follower.hasRight()) {
    complain(command.section + ": is being followed already");
    return kFailed;
  }
  if (section.ring().autoDump == 0) {
    complain(command.section + ": auto-dump has been switched off for this buffer");
    return kFailed;
  }
  const auto header = std::make_unique<GTraceDumpHeader>();
  const char* data = nullptr;
  uint32_t size = 0;
  if (const OSSErr rc = section.header(false, *header, &data, &size))
    return refuse(command.section, rc);
  const uint64_t mostChunks = (command.ringBytes + RAMBO_CHUNK - 1) / RAMBO_CHUNK;
  if (mostChunks != 0) header->options.ringFile[0] = 1;

  OutputFile file;
  if (!file.open(command.file)) return refuseToBegin(command.section);
  if (!file.write(header.get(), sizeof *header)) {
    complain(command.file + ": could not be written");
    return refuseToBegin(command.section);
  }
  ChunkFile chunks(file, mostChunks);
  return finish(command.file, Follow(section, first, chunks).run());
}

}  // namespace

int DumpCommand::run() const {
  Section opened;
  if (!opened.open(section)) return kFailed;
  return follow ? dumpFollowing(opened, *this) : dumpNow(opened, *this);
}

}  // namespace oss::tool
