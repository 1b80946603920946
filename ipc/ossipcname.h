// ossipcname.h - names of kernel objects as text.
//
// Pure: everything that decides about a name is an argument.
#pragma once

#include <cstddef>
#include <cstdint>

namespace oss {

// A name is cut at this length; its buffer holds a NUL behind it.
inline constexpr size_t kIPCNameCharacters = 261;
inline constexpr size_t kIPCNameBytes = 264;

// In front of the name: whether it is one for all sessions.
enum class NameScope : bool { Session, Global };

// Writes the name of a path and a number. The bytes behind its NUL stay.
void formIPCName(const char* path, int32_t projectID, NameScope scope,
                 char (&name)[kIPCNameBytes]) noexcept;

}  // namespace oss
