// ossfilefixture.h - what the tests of the file handle share: a file in a directory of its own, the
// log, and the proof that a refused operation changes nothing.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <ostream>
#include <string>

#include "harness/fields.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "ossfile.h"

namespace osse_test {

inline constexpr uint64_t kGiB = uint64_t{1} << 30;
inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;

// Values that no enumeration of the file handle's parameters has, beside the neighbours of each.
inline constexpr uint64_t kNoEnumerator[] = {0, 3, 5, 6, 7, 32, ~uint64_t{0}};

// The three fields of a handle, which it keeps to itself.
struct HandleFields {
  void* file;
  void* mapping;
  void* view;

  bool operator==(const HandleFields&) const = default;
};

inline HandleFields fieldsOf(const OSSHFile& file) { return copyOf<HandleFields>(file); }

inline void PrintTo(const HandleFields& fields, std::ostream* out) {
  *out << "{file " << fields.file << ", mapping " << fields.mapping << ", view " << fields.view
       << '}';
}

inline const HandleFields kClosed = {INVALID_HANDLE_VALUE, INVALID_HANDLE_VALUE, nullptr};

// Where a system handle's file pointer stands; -1 without a file.
inline int64_t positionOf(HANDLE file) {
  LARGE_INTEGER position;
  return ::SetFilePointerEx(file, {}, &position, FILE_CURRENT) ? position.QuadPart : -1;
}

inline uint64_t sizeOf(HANDLE file) {
  LARGE_INTEGER size;
  return ::GetFileSizeEx(file, &size) ? static_cast<uint64_t>(size.QuadPart) : ~uint64_t{0};
}

inline OSSFileOpenParam openParam(const std::string& path, uint64_t creation, uint64_t access,
                                  uint64_t flags = 0) {
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = creation;
  param.access = access;
  param.flags = flags;
  return param;
}

class OSSHFileTest : public testing::Test {
 protected:
  static constexpr char kContent[] = "0123456789";

  OSSHFileTest() { writeFile(path_, kContent); }

  ~OSSHFileTest() override {
    const bool isOpen = file_.getFileHandle() != INVALID_HANDLE_VALUE;
    EXPECT_TRUE(!isOpen || file_.close() == ECF_OK);
  }

  // Opens the file that holds kContent, at its start.
  void openFile(uint64_t access = OSS_FILE_READ_WRITE) {
    const OSSFileOpenParam param = openParam(path_, OSS_FILE_OPEN_EXISTING, access);
    ASSERT_EQ(file_.open(&param), ECF_OK);
  }

  HANDLE handle() const { return file_.getFileHandle(); }

  void moveTo(int64_t position) {
    LARGE_INTEGER target;
    target.QuadPart = position;
    ASSERT_TRUE(::SetFilePointerEx(handle(), target, nullptr, FILE_BEGIN));
  }

  // Runs an operation of file_ that must be refused: with this code, with this one log record, and
  // with nothing changed, neither in the handle nor in the file nor in the process.
  template <class Operation>
  void expectRefusal(Operation operation, OSSErr code, const LogEvidence& record) {
    const State before = state();
    EXPECT_EQ(operation(), code);
    EXPECT_EQ(state(), before);
    EXPECT_THAT(log_.newRecords(), testing::ElementsAre(record));
  }

  TempDirectory dir_;
  const std::string path_ = dir_.file("file");
  LogCapture log_;
  OSSHFile file_;

 private:
  struct State {
    HandleFields fields;
    int64_t position;
    std::string bytes;
    size_t handles;

    bool operator==(const State&) const = default;
    friend void PrintTo(const State& state, std::ostream* out) {
      PrintTo(state.fields, out);
      *out << ", position " << state.position << ", bytes \"" << state.bytes << "\", "
           << state.handles << " handles";
    }
  };

  State state() const {
    return {fieldsOf(file_), positionOf(handle()), readFile(path_), openHandles()};
  }
};

}  // namespace osse_test
