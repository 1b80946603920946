#include "ipc/ossipcname.h"

#include "ossstring.h"

namespace oss {

void formIPCName(const char* path, int32_t projectID, NameScope scope,
                 char (&name)[kIPCNameBytes]) noexcept {
  const char* const prefix = scope == NameScope::Global ? "Global\\" : "";
  size_t length = ossSnprintf(name, sizeof name, "%sOSSEIPC%d", prefix, projectID);

  for (; *path != '\0' && length < kIPCNameCharacters; ++path)
    if (*path != ':' && *path != '\\') name[length++] = *path;
  name[length] = '\0';
}

}  // namespace oss
