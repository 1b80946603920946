// ossprocessmemory.h - memory of a process, read through the system: what cannot be read raises no
// fault, which a fault handler would see.
#pragma once

#include <windows.h>

#include <cstddef>

#include "fault/ossreadable.h"

namespace oss {

class ProcessMemory final : public Memory {
 public:
  explicit ProcessMemory(HANDLE process) noexcept : process_(process) {}

  bool isReadable(uint64_t address, uint64_t bytes) const noexcept override;

  // Copies all of these bytes or returns false.
  bool read(uint64_t address, void* to, size_t bytes) const noexcept;

 private:
  HANDLE process_;
};

}  // namespace oss
