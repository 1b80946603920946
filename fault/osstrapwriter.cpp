#include "fault/osstrapwriter.h"

// Behind the system's types.
#include <dbghelp.h>

#include <algorithm>
#include <limits>

#include "fault/osssectionguard.h"
#include "fault/ossstackframes.h"
#include "fault/osstrapmodules.h"
#include "fault/osstraptext.h"
#include "ossstring.h"
#include "osssymbol.h"

namespace oss {
namespace {

constexpr size_t kPieceWords = 64;  // little, for the thread may have little stack left

class FileSink final : public SectionSink {
 public:
  explicit FileSink(OSSTrapFile& file) noexcept : file_(file) {}
  void write(const void* data, uint64_t size) noexcept override { file_.write(data, size); }

 private:
  OSSTrapFile& file_;
};

// A full disk may take a part of a record: what is written next goes over it.
bool appendsWhole(OSSTrapFile& file, const OSSTrapModule& module) noexcept {
  const OSSTrapFile::offsetType start = file.getCurrentOffset();
  file.write(&module, sizeof module);
  const bool isWhole = file.getCurrentOffset() - start == sizeof module;
  if (!isWhole) file.seekToOffset(start);
  return isWhole;
}

// A module section being written.
struct CountedModules {
  OSSTrapFile* file;
  HANDLE process;
  uint64_t count;
};

int appendCounted(const char* name, uint64_t base, unsigned long size, void* section) noexcept {
  auto& modules = *static_cast<CountedModules*>(section);
  if (appendsWhole(*modules.file, trapModule(modules.process, name, base, size))) ++modules.count;
  return TRUE;
}

// Whether a walk gets anywhere, which it does as long as the stack pointer of its frames grows. A
// damaged stack may lead it on the spot or in a circle.
class WalkProgress {
 public:
  bool isMade(const STACKFRAME64& frame) noexcept {
    const bool isBack = frame.AddrStack.Offset < stack_;
    const bool isSame = frame.AddrStack.Offset == stack_;
    const bool isOnTheSpot = isSame && frame.AddrPC.Offset == code_;
    standing_ = isSame ? standing_ + 1 : 0;
    stack_ = frame.AddrStack.Offset;
    code_ = frame.AddrPC.Offset;
    return !isBack && !isOnTheSpot && standing_ <= kMostStanding;
  }

 private:
  static constexpr uint32_t kMostStanding = 16;

  uint64_t stack_ = 0;
  uint64_t code_ = 0;
  uint32_t standing_ = 0;  // frames in a row that did not grow
};

}  // namespace

void TrapWriter::write(uint64_t sections) noexcept {
  using Work = void (TrapWriter::*)() noexcept;
  struct Section {
    uint64_t flag;
    Work write;
  };
  static constexpr Section kSections[] = {
      {OSS_TRAP_HEADER, &TrapWriter::writeHeader},
      {OSS_TRAP_SYSTEM, &TrapWriter::writeSystem},
      {OSS_TRAP_ENVIRONMENT, &TrapWriter::writeEnvironmentStrings},
      {OSS_TRAP_EXCEPTION, &TrapWriter::writeException},
      {OSS_TRAP_CONTEXT, &TrapWriter::writeContext},
      {OSS_TRAP_MODULES, &TrapWriter::writeModules},
      {OSS_TRAP_MODULES, &TrapWriter::writeHeaderAgain},
      {OSS_TRAP_LIBRARY_VERSION, &TrapWriter::writeLibraryVersion},
      {OSS_TRAP_STACK, &TrapWriter::writeStack},
      {OSS_TRAP_MODULE_SECTION, &TrapWriter::writeModuleSection},
  };

  // A derived class may have set more; the header tells what the section of the stack holds.
  header_.instructionBytes = std::min(header_.instructionBytes, OSS_TRAP_MOST_INSTRUCTIONS);
  for (const Section& section : kSections)
    if ((sections & section.flag) != 0)
      endsWithoutFault([this, &section] { (this->*section.write)(); });
}

void TrapWriter::writeHeader() noexcept {
  file_.headerOffset_ = file_.getCurrentOffset();
  put(header_);
}

void TrapWriter::writeSystem() noexcept {
  SYSTEM_INFO processor = {};
  ::GetSystemInfo(&processor);
  put(processor);

  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  ::GetVersionExA(&version);
  put(version);

  writeMemoryStatus();
}

void TrapWriter::writeMemoryStatus() noexcept {
  const HMODULE kernel = ::GetModuleHandleA("kernel32.dll");
  const auto find = [kernel](const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(kernel, name));
  };

  if (void* const extended = find("GlobalMemoryStatusEx")) {
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof status;
    reinterpret_cast<decltype(&::GlobalMemoryStatusEx)>(extended)(&status);
    put(status);
    header_.contents |= OSS_TRAP_HAS_EXTENDED_MEMORY;
  } else if (void* const plain = find("GlobalMemoryStatus")) {
    MEMORYSTATUS status = {};
    status.dwLength = sizeof status;
    reinterpret_cast<decltype(&::GlobalMemoryStatus)>(plain)(&status);
    put(status);
    header_.contents |= OSS_TRAP_HAS_MEMORY;
  }
}

void TrapWriter::writeEnvironmentStrings() noexcept {
  char* const strings = ::GetEnvironmentStrings();
  FileSink sink(file_);
  writeEnvironment(strings, sink);
  if (strings != nullptr) ::FreeEnvironmentStringsA(strings);
}

void TrapWriter::writeException() noexcept {
  EXCEPTION_RECORD exception;
  if (memory_.read(reinterpret_cast<uint64_t>(exception_), &exception, sizeof exception))
    put(exception);
}

void TrapWriter::writeContext() noexcept {
  CONTEXT context;
  if (memory_.read(reinterpret_cast<uint64_t>(context_), &context, sizeof context)) put(context);
}

void TrapWriter::appendModule(OSSTrapFile& file, const OSSTrapModule& module) noexcept {
  if (!appendsWhole(file, module)) return;
  OSSTrapHeader& header = file.header_;
  header.contents |= OSS_TRAP_HAS_MODULES;
  if (header.modules < std::numeric_limits<uint16_t>::max()) ++header.modules;
}

void TrapWriter::writeModules() noexcept {
  header_.modules = 0;
  header_.contents &= ~(OSS_TRAP_HAS_MODULES | OSS_TRAP_HAS_KEPT_MODULES);
  KeptModule* const kept = takeKeptModules();
  if (kept == nullptr) {
    recordModules(file_.process_, &file_);
    return;
  }

  for (const KeptModule* module = kept; module != nullptr; module = module->next)
    appendModule(file_, *module->record);
  header_.contents &= ~OSS_TRAP_HAS_MODULES;
  header_.contents |= OSS_TRAP_HAS_KEPT_MODULES;
  releaseModules(kept);
}

void TrapWriter::writeHeaderAgain() noexcept {
  file_.seekToOffset(file_.headerOffset_);
  writeHeader();
  file_.seekToEnd();
}

void TrapWriter::writeLibraryVersion() noexcept {
  if (const API_VERSION* const version = ossImagehlpApiVersion()) put(*version);
}

void TrapWriter::writeStack() noexcept {
  unsigned char instructions[OSS_TRAP_MOST_INSTRUCTIONS];
  const uint32_t bytes = header_.instructionBytes;
  if (bytes > 0) {
    if (!memory_.read(header_.instructions, instructions, bytes)) return;
    file_.write(instructions, bytes);
  }
  if (context_ == nullptr) return;

  if (!ossSymRegisterStackWalkCallback(file_.process_)) {
    char text[80];
    ossSnprintf(text, sizeof text, "ossSymRegisterCallback failed: errcode=%lu\n",
                ::GetLastError());
    ::OutputDebugStringA(text);
    return;
  }

  CONTEXT context;
  if (!memory_.read(reinterpret_cast<uint64_t>(context_), &context, sizeof context)) return;
  writeRawStack(context.Rsp, writeFrames(context));
}

// Returns the last frame's stack pointer.
uint64_t TrapWriter::writeFrames(const CONTEXT& context) noexcept {
  StackFrames frames(context);
  STACKFRAME64& frame = frames.current();
  WalkProgress progress;
  do {
    if (!frames.next() || !progress.isMade(frame)) frame.AddrReturn.Offset = OSS_TRAP_WALK_FAILED;
    put(frame);
  } while (frame.AddrReturn.Offset != 0 && frame.AddrReturn.Offset != OSS_TRAP_WALK_FAILED);
  return frame.AddrStack.Offset;
}

void TrapWriter::writeRawStack(uint64_t stackPointer, uint64_t lastFrame) noexcept {
  const uint64_t words =
      readableWords(memory_, stackPointer, wantedStackWords(stackPointer, lastFrame));
  put(words);

  uint64_t piece[kPieceWords];
  for (uint64_t done = 0; done < words; done += kPieceWords) {
    const size_t bytes = std::min<uint64_t>(kPieceWords, words - done) * sizeof piece[0];
    if (!memory_.read(stackPointer + done * sizeof piece[0], piece, bytes)) return;
    file_.write(piece, bytes);
  }
}

void TrapWriter::writeModuleSection() noexcept {
  const OSSTrapFile::offsetType start = file_.getCurrentOffset();
  CountedModules modules{&file_, file_.process_, 0};
  put(modules.count);
  ossEnumerateLoadedModules(file_.process_, appendCounted, &modules);

  file_.seekToOffset(start);
  put(modules.count);
  file_.seekToEnd();
}

}  // namespace oss
