// tempdir.h - a directory for the length of a test, and files as the bytes that they hold.
//
//   TempDirectory dir;
//   writeFile(dir.file("input"), "bytes");
//   ...
//   EXPECT_EQ(readFile(dir.file("output")), "bytes");
//
// The directory is fresh: no other test and no other process uses it. It is removed with all that
// is in it at the end of the scope; a file that somebody still holds open fails the test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace osse_test {

class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  // With backslashes, and none at the end.
  const std::string& path() const { return path_; }

  // The path of a file in it.
  std::string file(std::string_view name) const { return path_ + '\\' + std::string(name); }

  // The names of what is in it, sorted.
  std::vector<std::string> names() const;

 private:
  std::string path_;
};

// The bytes of a file; a file that cannot be read fails the test.
std::string readFile(const std::string& path);

// Makes the file hold these bytes and no others.
void writeFile(const std::string& path, std::string_view bytes);

}  // namespace osse_test
