#include "harness/peimage.h"

#include <algorithm>
#include <cstdint>

namespace osse_test {
namespace {

// A module in memory, where relative addresses count from its first byte.
class Image {
 public:
  explicit Image(HMODULE module) : base_(reinterpret_cast<uintptr_t>(module)) {}

  template <class T>
  T* at(uintptr_t relativeAddress) const {
    return reinterpret_cast<T*>(base_ + relativeAddress);
  }

  const IMAGE_DATA_DIRECTORY& directory(size_t index) const {
    const auto* const dos = at<IMAGE_DOS_HEADER>(0);
    const auto* const headers = at<IMAGE_NT_HEADERS>(static_cast<uintptr_t>(dos->e_lfanew));
    return headers->OptionalHeader.DataDirectory[index];
  }

 private:
  uintptr_t base_;
};

}  // namespace

HMODULE libraryModule() {
  const HMODULE library = ::GetModuleHandleA("KT5OSSE_INSTALL64.dll");
  return library != nullptr ? library : ::GetModuleHandleA(nullptr);
}

std::string nameOf(HMODULE module) {
  char path[MAX_PATH] = {};
  ::GetModuleFileNameA(module, path, sizeof path - 1);
  const std::string text = path;
  return text.substr(text.find_last_of('\\') + 1);
}

std::vector<Import> importsOf(HMODULE module) {
  const Image image(module);
  const IMAGE_DATA_DIRECTORY& directory = image.directory(IMAGE_DIRECTORY_ENTRY_IMPORT);
  std::vector<Import> imports;
  if (directory.Size == 0) return imports;

  const auto* library = image.at<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    // Two parallel lists: what is wanted, and the addresses that the loader found for it.
    const auto* wanted = image.at<IMAGE_THUNK_DATA>(library->OriginalFirstThunk);
    void** entry = image.at<void*>(library->FirstThunk);
    for (; wanted->u1.AddressOfData != 0; ++wanted, ++entry) {
      if (IMAGE_SNAP_BY_ORDINAL(wanted->u1.Ordinal)) continue;
      const auto* const function = image.at<IMAGE_IMPORT_BY_NAME>(wanted->u1.AddressOfData);
      imports.push_back({image.at<char>(library->Name), &function->Name[0], entry});
    }
  }
  return imports;
}

std::vector<std::string> exportsOf(HMODULE module) {
  const Image image(module);
  const IMAGE_DATA_DIRECTORY& directory = image.directory(IMAGE_DIRECTORY_ENTRY_EXPORT);
  std::vector<std::string> names;
  if (directory.Size == 0) return names;

  const auto* const table = image.at<IMAGE_EXPORT_DIRECTORY>(directory.VirtualAddress);
  const DWORD* const addresses = image.at<DWORD>(table->AddressOfNames);
  for (DWORD i = 0; i < table->NumberOfNames; ++i) names.emplace_back(image.at<char>(addresses[i]));
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace osse_test
