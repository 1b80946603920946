// The traces of the file handle's operations.
#include "trace/operationscene.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

Trace parametersOfOpen(const OSSFileOpenParam& param) {
  const std::string bytes = bytesOf(param);
  EXPECT_EQ(bytes.size(), 56u);
  return {data(Func::OSSHFile_open, 200, bytes), data(Func::OSSHFile_open, 220, param.path)};
}

OSSFileMapParam mapParam() {
  OSSFileMapParam param;
  param.protection = OSS_FILE_MAP_READ_ONLY;
  return param;
}
TraceEvidence parametersOfMap(const OSSFileMapParam& param) {
  const std::string bytes = bytesOf(param);
  EXPECT_EQ(bytes.size(), 32u);
  return data(Func::OSSHFile_map, 10, bytes);
}

struct Write {
  OSSFileWriteParam param;
  uint64_t count = 0;

  Write() {
    param.buffer = "abcd";
    param.size = 4;
  }
  Trace parameters() {
    uint64_t* const out = &count;
    return {
        data(Func::OSSHFile_write, 30, bytesOf(param.buffer) + bytesOf(param.size) + bytesOf(out))};
  }
};

OSSErr readBytes(Scene& scene, uint64_t size, uint64_t* count) {
  char buffer[16];
  OSSFileReadParam param;
  param.size = size;
  return scene.file.read(&param, buffer, count);
}

constexpr Case kFileCases[] = {
    {Func::OSSHFile_open, false,
     [](Scene& s) {
       return s.plain(
           Func::OSSHFile_open, [&] { return s.file.open(nullptr); }, 0x9000000C);
     }},
    {Func::OSSHFile_open, false,
     [](Scene& s) {
       s.openParam.version = OSS_VERSION_OLDEST - 1;
       return s.plain(
           Func::OSSHFile_open, [&] { return s.file.open(&s.openParam); }, 0x90000004);
     }},
    {Func::OSSHFile_open, true,
     [](Scene& s) {
       return s.plain(
           Func::OSSHFile_open, [&] { return s.file.open(&s.openParam); }, ECF_OK,
           parametersOfOpen(s.openParam));
     }},
    {Func::OSSHFile_open, false,
     [](Scene& s) {
       return s.refused(
           {Func::OSSHFile_open, 280, SysCall::CreateFileA, "CreateFileA", kAllOnes},
           [&] { return s.file.open(&s.openParam); }, parametersOfOpen(s.openParam));
     }},
    {Func::OSSHFile_close, true,
     [](Scene& s) {
       s.openFile();
       return s.plain(Func::OSSHFile_close, [&] { return s.file.close(); });
     }},
    {Func::OSSHFile_close, false,
     [](Scene& s) {
       s.openFile();
       return s.refused({Func::OSSHFile_close, 20, SysCall::CloseHandle, "CloseHandle"},
                        [&] { return s.file.close(); });
     }},
    {Func::OSSHFile_seek, true,
     [](Scene& s) {
       const OSSFileSeekParam param;
       s.openFile();
       return s.plain(Func::OSSHFile_seek, [&] { return s.file.seek(&param, nullptr); });
     }},
    {Func::OSSHFile_seek, false,
     [](Scene& s) {
       const OSSFileSeekParam param;
       s.openFile();
       return s.refused(
           {Func::OSSHFile_seek, 140, SysCall::GetFileSize, "GetFileSize", INVALID_FILE_SIZE},
           [&] { return s.file.seek(&param, nullptr); });
     }},
    {Func::OSSHFile_getSize, true,
     [](Scene& s) {
       uint64_t size = 0;
       s.openFile();
       return s.plain(Func::OSSHFile_getSize, [&] { return s.file.getSize(&size); }, ECF_OK,
                      {data(Func::OSSHFile_getSize, 30, std::string("\x08\0\0\0\0\0\0\0", 8))});
     }},
    {Func::OSSHFile_getSize, false,
     [](Scene& s) {
       uint64_t size = 0;
       s.openFile();
       return s.refused(
           {Func::OSSHFile_getSize, 20, SysCall::GetFileSize, "GetFileSize", INVALID_FILE_SIZE},
           [&] { return s.file.getSize(&size); });
     }},
    {Func::OSSHFile_setSize, true,
     [](Scene& s) {
       const OSSFileSetSizeParam param;
       s.openFile();
       return s.plain(Func::OSSHFile_setSize, [&] { return s.file.setSize(&param); });
     }},
    {Func::OSSHFile_setSize, false,
     [](Scene& s) {
       const OSSFileSetSizeParam param;
       s.openFile();
       return s.refused({Func::OSSHFile_setSize, 150, SysCall::SetEndOfFile, "SetEndOfFile"},
                        [&] { return s.file.setSize(&param); });
     }},
    {Func::OSSHFile_read, true,
     [](Scene& s) {
       uint64_t count = 0;
       s.openFile();
       return s.plain(Func::OSSHFile_read, [&] { return readBytes(s, 8, &count); });
     }},
    // An end of file is a data point: the count and what was asked for.
    {Func::OSSHFile_read, false,
     [](Scene& s) {
       uint64_t count = 0;
       s.openFile();
       return s.plain(Func::OSSHFile_read, [&] { return readBytes(s, 9, &count); }, 0x90000021,
                      {data(Func::OSSHFile_read, 40,
                            std::string("\x08\0\0\0\0\0\0\0\x09\0\0\0\0\0\0\0", 16))});
     }},
    {Func::OSSHFile_read, false,
     [](Scene& s) {
       uint64_t count = 0;
       s.openFile();
       return s.refused({Func::OSSHFile_read, 50, SysCall::ReadFile, "ReadFile"},
                        [&] { return readBytes(s, 8, &count); });
     }},
    {Func::OSSHFile_write, true,
     [](Scene& s) {
       Write write;
       s.openFile();
       return s.plain(
           Func::OSSHFile_write, [&] { return s.file.write(&write.param, &write.count); }, ECF_OK,
           write.parameters());
     }},
    {Func::OSSHFile_write, false,
     [](Scene& s) {
       Write write;
       s.openFile();
       return s.refused(
           {Func::OSSHFile_write, 40, SysCall::WriteFile, "WriteFile"},
           [&] { return s.file.write(&write.param, &write.count); }, write.parameters());
     }},
    {Func::OSSHFile_lock, true,
     [](Scene& s) {
       const OSSFileLockParam param(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
       s.openFile();
       return s.plain(Func::OSSHFile_lock, [&] { return s.file.lock(&param); });
     }},
    {Func::OSSHFile_lock, false,
     [](Scene& s) {
       const OSSFileLockParam param(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
       s.openFile();
       return s.refused({Func::OSSHFile_lock, 160, SysCall::LockFileEx, "LockFileEx"},
                        [&] { return s.file.lock(&param); });
     }},
    // That another holds the lock is an answer and no error.
    {Func::OSSHFile_lock, false,
     [](Scene& s) {
       const OSSFileLockParam param(OSS_FILE_LOCK_SHARED, OSS_FILE_LOCK_NO_WAIT);
       s.openFile();
       FailingCall fails("LockFileEx", ERROR_LOCK_VIOLATION);
       return s.plain(
           Func::OSSHFile_lock, [&] { return s.file.lock(&param); }, 0x90000014);
     }},
    {Func::OSSHFile_unlock, true,
     [](Scene& s) {
       const OSSFileLockParam param(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
       s.openFile();
       EXPECT_EQ(s.file.lock(&param), ECF_OK);
       return s.plain(Func::OSSHFile_unlock, [&] { return s.file.unlock(); });
     }},
    {Func::OSSHFile_unlock, false,
     [](Scene& s) {
       s.openFile();
       return s.refused({Func::OSSHFile_unlock, 20, SysCall::UnlockFileEx, "UnlockFileEx"},
                        [&] { return s.file.unlock(); });
     }},
    {Func::OSSHFile_sync, true,
     [](Scene& s) {
       s.openFile();
       return s.plain(Func::OSSHFile_sync, [&] { return s.file.sync(); });
     }},
    {Func::OSSHFile_sync, false,
     [](Scene& s) {
       s.openFile();
       return s.refused({Func::OSSHFile_sync, 20, SysCall::FlushFileBuffers, "FlushFileBuffers"},
                        [&] { return s.file.sync(); });
     }},
    {Func::OSSHFile_map, true,
     [](Scene& s) {
       const OSSFileMapParam param = mapParam();
       void* view = nullptr;
       s.openFile();
       EXPECT_EQ(s.traced([&] { return s.file.map(&param, &view); }), ECF_OK);
       const TraceEvidence result = data(Func::OSSHFile_map, 90, bytesOf(view));
       EXPECT_EQ(s.file.unmap(view), ECF_OK);
       return framed(Func::OSSHFile_map, ECF_OK, {parametersOfMap(param), result});
     }},
    {Func::OSSHFile_map, false,
     [](Scene& s) {
       const OSSFileMapParam param = mapParam();
       void* view = nullptr;
       s.openFile();
       return s.refused({Func::OSSHFile_map, 80, SysCall::MapViewOfFileEx, "MapViewOfFileEx"},
                        [&] { return s.file.map(&param, &view); }, {parametersOfMap(param)});
     }},
    {Func::OSSHFile_unmap, true,
     [](Scene& s) {
       const OSSFileMapParam param = mapParam();
       void* view = nullptr;
       s.openFile();
       EXPECT_EQ(s.file.map(&param, &view), ECF_OK);
       return s.plain(Func::OSSHFile_unmap, [&] { return s.file.unmap(view); });
     }},
    {Func::OSSHFile_unmap, false,
     [](Scene& s) {
       const OSSFileMapParam param = mapParam();
       void* view = nullptr;
       s.openFile();
       EXPECT_EQ(s.file.map(&param, &view), ECF_OK);
       const Trace trace =
           s.refused({Func::OSSHFile_unmap, 30, SysCall::UnmapViewOfFile, "UnmapViewOfFile"},
                     [&] { return s.file.unmap(view); });
       EXPECT_EQ(s.file.unmap(view), ECF_OK);
       return trace;
     }},
};

}  // namespace

std::span<const Case> fileCases() { return kFileCases; }

}  // namespace osse_test
