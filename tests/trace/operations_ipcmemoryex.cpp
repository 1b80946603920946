// The traces of extended and private shared memory.
#include "ipc/ossipcfixture.h"
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr OSSErr kInvalidParameter = 0x9000000C;
constexpr OSSErr kInvalidVersion = 0x90000004;
constexpr OSSErr kMemMissing = 0x90000047;

std::string nameOfProcess(const char* kind) {
  return kind + std::to_string(::GetCurrentProcessId());
}

Trace formed(const std::string& name) {
  return framed(Func::ossIPCGetResID, ECF_OK, {data(Func::ossIPCGetResID, 60, name)});
}

// What comes before the section is made.
Trace attributesAndName(const std::string& name) {
  return joined({securityAttributes(), formed("OSSEIPC120" + name)});
}

struct Extended {
  Extended() {
    createParam.name = attachParam.name = name.c_str();
    createParam.size = 1;
    createParam.flags = attachParam.flags = OSS_MEMORY_READ_WRITE;
  }
  ~Extended() {
    if (handle.isAttached()) {
      EXPECT_EQ(handle.detach(), ECF_OK);
    }
  }
  Extended(const Extended&) = delete;
  Extended& operator=(const Extended&) = delete;

  OSSErr create() { return handle.create(&createParam, &info); }
  OSSErr attach() { return handle.attach(&attachParam, &info); }

  const std::string name = nameOfProcess("extended ");
  OSSIPCMemoryExCreateParam createParam;
  OSSIPCMemoryExAttachParam attachParam;
  OSSIPCMemoryExInfo info;
  OSSHIPCMemoryEx handle;
};

// The name of the thread's first private section.
std::string privateName() {
  return "OSSEIPC0PRIVMEMPID" + std::to_string(::GetCurrentProcessId()) + "TID" +
         std::to_string(::GetCurrentThreadId());
}

constexpr Case kMemoryExCases[] = {
    {Func::OSSHIPCMemoryEx_create, true,
     [](Scene& s) {
       Extended memory;
       return s.plain(
           Func::OSSHIPCMemoryEx_create, [&] { return memory.create(); }, ECF_OK,
           attributesAndName(memory.name));
     }},
    {Func::OSSHIPCMemoryEx_create, false,
     [](Scene& s) {
       Extended memory;
       memory.createParam.size = 0;
       return s.plain(
           Func::OSSHIPCMemoryEx_create, [&] { return memory.create(); }, kInvalidParameter);
     }},
    {Func::OSSHIPCMemoryEx_create, false,
     [](Scene& s) {
       Extended memory;
       return s.refused(
           {Func::OSSHIPCMemoryEx_create, 160, SysCall::MapViewOfFileEx, "MapViewOfFileEx"},
           [&] { return memory.create(); }, attributesAndName(memory.name));
     }},
    // The close that fails as well does not change the code.
    {Func::OSSHIPCMemoryEx_create, false,
     [](Scene& s) {
       constexpr OSSErr kNoMemory = 0x9000000D;
       Extended memory;
       FailingCall map("MapViewOfFileEx", ERROR_NOT_ENOUGH_MEMORY);
       FailingCall close("CloseHandle", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::OSSHIPCMemoryEx_create, [&] { return memory.create(); }, kNoMemory,
           joined({attributesAndName(memory.name),
                   {error(Func::OSSHIPCMemoryEx_create, 160, kNoMemory),
                    error(Func::OSSHIPCMemoryEx_create, 200, kInvalidParameter)}}));
     }},
    {Func::OSSHIPCMemoryEx_attach, true,
     [](Scene& s) {
       Extended memory;
       EXPECT_EQ(memory.create(), ECF_OK);
       Extended other;
       return s.plain(
           Func::OSSHIPCMemoryEx_attach, [&] { return other.attach(); }, ECF_OK,
           formed("OSSEIPC120" + memory.name));
     }},
    {Func::OSSHIPCMemoryEx_attach, false,
     [](Scene& s) {
       Extended memory;
       return s.refused(
           {Func::OSSHIPCMemoryEx_attach, 100, SysCall::OpenFileMappingA, "OpenFileMappingA"},
           [&] { return memory.attach(); }, formed("OSSEIPC120" + memory.name));
     }},
    {Func::OSSHIPCMemoryEx_detach, true,
     [](Scene& s) {
       Extended memory;
       EXPECT_EQ(memory.create(), ECF_OK);
       return s.plain(Func::OSSHIPCMemoryEx_detach, [&] { return memory.handle.detach(); });
     }},
    {Func::OSSHIPCMemoryEx_detach, false,
     [](Scene& s) {
       Extended memory;
       return s.plain(Func::OSSHIPCMemoryEx_detach, [&] { return memory.handle.detach(); },
                      0x9000000A,
                      {error(Func::OSSHIPCMemoryEx_detach, 30, 0x9000000A),
                       error(Func::OSSHIPCMemoryEx_detach, 40, kInvalidParameter)});
     }},
    {Func::OSSHIPCMemoryEx_destroy, true,
     [](Scene& s) {
       Extended memory;
       EXPECT_EQ(memory.create(), ECF_OK);
       return s.plain(Func::OSSHIPCMemoryEx_destroy, [&] { return memory.handle.destroy(); });
     }},
    {Func::OSSHIPCMemoryEx_destroy, false,
     [](Scene& s) {
       Extended memory;
       EXPECT_EQ(memory.create(), ECF_OK);
       return s.refused(
           {Func::OSSHIPCMemoryEx_destroy, 30, SysCall::UnmapViewOfFile, "UnmapViewOfFile"},
           [&] { return memory.handle.destroy(); });
     }},
    {Func::OSSHIPCPrivateMemory_create, true,
     [](Scene& s) {
       OSSIPCMemoryCreateParam param;
       param.size = 1;
       OSSHIPCPrivateMemory memory;
       EXPECT_EQ(s.traced([&] { return memory.create(&param); }), ECF_OK);
       void* const view = fieldsOf(memory).address;
       EXPECT_EQ(memory.detach(), ECF_OK);
       return framed(
           Func::OSSHIPCPrivateMemory_create, ECF_OK,
           joined({formed(privateName()),
                   framed(Func::OSSHIPCMemory_create, ECF_OK,
                          joined({{data(Func::OSSHIPCMemory_create, 10, bytesOf(param))},
                                  securityAttributes(),
                                  {data(Func::OSSHIPCMemory_create, 110, bytesOf(view))}}))}));
     }},
    {Func::OSSHIPCPrivateMemory_create, false,
     [](Scene& s) {
       OSSIPCMemoryCreateParam param;
       param.resID.version = kTooOld;
       OSSHIPCPrivateMemory memory;
       return s.plain(
           Func::OSSHIPCPrivateMemory_create, [&] { return memory.create(&param); },
           kInvalidVersion, framed(Func::ossIPCGetResID, kInvalidVersion));
     }},
    {Func::OSSHIPCPrivateMemory_attach, true,
     [](Scene& s) {
       OSSIPCMemoryCreateParam param;
       param.size = 1;
       OSSHIPCPrivateMemory memory;
       EXPECT_EQ(memory.create(&param), ECF_OK);
       OSSHIPCPrivateMemory copy = memory;
       EXPECT_EQ(copy.remoteInitialization(), ECF_OK);
       const Trace trace = s.plain(
           Func::OSSHIPCPrivateMemory_attach, [&] { return copy.attach(nullptr); }, ECF_OK,
           framed(Func::OSSHIPCMemory_attach, ECF_OK));
       EXPECT_EQ(copy.detach(), ECF_OK);
       EXPECT_EQ(memory.detach(), ECF_OK);
       return trace;
     }},
    {Func::OSSHIPCPrivateMemory_attach, false,
     [](Scene& s) {
       OSSHIPCPrivateMemory never;
       return s.plain(
           Func::OSSHIPCPrivateMemory_attach, [&] { return never.attach(nullptr); }, kMemMissing,
           framed(Func::OSSHIPCMemory_attach, kMemMissing,
                  {error(Func::OSSHIPCMemory_attach, 50, kMemMissing)}));
     }},
    {Func::OSSHIPCPrivateMemory_remoteInitialization, true,
     [](Scene& s) {
       OSSIPCMemoryCreateParam param;
       param.size = 1;
       OSSHIPCPrivateMemory memory;
       EXPECT_EQ(memory.create(&param), ECF_OK);
       OSSHIPCPrivateMemory copy = memory;
       const Trace trace = s.plain(Func::OSSHIPCPrivateMemory_remoteInitialization,
                                   [&] { return copy.remoteInitialization(); });
       EXPECT_EQ(memory.detach(), ECF_OK);
       return trace;
     }},
    {Func::OSSHIPCPrivateMemory_remoteInitialization, false,
     [](Scene& s) {
       OSSHIPCPrivateMemory never;
       return s.plain(
           Func::OSSHIPCPrivateMemory_remoteInitialization,
           [&] { return never.remoteInitialization(); }, kMemMissing);
     }},
};

}  // namespace

std::span<const Case> ipcMemoryExCases() { return kMemoryExCases; }

}  // namespace osse_test
