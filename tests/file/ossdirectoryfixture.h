// ossdirectoryfixture.h - what the tests of listings and trees share besides what those of paths
// do: the inside of a listing, and trees as values.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "file/osspathfixture.h"
#include "harness/fields.h"
#include "ossdirectory.h"

namespace osse_test {

inline constexpr uint64_t kFiles = OSS_FILE_TYPE_REGULAR;
inline constexpr uint64_t kDirectories = OSS_FILE_TYPE_DIRECTORY;
inline constexpr uint64_t kAll = kFiles | kDirectories;

inline OSSDirectoryListingParam listingParam(const std::string& path, uint64_t typeMask = kAll) {
  OSSDirectoryListingParam param;
  param.path = path.c_str();
  param.typeMask = typeMask;
  return param;
}

// The fields of a listing, which it keeps to itself.
struct ListingEntry {
  char* name;
  ListingEntry* next;
};
struct ListingFields {
  uint64_t numberOfFiles;
  ListingEntry* firstEntry;
  char* fileList;
  uint64_t fileListSize;
  ListingEntry* currentEntry;
  bool rewind;
  bool active;
};

inline ListingFields fieldsOf(const OSSDirectoryListing& listing) {
  return copyOf<ListingFields>(listing);
}

// The names that getNext() has left to hand out.
inline std::vector<std::string> remainingNames(OSSDirectoryListing& listing) {
  std::vector<std::string> names;
  while (const char* const name = listing.getNext()) names.emplace_back(name);
  return names;
}

// The bytes of the block; empty without one.
inline std::string fileListOf(OSSDirectoryListing& listing) {
  const char* const block = listing.getFileList();
  return block != nullptr ? std::string(block, fieldsOf(listing).fileListSize) : std::string();
}

// What is in a directory: by path relative to it, the bytes of a file or "<directory>".
using Tree = std::map<std::string, std::string>;

inline Tree treeOf(const std::string& directory) {
  Tree tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string path = entry.path().string();
    tree[path.substr(directory.size() + 1)] = entry.is_directory() ? "<directory>" : readFile(path);
  }
  return tree;
}

}  // namespace osse_test
