// search.h - the search that the library opens next, which it leaves open where a step fails.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>

#include "harness/importhook.h"

namespace osse_test {

// Remembers the search handle, and closes it: for a listing that does not.
class Search {
 public:
  Search() = default;
  ~Search() { EXPECT_TRUE(::FindClose(handle_)); }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  HANDLE handle() const { return handle_; }
  int closes() const { return closes_.calls(); }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  const ImportHook first_{"FindFirstFileA", [this](Call& call) {
                            const Word search = call.passOn();
                            std::memcpy(&handle_, &search, sizeof handle_);
                            return search;
                          }};
  const CallCounter closes_{"FindClose"};
};

}  // namespace osse_test
