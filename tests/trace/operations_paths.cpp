// The traces of the operations on paths.
#include "trace/pathtraces.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr OSSErr kInvalidParameter = 0x9000000C;
constexpr OSSErr kMissing = 0x9000001A;

Trace named(OSSErr isDevice) { return framed(Func::ossIsNTVolume, isDevice); }

// Refused by the C run-time, whose calls tell by errno.
constexpr int kErrno = 22;
Word refuseByErrno(Call&) {
  ::SetLastError(ERROR_INVALID_HANDLE);
  errno = kErrno;
  return kAllOnes;
}
OSSErr mappedErrno(uint16_t probe, SysCall call) {
  return ossErrorMapSystem(0, probe, static_cast<uint32_t>(call), kErrno, nullptr);
}
Trace refusedByRuntime(Scene& scene, const Scene::Refusal& refusal, const Code& operation,
                       Trace before = {}) {
  const OSSErr rc = mappedErrno(refusal.probe, refusal.call);
  const ImportHook hook(refusal.name, refuseByErrno);
  before.push_back(error(refusal.function, refusal.probe, rc));
  return scene.plain(refusal.function, operation, rc, before);
}

OSSErr directoryName(const char* path) {
  char out[260];
  return ossDirectoryName(path, out, sizeof out);
}

OSSErr baseName(const char* path) {
  char out[260];
  return ossBaseName(path, out, sizeof out);
}

OSSErr temporaryName(uint64_t flags) {
  char buffer[260];
  return osstmpnam(buffer, sizeof buffer, flags);
}

OSSErr currentDirectory() {
  char buffer[512];
  uint64_t size = sizeof buffer;
  return ossDirectoryGetCurrent(buffer, &size);
}

OSSErr create(const char* path, uint64_t mode) {
  OSSDirectoryCreateParam param;
  param.path = path;
  param.mode = mode;
  return ossDirectoryCreate(&param);
}

OSSErr remove(const char* path, uint64_t flags) {
  OSSDirectoryDeleteParam param;
  param.path = path;
  param.flags = flags;
  return ossDirectoryDelete(&param);
}

// A directory of the scene's, empty.
std::string emptyDirectory(Scene& scene) {
  std::string path = scene.dir.file("directory");
  EXPECT_TRUE(::CreateDirectoryA(path.c_str(), nullptr));
  return path;
}

constexpr Case kPathCases[] = {
    {Func::ossIsNTVolume, true,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryName, [] { return directoryName(R"(\\.\C:)"); }, ECF_OK, named(1));
     }},
    {Func::ossIsNTVolume, false,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryName, [] { return directoryName("file"); }, ECF_OK, named(0));
     }},
    {Func::ossPathTest, true,
     [](Scene& s) {
       OSSPathTestParam param;
       param.path = s.openParam.path;
       param.reserved = 7;
       return s.plain(Func::ossPathTest, [&] { return ossPathTest(&param); }, ECF_OK,
                      {data(Func::ossPathTest, 10, bytesOf(param))});
     }},
    // An answer, not a failure: no error point.
    {Func::ossPathTest, false,
     [](Scene& s) {
       const std::string path = s.dir.file("missing");
       OSSPathTestParam param;
       param.path = path.c_str();
       return s.plain(Func::ossPathTest, [&] { return ossPathTest(&param); }, kMissing,
                      {data(Func::ossPathTest, 10, bytesOf(param))});
     }},
    {Func::ossPathTest, false,
     [](Scene& s) {
       OSSPathTestParam param;
       param.path = s.openParam.path;
       return refusedByRuntime(s, {Func::ossPathTest, 40, SysCall::Access, "_access"},
                               [&] { return ossPathTest(&param); },
                               {data(Func::ossPathTest, 10, bytesOf(param))});
     }},
    {Func::ossPathExists, true,
     [](Scene& s) {
       return s.plain(
           Func::ossPathExists, [&] { return OSSErr{ossPathExists(s.openParam.path)}; }, 1,
           tested(s.openParam.path, ECF_OK));
     }},
    {Func::ossPathExists, false,
     [](Scene& s) {
       const std::string path = s.dir.file("missing");
       return s.plain(
           Func::ossPathExists, [&] { return OSSErr{ossPathExists(path.c_str())}; }, 0,
           missing(path));
     }},
    // Nothing is logged, and an error point all the same: that of the test.
    {Func::ossPathExists, false,
     [](Scene& s) {
       OSSPathTestParam param;
       param.path = s.openParam.path;
       const OSSErr rc = mappedErrno(40, SysCall::Access);
       const ImportHook hook("_access", refuseByErrno);
       return s.plain(
           Func::ossPathExists, [&] { return OSSErr{ossPathExists(param.path)}; }, 0,
           framed(Func::ossPathTest, rc,
                  {data(Func::ossPathTest, 10, bytesOf(param)), error(Func::ossPathTest, 40, rc)}));
     }},
    {Func::ossGetFileInfo, true,
     [](Scene& s) {
       OSSFileInfoParam param;
       param.path = s.openParam.path;
       OSSFileInfo info;
       return s.plain(Func::ossGetFileInfo, [&] { return ossFileGetInfo(&param, &info); });
     }},
    {Func::ossGetFileInfo, false,
     [](Scene& s) {
       OSSFileInfoParam param;
       param.path = s.openParam.path;
       OSSFileInfo info;
       return refusedByRuntime(s, {Func::ossGetFileInfo, 30, SysCall::Stat, "_stat64"},
                               [&] { return ossFileGetInfoV9(&param, &info); });
     }},
    {Func::ossComparePaths, true,
     [](Scene& s) {
       return s.plain(
           Func::ossComparePaths, [] { return OSSErr{ossComparePaths("a", "A")}; }, 1);
     }},
    {Func::ossComparePaths, false,
     [](Scene& s) {
       return s.plain(
           Func::ossComparePaths, [] { return OSSErr{ossComparePaths("a", "b")}; }, 0);
     }},
    {Func::ossGetLogicalDriveMap, true,
     [](Scene& s) {
       uint32_t map = 0;
       return s.plain(Func::ossGetLogicalDriveMap, [&] { return ossGetLogicalDriveMap(&map); });
     }},
    {Func::ossGetLogicalDriveMap, false,
     [](Scene& s) {
       uint32_t map = 0;
       FailingCall fails("GetLogicalDrives", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::ossGetLogicalDriveMap, [&] { return ossGetLogicalDriveMap(&map); }, 0x9000003E);
     }},
    {Func::ossDirectoryName, true,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryName, [] { return directoryName(R"(a\b)"); }, ECF_OK, named(0));
     }},
    {Func::ossDirectoryName, false,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryName, [] { return directoryName(""); }, kInvalidParameter);
     }},
    {Func::ossBaseName, true,
     [](Scene& s) { return s.plain(Func::ossBaseName, [] { return baseName("a"); }); }},
    {Func::ossBaseName, false,
     [](Scene& s) {
       return s.plain(
           Func::ossBaseName, [] { return baseName(""); }, kInvalidParameter);
     }},
    {Func::ossFileDelete, true,
     [](Scene& s) {
       const char* const path = s.openParam.path;
       return s.plain(
           Func::ossFileDelete, [&] { return ossFileDelete(path); }, ECF_OK, tested(path, ECF_OK));
     }},
    {Func::ossFileDelete, false,
     [](Scene& s) {
       const char* const path = s.openParam.path;
       return s.refused(
           {Func::ossFileDelete, 40, SysCall::DeleteFileA, "DeleteFileA"},
           [&] { return ossFileDelete(path); }, tested(path, ECF_OK));
     }},
    {Func::ossFileRename, true,
     [](Scene& s) {
       const std::string to = s.dir.file("renamed");
       return s.plain(Func::ossFileRename,
                      [&] { return ossFileRename(s.openParam.path, to.c_str()); });
     }},
    // Not mapped, and an error point all the same.
    {Func::ossFileRename, false,
     [](Scene& s) {
       FailingCall fails("MoveFileA", ERROR_INVALID_HANDLE);
       return s.plain(Func::ossFileRename, [] { return ossFileRename("a", "b"); }, kMissing,
                      {error(Func::ossFileRename, 30, kMissing)});
     }},
    {Func::ossFileSetPermissions, true,
     [](Scene& s) {
       return s.plain(Func::ossFileSetPermissions,
                      [&] { return ossFileSetPermissions(s.openParam.path, 0); });
     }},
    {Func::ossFileSetPermissions, false,
     [](Scene& s) {
       return s.refused({Func::ossFileSetPermissions, 20, SysCall::Chmod, "_chmod", kAllOnes},
                        [&] { return ossFileSetPermissions(s.openParam.path, 0); });
     }},
    {Func::ossFileCopy, true,
     [](Scene& s) {
       const std::string to = s.dir.file("copy");
       return s.plain(
           Func::ossFileCopy, [&] { return ossFileCopy(s.openParam.path, to.c_str()); }, ECF_OK,
           joined({missing(to), framed(Func::oss_copy, ECF_OK)}));
     }},
    {Func::ossFileCopy, false,
     [](Scene& s) {
       return s.plain(
           Func::ossFileCopy, [] { return ossFileCopy("a", "a"); }, kInvalidParameter);
     }},
    {Func::oss_copy, true,
     [](Scene& s) {
       const std::string to = s.dir.file("copy");
       return s.plain(
           Func::ossFileCopy, [&] { return ossFileCopy(s.openParam.path, to.c_str()); }, ECF_OK,
           joined({missing(to), framed(Func::oss_copy, ECF_OK)}));
     }},
    // The error point is the inner operation's.
    {Func::oss_copy, false,
     [](Scene& s) {
       const std::string to = s.dir.file("copy");
       FailingCall fails("CopyFileA", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::ossFileCopy, [&] { return ossFileCopy(s.openParam.path, to.c_str()); },
           kInvalidParameter,
           joined({missing(to), framed(Func::oss_copy, kInvalidParameter,
                                       {error(Func::oss_copy, 10, kInvalidParameter)})}));
     }},
    {Func::osstmpnam, true,
     [](Scene& s) { return s.plain(Func::osstmpnam, [] { return temporaryName(0); }); }},
    {Func::osstmpnam, false,
     [](Scene& s) {
       return s.refused({Func::osstmpnam, 10, SysCall::GetTempPathA, "GetTempPathA"},
                        [] { return temporaryName(OSS_TMPNAM_CREATE); });
     }},
    // Mapped as the directory. The code of the point is the one returned, not the one logged.
    {Func::osstmpnam, false,
     [](Scene& s) {
       return s.refused({Func::osstmpnam, 20, SysCall::GetTempPathA, "GetTempFileNameA"},
                        [] { return temporaryName(OSS_TMPNAM_CREATE); });
     }},
    {Func::ossDirectoryGetCurrent, true,
     [](Scene& s) { return s.plain(Func::ossDirectoryGetCurrent, currentDirectory); }},
    {Func::ossDirectoryGetCurrent, false,
     [](Scene& s) {
       return s.refused({Func::ossDirectoryGetCurrent, 40, SysCall::GetCurrentDirectoryA,
                         "GetCurrentDirectoryA"},
                        currentDirectory);
     }},
    {Func::ossDirectorySetCurrent, true,
     [](Scene& s) {
       return s.plain(Func::ossDirectorySetCurrent, [] { return ossDirectorySetCurrent("."); });
     }},
    {Func::ossDirectorySetCurrent, false,
     [](Scene& s) {
       return s.refused({Func::ossDirectorySetCurrent, 30, SysCall::SetCurrentDirectoryA,
                         "SetCurrentDirectoryA"},
                        [] { return ossDirectorySetCurrent("."); });
     }},
    {Func::ossDirectoryCreate, true,
     [](Scene& s) {
       const std::string path = s.dir.file("a\\b");
       return s.plain(Func::ossDirectoryCreate, [&] { return create(path.c_str(), 2); });
     }},
    {Func::ossDirectoryCreate, false,
     [](Scene& s) {
       const std::string path = s.dir.file("a");
       return s.refused(
           {Func::ossDirectoryCreate, 40, SysCall::CreateDirectoryA, "CreateDirectoryA"},
           [&] { return create(path.c_str(), 1); });
     }},
    {Func::ossDirectoryDelete, true,
     [](Scene& s) {
       const std::string path = emptyDirectory(s);
       return s.plain(
           Func::ossDirectoryDelete, [&] { return remove(path.c_str(), 0); }, ECF_OK,
           framed(Func::oss_directory_delete, ECF_OK));
     }},
    {Func::ossDirectoryDelete, false,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryDelete, [] { return ossDirectoryDelete(nullptr); }, kInvalidParameter);
     }},
    {Func::oss_directory_delete, true,
     [](Scene& s) {
       const std::string path = emptyDirectory(s);
       return s.plain(
           Func::ossDirectoryDelete, [&] { return remove(path.c_str(), 0); }, ECF_OK,
           framed(Func::oss_directory_delete, ECF_OK));
     }},
    {Func::oss_directory_delete, false,
     [](Scene& s) {
       FailingCall fails("RemoveDirectoryA", ERROR_INVALID_HANDLE);
       return s.plain(
           Func::ossDirectoryDelete, [] { return remove("a", 0); }, kInvalidParameter,
           framed(Func::oss_directory_delete, kInvalidParameter,
                  {error(Func::oss_directory_delete, 30, kInvalidParameter)}));
     }},
    {Func::oss_directory_delete_recursive, true,
     [](Scene& s) {
       const std::string path = emptyDirectory(s);
       return s.plain(
           Func::ossDirectoryDelete,
           [&] { return remove(path.c_str(), OSS_DIRECTORY_DELETE_RECURSIVELY); }, ECF_OK,
           framed(Func::oss_directory_delete_recursive, ECF_OK,
                  joined({listedNothing(path), framed(Func::oss_directory_delete, ECF_OK)})));
     }},
    {Func::oss_directory_delete_recursive, false,
     [](Scene& s) {
       return s.plain(
           Func::ossDirectoryDelete, [] { return remove("NUL", OSS_DIRECTORY_DELETE_RECURSIVELY); },
           kInvalidParameter, framed(Func::oss_directory_delete_recursive, kInvalidParameter));
     }},
};

}  // namespace

std::span<const Case> pathCases() { return kPathCases; }

}  // namespace osse_test
