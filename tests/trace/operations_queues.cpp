// The traces of the message queue's operations. They call those of shared memory and semaphores,
// whose own records are in operations_ipc.cpp.
#include "ipc/ossipcqueuefixture.h"
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr OSSErr kInvalidParameter = 0x9000000C;
constexpr OSSErr kNoMemoryThere = 0x90000047;
constexpr OSSErr kNoQueue = 0x9000005B;
constexpr OSSErr kTimeout = 0x90000013;
constexpr OSSErr kUnattached = 0x90000003;

// A handle, attached if a case asks for it, that lets go of what it has at the end.
class Queue {
 public:
  Queue() : param(queueParam("trace " + std::to_string(::GetCurrentProcessId()), 16)) {}
  ~Queue() {
    if (handle.isAttached()) {
      EXPECT_EQ(handle.detach(), ECF_OK);
    }
  }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  void create() { ASSERT_EQ(handle.create(&param), ECF_OK); }

  OSSIPCQueueCreateParam param;
  OSSHIPCQueue handle;
};

Trace semaphoreMade() {
  return framed(Func::OSSHIPCSemaphore_create, ECF_OK, securityAttributes());
}

// The record with which the queue makes its section.
TraceEvidence sectionParameters(const OSSIPCQueueCreateParam& param) {
  OSSIPCMemoryCreateParam section;
  section.resID = param.resID.memory;
  section.size = 16 + 40;
  return data(Func::OSSHIPCMemory_create, 10, bytesOf(section));
}

constexpr Case kQueueCases[] = {
    {Func::OSSHIPCQueue_create, true,
     [](Scene& s) {
       Queue queue;
       EXPECT_EQ(s.traced([&] { return queue.handle.create(&queue.param); }), ECF_OK);
       void* const view = fieldsOf(queue.handle).memory.address;
       return framed(
           Func::OSSHIPCQueue_create, ECF_OK,
           joined({framed(Func::OSSHIPCMemory_create, ECF_OK,
                          joined({{sectionParameters(queue.param)},
                                  securityAttributes(),
                                  {data(Func::OSSHIPCMemory_create, 110, bytesOf(view))}})),
                   semaphoreMade(), semaphoreMade(), framed(Func::OSSHIPCSemaphore_wait, ECF_OK),
                   framed(Func::OSSHIPCSemaphore_wait, ECF_OK),
                   framed(Func::OSSHIPCMemory_getAddress, ECF_OK)}));
     }},
    {Func::OSSHIPCQueue_create, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(
           Func::OSSHIPCQueue_create, [&] { return queue.handle.create(nullptr); },
           kInvalidParameter);
     }},
    {Func::OSSHIPCQueue_destroy, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       const Trace semaphore = framed(Func::OSSHIPCSemaphore_destroy, ECF_OK,
                                      framed(Func::OSSHIPCSemaphore_detach, ECF_OK));
       return s.plain(
           Func::OSSHIPCQueue_destroy, [&] { return queue.handle.destroy(); }, ECF_OK,
           joined({framed(Func::OSSHIPCMemory_destroy, ECF_OK,
                          framed(Func::OSSHIPCMemory_detach, ECF_OK)),
                   semaphore, semaphore}));
     }},
    {Func::OSSHIPCQueue_destroy, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(
           Func::OSSHIPCQueue_destroy, [&] { return queue.handle.destroy(); }, kInvalidParameter,
           joined({framed(Func::OSSHIPCMemory_destroy, ECF_OK,
                          framed(Func::OSSHIPCMemory_detach, kInvalidParameter,
                                 {error(Func::OSSHIPCMemory_detach, 30, 0x9000000A),
                                  error(Func::OSSHIPCMemory_detach, 40, kInvalidParameter)})),
                   framed(Func::OSSHIPCSemaphore_destroy, kInvalidParameter,
                          framed(Func::OSSHIPCSemaphore_detach, kInvalidParameter,
                                 {error(Func::OSSHIPCSemaphore_detach, 30, kInvalidParameter)}))}));
     }},
    {Func::OSSHIPCQueue_attach, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       OSSHIPCQueue other;
       const Trace trace = s.plain(
           Func::OSSHIPCQueue_attach, [&] { return other.attach(&queue.param.resID); }, ECF_OK,
           joined({framed(Func::OSSHIPCMemory_attach, ECF_OK),
                   framed(Func::OSSHIPCSemaphore_attach, ECF_OK),
                   framed(Func::OSSHIPCSemaphore_attach, ECF_OK),
                   framed(Func::OSSHIPCMemory_getAddress, ECF_OK)}));
       EXPECT_EQ(other.detach(), ECF_OK);
       return trace;
     }},
    {Func::OSSHIPCQueue_attach, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(
           Func::OSSHIPCQueue_attach, [&] { return queue.handle.attach(&queue.param.resID); },
           kNoQueue,
           framed(Func::OSSHIPCMemory_attach, kNoMemoryThere,
                  {error(Func::OSSHIPCMemory_attach, 50, kNoMemoryThere)}));
     }},
    {Func::OSSHIPCQueue_detach, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       return s.plain(
           Func::OSSHIPCQueue_detach, [&] { return queue.handle.detach(); }, ECF_OK,
           joined({framed(Func::OSSHIPCMemory_detach, ECF_OK),
                   framed(Func::OSSHIPCSemaphore_detach, ECF_OK),
                   framed(Func::OSSHIPCSemaphore_detach, ECF_OK)}));
     }},
    {Func::OSSHIPCQueue_detach, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(
           Func::OSSHIPCQueue_detach, [&] { return queue.handle.detach(); }, kInvalidParameter,
           framed(Func::OSSHIPCMemory_detach, kInvalidParameter,
                  {error(Func::OSSHIPCMemory_detach, 30, 0x9000000A),
                   error(Func::OSSHIPCMemory_detach, 40, kInvalidParameter)}));
     }},
    {Func::OSSHIPCQueue_flush, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       headerOf(queue.handle).readerWaiting = 1;
       return s.plain(
           Func::OSSHIPCQueue_flush, [&] { return queue.handle.flush(); }, ECF_OK,
           framed(Func::OSSHIPCSemaphore_post, ECF_OK));
     }},
    {Func::OSSHIPCQueue_flush, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(
           Func::OSSHIPCQueue_flush, [&] { return queue.handle.flush(); }, kUnattached);
     }},
    {Func::OSSHIPCQueue_put, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       return s.plain(Func::OSSHIPCQueue_put, [&] { return put(queue.handle, "abc"); });
     }},
    {Func::OSSHIPCQueue_put, false,
     [](Scene& s) {
       Queue queue;
       queue.create();
       headerOf(queue.handle).readerWaiting = 1;
       FailingCall fails("ReleaseSemaphore", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::OSSHIPCQueue_put, [&] { return put(queue.handle, "abc"); }, kInvalidParameter,
           framed(Func::OSSHIPCSemaphore_post, kInvalidParameter,
                  {error(Func::OSSHIPCSemaphore_post, 40, kInvalidParameter)}));
     }},
    {Func::OSSHIPCQueue_get, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       EXPECT_EQ(put(queue.handle, "abc"), ECF_OK);
       char buffer[3];
       return s.plain(Func::OSSHIPCQueue_get,
                      [&] { return queue.handle.get(buffer, sizeof buffer, nullptr, 0); });
     }},
    {Func::OSSHIPCQueue_get, false,
     [](Scene& s) {
       Queue queue;
       queue.create();
       return s.plain(
           Func::OSSHIPCQueue_get, [&] { return queue.handle.get(nullptr, 0, nullptr, 1); },
           kTimeout, framed(Func::OSSHIPCSemaphore_wait, kTimeout));
     }},
    // Deliberate: it has no code to fail with.
    {Func::OSSHIPCQueue_hasMessage, true,
     [](Scene& s) {
       Queue queue;
       queue.create();
       EXPECT_EQ(put(queue.handle, "abc"), ECF_OK);
       return s.plain(Func::OSSHIPCQueue_hasMessage, [&] {
         EXPECT_TRUE(queue.handle.hasMessage());
         return ECF_OK;
       });
     }},
    {Func::OSSHIPCQueue_hasMessage, false,
     [](Scene& s) {
       Queue queue;
       return s.plain(Func::OSSHIPCQueue_hasMessage, [&] {
         EXPECT_FALSE(queue.handle.hasMessage());
         return ECF_OK;
       });
     }},
};

}  // namespace

std::span<const Case> queueCases() { return kQueueCases; }

}  // namespace osse_test
