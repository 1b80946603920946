#include "tools/trapparts.h"

namespace osse_test {
namespace {

std::string headerSection() {
  std::string header(392, '\0');
  header.replace(0, 8, "*TPHDE64");
  put<uint32_t>(header, 8, 4242);
  put<uint32_t>(header, 12, 17);
  put<uint64_t>(header, 16, kFaultAddress - 32);
  const uint16_t time[] = {2026, 11, 0, 22, 1, 26, 23, 45};
  std::memcpy(header.data() + 24, time, sizeof time);
  put<uint32_t>(header, 40, 0x43F);
  put<uint16_t>(header, 46, 3);
  header.replace(48, 16, "C:\\kt5\\child.exe");
  put<uint32_t>(header, 388, 64);
  return header;
}

std::string systemSection() {
  std::string system(48 + 148 + 64, '\0');
  put<uint16_t>(system, 0, 9);
  put<uint32_t>(system, 4, 4096);
  put<uint64_t>(system, 8, 0x10000);
  put<uint64_t>(system, 16, 0x7FFFFFFEFFFF);
  put<uint64_t>(system, 24, 0xFF);
  put<uint32_t>(system, 32, 8);
  put<uint32_t>(system, 36, 8664);
  put<uint32_t>(system, 40, 0x10000);
  put<uint16_t>(system, 44, 6);
  put<uint16_t>(system, 46, 0x9E0A);
  put<uint32_t>(system, 48, 148);
  put<uint32_t>(system, 52, 6);
  put<uint32_t>(system, 56, 1);
  put<uint32_t>(system, 60, 7601);
  put<uint32_t>(system, 64, 2);
  system.replace(68, 14, "Service Pack 1");
  put<uint32_t>(system, 196, 64);
  put<uint32_t>(system, 200, 42);
  for (uint64_t i = 0; i < 6; ++i) put<uint64_t>(system, 204 + 8 * i, (i + 1) << 30);
  return system;
}

std::string contextSection() {
  std::string context(1232, '\0');
  put<uint32_t>(context, 0x30, 0x10005F);
  put<uint32_t>(context, 0x34, 0x1F80);
  const uint16_t selectors[] = {0x33, 0x2B, 0x2B, 0x53, 0x2B, 0x2B};
  std::memcpy(context.data() + 0x38, selectors, sizeof selectors);
  put<uint32_t>(context, 0x44, 0x10246);
  put<uint64_t>(context, 0x48, 0xD0);
  for (uint64_t i = 0; i < 16; ++i) put<uint64_t>(context, 0x78 + 8 * i, 0x1111 * (i + 1));
  put<uint64_t>(context, 0x98, kStackPointer);
  put<uint64_t>(context, 0xF8, kFaultAddress);
  put<uint32_t>(context, 0x118, 0x1F80);
  put<uint64_t>(context, 0x1A0, 0x5555);
  put<uint64_t>(context, 0x1A8, 0x6666);
  return context;
}

std::string exceptionSection() {
  std::string exception(152, '\0');
  put<uint32_t>(exception, 0, 0xC0000005);
  put<uint64_t>(exception, 16, kFaultAddress);
  put<uint32_t>(exception, 24, 2);
  put<uint64_t>(exception, 32, 1);
  put<uint64_t>(exception, 40, 0x10);
  return exception;
}

}  // namespace

std::string trapModule(const std::string& name, uint64_t base, uint64_t bytes, uint32_t linked,
                       uint64_t marker) {
  std::string module = name;
  module.resize(304);
  put<uint64_t>(module, 272, marker);
  put<uint64_t>(module, 280, base);
  put<uint64_t>(module, 288, base + bytes);
  put<uint32_t>(module, 296, linked);
  return module;
}

std::string trapFrame(uint64_t pc, uint64_t returning, uint64_t stack) {
  std::string frame(264, '\0');
  const uint64_t addresses[] = {pc, returning, stack + 32, stack};
  for (size_t i = 0; i < 4; ++i) {
    put<uint64_t>(frame, 16 * i, addresses[i]);
    put<uint32_t>(frame, 16 * i + 12, 3);
  }
  for (uint64_t i = 0; i < 4; ++i) put<uint64_t>(frame, 88 + 8 * i, 0xA0 + i);
  put<uint32_t>(frame, 124, 1);
  return frame;
}

std::string trapString(const std::string& text) {
  std::string bytes(8, '\0');
  put<uint64_t>(bytes, 0, text.size());
  return bytes + text;
}

TrapParts::TrapParts()
    : header(headerSection()),
      system(systemSection()),
      environment(trapString("PATH=C:\\kt5;C:\\windows") + trapString("USER=somebody") +
                  trapString("**L*E*R*M**")),
      exception(exceptionSection()),
      context(contextSection()),
      modules(trapModule("C:\\kt5\\child.exe", 0x140000000, 0x9000, 1700000000) +
              trapModule("C:\\kt5\\KT5X.dll", 0x180000000, 0x20000, 1600000000, 0x180001230) +
              trapModule("C:\\windows\\system32\\ntdll.dll", 0x7FF800000000, 0x1F0000, 1)),
      version(8, '\0'),
      frames(trapFrame(kFaultAddress, 0x180002345, kStackPointer) +
             trapFrame(0x180002345, 0x7FF800001000, kStackPointer + 0x40) +
             trapFrame(0x7FF800001000, 0, kStackPointer + 0x80)),
      rawStack(8 + 8 * 1024, '\0') {
  put<uint16_t>(version, 0, 4);
  put<uint16_t>(version, 4, 5);
  for (size_t i = 0; i < 64; ++i) instructions += static_cast<char>(0x90 + i % 7);
  put<uint64_t>(rawStack, 0, 1024);
  for (uint64_t i = 0; i < 1024; ++i)
    put<uint64_t>(rawStack, 8 + 8 * i, i * 0x0101010101010101 + 0x140001020);
  moduleSection.assign(8, '\0').append(modules);
  put<uint64_t>(moduleSection, 0, 3);
}

std::string TrapParts::whole() const {
  return header + system + environment + exception + context + modules + version + instructions +
         frames + rawStack + moduleSection;
}

}  // namespace osse_test
