// Extended shared memory between two processes, one of which may be killed.
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "ipc/ossipcmemoryexfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// arguments: name, event that is set once the section is created, event that never is.
CHILD_ROLE(holdExtendedMemory) {
  Event created(arguments[1]);
  Event never(arguments[2]);
  OSSIPCMemoryExCreateParam param;
  param.name = arguments[0].c_str();
  param.size = 100;
  param.flags = OSS_MEMORY_EXCLUSIVE | OSS_MEMORY_READ_WRITE;
  OSSIPCMemoryExInfo info;
  OSSHIPCMemoryEx memory;
  EXPECT_EQ(memory.create(&param, &info), ECF_OK);
  std::strcpy(static_cast<char*>(info.address), "from the child");
  created.set();
  EXPECT_TRUE(never.wait());
  return 0;
}

using OSSHIPCMemoryExProcessesTest = OSSHIPCMemoryExTest;

TEST_F(OSSHIPCMemoryExProcessesTest, ASectionOfAKilledProcessLivesWithTheLastHandle) {
  Event created;
  Event never;
  Child holder = startChild("holdExtendedMemory", {path_, created.name(), never.name()});
  ASSERT_TRUE(created.wait());
  ASSERT_EQ(attachOther(OSS_MEMORY_READ_ONLY), ECF_OK);
  EXPECT_STREQ(textOf(other_), "from the child");
  holder.kill();

  create();  // shares what is there
  EXPECT_STREQ(textOf(memory_), "from the child");
  ASSERT_EQ(memory_.detach(), ECF_OK);
  createParam_.flags |= OSS_MEMORY_EXCLUSIVE;
  EXPECT_EQ(memory_.create(&createParam_, &info_), ECF_EXISTS);

  ASSERT_EQ(other_.detach(), ECF_OK);
  create();
  EXPECT_STREQ(textOf(memory_), "");
}

}  // namespace
