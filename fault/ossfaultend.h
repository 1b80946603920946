// ossfaultend.h - what fault capture gives back when the library is unloaded.
#pragma once

namespace oss {

// Called in front of the C run-time's termination. A process that ends has killed its other threads
// by then: memory that they may have been changing stays as it is.
void endFaultCapture(bool processEnds) noexcept;

}  // namespace oss
