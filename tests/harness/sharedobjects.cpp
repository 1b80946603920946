#include "harness/sharedobjects.h"

#include <gtest/gtest.h>

#include <atomic>

namespace osse_test {
namespace {

std::string newName() {
  static std::atomic<int> number{0};
  return "osse-test-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++number);
}

void* mapped(HANDLE section, size_t bytes) {
  void* const view = ::MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, bytes);
  EXPECT_NE(view, nullptr) << "error " << ::GetLastError();
  return view;
}

}  // namespace

SharedMemory::SharedMemory(size_t bytes)
    : name_(newName()),
      section_(::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    static_cast<DWORD>(bytes), name_.c_str())),
      view_(mapped(section_.get(), bytes)) {}

SharedMemory::SharedMemory(const std::string& name, size_t bytes)
    : name_(name),
      section_(::OpenFileMappingA(FILE_MAP_WRITE, FALSE, name.c_str())),
      view_(mapped(section_.get(), bytes)) {}

SharedMemory::~SharedMemory() { ::UnmapViewOfFile(view_); }

Event::Event() : name_(newName()), event_(::CreateEventA(nullptr, FALSE, FALSE, name_.c_str())) {
  EXPECT_NE(event_, nullptr) << "error " << ::GetLastError();
}

Event::Event(const std::string& name)
    : name_(name), event_(::OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name.c_str())) {
  EXPECT_NE(event_, nullptr) << name << ": error " << ::GetLastError();
}

void Event::set() { EXPECT_TRUE(::SetEvent(event_.get())) << "error " << ::GetLastError(); }

bool Event::wait() {
  constexpr DWORD kPatienceMilliseconds = 120'000;
  return ::WaitForSingleObject(event_.get(), kPatienceMilliseconds) == WAIT_OBJECT_0;
}

}  // namespace osse_test
