// pathtraces.h - the records of a test for existence and of a directory listing, which are part of
// what other operations on paths record.
#pragma once

#include <string>

#include "trace/operationscene.h"

namespace osse_test {

// Of a test for existence.
inline Trace tested(const char* path, OSSErr rc) {
  OSSPathTestParam param;
  param.path = path;
  const std::string bytes = bytesOf(param);
  EXPECT_EQ(bytes.size(), 32u);
  return framed(oss::Func::ossPathTest, rc, {data(oss::Func::ossPathTest, 10, bytes)});
}
inline Trace missing(const std::string& path) { return tested(path.c_str(), 0x9000001A); }

inline Trace repeated(oss::Func function, int times) {
  Trace trace;
  for (int i = 0; i < times; ++i) trace = joined({trace, framed(function, ECF_OK)});
  return trace;
}

inline OSSDirectoryListingParam listingParam(const std::string& path, uint64_t typeMask) {
  OSSDirectoryListingParam param;
  param.path = path.c_str();
  param.typeMask = typeMask;
  return param;
}
inline OSSDirectoryListingParam contentParam(const std::string& path) {
  return listingParam(path, OSS_FILE_TYPE_REGULAR | OSS_FILE_TYPE_DIRECTORY);
}

// What begin() records before it looks into the directory.
inline Trace startOfBegin(const OSSDirectoryListingParam& param) {
  const std::string bytes = bytesOf(param);
  EXPECT_EQ(bytes.size(), 32u);
  return joined({{data(oss::Func::OSSDirectoryListing_begin, 10, bytes)},
                 framed(oss::Func::ossBaseName, ECF_OK)});
}

// A listing of that many names: two blocks for each, and one for all.
inline Trace begun(const OSSDirectoryListingParam& param, int names) {
  return framed(oss::Func::OSSDirectoryListing_begin, ECF_OK,
                joined({startOfBegin(param), repeated(oss::Func::ossMemAlloc, 2 * names + 1)}));
}
inline Trace ended(int names) {
  return framed(oss::Func::OSSDirectoryListing_end, ECF_OK,
                repeated(oss::Func::ossMemFree, 2 * names + 1));
}

// The listing of an empty directory, which holds "." and "..", from its begin to its destructor's
// end.
inline Trace listedNothing(const std::string& path) {
  return joined(
      {begun(contentParam(path), 2), ended(2), framed(oss::Func::OSSDirectoryListing_end, ECF_OK)});
}

}  // namespace osse_test
