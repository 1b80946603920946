// ossecf_expected_syscalls.h - the system calls that the catalog must name. A copy of its own, so
// that a slip in a row of a .def file fails a test.
#pragma once

#include "osscatalog.h"

namespace oss::expected {

// All other numbers up to 353 are reserved.
struct SystemCall {
  uint32_t number;
  SysCall call;
  const char* name;
};
inline constexpr SystemCall kSystemCalls[] = {
    {1, SysCall::Access, "access"},
    {3, SysCall::Chmod, "chmod"},
    {5, SysCall::Close, "close"},
    {32, SysCall::Malloc, "malloc"},
    {104, SysCall::BeginThreadEx, "_beginthreadex"},
    {105, SysCall::CloseHandle, "CloseHandle"},
    {106, SysCall::CopyFileA, "CopyFile"},
    {107, SysCall::CreateDirectoryA, "CreateDirectory"},
    {108, SysCall::CreateEventA, "CreateEvent"},
    {109, SysCall::CreateFileA, "CreateFile"},
    {110, SysCall::CreateFileMappingA, "CreateFileMapping"},
    {111, SysCall::CreateProcessA, "CreateProcess"},
    {112, SysCall::CreateSemaphoreA, "CreateSemaphore"},
    {113, SysCall::DeleteFileA, "DeleteFile"},
    {115, SysCall::FindFirstFileA, "FindFirstFile"},
    {116, SysCall::FindNextFileA, "FindNextFile"},
    {117, SysCall::FindClose, "FindClose"},
    {118, SysCall::FlushFileBuffers, "FlushFileBuffers"},
    {120, SysCall::FreeLibrary, "FreeLibrary"},
    {122, SysCall::GetCurrentDirectoryA, "GetCurrentDirectory"},
    {123, SysCall::GetDiskFreeSpaceExA, "GetDiskFreeSpaceEx"},
    {124, SysCall::GetExitCodeProcess, "GetExitCodeProcess"},
    {125, SysCall::GetFileAttributesA, "GetFileAttributes"},
    {126, SysCall::GetFileSize, "GetFileSize"},
    {127, SysCall::GetLogicalDriveStringsA, "GetLogicalDriveStrings"},
    {128, SysCall::GetProcAddress, "GetProcAddress"},
    {129, SysCall::GetTokenInformation, "GetTokenInformation"},
    {130, SysCall::GetUserNameA, "GetUserName"},
    {131, SysCall::GetVolumeInformationA, "GetVolumeInformation"},
    {132, SysCall::InitializeSecurityDescriptor, "InitializeSecurityDescriptor"},
    {133, SysCall::LoadLibraryExA, "LoadLibrary"},
    {135, SysCall::LockFileEx, "LockFileEx"},
    {137, SysCall::MoveFileA, "MoveFile"},
    {138, SysCall::MapViewOfFileEx, "MapViewOfFileEx"},
    {142, SysCall::OpenEventA, "OpenEvent"},
    {143, SysCall::OpenFileMappingA, "OpenFileMapping"},
    {144, SysCall::OpenProcessToken, "OpenProcessToken"},
    {145, SysCall::OpenSemaphoreA, "OpenSemaphore"},
    {146, SysCall::ReadFile, "ReadFile"},
    {148, SysCall::ReleaseSemaphore, "ReleaseSemaphore"},
    {149, SysCall::RemoveDirectoryA, "RemoveDirectory"},
    {150, SysCall::ResetEvent, "ResetEvent"},
    {151, SysCall::SetEndOfFile, "SetEndOfFile"},
    {152, SysCall::SetEvent, "SetEvent"},
    {154, SysCall::SetFilePointer, "SetFilePointer"},
    {155, SysCall::SetCurrentDirectoryA, "SetCurrentDirectory"},
    {156, SysCall::SetSecurityDescriptorDacl, "SetSecurityDescriptorDacl"},
    {157, SysCall::Stat, "_stat"},
    {158, SysCall::TlsAlloc, "TlsAlloc"},
    {159, SysCall::TlsFree, "TlsFree"},
    {160, SysCall::TlsGetValue, "TlsGetValue"},
    {161, SysCall::TlsSetValue, "TlsSetValue"},
    {163, SysCall::UnlockFileEx, "UnlockFileEx"},
    {164, SysCall::UnmapViewOfFile, "UnmapViewOfFile"},
    {165, SysCall::VirtualQueryEx, "VirtualQueryEx"},
    {166, SysCall::WaitForSingleObject, "WaitForSingleObject"},
    {168, SysCall::WriteFile, "WriteFile"},
    {214, SysCall::GetSystemDirectoryA, "GetSystemDirectory"},
    {265, SysCall::GetModuleHandleA, "GetModuleHandle"},
    {272, SysCall::GetVolumeNameForVolumeMountPointA, "GetVolumeNameForVolumeMountPoint"},
    {351, SysCall::GetTempPathA, "GetTempPath"},
    {352, SysCall::GetTempFileNameA, "GetTempFileName"},
};

}  // namespace oss::expected
