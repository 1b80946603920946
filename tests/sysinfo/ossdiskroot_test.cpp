// Paths and numbers of disks.
#include "sysinfo/ossdiskroot.h"

#include <gtest/gtest.h>

#include <string>

#include "ossdisk.h"

using namespace oss;

namespace {

std::string asDirectory(const std::string& path) {
  char root[kDiskRootBytes];
  copyAsDirectory(path.c_str(), root);
  return root;
}

std::string cut(std::string path) {
  cutToDriveRoot(path.data());
  return path.c_str();
}

TEST(DiskRoot, APathHasASeparatorAtItsEnd) {
  EXPECT_EQ(asDirectory(""), "\\");
  EXPECT_EQ(asDirectory("C:"), "C:\\");
  EXPECT_EQ(asDirectory("C:\\dir"), "C:\\dir\\");
  EXPECT_EQ(asDirectory("C:\\dir\\"), "C:\\dir\\");
  EXPECT_EQ(asDirectory("C:/dir/"), "C:/dir/\\");
}

TEST(DiskRoot, Of262BytesOfAPathNoneIsCut) {
  const std::string path(262, 'a');
  EXPECT_EQ(asDirectory(path), path + '\\');
  EXPECT_EQ(asDirectory(path + 'b'), path + '\\');
  EXPECT_EQ(asDirectory(std::string(261, 'a') + '\\'), std::string(261, 'a') + '\\');
  EXPECT_EQ(asDirectory(std::string(5000, 'a')), path + '\\');
}

TEST(DiskRoot, ADirectoryOnADriveIsCutToItsRootAndNothingElseIs) {
  EXPECT_EQ(cut("C:\\dir\\"), "C:\\");
  EXPECT_EQ(cut("z:\\"), "z:\\");
  for (const char* const path :
       {"", "C:", "C:/dir\\", "dir\\", "\\", "\\\\server\\share\\", "\\\\?\\Volume{0}\\",
        "\\:\\dir\\", "1:\\dir\\", "@:\\", "[:\\a", "`:\\a", "{:\\a"})
    EXPECT_EQ(cut(path), path);
}

TEST(DriveType, IsRemovableOrStationaryOrNotKnown) {
  EXPECT_EQ(driveTypeOf(0), 0u);
  EXPECT_EQ(driveTypeOf(1), 0u);
  EXPECT_EQ(driveTypeOf(2), 5u);
  for (const uint32_t type : {3u, 4u, 5u, 6u}) EXPECT_EQ(driveTypeOf(type), 1u);
  EXPECT_EQ(driveTypeOf(7), 0u);
  EXPECT_EQ(driveTypeOf(0xFFFFFFFF), 0u);
}

// A default parameter asks for everything about the disk of its path, whichever that is.
TEST(DiskInfoParam, IsConstructedForTheDiskOfItsPath) {
  const OSSDiskInfoParam param;
  EXPECT_EQ(param.version, 0x09010007u);
  EXPECT_EQ(param.path, nullptr);
  EXPECT_EQ(param.selection, 1u);
  EXPECT_EQ(param.device, ~uint64_t{0});
}

}  // namespace
