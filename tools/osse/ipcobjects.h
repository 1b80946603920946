// ipcobjects.h - the kernel objects that bear the names of a path and a number: which of them
// exist, and a view of the section for reading only.
#pragma once

#include <cstdint>
#include <string>

#include "ossipcresource.h"

namespace oss::tool {

// What there is under a name.
enum class Presence { Missing, Exists, OtherKind, SectionsName, Refused };

struct IpcObject {
  std::string name;
  Presence presence = Presence::Missing;
  uint32_t systemError = 0;  // of Refused

  // "exists", "missing", "another kind of object", "none (the name is the section's)",
  // "refused, system error 5"
  std::string text() const;
};

// What a path and a number may name: the three objects of a queue, and the event of a waitpost. The
// names' first also is that of a section or semaphore on its own; the event's is the same, so that
// it cannot exist beside a section.
class IpcObjects {
 public:
  IpcObjects(const std::string& path, int32_t number, bool local);
  ~IpcObjects();
  IpcObjects(const IpcObjects&) = delete;
  IpcObjects& operator=(const IpcObjects&) = delete;

  IpcObject section, dataSemaphore, spaceSemaphore, event;

  // The section as far as it is mapped; null and 0 when there is none.
  const void* view() const { return view_; }
  uint64_t viewBytes() const { return viewBytes_; }

 private:
  void mapSection();

  void* mapping_ = nullptr;
  void* view_ = nullptr;
  uint64_t viewBytes_ = 0;
};

}  // namespace oss::tool
