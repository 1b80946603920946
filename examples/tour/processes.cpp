// Other programs, started and waited for or let go of, and the libraries of this one.
#include <iterator>

#include "event.h"
#include "ossprocess.h"
#include "tour.h"

namespace tour {
namespace {

constexpr uint32_t kExitCode = 3;

OSSErr start(const Stage& stage, const std::string& option, const std::string& argument,
             uint64_t flags, unsigned long* processID, OSSProcessStatus* status) {
  // Arguments are joined as they are: neither of these needs quotation marks.
  const std::string arguments = option + '\0' + argument + '\0';
  OSSProcessParam param;
  param.program = stage.ownProgram.c_str();
  param.arguments = arguments.c_str();
  param.flags = flags;
  OSSHProcess process;
  return process.create(&param, processID, status);
}

void waitForOne(const Stage& stage) {
  unsigned long processID = 0;
  OSSProcessStatus status;
  if (!told("OSSHProcess::create, synchronous",
            start(stage, "--exit-with", std::to_string(kExitCode), OSS_PROCESS_SYNCHRONOUS,
                  &processID, &status)))
    return;
  note("process %lu has ended with exit code %u", processID, status.exitCode);
  if (status.exitCode != kExitCode) expected("its exit code", ECF_FAILED, ECF_OK);
}

void letGoOfOne(const Stage& stage) {
  const std::string name = "osse.tour.child." + std::to_string(ossProcessID());
  const Handle runs(eventOf(name, ".runs"));
  const Handle mayEnd(eventOf(name, ".may-end"));
  unsigned long processID = 0;
  if (!told("OSSHProcess::create, detached",
            start(stage, "--run-until-told", name, OSS_PROCESS_DETACHED, &processID, nullptr)))
    return;
  if (::WaitForSingleObject(runs.get(), kPatience) != WAIT_OBJECT_0)
    expected("the detached process", ECF_TIMEOUT, ECF_OK);
  note("process %lu runs on by itself, and is told to end", processID);
  ::SetEvent(mayEnd.get());
}

void lookFunctionsUp() {
  OSSHLibrary library;
  if (!told("OSSHLibrary::load", library.load("kernel32.dll", 0))) return;
  const char* const names[] = {"GetTickCount64", "GetTickCount128"};
  OSSLibGetFunctionAddressesParam param;
  param.count = std::size(names);
  param.functionNames = names;
  OSSFunctionAddress functions[std::size(names)];
  expected("OSSHLibrary::getFunctionAddresses, two",
           library.getFunctionAddresses(&param, functions), ECF_PARTIAL_INFO);
  for (size_t i = 0; i < std::size(names); ++i)
    note("%s is %s", names[i], functions[i] != nullptr ? "there" : "missing");
  told("OSSHLibrary::unload", library.unload());
}

}  // namespace

int runUntilTold(const char* name) {
  const Handle runs(eventOf(name, ".runs"));
  const Handle mayEnd(eventOf(name, ".may-end"));
  ::SetEvent(runs.get());
  return ::WaitForSingleObject(mayEnd.get(), kPatience) == WAIT_OBJECT_0 ? 0 : 1;
}

void startPrograms(const Stage& stage) {
  act("Other programs are started, and functions found in a library");
  waitForOne(stage);
  letGoOfOne(stage);
  lookFunctionsUp();
}

}  // namespace tour
