// Claims: making and attaching shared memory, and a post and wait of a semaphore, cost hardly more
// than the system's calls that they stand for.
//
// The raw calls name the same object, give it the same access list and keep nothing.
#include <windows.h>

#include <string>

#include "osscatalog.h"
#include "ossipc.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

// A turn is several rounds.
constexpr int64_t kTurns = 1;

constexpr int kSections = 2;
constexpr int kPosts = 10;
constexpr uint32_t kSize = 65536;
constexpr DWORD kReadAndWrite = FILE_MAP_READ | FILE_MAP_WRITE;

// Nobody else has this name.
OSSIPCResID nameOf(int32_t projectID) {
  const std::string path = "bench " + std::to_string(::GetCurrentProcessId());
  OSSIPCGetResIDParam in;
  in.path = path.c_str();
  in.projectID = projectID;
  OSSIPCResID resID;
  static_cast<void>(ossIPCGetResID(&in, &resID));
  return resID;
}

// ---- Shared memory ----

void createAndAttach(benchmark::State& state) {
  OSSIPCMemoryCreateParam param;
  param.resID = nameOf(0);
  param.size = kSize;
  for (auto _ : state)
    for (int i = 0; i < kSections; ++i) {
      OSSHIPCMemory creator;
      OSSHIPCMemory other;
      if (creator.create(&param) != ECF_OK || other.attach(&param.resID, nullptr) != ECF_OK ||
          other.detach() != ECF_OK || creator.detach() != ECF_OK)
        state.SkipWithError("the section cannot be shared");
    }
  state.SetItemsProcessed(state.iterations() * kSections);
}

bool rawRound(const char* name) {
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, TRUE};
  bool done = ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) &&
              ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  const HANDLE section =
      ::CreateFileMappingA(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0, kSize, name);
  void* const view = ::MapViewOfFileEx(section, kReadAndWrite, 0, 0, 0, nullptr);
  const HANDLE opened = ::OpenFileMappingA(kReadAndWrite, FALSE, name);
  void* const other = ::MapViewOfFileEx(opened, kReadAndWrite, 0, 0, 0, nullptr);
  done = ::UnmapViewOfFile(other) && done;
  done = ::CloseHandle(opened) && done;
  done = ::UnmapViewOfFile(view) && done;
  return ::CloseHandle(section) && done;
}

void rawCreateAndAttach(benchmark::State& state) {
  const OSSIPCResID resID = nameOf(1);
  for (auto _ : state)
    for (int i = 0; i < kSections; ++i)
      if (!rawRound(resID.name)) state.SkipWithError("the section cannot be shared");
  state.SetItemsProcessed(state.iterations() * kSections);
}

// ---- Semaphores ----

void postAndWait(benchmark::State& state) {
  OSSIPCSemaphoreCreateParam create;
  create.resID = nameOf(2);
  OSSHIPCSemaphore semaphore;
  if (semaphore.create(&create) != ECF_OK) state.SkipWithError("the semaphore cannot be made");
  OSSIPCSemaphoreWaitParam wait;
  wait.timeout = OSS_SEMAPHORE_INFINITE;
  for (auto _ : state)
    for (int i = 0; i < kPosts; ++i)
      if (semaphore.post() != ECF_OK || semaphore.wait(&wait) != ECF_OK)
        state.SkipWithError("the count is lost");
  static_cast<void>(semaphore.detach());
  state.SetItemsProcessed(state.iterations() * kPosts);
}

void rawPostAndWait(benchmark::State& state) {
  const HANDLE semaphore = ::CreateSemaphoreA(nullptr, 0, 32767, nameOf(3).name);
  for (auto _ : state)
    for (int i = 0; i < kPosts; ++i)
      if (!::ReleaseSemaphore(semaphore, 1, nullptr) ||
          ::WaitForSingleObject(semaphore, INFINITE) != WAIT_OBJECT_0)
        state.SkipWithError("the count is lost");
  ::CloseHandle(semaphore);
  state.SetItemsProcessed(state.iterations() * kPosts);
}

OSS_BENCHMARK(createAndAttach);
OSS_BENCHMARK(rawCreateAndAttach);
OSS_BENCHMARK(postAndWait);
OSS_BENCHMARK(rawPostAndWait);

constexpr Claim kRows[] = {
    {"createAndAttach", atMostTimes(1.05), "rawCreateAndAttach"},
    {"postAndWait", atMostTimes(1.05), "rawPostAndWait"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
