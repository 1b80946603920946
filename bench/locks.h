// locks.h - the library's latches and the locks they are measured against, behind one pair of
// names, and the loops that measure one of them, or one atomic step, alone.
//
// Always true: default-constructed each is free, and get() returns when the caller holds it, except
// that the bare latches do not wait.
#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>

#include "bare.h"
#include "osslatch.h"
#include "ratio.h"

namespace oss::bench {

// ---- The library's ----

// As a client writes it who keeps a latch of one byte.
class ByteLatch {
 public:
  void get() {
    if (ossWin32Lock8ExchangeInternal(&latch_) != 0) ossLockGetConflict(&latch_);
  }
  void release() { ossWin32Lock8ReleaseInternal(&latch_); }

 private:
  uint8_t latch_ = 0;
};

class VersionedLatch {
 public:
  VersionedLatch() { ossVLatchInit(&latch_); }
  void get() { ossVLatchGet(&latch_); }
  void release() { ossVLatchRelease(&latch_); }

 private:
  OSSVLatch latch_;
};

// ---- The limit ----

class BareLatch {
 public:
  void get() { bareExchange(&latch_); }
  void release() { bareStore(&latch_); }

 private:
  volatile uint8_t latch_ = 0;
};

class BareLatchLikeImport {
 public:
  void get() { likeImport<&bareExchange>(&latch_); }
  void release() { likeImport<&bareStore>(&latch_); }

 private:
  volatile uint8_t latch_ = 0;
};

// ---- The system's and the compiler's ----

class SrwLock {
 public:
  void get() { ::AcquireSRWLockExclusive(&lock_); }
  void release() { ::ReleaseSRWLockExclusive(&lock_); }

 private:
  SRWLOCK lock_ = SRWLOCK_INIT;
};

class CriticalSection {
 public:
  CriticalSection() { ::InitializeCriticalSection(&section_); }
  ~CriticalSection() { ::DeleteCriticalSection(&section_); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void get() { ::EnterCriticalSection(&section_); }
  void release() { ::LeaveCriticalSection(&section_); }

 private:
  CRITICAL_SECTION section_;
};

class StdMutex {
 public:
  void get() { mutex_.lock(); }
  void release() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// ---- The loops ----

template <class Lock>
void getAndRelease(benchmark::State& state) {
  Lock lock;
  for (auto _ : state) {
    lock.get();
    lock.release();
  }
}

template <auto& kFetchAndAdd>
void addTo(benchmark::State& state) {
  uint32_t target = 0;
  for (auto _ : state) benchmark::DoNotOptimize(kFetchAndAdd(&target, 3));
}

// Every other swap succeeds.
template <auto& kCompareAndSwap>
void swapIn(benchmark::State& state) {
  uint64_t target = 0;
  uint64_t desired = 0;
  for (auto _ : state) benchmark::DoNotOptimize(kCompareAndSwap(&target, desired ^= 1, 0));
}

}  // namespace oss::bench
