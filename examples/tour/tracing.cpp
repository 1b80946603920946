// Tracing: the same work recorded in each of the four modes, and each trace left in a file.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "ossfile.h"
#include "ossmemory.h"
#include "ossnumeric.h"
#include "ossprocess.h"
#include "osstrace.h"
#include "osstracedump.h"
#include "osstracepoint.h"
#include "tour.h"

namespace tour {
namespace {

constexpr uint32_t kBuffer = RAMBO_SMALLEST_BUFFER;

// The file that a trace is left in. It is not written through the library, which would be traced.
class DumpFile {
 public:
  DumpFile(const Stage& stage, const char* name)
      : path_(stage.folder + name), file_(std::fopen(path_.c_str(), "wb")) {
    if (file_ == nullptr) std::perror(path_.c_str());
  }
  ~DumpFile() {
    if (file_ != nullptr && std::fclose(file_) == 0)
      note("%s: %zu bytes", path_.c_str(), size_);
    else
      note("%s could not be written", path_.c_str());
  }
  DumpFile(const DumpFile&) = delete;
  DumpFile& operator=(const DumpFile&) = delete;

  void write(const void* bytes, size_t size) {
    if (file_ != nullptr) size_ += std::fwrite(bytes, 1, size, file_);
  }

 private:
  std::string path_;
  std::FILE* file_;
  size_t size_ = 0;
};

void whenDisabled(uint32_t, void*) { note("tracing was disabled"); }

// A control block of the process's own, attached and enabled as long as it lives.
class Tracing {
 public:
  Tracing(uint32_t mode, uint32_t flags) : memory_(std::malloc(bytesOf(mode)), std::free) {
    auto options = std::make_unique<GTraceOptions>();
    std::memset(static_cast<void*>(options.get()), 0, sizeof(GTraceOptions));
    options->bufferSize = kBuffer;
    options->mode = mode;
    options->flags = flags;
    told("gtraceInitialize", gtraceInitialize(memory_.get(), options.get()));
    told("gtraceAttach", gtraceAttach(memory_.get(), ossProcessID(), nullptr, whenDisabled));
    told("gtraceEnable", gtraceEnable());
  }
  ~Tracing() { told("gtraceDetach", gtraceDetach()); }
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;

  // Writes the buffer as it stands.
  static void dump(DumpFile& file, bool hasTail) {
    void* data = nullptr;
    uint32_t size = 0;
    writeHeader(file, true, &data, &size);
    file.write(data, size);
    if (!hasTail) return;
    RamboDumpTail tail = {};
    told("gtraceGetDumpTail", gtraceGetDumpTail(&tail));
    file.write(&tail, sizeof tail);
  }

  static void writeHeader(DumpFile& file, bool instantaneous, void** data, uint32_t* size) {
    auto header = std::make_unique<GTraceDumpHeader>();
    std::memset(static_cast<void*>(header.get()), 0, sizeof(GTraceDumpHeader));
    told("gtraceGetDumpHeaderBuffer",
         gtraceGetDumpHeaderBuffer(instantaneous, header.get(), data, size));
    file.write(header.get(), sizeof(GTraceDumpHeader));
  }

 private:
  static size_t bytesOf(uint32_t mode) {
    return mode == GTRACE_FUNCTION_COUNT ? sizeof(GTraceControlBlock) + kBuffer
                                         : gtraceGetAllocSize(kBuffer);
  }

  std::unique_ptr<void, void (*)(void*)> memory_;
};

// What is traced: a file is read piece by piece, within an operation of the tour's own. The last
// read finds less than it asked for, which is traced but not logged.
void work(const Stage& stage) {
  constexpr uint32_t kOwn = oss::makeFunctionId(1, 3, oss::FunctionKind::None, 4000);
  const uint64_t thread = ossThreadID();
  const auto traced = [] { return g_pGTCB != nullptr && g_pGTCB->enabled != 0; };
  if (traced()) gtraceEntry(thread, kOwn);

  OSSFileOpenParam open;
  open.path = stage.input.c_str();
  open.creation = OSS_FILE_OPEN_EXISTING;
  open.access = OSS_FILE_READ;
  OSSFileReadParam read;
  read.size = 256;
  OSSHFile file;
  char piece[256];
  uint64_t count = 0;
  uint64_t rc = file.open(&open);
  while (rc == ECF_OK) {
    rc = file.read(&read, piece, &count);
    void* copy = nullptr;
    if (ossMemAlloc(&copy, nullptr, sizeof piece, 0, __FILE__, __LINE__) == ECF_OK)
      ossMemFree(&copy, nullptr, 0, __FILE__, __LINE__);
  }
  file.close();
  if (traced()) gtraceExit(thread, kOwn, &rc, 0);
}

void recordTheLatest(const Stage& stage) {
  note("circular: the latest records stay");
  const Tracing tracing(GTRACE_CIRCULAR, GTRACE_STAMP);
  for (int i = 0; i < 20; ++i) work(stage);
  told("gtraceDisable", gtraceDisable());
  DumpFile file(stage, "circular.trace");
  Tracing::dump(file, true);
}

void recordTheFirst(const Stage& stage) {
  note("fill-once: the first records stay, and a full buffer ends it");
  const Tracing tracing(GTRACE_FILL_ONCE, GTRACE_STAMP);
  while (g_pGTCB->enabled != 0) work(stage);
  DumpFile file(stage, "fillonce.trace");
  Tracing::dump(file, true);
}

// ---- Chunk by chunk ----

// Follows the writers: takes each chunk that is complete and gives it back to them.
class Dumper {
 public:
  explicit Dumper(DumpFile& file) : file_(file) {
    OSSThreadParam param;
    param.flags = OSS_THREAD_JOINABLE;
    told("gtraceInitializeChunkWalker", gtraceInitializeChunkWalker(&walker_));
    told("OSSHThread::create, the dumper", thread_.create(follow, this, &param, nullptr));
  }
  ~Dumper() {
    over_ = true;
    told("OSSHThread::wait, the dumper", thread_.wait());
    told("OSSHThread::close", thread_.close());
    // What the last chunk holds so far; the slots behind that are of an earlier pass.
    file_.write(walker_.slots, size_t{walker_.chunk->completed} * RAMBO_SLOT);
    note("%u chunks were dumped while tracing went on", walker_.count);
  }
  Dumper(const Dumper&) = delete;
  Dumper& operator=(const Dumper&) = delete;

 private:
  static void follow(void* self) { static_cast<Dumper*>(self)->run(); }

  void run() {
    const auto* const ring = static_cast<RamboControlBlock*>(walker_.handle);
    RamboChunk* const firstChunk = walker_.chunk;
    void* const firstSlot = walker_.slots;
    for (;;) {
      const bool last = over_;  // asked first: what is complete by then is dumped
      if (__atomic_load_n(&walker_.chunk->completed, __ATOMIC_ACQUIRE) == RAMBO_CHUNK_SLOTS) {
        file_.write(walker_.slots, RAMBO_CHUNK);
        __atomic_store_n(&walker_.chunk->completed, 0, __ATOMIC_RELEASE);
        __atomic_fetch_add(&walker_.chunk->generation, 1, __ATOMIC_SEQ_CST);
        ++walker_.count;
        const bool atEnd = walker_.count % ring->chunkCount == 0;
        walker_.chunk = atEnd ? firstChunk : walker_.chunk + 1;
        walker_.slots = atEnd ? firstSlot : static_cast<char*>(walker_.slots) + RAMBO_CHUNK;
      } else if (last) {
        return;
      } else {
        ossYield();
      }
    }
  }

  DumpFile& file_;
  RamboChunkWalker walker_ = {};
  OSSHThread thread_;
  std::atomic<bool> over_ = false;
};

void recordEverything(const Stage& stage) {
  note("chunked: a dumper follows, and nothing is lost");
  const Tracing tracing(GTRACE_CHUNKED, GTRACE_STAMP);
  void* data = nullptr;
  uint32_t size = 0;
  DumpFile file(stage, "auto.trace");
  Tracing::writeHeader(file, false, &data, &size);
  const Dumper dumper(file);
  for (int i = 0; i < 100; ++i) work(stage);
  told("gtraceDisable", gtraceDisable());
}

void countCalls(const Stage& stage) {
  note("function-count: calls and their time, but no records");
  const Tracing tracing(GTRACE_FUNCTION_COUNT, GTRACE_CALL_STACKS);
  for (int i = 0; i < 20; ++i) work(stage);
  told("gtraceDisable", gtraceDisable());
  DumpFile file(stage, "count.trace");
  Tracing::dump(file, false);
}

}  // namespace

void traceItself(const Stage& stage) {
  act("The tour traces itself");
  recordTheLatest(stage);
  recordTheFirst(stage);
  recordEverything(stage);
  countCalls(stage);
}

}  // namespace tour
