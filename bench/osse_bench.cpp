// Claims: osse shows 8 million records of one slot in a second, hardly slower than a formatter
// written for nothing but their two kinds of line; and it exports at least 3 million a second in
// every form. The file is read from the system's cache, what is written goes nowhere.
#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "digits.h"
#include "dumpfile.h"
#include "exportchrome.h"
#include "exportfolded.h"
#include "exportperfetto.h"
#include "osscatalog.h"
#include "osstracepoint.h"
#include "ratio.h"
#include "recordtext.h"

namespace {

using namespace oss::bench;
using namespace oss::tool;

constexpr int64_t kTurns = 1;

constexpr char kPath[] = "osse_bench.tmp";
constexpr uint32_t kBuffer = 4 * 1024 * 1024;
constexpr uint32_t kRecords = kBuffer / RAMBO_SLOT;
constexpr uint32_t kDepth = 8;

// ---- The dump ----

uint32_t functionAt(uint32_t depth) {
  return oss::makeFunctionId(1, 3, oss::FunctionKind::Operation, 1 + depth);
}

// Calls within calls, as deep as kDepth, of four threads, until the buffer is full.
void traceCalls() {
  const uint64_t failed = ECF_FAILED;
  for (uint32_t i = 0; i < kRecords / (2 * kDepth); ++i) {
    const uint64_t thread = 100 + i % 4;
    for (uint32_t depth = 0; depth < kDepth; ++depth) gtraceEntry(thread, functionAt(depth));
    for (uint32_t depth = kDepth; depth-- > 0;)
      gtraceExit(thread, functionAt(depth), depth == 3 ? &failed : nullptr, 0);
  }
}

bool writeDump() {
  const auto options = std::make_unique<GTraceOptions>();
  options->bufferSize = kBuffer;
  options->mode = GTRACE_CIRCULAR;
  options->flags = GTRACE_STAMP;
  std::vector<uint64_t> block(gtraceGetAllocSize(kBuffer) / sizeof(uint64_t) + 1);
  gtraceInitialize(block.data(), options.get());
  gtraceAttach(block.data(), 4242, nullptr, nullptr);
  traceCalls();

  const auto header = std::make_unique<GTraceDumpHeader>();
  void* slots = nullptr;
  uint32_t size = 0;
  RamboDumpTail tail{};
  bool written = gtraceGetDumpHeaderBuffer(true, header.get(), &slots, &size) == ECF_OK &&
                 gtraceGetDumpTail(&tail) == ECF_OK;
  gtraceDetach();
  std::FILE* const file = std::fopen(kPath, "wb");
  if (file == nullptr) return false;
  written = std::fwrite(header.get(), sizeof *header, 1, file) == 1 &&
            std::fwrite(slots, size, 1, file) == 1 &&
            std::fwrite(&tail, sizeof tail, 1, file) == 1 && written;
  return std::fclose(file) == 0 && written;
}

// ---- Where text goes ----

bool drop(void*, const char*, size_t) { return true; }

bool keep(void* text, const char* data, size_t size) {
  static_cast<std::string*>(text)->append(data, size);
  return true;
}

// ---- The work: each turns a whole dump into text ----

using Work = void(DumpFile& dump, Output& output);

void parse(DumpFile& dump, Output&) {
  while (dump.next()) benchmark::DoNotOptimize(dump.record().head().funcId);
}

void format(DumpFile& dump, Output& output) {
  Names names;
  RecordText text(output, names, dump.clock(), dump.hasStamps());
  while (dump.next()) {
    text.write(dump.record(), 0);
    text.endLine();
  }
}

// The peer knows that there are entries and exits only, and the frequency of the counter.
void formatByHand(DumpFile& dump, Output& output) {
  constexpr uint64_t kNanosecondsPerTick = 100;
  std::vector<std::string> names;
  for (uint32_t depth = 0; depth < kDepth; ++depth)
    names.emplace_back(ecfGetFunctionName(functionAt(depth)));
  while (dump.next()) {
    const GTraceRecord& head = dump.record().head();
    char* out = output.room(256);
    char* const end = out + 256;
    const uint64_t time = head.timestamp * kNanosecondsPerTick;
    out = std::to_chars(out, end, time / 1'000'000'000).ptr;
    // One in front keeps the zeros; the point takes its place.
    char* const point = out;
    out = std::to_chars(out, end, 1'000'000'000 + time % 1'000'000'000).ptr;
    *point = '.';
    *out++ = ' ';
    out = std::to_chars(out, end, head.processId).ptr;
    *out++ = ' ';
    out = std::to_chars(out, end, head.threadId).ptr;
    const bool isEntry = head.type == GTRACE_ENTRY;
    out = putText(out, isEntry ? " entry " : " exit ");
    out = putWord(out, names[(head.funcId & 0xFFFF) - 1]);
    if (!isEntry) out = putText(out, head.returnCode == 0 ? " rc OK" : " rc ECF_FAILED");
    *out++ = '\n';
    output.end(out);
  }
}

template <class Visitor>
void walk(DumpFile& dump, Visitor& visitor) {
  Flow calls(dump.hasStamps());
  while (dump.next()) calls.add(dump.record(), visitor);
  calls.finish(visitor);
}

void exportPerfetto(DumpFile& dump, Output& output) {
  Names names;
  PerfettoExport visitor(output, names, dump.clock());
  walk(dump, visitor);
}

void exportChrome(DumpFile& dump, Output& output) {
  Names names;
  ChromeExport visitor(output, names, dump.clock());
  walk(dump, visitor);
  visitor.finish("performance counter");
}

void exportFolded(DumpFile& dump, Output& output) {
  Names names;
  FoldedExport visitor(output, names, dump.clock(), true);
  walk(dump, visitor);
  visitor.finish();
}

std::string textOf(Work* work) {
  std::string text;
  DumpFile dump;
  Output output(&keep, &text);
  if (dump.open(kPath) != ECF_OK) return {};
  work(dump, output);
  output.flush();
  return text;
}

// ---- All ----

// The time is that of one record; opening the file is a part of it, so the file is large, and a run
// takes longer than a millisecond.
template <Work* kWork>
void records(benchmark::State& state) {
  static const bool isReady =
      writeDump() && textOf(&format) == textOf(&formatByHand) && textOf(&format).size() > kRecords;
  if (!isReady) state.SkipWithError("the dump could not be written, or the texts differ");

  Output output(&drop, nullptr);
  for (auto _ : state) {
    DumpFile dump;
    if (dump.open(kPath) != ECF_OK) state.SkipWithError("the dump could not be read");
    kWork(dump, output);
    output.flush();
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

// Stands for no time at all.
void nothing(benchmark::State& state) {
  for (auto _ : state) benchmark::ClobberMemory();
  state.SetItemsProcessed(state.iterations() * kRecords);
}

OSS_BENCHMARK(records<parse>)->Name("parse");
OSS_BENCHMARK(records<format>)->Name("format");
OSS_BENCHMARK(records<formatByHand>)->Name("formatByHand");
OSS_BENCHMARK(records<exportPerfetto>)->Name("exportPerfetto");
OSS_BENCHMARK(records<exportChrome>)->Name("exportChrome");
OSS_BENCHMARK(records<exportFolded>)->Name("exportFolded");
OSS_BENCHMARK(nothing);

constexpr double kNanosecondsOfFormat = 1e9 / 8e6;
constexpr double kNanosecondsOfExport = 1e9 / 3e6;

constexpr Claim kRows[] = {
    {"format", atMostNanosecondsOver(kNanosecondsOfFormat), "nothing"},
    {"format", atMostTimes(1.25), "formatByHand"},
    {"exportPerfetto", atMostNanosecondsOver(kNanosecondsOfExport), "nothing"},
    {"exportChrome", atMostNanosecondsOver(kNanosecondsOfExport), "nothing"},
    {"exportFolded", atMostNanosecondsOver(kNanosecondsOfExport), "nothing"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
