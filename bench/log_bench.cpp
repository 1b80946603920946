// Claim: one diagnostic record in a file costs hardly more than the system calls that put it there.
// All that the library adds, level, catalog, clock and text, is a tenth of them.
#include "osslog.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "osscatalog.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 30;

constexpr char kPath[] = "log_bench.tmp";

uint64_t sizeOfFile() {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  return ::GetFileAttributesExA(kPath, GetFileExInfoStandard, &data) ? data.nFileSizeLow : 0;
}

// Appends to a file that has one record at first and is gone in the end. All records must be in it.
template <class Append>
void appendRecords(benchmark::State& state, uint64_t recordBytes, Append append) {
  ::DeleteFileA(kPath);
  bool appended = append();
  for (auto _ : state) appended = append() && appended;

  const auto records = static_cast<uint64_t>(state.iterations()) + 1;
  if (!appended || sizeOfFile() != records * recordBytes)
    state.SkipWithError("a record was refused or is missing");
  ::DeleteFileA(kPath);
}

// ---- The library ----

class Facility {
 public:
  Facility() {
    OSSLogFacOpenParam open;
    std::copy(std::begin(kPath), std::end(kPath), open.path);
    open.name[0] = 'b';
    open.level = OSS_LOG_INFO;
    open.destination = OSS_LOG_TO_FILE;
    ossLogFacOpen(&open, &facility_);
  }
  ~Facility() { ossLogFacClose(&facility_); }
  Facility(const Facility&) = delete;
  Facility& operator=(const Facility&) = delete;

  // The record of a file that could not be opened, with the three arguments of the call.
  bool write() {
    constexpr auto kOperation = static_cast<uint32_t>(oss::Func::OSSHFile_open);
    constexpr auto kSystemCall = static_cast<uint32_t>(oss::SysCall::CreateFileA);
    constexpr int32_t kFirstThreeArguments = static_cast<int32_t>(0x80000007);
    static const char path[] = "database/container.dat";
    static const uint32_t disposition = OPEN_EXISTING;
    static const uint32_t access = GENERIC_READ;
    return ossLogSysRC(&facility_, kOperation, kSystemCall, ERROR_FILE_NOT_FOUND,
                       ECF_FILE_DOESNT_EXIST, 280, OSS_LOG_INFO, kFirstThreeArguments, path,
                       uint64_t{sizeof path - 1}, OSS_LOG_STRING, &disposition,
                       uint64_t{sizeof disposition}, OSS_LOG_HEX, &access, uint64_t{sizeof access},
                       OSS_LOG_HEX) == ECF_OK;
  }

 private:
  OSSLogFacility facility_;
};

uint64_t recordBytes() {
  static const uint64_t bytes = [] {
    ::DeleteFileA(kPath);
    Facility().write();
    return sizeOfFile();
  }();
  return bytes;
}

void logRecord(benchmark::State& state) {
  Facility facility;
  appendRecords(state, recordBytes(), [&] { return facility.write(); });
}
OSS_BENCHMARK(logRecord);

// ---- The calls alone ----

// One record's calls with nothing between them, in the order in which the library makes them.
bool appendRaw(const std::string& record) {
  static_cast<void>(::GetFileAttributesA(kPath));
  const HANDLE file = ::CreateFileA(kPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  OVERLAPPED start = {};
  constexpr DWORD kLock = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
  const bool locked = ::LockFileEx(file, kLock, 0, 1, 0, &start);

  LONG high = 0;
  const DWORD end = ::SetFilePointer(file, 0, &high, FILE_END);
  DWORD sizeHigh = 0;
  static_cast<void>(::GetFileSize(file, &sizeHigh));
  ::SetFilePointer(file, static_cast<LONG>(end), &high, FILE_BEGIN);
  static_cast<void>(::GetFileSize(file, &sizeHigh));

  DWORD count = 0;
  const auto size = static_cast<DWORD>(record.size());
  const bool written = ::WriteFile(file, record.data(), size, &count, nullptr) && count == size;
  return ::UnlockFileEx(file, 0, 1, 0, &start) && ::CloseHandle(file) && locked && written;
}

void systemCalls(benchmark::State& state) {
  const std::string record(recordBytes(), 'x');
  appendRecords(state, record.size(), [&] { return appendRaw(record); });
}
OSS_BENCHMARK(systemCalls);

constexpr Claim kRows[] = {{"logRecord", atMostTimes(1.1), "systemCalls"}};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
