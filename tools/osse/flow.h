// flow.h - the calls of each thread, put together from entries and exits.
//
// A ring overwrites its oldest records and a filter leaves records out, so exits may lack their
// entry and entries their exit. Nothing is guessed: a visitor is told of each of them as what it
// is.
//
//   began(thread)                 a thread is seen for the first time
//   entered(thread, frame, rec)   an entry; the frame is on the stack
//   left(thread, frame, at, rec)  the frame is off the stack. `rec` is its exit; null when that is
//                                 missing: a caller's exit came first, or the trace ended
//   cut(thread, rec, at)          an exit without an entry
//   note(thread, rec, at)         any other record, and entries and exits below kDeepest calls
//
// Always true: frames of a thread are left in the reverse order in which they were entered, and
// every frame that is entered is left by the end of finish(). What is kept grows with the threads,
// not with the records.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "indexmap.h"
#include "record.h"

namespace oss::tool {

struct Frame {
  uint32_t funcId;
  uint32_t place;      // the visitor's own
  uint64_t entered;    // ticks
  uint64_t inCallees;  // ticks spent in the functions that it called
};

struct Thread {
  uint32_t number;  // from 0, in the order of appearance
  uint32_t process;
  uint64_t id;
  uint64_t tooDeep;  // calls that are not on the stack
  std::vector<Frame> stack;
};

// The later of two readings minus the earlier; clocks of several processors may differ a little.
inline uint64_t span(uint64_t from, uint64_t to) { return to > from ? to - from : 0; }

class Flow {
 public:
  static constexpr size_t kDeepest = 4096;

  // Without stamps, a record's number from 1 takes the place of its ticks.
  explicit Flow(bool hasStamps) : hasStamps_(hasStamps) {}

  template <class Visitor>
  void add(const Record& record, Visitor&& visitor) {
    const GTraceRecord& head = record.head();
    now_ = hasStamps_ ? head.timestamp : now_ + 1;
    if (now_ > latest_) latest_ = now_;
    Thread& thread = threadOf(head, visitor);
    if (record.isEntry())
      enter(thread, record, visitor);
    else if (record.isExit())
      leave(thread, record, visitor);
    else
      visitor.note(thread, record, now_);
  }

  // Leaves what is still open, at the time of the latest record.
  template <class Visitor>
  void finish(Visitor&& visitor) {
    for (Thread& thread : threads_) unwind(thread, 0, latest_, visitor);
  }

 private:
  static constexpr size_t kNowhere = SIZE_MAX;

  template <class Visitor>
  Thread& threadOf(const GTraceRecord& head, Visitor& visitor) {
    if (last_ != nullptr && last_->id == head.threadId && last_->process == head.processId)
      return *last_;
    const IndexMap::Found found = numbers_.findOrAdd(head.threadId, head.processId);
    if (found.isNew) threads_.push_back({found.index, head.processId, head.threadId, 0, {}});
    last_ = &threads_[found.index];
    if (found.isNew) visitor.began(*last_);
    return *last_;
  }

  template <class Visitor>
  void enter(Thread& thread, const Record& record, Visitor& visitor) {
    if (thread.stack.size() == kDeepest) {
      ++thread.tooDeep;
      visitor.note(thread, record, now_);
      return;
    }
    thread.stack.push_back({record.head().funcId, 0, now_, 0});
    visitor.entered(thread, thread.stack.back(), record);
  }

  template <class Visitor>
  void leave(Thread& thread, const Record& record, Visitor& visitor) {
    if (thread.tooDeep != 0) {
      --thread.tooDeep;
      visitor.note(thread, record, now_);
      return;
    }
    const size_t at = find(thread, record.head().funcId);
    if (at == kNowhere) {
      visitor.cut(thread, record, now_);
      return;
    }
    unwind(thread, at + 1, now_, visitor);
    pop(thread, now_, &record, visitor);
  }

  // The innermost call of the function.
  static size_t find(const Thread& thread, uint32_t funcId) {
    for (size_t i = thread.stack.size(); i-- > 0;)
      if (thread.stack[i].funcId == funcId) return i;
    return kNowhere;
  }

  template <class Visitor>
  void unwind(Thread& thread, size_t depth, uint64_t at, Visitor& visitor) {
    while (thread.stack.size() > depth) pop(thread, at, nullptr, visitor);
  }

  template <class Visitor>
  void pop(Thread& thread, uint64_t at, const Record* exit, Visitor& visitor) {
    const Frame frame = thread.stack.back();
    thread.stack.pop_back();
    if (!thread.stack.empty()) thread.stack.back().inCallees += span(frame.entered, at);
    visitor.left(thread, frame, at, exit);
  }

  bool hasStamps_;
  uint64_t now_ = 0;
  uint64_t latest_ = 0;
  IndexMap numbers_;
  std::deque<Thread> threads_;
  Thread* last_ = nullptr;
};

}  // namespace oss::tool
