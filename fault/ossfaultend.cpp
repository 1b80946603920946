#include "fault/ossfaultend.h"

#include "fault/ossSymFunctions.h"
#include "fault/ossguardtable.h"
#include "fault/osstrapmodules.h"

namespace oss {

void endFaultCapture(bool processEnds) noexcept {
  if (!processEnds) {
    withdrawStackWalkCallback();
    releaseKeptModules();
  }
  closeGuardTable();
}

}  // namespace oss
