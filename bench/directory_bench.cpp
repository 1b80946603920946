// Claims: a listing, the copy of a tree and the question whether a path exists cost hardly more
// than the system's calls that they stand for.
//
// The raw listing keeps the names, as everyone must who wants them after the search, and asks each
// file for its mode. The raw copy is measured with the questions that the library asks before each
// file, and without any.
#include <windows.h>

#include <io.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "osscatalog.h"
#include "ossdirectory.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

// A turn is a whole listing, a whole tree, or many questions.
constexpr int64_t kTurns = 1;

constexpr int kNames = 10'000;
constexpr int kQuestions = 300;
constexpr int kDirectories = 10;
constexpr int kFilesInEach = 10;

void makeFile(const std::string& path) { std::ofstream(path) << "a small file"; }

// A directory, there as long as the program.
class BenchDirectory {
 public:
  explicit BenchDirectory(const char* path) : path_(path) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directory(path_);
  }
  ~BenchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  BenchDirectory(const BenchDirectory&) = delete;
  BenchDirectory& operator=(const BenchDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + '\\' + name; }

 private:
  std::string path_;
};

// ---- Listing ----

const BenchDirectory& manyNames() {
  static const auto directory = [] {
    auto made = std::make_unique<BenchDirectory>("directory_bench_names.tmp");
    for (int i = 0; i < kNames; ++i)
      makeFile(made->file("a name of some length " + std::to_string(i)));
    return made;
  }();
  return *directory;
}

void list(benchmark::State& state) {
  OSSDirectoryListingParam param;
  param.path = manyNames().path().c_str();
  param.typeMask = OSS_FILE_TYPE_REGULAR;
  for (auto _ : state) {
    OSSDirectoryListing listing;
    if (listing.begin(&param) != ECF_OK || listing.getNumberOfFiles() != kNames)
      state.SkipWithError("the listing is not whole");
    benchmark::DoNotOptimize(listing.getFileList());
  }
  state.SetItemsProcessed(state.iterations() * kNames);
}

void rawList(benchmark::State& state) {
  const std::string directory = manyNames().path() + '\\';
  const std::string pattern = directory + '*';
  for (auto _ : state) {
    std::vector<std::string> names;
    char path[MAX_PATH + 1];
    std::memcpy(path, directory.data(), directory.size());
    WIN32_FIND_DATAA found;
    const HANDLE search = ::FindFirstFileA(pattern.c_str(), &found);
    do {
      std::strcpy(path + directory.size(), found.cFileName);
      struct _stat64 status;
      if (::_stat64(path, &status) == 0 && (status.st_mode & _S_IFREG) != 0)
        names.emplace_back(found.cFileName);
    } while (::FindNextFileA(search, &found));
    ::FindClose(search);
    if (names.size() != kNames) state.SkipWithError("the listing is not whole");
    benchmark::DoNotOptimize(names.data());
  }
  state.SetItemsProcessed(state.iterations() * kNames);
}

// ---- Copy ----

const BenchDirectory& tree() {
  static const auto directory = [] {
    auto made = std::make_unique<BenchDirectory>("directory_bench_tree.tmp");
    for (int i = 0; i < kDirectories; ++i) {
      const std::string within = made->file(std::to_string(i));
      std::filesystem::create_directory(within);
      for (int j = 0; j < kFilesInEach; ++j) makeFile(within + '\\' + std::to_string(j));
    }
    return made;
  }();
  return *directory;
}

// What a careful copy asks for each name: whether the file is there and of a kind to be listed,
// whether it is a directory, and whether the target is free.
bool isFit(const std::string& source, const std::string& target) {
  struct _stat64 status;
  return ::_stat64(source.c_str(), &status) == 0 && ::_stat64(source.c_str(), &status) == 0 &&
         ::_access(target.c_str(), 0) != 0;
}

template <bool kAsks>
bool rawCopyTree(const std::string& from, const std::string& to) {
  bool copied = ::CreateDirectoryA(to.c_str(), nullptr);
  WIN32_FIND_DATAA found;
  const HANDLE search = ::FindFirstFileA((from + "\\*").c_str(), &found);
  do {
    const std::string name = found.cFileName;
    if (name == "." || name == "..") continue;
    const std::string source = from + '\\' + name;
    const std::string target = to + '\\' + name;
    if constexpr (kAsks) copied = isFit(source, target) && copied;
    copied = ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0
                  ? rawCopyTree<kAsks>(source, target)
                  : ::CopyFileA(source.c_str(), target.c_str(), TRUE) != 0) &&
             copied;
  } while (::FindNextFileA(search, &found));
  return ::FindClose(search) && copied;
}

// Times the copy and not the removal of what it makes.
template <class Copy>
void runCopy(benchmark::State& state, Copy copy) {
  const std::string& from = tree().path();
  const std::string to = "directory_bench_copy.tmp";
  for (auto _ : state) {
    if (!copy(from, to)) state.SkipWithError("the tree cannot be copied");
    state.PauseTiming();
    std::filesystem::remove_all(to);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kDirectories * kFilesInEach);
}

void copyTree(benchmark::State& state) {
  runCopy(state, [](const std::string& from, const std::string& to) {
    return ossDirectoryCopy(from.c_str(), to.c_str()) == ECF_OK;
  });
}

template <bool kAsks>
void rawCopy(benchmark::State& state) {
  runCopy(state, [](const std::string& from, const std::string& to) {
    return rawCopyTree<kAsks>(from, to);
  });
}

// ---- Existence ----

template <class Exists>
void runExists(benchmark::State& state, Exists exists) {
  const char* const path = tree().path().c_str();
  for (auto _ : state)
    for (int i = 0; i < kQuestions; ++i)
      if (!exists(path)) state.SkipWithError("the path is not found");
  state.SetItemsProcessed(state.iterations() * kQuestions);
}

void pathExists(benchmark::State& state) {
  runExists(state, [](const char* path) { return ossPathExists(path); });
}

void rawAccess(benchmark::State& state) {
  runExists(state, [](const char* path) { return ::_access(path, 0) == 0; });
}

OSS_BENCHMARK(list);
OSS_BENCHMARK(rawList);
OSS_BENCHMARK(copyTree);
OSS_BENCHMARK(rawCopy<true>);
OSS_BENCHMARK(rawCopy<false>);
OSS_BENCHMARK(pathExists);
OSS_BENCHMARK(rawAccess);

constexpr Claim kRows[] = {
    {"list", atMostTimes(1.1), "rawList"},
    {"copyTree", atMostTimes(1.1), "rawCopy<true>"},
    {"copyTree", atMostTimes(1.1), "rawCopy<false>"},
    {"pathExists", atMostTimes(1.1), "rawAccess"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
