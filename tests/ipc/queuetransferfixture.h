// queuetransferfixture.h - a ring, and both ends of a transfer, one after the other.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "ipc/queueblock.h"

namespace osse_test {

class QueueTransfer : public testing::Test {
 protected:
  explicit QueueTransfer(uint64_t capacity = 64) : block_(capacity) {}

  OSSIPCQueueHeader& header() const { return block_.header(); }

  static void expectEnd(const oss::TransferEnd& end, uint64_t probe, OSSErr rc) {
    EXPECT_EQ(end.probe, probe);
    EXPECT_EQ(end.rc, rc);
  }

  oss::TransferEnd put(oss::QueueSleep& sleep, const std::string& message) const {
    return oss::putMessage(block_.ring(), sleep, message.data(), message.size());
  }
  void putDone(const std::string& message) const {
    ScriptedSleep sleep;
    expectEnd(put(sleep, message), 0, ECF_OK);
  }

  struct Got {
    oss::TransferEnd end;
    uint64_t length = 0;
    std::string message;
  };
  Got get(oss::QueueSleep& sleep, uint64_t bufferSize, uint32_t milliseconds) const {
    Got got;
    got.message.assign(bufferSize, '.');
    got.end = oss::getMessage(block_.ring(), sleep, got.message.data(), bufferSize, &got.length,
                              milliseconds);
    return got;
  }
  void expectNext(const std::string& message) const {
    ScriptedSleep sleep;
    const Got got = get(sleep, message.size(), 0);
    expectEnd(got.end, 0, ECF_OK);
    EXPECT_EQ(got.length, message.size());
    EXPECT_EQ(got.message, message);
    EXPECT_THAT(sleep.events(), testing::IsEmpty());
  }

  // A part of a message, as a writer leaves it that waits for more room.
  void putPart(const std::string& bytes) const {
    oss::RingState state = block_.state();
    block_.ring().copyIn(state, state.writeOffset, bytes.data(), bytes.size());
    block_.ring().publish(state, bytes.size());
  }

  void expectLatches(uint8_t putLatch, uint8_t getLatch, uint8_t stateLatch) const {
    EXPECT_EQ(header().putLatch, putLatch);
    EXPECT_EQ(header().getLatch, getLatch);
    EXPECT_EQ(header().stateLatch, stateLatch);
  }

  QueueBlock block_;
};

}  // namespace osse_test
