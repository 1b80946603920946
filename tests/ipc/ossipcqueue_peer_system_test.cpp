// A message queue whose other end is another program: that finds the three objects by their names,
// or makes them, with calls of the system alone, and reads and writes the section itself.
#include <thread>

#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "ipc/literalqueuepeer.h"
#include "ipc/ossipcqueuefixture.h"
#include "ipc/peertraffic.h"

using namespace osse_test;
using namespace testing;

namespace {

class SystemSemaphore {
 public:
  explicit SystemSemaphore(HANDLE semaphore) : semaphore_(semaphore) {}

  void wait() {
    if (::WaitForSingleObject(semaphore_.get(), kNobodyPosts) != WAIT_OBJECT_0)
      throw std::runtime_error("The peer was not woken.");
  }
  void post() { EXPECT_TRUE(::ReleaseSemaphore(semaphore_.get(), 1, nullptr)); }

 private:
  static constexpr DWORD kNobodyPosts = 60'000;

  UniqueHandle semaphore_;
};

// The three objects of a queue.
class PeerQueue {
 public:
  using Peer = LiteralQueuePeer<SystemSemaphore>;

  // Finds them.
  explicit PeerQueue(const std::string& path)
      : section_(::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nameOf(path, 0).c_str())),
        data_(::OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, nameOf(path, 1).c_str())),
        space_(::OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, nameOf(path, 2).c_str())),
        view_(::MapViewOfFile(section_.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)) {
    EXPECT_NE(view_, nullptr);
  }
  // Makes them.
  PeerQueue(const std::string& path, uint32_t capacity)
      : section_(::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                      static_cast<DWORD>(Peer::sectionBytes(capacity)),
                                      nameOf(path, 0).c_str())),
        data_(::CreateSemaphoreA(nullptr, 1, 32767, nameOf(path, 1).c_str())),
        space_(::CreateSemaphoreA(nullptr, 1, 32767, nameOf(path, 2).c_str())),
        view_(::MapViewOfFile(section_.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)) {
    EXPECT_NE(view_, nullptr);
    data_.wait();
    space_.wait();
    peer().makeEmpty(capacity);
  }
  ~PeerQueue() { EXPECT_TRUE(::UnmapViewOfFile(view_)); }
  PeerQueue(const PeerQueue&) = delete;
  PeerQueue& operator=(const PeerQueue&) = delete;

  Peer peer() { return {view_, data_, space_}; }

 private:
  static std::string nameOf(const std::string& path, int number) {
    return "OSSEIPC" + std::to_string(number) + path;
  }

  UniqueHandle section_;
  SystemSemaphore data_, space_;
  void* view_;
};

// What passes each way.
constexpr PeerTraffic kTraffic[] = {{24, 500}, {64, 500}, {4096, 200}, {65536, 40}};

std::string pathOf(const std::string& path, const PeerTraffic& traffic) {
  return path + " ring " + std::to_string(traffic.capacity);
}

// The library's part: reads all messages of each queue, and writes them.
CHILD_ROLE(queueAcrossFromPeer) {
  for (const PeerTraffic& traffic : kTraffic) {
    OtherEnd end(pathOf(arguments[0], traffic));
    for (uint32_t i = 0; i < traffic.messages; ++i)
      EXPECT_EQ(next(end.queue, traffic.most(), OSS_QUEUE_INFINITE), traffic.message(i))
          << "message " << i << " through a ring of " << traffic.capacity;
    for (uint32_t i = 0; i < traffic.messages; ++i)
      EXPECT_EQ(put(end.queue, traffic.message(i)), ECF_OK);
  }
  return 0;
}

using QueuePeerProcess = IPCTest;

TEST_F(QueuePeerProcess, AnotherProgramWritesAndReadsAsTheLibraryDoes) {
  std::vector<std::unique_ptr<PeerQueue>> queues;
  for (const PeerTraffic& traffic : kTraffic)
    queues.push_back(std::make_unique<PeerQueue>(pathOf(path_, traffic),
                                                 static_cast<uint32_t>(traffic.capacity)));
  Child child = startChild("queueAcrossFromPeer", {path_});
  for (size_t i = 0; i < std::size(kTraffic); ++i) {
    SCOPED_TRACE(Message() << "through a ring of " << kTraffic[i].capacity);
    writeAsPeer(queues[i]->peer(), kTraffic[i]);
    readAsPeer(queues[i]->peer(), kTraffic[i]);
  }
  EXPECT_EQ(child.wait(), 0u);
}

TEST_F(QueueTest, AnotherProgramFindsTheQueueByItsNames) {
  const PeerTraffic traffic = {64, 200};
  create(traffic.capacity);
  PeerQueue found(path_);
  std::thread peer([&] {
    writeAsPeer(found.peer(), traffic);
    readAsPeer(found.peer(), traffic);
  });
  for (uint32_t i = 0; i < traffic.messages; ++i)
    EXPECT_EQ(next(queue_, traffic.most(), OSS_QUEUE_INFINITE), traffic.message(i)) << i;
  for (uint32_t i = 0; i < traffic.messages; ++i)
    EXPECT_EQ(put(queue_, traffic.message(i)), ECF_OK);
  peer.join();
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_EQ(header().writerWaiting, 0);
}

}  // namespace
