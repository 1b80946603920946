// Failures: each is told to the caller by a code and to the log by a record.
#include "ossfile.h"
#include "tour.h"

namespace tour {

void runIntoFailures(const Stage& stage) {
  act("Failures");
  const std::string missing = stage.folder + "no-such-file";
  OSSFileOpenParam open;
  open.path = missing.c_str();
  open.creation = OSS_FILE_OPEN_EXISTING;
  open.access = OSS_FILE_READ;
  OSSHFile file;
  expected("OSSHFile::open, a missing file", file.open(&open), ECF_FILE_DOESNT_EXIST);

  const std::string nowhere = stage.folder + "no-such-folder\\file";
  open.path = nowhere.c_str();
  open.creation = OSS_FILE_CREATE_NEW;
  expected("OSSHFile::open, in a missing folder", file.open(&open), ECF_FILE_PATH_DOESNT_EXIST);

  uint64_t size = 0;
  expected("OSSHFile::getSize, a closed handle", file.getSize(&size), ECF_INVALID_PARAMETER);

  open.path = stage.workFile.c_str();
  open.creation = OSS_FILE_OPEN_EXISTING;
  if (!told("OSSHFile::open, the copy", file.open(&open))) return;
  OSSFileSeekParam beyond;
  beyond.offset = 1;
  beyond.origin = OSS_FILE_END;
  expected("OSSHFile::seek, one byte beyond the end", file.seek(&beyond, nullptr),
           ECF_FILE_SEEK_BEYOND_EOF);

  OSSFileReadParam old;
  old.version = 20040701;
  char buffer[16];
  uint64_t count = 0;
  expected("OSSHFile::read, a record of an old version", file.read(&old, buffer, &count),
           ECF_INVALID_VERSION);
  told("OSSHFile::close", file.close());
}

}  // namespace tour
