// ossdirectorylistingfixture.h - a listing of a directory of its own, and one that holds two names.
#pragma once

#include "file/ossdirectoryfixture.h"

namespace osse_test {

using Names = std::vector<std::string>;

inline constexpr oss::Func kBegin = oss::Func::OSSDirectoryListing_begin;
inline constexpr oss::Func kEnd = oss::Func::OSSDirectoryListing_end;

class DirectoryListing : public testing::Test {
 protected:
  OSSErr begin(const std::string& path, uint64_t typeMask = kAll) {
    const OSSDirectoryListingParam param = listingParam(path, typeMask);
    return listing_.begin(&param);
  }

  // The names that a listing of its own keeps.
  static Names namesIn(const std::string& path, uint64_t typeMask) {
    const OSSDirectoryListingParam param = listingParam(path, typeMask);
    OSSDirectoryListing listing;
    EXPECT_EQ(listing.begin(&param), ECF_OK);
    Names names = remainingNames(listing);
    EXPECT_EQ(listing.getNumberOfFiles(), names.size());
    EXPECT_EQ(listing.end(), ECF_OK);
    return names;
  }

  void makeFiles(const Names& names) const {
    for (const std::string& name : names) writeFile(dir_.file(name), "");
  }

  // Nothing of a listing is left.
  void expectFresh() {
    const ListingFields fields = fieldsOf(listing_);
    EXPECT_EQ(fields.numberOfFiles, 0u);
    EXPECT_EQ(fields.firstEntry, nullptr);
    EXPECT_EQ(fields.fileList, nullptr);
    EXPECT_EQ(fields.fileListSize, 0u);
    EXPECT_EQ(fields.currentEntry, nullptr);
    EXPECT_TRUE(fields.rewind);
    EXPECT_FALSE(fields.active);
  }

  TempDirectory dir_;
  LogCapture log_;
  OSSDirectoryListing listing_;
};

class TwoNames : public DirectoryListing {
 protected:
  TwoNames() {
    makeFiles({"a", "bc"});
    EXPECT_EQ(begin(dir_.path(), kFiles), ECF_OK);
  }
};

}  // namespace osse_test
