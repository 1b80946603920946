// machinereport.h - what a machine tells of itself, as groups of facts with a status each, and how
// that is written: as a table and as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "osstypes.h"
#include "output.h"

namespace oss::tool {

// Texts are UTF-8.
using FactValue = std::variant<uint64_t, int64_t, double, std::string>;

struct Fact {
  std::string name;
  FactValue value;        // counts where the status is 0
  std::string unit = {};  // "MHz", "MiB"; empty for what has none
  OSSErr status = 0;
};

struct FactGroup {
  std::string name;
  std::vector<Fact> facts;
};

using MachineReport = std::vector<FactGroup>;

// Asks the library for everything that it can tell.
MachineReport askMachine();

// A line for each fact: item, value with unit, status; the name of its group above it.
void writeTable(const MachineReport& report, Output& output);

// An object for each group with an object for each fact: value (null where there is none), unit
// where it has one, status. Bytes that are no UTF-8 are replaced.
void writeJson(const MachineReport& report, Output& output);

}  // namespace oss::tool
