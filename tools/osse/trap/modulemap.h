// modulemap.h - what lies at an address of the trapped process: "child.exe+0x1234".
#pragma once

#include <string>
#include <vector>

#include "trap/trapfile.h"

namespace oss::tool {

class ModuleMap {
 public:
  explicit ModuleMap(const std::vector<Part<OSSTrapModule>>& modules);

  // \return "" for an address in no module
  std::string find(uint64_t address) const;

 private:
  struct Range {
    uint64_t base;
    uint64_t end;
    std::string name;
  };
  std::vector<Range> ranges_;  // by their base
};

}  // namespace oss::tool
