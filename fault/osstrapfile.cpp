#include "osstrapfile.h"

#include <windows.h>

#include <bit>
#include <cstring>

#include "fault/ossSymFunctions.h"
#include "fault/osscapturemark.h"
#include "fault/ossprocessmemory.h"
#include "fault/osssectionguard.h"
#include "fault/osstraptext.h"
#include "fault/osstrapwriter.h"
#include "osssymbol.h"

namespace oss {
namespace {

constexpr DWORD kControlRegisters = CONTEXT_CONTROL;
static_assert(kControlRegisters == 0x100001);

// What initialize() decides; the others tell of what has been written.
constexpr uint32_t kDecidedContents = OSS_TRAP_HAS_EXCEPTION | OSS_TRAP_HAS_CONTEXT |
                                      OSS_TRAP_HAS_CONTROL | OSS_TRAP_HAS_INSTRUCTIONS |
                                      OSS_TRAP_HAS_LIBRARY_VERSION;

// The instructions around a fault, if the context tells where it was.
bool examine(const CONTEXT* at, const ProcessMemory& memory, InstructionArea* area) noexcept {
  CONTEXT context;
  if (!memory.read(reinterpret_cast<uint64_t>(at), &context, sizeof context)) return false;
  if ((context.ContextFlags & kControlRegisters) != kControlRegisters) return false;
  *area = findInstructions(memory, context.Rip);
  return true;
}

}  // namespace
}  // namespace oss

using namespace oss;

// The base has a member of its own: both compilers know the offsets nevertheless.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct OSSTrapFile::Layout {
  OSS_FIELD(OSSTrapFile, header_, 8, 392);
  OSS_FIELD(OSSTrapFile, headerOffset_, 400, 4);
  OSS_FIELD(OSSTrapFile, reserved_, 404, 4);
  OSS_FIELD(OSSTrapFile, initialized_, 408, 1);
  OSS_FIELD(OSSTrapFile, searchPath_, 409, 261);
  OSS_FIELD(OSSTrapFile, process_, 672, 8);
};
#pragma GCC diagnostic pop

OSSTrapFile::OSSTrapFile() noexcept : process_(::GetCurrentProcess()) {
  header_.processId = ::GetCurrentProcessId();
  header_.threadId = ::GetCurrentThreadId();
}

OSSTrapFile::~OSSTrapFile() {
  if (!initialized_) return;
  const CaptureMark mark(::GetCurrentThreadId());
  if (isPathSaved_) endsWithoutFault([this] { ossSymSetSearchPath(process_, searchPath_); });
  ossSymCleanup(process_);
  ossFreeSymDLL();
}

void OSSTrapFile::initialize(uint32_t, EXCEPTION_RECORD* er, CONTEXT* ctx,
                             const char* symbolPath) noexcept {
  const CaptureMark mark(::GetCurrentThreadId());
  if (mark.isNested()) return;

  std::memcpy(header_.eyeCatcher, OSS_TRAP_EYE_CATCHER, sizeof header_.eyeCatcher);
  if (header_.processId == 0) header_.processId = ::GetCurrentProcessId();
  if (header_.threadId == 0) header_.threadId = ::GetCurrentThreadId();

  ossLoadSymDLL();
  initializeSymbolsGuarded();
  endsWithoutFault([this, symbolPath] {
    // A path that this object has installed is not the host's.
    if (!initialized_)
      isPathSaved_ = ossSymGetSearchPath(process_, searchPath_, sizeof searchPath_) != 0;
    if (symbolPath != nullptr) ossSymSetSearchPath(process_, symbolPath);
  });

  header_.contents &= ~kDecidedContents;
  endsWithoutFault([this] {
    if (ossImagehlpApiVersion() != nullptr) header_.contents |= OSS_TRAP_HAS_LIBRARY_VERSION;
  });

  SYSTEMTIME now;
  ::GetLocalTime(&now);
  header_.time = std::bit_cast<OSSTrapTime>(now);
  ::GetModuleFileNameA(nullptr, header_.executable, sizeof header_.executable);

  if (er != nullptr) header_.contents |= OSS_TRAP_HAS_EXCEPTION;
  if (ctx != nullptr) header_.contents |= OSS_TRAP_HAS_CONTEXT;
  InstructionArea area;
  bool isExamined = false;
  if (ctx != nullptr)
    endsWithoutFault([&] { isExamined = examine(ctx, ProcessMemory(process_), &area); });
  if (isExamined) header_.contents |= OSS_TRAP_HAS_CONTROL;
  if (area.bytes > 0) header_.contents |= OSS_TRAP_HAS_INSTRUCTIONS;
  header_.instructions = area.address;
  header_.instructionBytes = area.bytes;

  initialized_ = true;
}

void OSSTrapFile::dump(uint64_t sections, uint32_t, EXCEPTION_RECORD* er, CONTEXT* ctx) noexcept {
  const CaptureMark mark(::GetCurrentThreadId());
  if (initialized_ && isValid() && !mark.isNested()) TrapWriter(*this, er, ctx).write(sections);
}

bool OSSTrapFile::writeXMLProlog() noexcept {
  offsetType size = 0;
  if (getSize(&size) != 0 || size == 0) {
    write(kXmlProlog.data(), kXmlProlog.size());
    return true;
  }

  char text[kXmlProlog.size()] = {};
  uint64_t bytes = 0;
  const auto readAt = [&](offsetType offset) {
    seekToOffset(offset);
    read(sizeof text, text, &bytes);
    return std::string_view(text, bytes);
  };
  size_t tag = kNoTag;
  const auto tail = static_cast<offsetType>(size - sizeof text);
  if (readAt(0) == kXmlProlog) tag = findClosingTag(readAt(tail));

  if (tag != kNoTag)
    seekToOffset(static_cast<offsetType>(tail + tag));
  else
    seekToEnd();
  return false;
}
