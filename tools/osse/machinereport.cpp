#include "machinereport.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "names.h"

namespace oss::tool {
namespace {

using Json = nlohmann::ordered_json;

std::string statusOf(const Fact& fact) {
  return fact.status == 0 ? "OK" : Names::codeName(fact.status);
}

struct ValueText {
  std::string operator()(uint64_t value) const { return std::to_string(value); }
  std::string operator()(int64_t value) const { return std::to_string(value); }
  std::string operator()(double value) const {
    char text[32];
    static_cast<void>(std::snprintf(text, sizeof text, "%.2f", value));
    return text;
  }
  std::string operator()(const std::string& value) const { return value; }
};

// "-" where there is no value.
std::string cellOf(const Fact& fact) {
  if (fact.status != 0) return "-";
  const std::string text = std::visit(ValueText(), fact.value);
  return fact.unit.empty() ? text : text + ' ' + fact.unit;
}

std::string padded(std::string text, size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

Json valueOf(const Fact& fact) {
  if (fact.status != 0) return nullptr;
  return std::visit([](const auto& value) { return Json(value); }, fact.value);
}

}  // namespace

void writeTable(const MachineReport& report, Output& output) {
  size_t nameWidth = 0;
  size_t valueWidth = 0;
  for (const FactGroup& group : report)
    for (const Fact& fact : group.facts) {
      nameWidth = std::max(nameWidth, fact.name.size());
      valueWidth = std::max(valueWidth, cellOf(fact).size());
    }

  const char* between = "";
  for (const FactGroup& group : report) {
    output.write(between + group.name + '\n');
    for (const Fact& fact : group.facts)
      output.write("  " + padded(fact.name, nameWidth) + "  " + padded(cellOf(fact), valueWidth) +
                   "  " + statusOf(fact) + '\n');
    between = "\n";
  }
}

void writeJson(const MachineReport& report, Output& output) {
  Json document = Json::object();
  for (const FactGroup& group : report) {
    Json& facts = document[group.name] = Json::object();
    for (const Fact& fact : group.facts) {
      Json& entry = facts[fact.name] = {{"value", valueOf(fact)}};
      if (!fact.unit.empty()) entry["unit"] = fact.unit;
      entry["status"] = statusOf(fact);
    }
  }
  output.write(document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
}

}  // namespace oss::tool
