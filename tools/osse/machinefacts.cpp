// What the library tells of the machine, fact by fact.
#include "ansitext.h"
#include "machinereport.h"
#include "osscatalog.h"
#include "osssysinfo.h"

namespace oss::tool {
namespace {

constexpr char kMebibytes[] = "MiB";

Fact factOf(const char* name, const OSSSysInfoUint& member, const char* unit = "") {
  return {name, member.value, unit, member.status};
}
Fact factOf(const char* name, const OSSSysInfoSint& member, const char* unit = "") {
  return {name, member.value, unit, member.status};
}
Fact factOf(const char* name, const OSSSysInfoDouble& member) {
  return {name, member.value, "", member.status};
}
Fact factOf(const char* name, const OSSSysInfoStr& member) {
  return {name, utf8OfAnsi(member.value), "", member.status};
}

FactGroup processors() {
  OSSCPUInfo info;
  ossGetCPUInfo(&info);
  return {"processors",
          {factOf("online", info.onlineProcessors), factOf("configured", info.configuredProcessors),
           factOf("licensed", info.licensedProcessors), factOf("speed", info.speed, "MHz"),
           factOf("cores per package", info.coresPerPackage),
           factOf("threads per core", info.threadsPerCore)}};
}

FactGroup operatingSystem() {
  OSSOSInfo info;
  ossGetOSInfo(&info);
  OSSSystemDirectoryInfo place;
  const OSSErr rc = ossGetSystemDirectory(&place, &place);
  return {"operating system",
          {factOf("platform", info.platform),
           factOf("release", info.release),
           factOf("service level", info.serviceLevel),
           factOf("build", info.build),
           factOf("computer name", info.computerName),
           factOf("processor", info.processor),
           {"directory", utf8OfAnsi(place.directory), "", rc}}};
}

FactGroup memory() {
  OSSPhysMemInfo physical;
  OSSPhysSwapInfo swap;
  OSSVirtualMemInfo both;
  ossGetPhysMemInfo(&physical);
  ossGetPhysSwapInfo(&swap);
  ossGetVirtualMemInfo(&both);
  return {"memory",
          {factOf("physical total", physical.total, kMebibytes),
           factOf("physical available", physical.available, kMebibytes),
           factOf("physical usable", physical.usable, kMebibytes),
           factOf("address space", physical.addressSpace, kMebibytes),
           factOf("swap total", swap.total, kMebibytes),
           factOf("swap available", swap.available, kMebibytes),
           factOf("virtual total", both.total, kMebibytes),
           factOf("virtual reserved", both.reserved, kMebibytes),
           factOf("virtual committed", both.committed, kMebibytes),
           factOf("virtual available", both.available, kMebibytes)}};
}

FactGroup load() {
  OSSCPULoadInfo info;
  ossGetAvgCPULoad(&info);
  return {"load",
          {factOf("short average", info.shortAverage), factOf("medium average", info.mediumAverage),
           factOf("long average", info.longAverage)}};
}

FactGroup user() {
  constexpr size_t kRoom = 257;  // the longest name of the system, and its NUL
  char name[kRoom] = {};
  char session[kRoom] = {};
  OSSUserParam param;
  param.size = kRoom;
  const OSSErr ofName = ossGetCurrentUserName(&param, name);
  const OSSErr ofSession = ossGetCurrentUserDisplay(&param, session);
  return {
      "user",
      {{"name", utf8OfAnsi(name), "", ofName}, {"session", utf8OfAnsi(session), "", ofSession}}};
}

Fact driveTypeOf(const OSSSysInfoUint& member) {
  const char* const name = member.value == OSS_DRIVE_REMOVABLE ? "removable" : "stationary";
  return {"drive type", std::string(name), "", member.status};
}

FactGroup drive(const OSSMountInfo& mount, OSSErr rc) {
  OSSDiskInfoParam param;
  param.path = mount.mountPoint;
  OSSDiskInfo disk;
  // What a mount point hides leaves the facts as they were.
  disk.serialNumber.status = disk.driveType.status = ECF_FAILED;
  ossGetDiskInfo(&param, &disk);
  return {"drive " + utf8OfAnsi(mount.mountPoint),
          {{"volume", utf8OfAnsi(mount.volume), "", rc},
           {"file system", utf8OfAnsi(mount.fileSystem), "", rc},
           {"total", mount.totalSize, kMebibytes, rc},
           {"free", mount.freeSize, kMebibytes, rc},
           factOf("serial number", disk.serialNumber),
           driveTypeOf(disk.driveType)}};
}

void addDrives(MachineReport& report) {
  OSSMountListing listing;
  if (const OSSErr rc = listing.begin()) {
    report.push_back({"drives", {{"roots", std::string(), "", rc}}});
    return;
  }
  const OSSMountListingGetParam param;
  for (;;) {
    OSSMountInfo mount;
    const OSSErr rc = listing.getNext(&param, mount);
    if (rc == ECF_FILE_EOF) break;
    report.push_back(drive(mount, rc));
  }
  listing.end();
}

FactGroup kernelLimits() {
  constexpr struct {
    const char* name;
    OSSSysInfoUint OSSKernelIPCInfo::*member;
  } kLimits[] = {
      {"message queues", &OSSKernelIPCInfo::msgMaxQueues},
      {"bytes in a queue", &OSSKernelIPCInfo::msgMaxQueueBytes},
      {"bytes in a message", &OSSKernelIPCInfo::msgMaxMessageSize},
      {"messages", &OSSKernelIPCInfo::msgMaxMessages},
      {"message segment size", &OSSKernelIPCInfo::msgSegmentSize},
      {"message segments", &OSSKernelIPCInfo::msgSegments},
      {"message map entries", &OSSKernelIPCInfo::msgMapEntries},
      {"semaphore sets", &OSSKernelIPCInfo::semMaxSets},
      {"semaphores", &OSSKernelIPCInfo::semMaxSemaphores},
      {"semaphores in a set", &OSSKernelIPCInfo::semMaxPerSet},
      {"semaphore operations", &OSSKernelIPCInfo::semMaxOperations},
      {"undo structures", &OSSKernelIPCInfo::semMaxUndo},
      {"undo entries of a process", &OSSKernelIPCInfo::semMaxUndoPerProcess},
      {"undo structure size", &OSSKernelIPCInfo::semUndoSize},
      {"semaphore value", &OSSKernelIPCInfo::semMaxValue},
      {"semaphore adjustment", &OSSKernelIPCInfo::semMaxAdjust},
      {"semaphore map entries", &OSSKernelIPCInfo::semMapEntries},
      {"largest shared segment", &OSSKernelIPCInfo::shmMaxSegmentSize},
      {"smallest shared segment", &OSSKernelIPCInfo::shmMinSegmentSize},
      {"shared segments", &OSSKernelIPCInfo::shmMaxSegments},
      {"segments of a process", &OSSKernelIPCInfo::shmMaxSegmentsPerProcess},
      {"shared memory", &OSSKernelIPCInfo::shmMaxTotal},
  };
  OSSKernelIPCInfo info;
  ossGetKernelIPCInfo(&info);
  FactGroup group = {"kernel limits", {}};
  for (const auto& limit : kLimits) group.facts.push_back(factOf(limit.name, info.*limit.member));
  return group;
}

}  // namespace

MachineReport askMachine() {
  MachineReport report = {processors(), operatingSystem(), memory(), load(), user()};
  addDrives(report);
  report.push_back(kernelLimits());
  return report;
}

}  // namespace oss::tool
