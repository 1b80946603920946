#include "fault/ossguardtable.h"

#include <atomic>

#include "ipc/ossipcsecurity.h"
#include "numeric/osslatchguard.h"
#include "ossstring.h"

namespace oss {
namespace {

// A mutex and its name, at most 260 characters; a null mutex could not be made.
struct Row {
  HANDLE mutex = nullptr;
  char name[261] = {};
};
static_assert(sizeof(Row) == 272);

constinit Row g_rows[kGuardRows];
constinit std::atomic<bool> g_loaded = false;
constinit uint8_t g_latch = 0;  // held while the table is made

constexpr const char* kNames[] = {
#define GUARD_ROW(function, name) name,
#include "fault/guard_rows.def"
};
static_assert(kGuardRows == 18 && static_cast<int>(GuardRow::SymCleanup) == 10);

Row& rowOf(GuardRow row) noexcept { return g_rows[static_cast<size_t>(row)]; }

void makeMutexes() noexcept {
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  const bool built = ossIPCBuildSecurityAttributes(&descriptor, &attributes) == 0;

  const auto process = static_cast<int>(::GetCurrentProcessId());
  for (size_t i = 0; i < kGuardRows; ++i) {
    if (i == static_cast<size_t>(GuardRow::SymCleanup)) continue;
    Row& row = g_rows[i];
    ossSnprintf(row.name, sizeof row.name, "%s-%d", kNames[i], process);
    row.mutex = ::CreateMutexA(built ? &attributes : nullptr, FALSE, row.name);
  }
  // Clean-up and initialisation share one guard.
  rowOf(GuardRow::SymCleanup) = rowOf(GuardRow::SymInitialize);
}

HANDLE mutexOf(GuardRow row) noexcept {
  loadGuardTable();
  return rowOf(row).mutex;
}

}  // namespace

void loadGuardTable() noexcept {
  if (g_loaded.load(std::memory_order_acquire)) [[likely]]
    return;

  const DWORD error = ::GetLastError();
  {
    LatchGuard loading(g_latch);
    if (!g_loaded.load(std::memory_order_relaxed)) makeMutexes();
    g_loaded.store(true, std::memory_order_release);
  }
  ::SetLastError(error);
}

void closeGuardTable() noexcept {
  rowOf(GuardRow::SymCleanup) = {};
  for (Row& row : g_rows) {
    if (row.mutex != nullptr) ::CloseHandle(row.mutex);
    row = {};
  }
  g_loaded.store(false, std::memory_order_release);
}

void releaseOwnGuards() noexcept {
  for (const Row& row : g_rows)
    while (row.mutex != nullptr && ::ReleaseMutex(row.mutex)) {
    }
}

// A mutex that was abandoned is as good: what its holder left undone is the debugging-help
// library's.
GuardLock::GuardLock(GuardRow row, DWORD milliseconds) noexcept
    : mutex_(mutexOf(row)),
      isIn_(mutex_ == nullptr || ::WaitForSingleObject(mutex_, milliseconds) != WAIT_TIMEOUT) {}

GuardLock::~GuardLock() {
  if (mutex_ != nullptr && isIn_) ::ReleaseMutex(mutex_);
  if (keeps_) ::SetLastError(error_);
}

}  // namespace oss
