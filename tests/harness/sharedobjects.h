// sharedobjects.h - what two processes of a test have in common: memory, and events that put their
// steps in order, so that nobody sleeps.
//
// One process makes the object and hands its name to the other. Names hold the maker's process
// identifier: test programs that run at the same time do not meet.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <type_traits>

namespace osse_test {

// A handle that closes itself.
struct HandleCloser {
  void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

// Shared memory of a given size, zero at first.
class SharedMemory {
 public:
  explicit SharedMemory(size_t bytes);                  // makes it
  SharedMemory(const std::string& name, size_t bytes);  // opens what another process made
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  const std::string& name() const { return name_; }
  void* address() const { return view_; }

 private:
  std::string name_;
  UniqueHandle section_;
  void* view_;
};

// The same as one record.
template <class Record>
class SharedBlock {
  static_assert(std::is_trivially_copyable_v<Record>);

 public:
  SharedBlock() : memory_(sizeof(Record)) {}
  explicit SharedBlock(const std::string& name) : memory_(name, sizeof(Record)) {}

  const std::string& name() const { return memory_.name(); }
  Record* operator->() const { return static_cast<Record*>(memory_.address()); }
  Record& operator*() const { return *operator->(); }

 private:
  SharedMemory memory_;
};

// Wakes one waiter for each time that it is set.
class Event {
 public:
  Event();                                  // makes it
  explicit Event(const std::string& name);  // opens what another process made

  const std::string& name() const { return name_; }
  void set();
  // False when nobody has set it within two minutes.
  [[nodiscard]] bool wait();

 private:
  std::string name_;
  UniqueHandle event_;
};

}  // namespace osse_test
