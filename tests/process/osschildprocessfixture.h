// osschildprocessfixture.h - what the tests of starting programs share: the test program in a role
// as the child, children that a hook makes up, and the fields of a handle.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "harness/childprocess.h"
#include "harness/fields.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/sharedobjects.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "ossipcresource.h"
#include "ossprocess.h"

namespace osse_test {

inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;
inline constexpr uint64_t kSynchronous = OSS_PROCESS_SYNCHRONOUS;

inline std::string ownProgram() {
  char path[MAX_PATH + 1] = {};
  ::GetModuleFileNameA(nullptr, path, MAX_PATH);
  return path;
}

// A list of arguments as the record takes it: a role of this program's and what it is told.
inline std::string listOf(const std::vector<std::string>& arguments) {
  std::string list;
  for (const std::string& argument : arguments) list += argument + '\0';
  return list;
}
inline std::string roleList(const std::string& role, std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), "--child=" + role);
  return listOf(arguments);
}

struct ProcessFields {
  bool mustWait, created;
  uint64_t flags;
  void* processHandle;

  bool operator==(const ProcessFields&) const = default;
};
inline void PrintTo(const ProcessFields& fields, std::ostream* out) {
  *out << '{' << (fields.mustWait ? "must wait, " : "") << (fields.created ? "created, " : "")
       << "flags " << fields.flags << ", process " << fields.processHandle << '}';
}

inline ProcessFields fieldsOf(const OSSHProcess& process) { return copyOf<ProcessFields>(process); }

// ---- Made-up children ----

// Answers CreateProcessA with events in the place of process and thread, and remembers what was
// asked for. The child has ended already.
class MadeUpChild {
 public:
  static constexpr DWORD kId = 4711;

  MadeUpChild()
      : hook_("CreateProcessA", [this](Call& call) -> BOOL {
          EXPECT_EQ(call.argument<const char*>(0), nullptr);
          commandLine = call.argument<const char*>(1);
          processAttributes = call.argument<const SECURITY_ATTRIBUTES*>(2);
          threadAttributes = call.argument<const SECURITY_ATTRIBUTES*>(3);
          attributes = *processAttributes;
          inherit = call.argument<BOOL>(4);
          flags = call.argument<DWORD>(5);
          environment = call.argument<const void*>(6);
          EXPECT_EQ(call.argument<const char*>(7), nullptr);
          startup = *call.argument<const STARTUPINFOA*>(8);
          process = ::CreateEventA(nullptr, TRUE, TRUE, nullptr);
          thread = ::CreateEventA(nullptr, TRUE, TRUE, nullptr);
          *call.argument<PROCESS_INFORMATION*>(9) = {process, thread, kId, 4712};
          return TRUE;
        }) {}

  std::string commandLine;
  const SECURITY_ATTRIBUTES* processAttributes = nullptr;
  const SECURITY_ATTRIBUTES* threadAttributes = nullptr;
  SECURITY_ATTRIBUTES attributes = {};
  BOOL inherit = -1;
  DWORD flags = 0;
  const void* environment = nullptr;
  STARTUPINFOA startup = {};
  HANDLE process = nullptr, thread = nullptr;

 private:
  ImportHook hook_;
};

class OSSHProcessTest : public testing::Test {
 protected:
  OSSErr create(const std::string& program, const std::optional<std::string>& arguments,
                uint64_t flags) {
    OSSProcessParam param;
    param.program = program.c_str();
    param.arguments = arguments ? arguments->c_str() : nullptr;
    param.flags = flags;
    const OSSErr rc = process_.create(&param, &processID_, &status_);
    acceptedFlags_ = param.flags;
    return rc;
  }
  OSSErr createRole(const std::string& role, const std::vector<std::string>& arguments,
                    uint64_t flags) {
    return create(ownProgram(), roleList(role, arguments), flags);
  }

  // Creates and expects this failure: a record of one of the inner halves and
  // the one that create adds.
  void expectFailure(const std::string& program, OSSErr code, const LogEvidence& inner,
                     uint64_t level) {
    processID_ = 77;
    EXPECT_EQ(create(program, std::string("x\0", 2), kSynchronous), code);
    EXPECT_EQ(processID_, 77u);
    EXPECT_EQ(fieldsOf(process_).processHandle, INVALID_HANDLE_VALUE);
    EXPECT_THAT(log_.newRecords(),
                testing::ElementsAre(
                    inner, CalledRecord(level, oss::Func::OSSHProcess_create, 40,
                                        oss::Func::OSSHProcess_createProcess, code, code)));
  }

  LogCapture log_;
  OSSHProcess process_;
  unsigned long processID_ = 77;
  OSSProcessStatus status_ = {1, 2, 3};
  uint64_t acceptedFlags_ = 0;
};

}  // namespace osse_test
