// Two processes and one lock. The tour starts itself a second time; named events order the two.
#include <string>

#include "event.h"
#include "ossfile.h"
#include "ossprocess.h"
#include "tour.h"

namespace tour {
namespace {

bool openForLock(OSSHFile& file, const char* path) {
  OSSFileOpenParam open;
  open.path = path;
  open.creation = OSS_FILE_OPEN_EXISTING;
  open.access = OSS_FILE_READ_WRITE;
  return file.open(&open) == ECF_OK;
}

PROCESS_INFORMATION start(const Stage& stage, const std::string& name) {
  std::string command =
      "\"" + stage.ownProgram + "\" --hold-lock \"" + stage.workFile + "\" " + name;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                   &process);
  return process;
}

}  // namespace

int holdLock(const char* path, const char* name) {
  const Handle held(eventOf(name, ".held"));
  const Handle done(eventOf(name, ".done"));
  OSSHFile file;
  const OSSFileLockParam exclusive(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
  if (!openForLock(file, path) || file.lock(&exclusive) != ECF_OK) return 1;

  ::SetEvent(held.get());
  ::WaitForSingleObject(done.get(), kPatience);
  if (file.unlock() != ECF_OK) return 1;
  return file.close() == ECF_OK ? 0 : 1;
}

void lockFromTwoProcesses(const Stage& stage) {
  act("Two processes ask for the lock of the copy");
  const std::string name = "osse.tour." + std::to_string(ossProcessID());
  const Handle held(eventOf(name, ".held"));
  const Handle done(eventOf(name, ".done"));
  const PROCESS_INFORMATION other = start(stage, name);
  const Handle process(other.hProcess);
  const Handle thread(other.hThread);
  const HANDLE either[] = {held.get(), process.get()};
  if (process.get() == nullptr ||
      ::WaitForMultipleObjects(2, either, FALSE, kPatience) != WAIT_OBJECT_0) {
    expected("the second process", ECF_FAILED, ECF_OK);
    return;
  }

  note("process %lu holds it", other.dwProcessId);
  OSSHFile file;
  if (!openForLock(file, stage.workFile.c_str())) return;
  const OSSFileLockParam atOnce(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  expected("OSSHFile::lock, at once", file.lock(&atOnce), ECF_FILE_LOCK);

  note("now it is asked to let go");
  ::SetEvent(done.get());
  const OSSFileLockParam patient(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
  told("OSSHFile::lock, waiting", file.lock(&patient));
  told("OSSHFile::unlock", file.unlock());
  told("OSSHFile::close", file.close());
  ::WaitForSingleObject(process.get(), kPatience);
}

}  // namespace tour
