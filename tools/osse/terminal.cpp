#include "terminal.h"

#include <windows.h>

#include <algorithm>

#include "commands.h"
#include "names.h"
#include "osscatalog.h"
#include "ossfile.h"

namespace oss::tool {
namespace {

constexpr uint64_t kMostAtOnce = uint64_t{64} << 20;

bool writeAll(HANDLE file, const char* data, uint64_t size) {
  while (size != 0) {
    const auto piece = static_cast<DWORD>(std::min(size, kMostAtOnce));
    DWORD written = 0;
    if (!::WriteFile(file, data, piece, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

// Fills in what tells a file from every other one. \return false when there is none
bool identify(const std::string& path, BY_HANDLE_FILE_INFORMATION& file) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const HANDLE handle =
      ::CreateFileA(path.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool isTold = ::GetFileInformationByHandle(handle, &file) != 0;
  ::CloseHandle(handle);
  return isTold;
}

// By the file's number on its volume: another spelling of the path, or a link, leads to the same.
bool isSameFile(const std::string& one, const std::string& other) {
  BY_HANDLE_FILE_INFORMATION a;
  BY_HANDLE_FILE_INFORMATION b;
  return identify(one, a) && identify(other, b) &&
         a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh &&
         a.nFileIndexLow == b.nFileIndexLow;
}

void tell(std::string_view text) {
  writeAll(::GetStdHandle(STD_ERROR_HANDLE), text.data(), text.size());
}

}  // namespace

void complain(std::string_view text) { tell("osse: " + std::string(text) + "\n"); }

void complain(std::string_view text, OSSErr rc) {
  const char* const description = ecfErrorGetDescription(rc);
  std::string line = std::string(text) + ": " + Names::codeName(rc);
  if (description != nullptr) line.append(", ").append(description);
  complain(line);
}

int finish(Output& output) {
  if (output.flush()) return kDone;
  complain("the output could not be written");
  return kFailed;
}

bool readInput(const std::string& path, uint64_t most, std::string& bytes) {
  OSSHFile file;
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = OSS_FILE_OPEN_EXISTING;
  param.access = OSS_FILE_READ;
  if (const OSSErr rc = file.open(&param)) {
    complain(path, rc);
    return false;
  }
  OSSErr rc = ECF_OK;
  while (rc == ECF_OK && bytes.size() < most) {
    OSSFileReadParam piece;
    piece.size = std::min(most - bytes.size(), uint64_t{1} << 20);
    const size_t before = bytes.size();
    bytes.resize(before + piece.size);
    uint64_t count = 0;
    rc = file.read(&piece, bytes.data() + before, &count);
    bytes.resize(before + count);
  }
  file.close();
  if (rc == ECF_OK || rc == ECF_FILE_EOF) return true;
  complain(path, rc);
  return false;
}

OutputFile::~OutputFile() {
  if (isOurs_) ::CloseHandle(handle_);
}

bool OutputFile::open(const std::string& path, const std::string& input) {
  if (path.empty()) {
    handle_ = ::GetStdHandle(STD_OUTPUT_HANDLE);
    return true;
  }
  if (!input.empty() && isSameFile(path, input)) {
    complain(path + ": is the input, and would be emptied before it is read");
    return false;
  }
  const HANDLE file = ::CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    complain(path + ": cannot be written, system error " + std::to_string(::GetLastError()));
    return false;
  }
  handle_ = file;
  isOurs_ = true;
  return true;
}

bool OutputFile::write(const void* data, uint64_t size) {
  return writeAll(handle_, static_cast<const char*>(data), size);
}

bool OutputFile::writeAt(uint64_t offset, const void* data, uint64_t size) {
  LARGE_INTEGER target;
  target.QuadPart = static_cast<LONGLONG>(offset);
  return ::SetFilePointerEx(handle_, target, nullptr, FILE_BEGIN) && write(data, size);
}

bool OutputFile::sink(void* file, const char* data, size_t size) {
  return static_cast<OutputFile*>(file)->write(data, size);
}

Progress::Progress() {
  DWORD mode = 0;
  isShown_ = ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

Progress::~Progress() {
  if (isShown_ && records_ > kMask) tell("\n");
}

void Progress::show() const {
  if (isShown_) tell("\rosse: " + std::to_string(records_ >> 20) + " Mi records");
}

}  // namespace oss::tool
