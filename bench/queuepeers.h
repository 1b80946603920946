// queuepeers.h - what carries messages from one thread to another, behind one face: put and get.
// All of it lies in memory that processes could share.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <boost/interprocess/ipc/message_queue.hpp>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bare.h"
#include "osscatalog.h"
#include "ossipcqueue.h"

namespace oss::bench {

// A name that no other channel has.
inline std::string freshName() {
  static std::atomic<int> channels = 0;
  return "osse bench " + std::to_string(::GetCurrentProcessId()) + '.' + std::to_string(++channels);
}

// The library's queue, with a handle for each end.
template <size_t kMessage, size_t kRing>
class Ours {
 public:
  static constexpr size_t kBytes = kMessage;

  Ours() {
    const std::string path = freshName();
    OSSIPCGetResIDParam in;
    in.path = path.c_str();
    OSSIPCQueueCreateParam param;
    param.maxMessageSize = kRing;
    isGood_ = ossIPCGetQueResID(&in, &param.resID) == ECF_OK && in_.create(&param) == ECF_OK &&
              out_.attach(&param.resID) == ECF_OK;
  }
  ~Ours() {
    static_cast<void>(in_.detach());
    static_cast<void>(out_.detach());
  }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  bool put(const void* message) { return isGood_ && in_.put(message, kMessage) == ECF_OK; }
  bool get(void* message) {
    return isGood_ && out_.get(message, kMessage, nullptr, OSS_QUEUE_INFINITE) == ECF_OK;
  }

 private:
  OSSHIPCQueue in_, out_;
  bool isGood_;
};

// Its emulation asks the registry when the system was started, which Wine's does not know: it is
// told some time, unless there is one.
inline void tellBootTime() {
  constexpr char kKey[] =
      R"(SYSTEM\CurrentControlSet\Control\Session Manager\Memory Management\PrefetchParameters)";
  HKEY key = nullptr;
  if (::RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS)
    return;
  if (::RegQueryValueExA(key, "BootId", nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
    const DWORD some = 1;
    ::RegSetValueExA(key, "BootId", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&some),
                     sizeof some);
  }
  ::RegCloseKey(key);
}

// Boost's queue of as many bytes.
template <size_t kMessage, size_t kRing>
class Boost {
 public:
  static constexpr size_t kBytes = kMessage;

  Boost() : queue_(boost::interprocess::create_only, name_.c_str(), kRing / kMessage, kMessage) {}
  ~Boost() { boost::interprocess::message_queue::remove(name_.c_str()); }
  Boost(const Boost&) = delete;
  Boost& operator=(const Boost&) = delete;

  bool put(const void* message) {
    queue_.send(message, kMessage, 0);
    return true;
  }
  bool get(void* message) {
    size_t received = 0;
    unsigned priority = 0;
    queue_.receive(message, kMessage, received, priority);
    return received == kMessage;
  }

 private:
  static std::string prepare() {
    tellBootTime();
    return freshName();
  }

  const std::string name_ = prepare();
  boost::interprocess::message_queue queue_;
};

// The limit: bytes through shared memory, one writer, one reader, who spin for each other.
template <size_t kMessage, size_t kRing>
class Limit {
 public:
  static constexpr size_t kBytes = kMessage;

  bool put(const void* message) {
    forParts([&](uint64_t done, uint64_t part) {
      while (written_.load(std::memory_order_relaxed) + part -
                 read_.load(std::memory_order_acquire) >
             kRing)
        ::SwitchToThread();
      move(
          written_,
          [&](uint8_t* at, uint64_t from, uint64_t count) {
            std::memcpy(at, static_cast<const uint8_t*>(message) + done + from, count);
          },
          part);
    });
    return true;
  }
  bool get(void* message) {
    forParts([&](uint64_t done, uint64_t part) {
      while (written_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed) <
             part)
        ::SwitchToThread();
      move(
          read_,
          [&](uint8_t* at, uint64_t from, uint64_t count) {
            std::memcpy(static_cast<uint8_t*>(message) + done + from, at, count);
          },
          part);
    });
    return true;
  }

 private:
  static constexpr uint64_t kPart = std::min<uint64_t>(kMessage, 16 * 1024);

  template <class Use>
  static void forParts(Use use) {
    for (uint64_t done = 0; done < kMessage; done += kPart)
      use(done, std::min(kPart, kMessage - done));
  }
  template <class Copy>
  void move(std::atomic<uint64_t>& position, Copy copy, uint64_t count) {
    const uint64_t at = position.load(std::memory_order_relaxed);
    const uint64_t first = std::min(count, kRing - at % kRing);
    copy(ring_.data() + at % kRing, 0, first);
    if (first != count) copy(ring_.data(), first, count - first);
    position.store(at + count, std::memory_order_release);
  }

  std::vector<uint8_t> ring_ = std::vector<uint8_t>(kRing);
  alignas(64) std::atomic<uint64_t> written_ = 0;
  alignas(64) std::atomic<uint64_t> read_ = 0;
};

// A semaphore and no data: what a wake-up costs.
class Wake {
 public:
  static constexpr size_t kBytes = 1;

  Wake() : semaphore_(::CreateSemaphoreA(nullptr, 0, 32767, nullptr)) {}
  ~Wake() { ::CloseHandle(semaphore_); }
  Wake(const Wake&) = delete;
  Wake& operator=(const Wake&) = delete;

  bool put(const void*) { return ::ReleaseSemaphore(semaphore_, 1, nullptr) != FALSE; }
  bool get(void*) { return ::WaitForSingleObject(semaphore_, INFINITE) == WAIT_OBJECT_0; }

 private:
  HANDLE semaphore_;
};

// Two latches and a copy, in and out: what a message cannot do without while nobody sleeps.
template <size_t kMessage>
class LatchesAndCopy {
 public:
  static constexpr size_t kBytes = kMessage;

  bool put(const void* message) {
    return underLatch([&] { std::memcpy(place_, message, size_); });
  }
  bool get(void* message) {
    return underLatch([&] { std::memcpy(message, place_, size_); });
  }

 private:
  template <class Copy>
  bool underLatch(Copy copy) {
    while (bareExchange(&own_) != 0) ::SwitchToThread();
    while (bareExchange(&state_) != 0) ::SwitchToThread();
    copy();
    bareStore(&state_);
    bareStore(&own_);
    return true;
  }

  volatile uint8_t own_ = 0, state_ = 0;
  volatile size_t size_ = kMessage;  // as unknown to the compiler as a caller's size
  uint8_t place_[kMessage] = {};
};

}  // namespace oss::bench
