// Tests of a message's way through the ring, step by step: what lies in the ring, who sleeps, who
// is woken, which latches are held meanwhile, and where a transfer stops.
#include "ipc/ossqueuetransfer.h"

#include <gmock/gmock.h>

#include <string>

#include "ipc/lengthbytes.h"
#include "ipc/queuetransferfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- What lies in the ring ----

TEST_F(QueueTransfer, AMessageIsItsLengthAndItsBytesPadded) {
  putDone("abcde");
  EXPECT_EQ(block_.contents().substr(0, 24),
            lengthBytes(5) + std::string("abcde\0\0\0", 8) + lengthBytes(0));
  EXPECT_EQ(header().writeOffset, 16u);
  EXPECT_EQ(header().readOffset, 0u);
  EXPECT_EQ(header().notEmpty, 1);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, MessagesComeOutAsTheyWentIn) {
  putDone("first");
  putDone("");
  putDone("the third, of 24 bytes..");
  expectNext("first");
  expectNext("");
  expectNext("the third, of 24 bytes..");
  EXPECT_EQ(header().notEmpty, 0);
  EXPECT_EQ(header().readOffset, header().writeOffset);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AMessageWrapsAroundTheEndWhereverThatComes) {
  for (uint64_t start = 0; start < 64; start += 8)
    for (size_t size = 0; size <= 56; ++size) {
      SCOPED_TRACE(testing::Message() << "start " << start << ", size " << size);
      std::string message(size, '\0');
      for (size_t i = 0; i < size; ++i) message[i] = static_cast<char>('0' + i);
      block_.startAt(start);
      putDone(message);
      EXPECT_EQ(block_.state().used(), 8 + oss::paddedToUnit(size));
      expectNext(message);
      EXPECT_EQ(header().notEmpty, 0);
    }
}

TEST_F(QueueTransfer, ABufferMayBeLongerThanTheMessage) {
  putDone("abc");
  ScriptedSleep sleep;
  const Got got = get(sleep, 5, 0);
  expectEnd(got.end, 0, ECF_OK);
  EXPECT_EQ(got.length, 3u);
  EXPECT_EQ(got.message, "abc..");
}

constexpr uint64_t kLongRing = 1 << 20;

class QueueTransferOfLongMessages : public QueueTransfer {
 protected:
  QueueTransferOfLongMessages() : QueueTransfer(kLongRing) {}
};

// Those that are copied without the state latch, around the end, and from the offset 0.
TEST_F(QueueTransferOfLongMessages, ComeOutAsTheyWentIn) {
  for (const uint64_t start :
       {uint64_t{0}, uint64_t{8}, kLongRing - 8, kLongRing - 512, kLongRing - 20000})
    for (const uint64_t size : {uint64_t{1024}, uint64_t{1025}, uint64_t{16384}, uint64_t{16385},
                                uint64_t{100000}, kLongRing - 8}) {
      SCOPED_TRACE(testing::Message() << "start " << start << ", size " << size);
      std::string message(size, '\0');
      for (size_t i = 0; i < size; ++i) message[i] = static_cast<char>(i * 7 + i / 251);
      block_.startAt(start);
      putDone(message);
      expectNext(message);
      expectLatches(0, 0, 0);
    }
}

// ---- Sleeping and waking ----

TEST_F(QueueTransfer, AnEmptyRingIsToldAtOnceWhenNobodyWantsToWait) {
  ScriptedSleep sleep;
  const Got got = get(sleep, 8, 0);
  expectEnd(got.end, 0, ECF_QUE_INVALID_MSG_TYPE);
  EXPECT_EQ(got.message, "........");
  EXPECT_EQ(header().readerWaiting, 0);
  EXPECT_THAT(sleep.events(), IsEmpty());
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AWriterWhoWaitsForAnEmptyRingIsWokenByAReaderWhoDoesNotWait) {
  header().writerWaiting = 1;
  ScriptedSleep sleep;
  expectEnd(get(sleep, 8, 0).end, 0, ECF_QUE_INVALID_MSG_TYPE);
  EXPECT_THAT(sleep.events(), ElementsAre("postSpace"));
  EXPECT_EQ(header().writerWaiting, 0);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AReaderSleepsWithItsLatchAloneAndIsWokenByAPut) {
  ScriptedSleep writer;
  ScriptedSleep reader({[&] {
    expectLatches(0, 0x80, 0);
    EXPECT_EQ(header().readerWaiting, 1);
    expectEnd(put(writer, "hello"), 0, ECF_OK);
    EXPECT_EQ(header().readerWaiting, 0);
    return ECF_OK;
  }});
  const Got got = get(reader, 5, 700);
  expectEnd(got.end, 0, ECF_OK);
  EXPECT_EQ(got.message, "hello");
  EXPECT_THAT(reader.events(), ElementsAre("awaitData 700"));
  EXPECT_THAT(writer.events(), ElementsAre("postData"));
  expectLatches(0, 0, 0);
}

// A message without bytes has no piece behind which the reader would be woken.
TEST_F(QueueTransfer, AMessageWithoutBytesWakesAReaderToo) {
  header().readerWaiting = 1;
  ScriptedSleep sleep;
  expectEnd(put(sleep, ""), 0, ECF_OK);
  EXPECT_EQ(header().readerWaiting, 0);
  EXPECT_THAT(sleep.events(), ElementsAre("postData"));
}

TEST_F(QueueTransfer, ThePostComesWithoutTheStateLatch) {
  header().readerWaiting = 1;
  ScriptedSleep sleep({[&] {
    expectLatches(0x80, 0, 0);
    return ECF_OK;
  }});
  expectEnd(put(sleep, "x"), 0, ECF_OK);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AWriterSleepsWithItsLatchAloneAndIsWokenByAGet) {
  putDone(std::string(48, 'a'));  // 8 bytes stay free
  putDone("");
  ScriptedSleep reader;
  ScriptedSleep writer({[&] {
    expectLatches(0x80, 0, 0);
    EXPECT_EQ(header().writerWaiting, 1);
    EXPECT_EQ(get(reader, 48, 0).message, std::string(48, 'a'));
    EXPECT_EQ(header().writerWaiting, 0);
    return ECF_OK;
  }});
  expectEnd(put(writer, "b"), 0, ECF_OK);
  EXPECT_THAT(writer.events(), ElementsAre("awaitSpace 4294967295"));
  EXPECT_THAT(reader.events(), ElementsAre("postSpace"));
  expectNext("");
  expectNext("b");
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AMessageWithoutBytesWakesAWriterToo) {
  putDone("");
  header().writerWaiting = 1;
  ScriptedSleep sleep;
  const Got got = get(sleep, 0, 0);
  expectEnd(got.end, 0, ECF_OK);
  EXPECT_EQ(got.length, 0u);
  EXPECT_THAT(sleep.events(), ElementsAre("postSpace"));
  EXPECT_EQ(header().writerWaiting, 0);
}

// Not every writer looks again when it is woken: a post stands for bytes that are free.
TEST_F(QueueTransfer, ARoomThatWasPromisedIsNotPromisedAgain) {
  putDone("12345678");
  header().writerWaiting = 1;
  ScriptedSleep sleep({[&] {
    header().writerWaiting = 1;  // woken, it has filled the ring and sleeps again
    return ECF_OK;
  }});
  EXPECT_EQ(get(sleep, 8, 0).message, "12345678");
  EXPECT_THAT(sleep.events(), ElementsAre("postSpace"));
  EXPECT_EQ(header().writerWaiting, 1);
}

// The length fills a ring of 8 bytes: each end would sleep for the other one's sake.
TEST(QueueTransferOfTheSmallestRing, EachEndWakesTheOtherBeforeItSleeps) {
  const QueueBlock block(8);
  block.header().readerWaiting = 1;
  ScriptedSleep sleep({[] { return ECF_OK; }});
  const oss::TransferEnd end = oss::putMessage(block.ring(), sleep, "x", 1);
  EXPECT_EQ(end.probe, 60u);
  EXPECT_THAT(sleep.events(), ElementsAre("postData", "awaitSpace 4294967295"));
  EXPECT_EQ(block.header().readerWaiting, 0);
  EXPECT_EQ(block.header().writerWaiting, 1);

  ScriptedSleep reader({[] { return ECF_OK; }});
  char byte = 0;
  uint64_t length = 0;
  EXPECT_EQ(oss::getMessage(block.ring(), reader, &byte, 1, &length, 9).probe, 120u);
  EXPECT_EQ(length, 1u);
  EXPECT_THAT(reader.events(), ElementsAre("postSpace", "awaitData 9"));
}

// Who looks for a while before it sleeps may find the other end asleep when it is over.
TEST_F(QueueTransfer, AReaderWakesAWriterWhoHasFallenAsleepMeanwhile) {
  header().writerWaiting = 1;
  const auto againAsleep = [&] {
    header().writerWaiting = 1;
    return ECF_OK;
  };
  ScriptedSleep sleep({againAsleep, [&] {
                         putDone("soon");
                         return ECF_OK;
                       }});
  EXPECT_EQ(get(sleep, 4, 30).message, "soon");
  EXPECT_THAT(sleep.events(), ElementsAre("postSpace", "postSpace"));

  header().writerWaiting = 1;
  ScriptedSleep failing({againAsleep, [] { return ECF_NO_RESOURCE; }});
  expectEnd(get(failing, 4, 30).end, 130, ECF_NO_RESOURCE);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AWriterWakesAReaderWhoHasFallenAsleepMeanwhile) {
  putDone(std::string(56, 'a'));
  header().readerWaiting = 1;
  const auto againAsleep = [&] {
    header().readerWaiting = 1;
    return ECF_OK;
  };
  ScriptedSleep sleep({againAsleep, [&] {
                         expectNext(std::string(56, 'a'));
                         return ECF_OK;
                       }});
  expectEnd(put(sleep, std::string(56, 'b')), 0, ECF_OK);
  EXPECT_THAT(sleep.events(), ElementsAre("postData", "postData"));

  header().readerWaiting = 1;
  ScriptedSleep failing({againAsleep, [] { return ECF_NO_RESOURCE; }});
  expectEnd(put(failing, "c"), 70, ECF_NO_RESOURCE);
  expectLatches(0, 0, 0);
  expectNext(std::string(56, 'b'));
}

// The count that a reader left who gave up is used up by a later one, who sleeps on.
TEST_F(QueueTransfer, AReaderWhoIsWokenTooEarlySleepsOn) {
  ScriptedSleep sleep({[] { return ECF_OK; },
                       [&] {
                         putDone("late");
                         return ECF_OK;
                       }});
  EXPECT_EQ(get(sleep, 4, 30).message, "late");
  EXPECT_THAT(sleep.events(), ElementsAre("awaitData 30", "awaitData 30"));
}

TEST_F(QueueTransfer, AWriterWhoIsWokenTooEarlySleepsOnAndOverwritesNothing) {
  putDone(std::string(56, 'a'));
  ScriptedSleep reader;
  ScriptedSleep writer({[] { return ECF_OK; },
                        [&] {
                          EXPECT_EQ(get(reader, 56, 0).message, std::string(56, 'a'));
                          return ECF_OK;
                        }});
  expectEnd(put(writer, "b"), 0, ECF_OK);
  EXPECT_THAT(writer.events(), ElementsAre("awaitSpace 4294967295", "awaitSpace 4294967295"));
  expectNext("b");
}

// It is both empty and full until its creator has stored the capacity.
TEST(QueueTransferWithoutCapacity, BothEndsSleep) {
  const QueueBlock block(0, 64);
  ScriptedSleep sleep;
  EXPECT_EQ(oss::putMessage(block.ring(), sleep, "x", 1).probe, 50u);
  block.header().writerWaiting = 0;
  uint64_t length = 0;
  EXPECT_EQ(oss::getMessage(block.ring(), sleep, nullptr, 0, &length, 5).probe, 90u);
  EXPECT_THAT(sleep.events(), ElementsAre("awaitSpace 4294967295", "awaitData 5"));
}

// ---- Pieces ----

TEST_F(QueueTransfer, AMessageThatFitsAppearsAtOnceWithItsLength) {
  putDone(std::string(56, 'x'));
  expectNext(std::string(56, 'x'));
}

// Deliberate: the writer sleeps in the middle. A reader then takes all of it.
TEST_F(QueueTransfer, AMessageOfExactlyTheCapacityBlocksBehindItsFirstPart) {
  ScriptedSleep writer({[] { return ECF_FAILED; }});
  expectEnd(put(writer, std::string(64, 'x')), 60, ECF_FAILED);
  EXPECT_THAT(writer.events(), ElementsAre("awaitSpace 4294967295"));
  EXPECT_EQ(header().writerWaiting, 1);
  EXPECT_EQ(block_.state().free(), 0u);
  EXPECT_EQ(block_.contents(), lengthBytes(64) + std::string(56, 'x'));
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AShortMessageThatStreamsInIsTakenPieceByPiece) {
  block_.startAt(48);
  putPart(lengthBytes(20) + "01234567");
  ScriptedSleep sleep({[&] {
                         EXPECT_EQ(header().notEmpty, 0);
                         putPart("89abcdef");
                         header().writerWaiting = 1;
                         return ECF_OK;
                       },
                       [&] {
                         EXPECT_EQ(header().readOffset, 8u);
                         expectLatches(0, 0x80, 0);
                         return ECF_OK;
                       },
                       [&] {
                         putPart("ghij");
                         return ECF_OK;
                       }});
  const Got got = get(sleep, 32, 40);
  expectEnd(got.end, 0, ECF_OK);
  EXPECT_EQ(got.length, 20u);
  EXPECT_EQ(got.message, "0123456789abcdefghij............");
  EXPECT_THAT(sleep.events(), ElementsAre("awaitData 40", "postSpace", "awaitData 40"));
  EXPECT_EQ(header().readOffset, 16u);
  EXPECT_EQ(header().notEmpty, 0);
}

TEST_F(QueueTransfer, AShortMessageIsWholeWithItsLastEightBytes) {
  putPart(lengthBytes(17) + "0123456789abcdef");
  ScriptedSleep sleep({[] { return ECF_TIMEOUT; }});
  const Got part = get(sleep, 17, 5);
  expectEnd(part.end, 110, ECF_TIMEOUT);
  EXPECT_EQ(part.message, "0123456789abcdef.");

  putPart(lengthBytes(17) + "0123456789abcdefg");
  EXPECT_EQ(header().readerWaiting, 1);
  expectNext("0123456789abcdefg");
}

// ---- Oddities, and where a transfer stops ----

TEST_F(QueueTransfer, AMessageThatDoesNotFitTheBufferLosesItsLengthAndLeavesItsBody) {
  const std::string body = lengthBytes(3) + "abc";
  putDone(body);
  ScriptedSleep sleep;
  const Got got = get(sleep, 10, 0);
  expectEnd(got.end, 100, ECF_QUE_MSG_TOO_BIG);
  EXPECT_EQ(got.length, 11u);
  EXPECT_EQ(got.message, "..........");
  expectNext("abc");
  EXPECT_EQ(header().notEmpty, 0);
}

TEST_F(QueueTransfer, ALengthThatIsTakenAwayWakesAWriterWhoWaitsForItsRoom) {
  putDone("abc");
  header().writerWaiting = 1;
  ScriptedSleep sleep;
  expectEnd(get(sleep, 2, 0).end, 100, ECF_QUE_MSG_TOO_BIG);
  EXPECT_THAT(sleep.events(), ElementsAre("postSpace"));
}

// Deliberate: the flag stays set and the state latch free.
TEST_F(QueueTransfer, ATimeOutOnAnEmptyRing) {
  ScriptedSleep sleep({[] { return ECF_TIMEOUT; }});
  expectEnd(get(sleep, 8, 25).end, 80, ECF_TIMEOUT);
  EXPECT_EQ(header().readerWaiting, 1);
  expectLatches(0, 0, 0);
  putDone("later");
  EXPECT_EQ(header().readerWaiting, 0);
  expectNext("later");
}

TEST_F(QueueTransfer, ATimeOutInTheMiddleLosesThePartThatWasRead) {
  ScriptedSleep writer;
  expectEnd(put(writer, std::string(64, 'x')), 60, ECF_FAILED);
  ScriptedSleep reader({[] { return ECF_OK; }, [] { return ECF_TIMEOUT; }});
  const Got got = get(reader, 64, 0);
  expectEnd(got.end, 110, ECF_TIMEOUT);
  EXPECT_EQ(got.message, std::string(56, 'x') + "........");
  EXPECT_THAT(reader.events(), ElementsAre("postSpace", "awaitData 0"));
  EXPECT_EQ(header().notEmpty, 0);
  EXPECT_EQ(header().readerWaiting, 1);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, SleepsThatFailStopWhereTheyAre) {
  ScriptedSleep failing;
  expectEnd(get(failing, 8, 25).end, 90, ECF_FAILED);
  EXPECT_EQ(header().readerWaiting, 1);
  putDone(std::string(56, 'x'));
  expectEnd(put(failing, "y"), 50, ECF_FAILED);
  EXPECT_EQ(header().writerWaiting, 1);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, PostsThatFailStopWhereTheyAre) {
  header().readerWaiting = 1;
  ScriptedSleep failing({[] { return ECF_NO_RESOURCE; }, [] { return ECF_NO_RESOURCE; }});
  expectEnd(put(failing, "abc"), 70, ECF_NO_RESOURCE);
  EXPECT_EQ(header().readerWaiting, 0);
  expectLatches(0, 0, 0);

  header().writerWaiting = 1;
  const Got got = get(failing, 3, 0);
  expectEnd(got.end, 130, ECF_NO_RESOURCE);
  EXPECT_EQ(got.message, "abc");
  EXPECT_EQ(header().writerWaiting, 0);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, APostThatFailsIsToldBeforeAnEmptyRingOrAMessageThatDoesNotFit) {
  header().writerWaiting = 1;
  ScriptedSleep failing({[] { return ECF_NO_RESOURCE; }, [] { return ECF_NO_RESOURCE; }});
  expectEnd(get(failing, 8, 0).end, 130, ECF_NO_RESOURCE);

  putDone("abc");
  header().writerWaiting = 1;
  expectEnd(get(failing, 2, 0).end, 130, ECF_NO_RESOURCE);
  EXPECT_EQ(header().readOffset, 8u);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, APostThatFailsBetweenTwoPiecesEndsTheMessageThere) {
  header().readerWaiting = 1;
  ScriptedSleep failing({[] { return ECF_NO_RESOURCE; }});
  expectEnd(put(failing, std::string(100, 'x')), 70, ECF_NO_RESOURCE);
  EXPECT_EQ(block_.contents(), lengthBytes(100) + std::string(56, 'x'));
  expectLatches(0, 0, 0);
}

// ---- Headers that are none ----

TEST_F(QueueTransfer, AHeaderThatCannotBeOneStopsBothEnds) {
  const auto stops = [&](uint64_t capacity, uint64_t write, uint64_t read, uint8_t notEmpty) {
    header().capacity = capacity;
    header().writeOffset = write;
    header().readOffset = read;
    header().notEmpty = notEmpty;
    ScriptedSleep sleep;
    expectEnd(put(sleep, "x"), 20, ECF_FAILED);
    expectEnd(get(sleep, 8, 0).end, 20, ECF_FAILED);
    EXPECT_THAT(sleep.events(), IsEmpty());
    expectLatches(0, 0, 0);
  };
  stops(72, 0, 0, 1);
  stops(~uint64_t{0} - 7, 8, 0, 1);
  stops(64, 64, 0, 1);
  stops(64, 8, 1 << 30, 1);
  stops(64, 8, 0, 0);
  EXPECT_EQ(block_.contents(), std::string(64, '\0'));
}

TEST_F(QueueTransfer, AHeaderThatTurnsToGarbageMeanwhileStopsTheSleeper) {
  ScriptedSleep reader({[&] {
    header().notEmpty = 1;
    header().readOffset = 4096;
    return ECF_OK;
  }});
  expectEnd(get(reader, 8, 25).end, 20, ECF_FAILED);
  expectLatches(0, 0, 0);
}

// The first part is read; the rest would follow from wherever the offset points.
TEST_F(QueueTransfer, AHeaderThatTurnsToGarbageInTheMiddleOfAMessageStopsTheReader) {
  ScriptedSleep writer;
  expectEnd(put(writer, std::string(64, 'x')), 60, ECF_FAILED);
  ScriptedSleep reader({[&] {
    header().capacity = 1 << 20;
    return ECF_OK;
  }});
  expectEnd(get(reader, 64, 25).end, 20, ECF_FAILED);
  expectLatches(0, 0, 0);
}

TEST_F(QueueTransfer, AHugeLengthIsTooBigForAnyBuffer) {
  const uint64_t length = ~uint64_t{0};
  block_.ring().copyIn(block_.state(), 0, &length, sizeof length);
  oss::RingState state = block_.state();
  block_.ring().publish(state, sizeof length);
  ScriptedSleep sleep;
  const Got got = get(sleep, 64, 0);
  expectEnd(got.end, 100, ECF_QUE_MSG_TOO_BIG);
  EXPECT_EQ(got.length, length);
}

}  // namespace
