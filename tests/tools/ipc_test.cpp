// `osse ipc`: whole texts, of queues as another process would find them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "harness/tempdir.h"
#include "ipc/ossipcqueuefixture.h"
#include "ipc/restlesswriters.h"

using namespace osse_test;

namespace {

class IpcCommandTest : public QueueTest {
 protected:
  std::string run(int expected, bool json = false) { return runOn(path_, expected, json); }

  std::string runOn(const std::string& path, int expected, bool json) {
    TempDirectory dir;
    const std::string output = dir.file("output");
    const oss::tool::IpcCommand command = {
        .path = path, .number = 0, .local = false, .json = json, .output = output};
    testing::internal::CaptureStderr();
    EXPECT_EQ(command.run(), expected);
    complaint_ = testing::internal::GetCapturedStderr();
    std::string text = readFile(output);
    // Names differ from run to run.
    for (size_t at; (at = text.find(path_)) != std::string::npos;)
      text.replace(at, path_.size(), "<path>");
    return text;
  }

  std::string complaint_;
};

constexpr char kObjects[] =
    "section           OSSEIPC0<path>: exists, 4096 bytes\n"
    "data semaphore    OSSEIPC1<path>: exists\n"
    "space semaphore   OSSEIPC2<path>: exists\n"
    "event             OSSEIPC0<path>: none (the name is the section's)\n";

TEST_F(IpcCommandTest, WithoutAQueueItTellsTheNames) {
  EXPECT_EQ(run(oss::tool::kFailed),
            "section           OSSEIPC0<path>: missing\n"
            "data semaphore    OSSEIPC1<path>: missing\n"
            "space semaphore   OSSEIPC2<path>: missing\n"
            "event             OSSEIPC0<path>: missing\n");
  EXPECT_NE(complaint_.find("there is no queue: OSSEIPC0" + path_ + " is no section"),
            std::string::npos);
}

TEST_F(IpcCommandTest, ShowsTheHeaderTheLatchesAndTheMessages) {
  create(64);
  ASSERT_EQ(put(queue_, "taken"), ECF_OK);
  ASSERT_EQ(put(queue_, "Hello, world!\n"), ECF_OK);
  ASSERT_EQ(put(queue_, ""), ECF_OK);
  next(queue_);
  header().stateLatch = 0xC0;
  header().getLatch = 0x80;
  EXPECT_EQ(run(oss::tool::kDone),
            std::string(kObjects) +
                "\n"
                "capacity          64\n"
                "write offset      48\n"
                "read offset       16\n"
                "used              32\n"
                "free              32\n"
                "put latch         { 0x00 [ unlocked ] }\n"
                "get latch         { 0x80 [ locked ] }\n"
                "state latch       { 0xC0 [ locked;waiting ] }\n"
                "writer waiting    0\n"
                "reader waiting    0\n"
                "not empty         1\n"
                "\n"
                "unread messages   2\n"
                "A reader has the get latch: what comes first may be the rest of its message.\n"
                "message 1: 14 bytes\n"
                "  4865 6C6C 6F2C 2077 6F72 6C64 210A         Hello, world!.\n"
                "message 2: 0 bytes\n");
  EXPECT_EQ(complaint_, "");
  header().stateLatch = 0;
  header().getLatch = 0;
  EXPECT_EQ(next(queue_), "Hello, world!\n") << "the queue is as it was";
}

TEST_F(IpcCommandTest, SaysWhenTheQueueMovesMeanwhile) {
  create(8 * 400);
  const std::string blur = "The queue is in use: it moved while it was read, and this is a blur.\n";
  std::string text;
  {
    const RestlessWriters writers(header());
    constexpr int kMostRuns = 1000;
    for (int i = 0; i < kMostRuns && !text.ends_with(blur); ++i) text = run(oss::tool::kDone);
  }
  EXPECT_TRUE(text.ends_with(blur)) << text;
  EXPECT_FALSE(run(oss::tool::kDone).ends_with(blur));
}

TEST_F(IpcCommandTest, SaysWhenTheSectionIsNoQueue) {
  create(64);
  header().readOffset = 1 << 20;
  EXPECT_EQ(run(oss::tool::kFailed), std::string(kObjects) +
                                         "\n"
                                         "capacity          64\n"
                                         "write offset      0\n"
                                         "read offset       1048576\n"
                                         "put latch         { 0x00 [ unlocked ] }\n"
                                         "get latch         { 0x00 [ unlocked ] }\n"
                                         "state latch       { 0x00 [ unlocked ] }\n"
                                         "writer waiting    0\n"
                                         "reader waiting    0\n"
                                         "not empty         0\n");
  EXPECT_NE(complaint_.find("there is no queue: the section's header cannot be one"),
            std::string::npos);
}

TEST_F(IpcCommandTest, WritesTheSameAsJson) {
  create(64);
  ASSERT_EQ(put(queue_, "ab"), ECF_OK);
  const auto document = nlohmann::json::parse(run(oss::tool::kDone, true));
  EXPECT_EQ(document["section"]["name"], "OSSEIPC0<path>");
  EXPECT_EQ(document["section"]["bytes"], 4096);
  EXPECT_EQ(document["event"]["state"], "none (the name is the section's)");
  const auto& queue = document["queue"];
  EXPECT_EQ(queue["isQueue"], true);
  EXPECT_EQ(queue["isMoving"], false);
  EXPECT_EQ(queue["capacity"], 64);
  EXPECT_EQ(queue["used"], 16);
  EXPECT_EQ(queue["putLatch"], "{ 0x00 [ unlocked ] }");
  EXPECT_EQ(queue["messages"],
            nlohmann::json::parse(R"([{"length": 2, "there": 2, "head": "6162"}])"));
}

// A section on its own, all zeros: the first thing that is made of a queue, or no part of one.
TEST_F(IpcCommandTest, AnyZeroedSectionIsNoQueue) {
  OSSHIPCMemory memory;
  OSSIPCMemoryCreateParam param;
  param.resID = queueResIDOf(path_).memory;
  param.size = 100;
  ASSERT_EQ(memory.create(&param), ECF_OK);
  const auto document = nlohmann::json::parse(run(oss::tool::kFailed, true));
  EXPECT_EQ(document["queue"]["isQueue"], false);
  EXPECT_EQ(document["dataSemaphore"]["state"], "missing");
  EXPECT_EQ(complaint_,
            "osse: there is no queue, or one that is just being made: a semaphore is missing\n");
  EXPECT_EQ(memory.detach(), ECF_OK);
}

TEST_F(IpcCommandTest, AQueueWithoutItsCapacityIsJustBeingMade) {
  create(64);
  header().capacity = 0;
  const auto document = nlohmann::json::parse(run(oss::tool::kFailed, true));
  EXPECT_EQ(document["queue"]["isQueue"], false);
  EXPECT_EQ(complaint_,
            "osse: there is no queue, or one that is just being made: the capacity is 0\n");
  header().capacity = 64;
  EXPECT_EQ(nlohmann::json::parse(run(oss::tool::kDone, true))["queue"]["isQueue"], true);
}

// What is written can be typed in again: back in the code page, the name is that of the object.
TEST_F(IpcCommandTest, NamesAreUtf8InBothForms) {
  const std::string path = path_ + "\xE4\xFC";
  const auto document = nlohmann::json::parse(runOn(path, oss::tool::kFailed, true));
  const std::string name = document["section"]["name"];
  const std::string tail = name.substr(name.find('>') + 1);
  EXPECT_GT(tail.size(), 2u) << "two characters beyond ASCII";

  wchar_t wide[10] = {};
  char ansi[10] = {};
  ASSERT_NE(::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, tail.c_str(), -1, wide, 10), 0);
  ASSERT_NE(::WideCharToMultiByte(CP_ACP, 0, wide, -1, ansi, 10, nullptr, nullptr), 0);
  EXPECT_STREQ(ansi, "\xE4\xFC");
  EXPECT_EQ(runOn(path, oss::tool::kFailed, false).find("section           " + name + ": missing"),
            0u);
}

}  // namespace
