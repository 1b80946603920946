// Claim: parsing a trace dump costs hardly more than reading the file in large pieces, checking
// each slot and copying its payload, written out by hand.
//
// Both sides read the same file, which lies in the system's cache, and give the same payloads and
// places. A turn takes the next part of it, and begins anew at its end.
#include <windows.h>

#include <array>
#include <cstring>
#include <vector>

#include "osscatalog.h"
#include "ossfile.h"
#include "osstracedump.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 1;

constexpr char kPath[] = "dump_bench.tmp";
constexpr uint32_t kRecords = 1'048'576;
constexpr uint32_t kRecordsOfATurn = 65'536;
constexpr DWORD kPiece = 1024 * 1024;
constexpr DWORD kSlots = kPiece / RAMBO_SLOT;
constexpr size_t kPayload = 52;

struct Record {
  RamboRecordHead head;
  char payload[kPayload];
  uint32_t trailer;
};
static_assert(sizeof(Record) == RAMBO_SLOT);

// A fill-once dump, full of records of one slot.
std::vector<char> dumpBytes() {
  std::vector<char> bytes(sizeof(GTraceDumpHeader));
  auto& header = *reinterpret_cast<GTraceDumpHeader*>(bytes.data());
  std::memcpy(header.magic, "GTDUMP1", 8);
  header.options.bufferSize = kRecords * sizeof(Record);
  header.options.mode = GTRACE_FILL_ONCE;
  std::memcpy(header.ring.magic, "@HEAD\r\n", 8);
  header.ring.bufferSize = header.options.bufferSize;
  header.ring.dumpType = RAMBO_INSTANTANEOUS_DUMP;

  const auto append = [&](const auto& part) {
    const auto* const at = reinterpret_cast<const char*>(&part);
    bytes.insert(bytes.end(), at, at + sizeof part);
  };
  for (uint32_t i = 0; i < kRecords; ++i)
    append(Record{{i, RAMBO_RECORD_MARK, 1}, {static_cast<char>(i)}, ~i});
  append(RamboDumpTail{"@TAIL\r\n", kRecords, 0, 0, 0, {}});
  return bytes;
}

// The dump, open as long as the program runs.
class DumpFile {
 public:
  static OSSHFile& get() {
    static DumpFile dump;
    return dump.file_;
  }

 private:
  DumpFile() {
    OSSFileOpenParam open;
    open.path = kPath;
    open.creation = OSS_FILE_CREATE_ALWAYS;
    open.access = OSS_FILE_READ_WRITE;
    open.flags = OSS_FILE_DELETE_ON_CLOSE;
    if (file_.open(&open) != ECF_OK) return;  // the first turn finds out
    const std::vector<char> bytes = dumpBytes();
    OSSFileWriteParam param;
    param.buffer = bytes.data();
    param.size = bytes.size();
    static_cast<void>(file_.write(&param, nullptr));
  }
  ~DumpFile() { static_cast<void>(file_.close()); }  // which also deletes it

  OSSHFile file_;
};

// Takes what the caller of a parser takes: the payload, and where it stands.
struct Taken {
  std::array<char, kPayload> payload;
  uint64_t offset = 0;
};

// A reader takes one record, the first again behind the last. It lives as long as the program.
template <class Reader>
void takeRecords(benchmark::State& state) {
  static Reader reader;
  for (auto _ : state)
    for (uint32_t i = 0; i < kRecordsOfATurn; ++i) {
      Taken taken;
      if (!reader.take(taken)) return state.SkipWithError("a record is missing");
      benchmark::DoNotOptimize(taken);
    }
  state.SetItemsProcessed(state.iterations() * kRecordsOfATurn);
}

// ---- The library ----

class Parser {
 public:
  Parser() { rewind(); }
  ~Parser() { gtraceCloseDumpFileParser(&parser_); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  bool take(Taken& taken) { return parse(taken) || (rewind() && parse(taken)); }

 private:
  bool parse(Taken& taken) {
    return gtraceParseRecords(&file_, &parser_, &taken.offset, taken.payload.data(), kPayload) ==
           kPayload;
  }
  bool rewind() {
    gtraceCloseDumpFileParser(&parser_);
    ::SetFilePointer(file_.getFileHandle(), 0, nullptr, FILE_BEGIN);
    return gtraceOpenDumpFileParser(&file_, &parser_, true) == ECF_OK;
  }

  OSSHFile& file_ = DumpFile::get();
  GTraceDumpParser parser_ = {};
};

// ---- By hand ----

alignas(4096) std::array<char, kPiece> g_piece;

class Loop {
 public:
  bool take(Taken& taken) {
    if (slot_ == kSlots && !readPiece()) return false;
    const auto& record = reinterpret_cast<const Record&>(g_piece[slot_ * sizeof(Record)]);
    if (record.head.mark != RAMBO_RECORD_MARK || record.head.slots != 1) return false;
    if (record.trailer != ~record.head.sequence) return false;
    if (kRecords - 1 - record.head.sequence >= kRecords) return false;
    std::memcpy(taken.payload.data(), record.payload, kPayload);
    taken.offset = pieceOffset_ + slot_ * sizeof record + sizeof record.head;
    ++slot_;
    return true;
  }

 private:
  bool readPiece() {
    pieceOffset_ = pieceOffset_ + kPiece < kEnd ? pieceOffset_ + kPiece : kStart;
    slot_ = 0;
    // The other side moves the position, too.
    ::SetFilePointer(file_, static_cast<LONG>(pieceOffset_), nullptr, FILE_BEGIN);
    DWORD count = 0;
    return ::ReadFile(file_, g_piece.data(), kPiece, &count, nullptr) && count == kPiece;
  }

  static constexpr uint32_t kStart = sizeof(GTraceDumpHeader);
  static constexpr uint32_t kEnd = kStart + kRecords * sizeof(Record);

  HANDLE file_ = DumpFile::get().getFileHandle();
  uint64_t pieceOffset_ = kEnd;
  uint32_t slot_ = kSlots;
};

OSS_BENCHMARK(takeRecords<Parser>);
OSS_BENCHMARK(takeRecords<Loop>);

constexpr Claim kRows[] = {
    {"takeRecords<Parser>", atMostTimes(1.5), "takeRecords<Loop>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
