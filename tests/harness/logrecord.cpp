// Expectations: the values that a test writes down, and how both sides of a comparison print.
#include "harness/logrecord.h"

#include <ostream>
#include <sstream>
#include <utility>

namespace osse_test {
namespace {

// A name or a description out of the catalog, cut as a record cuts it.
std::string name(const char* text) {
  return std::string(text != nullptr ? text : "").substr(0, 40);
}
std::string description(OSSErr code) {
  const char* const text = ecfErrorGetDescription(code);
  return std::string(text != nullptr ? text : "").substr(0, 128);
}

std::string inHex(uint64_t value) {
  std::ostringstream out;
  out << "0x" << std::hex << std::uppercase << value;
  return out.str();
}

std::string levelText(uint64_t level) {
  switch (level) {
    case OSS_LOG_SEVERE: return "Severe";
    case OSS_LOG_ERROR: return "Error";
    case OSS_LOG_WARNING: return "Warning";
    case OSS_LOG_INFO: return "Info";
    case OSS_LOG_EVENT: return "Event";
    default: return "Unknown";
  }
}

LogEvidence evidenceOf(uint64_t level, oss::Func function, uint64_t probe, OSSErr code) {
  const auto id = static_cast<uint32_t>(function);
  LogEvidence evidence;
  evidence.level = levelText(level);
  evidence.product = name(ecfGetProductName(id));
  evidence.component = name(ecfGetComponentName(id));
  evidence.function = name(ecfGetFunctionName(id));
  evidence.probe = probe;
  evidence.code = code;
  if (code != 0) evidence.description = description(code);
  return evidence;
}

void setItems(LogEvidence* evidence, const char* kind, std::vector<LogItem> items) {
  if (!items.empty()) evidence->itemKind = kind;
  evidence->items = std::move(items);
}

}  // namespace

LogValue hexValue(uint64_t value, uint64_t size) { return {"Hex", size, 0, inHex(value)}; }

LogValue uintValue(uint64_t value, uint64_t size) {
  return {"Uint" + std::to_string(size * 8), size, 0, std::to_string(value)};
}

LogValue String(std::string_view text) { return String(text, text.size()); }

LogValue String(std::string_view text, uint64_t size) {
  return {"String", size, 0, std::string(text)};
}

LogValue Null() { return {"NULL", 0, 0, ""}; }

LogEvidence FoundRecord(uint64_t level, oss::Func function, uint64_t probe, OSSErr code,
                        std::initializer_list<LogValue> items) {
  LogEvidence evidence = evidenceOf(level, function, probe, code);
  std::vector<LogItem> numbered;
  for (const LogValue& value : items)
    numbered.push_back({static_cast<uint32_t>(numbered.size() + 1), value});
  setItems(&evidence, "DATA", std::move(numbered));
  return evidence;
}

LogEvidence SystemRecord(uint64_t level, oss::Func function, uint64_t probe, oss::SysCall call,
                         uint32_t error, OSSErr code, std::initializer_list<LogItem> items) {
  const auto id = static_cast<uint32_t>(call);
  LogEvidence evidence = evidenceOf(level, function, probe, code);
  evidence.called = LogEvidence::Called::System;
  evidence.calledProduct = "OS";
  evidence.calledComponent = "-";
  evidence.calledFunction = name(ecfGetFunctionName(id));
  const char* const errorName = ossErrorNameMapSystem(id, error);
  evidence.errorName = errorName != nullptr ? errorName : "";
  evidence.error = static_cast<int32_t>(error);
  setItems(&evidence, "ARG", items);
  return evidence;
}

LogEvidence CalledRecord(uint64_t level, oss::Func function, uint64_t probe, oss::Func called,
                         OSSErr calledCode, OSSErr code, std::initializer_list<LogItem> items) {
  const auto id = static_cast<uint32_t>(called);
  LogEvidence evidence = evidenceOf(level, function, probe, code);
  evidence.called = LogEvidence::Called::Function;
  evidence.calledProduct = name(ecfGetProductName(id));
  evidence.calledComponent = name(ecfGetComponentName(id));
  evidence.calledFunction = name(ecfGetFunctionName(id));
  evidence.calledCode = calledCode;
  evidence.calledDescription = description(calledCode);
  setItems(&evidence, "ARG", items);
  return evidence;
}

void PrintTo(const LogEvidence& evidence, std::ostream* out) {
  *out << evidence.level << " from " << evidence.product << ", " << evidence.component << ", "
       << evidence.function << ", probe " << evidence.probe << ": " << inHex(evidence.code) << ' '
       << evidence.description;
  if (evidence.called != LogEvidence::Called::Nothing)
    *out << "; called " << evidence.calledProduct << ", " << evidence.calledComponent << ", "
         << evidence.calledFunction;
  if (evidence.called == LogEvidence::Called::System)
    *out << ", error " << evidence.errorName << ' ' << evidence.error;
  if (evidence.called == LogEvidence::Called::Function)
    *out << ", returned " << inHex(evidence.calledCode) << ' ' << evidence.calledDescription;
  for (const LogItem& item : evidence.items) {
    const LogValue& value = item.value;
    *out << "; " << evidence.itemKind << " #" << item.number << ' ' << value.type << ", "
         << value.size << " bytes";
    if (value.fullSize != 0) *out << " of " << value.fullSize;
    *out << " \"" << value.text << '"';
  }
}

}  // namespace osse_test
