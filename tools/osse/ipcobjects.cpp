#include "ipcobjects.h"

#include <windows.h>

namespace oss::tool {
namespace {

// Tells by the last error what an open has found.
void judge(IpcObject& object, bool isOpen) {
  const DWORD error = isOpen ? ERROR_SUCCESS : ::GetLastError();
  switch (error) {
    case ERROR_SUCCESS: object.presence = Presence::Exists; break;
    case ERROR_FILE_NOT_FOUND: object.presence = Presence::Missing; break;
    case ERROR_INVALID_HANDLE: object.presence = Presence::OtherKind; break;
    default: object.presence = Presence::Refused; object.systemError = error;
  }
}

template <class Open>
void look(IpcObject& object, Open open) {
  const HANDLE handle = open(SYNCHRONIZE, FALSE, object.name.c_str());
  judge(object, handle != nullptr);
  if (handle != nullptr) ::CloseHandle(handle);
}

}  // namespace

std::string IpcObject::text() const {
  switch (presence) {
    case Presence::Exists: return "exists";
    case Presence::Missing: return "missing";
    case Presence::SectionsName: return "none (the name is the section's)";
    case Presence::OtherKind: return "another kind of object";
    default: return "refused, system error " + std::to_string(systemError);
  }
}

IpcObjects::IpcObjects(const std::string& path, int32_t number, bool local) {
  OSSIPCGetResIDParam in;
  in.path = path.c_str();
  in.projectID = number;
  in.local = local;
  OSSIPCQueResID names;
  ossIPCGetQueResID(&in, &names);
  section.name = names.memory.name;
  event.name = names.memory.name;
  dataSemaphore.name = names.dataSemaphore.name;
  spaceSemaphore.name = names.spaceSemaphore.name;

  mapSection();
  look(dataSemaphore, ::OpenSemaphoreA);
  look(spaceSemaphore, ::OpenSemaphoreA);
  look(event, ::OpenEventA);
  if (event.presence == Presence::OtherKind && section.presence == Presence::Exists)
    event.presence = Presence::SectionsName;
}

IpcObjects::~IpcObjects() {
  if (view_ != nullptr) ::UnmapViewOfFile(view_);
  if (mapping_ != nullptr) ::CloseHandle(mapping_);
}

void IpcObjects::mapSection() {
  mapping_ = ::OpenFileMappingA(FILE_MAP_READ, FALSE, section.name.c_str());
  judge(section, mapping_ != nullptr);
  if (mapping_ == nullptr) return;

  view_ = ::MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0);
  MEMORY_BASIC_INFORMATION region;
  if (view_ == nullptr || ::VirtualQuery(view_, &region, sizeof region) != sizeof region)
    judge(section, false);
  else
    viewBytes_ = region.RegionSize;
}

}  // namespace oss::tool
