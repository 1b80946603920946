// Shared memory between two processes, one of which may be killed.
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "ipc/ossipcmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// arguments: path, event that is set once the section is created, event to wait for before the end.
CHILD_ROLE(createMemory) {
  Event created(arguments[1]);
  Event done(arguments[2]);
  OSSIPCMemoryCreateParam param;
  param.resID = resIDOf(arguments[0]);
  param.size = 3 * kPage;
  OSSHIPCMemory memory;
  EXPECT_EQ(memory.create(&param), ECF_OK);
  std::strcpy(textOf(memory), "from the child");
  created.set();
  EXPECT_TRUE(done.wait());
  EXPECT_STREQ(textOf(memory), "from the parent");
  EXPECT_EQ(memory.destroy(), ECF_OK);
  return 0;
}

// arguments: path, the address to map at.
CHILD_ROLE(attachMemory) {
  const OSSIPCResID resID = resIDOf(arguments[0]);
  void* const address = reinterpret_cast<void*>(std::stoull(arguments[1]));
  const Attached attached(resID, address);
  EXPECT_STREQ(textOf(attached.memory), "from the parent");
  std::strcpy(textOf(attached.memory), "from the child");
  return 0;
}

class OSSHIPCMemoryProcessesTest : public OSSHIPCMemoryTest {
 protected:
  Event created_;
  Event done_;
  Child creator_ = startChild("createMemory", {path_, created_.name(), done_.name()});
};

TEST_F(OSSHIPCMemoryProcessesTest, WhatOneCreatesTheOtherAttaches) {
  ASSERT_TRUE(created_.wait());
  const Attached mine(resID_);
  uint64_t size = 0;
  OSSHIPCMemory same = mine.memory;  // a handle is a plain value
  EXPECT_EQ(same.getMemorySize(&size), ECF_OK);
  EXPECT_EQ(size, 3 * kPage);
  EXPECT_STREQ(textOf(mine.memory), "from the child");
  std::strcpy(textOf(mine.memory), "from the parent");
  done_.set();
  EXPECT_EQ(creator_.wait(), 0u);
  EXPECT_STREQ(textOf(mine.memory), "from the parent");  // it outlives its creator
}

TEST_F(OSSHIPCMemoryProcessesTest, TheNameOfAnotherProcessesSectionIsTaken) {
  ASSERT_TRUE(created_.wait());
  EXPECT_EQ(memory_.create(&param_), ECF_MEM_EXISTS);
  const Attached mine(resID_);
  EXPECT_STREQ(textOf(mine.memory), "from the child");
  creator_.kill();
}

TEST_F(OSSHIPCMemoryProcessesTest, TheNameOfAKilledCreatorIsFreeWithTheLastHandle) {
  ASSERT_TRUE(created_.wait());
  {
    const Attached mine(resID_);
    creator_.kill();
    EXPECT_STREQ(textOf(mine.memory), "from the child");
    EXPECT_EQ(memory_.create(&param_), ECF_MEM_EXISTS);
    const Attached again(resID_);
    EXPECT_STREQ(textOf(again.memory), "from the child");
  }
  EXPECT_EQ(memory_.attach(&resID_, nullptr), ECF_MEM_DOESNT_EXIST);
  create();
  EXPECT_STREQ(textOf(memory_), "");
}

TEST_F(OSSHIPCMemoryTest, EachProcessMapsItWhereItLikes) {
  create();
  std::strcpy(textOf(memory_), "from the parent");
  const auto address = reinterpret_cast<uintptr_t>(freeAddress());
  EXPECT_EQ(runChild("attachMemory", {path_, std::to_string(address)}), 0u);
  EXPECT_STREQ(textOf(memory_), "from the child");
}

}  // namespace
