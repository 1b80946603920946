// The traces of the operations on what processes share: names, shared memory, semaphores.
#include "ipc/ossipcfixture.h"
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr OSSErr kInvalidParameter = 0x9000000C;
constexpr OSSErr kInvalidVersion = 0x90000004;

// ---- Names and security ----

OSSIPCGetResIDParam nameParam() {
  OSSIPCGetResIDParam in;
  in.path = "p";
  return in;
}

Trace formed(const char* name) {
  return framed(Func::ossIPCGetResID, ECF_OK, {data(Func::ossIPCGetResID, 60, name)});
}

// ---- Shared memory ----

// A handle, attached if a case asks for it, that lets go of what it has at the end.
class Memory {
 public:
  Memory() {
    param.resID = resIDOf("trace " + std::to_string(::GetCurrentProcessId()));
    param.size = 1;
  }
  ~Memory() {
    if (handle.isAttached()) {
      EXPECT_EQ(handle.detach(), ECF_OK);
    }
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  void create() { ASSERT_EQ(handle.create(&param), ECF_OK); }
  TraceEvidence parameters() const {
    const std::string bytes = bytesOf(param);
    EXPECT_EQ(bytes.size(), 312u);
    return data(Func::OSSHIPCMemory_create, 10, bytes);
  }

  OSSIPCMemoryCreateParam param;
  OSSHIPCMemory handle;
};

// Shared memory whose section is closed behind its back, so that it cannot be closed again.
void closeSection(Memory& memory) { EXPECT_TRUE(::CloseHandle(fieldsOf(memory.handle).handle)); }

Trace refusedClose(Func function) {
  return framed(function, kInvalidParameter, {error(function, 40, kInvalidParameter)});
}

// ---- Semaphores ----

class Semaphore {
 public:
  Semaphore() {
    param.resID = resIDOf("trace " + std::to_string(::GetCurrentProcessId()));
    param.initialCount = 1;
  }
  ~Semaphore() {
    if (handle.isAttached()) {
      EXPECT_EQ(handle.detach(), ECF_OK);
    }
  }
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void create() { ASSERT_EQ(handle.create(&param), ECF_OK); }

  OSSIPCSemaphoreCreateParam param;
  OSSIPCSemaphoreWaitParam now;
  OSSHIPCSemaphore handle;
};

constexpr Case kIPCCases[] = {
    {Func::ossIPCGetResID, true,
     [](Scene& s) {
       const OSSIPCGetResIDParam in = nameParam();
       OSSIPCResID out;
       s.plain(Func::ossIPCGetResID, [&] { return ossIPCGetResID(&in, &out); });
       return formed("OSSEIPC0p");
     }},
    // The empty name is no name.
    {Func::ossIPCGetResID, true,
     [](Scene& s) {
       const OSSIPCGetResIDParam in;
       OSSIPCResID out;
       return s.plain(Func::ossIPCGetResID, [&] { return ossIPCGetResID(&in, &out); });
     }},
    {Func::ossIPCGetResID, false,
     [](Scene& s) {
       OSSIPCResID out;
       return s.plain(
           Func::ossIPCGetResID, [&] { return ossIPCGetResID(nullptr, &out); }, kInvalidParameter);
     }},
    {Func::ossIPCGetQueResID, true,
     [](Scene& s) {
       const OSSIPCGetResIDParam in = nameParam();
       OSSIPCQueResID out;
       return s.plain(
           Func::ossIPCGetQueResID, [&] { return ossIPCGetQueResID(&in, &out); }, ECF_OK,
           joined({formed("OSSEIPC0p"), formed("OSSEIPC1p"), formed("OSSEIPC2p")}));
     }},
    {Func::ossIPCGetQueResID, false,
     [](Scene& s) {
       const OSSIPCGetResIDParam in = nameParam();
       OSSIPCQueResID out;
       out.memory.version = kTooOld;
       return s.plain(
           Func::ossIPCGetQueResID, [&] { return ossIPCGetQueResID(&in, &out); }, kInvalidVersion,
           joined({framed(Func::ossIPCGetResID, kInvalidVersion),
                   {error(Func::ossIPCGetQueResID, 20, kInvalidVersion)}}));
     }},
    {Func::ossIPCGetQueResID, false,
     [](Scene& s) {
       const OSSIPCGetResIDParam in = nameParam();
       OSSIPCQueResID out;
       out.dataSemaphore.version = kTooOld;
       return s.plain(
           Func::ossIPCGetQueResID, [&] { return ossIPCGetQueResID(&in, &out); }, kInvalidVersion,
           joined({formed("OSSEIPC0p"),
                   framed(Func::ossIPCGetResID, kInvalidVersion),
                   {error(Func::ossIPCGetQueResID, 30, kInvalidVersion)}}));
     }},
    {Func::ossIPCGetQueResID, false,
     [](Scene& s) {
       const OSSIPCGetResIDParam in = nameParam();
       OSSIPCQueResID out;
       out.spaceSemaphore.version = kTooOld;
       return s.plain(
           Func::ossIPCGetQueResID, [&] { return ossIPCGetQueResID(&in, &out); }, kInvalidVersion,
           joined({formed("OSSEIPC0p"),
                   formed("OSSEIPC1p"),
                   framed(Func::ossIPCGetResID, kInvalidVersion),
                   {error(Func::ossIPCGetQueResID, 40, kInvalidVersion)}}));
     }},
    // The process's own attributes are copied.
    {Func::ossInitSecurityAttributes, true,
     [](Scene& s) {
       SECURITY_ATTRIBUTES own = {sizeof own, nullptr, FALSE};
       Semaphore semaphore;
       ossSetSecurityAttributesForOSS(&own);
       const Trace trace = s.plain(
           Func::OSSHIPCSemaphore_create, [&] { return semaphore.handle.create(&semaphore.param); },
           ECF_OK, framed(Func::ossInitSecurityAttributes, ECF_OK));
       ossSetSecurityAttributesForOSS(nullptr);
       return trace;
     }},
    {Func::ossInitSecurityAttributes, false,
     [](Scene& s) {
       Semaphore semaphore;
       FailingCall fails("InitializeSecurityDescriptor", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::OSSHIPCSemaphore_create, [&] { return semaphore.handle.create(&semaphore.param); },
           kInvalidParameter, refusedAttributes());
     }},
    {Func::ossInitSecurityAttributes2, true,
     [](Scene& s) {
       Semaphore semaphore;
       return s.plain(
           Func::OSSHIPCSemaphore_create, [&] { return semaphore.handle.create(&semaphore.param); },
           ECF_OK, securityAttributes());
     }},
    {Func::ossInitSecurityAttributes2, false,
     [](Scene& s) {
       Semaphore semaphore;
       FailingCall fails("SetSecurityDescriptorDacl", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::OSSHIPCSemaphore_create, [&] { return semaphore.handle.create(&semaphore.param); },
           kInvalidParameter, refusedAttributes(20));
     }},
    {Func::OSSHIPCMemory_create, true,
     [](Scene& s) {
       Memory memory;
       EXPECT_EQ(s.traced([&] { return memory.handle.create(&memory.param); }), ECF_OK);
       void* const view = fieldsOf(memory.handle).address;
       return framed(Func::OSSHIPCMemory_create, ECF_OK,
                     joined({{memory.parameters()},
                             securityAttributes(),
                             {data(Func::OSSHIPCMemory_create, 110, bytesOf(view))}}));
     }},
    {Func::OSSHIPCMemory_create, false,
     [](Scene& s) {
       Memory memory;
       return s.plain(
           Func::OSSHIPCMemory_create, [&] { return memory.handle.create(nullptr); },
           kInvalidParameter);
     }},
    {Func::OSSHIPCMemory_create, false,
     [](Scene& s) {
       Memory memory;
       FailingCall fails("InitializeSecurityDescriptor", ERROR_INVALID_HANDLE);
       const HANDLE none = INVALID_HANDLE_VALUE;
       return s.plain(
           Func::OSSHIPCMemory_create, [&] { return memory.handle.create(&memory.param); },
           kInvalidParameter,
           joined({{memory.parameters()},
                   refusedAttributes(),
                   {data(Func::OSSHIPCMemory_create, 60, bytesOf(none))}}));
     }},
    {Func::OSSHIPCMemory_create, false,
     [](Scene& s) {
       Memory memory;
       FailingCall fails("CreateFileMappingA", ERROR_INVALID_HANDLE);
       const HANDLE null = nullptr;
       return s.plain(
           Func::OSSHIPCMemory_create, [&] { return memory.handle.create(&memory.param); },
           kInvalidParameter,
           joined({{memory.parameters()},
                   securityAttributes(),
                   {error(Func::OSSHIPCMemory_create, 80, kInvalidParameter),
                    data(Func::OSSHIPCMemory_create, 80, bytesOf(null))}}));
     }},
    {Func::OSSHIPCMemory_destroy, true,
     [](Scene& s) {
       Memory memory;
       memory.create();
       return s.plain(
           Func::OSSHIPCMemory_destroy, [&] { return memory.handle.destroy(); }, ECF_OK,
           framed(Func::OSSHIPCMemory_detach, ECF_OK));
     }},
    // Deliberate: not passed on.
    {Func::OSSHIPCMemory_destroy, false,
     [](Scene& s) {
       Memory memory;
       memory.create();
       closeSection(memory);
       return s.plain(
           Func::OSSHIPCMemory_destroy, [&] { return memory.handle.destroy(); }, ECF_OK,
           refusedClose(Func::OSSHIPCMemory_detach));
     }},
    {Func::OSSHIPCMemory_attach, true,
     [](Scene& s) {
       Memory memory;
       memory.create();
       OSSHIPCMemory other;
       const Trace trace = s.plain(Func::OSSHIPCMemory_attach,
                                   [&] { return other.attach(&memory.param.resID, nullptr); });
       EXPECT_EQ(other.detach(), ECF_OK);
       return trace;
     }},
    {Func::OSSHIPCMemory_attach, false,
     [](Scene& s) {
       constexpr OSSErr kMissing = 0x90000047;
       Memory memory;
       return s.plain(Func::OSSHIPCMemory_attach,
                      [&] { return memory.handle.attach(&memory.param.resID, nullptr); }, kMissing,
                      {error(Func::OSSHIPCMemory_attach, 50, kMissing)});
     }},
    {Func::OSSHIPCMemory_attach, false,
     [](Scene& s) {
       Memory memory;
       memory.create();
       OSSHIPCMemory other;
       return s.refused(
           {Func::OSSHIPCMemory_attach, 70, SysCall::MapViewOfFileEx, "MapViewOfFileEx"},
           [&] { return other.attach(&memory.param.resID, nullptr); });
     }},
    {Func::OSSHIPCMemory_detach, true,
     [](Scene& s) {
       Memory memory;
       memory.create();
       return s.plain(Func::OSSHIPCMemory_detach, [&] { return memory.handle.detach(); });
     }},
    {Func::OSSHIPCMemory_detach, false,
     [](Scene& s) {
       OSSHIPCMemory never;
       return s.plain(Func::OSSHIPCMemory_detach, [&] { return never.detach(); }, kInvalidParameter,
                      {error(Func::OSSHIPCMemory_detach, 30, 0x9000000A),
                       error(Func::OSSHIPCMemory_detach, 40, kInvalidParameter)});
     }},
    {Func::OSSHIPCMemory_detachAndDestroy, true,
     [](Scene& s) {
       Memory memory;
       memory.create();
       return s.plain(Func::OSSHIPCMemory_detachAndDestroy,
                      [&] { return memory.handle.detachAndDestroy(); });
     }},
    {Func::OSSHIPCMemory_detachAndDestroy, false,
     [](Scene& s) {
       Memory memory;
       memory.create();
       closeSection(memory);
       s.traced([&] { return memory.handle.detachAndDestroy(); });
       return refusedClose(Func::OSSHIPCMemory_detachAndDestroy);
     }},
    {Func::OSSHIPCMemory_authorize, true,
     [](Scene& s) {
       const OSSIPCSecurityParam param;
       Memory memory;
       return s.plain(Func::OSSHIPCMemory_authorize,
                      [&] { return memory.handle.authorize(&param); });
     }},
    {Func::OSSHIPCMemory_authorize, false,
     [](Scene& s) {
       Memory memory;
       return s.plain(
           Func::OSSHIPCMemory_authorize, [&] { return memory.handle.authorize(nullptr); },
           kInvalidParameter);
     }},
    {Func::OSSHIPCMemory_getAddress, true,
     [](Scene& s) {
       Memory memory;
       void* address = nullptr;
       return s.plain(Func::OSSHIPCMemory_getAddress,
                      [&] { return memory.handle.getAddress(&address); });
     }},
    {Func::OSSHIPCMemory_getAddress, false,
     [](Scene& s) {
       Memory memory;
       return s.plain(
           Func::OSSHIPCMemory_getAddress, [&] { return memory.handle.getAddress(nullptr); },
           kInvalidParameter);
     }},
    {Func::OSSHIPCMemory_getMemorySize, true,
     [](Scene& s) {
       Memory memory;
       uint64_t size = 0;
       return s.plain(Func::OSSHIPCMemory_getMemorySize,
                      [&] { return memory.handle.getMemorySize(&size); });
     }},
    {Func::OSSHIPCMemory_getMemorySize, false,
     [](Scene& s) {
       Memory memory;
       uint64_t size = 0;
       FailingCall fails("VirtualQueryEx", ERROR_INVALID_HANDLE);
       return s.plain(Func::OSSHIPCMemory_getMemorySize,
                      [&] { return memory.handle.getMemorySize(&size); }, 0x90000002,
                      {error(Func::OSSHIPCMemory_getMemorySize, 30, 0x90000002)});
     }},
    {Func::OSSHIPCSemaphore_create, true,
     [](Scene& s) {
       Semaphore semaphore;
       return s.plain(
           Func::OSSHIPCSemaphore_create, [&] { return semaphore.handle.create(&semaphore.param); },
           ECF_OK, securityAttributes());
     }},
    {Func::OSSHIPCSemaphore_create, false,
     [](Scene& s) {
       OSSHIPCSemaphore handle;
       const Semaphore semaphore;
       return s.refused(
           {Func::OSSHIPCSemaphore_create, 80, SysCall::CreateSemaphoreA, "CreateSemaphoreA"},
           [&] { return handle.create(&semaphore.param); }, securityAttributes());
     }},
    {Func::OSSHIPCSemaphore_destroy, true,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       return s.plain(
           Func::OSSHIPCSemaphore_destroy, [&] { return semaphore.handle.destroy(); }, ECF_OK,
           framed(Func::OSSHIPCSemaphore_detach, ECF_OK));
     }},
    {Func::OSSHIPCSemaphore_destroy, false,
     [](Scene& s) {
       Semaphore semaphore;
       return s.plain(
           Func::OSSHIPCSemaphore_destroy, [&] { return semaphore.handle.destroy(); },
           kInvalidParameter,
           framed(Func::OSSHIPCSemaphore_detach, kInvalidParameter,
                  {error(Func::OSSHIPCSemaphore_detach, 30, kInvalidParameter)}));
     }},
    {Func::OSSHIPCSemaphore_attach, true,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       OSSHIPCSemaphore other;
       const Trace trace = s.plain(Func::OSSHIPCSemaphore_attach,
                                   [&] { return other.attach(&semaphore.param.resID); });
       EXPECT_EQ(other.detach(), ECF_OK);
       return trace;
     }},
    {Func::OSSHIPCSemaphore_attach, false,
     [](Scene& s) {
       constexpr OSSErr kMissing = 0x9000004F;
       Semaphore semaphore;
       return s.plain(Func::OSSHIPCSemaphore_attach,
                      [&] { return semaphore.handle.attach(&semaphore.param.resID); }, kMissing,
                      {error(Func::OSSHIPCSemaphore_attach, 40, kMissing)});
     }},
    {Func::OSSHIPCSemaphore_attach, false,
     [](Scene& s) {
       Semaphore semaphore;
       return s.refused(
           {Func::OSSHIPCSemaphore_attach, 40, SysCall::OpenSemaphoreA, "OpenSemaphoreA"},
           [&] { return semaphore.handle.attach(&semaphore.param.resID); });
     }},
    {Func::OSSHIPCSemaphore_detach, true,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       return s.plain(Func::OSSHIPCSemaphore_detach, [&] { return semaphore.handle.detach(); });
     }},
    {Func::OSSHIPCSemaphore_detach, false,
     [](Scene& s) {
       Semaphore semaphore;
       return s.plain(Func::OSSHIPCSemaphore_detach, [&] { return semaphore.handle.detach(); },
                      kInvalidParameter,
                      {error(Func::OSSHIPCSemaphore_detach, 30, kInvalidParameter)});
     }},
    {Func::OSSHIPCSemaphore_post, true,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       return s.plain(Func::OSSHIPCSemaphore_post, [&] { return semaphore.handle.post(); });
     }},
    {Func::OSSHIPCSemaphore_post, false,
     [](Scene& s) {
       Semaphore semaphore;
       return s.refused(
           {Func::OSSHIPCSemaphore_post, 40, SysCall::ReleaseSemaphore, "ReleaseSemaphore"},
           [&] { return semaphore.handle.post(); });
     }},
    {Func::OSSHIPCSemaphore_wait, true,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       return s.plain(Func::OSSHIPCSemaphore_wait,
                      [&] { return semaphore.handle.wait(&semaphore.now); });
     }},
    // Neither the end of the time nor an abandoned object is an error point.
    {Func::OSSHIPCSemaphore_wait, false,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.param.initialCount = 0;
       semaphore.create();
       return s.plain(
           Func::OSSHIPCSemaphore_wait, [&] { return semaphore.handle.wait(&semaphore.now); },
           0x90000013);
     }},
    {Func::OSSHIPCSemaphore_wait, false,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       ImportHook abandoned("WaitForSingleObject", [](Call&) { return WAIT_ABANDONED; });
       return s.plain(
           Func::OSSHIPCSemaphore_wait, [&] { return semaphore.handle.wait(&semaphore.now); },
           0x90000080);
     }},
    {Func::OSSHIPCSemaphore_wait, false,
     [](Scene& s) {
       Semaphore semaphore;
       semaphore.create();
       return s.refused({Func::OSSHIPCSemaphore_wait, 110, SysCall::WaitForSingleObject,
                         "WaitForSingleObject", WAIT_FAILED},
                        [&] { return semaphore.handle.wait(&semaphore.now); });
     }},
    {Func::OSSHIPCSemaphore_authorize, true,
     [](Scene& s) {
       const OSSIPCSecurityParam param;
       Semaphore semaphore;
       return s.plain(Func::OSSHIPCSemaphore_authorize,
                      [&] { return semaphore.handle.authorize(&param); });
     }},
    {Func::OSSHIPCSemaphore_authorize, false,
     [](Scene& s) {
       Semaphore semaphore;
       return s.plain(
           Func::OSSHIPCSemaphore_authorize, [&] { return semaphore.handle.authorize(nullptr); },
           kInvalidParameter);
     }},
};

}  // namespace

std::span<const Case> ipcCases() { return kIPCCases; }

}  // namespace osse_test
