// twopages.h - memory that ends where a test wants it to end.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>

namespace osse_test {

// Two pages side by side, the second with its own protection.
class TwoPages {
 public:
  static constexpr size_t kBytes = 4096;

  explicit TwoPages(DWORD protectionOfSecond)
      : address_(static_cast<char*>(
            ::VirtualAlloc(nullptr, 2 * kBytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE))) {
    EXPECT_NE(address_, nullptr);
    std::memset(address_, 'x', 2 * kBytes);
    DWORD before;
    EXPECT_TRUE(::VirtualProtect(second(), kBytes, protectionOfSecond, &before));
  }
  ~TwoPages() { ::VirtualFree(address_, 0, MEM_RELEASE); }
  TwoPages(const TwoPages&) = delete;
  TwoPages& operator=(const TwoPages&) = delete;

  char* first() const { return address_; }
  char* second() const { return address_ + kBytes; }

 private:
  char* address_;
};

}  // namespace osse_test
