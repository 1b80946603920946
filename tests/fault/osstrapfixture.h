// osstrapfixture.h - what the tests of the trap file share: a file to write, its bytes taken apart
// by the layouts, and a fault.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "harness/importhook.h"
#include "harness/tempdir.h"
#include "ossfault.h"

namespace osse_test {

// The bytes of a file from its front on. What is missing fails the test.
class TrapBytes {
 public:
  explicit TrapBytes(std::string bytes) : bytes_(std::move(bytes)) {}

  std::string take(size_t size) {
    EXPECT_LE(size, left());
    std::string piece = bytes_.substr(at_, size);
    piece.resize(size);
    at_ += size;
    return piece;
  }

  template <class Record>
  Record take() {
    Record record;
    std::memcpy(static_cast<void*>(&record), take(sizeof record).data(), sizeof record);
    return record;
  }

  size_t left() const { return bytes_.size() - std::min(at_, bytes_.size()); }

 private:
  std::string bytes_;
  size_t at_ = 0;
};

template <class Record>
std::string bytesOf(const Record& record) {
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

// The frames of a stack section, up to the last one.
inline std::vector<STACKFRAME64> takeFrames(TrapBytes& file) {
  std::vector<STACKFRAME64> frames;
  do {
    frames.push_back(file.take<STACKFRAME64>());
  } while (file.left() > 0 && frames.back().AddrReturn.Offset != 0 &&
           frames.back().AddrReturn.Offset != OSS_TRAP_WALK_FAILED);
  return frames;
}

inline std::vector<OSSTrapModule> takeModules(TrapBytes& file, uint64_t count) {
  std::vector<OSSTrapModule> modules;
  while (count-- > 0) modules.push_back(file.take<OSSTrapModule>());
  return modules;
}

// A trap file that shows its header.
class OpenTrapFile : public OSSTrapFile {
 public:
  explicit OpenTrapFile(const std::string& path) {
    EXPECT_EQ(open(path.c_str(), OSS_PRIMITIVE_OPEN_ALWAYS), 0);
  }
  ~OpenTrapFile() { close(); }

  OSSTrapHeader& header() { return header_; }
};

// A real fault: an access violation.
[[gnu::noinline]] inline void writeToNothing() {
  __asm__ volatile("xorl %%eax, %%eax\n movl $1, (%%rax)" ::: "eax", "memory");
}
[[gnu::noinline]] inline Word faultNow() {
  writeToNothing();
  return 0;
}

class TrapFileTest : public testing::Test {
 protected:
  TrapFileTest() {
    ::RtlCaptureContext(&context_);
    exception_.ExceptionCode = 0xC0000005;
    exception_.ExceptionAddress = reinterpret_cast<void*>(context_.Rip);
    exception_.NumberParameters = 2;
    exception_.ExceptionInformation[1] = 0x1234;
  }

  // What a file holds that is initialised with the exception and the context and then dumped.
  TrapBytes dump(uint64_t sections) {
    const std::string path = newPath();
    {
      OpenTrapFile file(path);
      file.initialize(0, &exception_, &context_, nullptr);
      file.dump(sections, 0, &exception_, &context_);
      header_ = file.header();
    }
    return TrapBytes(readFile(path));
  }

  std::string newPath() { return dir_.file("trap" + std::to_string(++files_)); }

  TempDirectory dir_;
  int files_ = 0;
  EXCEPTION_RECORD exception_ = {};
  CONTEXT context_ = {};
  OSSTrapHeader header_;  // as dump() left it
};

}  // namespace osse_test
