// touchedbuffer.h - memory that tells of its first touch: the test acts in the middle of a copy.
//
// Nobody can read or write the memory until then. The touch runs the test's action on the thread
// that copies, in the middle of its instruction; then the memory is as any other, and the copy goes
// on. One buffer at a time.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace osse_test {

class TouchedBuffer {
 public:
  // `contents` lie in it, for copies out of it.
  TouchedBuffer(const std::string& contents, std::function<void()> onTouch)
      : size_(contents.size()),
        onTouch_(std::move(onTouch)),
        bytes_(::VirtualAlloc(nullptr, size_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)),
        handler_(::AddVectoredExceptionHandler(1, &onFault)) {
    contents.copy(data(), size_);
    EXPECT_TRUE(protect(PAGE_NOACCESS));
    current_ = this;
  }
  ~TouchedBuffer() {
    EXPECT_EQ(touches_, 1);
    current_ = nullptr;
    ::RemoveVectoredExceptionHandler(handler_);
    ::VirtualFree(bytes_, 0, MEM_RELEASE);
  }
  TouchedBuffer(const TouchedBuffer&) = delete;
  TouchedBuffer& operator=(const TouchedBuffer&) = delete;

  char* data() const { return static_cast<char*>(bytes_); }
  size_t size() const { return size_; }
  std::string contents() const { return {data(), size_}; }

 private:
  bool protect(DWORD protection) {
    DWORD before;
    return ::VirtualProtect(bytes_, size_, protection, &before) != 0;
  }

  static LONG CALLBACK onFault(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION || current_ == nullptr)
      return EXCEPTION_CONTINUE_SEARCH;
    const ULONG_PTR first = reinterpret_cast<ULONG_PTR>(current_->bytes_);
    if (record.ExceptionInformation[1] - first >= current_->size_) return EXCEPTION_CONTINUE_SEARCH;
    ++current_->touches_;
    current_->onTouch_();
    return current_->protect(PAGE_READWRITE) ? EXCEPTION_CONTINUE_EXECUTION
                                             : EXCEPTION_CONTINUE_SEARCH;
  }

  static inline TouchedBuffer* current_ = nullptr;

  size_t size_;
  std::function<void()> onTouch_;
  void* bytes_;
  void* handler_;
  int touches_ = 0;
};

}  // namespace osse_test
