// ossipcqueueheader.h - what lies in the shared section of a message queue, and how processes that
// share it behave. Programs that were built by other people read and write it too, so it never
// changes.
//
//   header    | ring ..................................................... |
//   40 bytes    capacity bytes: | length | message, padded to 8 | length | ...
//
// A message is its length, 8 bytes in the writer's byte order, and its bytes, padded to a multiple
// of 8. It wraps around the ring's end wherever that comes. One that is longer than what is free is
// written in pieces, each a multiple of 8 bytes but for the last, as readers make room.
//
// Order: an operation takes putLatch or getLatch first, then stateLatch. stateLatch guards all
// fields from writeOffset on and is never held while asleep. putLatch makes its holder the only one
// that moves writeOffset forward, getLatch the only one that moves readOffset forward, for a whole
// message: messages never mix. Only a flush moves both, to 0, and it takes stateLatch alone.
//
// Who finds the ring full (empty) sets writerWaiting (readerWaiting), releases stateLatch and
// sleeps on the space (data) semaphore. Who makes room (puts something in) and finds the flag set
// clears it and posts that semaphore once. So a post stands for a sleeper, and the counts stay at 0
// or 1; 2 for a moment, when a reader gives up while it is being woken. A reader that gives up
// leaves its flag set; the post that may follow wakes a later one too early, who looks again and
// sleeps on. A post of the space semaphore promises 8 free bytes: not every writer looks again.
// Nor does every program wake the other end behind a length alone. Where such a one writes, an
// empty message reaches a sleeping reader with the bytes of the next one; where it reads, a writer
// sleeps on while nothing but empty messages are taken, and with a ring of 8 bytes for ever.
//
// Latches know no owner (osslatch.h). What a process leaves behind that is ended from outside:
//   - asleep in get: getLatch and readerWaiting. Later readers wait for the latch for ever; writers
//     fill the ring.
//   - asleep in put, or in the middle of a message: putLatch, and a part of its message, which a
//     reader waits for the rest of. Later writers wait for the latch for ever.
//   - between clearing a flag and posting: putLatch or getLatch, and the other end asleep although
//     no flag says so, which a flush does not wake.
//   - holding stateLatch, for some instructions at a time: every operation waits for it for ever.
// Nobody can tell such a latch from one that is held; osse ipc shows the latches. The remedy is to
// end, or to detach, all that use the queue: with the last handle its three objects are gone, and
// the names are free for a new one. The same holds after a process has ended between the steps of
// create, or when a create has failed half way.
#pragma once

#include "osstypes.h"

struct OSSIPCQueueHeader {
  uint8_t putLatch = 0;    ///< serialises writers; held for a whole put
  uint8_t getLatch = 0;    ///< serialises readers; held for a whole get
  uint8_t stateLatch = 0;  ///< guards every field from writeOffset on
  uint8_t reserved3[5] = {};
  uint64_t capacity = 0;      ///< bytes of the ring, a multiple of 8; never changes
  uint64_t writeOffset = 0;   ///< where the next byte is written, below the capacity
  uint64_t readOffset = 0;    ///< where the next byte is read
  uint8_t writerWaiting = 0;  ///< a writer sleeps on the space semaphore
  uint8_t readerWaiting = 0;  ///< a reader sleeps on the data semaphore
  uint8_t notEmpty = 0;       ///< the ring holds at least one unread byte
  uint8_t reserved35[5] = {};
};
OSS_LAYOUT(OSSIPCQueueHeader, 40);  // the ring follows
OSS_FIELD(OSSIPCQueueHeader, putLatch, 0, 1);
OSS_FIELD(OSSIPCQueueHeader, getLatch, 1, 1);
OSS_FIELD(OSSIPCQueueHeader, stateLatch, 2, 1);
OSS_FIELD(OSSIPCQueueHeader, capacity, 8, 8);
OSS_FIELD(OSSIPCQueueHeader, writeOffset, 16, 8);
OSS_FIELD(OSSIPCQueueHeader, readOffset, 24, 8);
OSS_FIELD(OSSIPCQueueHeader, writerWaiting, 32, 1);
OSS_FIELD(OSSIPCQueueHeader, readerWaiting, 33, 1);
OSS_FIELD(OSSIPCQueueHeader, notEmpty, 34, 1);
