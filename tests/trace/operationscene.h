// operationscene.h - what an operation is played on, with tracing on for it alone, and how the
// records that it must leave are written down.
#pragma once

#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "harness/importhook.h"
#include "harness/tempdir.h"
#include "ossfile.h"
#include "ossprocess.h"
#include "trace/tracefixture.h"

namespace osse_test {

using Trace = std::vector<TraceEvidence>;
using Code = std::function<OSSErr()>;

constexpr uint32_t idOf(oss::Func function) { return static_cast<uint32_t>(function); }

template <class T>
std::string bytesOf(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline TraceEvidence data(oss::Func function, uint16_t probe, std::string items) {
  return {idOf(function), 3, probe, 0, std::move(items)};
}
inline TraceEvidence error(oss::Func function, uint16_t probe, OSSErr rc) {
  return {idOf(function), 4, probe, 0, bytesOf(rc)};
}

// The records of a frame around others.
inline Trace framed(oss::Func function, OSSErr rc, const Trace& within = {}) {
  Trace trace = {{idOf(function), 1, 0, 0, {}}};
  trace.insert(trace.end(), within.begin(), within.end());
  trace.push_back({idOf(function), 2, 0, rc, {}});
  return trace;
}

inline Trace joined(std::initializer_list<Trace> parts) {
  Trace trace;
  for (const Trace& part : parts) trace.insert(trace.end(), part.begin(), part.end());
  return trace;
}

// The security attributes of an object that is being made, as they are built and as the system
// refuses a descriptor for them.
inline Trace securityAttributes() {
  using oss::Func;
  return framed(Func::ossInitSecurityAttributes, ECF_OK,
                framed(Func::ossInitSecurityAttributes2, ECF_OK));
}
inline Trace refusedAttributes(uint16_t probe = 10) {
  using oss::Func;
  constexpr OSSErr kRefused = ECF_INVALID_PARAMETER;  // that is ERROR_INVALID_HANDLE
  return framed(Func::ossInitSecurityAttributes, kRefused,
                framed(Func::ossInitSecurityAttributes2, kRefused,
                       {error(Func::ossInitSecurityAttributes2, probe, kRefused)}));
}

// What an operation is played on.
class Scene : public TraceTest {
 protected:
  Scene() {
    writeFile(path_, "01234567");
    openParam.path = path_.c_str();
    openParam.creation = OSS_FILE_OPEN_EXISTING;
    openParam.access = OSS_FILE_READ_WRITE;
  }
  ~Scene() override {
    if (file.getFileHandle() != INVALID_HANDLE_VALUE) {
      EXPECT_EQ(file.close(), ECF_OK);
    }
  }

  void SetUp() override {
    start();
    ASSERT_EQ(gtraceDisable(), ECF_OK);
  }

 public:
  using TraceTest::records;

  void openFile() { ASSERT_EQ(file.open(&openParam), ECF_OK); }

  // Runs the operation, and it alone, with tracing on.
  OSSErr traced(const Code& operation) {
    EXPECT_EQ(gtraceEnable(), ECF_OK);
    const OSSErr rc = operation();
    EXPECT_EQ(gtraceDisable(), ECF_OK);
    return rc;
  }

  // One that must return that code.
  Trace plain(oss::Func function, const Code& operation, OSSErr rc = ECF_OK,
              const Trace& within = {}) {
    EXPECT_EQ(traced(operation), rc);
    return framed(function, rc, within);
  }

  // One that the system refuses. `before` are the records in front of the error point.
  struct Refusal {
    oss::Func function;
    uint16_t probe;
    oss::SysCall call;
    const char* name;
    Word result = 0;
  };
  Trace refused(const Refusal& refusal, const Code& operation, Trace before = {}) {
    constexpr DWORD kError = ERROR_INVALID_HANDLE;
    const OSSErr rc = ossErrorMapSystem(idOf(refusal.function), refusal.probe,
                                        static_cast<uint32_t>(refusal.call), kError, nullptr);
    FailingCall fails(refusal.name, kError, {.result = refusal.result});
    before.push_back(error(refusal.function, refusal.probe, rc));
    return plain(refusal.function, operation, rc, before);
  }

  TempDirectory dir;
  OSSHFile file;
  OSSHThread thread;
  OSSHThreadSpecificData slot;
  OSSFileOpenParam openParam;  // of a file with the bytes "01234567"

 private:
  const std::string path_ = dir.file("file");
};

struct Case {
  oss::Func function;
  bool succeeds;
  Trace (*play)(Scene&);  // returns the expected records
};

// Each family has its own.
std::span<const Case> directoryCases();
std::span<const Case> fileCases();
std::span<const Case> ipcCases();
std::span<const Case> ipcMemoryExCases();
std::span<const Case> pathCases();
std::span<const Case> processCases();
std::span<const Case> queueCases();
std::span<const Case> sysInfoCases();
std::span<const Case> waitpostCases();

}  // namespace osse_test
