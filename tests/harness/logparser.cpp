// Takes a log file apart. The parser accepts the layout of a record and nothing near it.
#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "harness/logrecord.h"

namespace osse_test {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr size_t kPlaceColumn = 33;
constexpr size_t kPlaceWidth = 17;
constexpr size_t kErrorColumn = 50;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isUpperHexDigit(char c) { return isDigit(c) || (c >= 'A' && c <= 'F'); }

// Reads a text from left to right; what does not match throws.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  size_t at() const { return at_; }
  bool isAtEnd() const { return at_ == text_.size(); }
  std::string_view rest() const { return text_.substr(at_); }

  [[noreturn]] void fail(const std::string& wanted) const {
    throw std::runtime_error("expected " + wanted + " at byte " + std::to_string(at_));
  }

  bool accept(std::string_view literal) {
    if (!rest().starts_with(literal)) return false;
    at_ += literal.size();
    return true;
  }

  void expect(std::string_view literal) {
    if (!accept(literal)) fail('"' + std::string(literal) + '"');
  }

  std::string take(size_t count) {
    if (rest().size() < count) fail(std::to_string(count) + " more bytes");
    const std::string taken(rest().substr(0, count));
    at_ += count;
    return taken;
  }

  // What stands before `stop`, which is consumed as well.
  std::string until(std::string_view stop) {
    const size_t found = rest().find(stop);
    if (found == std::string_view::npos) fail("a text that ends in \"" + std::string(stop) + '"');
    const std::string taken(rest().substr(0, found));
    at_ += found + stop.size();
    return taken;
  }

  template <class Number>
  Number number(int base = 10) {
    Number value = 0;
    const char* const first = rest().data();
    const auto [end, error] = std::from_chars(first, first + rest().size(), value, base);
    if (error != std::errc() || end == first) fail("a number");
    at_ += static_cast<size_t>(end - first);
    return value;
  }

  void blanks(size_t count) { expect(std::string(count, ' ')); }

 private:
  std::string_view text_;
  size_t at_ = 0;
};

// "2024-01-31-23.59.59.123000": digits and separators, and no finer than milliseconds.
std::string readTimestamp(Reader& in) {
  constexpr std::string_view kForm = "dddd-dd-dd-dd.dd.dd.ddd000";
  const std::string text = in.take(kForm.size());
  for (size_t i = 0; i < kForm.size(); ++i)
    if (kForm[i] == 'd' ? !isDigit(text[i]) : text[i] != kForm[i]) in.fail("a timestamp before");
  return text;
}

int32_t readZone(Reader& in) {
  const size_t start = in.at();
  const bool isEast = in.accept("+");
  const auto minutes = in.number<int32_t>();
  if (in.at() - start != 4 || isEast != (minutes >= 0)) in.fail("a sign and three digits before");
  in.blanks(1);
  return minutes;
}

// "I<offset><letter><length>", padded to its column's width and one blank behind.
void readPlace(Reader& in, LogRecord* record) {
  const size_t start = in.at();
  in.expect("I");
  record->offset = in.number<uint64_t>();
  record->letter = in.take(1).front();
  record->length = in.number<uint64_t>();
  if (in.at() - start > kPlaceWidth) in.fail("a shorter place before");
  in.blanks(kPlaceWidth + 2 - (in.at() - start));
}

void readHeader(Reader& in, LogRecord* record) {
  in.expect(kLineEnd);
  record->timestamp = readTimestamp(in);
  record->zoneMinutes = readZone(in);
  readPlace(in, record);

  in.expect("LEVEL: ");
  record->level = in.until(kLineEnd);
  constexpr std::string_view kSystemMark = " (OS)";
  if (record->level.ends_with(kSystemMark)) {
    record->level.resize(record->level.size() - kSystemMark.size());
    record->called = LogEvidence::Called::System;
  }

  in.expect("PID     : ");
  const size_t start = in.at();
  record->processId = in.number<uint32_t>();
  in.blanks(21 - (in.at() - start));
  in.expect("TID : ");
  record->threadId = in.number<uint64_t>();
  in.expect("\r\nFUNCTION: ");
  record->product = in.until(", ");
  record->component = in.until(", ");
  record->function = in.until(", probe:");
  record->probe = in.number<uint64_t>();
  in.expect(kLineEnd);
}

void readCode(Reader& in, OSSErr* code, std::string* description) {
  in.expect("ECF=0x");
  *code = in.number<OSSErr>(16);
  in.expect(" ");
  *description = in.until(kLineEnd);
}

void readSystemError(Reader& in, size_t lineStart, LogRecord* record) {
  constexpr std::string_view kLabel = "OSERR: ";
  std::string_view line = in.rest();
  line = line.substr(0, line.find(kLineEnd));
  const size_t label = line.rfind(kLabel);
  if (label == std::string_view::npos) in.fail("a system error");

  record->calledFunction = in.take(label);
  while (record->calledFunction.ends_with(' ')) record->calledFunction.pop_back();
  const size_t length = in.at() - lineStart - label + record->calledFunction.size();
  const size_t column = std::max(kErrorColumn, length + 1);
  if (in.at() - lineStart != column)
    in.fail("the system error at column " + std::to_string(column));

  in.expect(kLabel);
  const bool hasName = !isDigit(in.rest().front()) && in.rest().front() != '-';
  if (hasName) record->errorName = in.until(" (");
  record->error = in.number<int32_t>();
  in.expect(hasName ? ")\r\n" : "\r\n");
}

void readCalled(Reader& in, LogRecord* record) {
  const bool isSystem = record->called == LogEvidence::Called::System;
  const size_t lineStart = in.at();
  if (!in.accept("CALLED  : ")) {
    if (isSystem) in.fail("the called function of a system failure");
    return;
  }

  record->calledProduct = in.until(", ");
  record->calledComponent = in.until(", ");
  if (isSystem) {
    readSystemError(in, lineStart, record);
    return;
  }
  record->called = LogEvidence::Called::Function;
  record->calledFunction = in.until(kLineEnd);
  in.expect("RETCODE : ");
  readCode(in, &record->calledCode, &record->calledDescription);
}

// ---- Items ----

bool isWhole(const LogValue& value) {
  const std::string_view text = value.text;
  const auto isNumberOf = [&](std::string_view digits, bool (*isDigitOf)(char)) {
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), isDigitOf);
  };
  const std::string bits = std::to_string(value.size * 8);
  if (value.type == "Hex")
    return text.starts_with("0x") && isNumberOf(text.substr(2), isUpperHexDigit);
  if (value.type == "Uint" + bits) return isNumberOf(text, isDigit);
  if (value.type == "Sint" + bits) return isNumberOf(text.substr(text.starts_with('-')), isDigit);
  if (value.type == "Char") return text.size() == 1;
  if (value.type == "Bool") return text == "true" || text == "false";
  return false;
}

// A text may hold line ends itself: it reaches to the record's end or to the next item.
std::string readText(Reader& in, std::string_view nextItem) {
  const std::string_view rest = in.rest();
  const size_t next = rest.find(std::string(kLineEnd) + std::string(nextItem));
  const size_t length = next != std::string_view::npos ? next : rest.rfind(kLineEnd);
  if (length == std::string_view::npos) in.fail("a text that ends in a line end");
  const std::string text = in.take(length);
  in.expect(kLineEnd);
  return text;
}

std::string readDump(Reader& in, uint64_t size) {
  std::string lines;
  for (uint64_t at = 0; at < size; at += 16) {
    if (at != 0) lines += kLineEnd;
    lines += in.until(kLineEnd);
  }
  return lines;
}

LogValue readValue(Reader& in, std::string_view nextItem) {
  LogValue value;
  if (in.accept("\r\nNULL\r\n")) {
    value.type = "NULL";
    return value;
  }

  value.type = in.until(", ");
  value.size = in.number<uint64_t>();
  in.expect(" bytes");
  const bool isDump = value.type == "<hexdump>";
  if (isDump && in.accept("of ")) value.fullSize = in.number<uint64_t>();
  in.expect(kLineEnd);
  if (isDump) {
    value.text = readDump(in, value.size);
  } else if (value.type == "String") {
    value.text = readText(in, nextItem);
  } else {
    value.text = in.until(kLineEnd);
    if (!isWhole(value)) in.fail("a value of type " + value.type + " before");
  }
  return value;
}

void readItems(Reader& in, LogRecord* record) {
  if (in.isAtEnd()) return;
  const bool isNumbered = record->called != LogEvidence::Called::Nothing;
  record->itemKind = isNumbered ? "ARG" : "DATA";
  const std::string label = isNumbered ? "ARG  #" : "DATA #";

  while (!in.isAtEnd()) {
    in.expect(label);
    LogItem item;
    const size_t start = in.at();
    item.number = in.number<uint32_t>();
    if (in.at() - start < 2) in.blanks(1);
    in.expect(": ");
    item.value = readValue(in, label);
    if (!record->items.empty() && record->items.back().number >= item.number)
      in.fail("rising item numbers before");
    record->items.push_back(std::move(item));
  }
}

LogRecord readRecord(std::string_view text) {
  Reader in(text);
  LogRecord record;
  readHeader(in, &record);
  if (in.accept("MESSAGE : ")) readCode(in, &record.code, &record.description);
  readCalled(in, &record);
  readItems(in, &record);
  return record;
}

// The bytes of the record that starts at `start`, measured by the place it states.
std::string_view recordAt(std::string_view file, size_t start) {
  LogRecord record;
  Reader in(file.substr(start));
  static_cast<void>(in.take(kPlaceColumn));
  readPlace(in, &record);
  const uint64_t textStart = start + kLineEnd.size();
  if (record.offset != textStart) in.fail("the place " + std::to_string(textStart) + " before");
  if (record.length > file.size() - textStart)
    in.fail(std::to_string(record.length) + " bytes of record");
  return file.substr(start, kLineEnd.size() + record.length);
}

}  // namespace

ParsedLog parseLog(std::string_view file) {
  ParsedLog log;
  size_t start = 0;
  try {
    while (start < file.size()) {
      const std::string_view record = recordAt(file, start);
      log.records.push_back(readRecord(record));
      start += record.size();
    }
  } catch (const std::runtime_error& error) {
    log.error = "record " + std::to_string(log.records.size() + 1) + ": " + error.what() + " of\n" +
                std::string(file.substr(start));
  }
  return log;
}

}  // namespace osse_test
