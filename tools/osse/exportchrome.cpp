#include "exportchrome.h"

#include <nlohmann/json.hpp>

#include "digits.h"

namespace oss::tool {
namespace {

using Json = nlohmann::ordered_json;

// As JSON; bytes that are no UTF-8 are replaced.
std::string quoted(const std::string& text) {
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Of the printable characters, which are all that an item's text has, these two need an escape.
char* putQuoted(char* out, std::string_view text) {
  *out++ = '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') *out++ = '\\';
    *out++ = c;
  }
  *out++ = '"';
  return out;
}

// The members of an object, with commas between them.
class Members {
 public:
  explicit Members(char* out) : out_(out) {}

  char* position() const { return out_; }
  bool any() const { return any_; }

  void number(std::string_view name, uint64_t value) { out_ = putDecimal(key(name), value); }
  // JSON has no numbers in hex, and a double holds only 53 bits.
  void hex(std::string_view name, uint64_t value) {
    out_ = putChar(putHex(putChar(key(name), '"'), value), '"');
  }
  void text(std::string_view name, std::string_view value) { out_ = putQuoted(key(name), value); }

 private:
  char* key(std::string_view name) {
    if (any_) *out_++ = ',';
    any_ = true;
    return putChar(putQuoted(out_, name), ':');
  }

  char* out_;
  bool any_ = false;
};

}  // namespace

ChromeExport::ChromeExport(Output& output, Names& names, Clock clock)
    : output_(output), names_(names), clock_(clock) {
  output_.write("{\"traceEvents\":[");
}

void ChromeExport::began(const Thread& thread) {
  if (processes_.findOrAdd(thread.process, 0).isNew)
    writeMetadata("process_name", thread, "process " + std::to_string(thread.process));
  writeMetadata("thread_name", thread, "thread " + std::to_string(thread.id));
}

void ChromeExport::writeMetadata(std::string_view kind, const Thread& thread,
                                 const std::string& name) {
  const Json event = {{"ph", "M"},
                      {"name", kind},
                      {"pid", thread.process},
                      {"tid", thread.id},
                      {"args", {{"name", name}}}};
  output_.write(isFirst_ ? "\n" : ",\n");
  isFirst_ = false;
  output_.write(event.dump());
}

void ChromeExport::entered(const Thread& thread, const Frame& frame, const Record& record) {
  char* out = output_.room(Output::kLargestRoom);
  out = putEvent(out, 'B', thread, frame.entered);
  out = putName(out, EventKey(Event::Call, frame.funcId));
  out = putArguments(out, &record, {});
  output_.end(putChar(out, '}'));
}

void ChromeExport::left(const Thread& thread, const Frame&, uint64_t at, const Record* exit) {
  char* out = output_.room(Output::kLargestRoom);
  out = putEvent(out, 'E', thread, at);
  out = putArguments(out, exit, exit == nullptr ? "exit" : "");
  output_.end(putChar(out, '}'));
}

void ChromeExport::cut(const Thread& thread, const Record& record, uint64_t at) {
  char* out = output_.room(Output::kLargestRoom);
  out = putEvent(out, 'i', thread, at);
  out = putName(out, EventKey(Event::Cut, record.head().funcId));
  out = putArguments(putText(out, R"(,"s":"t")"), &record, "entry");
  output_.end(putChar(out, '}'));
}

void ChromeExport::note(const Thread& thread, const Record& record, uint64_t at) {
  char* out = output_.room(Output::kLargestRoom);
  out = putEvent(out, 'i', thread, at);
  out = putName(out, EventKey(Event::Note, record.head()));
  out = putArguments(putText(out, R"(,"s":"t")"), &record, {});
  output_.end(putChar(out, '}'));
}

void ChromeExport::finish(std::string_view times) {
  const Json data = {{"times", times}};
  output_.write("\n],\"displayTimeUnit\":\"ns\",\"otherData\":");
  output_.write(data.dump());
  output_.write("}\n");
}

// An event always follows the metadata of its thread.
char* ChromeExport::putEvent(char* out, char phase, const Thread& thread, uint64_t at) {
  const uint64_t nanoseconds = clock_.nanoseconds(at);
  out = putText(out, ",\n{\"ph\":\"");
  out = putText(putChar(out, phase), R"(","ts":)");
  out = putChar(putDecimal(out, nanoseconds / 1000), '.');
  out = put3Digits(out, static_cast<uint32_t>(nanoseconds % 1000));
  out = putDecimal(putText(out, ",\"pid\":"), thread.process);
  return putDecimal(putText(out, ",\"tid\":"), thread.id);
}

char* ChromeExport::putName(char* out, const EventKey& key) {
  const IndexMap::Found found = eventNumbers_.findOrAdd(key.funcId, key.variant);
  if (found.isNew) eventNames_.push_back(quoted(nameOf(key, names_)));
  return putWord(putText(out, ",\"name\":"), eventNames_[found.index]);
}

char* ChromeExport::putArguments(char* out, const Record* record, std::string_view incomplete) {
  constexpr std::string_view kStart = ",\"args\":{";
  Members members(out + kStart.size());
  if (!incomplete.empty()) members.text("incomplete", incomplete);
  if (record != nullptr) {
    const GTraceRecord& head = record->head();
    if (record->hasProbe()) members.number("probe", head.probe);
    if (record->hasCode() && head.returnCode != 0) members.text("rc", names_.code(head.returnCode));
    if (record->isCorrelator()) members.hex("correlator", head.returnCode);
    if (record->hasExtra1() && head.extra1 != 0) members.hex("extra", head.extra1);
    if (record->hasExtra2() && record->extra2() != 0) members.hex("extra2", record->extra2());
    if (record->hasItems()) members.text("items", listItems(*record, items_));
  }
  if (!members.any()) return out;
  putText(out, kStart);
  return putChar(members.position(), '}');
}

}  // namespace oss::tool
