// The traces of processes and of dynamic libraries.
#include "ossprocess.h"
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

// ---- Processes ----

// Plays the system's part: a child that has ended already with exit code 0.
BOOL startMadeUpChild(Call& call) {
  const HANDLE process = ::CreateEventA(nullptr, TRUE, TRUE, nullptr);
  const HANDLE thread = ::CreateEventA(nullptr, TRUE, TRUE, nullptr);
  *call.argument<PROCESS_INFORMATION*>(9) = {process, thread, 1, 2};
  return TRUE;
}

OSSErr startProgram(uint64_t flags, const char* arguments = nullptr) {
  OSSHProcess process;
  OSSProcessParam param;
  param.program = "a";
  param.arguments = arguments;
  param.flags = flags;
  return process.create(&param, nullptr, nullptr);
}

// Of the half that starts the child, with what comes behind the security attributes.
Trace started(OSSErr rc, const Trace& rest = {}) {
  return framed(Func::OSSHProcess_createProcess, rc, joined({securityAttributes(), rest}));
}

// A command line for which there is no memory: the program alone, or with its arguments.
Trace withoutMemory(Scene& s, int allocation, uint16_t probe) {
  FailingCall fails("malloc", ERROR_NOT_ENOUGH_MEMORY, {.onCall = allocation});
  return s.plain(
      Func::OSSHProcess_create, [] { return startProgram(0, "b\0"); }, ECF_NO_MEMORY,
      framed(Func::OSSHProcess_createProcess, ECF_NO_MEMORY,
             {error(Func::OSSHProcess_createProcess, probe, ECF_NO_MEMORY)}));
}

// A child that is waited for in vain: the system's answer to one call of the half that waits, and
// what that half records before its exit.
Trace waitedInVain(Scene& s, const char* call, Word result, OSSErr rc, const Trace& within) {
  ImportHook child("CreateProcessA", startMadeUpChild);
  FailingCall fails(call, ERROR_ACCESS_DENIED, {.result = result});
  return s.plain(
      Func::OSSHProcess_create, [] { return startProgram(OSS_PROCESS_SYNCHRONOUS); }, rc,
      started(rc, framed(Func::OSSHProcess_wait, rc, within)));
}

// ---- Libraries ----

constexpr char kLibrary[] = "lz32.dll";
constexpr OSSErr kNotLoaded = 0x90000045;
constexpr OSSErr kCannotLoad = 0x90000076;
constexpr OSSErr kNotFound = 0x90000078;
constexpr OSSErr kPartial = 0x10000006;

// One that is played on a library that is loaded, and unloads it.
template <class Play>
Trace onALibrary(Play play) {
  OSSHLibrary library;
  EXPECT_EQ(library.load(kLibrary, 0), ECF_OK);
  Trace trace = play(library);
  EXPECT_EQ(library.unload(), ECF_OK);
  return trace;
}

OSSErr lookUp(OSSHLibrary& library, const char* name, uint64_t flags = 0) {
  OSSLibGetFuncAddressParam param;
  param.functionName = name;
  param.flags = flags;
  OSSLibGetFuncAddressInfo info;
  return library.getFuncAddress(&param, &info);
}

OSSErr lookUpTwo(OSSHLibrary& library, const char* first, const char* second) {
  const char* const names[] = {first, second};
  OSSLibGetFunctionAddressesParam param;
  param.count = 2;
  param.functionNames = names;
  OSSFunctionAddress functions[2];
  return library.getFunctionAddresses(&param, functions);
}

// A look-up that finds nothing: the code of the error point is the mapped one, as in the record.
Trace missed() {
  return framed(Func::OSSHLibrary_getFuncAddress, kNotFound,
                {error(Func::OSSHLibrary_getFuncAddress, 30, kNotFound)});
}

constexpr Case kProcessCases[] = {
    {Func::OSSHProcess_create, true,
     [](Scene& s) {
       ImportHook child("CreateProcessA", startMadeUpChild);
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(OSS_PROCESS_DETACHED); }, ECF_OK,
           started(ECF_OK));
     }},
    {Func::OSSHProcess_create, false,
     [](Scene& s) {
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(8); }, 0x9000000C);
     }},
    {Func::OSSHProcess_createProcess, true,
     [](Scene& s) {
       ImportHook child("CreateProcessA", startMadeUpChild);
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(0); }, ECF_OK, started(ECF_OK));
     }},
    {Func::OSSHProcess_createProcess, false, [](Scene& s) { return withoutMemory(s, 1, 10); }},
    {Func::OSSHProcess_createProcess, false, [](Scene& s) { return withoutMemory(s, 2, 20); }},
    {Func::OSSHProcess_createProcess, false,
     [](Scene& s) {
       FailingCall fails("InitializeSecurityDescriptor", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(0); }, ECF_INVALID_PARAMETER,
           framed(Func::OSSHProcess_createProcess, ECF_INVALID_PARAMETER, refusedAttributes()));
     }},
    // The error is the inner half's to tell.
    {Func::OSSHProcess_createProcess, false,
     [](Scene& s) {
       constexpr OSSErr kMissing = 0x9000001A;
       FailingCall fails("CreateProcessA", ERROR_FILE_NOT_FOUND);
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(0); }, kMissing,
           started(kMissing, {error(Func::OSSHProcess_createProcess, 40, kMissing)}));
     }},
    {Func::OSSHProcess_wait, true,
     [](Scene& s) {
       ImportHook child("CreateProcessA", startMadeUpChild);
       ImportHook exits("GetExitCodeProcess", [](Call&) { return TRUE; });
       return s.plain(
           Func::OSSHProcess_create, [] { return startProgram(OSS_PROCESS_SYNCHRONOUS); }, ECF_OK,
           started(ECF_OK, framed(Func::OSSHProcess_wait, ECF_OK)));
     }},
    {Func::OSSHProcess_wait, false,
     [](Scene& s) {
       return waitedInVain(s, "WaitForSingleObject", WAIT_FAILED, ECF_ACCESS_DENIED,
                           {error(Func::OSSHProcess_wait, 50, ECF_ACCESS_DENIED)});
     }},
    // Found by the half itself: no error of the system's.
    {Func::OSSHProcess_wait, false,
     [](Scene& s) {
       return waitedInVain(s, "WaitForSingleObject", WAIT_ABANDONED, ECF_FAILED, {});
     }},
    {Func::OSSHProcess_wait, false,
     [](Scene& s) {
       return waitedInVain(s, "GetExitCodeProcess", FALSE, ECF_ACCESS_DENIED,
                           {error(Func::OSSHProcess_wait, 70, ECF_ACCESS_DENIED)});
     }},
    {Func::OSSHLibrary_load, true,
     [](Scene& s) {
       OSSHLibrary library;
       Trace trace = s.plain(Func::OSSHLibrary_load, [&] { return library.load(kLibrary, 0); });
       EXPECT_EQ(library.unload(), ECF_OK);
       return trace;
     }},
    {Func::OSSHLibrary_load, false,
     [](Scene& s) {
       OSSHLibrary library;
       return s.refused({Func::OSSHLibrary_load, 30, SysCall::LoadLibraryExA, "LoadLibraryExA"},
                        [&] { return library.load(kLibrary, 0); });
     }},
    // Quiet is for the log: the trace tells all.
    {Func::OSSHLibrary_load, false,
     [](Scene& s) {
       OSSHLibrary library;
       return s.refused({Func::OSSHLibrary_load, 30, SysCall::LoadLibraryExA, "LoadLibraryExA"},
                        [&] { return library.load(kLibrary, OSS_LIB_QUIET); });
     }},
    {Func::OSSHLibrary_load, false,
     [](Scene& s) {
       OSSHLibrary library;
       return s.plain(Func::OSSHLibrary_load, [&] { return library.load("no-such-library", 0); },
                      kCannotLoad, {error(Func::OSSHLibrary_load, 30, kCannotLoad)});
     }},
    {Func::OSSHLibrary_load, false,
     [](Scene& s) {
       OSSHLibrary library;
       return s.plain(Func::OSSHLibrary_load,
                      [&] { return library.load("no-such-library", OSS_LIB_QUIET); }, kCannotLoad,
                      {error(Func::OSSHLibrary_load, 30, kCannotLoad)});
     }},
    {Func::OSSHLibrary_unload, true,
     [](Scene& s) {
       OSSHLibrary library;
       EXPECT_EQ(library.load(kLibrary, 0), ECF_OK);
       return s.plain(Func::OSSHLibrary_unload, [&] { return library.unload(); });
     }},
    {Func::OSSHLibrary_unload, false,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         return s.refused({Func::OSSHLibrary_unload, 20, SysCall::FreeLibrary, "FreeLibrary"},
                          [&] { return library.unload(); });
       });
     }},
    {Func::OSSHLibrary_getFuncAddress, true,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         return s.plain(Func::OSSHLibrary_getFuncAddress,
                        [&] { return lookUp(library, "LZCopy"); });
       });
     }},
    {Func::OSSHLibrary_getFuncAddress, false,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         EXPECT_EQ(s.traced([&] { return lookUp(library, "no such"); }), kNotFound);
         return missed();
       });
     }},
    {Func::OSSHLibrary_getFuncAddress, false,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         EXPECT_EQ(s.traced([&] { return lookUp(library, "no such", OSS_LIB_LOOKUP_QUIET); }),
                   kNotFound);
         return missed();
       });
     }},
    {Func::OSSHLibrary_getFunctionAddresses, true,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         const Trace found = framed(Func::OSSHLibrary_getFuncAddress, ECF_OK);
         Trace both = found;
         both.insert(both.end(), found.begin(), found.end());
         return s.plain(
             Func::OSSHLibrary_getFunctionAddresses,
             [&] { return lookUpTwo(library, "LZCopy", "LZClose"); }, ECF_OK, both);
       });
     }},
    {Func::OSSHLibrary_getFunctionAddresses, false,
     [](Scene& s) {
       return onALibrary([&](OSSHLibrary& library) {
         Trace within = missed();
         const Trace found = framed(Func::OSSHLibrary_getFuncAddress, ECF_OK);
         within.insert(within.end(), found.begin(), found.end());
         return s.plain(
             Func::OSSHLibrary_getFunctionAddresses,
             [&] { return lookUpTwo(library, "no such", "LZClose"); }, kPartial, within);
       });
     }},
    {Func::OSSHLibrary_getFunctionAddresses, false,
     [](Scene& s) {
       OSSHLibrary library;
       return s.plain(
           Func::OSSHLibrary_getFunctionAddresses, [&] { return lookUpTwo(library, "a", "b"); },
           kNotLoaded, framed(Func::OSSHLibrary_getFuncAddress, kNotLoaded));
     }},
};

}  // namespace

std::span<const Case> processCases() { return kProcessCases; }

}  // namespace osse_test
