// Several processes, and several threads of each, that trace into one block, which each of them
// sees at an address of its own.
#include <array>
#include <map>
#include <thread>

#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "harness/startline.h"
#include "trace/tracefixture.h"

using namespace osse_test;

namespace {

constexpr uint32_t kWriters = 2;  // threads of a process
constexpr uint32_t kRecords = 500;
constexpr uint32_t kChildren = 2;
constexpr uint32_t kFunc = 0x081A0003;

// Each thread writes records of one slot, two, and several in turn, numbered by their extra value.
void writeRecords(uint32_t processId) {
  StartLine start(kWriters);
  std::array<std::thread, kWriters> threads;
  for (uint32_t writer = 0; writer < kWriters; ++writer)
    threads[writer] = std::thread([&start, processId, writer] {
      const std::string item(100, static_cast<char>('a' + processId));
      start.pass();
      for (uint64_t number = 0; number < kRecords; ++number) {
        if (number % 3 == 0) gtraceError(writer, kFunc, 10, 4, number);
        if (number % 3 == 1) gtraceErrorTrans(writer, kFunc, 10, number, ~number);
        if (number % 3 == 2)
          gtraceErrorVar(writer, kFunc, 10, 4, number, uint64_t{1}, uint64_t{0}, item.size(),
                         item.data());
      }
    });
  for (std::thread& thread : threads) thread.join();
}

// Arguments: name and address of the block in the parent, process identifier, and the events that
// tell that the child is ready and that it may write.
CHILD_ROLE(traceIntoSharedBlock) {
  const SharedMemory first(arguments[0], kBlock), second(arguments[0], kBlock);
  Event ready(arguments[3]), go(arguments[4]);
  const auto parents = reinterpret_cast<void*>(std::stoull(arguments[1]));
  void* const block = first.address() != parents ? first.address() : second.address();
  EXPECT_NE(block, parents);

  const auto processId = static_cast<uint32_t>(std::stoul(arguments[2]));
  EXPECT_EQ(gtraceAttach(block, processId, nullptr, nullptr), ECF_OK);
  gtraceMarker(99, kFunc, 10, 3);
  ready.set();
  EXPECT_TRUE(go.wait());
  writeRecords(processId);
  EXPECT_EQ(gtraceDetach(), ECF_OK);
  return 0;
}

// A record of the ring, as far as it is looked at.
struct Found {
  uint32_t processId;
  uint64_t writer;
  uint64_t number;
  uint32_t fixed1;
  uint16_t type;
};

// All records from the start, each of which must be whole.
std::vector<Found> recordsOf(const char* block) {
  std::vector<Found> found;
  const auto reserved = wordAt<uint32_t>(block, kRing);
  for (uint32_t slot = 0; slot < reserved;) {
    const char* const at = block + kSlots + size_t{64} * slot;
    const auto count = wordAt<uint16_t>(at, 6);
    const bool isWhole = wordAt<uint32_t>(at, 0) == slot && wordAt<uint16_t>(at, 4) == 0xCAFE &&
                         count != 0 && wordAt<uint32_t>(at, size_t{64} * count - 4) == ~slot;
    EXPECT_TRUE(isWhole) << "slot " << slot;
    if (!isWhole) break;
    found.push_back({wordAt<uint32_t>(at, 24), wordAt<uint64_t>(at, 16), wordAt<uint64_t>(at, 48),
                     wordAt<uint32_t>(at, 32), wordAt<uint16_t>(at, 40)});
    slot += count;
  }
  return found;
}

TEST(TraceSharing, ProcessesTraceIntoOneBlockAtTheirOwnAddresses) {
  const SharedMemory memory(kBlock);
  ASSERT_EQ(gtraceInitialize(memory.address(), optionsOf(GTRACE_CIRCULAR).get()), ECF_OK);
  ASSERT_EQ(gtraceAttach(memory.address(), 0, nullptr, nullptr), ECF_OK);
  ASSERT_EQ(gtraceEnable(), ECF_OK);

  std::array<Event, kChildren> ready, go;
  std::vector<Child> children;
  for (uint32_t i = 0; i < kChildren; ++i) {
    children.push_back(
        startChild("traceIntoSharedBlock",
                   {memory.name(), std::to_string(reinterpret_cast<uint64_t>(memory.address())),
                    std::to_string(i + 1), ready[i].name(), go[i].name()}));
  }
  for (Event& event : ready) ASSERT_TRUE(event.wait());
  for (Event& event : go) event.set();
  writeRecords(0);
  for (Child& child : children) EXPECT_EQ(child.wait(), 0u);
  gtraceDetach();

  // Each writer's records are all there, in their order.
  std::map<std::pair<uint32_t, uint64_t>, uint64_t> next;
  for (const Found& found : recordsOf(static_cast<const char*>(memory.address()))) {
    // A process's values are all ones until it sets them.
    EXPECT_EQ(found.fixed1, 0xFFFFFFFF);
    if (found.type == GTRACE_DATA) continue;
    EXPECT_EQ(found.number, (next[{found.processId, found.writer}]++));
  }
  EXPECT_EQ(next.size(), (kChildren + 1) * kWriters);
  for (const auto& [writer, count] : next) EXPECT_EQ(count, kRecords);
}

}  // namespace
