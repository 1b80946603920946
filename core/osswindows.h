// osswindows.h - what the library does when a process loads and unloads it.
#pragma once

namespace oss {

// The library's share of a process attach, done once in a process however often it is called. It
// runs under the loader's lock and before any client, so it writes its results without locks.
void attachProcess() noexcept;

// Sets the platform and terminal-services flags from what the system tells. Flags that are set
// already stay set.
void detectPlatform() noexcept;

}  // namespace oss
