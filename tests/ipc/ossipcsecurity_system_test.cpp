// With which security attributes named objects are created, seen where the system is given them.
#include "ipc/ossipcfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// What the system is told of who may open an object.
struct Attributes {
  DWORD length = 0;
  BOOL inherit = FALSE;
  void* descriptor = nullptr;
  SECURITY_DESCRIPTOR content = {};
};

Attributes attributesOf(const Call& call, size_t argument) {
  Attributes attributes;
  const auto* const told = call.argument<const SECURITY_ATTRIBUTES*>(argument);
  attributes.length = told->nLength;
  attributes.inherit = told->bInheritHandle;
  attributes.descriptor = told->lpSecurityDescriptor;
  if (attributes.descriptor != nullptr)
    std::memcpy(&attributes.content, attributes.descriptor, sizeof attributes.content);
  return attributes;
}

// Everybody may do everything: an access list is present and null.
void expectOpenToEverybody(const Attributes& attributes) {
  EXPECT_EQ(attributes.length, 24u);
  EXPECT_EQ(attributes.inherit, TRUE);
  ASSERT_NE(attributes.descriptor, nullptr);
  SECURITY_DESCRIPTOR descriptor = attributes.content;
  ACL* list = reinterpret_cast<ACL*>(&descriptor);
  BOOL present = FALSE;
  BOOL defaulted = TRUE;
  EXPECT_TRUE(::GetSecurityDescriptorDacl(&descriptor, &present, &list, &defaulted));
  EXPECT_TRUE(present);
  EXPECT_EQ(list, nullptr);
  EXPECT_FALSE(defaulted);
  EXPECT_EQ(descriptor.Revision, 1);
}

class IPCSecurityTest : public IPCTest {
 protected:
  IPCSecurityTest() {
    memoryParam_.resID = resID_;
    memoryParam_.size = 1;
    semaphoreParam_.resID = resIDOf(path_, 1);
  }
  ~IPCSecurityTest() override { ossSetSecurityAttributesForOSS(nullptr); }

  // Creates both kinds of objects and returns what the system is told for each.
  std::vector<Attributes> createBoth() {
    std::vector<Attributes> told;
    ImportHook sections("CreateFileMappingA", [&](Call& call) {
      told.push_back(attributesOf(call, 1));
      return call.passOn();
    });
    ImportHook semaphores("CreateSemaphoreA", [&](Call& call) {
      told.push_back(attributesOf(call, 0));
      return call.passOn();
    });
    OSSHIPCMemory memory;
    EXPECT_EQ(memory.create(&memoryParam_), ECF_OK);
    EXPECT_EQ(memory.detach(), ECF_OK);
    OSSHIPCSemaphore semaphore;
    EXPECT_EQ(semaphore.create(&semaphoreParam_), ECF_OK);
    EXPECT_EQ(semaphore.detach(), ECF_OK);
    return told;
  }

  // Runs a create of a semaphore that fails inside the default builder, at this probe and call.
  void expectFailure(uint64_t probe, SysCall call, const char* name) {
    void* descriptor = nullptr;
    {
      ImportHook fails(name, [&](Call& refused) {
        descriptor = refused.argument<void*>(0);
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
      CallCounter creates("CreateSemaphoreA");
      OSSHIPCSemaphore semaphore;
      EXPECT_EQ(semaphore.create(&semaphoreParam_), ECF_ACCESS_DENIED);
      EXPECT_FALSE(semaphore.isAttached());
      EXPECT_EQ(creates.calls(), 0);
    }
    EXPECT_THAT(
        log_.newRecords(),
        ElementsAre(
            SystemRecord(OSS_LOG_INFO, Func::ossInitSecurityAttributes2, probe, call,
                         ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(descriptor)}}),
            CalledRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_create, 70,
                         Func::ossInitSecurityAttributes, ECF_ACCESS_DENIED, ECF_ACCESS_DENIED)));
  }

  OSSIPCMemoryCreateParam memoryParam_;
  OSSIPCSemaphoreCreateParam semaphoreParam_;
};

TEST_F(IPCSecurityTest, ByDefaultEverybodyMayDoEverythingAndChildrenInherit) {
  const std::vector<Attributes> told = createBoth();
  ASSERT_EQ(told.size(), 2u);
  for (const Attributes& each : told) expectOpenToEverybody(each);
}

TEST_F(IPCSecurityTest, TheProcessesOwnAttributesAreUsedUntilNull) {
  SECURITY_DESCRIPTOR descriptor;
  ASSERT_TRUE(::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
  SECURITY_ATTRIBUTES own = {sizeof own, &descriptor, FALSE};
  ossSetSecurityAttributesForOSS(&own);
  for (const Attributes& each : createBoth()) {
    EXPECT_EQ(each.length, 24u);
    EXPECT_EQ(each.descriptor, &descriptor);
    EXPECT_EQ(each.inherit, FALSE);
  }

  // The record stays the caller's: what it holds at the time of a create counts.
  own = {sizeof own, nullptr, TRUE};
  for (const Attributes& each : createBoth()) {
    EXPECT_EQ(each.descriptor, nullptr);
    EXPECT_EQ(each.inherit, TRUE);
  }

  ossSetSecurityAttributesForOSS(nullptr);
  for (const Attributes& each : createBoth()) expectOpenToEverybody(each);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(IPCSecurityTest, ARefusedDescriptorIsLoggedAndEndsTheCreate) {
  expectFailure(10, SysCall::InitializeSecurityDescriptor, "InitializeSecurityDescriptor");
  expectFailure(20, SysCall::SetSecurityDescriptorDacl, "SetSecurityDescriptorDacl");
}

TEST_F(IPCSecurityTest, TheProcessesOwnAttributesNeedNoDescriptorOfTheLibrary) {
  SECURITY_ATTRIBUTES own = {sizeof own, nullptr, FALSE};
  ossSetSecurityAttributesForOSS(&own);
  CallCounter initialisations("InitializeSecurityDescriptor");
  static_cast<void>(createBoth());
  EXPECT_EQ(initialisations.calls(), 0);
}

}  // namespace
