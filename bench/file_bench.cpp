// Claim: reading and writing through a file handle costs hardly more than the system's own calls.
//
// Both sides move the same bytes within the system's cache, through the same system handle, and go
// back to the file's start by the same call, once in many transfers.
#include "ossfile.h"

#include <windows.h>

#include <vector>

#include "osscatalog.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr uint64_t kPage = 4 * 1024;
constexpr uint64_t kPiece = 1024 * 1024;

// A file of some transfers' length, there as long as the object.
class BenchFile {
 public:
  explicit BenchFile(uint64_t transferSize)
      : buffer(transferSize, 'x'), transfers_(transferSize == kPage ? 256 : 8), left_(1) {
    OSSFileOpenParam open;
    open.path = "file_bench.tmp";
    open.creation = OSS_FILE_CREATE_ALWAYS;
    open.access = OSS_FILE_READ_WRITE;
    open.flags = OSS_FILE_DELETE_ON_CLOSE;
    isUsable_ = file.open(&open) == ECF_OK && fill();
  }
  ~BenchFile() { static_cast<void>(file.close()); }  // which also deletes it
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;

  // Whether the next transfer finds its place.
  bool next() {
    if (--left_ != 0) return isUsable_;
    left_ = transfers_;
    return ::SetFilePointer(file.getFileHandle(), 0, nullptr, FILE_BEGIN) == 0;
  }

  OSSHFile file;
  std::vector<char> buffer;

 private:
  // Written, not just extended: then every page lies in the system's cache.
  bool fill() {
    OSSFileWriteParam param;
    param.buffer = buffer.data();
    param.size = buffer.size();
    for (uint64_t i = 0; i < transfers_; ++i)
      if (file.write(&param, nullptr) != ECF_OK) return false;
    return true;
  }

  const uint64_t transfers_;
  uint64_t left_;
  bool isUsable_;
};

// Runs the transfer until the state has enough of it.
template <class Transfer>
void transfer(benchmark::State& state, BenchFile& bench, Transfer moveOnce) {
  for (auto _ : state)
    if (!bench.next() || !moveOnce()) {
      state.SkipWithError("the file cannot be read or written");
      return;
    }
}

template <uint64_t kSize>
void read(benchmark::State& state) {
  BenchFile bench(kSize);
  OSSFileReadParam param;
  param.size = kSize;
  uint64_t count = 0;
  transfer(state, bench,
           [&] { return bench.file.read(&param, bench.buffer.data(), &count) == ECF_OK; });
}

template <uint64_t kSize>
void write(benchmark::State& state) {
  BenchFile bench(kSize);
  OSSFileWriteParam param;
  param.buffer = bench.buffer.data();
  param.size = kSize;
  uint64_t count = 0;
  transfer(state, bench, [&] { return bench.file.write(&param, &count) == ECF_OK; });
}

template <uint64_t kSize>
void rawRead(benchmark::State& state) {
  BenchFile bench(kSize);
  const HANDLE file = bench.file.getFileHandle();
  DWORD count = 0;
  transfer(state, bench, [&] {
    return ::ReadFile(file, bench.buffer.data(), kSize, &count, nullptr) && count == kSize;
  });
}

template <uint64_t kSize>
void rawWrite(benchmark::State& state) {
  BenchFile bench(kSize);
  const HANDLE file = bench.file.getFileHandle();
  DWORD count = 0;
  transfer(state, bench, [&] {
    return ::WriteFile(file, bench.buffer.data(), kSize, &count, nullptr) && count == kSize;
  });
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
