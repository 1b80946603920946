// Where a report goes, and in which order: terminal, file, debugger.
#include "ossassert.h"

#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "log/osslogfacility.h"
#include "osshexdump.h"
#include "ossprimitivefile.h"
#include "ossprocess.h"
#include "ossstring.h"

namespace oss {
namespace {

constexpr size_t kTextBytes = 256;
constexpr size_t kDumpBytes = 4096;

OSSAssertionCallback g_callback = nullptr;

const char* orEmpty(const char* text) noexcept { return text != nullptr ? text : ""; }
bool isEmpty(const char* text) noexcept { return text == nullptr || *text == '\0'; }

// Calls show(number, dump) for each item, from 0 on. Reads a copy of the list.
template <class Show>
void forEachDump(va_list items, Show show) noexcept {
  va_list rest;
  va_copy(rest, items);
  uint64_t number = 0;
  while (const void* const address = va_arg(rest, const void*)) {
    const uint64_t size = va_arg(rest, uint64_t);
    if (size == 0) break;

    char dump[kDumpBytes];
    ossHexDumpToBuffer(address, size, dump, sizeof dump, nullptr, OSS_HEXDUMP_ADDRESS);
    show(number++, dump);
  }
  va_end(rest);
}

void compose(char (&text)[kTextBytes], const char* expression, const char* file, uint64_t line,
             bool fatal) noexcept {
  const time_t now = ::time(nullptr);
  const tm* const local = ::localtime(&now);
  // The time brings its own line end.
  ossSnprintf(text, sizeof text,
              "%sASSERTION FAILED!!!\r\nTime       = %sExpr       = %s\r\nPID        = %u\r\n"
              "TID        = %I64u\r\nFile       = %s\r\nLine       = %I64u\r\n",
              fatal ? "" : "NON-FATAL ", local != nullptr ? ::asctime(local) : "\n",
              orEmpty(expression), ossProcessID(), uint64_t{ossThreadID()}, orEmpty(file), line);
}

void showOnTerminal(const char* text, va_list items) noexcept {
  if (!::_isatty(::_fileno(stdout))) return;
  std::printf("%s", text);
  forEachDump(items, [](uint64_t number, const char* dump) {
    std::printf("dump data %llu:\n%s", number, dump);
  });
}

// The file that a report without a dump path goes to; may be empty.
const char* debugLogFile() noexcept {
  const char* const named = std::getenv("OSS_DEBUG_LOG_FILE");
  return named != nullptr ? named : defaultLogFacility().path;
}

// Nothing keeps others from the file meanwhile.
void appendTo(const char* path, const char* text, va_list items) noexcept {
  OSSPrimitiveFileOp file;
  file.open(path, OSS_PRIMITIVE_WRITE | OSS_PRIMITIVE_OPEN_ALWAYS);
  if (!file.isValid()) return;

  file.seekToEnd();
  file.write(text, 0);
  forEachDump(items, [&file](uint64_t number, const char* dump) {
    file.fwrite("dump data %d:\n", static_cast<int>(number));
    file.write(dump, 0);
  });
  file.close();
}

void report(const char* expression, const char* fileName, uint64_t line, const char* dumpPath,
            uint8_t fatal, va_list items) noexcept {
  if (g_callback != nullptr) {
    g_callback(expression, fileName, line, dumpPath, fatal, items);
    return;
  }

  char text[kTextBytes];
  compose(text, expression, fileName, line, fatal != 0);
  if (!isEmpty(dumpPath)) {
    char path[MAX_PATH + 1];
    ossSnprintf(path, sizeof path, "%s%cp%ut%I64u.mem", dumpPath, '\\', ossProcessID(),
                uint64_t{ossThreadID()});
    appendTo(path, text, items);
  } else {
    showOnTerminal(text, items);
    const char* const path = debugLogFile();
    if (!isEmpty(path)) appendTo(path, text, items);
  }

  if (fatal == 0) return;
  ::OutputDebugStringA(text);
  ::DebugBreak();
}

constexpr uint64_t kLowestPointer = 4096;

bool isBadAnyway(const void* pointer, uint64_t size) noexcept {
  return reinterpret_cast<uintptr_t>(pointer) < kLowestPointer || size == 0;
}

}  // namespace
}  // namespace oss

using namespace oss;

void ossSetAssertionCallback(OSSAssertionCallback callback) noexcept { g_callback = callback; }

void ossAssertFailureAction(const char* expression, const char* file, uint64_t line,
                            const char* dumpPath, uint8_t fatal, ...) noexcept {
  va_list items;
  va_start(items, fatal);
  report(expression, file, line, dumpPath, fatal, items);
  va_end(items);
}

void ossAssertFailed(const char* expression, const char* file, uint64_t line) noexcept {
  ossAssertFailureAction(expression, file, line, nullptr, 0, nullptr);
}

int32_t ossIsBadReadPtr(const void* pointer, uint64_t size) noexcept {
  return isBadAnyway(pointer, size) ||
         ::IsBadReadPtr(pointer, static_cast<UINT_PTR>(static_cast<uint32_t>(size)));
}

int32_t ossIsBadWritePtr(void* pointer, uint64_t size, bool forWrite) noexcept {
  if (!forWrite) return ossIsBadReadPtr(pointer, size);
  return isBadAnyway(pointer, size) ||
         ::IsBadWritePtr(pointer, static_cast<UINT_PTR>(static_cast<uint32_t>(size)));
}

int32_t ossIsBadString(const char* text, uint64_t maxLength) noexcept {
  return isBadAnyway(text, maxLength) ||
         ::IsBadStringPtrA(text, static_cast<UINT_PTR>(static_cast<uint32_t>(maxLength)));
}
