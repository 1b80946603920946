// names.h - what the catalog calls functions and return codes, looked up once each.
//
// What the catalog does not know is named by its number in hex. Names stay where they are.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "indexmap.h"

namespace oss::tool {

class Names {
 public:
  std::string_view function(uint32_t funcId) {
    if (funcId == lastFunction_ && !lastName_.empty()) return lastName_;
    lastFunction_ = funcId;
    return lastName_ = find(functions_, funcId, &functionName);
  }

  // "OK" for 0.
  std::string_view code(uint32_t rc) {
    if (rc == 0) return "OK";
    return find(codes_, rc, &codeName);
  }

  // The same without being remembered.
  static std::string codeName(uint32_t rc);
  static bool isCode(uint32_t rc);

 private:
  struct Table {
    IndexMap numbers;
    std::deque<std::string> names;
  };

  static std::string functionName(uint32_t funcId);

  static std::string_view find(Table& table, uint32_t key, std::string (*name)(uint32_t)) {
    const IndexMap::Found found = table.numbers.findOrAdd(key, 0);
    if (found.isNew) table.names.push_back(name(key));
    return table.names[found.index];
  }

  Table functions_;
  Table codes_;
  uint32_t lastFunction_ = 0;
  std::string_view lastName_;
};

}  // namespace oss::tool
