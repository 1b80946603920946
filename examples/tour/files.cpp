// Files: reading in pieces, copying, seeking, extending, mapping.
#include <cstring>

#include "ossfile.h"
#include "tour.h"

namespace tour {
namespace {

constexpr uint64_t kPiece = 1000;

bool open(OSSHFile& file, const std::string& path, uint64_t creation, uint64_t access) {
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = creation;
  param.access = access;
  return told("OSSHFile::open", file.open(&param));
}

// Copies piece by piece and returns the code that ended it: ECF_FILE_EOF when all is copied.
OSSErr copyPieces(OSSHFile& from, OSSHFile& to, uint64_t* pieces, uint64_t* bytes) {
  char buffer[kPiece];
  OSSFileReadParam read;
  read.size = sizeof buffer;
  for (;;) {
    uint64_t count = 0;
    const OSSErr rc = from.read(&read, buffer, &count);
    if (rc != ECF_OK && rc != ECF_FILE_EOF) return rc;

    OSSFileWriteParam write;
    write.buffer = buffer;
    write.size = count;
    if (const OSSErr failed = to.write(&write, nullptr)) return failed;
    *pieces += count != 0;
    *bytes += count;
    if (rc == ECF_FILE_EOF) return rc;
  }
}

}  // namespace

void readAndCopy(const Stage& stage) {
  act("A real file is read in pieces and copied");
  note("%s", stage.input.c_str());
  OSSHFile from;
  OSSHFile to;
  if (!open(from, stage.input, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ)) return;
  if (!open(to, stage.workFile, OSS_FILE_CREATE_ALWAYS, OSS_FILE_WRITE)) return;

  uint64_t size = 0;
  told("OSSHFile::getSize", from.getSize(&size));
  uint64_t pieces = 0;
  uint64_t bytes = 0;
  expected("OSSHFile::read and write, until the end", copyPieces(from, to, &pieces, &bytes),
           ECF_FILE_EOF);
  note("%llu bytes in %llu pieces of up to %llu", bytes, pieces, kPiece);
  if (bytes != size) expected("the bytes copied", ECF_FAILED, ECF_OK);
  told("OSSHFile::sync, the copy", to.sync());
  told("OSSHFile::close", from.close());
  told("OSSHFile::close, the copy", to.close());
}

void workOnTheCopy(const Stage& stage) {
  act("The copy is extended, mapped and written through the view");
  OSSHFile file;
  if (!open(file, stage.workFile, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ_WRITE)) return;

  uint64_t size = 0;
  told("OSSHFile::getSize", file.getSize(&size));
  OSSFileSetSizeParam extend;
  extend.size = size + 4096;
  told("OSSHFile::setSize, 4,096 bytes more", file.setSize(&extend));

  OSSFileMapParam whole;
  whole.protection = OSS_FILE_MAP_READ_WRITE;
  void* view = nullptr;
  if (told("OSSHFile::map, read/write", file.map(&whole, &view))) {
    constexpr char kMark[] = "written through the view";
    std::memcpy(static_cast<char*>(view) + size, kMark, sizeof kMark - 1);
    told("OSSHFile::unmap", file.unmap(view));

    OSSFileSeekParam behind;
    behind.offset = static_cast<int64_t>(size);
    behind.origin = OSS_FILE_START;
    uint64_t position = 0;
    told("OSSHFile::seek, behind the old end", file.seek(&behind, &position));
    char text[sizeof kMark] = "";
    OSSFileReadParam read;
    read.size = sizeof kMark - 1;
    uint64_t count = 0;
    told("OSSHFile::read", file.read(&read, text, &count));
    note("at %llu stands \"%s\"", position, text);
  }

  OSSFileSetSizeParam back;
  back.size = size;
  told("OSSHFile::setSize, back", file.setSize(&back));
  told("OSSHFile::close", file.close());
}

}  // namespace tour
