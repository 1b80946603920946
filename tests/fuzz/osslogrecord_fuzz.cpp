// Composes records from any event, stamp and items. What must hold: the text stays in its buffer,
// ends in a NUL, keeps the columns of its header, does not depend on what comes behind it, and its
// place reads back as the numbers that were written.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "log/osslogrecord.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

namespace {

using namespace oss;

LogEvent takeEvent(Input& input) {
  LogEvent event = {};
  event.funcId = input.take<uint32_t>();
  event.messageCode = input.take<uint32_t>();
  event.probe = input.take<uint64_t>();
  event.level = input.take<uint8_t>();
  event.called = static_cast<LogEvent::Called>(input.take<uint8_t>() % 3);
  event.calledFuncId = input.take<uint32_t>();
  event.calledRC = input.take<uint32_t>();
  event.sysError = input.take<uint64_t>();
  return event;
}

LogStamp takeStamp(Input& input) {
  LogStamp stamp = {};
  for (uint16_t* const field : {&stamp.year, &stamp.month, &stamp.day, &stamp.hour, &stamp.minute,
                                &stamp.second, &stamp.millisecond})
    *field = input.take<uint16_t>();
  stamp.zoneMinutes = input.take<int32_t>();
  stamp.processId = input.take<uint32_t>();
  stamp.threadId = input.take<uint64_t>();
  return stamp;
}

// Items whose blocks are as long as they claim, but for strings, which may claim more than they are
// long when they end in a NUL, and null items, which may claim anything.
class Items {
 public:
  explicit Items(Input& input) {
    while (!input.isEmpty() && args_.size() < 40) {
      const int32_t type = input.take<int8_t>() % 8;
      size_t size = input.take<uint16_t>() % 700;
      auto block = input.takeBlock(size);
      const uint32_t number = static_cast<uint32_t>(args_.size() + 1);
      if (type == 7) {
        args_.push_back({number, {nullptr, ~uint64_t{0}, OSS_LOG_DUMP}});
      } else {
        const bool ends = size != 0 && block[size - 1] == 0;
        const uint64_t claimed = type == OSS_LOG_STRING && ends ? size + 1000 : size;
        args_.push_back({number, {block.get(), claimed, type}});
      }
      blocks_.push_back(std::move(block));
    }
  }

  std::span<const LogArg> all() const { return args_; }
  std::span<const LogArg> first(size_t count) const { return all().first(count); }

 private:
  std::vector<std::unique_ptr<uint8_t[]>> blocks_;
  std::vector<LogArg> args_;
};

std::string compose(const LogEvent& event, const LogStamp& stamp, std::span<const LogArg> items) {
  char text[kRecordBytes];
  const size_t length = composeLogRecord(text, event, stamp, items);
  require(length < kRecordBytes && text[length] == '\0');
  return std::string(text, length);
}

void checkHeader(const std::string& text) {
  require(text.starts_with("\r\n"));
  require(text[28] == '+' || text[28] == '-');
  require(text.substr(32, 27) == std::string(20, ' ') + "LEVEL: ");
}

// Reads the place of a record back, unless it was cut.
void checkPlace(const std::string& record, uint64_t fileSize) {
  char text[kRecordBytes] = {};
  std::memcpy(text, record.data(), record.size());
  placeLogRecord(text, record.size(), fileSize, 'F');

  const std::string placed(text, record.size());
  require(placed.substr(0, 33) == record.substr(0, 33));
  require(placed.substr(50) == record.substr(50));
  const std::string expected =
      'I' + std::to_string(fileSize + 2) + 'F' + std::to_string(record.size() - 2);
  const std::string columns = placed.substr(33, 17);
  require(columns == (expected + std::string(17, ' ')).substr(0, 17));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const LogEvent event = takeEvent(input);
  const LogStamp stamp = takeStamp(input);
  const uint64_t fileSize = input.take<uint64_t>();
  const int32_t localSecond = input.take<uint32_t>() % 86'400;
  const int32_t utcSecond = input.take<uint32_t>() % 86'400;
  const Items items(input);

  const std::string record = compose(event, stamp, items.all());
  checkHeader(record);
  checkPlace(record, fileSize);
  for (size_t count = 0; count < items.all().size(); ++count)
    require(record.starts_with(compose(event, stamp, items.first(count))));

  const int32_t zone = zoneOffsetMinutes(localSecond, utcSecond);
  require(zone > -720 && zone <= 720);
  return 0;
}
