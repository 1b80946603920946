// ossprimitivefilefixture.h - what the tests of the primitive file share: a file in a directory of
// its own, the handle that an object keeps to itself, and the proof that nothing is logged.
#pragma once

#include "file/ossfilefixture.h"
#include "ossprimitivefile.h"

namespace osse_test {

inline constexpr int kAnyError = 4321;

// The only field, which an object keeps to itself.
inline HANDLE handleOf(const OSSPrimitiveFileOp& file) {
  HANDLE handle;
  static_assert(sizeof handle == sizeof file);
  std::memcpy(&handle, &file, sizeof handle);
  return handle;
}

// Makes the file that long without writing its bytes; its file pointer goes back to the start.
inline void stretch(HANDLE file, uint64_t size) {
  LARGE_INTEGER end;
  end.QuadPart = static_cast<int64_t>(size);
  EXPECT_TRUE(::SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && ::SetEndOfFile(file) &&
              ::SetFilePointerEx(file, {}, nullptr, FILE_BEGIN));
}

// An object that was given its handle by a deriving class.
class Holder : public OSSPrimitiveFileOp {
 public:
  explicit Holder(HANDLE handle) { setFileHandle(handle); }
  using OSSPrimitiveFileOp::setFileHandle;
};

// A file "0123456789" that is closed at the end of the test. What happens to it must not be logged.
class PrimitiveFileTest : public testing::Test {
 protected:
  PrimitiveFileTest() { writeFile(path_, "0123456789"); }
  ~PrimitiveFileTest() override {
    if (isOpen(handleOf(file_))) file_.close();
    EXPECT_EQ(log_.text(), "");
  }

  void openFile(uint64_t flags = 0) { ASSERT_EQ(file_.open(path_.c_str(), flags), 0); }

  TempDirectory dir_;
  const std::string path_ = dir_.file("file");
  LogCapture log_;
  OSSPrimitiveFileOp file_;
};

}  // namespace osse_test
