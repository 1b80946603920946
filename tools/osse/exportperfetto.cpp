#include "exportperfetto.h"

namespace oss::tool {
namespace {

// The fields of the viewer's messages that are written here.
namespace trace {
constexpr uint32_t kPacket = 1;
}
namespace packet {
constexpr uint32_t kTimestamp = 8;  // nanoseconds
constexpr uint32_t kSequenceId = 10;
constexpr uint32_t kTrackEvent = 11;
constexpr uint32_t kInternedData = 12;
constexpr uint32_t kSequenceFlags = 13;
constexpr uint32_t kTrackDescriptor = 60;
}  // namespace packet
namespace event {
constexpr uint32_t kAnnotation = 4;
constexpr uint32_t kType = 9;
constexpr uint32_t kNameId = 10;
constexpr uint32_t kTrack = 11;
constexpr uint64_t kBegin = 1, kEnd = 2, kInstant = 3;
}  // namespace event
namespace annotation {
constexpr uint32_t kNameId = 1;
constexpr uint32_t kUnsigned = 3;
constexpr uint32_t kString = 6;
constexpr uint32_t kPointer = 7;  // shown in hex
}  // namespace annotation
namespace interned {
constexpr uint32_t kEventNames = 2;
constexpr uint32_t kAnnotationNames = 3;
constexpr uint32_t kId = 1;
constexpr uint32_t kName = 2;
}  // namespace interned
namespace track {
constexpr uint32_t kUuid = 1;
constexpr uint32_t kProcess = 3;
constexpr uint32_t kThread = 4;
constexpr uint32_t kParent = 5;
constexpr uint32_t kPid = 1;
constexpr uint32_t kTid = 2;
constexpr uint32_t kThreadName = 5;
constexpr uint32_t kProcessName = 6;
}  // namespace track

// All packets are one sequence, whose interned names hold from the first packet on.
constexpr uint64_t kSequence = 1;
constexpr uint64_t kStateCleared = 1;
constexpr uint64_t kNeedsState = 2;

enum Annotation : uint64_t { kProbe = 1, kCode, kExtra, kExtra2, kCorrelator, kItems, kIncomplete };
constexpr std::string_view kAnnotationNames[] = {"probe",      "rc",    "extra",     "extra2",
                                                 "correlator", "items", "incomplete"};

constexpr uint64_t threadTrack(uint32_t number) { return uint64_t{number} + 1; }
constexpr uint64_t processTrack(uint32_t number) { return (uint64_t{number} + 1) << 32; }

}  // namespace

struct PerfettoExport::Packet {
  explicit Packet(Output& output)
      : message(output.room(Output::kLargestRoom)), mark(message.begin(trace::kPacket)) {
    message.number(packet::kSequenceId, kSequence);
  }

  void end(Output& output) const {
    message.end(mark);
    output.end(message.position());
  }

  void annotate(Annotation name, uint32_t kind, uint64_t value) {
    const Protobuf::Mark at = message.begin(event::kAnnotation);
    message.number(annotation::kNameId, name);
    message.number(kind, value);
    message.end(at);
  }

  void annotate(Annotation name, std::string_view value) {
    const Protobuf::Mark at = message.begin(event::kAnnotation);
    message.number(annotation::kNameId, name);
    message.text(annotation::kString, value);
    message.end(at);
  }

  Protobuf message;
  Protobuf::Mark mark;
  Protobuf::Mark event = nullptr;
  const EventKey* newName = nullptr;
  uint64_t newNameId = 0;
};

PerfettoExport::PerfettoExport(Output& output, Names& names, Clock clock)
    : output_(output), names_(names), clock_(clock) {
  Packet first(output_);
  first.message.number(packet::kSequenceFlags, kStateCleared);
  const Protobuf::Mark data = first.message.begin(packet::kInternedData);
  uint64_t id = 0;
  for (const std::string_view name : kAnnotationNames) {
    const Protobuf::Mark at = first.message.begin(interned::kAnnotationNames);
    first.message.number(interned::kId, ++id);
    first.message.text(interned::kName, name);
    first.message.end(at);
  }
  first.message.end(data);
  first.end(output_);
}

void PerfettoExport::began(const Thread& thread) {
  const IndexMap::Found process = processes_.findOrAdd(thread.process, 0);
  if (process.isNew) describeProcess(thread.process);

  Packet packet(output_);
  const Protobuf::Mark track = packet.message.begin(packet::kTrackDescriptor);
  packet.message.number(track::kUuid, threadTrack(thread.number));
  packet.message.number(track::kParent, processTrack(process.index));
  const Protobuf::Mark description = packet.message.begin(track::kThread);
  packet.message.number(track::kPid, thread.process);
  packet.message.number(track::kTid, thread.id);
  packet.message.text(track::kThreadName, "thread " + std::to_string(thread.id));
  packet.message.end(description);
  packet.message.end(track);
  packet.end(output_);
}

void PerfettoExport::describeProcess(uint32_t process) {
  Packet packet(output_);
  const Protobuf::Mark track = packet.message.begin(packet::kTrackDescriptor);
  packet.message.number(track::kUuid, processTrack(processes_.size() - 1));
  const Protobuf::Mark description = packet.message.begin(track::kProcess);
  packet.message.number(track::kPid, process);
  packet.message.text(track::kProcessName, "process " + std::to_string(process));
  packet.message.end(description);
  packet.message.end(track);
  packet.end(output_);
}

void PerfettoExport::entered(const Thread& thread, const Frame& frame, const Record& record) {
  const EventKey key(Event::Call, frame.funcId);
  Packet packet = beginEvent(thread, frame.entered);
  packet.message.number(event::kType, event::kBegin);
  nameEvent(packet, key);
  annotate(packet, record);
  endEvent(packet);
}

void PerfettoExport::left(const Thread& thread, const Frame&, uint64_t at, const Record* exit) {
  Packet packet = beginEvent(thread, at);
  packet.message.number(event::kType, event::kEnd);
  if (exit != nullptr)
    annotate(packet, *exit);
  else
    packet.annotate(kIncomplete, "exit");
  endEvent(packet);
}

void PerfettoExport::cut(const Thread& thread, const Record& record, uint64_t at) {
  const EventKey key(Event::Cut, record.head().funcId);
  Packet packet = beginEvent(thread, at);
  packet.message.number(event::kType, event::kInstant);
  nameEvent(packet, key);
  packet.annotate(kIncomplete, "entry");
  annotate(packet, record);
  endEvent(packet);
}

void PerfettoExport::note(const Thread& thread, const Record& record, uint64_t at) {
  const EventKey key(Event::Note, record.head());
  Packet packet = beginEvent(thread, at);
  packet.message.number(event::kType, event::kInstant);
  nameEvent(packet, key);
  annotate(packet, record);
  endEvent(packet);
}

PerfettoExport::Packet PerfettoExport::beginEvent(const Thread& thread, uint64_t at) {
  Packet packet(output_);
  packet.message.number(packet::kSequenceFlags, kNeedsState);
  packet.message.number(packet::kTimestamp, clock_.nanoseconds(at));
  packet.event = packet.message.begin(packet::kTrackEvent);
  packet.message.number(event::kTrack, threadTrack(thread.number));
  return packet;
}

void PerfettoExport::nameEvent(Packet& packet, const EventKey& key) {
  const IndexMap::Found found = eventNames_.findOrAdd(key.funcId, key.variant);
  const uint64_t id = uint64_t{found.index} + 1;
  packet.message.number(event::kNameId, id);
  if (!found.isNew) return;
  packet.newName = &key;
  packet.newNameId = id;
}

// A name travels with the first event that bears it.
void PerfettoExport::endEvent(Packet& packet) {
  packet.message.end(packet.event);
  if (packet.newName != nullptr) {
    const Protobuf::Mark data = packet.message.begin(packet::kInternedData);
    const Protobuf::Mark name = packet.message.begin(interned::kEventNames);
    packet.message.number(interned::kId, packet.newNameId);
    packet.message.text(interned::kName, nameOf(*packet.newName, names_));
    packet.message.end(name);
    packet.message.end(data);
  }
  packet.end(output_);
}

void PerfettoExport::annotate(Packet& packet, const Record& record) {
  const GTraceRecord& head = record.head();
  if (record.hasProbe()) packet.annotate(kProbe, annotation::kUnsigned, head.probe);
  if (record.hasCode() && head.returnCode != 0)
    packet.annotate(kCode, names_.code(head.returnCode));
  if (record.isCorrelator()) packet.annotate(kCorrelator, annotation::kPointer, head.returnCode);
  if (record.hasExtra1() && head.extra1 != 0)
    packet.annotate(kExtra, annotation::kPointer, head.extra1);
  if (record.hasExtra2() && record.extra2() != 0)
    packet.annotate(kExtra2, annotation::kPointer, record.extra2());
  if (record.hasItems()) packet.annotate(kItems, listItems(record, items_));
}

}  // namespace oss::tool
