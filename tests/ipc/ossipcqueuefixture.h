// ossipcqueuefixture.h - message queues for tests: names, the fields of a handle, messages as
// texts.
#pragma once

#include <cstdint>
#include <string>

#include "harness/fields.h"
#include "ipc/ossipcfixture.h"
#include "ossipcqueue.h"

namespace osse_test {

// A queue's handle from inside.
struct QueueFields {
  MemoryFields memory;
  HANDLE dataSemaphore;
  HANDLE spaceSemaphore;
  OSSIPCQueueHeader* header;
};

inline QueueFields fieldsOf(const OSSHIPCQueue& queue) { return copyOf<QueueFields>(queue); }

inline OSSIPCQueueHeader& headerOf(const OSSHIPCQueue& queue) { return *fieldsOf(queue).header; }

// What another thread or process may change at any time.
inline uint8_t now(const uint8_t& byte) { return __atomic_load_n(&byte, __ATOMIC_SEQ_CST); }

inline OSSIPCQueResID queueResIDOf(const std::string& path) {
  OSSIPCGetResIDParam in;
  in.path = path.c_str();
  OSSIPCQueResID resID;
  EXPECT_EQ(ossIPCGetQueResID(&in, &resID), ECF_OK);
  return resID;
}

inline OSSIPCQueueCreateParam queueParam(const std::string& path, uint64_t maxMessageSize) {
  OSSIPCQueueCreateParam param;
  param.resID = queueResIDOf(path);
  param.maxMessageSize = maxMessageSize;
  return param;
}

inline OSSErr put(OSSHIPCQueue& queue, const std::string& message) {
  return queue.put(message.data(), message.size());
}

// The next message, which has to be there and to fit.
inline std::string next(OSSHIPCQueue& queue, size_t bufferSize = 4096, int timeout = 0) {
  std::string message(bufferSize, '\0');
  uint64_t received = 0;
  EXPECT_EQ(queue.get(message.data(), bufferSize, &received, timeout), ECF_OK);
  message.resize(received);
  return message;
}

// A get that has to fail, and to leave the count alone.
inline OSSErr failingGet(OSSHIPCQueue& queue, size_t bufferSize, int timeout) {
  std::string message(bufferSize, '\0');
  uint64_t received = 77;
  const OSSErr rc = queue.get(message.data(), bufferSize, &received, timeout);
  EXPECT_EQ(received, 77u);
  return rc;
}

class QueueTest : public IPCTest {
 protected:
  ~QueueTest() override {
    if (queue_.isAttached()) {
      EXPECT_EQ(queue_.detach(), ECF_OK);
    }
  }

  void create(uint64_t maxMessageSize) {
    const OSSIPCQueueCreateParam param = queueParam(path_, maxMessageSize);
    ASSERT_EQ(queue_.create(&param), ECF_OK);
  }

  OSSIPCQueueHeader& header() const { return headerOf(queue_); }

  // That all three names are free: a queue can be made of them.
  void expectNamesAreFree() const {
    const OSSIPCQueueCreateParam param = queueParam(path_, 64);
    OSSHIPCQueue queue;
    EXPECT_EQ(queue.create(&param), ECF_OK);
    EXPECT_EQ(queue.detach(), ECF_OK);
  }

  const OSSIPCQueResID queResID_ = queueResIDOf(path_);
  OSSHIPCQueue queue_;
};

// A second handle of a queue.
class OtherEnd {
 public:
  explicit OtherEnd(const std::string& path) {
    const OSSIPCQueResID resID = queueResIDOf(path);
    EXPECT_EQ(queue.attach(&resID), ECF_OK);
  }
  ~OtherEnd() { EXPECT_EQ(queue.detach(), ECF_OK); }
  OtherEnd(const OtherEnd&) = delete;
  OtherEnd& operator=(const OtherEnd&) = delete;

  OSSHIPCQueue queue;
};

}  // namespace osse_test
