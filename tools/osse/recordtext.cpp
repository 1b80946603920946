#include "recordtext.h"

#include <algorithm>

#include "digits.h"

namespace oss::tool {
namespace {

constexpr uint32_t kNotSet = 0xFFFFFFFF;  // fixed data that nobody has set
constexpr uint32_t kDeepestIndent = 256;  // beyond it, lines no longer move to the right
constexpr size_t kLongestName = 1024;     // far more than any in the catalog
constexpr size_t kRoom = 4096;            // for a line up to its items

bool isPrintable(char c) { return c >= 0x20 && c <= 0x7E; }

bool isText(std::string_view data) { return std::all_of(data.begin(), data.end(), isPrintable); }

uint64_t word(std::string_view data) {
  uint64_t value = 0;
  std::memcpy(&value, data.data(), data.size());
  return value;
}

bool isValue(const Item& item) {
  return (item.description.type == GTRACE_ITEM_VALUE_1 ||
          item.description.type == GTRACE_ITEM_VALUE_2) &&
         !item.data.empty() && item.data.size() <= 8;
}

void appendHex(std::string& text, uint64_t value) {
  char digits[kLongestNumber];
  text.append(digits, putHex(digits, value));
}

void appendQuoted(std::string& text, std::string_view data) {
  text += '"';
  for (const char c : data) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  text += '"';
}

void appendBytes(std::string& text, std::string_view data) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char c : data) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
}

// Texts are often passed with the zero that ends them.
std::string_view withoutZero(std::string_view data) {
  if (data.size() > 1 && data.back() == '\0') data.remove_suffix(1);
  return data;
}

char* putStart(char* out, uint32_t process, uint64_t thread, std::string_view kind, uint32_t type) {
  *out = ' ';
  out = putDecimal(out + 1, process);
  *out = ' ';
  out = putDecimal(out + 1, thread);
  *out = ' ';
  out = putWord(out + 1, kind);
  if (kind == "type") {
    *out = ' ';
    out = putDecimal(out + 1, type);
  }
  return putChar(out, ' ');
}

}  // namespace

std::string_view kindOf(uint16_t type) {
  switch (type) {
    case GTRACE_ENTRY: return "entry";
    case GTRACE_EXIT: return "exit";
    case GTRACE_DATA: return "data";
    case GTRACE_ERROR:
    case GTRACE_ERROR_11: return "error";
    case GTRACE_STOP_ERROR: return "stop";
    case GTRACE_CORRELATOR: return "correlator";
    case GTRACE_ERROR_TRANSLATION: return "translation";
    default: return "type";
  }
}

void appendItem(std::string& text, const Item& item, bool isError) {
  const std::string_view data = item.data;
  if (item.description.length == GTRACE_NULL_ITEM) {
    text += "null";
  } else if (data.size() == 4 || data.size() == 8 || isValue(item)) {
    const uint64_t value = word(data);
    appendHex(text, value);
    if (isError && data.size() == 4 && Names::isCode(static_cast<uint32_t>(value)))
      text.append(" ").append(Names::codeName(static_cast<uint32_t>(value)));
  } else if (isText(withoutZero(data))) {
    appendQuoted(text, withoutZero(data));
  } else {
    appendBytes(text, data);
  }
  const bool isWhole =
      item.description.length == GTRACE_NULL_ITEM ||
      (item.description.type != GTRACE_ITEM_TRUNCATED && data.size() == item.description.length);
  if (!isWhole) text += "...";
}

void RecordText::write(const Record& record, uint32_t indent) {
  const GTraceRecord& head = record.head();
  char* out = putTime(output_.room(kRoom), head.timestamp);
  out = putStart(out, head.processId, head.threadId, kindOf(head.type), head.type);
  writeFunction(out, head.funcId, indent);
  // Most entries have nothing more to tell.
  const bool hasFixedData = (head.fixedData1 & head.fixedData2) != kNotSet;
  if (!record.isEntry() || record.hasItems() || hasFixedData) writeDetails(record);
}

void RecordText::writeOpen(uint32_t process, uint64_t thread, uint32_t funcId, uint32_t indent) {
  char* out = putChar(output_.room(kRoom), '-');
  writeFunction(putStart(out, process, thread, "exit", GTRACE_EXIT), funcId, indent);
  output_.write(" (open)");
}

void RecordText::writeDuration(uint64_t ticks) {
  char* out = putText(output_.room(2 * kLongestNumber), " (");
  const Moment span = spans_.at(ticks);
  out = putDecimal(out, span.seconds);
  out = putChar(out, '.');
  out = put9Digits(out, span.nanoseconds);
  output_.end(putText(out, " s)"));
}

char* RecordText::putTime(char* out, uint64_t ticks) {
  if (!hasStamps_) return putChar(out, '-');
  const Moment time = clock_.at(ticks);
  out = putDecimal(out, time.seconds);
  *out = '.';
  return put9Digits(out + 1, time.nanoseconds);
}

void RecordText::writeFunction(char* out, uint32_t funcId, uint32_t indent) {
  const uint32_t spaces = std::min(indent, kDeepestIndent);
  if (spaces != 0) {
    std::memset(out, ' ', spaces);
    out += spaces;
  }
  output_.end(putWord(out, names_.function(funcId).substr(0, kLongestName)));
}

void RecordText::writeDetails(const Record& record) {
  const GTraceRecord& head = record.head();
  char* out = output_.room(kRoom);
  if (record.hasProbe()) out = putDecimal(putText(out, " probe "), head.probe);
  if (record.hasCode())
    out = putWord(putText(out, " rc "), names_.code(head.returnCode).substr(0, kLongestName));
  if (record.isCorrelator()) out = putHex(putText(out, " id "), head.returnCode);
  if (record.hasExtra1() && head.extra1 != 0) out = putHex(putText(out, " extra "), head.extra1);
  if (record.hasExtra2()) {
    if (const uint64_t extra = record.extra2(); extra != 0)
      out = putHex(putText(out, " extra2 "), extra);
  }
  if (head.fixedData1 != kNotSet) out = putHex(putText(out, " fixed1 "), head.fixedData1);
  if (head.fixedData2 != kNotSet) out = putHex(putText(out, " fixed2 "), head.fixedData2);
  if ((head.flags & GTRACE_MARKED) != 0) out = putText(out, " marked");
  output_.end(out);
  if (record.hasItems()) writeItems(record);
}

void RecordText::writeItems(const Record& record) {
  for (Items items(record); items.next();) {
    item_ = " [";
    appendItem(item_, items.item(), record.isError());
    item_ += ']';
    output_.write(item_);
  }
}

}  // namespace oss::tool
