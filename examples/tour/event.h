// event.h - named events, by which the tour and the processes that it starts keep step.
#pragma once

#include <windows.h>

#include <string>

namespace tour {

class Handle {
 public:
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() {
    if (handle_ != nullptr) ::CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

// How long anybody waits for another process, in milliseconds.
inline constexpr DWORD kPatience = 30'000;

// The event of that name, which stays set. Either process may come first.
inline HANDLE eventOf(const std::string& name, const char* what) {
  return ::CreateEventA(nullptr, TRUE, FALSE, (name + what).c_str());
}

}  // namespace tour
