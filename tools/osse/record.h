// record.h - a trace record as the parser returns it, and which of its fields were written.
//
// A trace point leaves the fields that it has no value for as they were in the slot. The questions
// here tell what a record really says; nothing else in this tool reads those fields unasked.
#pragma once

#include <cstring>
#include <string_view>

#include "osstracerecord.h"

namespace oss::tool {

class Record {
 public:
  // `payload` is aligned to 8 and has room for a GTraceRecord, whatever its length.
  Record(const void* payload, uint64_t bytes)
      : head_(static_cast<const GTraceRecord*>(payload)), bytes_(bytes) {}

  const GTraceRecord& head() const { return *head_; }

  bool isEntry() const { return head_->type == GTRACE_ENTRY; }
  bool isExit() const { return head_->type == GTRACE_EXIT; }
  bool isTranslation() const { return head_->type == GTRACE_ERROR_TRANSLATION; }
  bool isCorrelator() const { return head_->type == GTRACE_CORRELATOR; }
  bool isError() const {
    return head_->type == GTRACE_ERROR || head_->type == GTRACE_STOP_ERROR ||
           head_->type == GTRACE_ERROR_11 || isTranslation();
  }

  bool hasItems() const { return head_->dataLength != 0 && bytes_ >= sizeof(GTraceRecord); }
  bool hasProbe() const { return !isEntry() && !isExit(); }
  bool hasExtra1() const { return isExit() || isError() || isCorrelator(); }
  bool hasExtra2() const { return isError() && !hasItems() && bytes_ >= kTwoSlots; }
  // An error with items that was given no code says 0.
  bool hasCode() const {
    if (isExit()) return true;
    if (!isError() || isTranslation() || bytes_ < kTwoSlots) return false;
    return !hasItems() || head_->returnCode != 0;
  }

  uint64_t extra2() const {
    uint64_t value;
    std::memcpy(&value, bytes() + sizeof(GTraceRecord), sizeof value);
    return value;
  }

  const char* bytes() const { return reinterpret_cast<const char*>(head_); }
  uint64_t size() const { return bytes_; }

 private:
  static constexpr uint64_t kTwoSlots = 2 * 64 - 12;

  const GTraceRecord* head_;
  uint64_t bytes_;
};

// One item of a record.
struct Item {
  GTraceItem description;
  std::string_view data;  // what of it is in the record
};

// The items of a record, front to back, never outside its payload, whatever it claims:
//   for (Items items(record); items.next();) use(items.item());
class Items {
 public:
  explicit Items(const Record& record) {
    if (!record.hasItems()) return;
    const uint64_t behindHead = record.size() - sizeof(GTraceRecord);
    const uint64_t length =
        record.head().dataLength < behindHead ? record.head().dataLength : behindHead;
    const uint64_t most = length / sizeof(GTraceItem);
    left_ = record.head().itemCount < most ? record.head().itemCount : most;
    description_ = record.bytes() + sizeof(GTraceRecord);
    data_ = {description_ + left_ * sizeof(GTraceItem), length - left_ * sizeof(GTraceItem)};
  }

  bool next() {
    if (left_ == 0) return false;
    --left_;
    std::memcpy(&item_.description, description_, sizeof item_.description);
    description_ += sizeof item_.description;
    const uint32_t claimed = item_.description.length;
    item_.data = claimed == GTRACE_NULL_ITEM ? std::string_view() : data_.substr(0, claimed);
    data_.remove_prefix(item_.data.size());
    return true;
  }

  const Item& item() const { return item_; }

 private:
  uint64_t left_ = 0;
  const char* description_ = nullptr;
  std::string_view data_;
  Item item_{};
};

}  // namespace oss::tool
