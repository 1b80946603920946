// Trees: directories made along a path, listed, copied, compared and removed.
#include <cstring>

#include "ossdirectory.h"
#include "osspath.h"
#include "tour.h"

namespace tour {
namespace {

OSSErr create(const std::string& path) {
  OSSDirectoryCreateParam param;
  param.path = path.c_str();
  param.mode = OSS_DIRECTORY_CREATE_MISSING;
  return ossDirectoryCreate(&param);
}

OSSErr remove(const std::string& path, uint64_t flags) {
  OSSDirectoryDeleteParam param;
  param.path = path.c_str();
  param.flags = flags;
  return ossDirectoryDelete(&param);
}

// Tells of failures only: a comparison makes many calls.
bool went(const char* call, OSSErr rc) { return rc == ECF_OK || told(call, rc); }

OSSErr begin(OSSDirectoryListing& listing, const std::string& path) {
  OSSDirectoryListingParam param;
  param.path = path.c_str();
  param.typeMask = OSS_FILE_TYPE_REGULAR | OSS_FILE_TYPE_DIRECTORY;
  return listing.begin(&param);
}

// The next name that is neither the directory itself nor the one around it.
const char* nextWithin(OSSDirectoryListing& listing) {
  const char* name = listing.getNext();
  while (name != nullptr && (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0))
    name = listing.getNext();
  return name;
}

OSSFileInfo informationOf(const std::string& path) {
  OSSFileInfoParam param;
  param.path = path.c_str();
  OSSFileInfo info;
  went("ossFileGetInfo", ossFileGetInfo(&param, &info));
  return info;
}

// Compares what two directories hold, name by name, and counts what differs.
int differences(const std::string& a, const std::string& b) {
  OSSDirectoryListing first, second;
  if (!went("OSSDirectoryListing::begin", begin(first, a)) ||
      !went("OSSDirectoryListing::begin", begin(second, b)))
    return 1;
  int found = first.getNumberOfFiles() != second.getNumberOfFiles();
  while (const char* const name = nextWithin(first)) {
    const std::string one = a + '\\' + name;
    const std::string other = b + '\\' + name;
    if (ossIsDirectory(one.c_str()))
      found += differences(one, other);
    else
      found += !ossIsFile(other.c_str()) || informationOf(one).size != informationOf(other).size;
  }
  went("OSSDirectoryListing::end", first.end());
  went("OSSDirectoryListing::end", second.end());
  return found;
}

void build(const Stage& stage, const std::string& tree) {
  told("ossDirectoryCreate, what is missing", create(tree + "\\log\\2026\\01"));
  told("ossDirectoryCreate, beside it", create(tree + "\\log\\2026\\02"));
  const std::string file = tree + "\\log\\2026\\01\\data";
  told("ossFileCopy", ossFileCopy(stage.workFile.c_str(), file.c_str()));
  expected("ossFileCopy, once more", ossFileCopy(stage.workFile.c_str(), file.c_str()),
           ECF_FILE_EXISTS);
  told("ossFileCopy", ossFileCopy(stage.workFile.c_str(), (tree + "\\first").c_str()));
  told("ossFileRename", ossFileRename((tree + "\\first").c_str(), (tree + "\\second").c_str()));
}

void list(const std::string& path) {
  OSSDirectoryListing listing;
  if (!told("OSSDirectoryListing::begin", begin(listing, path))) return;
  note("%s holds %llu names", path.c_str(), listing.getNumberOfFiles());
  while (const char* const name = listing.getNext()) note("  %s", name);
  told("OSSDirectoryListing::end", listing.end());
}

}  // namespace

void keepTrees(const Stage& stage) {
  act("A tree is built, listed, copied, compared and removed");
  const std::string tree = stage.folder + "tour.tree";
  const std::string copy = stage.folder + "tour.tree.copy";
  for (const std::string& old : {tree, copy})
    if (ossPathExists(old.c_str()))
      told("ossDirectoryDelete, of an earlier run", remove(old, OSS_DIRECTORY_DELETE_RECURSIVELY));

  build(stage, tree);
  list(tree);
  told("ossDirectoryCopy", ossDirectoryCopy(tree.c_str(), copy.c_str()));
  expected("ossDirectoryCopy, onto what exists", ossDirectoryCopy(tree.c_str(), copy.c_str()),
           ECF_INVALID_PARAMETER);
  const int found = differences(tree, copy);
  note("the copy and the tree differ in %d places", found);
  if (found != 0) expected("the copy of the tree", ECF_FAILED, ECF_OK);

  expected("ossDirectoryDelete, the tree alone", remove(tree, 0), ECF_FILE_DIR_NOT_EMPTY);
  told("ossDirectoryDelete, with all in it", remove(tree, OSS_DIRECTORY_DELETE_RECURSIVELY));
  told("ossDirectoryDelete, the copy", remove(copy, OSS_DIRECTORY_DELETE_RECURSIVELY));
  expected("ossDirectoryDelete, what is gone", remove(copy, OSS_DIRECTORY_DELETE_RECURSIVELY),
           ECF_FILE_NOT_A_DIRECTORY);
}

}  // namespace tour
