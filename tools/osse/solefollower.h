// solefollower.h - the right to follow a section, which one process has at a time: two that give
// back the same chunks would leave the ring's counts such that its writers wait forever.
#pragma once

#include <string>

namespace oss::tool {

class SoleFollower {
 public:
  // Takes the right, if nobody else has it; one that ended without giving it back does not.
  explicit SoleFollower(const std::string& section);
  ~SoleFollower();
  SoleFollower(const SoleFollower&) = delete;
  SoleFollower& operator=(const SoleFollower&) = delete;

  bool hasRight() const { return hasRight_; }

 private:
  void* mutex_;
  bool hasRight_ = false;
};

}  // namespace oss::tool
