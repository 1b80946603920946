#include "harness/tempdir.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace osse_test {

TempDirectory::TempDirectory() {
  static int number = 0;
  char root[MAX_PATH + 1] = {};
  ::GetTempPathA(sizeof root, root);
  // A process that had the same identifier may have left its directories behind.
  do {
    path_ = std::string(root) + "osse-" + std::to_string(::GetCurrentProcessId()) + "-" +
            std::to_string(++number);
  } while (!::CreateDirectoryA(path_.c_str(), nullptr) && ::GetLastError() == ERROR_ALREADY_EXISTS);
}

TempDirectory::~TempDirectory() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  EXPECT_FALSE(error) << "cannot remove " << path_ << ": " << error.message();
}

std::vector<std::string> TempDirectory::names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "cannot read " << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  EXPECT_TRUE(file.good()) << "cannot write " << path;
}

}  // namespace osse_test
