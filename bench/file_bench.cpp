// Claim: reading and writing through a file handle costs hardly more than the system's own calls.
//
// Both sides move the same bytes within the system's cache, through the same system handle. A turn
// goes from the file's start to its end.
#include "ossfile.h"

#include <windows.h>

#include "osscatalog.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 16;

constexpr DWORD kPage = 4 * 1024;
constexpr DWORD kPiece = 1024 * 1024;

// Aligned as the buffers of a buffer pool are.
alignas(kPage) char g_buffer[kPiece];

// A full file, there as long as the program. All benchmarks of a size share one.
template <DWORD kSize>
class BenchFile {
 public:
  static BenchFile& get() {
    static BenchFile file;
    return file;
  }

  // Runs the transfer, which tells whether it moved kSize bytes, over the whole file in each turn.
  template <class Transfer>
  void run(benchmark::State& state, Transfer moveOne) {
    for (auto _ : state)
      if (!moveAll(moveOne)) state.SkipWithError("the file cannot be read or written");
    state.SetItemsProcessed(state.iterations() * kTransfers);
  }

  OSSHFile file;

 private:
  static constexpr int64_t kTransfers = kSize == kPage ? 64 : 4;

  BenchFile() {
    OSSFileOpenParam open;
    open.path = kSize == kPage ? "file_bench_page.tmp" : "file_bench_piece.tmp";
    open.creation = OSS_FILE_CREATE_ALWAYS;
    open.access = OSS_FILE_READ_WRITE;
    open.flags = OSS_FILE_DELETE_ON_CLOSE;
    if (file.open(&open) != ECF_OK) return;  // the first turn finds out

    // Written, not just extended: then every page lies in the system's cache.
    OSSFileWriteParam param;
    param.buffer = g_buffer;
    param.size = kSize;
    moveAll([&] { return file.write(&param, nullptr) == ECF_OK; });
  }
  ~BenchFile() { static_cast<void>(file.close()); }  // which also deletes it

  template <class Transfer>
  bool moveAll(Transfer moveOne) {
    bool moved = ::SetFilePointer(file.getFileHandle(), 0, nullptr, FILE_BEGIN) == 0;
    for (int64_t i = 0; i < kTransfers; ++i) moved = moveOne() && moved;
    return moved;
  }
};

// ---- The library ----

template <DWORD kSize>
void read(benchmark::State& state) {
  auto& bench = BenchFile<kSize>::get();
  OSSFileReadParam param;
  param.size = kSize;
  uint64_t count = 0;
  bench.run(state, [&] { return bench.file.read(&param, g_buffer, &count) == ECF_OK; });
}

template <DWORD kSize>
void write(benchmark::State& state) {
  auto& bench = BenchFile<kSize>::get();
  OSSFileWriteParam param;
  param.buffer = g_buffer;
  param.size = kSize;
  uint64_t count = 0;
  bench.run(state, [&] { return bench.file.write(&param, &count) == ECF_OK; });
}

// ---- The system ----

template <DWORD kSize>
void rawRead(benchmark::State& state) {
  auto& bench = BenchFile<kSize>::get();
  const HANDLE file = bench.file.getFileHandle();
  DWORD count = 0;
  bench.run(state,
            [&] { return ::ReadFile(file, g_buffer, kSize, &count, nullptr) && count == kSize; });
}

template <DWORD kSize>
void rawWrite(benchmark::State& state) {
  auto& bench = BenchFile<kSize>::get();
  const HANDLE file = bench.file.getFileHandle();
  DWORD count = 0;
  bench.run(state,
            [&] { return ::WriteFile(file, g_buffer, kSize, &count, nullptr) && count == kSize; });
}

OSS_BENCHMARK(read<kPage>);
OSS_BENCHMARK(rawRead<kPage>);
OSS_BENCHMARK(write<kPage>);
OSS_BENCHMARK(rawWrite<kPage>);
OSS_BENCHMARK(read<kPiece>);
OSS_BENCHMARK(rawRead<kPiece>);
OSS_BENCHMARK(write<kPiece>);
OSS_BENCHMARK(rawWrite<kPiece>);

constexpr Claim kRows[] = {
    {"read<kPage>", atMostTimes(1.03), "rawRead<kPage>"},
    {"write<kPage>", atMostTimes(1.03), "rawWrite<kPage>"},
    {"read<kPiece>", atMostTimes(1.03), "rawRead<kPiece>"},
    {"write<kPiece>", atMostTimes(1.03), "rawWrite<kPiece>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
