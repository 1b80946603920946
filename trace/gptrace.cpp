// The trace points. Each is the same few steps around its own fields:
//
//   admit -> reserve -> fill -> seal -> count towards stop-on-error, call back
//
// Admission and what follows the seal are asked by one test of the flags each, and are out of the
// way otherwise.
#include "trace/gptrace.h"

#include <windows.h>

#include <cstdarg>
#include <cstdlib>

#include "osstime.h"
#include "osstracepoint.h"
#include "trace/gtcallstack.h"
#include "trace/gtfilter.h"
#include "trace/gtrecord.h"
#include "trace/rambo.h"

namespace oss {
namespace {

// Where in a function a trace point stands. A record's type does not tell: others may use those of
// entries and exits, too.
enum class Place : uint8_t { Within, Entry, Exit };

// Everything about a record but its items, as the caller passed it.
struct Point {
  uint64_t threadId;
  uint32_t funcId;
  uint16_t type;
  uint16_t probe = 0;
  const uint64_t* rc = nullptr;
  Place place = Place::Within;

  OSSErr code() const noexcept { return rc != nullptr ? static_cast<OSSErr>(*rc) : 0; }
};

// The flags that are looked at when a record is sealed.
constexpr uint32_t kAfterwards = GTRACE_COUNT_STOPS | GTRACE_STOP_ON_EXIT | GTRACE_CALLBACK;
constexpr uint32_t kStops = GTRACE_COUNT_STOPS | GTRACE_STOP_ON_EXIT;

uint64_t ticksNow() noexcept {
  LARGE_INTEGER ticks;
  return ::QueryPerformanceCounter(&ticks) ? static_cast<uint64_t>(ticks.QuadPart) : 0;
}

[[gnu::always_inline]] inline bool passes(const GTraceControlBlock& block, uint32_t flags,
                                          const Point& point) noexcept {
  return passesFilters(
      block.options, flags,
      {point.threadId, g_traceProcess.processId, point.funcId, point.type, point.probe});
}

// ---- Function-count mode ----

void countEntry(GTraceControlBlock& block, uint32_t flags, const Point& point) noexcept {
  constexpr uint32_t kFilters =
      GTRACE_CHECKED & ~(GTRACE_COUNTING | GTRACE_PERTURBING | GTRACE_ERRORS_ONLY);
  static_assert(kFilters == 0x203E);
  if ((flags & kFilters) != 0 && !passes(block, flags, point)) return;

  GTraceFunctionCount* const entry = findFunction(tableOf(block), point.funcId, true);
  if (entry != nullptr)
    ++entry->calls;
  else
    fetchAndAdd(&block.stopCounter, 1);
  if ((flags & GTRACE_CALL_STACKS) == 0) return;
  if (CallStack* const stack = callStack()) stack->push(point.funcId, ticksNow());
}

void countExit(GTraceControlBlock& block, uint32_t flags, const Point& point) noexcept {
  if ((flags & GTRACE_CALL_STACKS) == 0) return;
  CallStack* const stack = callStack();
  if (stack == nullptr) return;

  const uint64_t ticks = stack->pop(point.funcId, ticksNow());
  GTraceFunctionCount* const entry = findFunction(tableOf(block), point.funcId, false);
  if (entry != nullptr) entry->ticks += ticks;
}

void count(GTraceControlBlock& block, uint32_t flags, const Point& point) noexcept {
  if (point.place == Place::Entry) countEntry(block, flags, point);
  if (point.place == Place::Exit) countExit(block, flags, point);
}

// ---- Timing perturbation ----

// Shakes out races: sleeps now and then, mostly for a short time, at most 200 ms.
void perturb(const GTraceOptions& options) noexcept {
  constexpr unsigned kSeed = 1020;
  constexpr double kRange = 32'768;
  constexpr double kLongest = 200;  // milliseconds
  static std::atomic_flag seeded;
  static std::atomic<uint64_t> steps = 1;

  // The run-time's own generator, from a constant: what shook a race out can be repeated.
  // NOLINTBEGIN(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)
  if (!seeded.test_and_set()) std::srand(kSeed);
  const double r = std::rand() / kRange;
  // NOLINTEND(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)
  if (steps >= options.stopCode) {
    ossSleep(static_cast<uint32_t>(r * r * r * r * kLongest));
    steps = 0;
  }
  ++steps;
}

// ---- Admission ----

// The modes in which no record is written.
[[gnu::cold, gnu::noinline]] void actInstead(GTraceControlBlock& block, uint32_t flags,
                                             Point point) noexcept {
  if ((block.options.mode & GTRACE_FUNCTION_COUNT) != 0)
    count(block, flags, point);
  else if (passes(block, flags, point))
    perturb(block.options);
}

// Whether a record is to be written, and the time that it carries.
struct Admission {
  bool granted;
  uint64_t stamp;
};

[[gnu::always_inline]] inline Admission admit(GTraceControlBlock& block, uint32_t flags,
                                              const Point& point) noexcept {
  if ((flags & GTRACE_CHECKED) == 0) return {true, 0};
  if ((block.options.mode & (GTRACE_FUNCTION_COUNT | GTRACE_PERTURB)) != 0) [[unlikely]] {
    actInstead(block, flags, point);
    return {false, 0};
  }
  if (!passes(block, flags, point)) return {false, 0};
  if ((flags & GTRACE_ERRORS_ONLY) != 0 && point.place == Place::Exit && point.code() == 0)
    return {false, 0};
  return {true, (flags & GTRACE_STAMP) != 0 ? ticksNow() : 0};
}

// ---- Behind the seal ----

bool isStop(const GTraceControlBlock& block, uint32_t flags, const Point& point) noexcept {
  if ((flags & GTRACE_COUNT_STOPS) == 0) return false;
  if (point.place == Place::Exit)
    return (flags & GTRACE_STOP_ON_EXIT) != 0 && point.code() == block.options.stopCode;
  return point.type == GTRACE_STOP_ERROR;
}

[[gnu::noinline]] void finish(GTraceControlBlock& block, uint32_t flags, Point point,
                              TraceItemArguments items) noexcept {
  if (isStop(block, flags, point) && fetchAndAdd(&block.stopCounter, 1) >= block.options.stopCount)
    gtraceDisable();
  if ((flags & GTRACE_CALLBACK) == 0) return;
  if (const GTraceRecordCallback callback = g_traceProcess.recordCallback)
    callback(point.type, point.funcId, point.probe, point.rc, items.size(),
             items.empty() ? nullptr : items.data());
}

// ---- Writing ----

constexpr Point entryOf(uint64_t threadId, uint32_t funcId) noexcept {
  return {threadId, funcId, GTRACE_ENTRY, 0, nullptr, Place::Entry};
}
constexpr Point exitOf(uint64_t threadId, uint32_t funcId, const uint64_t* rc) noexcept {
  return {threadId, funcId, GTRACE_EXIT, 0, rc, Place::Exit};
}

constexpr uint16_t marksOf(uint32_t typeAndFlags) noexcept {
  return (typeAndFlags & GTRACE_MARK) != 0 ? GTRACE_MARKED : 0;
}

uint32_t flagsOf(const GTraceControlBlock& block) noexcept {
  return __atomic_load_n(&block.options.flags, __ATOMIC_RELAXED);
}

// What every record holds.
[[gnu::always_inline]] inline void fill(GTraceRecord& record, const Point& point, uint64_t stamp,
                                        uint16_t dataLength) noexcept {
  record.timestamp = stamp;
  record.threadId = point.threadId;
  record.processId = g_traceProcess.processId.load(std::memory_order_relaxed);
  record.funcId = point.funcId;
  record.fixedData1 = g_traceProcess.fixedData1.load(std::memory_order_relaxed);
  record.fixedData2 = g_traceProcess.fixedData2.load(std::memory_order_relaxed);
  record.type = point.type;
  record.flags = 0;
  record.dataLength = dataLength;
}

// The kinds of record of a fixed size, made of what their trace points are given. fillRest writes
// what only they have.
constexpr uint32_t kOneSlot = 1;
constexpr uint32_t kTwoSlots = 2;

struct Entry {
  static constexpr uint32_t kSlots = kOneSlot;

  Entry(uint64_t threadId, uint32_t funcId) noexcept : point(entryOf(threadId, funcId)) {}
  void fillRest(GTraceRecord&) const noexcept {}

  Point point;
};

struct Exit {
  static constexpr uint32_t kSlots = kOneSlot;

  Exit(uint64_t threadId, uint32_t funcId, const uint64_t* rc, uint64_t extraValue) noexcept
      : point(exitOf(threadId, funcId, rc)), extra(extraValue) {}
  void fillRest(GTraceRecord& record) const noexcept {
    record.extra1 = extra;
    record.returnCode = point.code();
  }

  Point point;
  uint64_t extra;
};

struct Marker {
  static constexpr uint32_t kSlots = kOneSlot;

  Marker(uint64_t threadId, uint32_t funcId, uint16_t probe, uint32_t typeAndFlags) noexcept
      : point{threadId, funcId, static_cast<uint16_t>(typeAndFlags), probe},
        marks(marksOf(typeAndFlags)) {}
  void fillRest(GTraceRecord& record) const noexcept {
    record.flags = marks;
    record.probe = point.probe;
  }

  Point point;
  uint16_t marks;
};

struct Error {
  static constexpr uint32_t kSlots = kOneSlot;

  Error(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
        uint64_t extraValue) noexcept
      : point{threadId, funcId, type, probe}, extra(extraValue) {}
  void fillRest(GTraceRecord& record) const noexcept {
    record.probe = point.probe;
    record.extra1 = extra;
  }

  Point point;
  uint64_t extra;
};

// With a second extra value, behind the place of the item count.
struct LongError {
  static constexpr uint32_t kSlots = kTwoSlots;

  LongError(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type, const uint64_t* rc,
            uint64_t first, uint64_t second) noexcept
      : point{threadId, funcId, type, probe, rc}, extra1(first), extra2(second) {}
  void fillRest(GTraceRecord& record) const noexcept {
    record.probe = point.probe;
    record.extra1 = extra1;
    if (point.rc != nullptr) record.returnCode = point.code();
    std::memcpy(&record + 1, &extra2, sizeof extra2);
  }

  Point point;
  uint64_t extra1;
  uint64_t extra2;
};

template <class Kind>
[[gnu::always_inline]] inline void fillSlots(void* payload, const Kind& kind,
                                             uint64_t stamp) noexcept {
  auto& record = *static_cast<GTraceRecord*>(payload);
  fill(record, kind.point, stamp, 0);
  kind.fillRest(record);
}

// Every step of a trace point. The arguments travel in registers, which a Kind would not.
template <class Kind, class... Arguments>
[[gnu::noinline]] void writeChecked(Arguments... arguments) noexcept {
  GTraceControlBlock* const block = currentBlock();
  if (block == nullptr) [[unlikely]]
    return;
  const Kind kind(arguments...);
  const uint32_t flags = flagsOf(*block);
  const Admission admission = admit(*block, flags, kind.point);
  if (!admission.granted) return;

  const Slots slots(ringOf(*block), Kind::kSlots);
  fillSlots(slots.payload(), kind, admission.stamp);
  slots.seal();
  if ((flags & kAfterwards) != 0) [[unlikely]]
    finish(*block, flags, kind.point, {});
}

// A trace point: short where nothing is to be checked and the slots are simply the next ones.
template <class Kind, class... Arguments>
[[gnu::always_inline]] inline void write(Arguments... arguments) noexcept {
  GTraceControlBlock* const block = currentBlock();
  if (block == nullptr) [[unlikely]]
    return;
  if ((flagsOf(*block) & (GTRACE_CHECKED | kAfterwards)) != 0)
    return writeChecked<Kind>(arguments...);

  const Slots slots(ringOf(*block), Kind::kSlots);
  fillSlots(slots.payload(), Kind(arguments...), 0);
  slots.seal();
}

// The values that only some records with items have. The others say 0: a reader could not tell
// theirs from what stood in the slot.
struct Extra {
  uint64_t value = 0;
  uint32_t code = 0;
};

[[gnu::always_inline]] inline void writeWithItems(const Point& point, uint16_t marks, Extra extra,
                                                  TraceItemArguments items) noexcept {
  constexpr auto kHead = static_cast<uint32_t>(sizeof(GTraceRecord));
  GTraceControlBlock* const block = currentBlock();
  if (block == nullptr) [[unlikely]]
    return;
  const uint32_t flags = flagsOf(*block);
  const Admission admission = admit(*block, flags, point);
  if (!admission.granted) return;

  const ItemRoom room = roomFor(items);
  const Slots slots(ringOf(*block), slotsOf(kHead + room.bytes));
  auto& record = *static_cast<GTraceRecord*>(slots.payload());
  fill(record, point, admission.stamp, static_cast<uint16_t>(room.bytes));
  record.flags = marks;
  record.probe = point.probe;
  record.extra1 = extra.value;
  record.returnCode = extra.code;
  record.itemCount = room.count;
  writeItems(reinterpret_cast<GTraceItem*>(&record + 1), items, room);
  slots.seal();
  if ((flags & kAfterwards) != 0) [[unlikely]]
    finish(*block, flags, point, items);
}

// A variadic argument is eight bytes on the stack, wherever it came from, so the items lie there as
// an array.
TraceItemArguments itemsOf(va_list arguments, uint64_t count) noexcept {
  return {reinterpret_cast<const GTraceItemArgument*>(arguments), static_cast<size_t>(count)};
}

}  // namespace
}  // namespace oss

using namespace oss;

// Reads the items behind the named parameter `last` and writes the record.
#define WRITE_ITEMS(point, marks, extra, last)                     \
  do {                                                             \
    va_list arguments;                                             \
    va_start(arguments, last);                                     \
    writeWithItems(point, marks, extra, itemsOf(arguments, last)); \
    va_end(arguments);                                             \
  } while (false)

void gtraceEntry(uint64_t threadId, uint32_t funcId) noexcept { write<Entry>(threadId, funcId); }

void gtraceEntryVar(uint64_t threadId, uint32_t funcId, uint64_t count, ...) noexcept {
  const Point point = entryOf(threadId, funcId);
  WRITE_ITEMS(point, 0, Extra{}, count);
}

void gtraceExit(uint64_t threadId, uint32_t funcId, const uint64_t* rc, uint64_t extra) noexcept {
  write<Exit>(threadId, funcId, rc, extra);
}

void gtraceExitVar(uint64_t threadId, uint32_t funcId, const uint64_t* rc, uint64_t extra,
                   uint64_t count, ...) noexcept {
  const Point point = exitOf(threadId, funcId, rc);
  const Extra values = {extra, point.code()};
  WRITE_ITEMS(point, 0, values, count);
}

void gtraceMarker(uint64_t threadId, uint32_t funcId, uint16_t probe,
                  uint32_t typeAndFlags) noexcept {
  write<Marker>(threadId, funcId, probe, typeAndFlags);
}

void gtraceMarkerVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint32_t typeAndFlags,
                     uint64_t count, ...) noexcept {
  const Point point = {threadId, funcId, static_cast<uint16_t>(typeAndFlags), probe};
  WRITE_ITEMS(point, marksOf(typeAndFlags), Extra{}, count);
}

void gtraceVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type, uint64_t count,
               ...) noexcept {
  const Point point = {threadId, funcId, type, probe};
  WRITE_ITEMS(point, 0, Extra{}, count);
}

void gtraceError(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                 uint64_t extra) noexcept {
  write<Error>(threadId, funcId, probe, type, extra);
}

void gtraceErrorVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                    uint64_t extra, uint64_t count, ...) noexcept {
  const Point point = {threadId, funcId, type, probe};
  WRITE_ITEMS(point, 0, Extra{extra}, count);
}

void gtraceErrorRc(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                   uint64_t extra1, uint32_t rc, uint64_t extra2) noexcept {
  const uint64_t wide = rc;
  write<LongError>(threadId, funcId, probe, type, &wide, extra1, extra2);
}

void gtraceErrorRcVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                      uint64_t extra1, uint32_t rc, uint64_t /*extra2*/, uint64_t count,
                      ...) noexcept {
  const uint64_t wide = rc;
  const Point point = {threadId, funcId, type, probe, &wide};
  const Extra values = {extra1, rc};
  WRITE_ITEMS(point, 0, values, count);
}

void gtraceErrorTrans(uint64_t threadId, uint32_t funcId, uint16_t probe, uint64_t extra1,
                      uint64_t extra2) noexcept {
  write<LongError>(threadId, funcId, probe, GTRACE_ERROR_TRANSLATION, nullptr, extra1, extra2);
}

void gtraceCorrelatorVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint32_t correlator,
                         uint64_t extra, uint64_t count, ...) noexcept {
  const Point point = {threadId, funcId, GTRACE_CORRELATOR, probe};
  const Extra values = {extra, correlator};
  WRITE_ITEMS(point, 0, values, count);
}
