// traced - a small program that is traced, and that writes the dump of it itself.
//
//   traced INPUT DUMP
//
// It formats a control block in a section that other processes can open as "osse-traced", traces
// what the library does while it reads INPUT in pieces and runs into two failures, and writes the
// instantaneous dump. `osse trace format DUMP` shows it.
#include <windows.h>

#include <cstdio>
#include <memory>

#include "osscatalog.h"
#include "ossfile.h"
#include "osstracedump.h"

namespace {

constexpr char kSection[] = "osse-traced";

bool told(const char* what, OSSErr rc) {
  if (rc == ECF_OK) return true;
  std::fprintf(stderr, "traced: %s: %s\n", what, ecfErrorGetCodeName(rc));
  return false;
}

// A block lives as long as the process, and in others that map it as long as they do.
void* createBlock() {
  const auto options = std::make_unique<GTraceOptions>();
  options->bufferSize = RAMBO_SMALLEST_BUFFER;
  options->mode = GTRACE_CIRCULAR;
  options->flags = GTRACE_STAMP;

  const HANDLE section = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                              gtraceGetAllocSize(options->bufferSize), kSection);
  void* const block =
      section != nullptr ? ::MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0) : nullptr;
  if (block == nullptr) {
    std::fprintf(stderr, "traced: no section, system error %lu\n", ::GetLastError());
    return nullptr;
  }
  return told("gtraceInitialize", gtraceInitialize(block, options.get())) ? block : nullptr;
}

OSSErr open(OSSHFile& file, const char* path, uint64_t creation, uint64_t access) {
  OSSFileOpenParam param;
  param.path = path;
  param.creation = creation;
  param.access = access;
  return file.open(&param);
}

// What is traced.
void work(const char* input) {
  OSSHFile file;
  if (!told("OSSHFile::open", open(file, input, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ))) return;
  char piece[4096];
  OSSFileReadParam read;
  read.size = sizeof piece;
  uint64_t count = 0;
  while (file.read(&read, piece, &count) == ECF_OK) {
  }
  file.close();

  open(file, "no-such-file", OSS_FILE_OPEN_EXISTING, OSS_FILE_READ);
  file.close();  // a closed handle
}

bool writeAll(OSSHFile& file, const void* data, uint64_t size) {
  OSSFileWriteParam param;
  param.buffer = data;
  param.size = size;
  return told("OSSHFile::write", file.write(&param, nullptr));
}

bool writeDump(const char* path) {
  const auto header = std::make_unique<GTraceDumpHeader>();
  void* slots = nullptr;
  uint32_t size = 0;
  RamboDumpTail tail{};
  OSSHFile file;
  return told("gtraceGetDumpHeaderBuffer",
              gtraceGetDumpHeaderBuffer(true, header.get(), &slots, &size)) &&
         told("OSSHFile::open", open(file, path, OSS_FILE_CREATE_ALWAYS, OSS_FILE_WRITE)) &&
         writeAll(file, header.get(), sizeof *header) && writeAll(file, slots, size) &&
         told("gtraceGetDumpTail", gtraceGetDumpTail(&tail)) &&
         writeAll(file, &tail, sizeof tail) && told("OSSHFile::close", file.close());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: traced INPUT DUMP\n", stderr);
    return 2;
  }
  void* const block = createBlock();
  if (block == nullptr) return 1;
  if (!told("gtraceAttach", gtraceAttach(block, ::GetCurrentProcessId(), nullptr, nullptr)))
    return 1;

  if (!told("gtraceEnable", gtraceEnable())) return 1;
  work(argv[1]);
  gtraceDisable();

  const bool written = writeDump(argv[2]);
  gtraceDetach();
  return written ? 0 : 1;
}
