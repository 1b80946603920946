// The traces of directory listings and of the copy of a tree, with those of the operations that
// they call.
#include "harness/search.h"
#include "trace/pathtraces.h"

namespace osse_test {
namespace {

using oss::Func;
using oss::SysCall;

constexpr Case kDirectoryCases[] = {
    {Func::OSSDirectoryListing_begin, true,
     [](Scene& s) {
       const OSSDirectoryListingParam param = listingParam(s.dir.path(), OSS_FILE_TYPE_REGULAR);
       OSSDirectoryListing listing;
       EXPECT_EQ(s.traced([&] { return listing.begin(&param); }), ECF_OK);
       return begun(param, 1);
     }},
    {Func::OSSDirectoryListing_begin, false,
     [](Scene& s) {
       const OSSDirectoryListingParam param = listingParam(s.dir.path(), OSS_FILE_TYPE_REGULAR);
       OSSDirectoryListing listing;
       return s.refused(
           {Func::OSSDirectoryListing_begin, 80, SysCall::FindFirstFileA, "FindFirstFileA",
            kAllOnes},
           [&] { return listing.begin(&param); }, startOfBegin(param));
     }},
    // "." is not kept: the step behind it is refused before anything is allocated.
    {Func::OSSDirectoryListing_begin, false,
     [](Scene& s) {
       const OSSDirectoryListingParam param = listingParam(s.dir.path(), OSS_FILE_TYPE_REGULAR);
       const Search search;
       OSSDirectoryListing listing;
       return s.refused(
           {Func::OSSDirectoryListing_begin, 90, SysCall::FindNextFileA, "FindNextFileA"},
           [&] { return listing.begin(&param); }, startOfBegin(param));
     }},
    // One name is kept; its block is not reached.
    {Func::OSSDirectoryListing_begin, false,
     [](Scene& s) {
       const OSSDirectoryListingParam param = listingParam(s.dir.path(), OSS_FILE_TYPE_REGULAR);
       const Search search;
       OSSDirectoryListing listing;
       return s.refused(
           {Func::OSSDirectoryListing_begin, 100, SysCall::FindClose, "FindClose"},
           [&] { return listing.begin(&param); },
           joined({startOfBegin(param), repeated(Func::ossMemAlloc, 2)}));
     }},
    {Func::OSSDirectoryListing_end, true,
     [](Scene& s) {
       const OSSDirectoryListingParam param = listingParam(s.dir.path(), OSS_FILE_TYPE_REGULAR);
       OSSDirectoryListing listing;
       EXPECT_EQ(listing.begin(&param), ECF_OK);
       EXPECT_EQ(s.traced([&] { return listing.end(); }), ECF_OK);
       return ended(1);
     }},
    {Func::OSSDirectoryListing_end, false,
     [](Scene& s) {
       OSSDirectoryListing listing;
       return s.plain(
           Func::OSSDirectoryListing_end, [&] { return listing.end(); }, 0x90000003);
     }},
    {Func::ossDirectoryCopy, true,
     [](Scene& s) {
       const std::string from = s.dir.file("from");
       const std::string to = s.dir.file("to");
       EXPECT_TRUE(::CreateDirectoryA(from.c_str(), nullptr));
       return s.plain(
           Func::ossDirectoryCopy, [&] { return ossDirectoryCopy(from.c_str(), to.c_str()); },
           ECF_OK,
           joined({missing(to), framed(Func::ossGetFileInfo, ECF_OK),
                   framed(Func::ossDirectoryCreate, ECF_OK), listedNothing(from)}));
     }},
    {Func::ossDirectoryCopy, false,
     [](Scene& s) {
       const char* const path = s.dir.path().c_str();
       return s.plain(
           Func::ossDirectoryCopy, [&] { return ossDirectoryCopy(path, path); }, 0x9000000C);
     }},
};

}  // namespace

std::span<const Case> directoryCases() { return kDirectoryCases; }

}  // namespace osse_test
