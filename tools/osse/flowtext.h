// flowtext.h - records as lines that are indented by the depth of the call, with the time that
// each call took. "(cut)" is an exit whose entry is missing, "(open)" a call whose exit is.
#pragma once

#include "flow.h"
#include "recordtext.h"

namespace oss::tool {

class FlowText {
 public:
  FlowText(RecordText& text, bool hasStamps) : text_(text), hasStamps_(hasStamps) {}

  void began(const Thread&) {}

  void entered(const Thread& thread, const Frame&, const Record& record) {
    line(record, thread.stack.size() - 1);
  }

  void left(const Thread& thread, const Frame& frame, uint64_t at, const Record* exit) {
    const auto indent = static_cast<uint32_t>(thread.stack.size() * kStep);
    if (exit != nullptr)
      text_.write(*exit, indent);
    else
      text_.writeOpen(thread.process, thread.id, frame.funcId, indent);
    if (hasStamps_) text_.writeDuration(span(frame.entered, at));
    text_.endLine();
  }

  void cut(const Thread& thread, const Record& record, uint64_t) {
    text_.write(record, static_cast<uint32_t>(thread.stack.size() * kStep));
    text_.writeCut();
    text_.endLine();
  }

  void note(const Thread& thread, const Record& record, uint64_t) {
    line(record, thread.stack.size());
  }

 private:
  static constexpr size_t kStep = 2;

  void line(const Record& record, size_t depth) {
    text_.write(record, static_cast<uint32_t>(depth * kStep));
    text_.endLine();
  }

  RecordText& text_;
  bool hasStamps_;
};

}  // namespace oss::tool
