// `osse trace stats`: calls and times by function, what became of every slot, and what was lost.
#include <algorithm>
#include <vector>

#include "counts.h"
#include "session.h"
#include "slotscan.h"
#include "stats.h"

namespace oss::tool {
namespace {

void line(Output& output, const std::string& text, uint64_t count) {
  output.write(text + " " + std::to_string(count) + "\n");
}

// Scans the slot area, a piece of the file at a time.
void scanSlots(DumpFile& dump, uint64_t bytes, SlotScan& scan) {
  constexpr uint64_t kPiece = uint64_t{1} << 20;  // holds the largest record
  std::vector<char> piece(kPiece);
  uint64_t done = 0;
  for (;;) {
    const uint64_t wanted = std::min(kPiece, bytes - done);
    const uint64_t got = dump.read(sizeof(GTraceDumpHeader) + done, piece.data(), wanted);
    const bool isLast = got < wanted || done + got == bytes;
    done += scan.scan(piece.data(), got, isLast);
    if (isLast) return;
  }
}

void writeSlots(const SlotScan& scan, Output& output) {
  output.write("\n");
  line(output, "slots", scan.slots());
  line(output, "  of whole records", scan.recordSlots());
  line(output, "  never written", scan.neverWritten());
  line(output, "  not a record", scan.rejected(Reject::NotARecord));
  line(output, "  slot count out of range", scan.rejected(Reject::SlotCount));
  line(output, "  cut off", scan.rejected(Reject::CutOff));
  line(output, "  trailer mismatch", scan.rejected(Reject::Trailer));
  line(output, "  stale", scan.rejected(Reject::Stale));
}

void writeCut(Session& session) {
  if (const std::string missing = session.dump.missing(); !missing.empty())
    session.output.write("lost: the file is cut off, it lacks " + missing + "\n");
}

void writeLosses(const DumpFile& dump, const RamboDumpTail* tail, Output& output) {
  if (dump.truncated()) output.write("lost: the buffer filled, and later records were dropped\n");
  if (!dump.wrapped()) return;
  output.write("lost: the ring wrapped, and old records were overwritten");
  if (tail != nullptr) {
    const uint32_t slots = dump.header().ring.bufferSize / RAMBO_SLOT;
    const uint32_t written = tail->counter - tail->sequenceStart;
    output.write(", " + std::to_string(written - slots) + " slots of " + std::to_string(written));
  }
  output.write("\n");
}

void writeRing(Session& session) {
  DumpFile& dump = session.dump;
  if (!dump.isInstantaneous()) {
    SlotScan scan(nullptr);
    scanSlots(dump, UINT64_MAX - sizeof(GTraceDumpHeader), scan);
    writeSlots(scan, session.output);
    writeLosses(dump, nullptr, session.output);
    return;
  }
  const uint32_t bytes = dump.header().ring.bufferSize;
  RamboDumpTail tail{};
  dump.read(sizeof(GTraceDumpHeader) + bytes, &tail, sizeof tail);
  const SlotScan::Window window = {tail.counter, bytes / RAMBO_SLOT};
  SlotScan scan(&window);
  scanSlots(dump, bytes, scan);
  writeSlots(scan, session.output);
  writeLosses(dump, &tail, session.output);
}

void writeLostCalls(Session& session) {
  LostCalls lost;
  std::memcpy(&lost, &session.dump.header().ring, sizeof lost);
  if (std::memcmp(lost.magic, LostCalls::kMagic, sizeof lost.magic) == 0 && lost.calls != 0)
    line(session.output, "lost: the table was full, calls that were not counted:", lost.calls);
}

}  // namespace

void writeCountsOf(Session& session) {
  DumpFile& dump = session.dump;
  std::vector<GTraceFunctionCount> counts;
  session.forEach([&] { counts.push_back(dump.entry()); });
  const GTraceDumpHeader& header = dump.header();
  const bool hasTimes = (header.options.flags & GTRACE_CALL_STACKS) != 0;
  writeCounts(std::move(counts), hasTimes, Clock(header.ticksPerSecond), session.names,
              session.output);
  writeLostCalls(session);
  writeCut(session);
}

int StatsCommand::run() const {
  Session session;
  if (!session.open(file, output)) return kFailed;
  DumpFile& dump = session.dump;
  if (dump.isCounts()) {
    writeCountsOf(session);
    return session.close();
  }

  FunctionStats stats;
  Flow calls(dump.hasStamps());
  session.forEach([&] { calls.add(dump.record(), stats); });
  calls.finish(stats);
  stats.write(session.output, session.names, dump.clock(), dump.hasStamps());
  writeRing(session);
  writeCut(session);
  return session.close();
}

}  // namespace oss::tool
