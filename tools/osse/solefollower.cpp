#include "solefollower.h"

#include <windows.h>

namespace oss::tool {

SoleFollower::SoleFollower(const std::string& section)
    : mutex_(::CreateMutexA(nullptr, FALSE, (section + ".follower").c_str())) {
  if (mutex_ == nullptr) return;
  const DWORD waited = ::WaitForSingleObject(mutex_, 0);
  hasRight_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
}

SoleFollower::~SoleFollower() {
  if (hasRight_) ::ReleaseMutex(mutex_);
  if (mutex_ != nullptr) ::CloseHandle(mutex_);
}

}  // namespace oss::tool
