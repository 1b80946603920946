#include "tools/dumpbuilder.h"

#include <cstring>

namespace osse_test {
namespace {

constexpr uint32_t kBuffer = RAMBO_SMALLEST_BUFFER;

template <class Part>
std::string_view bytesOf(const Part& part) {
  return {reinterpret_cast<const char*>(&part), sizeof part};
}

}  // namespace

DumpBuilder::DumpBuilder() : holder_(1), header_(holder_.data()) {
  std::memcpy(header_->magic, "GTDUMP1", sizeof header_->magic);
  header_->options.bufferSize = kBuffer;
  header_->options.mode = GTRACE_CIRCULAR;
  header_->options.flags = GTRACE_STAMP;
  header_->ticksPerSecond = 10'000'000;
}

DumpBuilder& DumpBuilder::stamp(uint64_t ticks) {
  ticks_ = ticks;
  return *this;
}

DumpBuilder& DumpBuilder::thread(uint32_t process, uint64_t thread) {
  process_ = process;
  thread_ = thread;
  return *this;
}

DumpBuilder& DumpBuilder::fixedData(uint32_t first, uint32_t second) {
  fixedData1_ = first;
  fixedData2_ = second;
  return *this;
}

GTraceRecord DumpBuilder::record(uint16_t type, uint32_t funcId) const {
  GTraceRecord record;
  std::memset(&record, 0xEE, sizeof record);
  record.timestamp = (header_->options.flags & GTRACE_STAMP) != 0 ? ticks_ : 0;
  record.threadId = thread_;
  record.processId = process_;
  record.funcId = funcId;
  record.fixedData1 = fixedData1_;
  record.fixedData2 = fixedData2_;
  record.type = type;
  record.flags = 0;
  record.dataLength = 0;
  return record;
}

DumpBuilder& DumpBuilder::entry(uint32_t funcId) { return add(record(GTRACE_ENTRY, funcId), 52); }

DumpBuilder& DumpBuilder::exit(uint32_t funcId, uint32_t rc, uint64_t extra) {
  GTraceRecord exit = record(GTRACE_EXIT, funcId);
  exit.extra1 = extra;
  exit.returnCode = rc;
  return add(exit, 52);
}

DumpBuilder& DumpBuilder::marker(uint32_t funcId, uint16_t probe, uint16_t type, uint16_t flags) {
  GTraceRecord marker = record(type, funcId);
  marker.probe = probe;
  marker.flags = flags;
  return add(marker, 52);
}

DumpBuilder& DumpBuilder::error(uint32_t funcId, uint16_t probe, uint64_t extra) {
  GTraceRecord error = record(GTRACE_ERROR, funcId);
  error.probe = probe;
  error.extra1 = extra;
  return add(error, 52);
}

DumpBuilder& DumpBuilder::errorRc(uint32_t funcId, uint16_t probe, uint32_t rc, uint64_t extra2) {
  GTraceRecord error = record(GTRACE_ERROR, funcId);
  error.probe = probe;
  error.extra1 = 0;
  error.returnCode = rc;
  return add(error, sizeof error, bytesOf(extra2));
}

DumpBuilder& DumpBuilder::items(uint16_t type, uint32_t funcId, uint16_t probe,
                                const std::vector<BuiltItem>& items) {
  std::string behind;
  for (const BuiltItem& item : items)
    behind += bytesOf(GTraceItem{.type = item.type, .length = item.length});
  for (const BuiltItem& item : items) behind += item.data;

  GTraceRecord data = record(type, funcId);
  data.probe = probe;
  data.dataLength = static_cast<uint16_t>(behind.size());
  data.extra1 = 0;
  data.returnCode = 0;
  data.itemCount = static_cast<uint32_t>(items.size());
  return add(data, sizeof data, behind);
}

DumpBuilder& DumpBuilder::correlator(uint32_t funcId, uint16_t probe, uint32_t correlator) {
  GTraceRecord link = record(GTRACE_CORRELATOR, funcId);
  link.probe = probe;
  link.extra1 = 0;
  link.returnCode = correlator;
  link.itemCount = 0;
  return add(link, sizeof link);
}

DumpBuilder& DumpBuilder::add(const GTraceRecord& record, size_t bytes, std::string_view behind) {
  const size_t payload = bytes + behind.size();
  const auto slots = static_cast<uint16_t>((payload + 75) / 64);
  const RamboRecordHead head = {counter_, RAMBO_RECORD_MARK, slots};
  std::string whole(bytesOf(head));
  whole += bytesOf(record).substr(0, bytes);
  whole += behind;
  whole.resize(size_t{slots} * RAMBO_SLOT, '\xEE');
  const uint32_t trailer = ~counter_;
  whole.replace(whole.size() - sizeof trailer, sizeof trailer, bytesOf(trailer));
  return slot(whole);
}

DumpBuilder& DumpBuilder::slot(std::string_view bytes) {
  if (slots_.size() < place_ + bytes.size()) slots_.resize(place_ + bytes.size());
  slots_.replace(place_, bytes.size(), bytes);
  place_ += bytes.size();
  counter_ += static_cast<uint32_t>(bytes.size() / RAMBO_SLOT);
  return *this;
}

DumpBuilder& DumpBuilder::wrap() {
  slots_.resize(kBuffer);
  place_ = 0;
  const uint32_t slots = kBuffer / RAMBO_SLOT;
  counter_ = (counter_ + slots - 1) / slots * slots;
  return *this;
}

std::string DumpBuilder::head(uint16_t dumpType) const {
  std::string file(bytesOf(*header_));
  RamboDumpHead ring{};
  std::memcpy(ring.magic, "@HEAD\r\n", sizeof ring.magic);
  ring.bufferSize = kBuffer;
  ring.dumpType = dumpType;
  ring.circular = (header_->options.mode & GTRACE_FILL_ONCE) == 0;
  file.replace(file.size() - sizeof ring, sizeof ring, bytesOf(ring));
  return file;
}

std::string DumpBuilder::instantaneous(uint32_t truncated) const {
  const bool circular = (header_->options.mode & GTRACE_FILL_ONCE) == 0;
  RamboDumpTail tail{};
  std::memcpy(tail.magic, "@TAIL\r\n", sizeof tail.magic);
  tail.counter = counter_;
  tail.slotIndex = circular ? counter_ % (kBuffer / RAMBO_SLOT) : 0;
  tail.truncated = truncated;
  std::string file = head(RAMBO_INSTANTANEOUS_DUMP) + slots_;
  file.resize(sizeof(GTraceDumpHeader) + kBuffer);
  return file.append(bytesOf(tail));
}

std::string DumpBuilder::autoDump() const { return head(RAMBO_AUTO_DUMP) + slots_; }

std::string DumpBuilder::counts(const std::vector<GTraceFunctionCount>& table) const {
  std::string file(bytesOf(*header_));
  for (const GTraceFunctionCount& count : table) file += bytesOf(count);
  file.resize(sizeof(GTraceDumpHeader) + kBuffer);
  return file;
}

}  // namespace osse_test
