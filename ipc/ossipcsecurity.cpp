#include "ipc/ossipcsecurity.h"

#include <atomic>

#include "core/ossoperation.h"
#include "ossipcresource.h"

using namespace oss;

namespace {

// The caller's record; null for the default. One word that is stored and read whole.
constinit std::atomic<const SECURITY_ATTRIBUTES*> g_attributes = nullptr;

// An access list that is null, unlike one that is empty, admits everybody.
OSSErr admitEverybody(SECURITY_DESCRIPTOR* descriptor, SECURITY_ATTRIBUTES* attributes) noexcept {
  Operation op(Func::ossInitSecurityAttributes2);

  *attributes = {sizeof *attributes, descriptor, TRUE};
  if (!::InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION))
    return op.failSystem(10, SysCall::InitializeSecurityDescriptor, {{1, hex(descriptor)}});
  if (!::SetSecurityDescriptorDacl(descriptor, TRUE, nullptr, FALSE))
    return op.failSystem(20, SysCall::SetSecurityDescriptorDacl, {{1, hex(descriptor)}});
  return op.exit();
}

}  // namespace

namespace oss {

OSSErr ossIPCBuildSecurityAttributes(SECURITY_DESCRIPTOR* descriptor,
                                     SECURITY_ATTRIBUTES* attributes) noexcept {
  Operation op(Func::ossInitSecurityAttributes);

  if (const auto* const chosen = g_attributes.load(std::memory_order_acquire)) {
    *attributes = *chosen;
    return op.exit();
  }
  return op.exit(admitEverybody(descriptor, attributes));
}

}  // namespace oss

void ossSetSecurityAttributesForOSS(SECURITY_ATTRIBUTES* attributes) noexcept {
  g_attributes.store(attributes, std::memory_order_release);
}
