// `osse ipc`: the names that a path and a number form, which objects bear them, and the queue in
// the section, as text or as JSON.
#include <nlohmann/json.hpp>

#include "ansitext.h"
#include "commands.h"
#include "ipcobjects.h"
#include "osshexdump.h"
#include "osslatch.h"
#include "output.h"
#include "queueview.h"
#include "terminal.h"

namespace oss::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kMoving[] = "The queue is in use: it moved while it was read, and this is a blur.";

// Why these objects are no queue; "" when they are one.
std::string whyNoQueue(const IpcObjects& objects, const QueueView* view) {
  if (objects.section.presence != Presence::Exists)
    return "there is no queue: " + objects.section.name + " is no section";
  if (view == nullptr || !view->isSound)
    return "there is no queue: the section's header cannot be one";
  const bool lacksSemaphore = objects.dataSemaphore.presence == Presence::Missing ||
                              objects.spaceSemaphore.presence == Presence::Missing;
  if (view->header.capacity == 0 || lacksSemaphore)
    return std::string("there is no queue, or one that is just being made: ") +
           (lacksSemaphore ? "a semaphore is missing" : "the capacity is 0");
  return "";
}

std::string latchText(uint8_t latch) {
  char text[40];
  ossLockToString(&latch, text, sizeof text);
  return text;
}

// A name or a key, and its value in the second column.
void line(Output& output, std::string key, const std::string& value) {
  constexpr size_t kColumn = 18;
  key.resize(kColumn, ' ');
  output.write(key + value + '\n');
}
void line(Output& output, const std::string& key, uint64_t value) {
  line(output, key, std::to_string(value));
}

// ---- Text ----

void writeObjects(const IpcObjects& objects, Output& output) {
  const auto write = [&](const char* kind, const IpcObject& object, const std::string& more) {
    line(output, kind, utf8OfAnsi(object.name) + ": " + object.text() + more);
  };
  const uint64_t bytes = objects.viewBytes();
  write("section", objects.section, bytes != 0 ? ", " + std::to_string(bytes) + " bytes" : "");
  write("data semaphore", objects.dataSemaphore, "");
  write("space semaphore", objects.spaceSemaphore, "");
  write("event", objects.event, "");
}

void writeHeader(const QueueView& view, Output& output) {
  const OSSIPCQueueHeader& header = view.header;
  output.write("\n");
  line(output, "capacity", header.capacity);
  line(output, "write offset", header.writeOffset);
  line(output, "read offset", header.readOffset);
  if (view.isSound) {
    line(output, "used", view.state.used());
    line(output, "free", view.state.free());
  }
  line(output, "put latch", latchText(header.putLatch));
  line(output, "get latch", latchText(header.getLatch));
  line(output, "state latch", latchText(header.stateLatch));
  line(output, "writer waiting", header.writerWaiting);
  line(output, "reader waiting", header.readerWaiting);
  line(output, "not empty", header.notEmpty);
}

void writeMessage(const UnreadMessage& message, uint64_t number, Output& output) {
  std::string text = "message " + std::to_string(number) + ": " + std::to_string(message.length) +
                     (message.length == 1 ? " byte" : " bytes");
  if (message.there < message.length)
    text += ", " + std::to_string(message.there) + " of them here";
  output.write(text + '\n');
  char dump[QueueView::kHeadBytes / 16 * (OSS_HEXDUMP_LINE + 4)];
  if (ossHexDumpToBuffer(message.head.data(), message.head.size(), dump, sizeof dump, "  ", 0) == 0)
    return;
  for (const char* at = dump; *at != '\0'; ++at)
    if (*at != '\r') output.write({at, 1});
}

void writeMessages(const QueueView& view, Output& output) {
  output.write("\n");
  line(output, "unread messages", view.messageCount);
  // A message that is on its way has lost its length, or not got all of its bytes.
  if (view.header.getLatch != 0 && view.messageCount != 0)
    output.write("A reader has the get latch: what comes first may be the rest of its message.\n");
  if (view.header.putLatch != 0)
    output.write("A writer has the put latch: what comes last may be a part of its message.\n");
  uint64_t number = 0;
  for (const UnreadMessage& message : view.messages) writeMessage(message, ++number, output);
  if (number < view.messageCount)
    output.write("and " + std::to_string(view.messageCount - number) + " more\n");
}

// ---- JSON ----

Json jsonOf(const IpcObject& object) {
  return {{"name", utf8OfAnsi(object.name)}, {"state", object.text()}};
}

std::string hexOf(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char each : bytes) {
    const auto byte = static_cast<uint8_t>(each);
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

Json jsonOf(const QueueView& view, bool isQueue) {
  const OSSIPCQueueHeader& header = view.header;
  Json queue = {{"isQueue", isQueue},
                {"isMoving", view.isMoving},
                {"capacity", header.capacity},
                {"writeOffset", header.writeOffset},
                {"readOffset", header.readOffset},
                {"putLatch", latchText(header.putLatch)},
                {"getLatch", latchText(header.getLatch)},
                {"stateLatch", latchText(header.stateLatch)},
                {"writerWaiting", header.writerWaiting},
                {"readerWaiting", header.readerWaiting},
                {"notEmpty", header.notEmpty}};
  if (!view.isSound) return queue;
  queue["used"] = view.state.used();
  queue["free"] = view.state.free();
  queue["messageCount"] = view.messageCount;
  Json& messages = queue["messages"] = Json::array();
  for (const UnreadMessage& message : view.messages)
    messages.push_back(
        {{"length", message.length}, {"there", message.there}, {"head", hexOf(message.head)}});
  return queue;
}

void writeJson(const IpcObjects& objects, const QueueView* view, Output& output) {
  Json document = {{"section", jsonOf(objects.section)},
                   {"dataSemaphore", jsonOf(objects.dataSemaphore)},
                   {"spaceSemaphore", jsonOf(objects.spaceSemaphore)},
                   {"event", jsonOf(objects.event)}};
  document["section"]["bytes"] = objects.viewBytes();
  if (view != nullptr) document["queue"] = jsonOf(*view, whyNoQueue(objects, view).empty());
  output.write(document.dump(2) + '\n');
}

void writeText(const IpcObjects& objects, const QueueView* view, Output& output) {
  writeObjects(objects, output);
  if (view == nullptr) return;
  writeHeader(*view, output);
  if (view->isSound) writeMessages(*view, output);
  if (view->isMoving) output.write(std::string(kMoving) + '\n');
}

}  // namespace

int IpcCommand::run() const {
  const IpcObjects objects(path, number, local);
  OutputFile file;
  if (!file.open(output)) return kFailed;
  Output text(&OutputFile::sink, &file);

  const bool hasView = objects.viewBytes() >= sizeof(OSSIPCQueueHeader);
  QueueView view;
  if (hasView) view = viewOfQueue(objects.view(), objects.viewBytes());
  (json ? writeJson : writeText)(objects, hasView ? &view : nullptr, text);
  if (!text.flush()) {
    complain("the output could not be written");
    return kFailed;
  }

  const std::string why = whyNoQueue(objects, hasView ? &view : nullptr);
  if (why.empty()) return kDone;
  complain(why);
  return kFailed;
}

}  // namespace oss::tool
