// What holds while a message is copied into or out of a queue: who may use the queue meanwhile, and
// what becomes of the copy when somebody flushes it. The test looks, and flushes, at the copy's
// first byte.
#include "harness/touchedbuffer.h"
#include "ipc/lengthbytes.h"
#include "ipc/ossipcqueuefixture.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint64_t kCapacity = 65536;
constexpr uint64_t kShort = 1024;  // copied in one step with its length
constexpr uint8_t kHeld = 0x80;

std::string textOf(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

class QueueCopies : public QueueTest {
 protected:
  // An empty ring that has been in use up to there.
  void startAt(uint64_t offset) const {
    header().writeOffset = offset;
    header().readOffset = offset;
  }

  // Puts a message; the action comes while it is copied.
  void putTouched(const std::string& message, const std::function<void()>& onTouch) {
    const TouchedBuffer buffer(message, onTouch);
    EXPECT_EQ(queue_.put(buffer.data(), buffer.size()), ECF_OK);
  }
  // Gets one of that many bytes.
  std::string getTouched(size_t size, const std::function<void()>& onTouch) {
    const TouchedBuffer buffer(std::string(size, '.'), onTouch);
    uint64_t received = 0;
    EXPECT_EQ(queue_.get(buffer.data(), buffer.size(), &received, 0), ECF_OK);
    EXPECT_EQ(received, size);
    return buffer.contents();
  }

  // The header, as it is in the middle of a copy.
  struct Seen {
    uint8_t stateLatch;
    uint64_t writeOffset, readOffset;

    bool operator==(const Seen&) const = default;
    friend void PrintTo(const Seen& seen, std::ostream* out) {
      *out << "latch " << int{seen.stateLatch} << ", written to " << seen.writeOffset
           << ", read to " << seen.readOffset;
    }
  };
  Seen seen() const {
    return {now(header().stateLatch), header().writeOffset, header().readOffset};
  }

  OtherEnd other_{pathOfCreated()};

 private:
  std::string pathOfCreated() {
    create(kCapacity);
    return path_;
  }
};

// ---- Who may use the queue ----

TEST_F(QueueCopies, AShortMessageIsPutAndTakenInOneStepUnderTheStateLatch) {
  for (const uint64_t start : {uint64_t{0}, uint64_t{64}, kCapacity - 8, kCapacity - 512}) {
    startAt(start);
    Seen put = {}, got = {};
    putTouched(textOf(kShort), [&] { put = seen(); });
    const uint64_t end = (start + 8 + kShort) % kCapacity;
    EXPECT_EQ(getTouched(kShort, [&] { got = seen(); }), textOf(kShort));
    EXPECT_EQ(put, (Seen{kHeld, start, start}));
    EXPECT_EQ(got, (Seen{kHeld, end, start}));
    EXPECT_EQ(seen(), (Seen{0, end, end}));
  }
}

TEST_F(QueueCopies, ALongerOneLeavesTheStateLatchFreeAndIsTakenBehindItsLength) {
  for (const uint64_t start : {uint64_t{0}, uint64_t{64}, kCapacity - 512}) {
    startAt(start);
    Seen put = {}, got = {};
    putTouched(textOf(kShort + 1), [&] { put = seen(); });
    const uint64_t end = (start + 8 + kShort + 8) % kCapacity;
    EXPECT_EQ(getTouched(kShort + 1, [&] { got = seen(); }), textOf(kShort + 1));
    EXPECT_EQ(put, (Seen{0, start, start}));
    EXPECT_EQ(got, (Seen{0, end, start + 8}));
    EXPECT_EQ(seen(), (Seen{0, end, end}));
  }
}

// A flush would not show there.
TEST_F(QueueCopies, APieceAtTheRingsStartIsTakenUnderTheStateLatch) {
  startAt(kCapacity - 8);
  ASSERT_EQ(put(queue_, textOf(5000)), ECF_OK);
  Seen got = {};
  EXPECT_EQ(getTouched(5000, [&] { got = seen(); }), textOf(5000));
  EXPECT_EQ(got, (Seen{kHeld, 5000, 0}));
}

// ---- Flushes ----

// The message is no part of what was flushed: it is whole in the ring, from its start.
TEST_F(QueueCopies, AMessageOnItsWayInOutlivesAFlush) {
  for (const uint64_t start : {uint64_t{0}, uint64_t{64}, kCapacity - 512}) {
    startAt(start);
    ASSERT_EQ(put(queue_, "earlier"), ECF_OK);
    putTouched(textOf(5000), [&] { EXPECT_EQ(other_.queue.flush(), ECF_OK); });
    EXPECT_EQ(seen(), (Seen{0, 5008, 0}));
    EXPECT_EQ(next(queue_, 5000), textOf(5000));
    EXPECT_FALSE(queue_.hasMessage());
  }
}

TEST_F(QueueCopies, AMessageOnItsWayIntoTheRingsStartLiesInItsPlaceAllTheSame) {
  putTouched(textOf(5000), [&] { EXPECT_EQ(other_.queue.flush(), ECF_OK); });
  EXPECT_EQ(seen(), (Seen{0, 5008, 0}));
  EXPECT_EQ(next(queue_, 5000), textOf(5000));
}

// Its length is in the ring by then, and flushed: readers take the first bytes for one.
TEST_F(QueueCopies, AMessageThatStreamsInOutlivesAFlushWithoutItsLength) {
  const std::string message = lengthBytes(kCapacity - 8) + textOf(kCapacity - 8);
  putTouched(message, [&] {
    EXPECT_EQ(seen(), (Seen{0, 8, 0}));
    EXPECT_EQ(other_.queue.flush(), ECF_OK);
  });
  EXPECT_EQ(seen(), (Seen{0, 0, 0}));
  EXPECT_TRUE(queue_.hasMessage());
  EXPECT_EQ(next(queue_, kCapacity), textOf(kCapacity - 8));
}

// What is copied is flushed with the rest, although it is whole in the buffer: the reader waits for
// as many bytes again, and takes those that come next.
TEST_F(QueueCopies, AMessageOnItsWayOutIsFlushed) {
  ASSERT_EQ(put(queue_, textOf(5000)), ECF_OK);
  const std::string later = textOf(4992);
  EXPECT_EQ(getTouched(5000,
                       [&] {
                         EXPECT_EQ(other_.queue.flush(), ECF_OK);
                         EXPECT_EQ(put(other_.queue, later), ECF_OK);
                       }),
            lengthBytes(4992) + later);
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(QueueCopies, AReaderOfAFlushedMessageGivesUpWhenNothingComes) {
  ASSERT_EQ(put(queue_, textOf(5000)), ECF_OK);
  const TouchedBuffer buffer(std::string(5000, '.'),
                             [&] { EXPECT_EQ(other_.queue.flush(), ECF_OK); });
  uint64_t received = 77;
  EXPECT_EQ(queue_.get(buffer.data(), buffer.size(), &received, 0), ECF_TIMEOUT);
  EXPECT_EQ(received, 77u);
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_THAT(log_.records(),
              ElementsAre(CalledRecord(OSS_LOG_INFO, oss::Func::OSSHIPCQueue_get, 110,
                                       oss::Func::OSSHIPCSemaphore_wait, ECF_TIMEOUT, ECF_TIMEOUT,
                                       {{2, Uint(uint64_t{5000})}, {4, Uint(0u)}})));
}

// ---- Garbage ----

TEST_F(QueueCopies, AHeaderThatTurnsToGarbageMeanwhileStopsBothEnds) {
  constexpr uint64_t kRoom = 17 * 4096 - sizeof(OSSIPCQueueHeader);  // of whole pages
  constexpr uint64_t kGarbage = kCapacity << 20;
  const auto spoil = [&] { header().capacity = kGarbage; };
  const auto record = [](oss::Func function, uint64_t written, uint64_t read) {
    return FoundRecord(OSS_LOG_ERROR, function, 20, ECF_FAILED,
                       {Hex(kGarbage), Hex(written), Hex(read), Uint(kRoom)});
  };
  {
    const TouchedBuffer buffer(textOf(5000), spoil);
    EXPECT_EQ(queue_.put(buffer.data(), buffer.size()), ECF_FAILED);
  }
  EXPECT_FALSE(queue_.hasMessage());
  header().capacity = kCapacity;
  ASSERT_EQ(put(queue_, textOf(5000)), ECF_OK);
  {
    const TouchedBuffer buffer(std::string(5000, '.'), spoil);
    EXPECT_EQ(queue_.get(buffer.data(), buffer.size(), nullptr, 0), ECF_FAILED);
  }
  EXPECT_THAT(log_.records(), ElementsAre(record(oss::Func::OSSHIPCQueue_put, 0, 0),
                                          record(oss::Func::OSSHIPCQueue_get, 5008, 8)));
  EXPECT_EQ(header().putLatch, 0);
  EXPECT_EQ(header().getLatch, 0);
  EXPECT_EQ(header().stateLatch, 0);
}

// It is no ring's way to shrink, and yet nothing lands outside of it.
TEST_F(QueueCopies, AMessageOnItsWayIntoARingThatShrinksIsPlacedInWhatIsLeft) {
  startAt(12288);
  putTouched(textOf(5000), [&] { header().capacity = 16384; });
  EXPECT_EQ(seen(), (Seen{0, 12288 + 5008 - 16384, 12288}));
  EXPECT_EQ(next(queue_, 5000), textOf(5000));
}

}  // namespace
