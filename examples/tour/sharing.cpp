// Two processes that talk through message queues, hand over a block of shared memory, and meet on a
// waitpost. The tour starts itself a second time, as the server.
//
//   tour                                   server
//   creates queues, memory, waitpost
//   asks "count", and a path      ------>  gets it
//                                          counts what lies in the shared memory
//   gets the answer               <------  puts it
//   waits                                  posts "done" and ends
#include <windows.h>

#include <cctype>
#include <cstring>
#include <string>

#include "ossfile.h"
#include "ossipc.h"
#include "ossprocess.h"
#include "ossstring.h"
#include "tour.h"

namespace tour {
namespace {

// Project numbers below one path. A queue takes three.
constexpr int32_t kQuestions = 1;
constexpr int32_t kAnswers = 4;
constexpr int32_t kText = 7;
constexpr int32_t kDone = 8;

constexpr uint64_t kTextBytes = 64 * 1024;
constexpr int kPatience = 30'000;  // milliseconds

OSSIPCGetResIDParam numbered(const char* path, int32_t number) {
  OSSIPCGetResIDParam in;
  in.path = path;
  in.projectID = number;
  return in;
}
OSSIPCResID nameOf(const char* path, int32_t number) {
  const OSSIPCGetResIDParam in = numbered(path, number);
  OSSIPCResID out;
  ossIPCGetResID(&in, &out);
  return out;
}
OSSIPCQueResID namesOf(const char* path, int32_t number) {
  const OSSIPCGetResIDParam in = numbered(path, number);
  OSSIPCQueResID out;
  ossIPCGetQueResID(&in, &out);
  return out;
}

// What lies in the block that is handed over. Each process sees it at an address of its own.
struct Shared {
  OSSIPCWaitpostControlBlock waitpost;
  char farewell[16];
  uint64_t length;
  char text[kTextBytes];
};

Shared* shared(OSSHIPCMemory& memory) {
  void* address = nullptr;
  memory.getAddress(&address);
  return static_cast<Shared*>(address);
}

// All that both processes hold.
struct Meeting {
  OSSHIPCQueue questions, answers;
  OSSHIPCMemory memory;
  OSSHIPCWaitpost done;
};

OSSErr createQueue(OSSHIPCQueue& queue, const char* path, int32_t number) {
  OSSIPCQueueCreateParam param;
  param.resID = namesOf(path, number);
  param.maxMessageSize = 256;
  return queue.create(&param);
}

bool create(Meeting& meeting, const char* path) {
  if (!told("OSSHIPCQueue::create, for questions",
            createQueue(meeting.questions, path, kQuestions)))
    return false;
  if (!told("OSSHIPCQueue::create, for answers", createQueue(meeting.answers, path, kAnswers)))
    return false;
  OSSIPCMemoryCreateParam section;
  section.resID = nameOf(path, kText);
  section.size = sizeof(Shared);
  if (!told("OSSHIPCMemory::create", meeting.memory.create(&section))) return false;

  Shared* const block = shared(meeting.memory);
  const OSSIPCResID event = nameOf(path, kDone);
  OSSIPCWaitpostCreateParam waitpost;
  waitpost.controlBlock = &block->waitpost;
  waitpost.postArea = block->farewell;
  waitpost.postSize = sizeof block->farewell;
  waitpost.resID = &event;
  waitpost.type = OSS_WAITPOST_AUTOMATIC;
  return told("OSSHIPCWaitpost::create", meeting.done.create(&waitpost));
}

bool attach(Meeting& meeting, const char* path) {
  const OSSIPCQueResID questions = namesOf(path, kQuestions), answers = namesOf(path, kAnswers);
  const OSSIPCResID text = nameOf(path, kText), event = nameOf(path, kDone);
  if (meeting.questions.attach(&questions) != ECF_OK) return false;
  if (meeting.answers.attach(&answers) != ECF_OK) return false;
  if (meeting.memory.attach(&text, nullptr) != ECF_OK) return false;

  Shared* const block = shared(meeting.memory);
  OSSIPCWaitpostOpenParam waitpost;
  waitpost.controlBlock = &block->waitpost;
  waitpost.postArea = block->farewell;
  waitpost.postSize = sizeof block->farewell;
  waitpost.resID = &event;
  return meeting.done.open(&waitpost) == ECF_OK;
}

// Fills the block with the beginning of the tour's file.
void readInto(Shared& block, const char* path) {
  OSSFileOpenParam open;
  open.path = path;
  open.creation = OSS_FILE_OPEN_EXISTING;
  open.access = OSS_FILE_READ;
  OSSHFile file;
  if (!told("OSSHFile::open, what is to be counted", file.open(&open))) return;
  OSSFileReadParam read;
  read.size = kTextBytes;
  file.read(&read, block.text, &block.length);
  told("OSSHFile::close", file.close());
}

uint64_t wordsOf(const char* text, uint64_t length) {
  uint64_t words = 0;
  bool isInside = false;
  for (uint64_t i = 0; i < length; ++i) {
    const bool isBlank = std::isspace(static_cast<unsigned char>(text[i])) != 0;
    if (!isBlank && !isInside) ++words;
    isInside = !isBlank;
  }
  return words;
}

HANDLE startServer(const Stage& stage, const std::string& path) {
  std::string command = "\"" + stage.ownProgram + "\" --serve \"" + path + "\"";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process))
    return nullptr;
  ::CloseHandle(process.hThread);
  note("process %lu is the server", process.dwProcessId);
  return process.hProcess;
}

void converse(Meeting& meeting) {
  Shared& block = *shared(meeting.memory);
  const char question[] = "How many words are there?";
  told("OSSHIPCQueue::put, a question", meeting.questions.put(question, sizeof question));

  char answer[256] = {};
  uint64_t received = 0;
  if (told("OSSHIPCQueue::get, the answer",
           meeting.answers.get(answer, sizeof answer - 1, &received, kPatience))) {
    note("asked: %s", question);
    note("answered: %s", answer);
    char own[32];
    ossSnprintf(own, sizeof own, "%I64u", wordsOf(block.text, block.length));
    note("counted here as well: %s", own);
  }

  OSSIPCWaitpostWaitParam patient;
  patient.timeout = kPatience;
  char farewell[sizeof block.farewell] = {};
  if (told("OSSHIPCWaitpost::wait, for the server's post", meeting.done.wait(&patient, farewell)))
    note("posted: %s", farewell);
  expected("OSSHIPCQueue::get, when nothing more comes",
           meeting.answers.get(answer, sizeof answer, nullptr, 0), ECF_QUE_INVALID_MSG_TYPE);
}

}  // namespace

int serve(const char* path) {
  Meeting meeting;
  if (!attach(meeting, path)) return 1;
  Shared& block = *shared(meeting.memory);

  char question[256];
  uint64_t received = 0;
  if (meeting.questions.get(question, sizeof question, &received, kPatience) != ECF_OK) return 1;
  char answer[64];
  const uint64_t length =
      ossSnprintf(answer, sizeof answer, "%I64u words", wordsOf(block.text, block.length));
  if (meeting.answers.put(answer, length) != ECF_OK) return 1;

  const char farewell[sizeof block.farewell] = "done";
  if (meeting.done.post(farewell) != ECF_OK) return 1;
  // The system closes the rest.
  return 0;
}

void shareWithAnotherProcess(const Stage& stage) {
  act("Two processes share queues, memory and a waitpost");
  const std::string path = "osse tour " + std::to_string(ossProcessID());
  Meeting meeting;
  if (!create(meeting, path.c_str())) return;
  readInto(*shared(meeting.memory), stage.input.c_str());

  const HANDLE server = startServer(stage, path);
  if (server == nullptr) {
    expected("the server", ECF_FAILED, ECF_OK);
    return;
  }
  converse(meeting);
  ::WaitForSingleObject(server, kPatience);
  ::CloseHandle(server);

  told("OSSHIPCWaitpost::destroy", meeting.done.destroy());
  told("OSSHIPCMemory::destroy", meeting.memory.destroy());
  told("OSSHIPCQueue::destroy, questions", meeting.questions.destroy());
  told("OSSHIPCQueue::destroy, answers", meeting.answers.destroy());
}

}  // namespace tour
