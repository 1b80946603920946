// The traces of waitposts.
#include "ossipcwaitpost.h"
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr OSSErr kNoWaitpost = 0x900003FF;
constexpr OSSErr kNotPosted = 0x90000400;

// A waitpost with a name, that of this process.
struct Waitpost {
  Waitpost() {
    const std::string name = "osse-trace-" + std::to_string(::GetCurrentProcessId());
    name.copy(id.name, sizeof id.name - 1);
    forCreate.controlBlock = forOpen.controlBlock = &block;
    forCreate.resID = forOpen.resID = &id;
  }
  OSSErr create() { return handle.create(&forCreate); }
  void make() { EXPECT_EQ(create(), ECF_OK); }
  void end() { EXPECT_EQ(handle.destroy(), ECF_OK); }

  OSSIPCWaitpostControlBlock block;
  OSSIPCResID id;
  OSSIPCWaitpostCreateParam forCreate;
  OSSIPCWaitpostOpenParam forOpen;
  OSSIPCWaitpostWaitParam forWait;
  OSSHIPCWaitpost handle;
};

// One that is played on a waitpost that exists, and ends it.
template <class Play>
Trace onAWaitpost(Play play) {
  Waitpost waitpost;
  waitpost.make();
  Trace trace = play(waitpost);
  waitpost.end();
  return trace;
}

constexpr Case kWaitpostCases[] = {
    {Func::OSSHIPCWaitpost_create, true,
     [](Scene& s) {
       Waitpost w;
       Trace trace = s.plain(
           Func::OSSHIPCWaitpost_create, [&] { return w.create(); }, ECF_OK, securityAttributes());
       w.end();
       return trace;
     }},
    {Func::OSSHIPCWaitpost_create, false,
     [](Scene& s) {
       Waitpost w;
       return s.refused(
           {Func::OSSHIPCWaitpost_create, 130, SysCall::CreateEventA, "CreateEventA"},
           [&] { return w.create(); }, securityAttributes());
     }},
    {Func::OSSHIPCWaitpost_open, true,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         OSSHIPCWaitpost second;
         Trace trace = s.plain(Func::OSSHIPCWaitpost_open, [&] { return second.open(&w.forOpen); });
         EXPECT_EQ(second.close(), ECF_OK);
         return trace;
       });
     }},
    {Func::OSSHIPCWaitpost_open, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         OSSHIPCWaitpost second;
         return s.refused({Func::OSSHIPCWaitpost_open, 40, SysCall::OpenEventA, "OpenEventA"},
                          [&] { return second.open(&w.forOpen); });
       });
     }},
    {Func::OSSHIPCWaitpost_wait, true,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         EXPECT_EQ(w.handle.post(nullptr), ECF_OK);
         return s.plain(Func::OSSHIPCWaitpost_wait,
                        [&] { return w.handle.wait(&w.forWait, nullptr); });
       });
     }},
    // An answer, and no error.
    {Func::OSSHIPCWaitpost_wait, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.plain(
             Func::OSSHIPCWaitpost_wait, [&] { return w.handle.wait(&w.forWait, nullptr); },
             kNotPosted);
       });
     }},
    {Func::OSSHIPCWaitpost_wait, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         constexpr OSSErr kTimedOut = 0x90000013;
         w.forWait.timeout = 1;
         return s.plain(Func::OSSHIPCWaitpost_wait,
                        [&] { return w.handle.wait(&w.forWait, nullptr); }, kTimedOut,
                        {error(Func::OSSHIPCWaitpost_wait, 110, kTimedOut)});
       });
     }},
    {Func::OSSHIPCWaitpost_post, true,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.plain(Func::OSSHIPCWaitpost_post, [&] { return w.handle.post(nullptr); });
       });
     }},
    {Func::OSSHIPCWaitpost_post, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.refused({Func::OSSHIPCWaitpost_post, 70, SysCall::SetEvent, "SetEvent"},
                          [&] { return w.handle.post(nullptr); });
       });
     }},
    {Func::OSSHIPCWaitpost_reset, true,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.plain(Func::OSSHIPCWaitpost_reset, [&] { return w.handle.reset(); });
       });
     }},
    // The error point is reset's own, though the log record is not.
    {Func::OSSHIPCWaitpost_reset, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.refused({Func::OSSHIPCWaitpost_reset, 50, SysCall::ResetEvent, "ResetEvent"},
                          [&] { return w.handle.reset(); });
       });
     }},
    {Func::OSSHIPCWaitpost_close, true,
     [](Scene& s) {
       Waitpost w;
       w.make();
       return s.plain(Func::OSSHIPCWaitpost_close, [&] { return w.handle.close(); });
     }},
    {Func::OSSHIPCWaitpost_close, false,
     [](Scene& s) {
       return onAWaitpost([&](Waitpost& w) {
         return s.refused({Func::OSSHIPCWaitpost_close, 20, SysCall::CloseHandle, "CloseHandle"},
                          [&] { return w.handle.close(); });
       });
     }},
    {Func::OSSHIPCWaitpost_destroy, true,
     [](Scene& s) {
       Waitpost w;
       w.make();
       return s.plain(Func::OSSHIPCWaitpost_destroy, [&] { return w.handle.destroy(); });
     }},
    {Func::OSSHIPCWaitpost_destroy, false,
     [](Scene& s) {
       Waitpost w;
       return s.plain(
           Func::OSSHIPCWaitpost_destroy, [&] { return w.handle.destroy(); }, kNoWaitpost);
     }},
};

}  // namespace

std::span<const Case> waitpostCases() { return kWaitpostCases; }

}  // namespace osse_test
