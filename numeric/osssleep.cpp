// Sleeping, as thin as it gets.
#include "core/osssystem.h"
#include "osscatalog.h"
#include "osstime.h"

OSSErr ossSleep(uint32_t milliseconds) noexcept {
  oss::system::sleep(milliseconds);
  return ECF_OK;
}

void ossYield() noexcept { oss::system::sleep(1); }
