#include "sysinfo/ossostext.h"

#include "ossstring.h"
#include "sysinfo/ossrecord.h"

namespace oss {
namespace {

constexpr uint16_t kArchitectureX86 = 0;
constexpr uint16_t kArchitectureIa64 = 6;
constexpr uint16_t kArchitectureX64 = 9;

// Of architecture x86. A 386 and a 486 have no numbers to tell.
constexpr uint32_t kType386 = 386;
constexpr uint32_t kType486 = 486;
constexpr uint32_t kTypePentium = 586;

void describe(const char* architecture, const ProcessorNumbers& processor,
              OSSSysInfoStr& text) noexcept {
  ossSnprintf(text.value, sizeof text.value, "%s Family %d, model %d, stepping %d", architecture,
              int{processor.level}, processor.revision >> 8, processor.revision & 0xFF);
  text.status = ECF_OK;
}

void describeX86(const ProcessorNumbers& processor, OSSSysInfoStr& text) noexcept {
  switch (processor.type) {
    case kType386:
    case kType486: return mark(text, ECF_NOT_SUPPORTED);
    case kTypePentium: return describe("x86", processor, text);
    default: return fillText(text, "");  // Deliberate: empty and valid.
  }
}

}  // namespace

const char* platformName(uint32_t platform) noexcept {
  switch (platform) {
    case 0: return "WIN32s";
    case 1: return "WIN32_WINDOWS";
    case 2: return "WIN32_NT";
    default: return "UNKNOWN";
  }
}

void describeProcessor(const ProcessorNumbers& processor, OSSSysInfoStr& text) noexcept {
  switch (processor.architecture) {
    case kArchitectureX86: return describeX86(processor, text);
    case kArchitectureIa64: return describe("IA64", processor, text);
    case kArchitectureX64: return describe("AMD64", processor, text);
    default: return mark(text, ECF_FAILED);
  }
}

}  // namespace oss
