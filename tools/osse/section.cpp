#include "section.h"

#include <windows.h>

#include "osscatalog.h"
#include "terminal.h"

namespace oss::tool {
namespace {

// The block is the process's current one for a scope.
class Attached {
 public:
  explicit Attached(void* block)
      : rc(gtraceAttach(block, ::GetCurrentProcessId(), nullptr, nullptr)) {}
  ~Attached() { gtraceDetach(); }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;

  const OSSErr rc;
};

}  // namespace

Section::~Section() {
  if (view_ != nullptr) ::UnmapViewOfFile(view_);
  if (mapping_ != nullptr) ::CloseHandle(mapping_);
}

bool Section::open(const std::string& name) {
  constexpr DWORD kAccess = FILE_MAP_READ | FILE_MAP_WRITE;
  mapping_ = ::OpenFileMappingA(kAccess, FALSE, name.c_str());
  if (mapping_ != nullptr) view_ = static_cast<char*>(::MapViewOfFile(mapping_, kAccess, 0, 0, 0));
  MEMORY_BASIC_INFORMATION pages;
  if (view_ == nullptr || ::VirtualQuery(view_, &pages, sizeof pages) == 0) {
    complain(name + ": the section cannot be opened, system error " +
             std::to_string(::GetLastError()));
    return false;
  }
  size_ = pages.RegionSize;
  if (size_ < sizeof(GTraceControlBlock) || size_ < neededBytes()) {
    complain(name + ": the section is too small for a trace control block");
    return false;
  }
  return true;
}

uint64_t Section::neededBytes() const {
  const uint32_t buffer = block().options.bufferSize;
  return sizeof(GTraceControlBlock) +
         (isCounting() ? uint64_t{buffer} : uint64_t{ramboGetAllocSize(buffer)});
}

bool Section::holds(const void* data, uint64_t size) const {
  const uint64_t offset = reinterpret_cast<uintptr_t>(data) - reinterpret_cast<uintptr_t>(view_);
  return offset <= size_ && size <= size_ - offset;
}

OSSErr Section::header(bool instantaneous, GTraceDumpHeader& header, const char** data,
                       uint32_t* size) {
  const Attached attached(view_);
  if (attached.rc != ECF_OK) return attached.rc;
  void* found = nullptr;
  if (const OSSErr rc = gtraceGetDumpHeaderBuffer(instantaneous, &header, &found, size)) return rc;
  *data = static_cast<const char*>(found);
  return holds(found, *size) ? ECF_OK : ECF_RAMBO_INVALID_BUFFER_SIZE;
}

OSSErr Section::tail(RamboDumpTail& tail) {
  const Attached attached(view_);
  return attached.rc != ECF_OK ? attached.rc : gtraceGetDumpTail(&tail);
}

OSSErr Section::firstChunk(RamboChunkWalker& walker) {
  const Attached attached(view_);
  if (attached.rc != ECF_OK) return attached.rc;
  if (const OSSErr rc = gtraceInitializeChunkWalker(&walker)) return rc;
  const uint64_t chunks = ring().chunkCount;
  const bool isInside = chunks != 0 && holds(walker.chunk, chunks * sizeof(RamboChunk)) &&
                        holds(walker.slots, chunks * RAMBO_CHUNK);
  return isInside ? ECF_OK : ECF_RAMBO_INVALID_BUFFER_SIZE;
}

OSSErr Section::endAutoDump() {
  const Attached attached(view_);
  return attached.rc != ECF_OK ? attached.rc : gtraceAutoDumpEnabled(false);
}

}  // namespace oss::tool
