// The trace of the operations on information records, as they succeed and as they fail.
#include "osssysinfo.h"
#include "trace/operationscene.h"

namespace osse_test {

using oss::Func;
using oss::SysCall;

namespace {

// A record that can be filled in whole.
template <class Record>
Record oldRecord() {
  Record record;
  record.version = OSS_VERSION_OLDEST;
  return record;
}

// It asks for both of its parts. What the first shows, the system tells anew each time: its record
// is taken as it was seen.
Trace virtualMemory(Scene& s) {
  OSSVirtualMemInfo info;
  EXPECT_EQ(s.traced([&] { return ossGetVirtualMemInfo(&info); }), ECF_OK);
  const Trace seen = s.records();
  OSSPhysMemInfo physical;
  if (seen.size() < 3 || seen[2].items.size() != sizeof physical) return {};
  std::memcpy(&physical, seen[2].items.data(), sizeof physical);
  EXPECT_LE(physical.total.value, info.total.value);

  Trace within = framed(Func::ossGetPhysMemInfo, ECF_OK,
                        {data(Func::ossGetPhysMemInfo, 10, bytesOf(physical))});
  for (const TraceEvidence& record : framed(Func::ossGetPhysSwapInfo, ECF_OK))
    within.push_back(record);
  return framed(Func::ossGetVirtualMemInfo, ECF_OK, within);
}

constexpr OSSUserParam kUserParam = {.size = 300};
char g_text[300];
OSSErr userName(const OSSUserParam& param) { return ossGetCurrentUserName(&param, g_text); }
OSSErr userDisplay(const OSSUserParam& param) { return ossGetCurrentUserDisplay(&param, g_text); }

// What a refusal leaves open: the token of an operation, which is closed for it.
class LostToken {
 public:
  LostToken()
      : opens_("OpenProcessToken", [this](Call& call) {
          const Word result = call.passOn();
          token_ = *call.argument<HANDLE*>(2);
          return result;
        }) {}
  ~LostToken() { EXPECT_TRUE(::CloseHandle(token_)); }
  LostToken(const LostToken&) = delete;
  LostToken& operator=(const LostToken&) = delete;

 private:
  HANDLE token_ = nullptr;
  ImportHook opens_;
};

Trace refusedDisplay(Scene& s, uint16_t probe, SysCall call, const char* name) {
  const LostToken token;
  return s.refused({Func::ossGetCurrentUserDisplay, probe, call, name},
                   [] { return userDisplay(kUserParam); },
                   {data(Func::ossGetCurrentUserDisplay, 10, bytesOf(kUserParam))});
}

OSSErr diskInfo(const char* path) {
  OSSDiskInfoParam param;
  param.path = path;
  OSSDiskInfo info;
  return ossGetDiskInfo(&param, &info);
}

// The facts of a directory on which a volume is mounted.
OSSErr mountedVolume() {
  ImportHook attributes("GetFileAttributesA", [](Call&) {
    return FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  });
  return diskInfo("C:\\mount");
}
// Plays the part of the system, which does not tell what volume it is.
BOOL WINAPI refuseName(const char*, char*, DWORD) {
  ::SetLastError(ERROR_NOT_READY);
  return FALSE;
}

// A listing that has begun.
class Drives {
 public:
  Drives() { EXPECT_EQ(listing_.begin(), ECF_OK); }
  OSSErr next() { return listing_.getNext(&param_, info_); }

 private:
  OSSMountListing listing_;
  OSSMountInfo info_;
  OSSMountListingGetParam param_;
};

constexpr Case kSysInfoCases[] = {
    {Func::ossGetCPUInfo, true,
     [](Scene& s) {
       OSSCPUInfo info;
       return s.plain(Func::ossGetCPUInfo, [&] { return ossGetCPUInfo(&info); });
     }},
    // Traced, not logged.
    {Func::ossGetCPUInfo, false,
     [](Scene& s) {
       constexpr LSTATUS kError = ERROR_ACCESS_DENIED;
       OSSCPUInfo info;
       ImportHook fails("RegOpenKeyExA", [](Call&) { return kError; });
       return s.plain(Func::ossGetCPUInfo, [&] { return ossGetCPUInfo(&info); }, ECF_PARTIAL_INFO,
                      {data(Func::ossGetCPUInfo, 10, bytesOf(kError))});
     }},
    {Func::ossGetCPUInfo, false,
     [](Scene& s) {
       constexpr LSTATUS kError = ERROR_FILE_NOT_FOUND;
       OSSCPUInfo info;
       ImportHook fails("RegQueryValueExA", [](Call&) { return kError; });
       return s.plain(Func::ossGetCPUInfo, [&] { return ossGetCPUInfo(&info); }, ECF_PARTIAL_INFO,
                      {data(Func::ossGetCPUInfo, 20, bytesOf(kError))});
     }},
    {Func::ossGetOSInfo, true,
     [](Scene& s) {
       auto info = oldRecord<OSSOSInfo>();
       return s.plain(Func::ossGetOSInfo, [&] { return ossGetOSInfo(&info); });
     }},
    {Func::ossGetOSInfo, false,
     [](Scene& s) {
       constexpr DWORD kNameError = ERROR_BUFFER_OVERFLOW, kVersionError = ERROR_INVALID_PARAMETER;
       auto info = oldRecord<OSSOSInfo>();
       FailingCall name("GetComputerNameA", kNameError);
       FailingCall version("GetVersionExA", kVersionError);
       return s.plain(Func::ossGetOSInfo, [&] { return ossGetOSInfo(&info); }, ECF_PARTIAL_INFO,
                      {data(Func::ossGetOSInfo, 10, bytesOf(kNameError)),
                       data(Func::ossGetOSInfo, 20, bytesOf(kVersionError))});
     }},
    {Func::ossGetSystemDirectory, true,
     [](Scene& s) {
       OSSSystemDirectoryInfo info;
       return s.plain(Func::ossGetSystemDirectory,
                      [&] { return ossGetSystemDirectory(&info, &info); });
     }},
    {Func::ossGetSystemDirectory, false,
     [](Scene& s) {
       OSSSystemDirectoryInfo info;
       return s.refused(
           {Func::ossGetSystemDirectory, 20, SysCall::GetSystemDirectoryA, "GetSystemDirectoryA"},
           [&] { return ossGetSystemDirectory(&info, &info); });
     }},
    // Shown as it was filled.
    {Func::ossGetPhysMemInfo, true,
     [](Scene& s) {
       OSSPhysMemInfo info;
       Trace trace = s.plain(Func::ossGetPhysMemInfo, [&] { return ossGetPhysMemInfo(&info); });
       trace.insert(trace.begin() + 1, data(Func::ossGetPhysMemInfo, 10, bytesOf(info)));
       return trace;
     }},
    {Func::ossGetPhysMemInfo, false,
     [](Scene& s) {
       return s.plain(
           Func::ossGetPhysMemInfo, [] { return ossGetPhysMemInfo(nullptr); },
           ECF_INVALID_PARAMETER);
     }},
    {Func::ossGetPhysSwapInfo, true,
     [](Scene& s) {
       OSSPhysSwapInfo info;
       return s.plain(Func::ossGetPhysSwapInfo, [&] { return ossGetPhysSwapInfo(&info); });
     }},
    {Func::ossGetPhysSwapInfo, false,
     [](Scene& s) {
       return s.plain(
           Func::ossGetPhysSwapInfo, [] { return ossGetPhysSwapInfo(nullptr); },
           ECF_INVALID_PARAMETER);
     }},
    {Func::ossGetVirtualMemInfo, true, &virtualMemory},
    {Func::ossGetVirtualMemInfo, false,
     [](Scene& s) {
       return s.plain(
           Func::ossGetVirtualMemInfo, [] { return ossGetVirtualMemInfo(nullptr); },
           ECF_INVALID_PARAMETER);
     }},
    // Deliberate: it has nothing to tell, and no other answer.
    {Func::ossGetKernelIPCInfo, true,
     [](Scene& s) {
       OSSKernelIPCInfo info;
       return s.plain(
           Func::ossGetKernelIPCInfo, [&] { return ossGetKernelIPCInfo(&info); },
           ECF_NOT_SUPPORTED);
     }},
    {Func::ossGetKernelIPCInfo, false,
     [](Scene& s) {
       return s.plain(
           Func::ossGetKernelIPCInfo, [] { return ossGetKernelIPCInfo(nullptr); },
           ECF_INVALID_PARAMETER);
     }},
    // Deliberate: it has nothing to tell, and no other answer.
    {Func::ossGetAvgCPULoad, true,
     [](Scene& s) {
       OSSCPULoadInfo info;
       OSSCPULoadInfo marked;
       for (auto* const member : {&marked.shortAverage, &marked.mediumAverage, &marked.longAverage})
         member->status = ECF_NOT_SUPPORTED;
       return s.plain(Func::ossGetAvgCPULoad, [&] { return ossGetAvgCPULoad(&info); },
                      ECF_NOT_SUPPORTED, {data(Func::ossGetAvgCPULoad, 10, bytesOf(marked))});
     }},
    {Func::ossGetAvgCPULoad, false,
     [](Scene& s) {
       return s.plain(
           Func::ossGetAvgCPULoad, [] { return ossGetAvgCPULoad(nullptr); }, ECF_INVALID_PARAMETER);
     }},
    {Func::ossGetCurrentUserName, true,
     [](Scene& s) {
       return s.plain(Func::ossGetCurrentUserName, [] { return userName(kUserParam); }, ECF_OK,
                      {data(Func::ossGetCurrentUserName, 10, bytesOf(kUserParam))});
     }},
    {Func::ossGetCurrentUserName, false,
     [](Scene& s) {
       return s.refused({Func::ossGetCurrentUserName, 40, SysCall::GetUserNameA, "GetUserNameA"},
                        [] { return userName(kUserParam); },
                        {data(Func::ossGetCurrentUserName, 10, bytesOf(kUserParam))});
     }},
    {Func::ossGetCurrentUserDisplay, true,
     [](Scene& s) {
       return s.plain(Func::ossGetCurrentUserDisplay, [] { return userDisplay(kUserParam); },
                      ECF_OK, {data(Func::ossGetCurrentUserDisplay, 10, bytesOf(kUserParam))});
     }},
    {Func::ossGetCurrentUserDisplay, false,
     [](Scene& s) {
       return s.refused(
           {Func::ossGetCurrentUserDisplay, 30, SysCall::OpenProcessToken, "OpenProcessToken"},
           [] { return userDisplay(kUserParam); },
           {data(Func::ossGetCurrentUserDisplay, 10, bytesOf(kUserParam))});
     }},
    {Func::ossGetCurrentUserDisplay, false,
     [](Scene& s) {
       return refusedDisplay(s, 40, SysCall::GetTokenInformation, "GetTokenInformation");
     }},
    {Func::ossGetCurrentUserDisplay, false,
     [](Scene& s) { return refusedDisplay(s, 50, SysCall::CloseHandle, "CloseHandle"); }},
    {Func::OSSMountListing_begin, true,
     [](Scene& s) {
       OSSMountListing listing;
       return s.plain(Func::OSSMountListing_begin, [&] { return listing.begin(); });
     }},
    {Func::OSSMountListing_begin, false,
     [](Scene& s) {
       OSSMountListing listing;
       return s.refused({Func::OSSMountListing_begin, 80, SysCall::GetLogicalDriveStringsA,
                         "GetLogicalDriveStringsA"},
                        [&] { return listing.begin(); });
     }},
    {Func::OSSMountListing_getNext, true,
     [](Scene& s) {
       Drives drives;
       return s.plain(Func::OSSMountListing_getNext, [&] { return drives.next(); });
     }},
    {Func::OSSMountListing_getNext, false,
     [](Scene& s) {
       Drives drives;
       return s.refused({Func::OSSMountListing_getNext, 40, SysCall::GetVolumeInformationA,
                         "GetVolumeInformationA"},
                        [&] { return drives.next(); });
     }},
    {Func::OSSMountListing_getNext, false,
     [](Scene& s) {
       Drives drives;
       return s.refused(
           {Func::OSSMountListing_getNext, 50, SysCall::GetDiskFreeSpaceExA, "GetDiskFreeSpaceExA"},
           [&] { return drives.next(); });
     }},
    // An end is expected: traced, and no error point.
    {Func::OSSMountListing_getNext, false,
     [](Scene& s) {
       Drives drives;
       while (drives.next() == ECF_OK) continue;
       constexpr OSSErr kEnd = ECF_FILE_EOF;
       return s.plain(Func::OSSMountListing_getNext, [&] { return drives.next(); }, kEnd,
                      {data(Func::OSSMountListing_getNext, 30, bytesOf(kEnd))});
     }},
    {Func::OSSMountListing_end, true,
     [](Scene& s) {
       OSSMountListing listing;
       EXPECT_EQ(listing.begin(), ECF_OK);
       return s.plain(Func::OSSMountListing_end, [&] { return listing.end(); });
     }},
    {Func::OSSMountListing_end, false,
     [](Scene& s) {
       OSSMountListing listing;
       return s.plain(
           Func::OSSMountListing_end, [&] { return listing.end(); },
           ECF_INVALID_INVOCATION_SEQUENCE);
     }},
    // Deliberate: never 0.
    {Func::ossGetDiskInfo, true,
     [](Scene& s) {
       return s.plain(
           Func::ossGetDiskInfo, [&] { return diskInfo(s.dir.path().c_str()); }, ECF_PARTIAL_INFO);
     }},
    {Func::ossGetDiskInfo, false,
     [](Scene& s) {
       return s.refused(
           {Func::ossGetDiskInfo, 25, SysCall::GetFileAttributesA, "GetFileAttributesA",
            INVALID_FILE_ATTRIBUTES},
           [&] { return diskInfo(s.dir.path().c_str()); }, framed(Func::ossIsNTVolume, 0));
     }},
    {Func::ossGetDiskInfo, false,
     [](Scene& s) {
       return s.refused({Func::ossGetDiskInfo, 10, SysCall::GetModuleHandleA, "GetModuleHandleA"},
                        &mountedVolume);
     }},
    {Func::ossGetDiskInfo, false,
     [](Scene& s) {
       return s.refused({Func::ossGetDiskInfo, 10, SysCall::GetProcAddress, "GetProcAddress"},
                        &mountedVolume);
     }},
    {Func::ossGetDiskInfo, false,
     [](Scene& s) {
       ImportHook lookUp("GetProcAddress",
                         [](Call&) { return reinterpret_cast<void*>(&refuseName); });
       return s.plain(Func::ossGetDiskInfo, &mountedVolume, ECF_FILE_DEVICE_UNAVAILABLE,
                      {error(Func::ossGetDiskInfo, 20, ECF_FILE_DEVICE_UNAVAILABLE)});
     }},
    {Func::ossGetDiskInfo, false,
     [](Scene& s) {
       FailingCall fails("GetFileAttributesA", ERROR_INVALID_NAME,
                         {.result = INVALID_FILE_ATTRIBUTES});
       return s.plain(
           Func::ossGetDiskInfo, [] { return diskInfo(R"(\\.\C:)"); }, ECF_PARTIAL_INFO,
           framed(Func::ossIsNTVolume, 1));
     }},
};

}  // namespace

std::span<const Case> sysInfoCases() { return kSysInfoCases; }

}  // namespace osse_test
