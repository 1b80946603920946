// Dynamic libraries: loading, looking up, unloading.
#include <gmock/gmock.h>
#include <windows.h>

#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "harness/fields.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "osslibrary.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;
// A library of the system that nothing else here loads, and two of its functions.
constexpr char kLibrary[] = "lz32.dll";
constexpr char kFunction[] = "LZCopy";
constexpr char kOther[] = "LZClose";
constexpr char kMissing[] = "noSuchFunction";

struct LibraryFields {
  void* module;
  bool loaded;

  bool operator==(const LibraryFields&) const = default;
};
void PrintTo(const LibraryFields& fields, std::ostream* out) {
  *out << "{module " << fields.module << (fields.loaded ? ", loaded}" : "}");
}

LibraryFields fieldsOf(const OSSHLibrary& library) { return copyOf<LibraryFields>(library); }
constexpr LibraryFields kEmpty = {nullptr, false};

OSSFunctionAddress addressOf(const char* name) {
  return reinterpret_cast<OSSFunctionAddress>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA(kLibrary), name)));
}
OSSFunctionAddress poison() { return reinterpret_cast<OSSFunctionAddress>(0x1234); }

class OSSHLibraryTest : public Test {
 protected:
  ~OSSHLibraryTest() override {
    if (fieldsOf(library_).loaded) {
      EXPECT_EQ(library_.unload(), ECF_OK);
    }
  }

  void load() { ASSERT_EQ(library_.load(kLibrary, 0), ECF_OK); }
  HMODULE module() const { return static_cast<HMODULE>(fieldsOf(library_).module); }

  OSSErr lookUp(const char* name, uint64_t flags = 0) {
    OSSLibGetFuncAddressParam param;
    param.functionName = name;
    param.flags = flags;
    return library_.getFuncAddress(&param, &info_);
  }
  OSSErr lookUpAll(const std::vector<const char*>& names, OSSFunctionAddress* functions) {
    OSSLibGetFunctionAddressesParam param;
    param.count = names.size();
    param.functionNames = names.data();
    return library_.getFunctionAddresses(&param, functions);
  }

  // The two records of a missing name: that of the look-up and that of the batch.
  LogEvidence missRecord(const char* name) const {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHLibrary_getFuncAddress, 30, SysCall::GetProcAddress,
                        ERROR_PROC_NOT_FOUND, ECF_LIB_FUNC_NOT_FOUND,
                        {{1, Hex(module())}, {2, String(name)}});
  }
  static LogEvidence batchRecord(const char* name) {
    return CalledRecord(OSS_LOG_INFO, Func::OSSHLibrary_getFunctionAddresses, 40,
                        Func::OSSHLibrary_getFuncAddress, ECF_LIB_FUNC_NOT_FOUND,
                        ECF_LIB_FUNC_NOT_FOUND, {{1, String(name)}});
  }

  LogCapture log_;
  OSSHLibrary library_;
  OSSLibGetFuncAddressInfo info_;
};

// ---- load ----

TEST_F(OSSHLibraryTest, AConstructedHandleIsEmpty) { EXPECT_EQ(fieldsOf(library_), kEmpty); }

TEST_F(OSSHLibraryTest, LoadKeepsTheModuleUntilUnload) {
  ASSERT_EQ(::GetModuleHandleA(kLibrary), nullptr);
  load();
  EXPECT_NE(module(), nullptr);
  EXPECT_EQ(fieldsOf(library_), (LibraryFields{::GetModuleHandleA(kLibrary), true}));
  EXPECT_EQ(library_.unload(), ECF_OK);
  EXPECT_EQ(fieldsOf(library_), kEmpty);
  EXPECT_EQ(::GetModuleHandleA(kLibrary), nullptr);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHLibraryTest, ASecondLoadIsRefusedAndKeepsTheFirst) {
  load();
  const LibraryFields first = fieldsOf(library_);
  CallCounter loads("LoadLibraryExA");
  EXPECT_EQ(library_.load("kernel32.dll", 0), ECF_LIB_ALREADY_LOADED);
  EXPECT_THAT(log_.newRecords(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHLibrary_load, 20,
                                                         ECF_LIB_ALREADY_LOADED)));
  EXPECT_EQ(library_.load(kLibrary, OSS_LIB_QUIET), ECF_LIB_ALREADY_LOADED);
  EXPECT_THAT(log_.newRecords(), IsEmpty());
  EXPECT_EQ(fieldsOf(library_), first);
  EXPECT_EQ(loads.calls(), 0);
}

TEST_F(OSSHLibraryTest, EachFlagIsAnOptionOfTheSystems) {
  const struct {
    uint64_t flags;
    DWORD options;
  } kRows[] = {{0, 0},
               {OSS_LIB_QUIET, 0},
               {OSS_LIB_DONT_RESOLVE, DONT_RESOLVE_DLL_REFERENCES},
               {OSS_LIB_IGNORE_AUTHZ_LEVEL, LOAD_IGNORE_CODE_AUTHZ_LEVEL},
               {OSS_LIB_AS_DATAFILE, LOAD_LIBRARY_AS_DATAFILE},
               {OSS_LIB_ALTERED_SEARCH_PATH, LOAD_WITH_ALTERED_SEARCH_PATH},
               {1 | 4 | 128 | uint64_t{1} << 35, 0},
               {~uint64_t{0}, 0x1 | 0x10 | 0x2 | 0x8}};
  for (const auto& row : kRows) {
    ImportHook hook("LoadLibraryExA", [&](Call& call) {
      EXPECT_STREQ(call.argument<const char*>(0), kLibrary);
      EXPECT_EQ(call.argument<HANDLE>(1), nullptr);
      EXPECT_EQ(call.argument<DWORD>(2), row.options) << row.flags;
      return ::LoadLibraryA(kLibrary);
    });
    EXPECT_EQ(library_.load(kLibrary, row.flags), ECF_OK);
    EXPECT_EQ(library_.unload(), ECF_OK);
  }
}

// The system takes each of them, and a look-up among data finds nothing.
TEST_F(OSSHLibraryTest, EachFlagLoads) {
  for (const uint64_t flag : {OSS_LIB_DONT_RESOLVE, OSS_LIB_IGNORE_AUTHZ_LEVEL,
                              OSS_LIB_ALTERED_SEARCH_PATH, OSS_LIB_AS_DATAFILE}) {
    char path[MAX_PATH + 20] = {};
    ::GetSystemDirectoryA(path, MAX_PATH);
    EXPECT_EQ(library_.load((std::string(path) + '\\' + kLibrary).c_str(), flag), ECF_OK) << flag;
    EXPECT_EQ(lookUp(kFunction, OSS_LIB_LOOKUP_QUIET),
              flag == OSS_LIB_AS_DATAFILE ? ECF_LIB_FUNC_NOT_FOUND : ECF_OK);
    EXPECT_EQ(library_.unload(), ECF_OK);
  }
}

TEST_F(OSSHLibraryTest, WhatCannotBeLoadedIsLoggedWithPathAndOptionsUnlessQuiet) {
  TempDirectory dir;
  const std::string notAModule = dir.file("text.dll");
  const std::string missing = dir.file("missing.dll");
  writeFile(notAModule, "This is no module.");
  const struct {
    std::string path;
    uint64_t flags;
    DWORD options, error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {
      // Deliberate: a missing module has a code of its own, but not as a file of data.
      {missing, 0, 0, ERROR_MOD_NOT_FOUND, ECF_LIB_CANNOT_LOAD, OSS_LOG_INFO},
      {missing, OSS_LIB_ALTERED_SEARCH_PATH, 8, ERROR_MOD_NOT_FOUND, ECF_LIB_CANNOT_LOAD,
       OSS_LOG_INFO},
      {"no-such-library", 0, 0, ERROR_MOD_NOT_FOUND, ECF_LIB_CANNOT_LOAD, OSS_LOG_INFO},
      {missing, OSS_LIB_AS_DATAFILE, 2, ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST, OSS_LOG_INFO},
      {notAModule, 0, 0, ERROR_BAD_EXE_FORMAT, ECF_UNKNOWN, OSS_LOG_ERROR},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(library_.load(row.path.c_str(), row.flags), row.code) << row.path;
    EXPECT_EQ(fieldsOf(library_), kEmpty);
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(SystemRecord(row.level, Func::OSSHLibrary_load, 30,
                                         SysCall::LoadLibraryExA, row.error, row.code,
                                         {{1, String(row.path)}, {3, Hex(row.options)}})));
    EXPECT_EQ(library_.load(row.path.c_str(), row.flags | OSS_LIB_QUIET), row.code) << row.path;
    EXPECT_EQ(fieldsOf(library_), kEmpty);
    EXPECT_THAT(log_.newRecords(), IsEmpty());
  }
}

TEST_F(OSSHLibraryTest, ANullPathIsRefused) {
  CallCounter loads("LoadLibraryExA");
  EXPECT_EQ(library_.load(nullptr, 0), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHLibrary_load,
                                                         1111, ECF_INVALID_PARAMETER)));
  EXPECT_EQ(library_.load(nullptr, OSS_LIB_QUIET), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), IsEmpty());
  EXPECT_EQ(loads.calls(), 0);
}

// ---- unload ----

TEST_F(OSSHLibraryTest, UnloadWithoutALibraryIsRefused) {
  EXPECT_EQ(library_.unload(), ECF_LIB_NOT_LOADED);
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHLibrary_unload, 10,
                                                      ECF_LIB_NOT_LOADED)));
}

TEST_F(OSSHLibraryTest, AnUnloadThatTheSystemRefusesLeavesTheLibraryLoaded) {
  load();
  const LibraryFields before = fieldsOf(library_);
  FailingCall fails("FreeLibrary", ERROR_ACCESS_DENIED);
  EXPECT_EQ(library_.unload(), ECF_ACCESS_DENIED);
  EXPECT_EQ(fieldsOf(library_), before);
  EXPECT_THAT(
      log_.records(),
      ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHLibrary_unload, 20, SysCall::FreeLibrary,
                               ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(before.module)}})));
  EXPECT_EQ(lookUp(kFunction), ECF_OK);
}

// ---- getFuncAddress ----

TEST_F(OSSHLibraryTest, ALookUpFindsTheFunction) {
  load();
  info_.version = 0;  // not examined
  EXPECT_EQ(lookUp(kFunction), ECF_OK);
  EXPECT_EQ(info_.functionAddress, addressOf(kFunction));
  OSSFunctionAddress function = nullptr;
  EXPECT_EQ(library_.getFuncAddress(kOther, &function), ECF_OK);
  EXPECT_EQ(function, addressOf(kOther));
  EXPECT_NE(function, nullptr);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHLibraryTest, ALookUpBeforeLoadIsRefused) {
  info_.functionAddress = poison();
  OSSFunctionAddress function = poison();
  const LogEvidence record =
      FoundRecord(OSS_LOG_INFO, Func::OSSHLibrary_getFuncAddress, 20, ECF_LIB_NOT_LOADED);
  EXPECT_EQ(lookUp(kFunction), ECF_LIB_NOT_LOADED);
  EXPECT_EQ(library_.getFuncAddress(kFunction, &function), ECF_LIB_NOT_LOADED);
  EXPECT_THAT(log_.newRecords(), ElementsAre(record, record));
  EXPECT_EQ(lookUp(kFunction, OSS_LIB_LOOKUP_QUIET), ECF_LIB_NOT_LOADED);
  EXPECT_THAT(log_.newRecords(), IsEmpty());
  EXPECT_EQ(info_.functionAddress, poison());
  EXPECT_EQ(function, poison());
}

TEST_F(OSSHLibraryTest, AMissingFunctionIsLoggedUnlessQuiet) {
  load();
  for (const char* const name : {kMissing, "", "lzcopy"}) {
    info_.functionAddress = poison();
    EXPECT_EQ(lookUp(name), ECF_LIB_FUNC_NOT_FOUND);
    EXPECT_EQ(info_.functionAddress, nullptr);
    EXPECT_THAT(log_.newRecords(), ElementsAre(missRecord(name)));

    info_.functionAddress = poison();
    EXPECT_EQ(lookUp(name, OSS_LIB_LOOKUP_QUIET), ECF_LIB_FUNC_NOT_FOUND);
    EXPECT_EQ(info_.functionAddress, nullptr);
    EXPECT_THAT(log_.newRecords(), IsEmpty());

    OSSFunctionAddress function = poison();
    EXPECT_EQ(library_.getFuncAddress(name, &function), ECF_LIB_FUNC_NOT_FOUND);
    EXPECT_EQ(function, poison());
    EXPECT_THAT(log_.newRecords(), ElementsAre(missRecord(name)));
  }
}

// Deliberate: the record shows the mapped code, the caller sees another.
TEST_F(OSSHLibraryTest, WhateverTheSystemSaysTheFunctionIsNotFound) {
  load();
  FailingCall fails("GetProcAddress", ERROR_ACCESS_DENIED);
  EXPECT_EQ(lookUp(kFunction), ECF_LIB_FUNC_NOT_FOUND);
  EXPECT_THAT(log_.records(), ElementsAre(SystemRecord(
                                  OSS_LOG_INFO, Func::OSSHLibrary_getFuncAddress, 30,
                                  SysCall::GetProcAddress, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                                  {{1, Hex(module())}, {2, String(kFunction)}})));
}

TEST_F(OSSHLibraryTest, RecordsThatAreNullOrTooOldAreRefusedBeforeTheStateIsLookedAt) {
  constexpr Func kOne = Func::OSSHLibrary_getFuncAddress;
  constexpr Func kAll = Func::OSSHLibrary_getFunctionAddresses;
  OSSLibGetFuncAddressParam one, oldOne, quiet;
  OSSLibGetFunctionAddressesParam oldAll;
  oldOne.version = oldAll.version = kTooOld;
  quiet.flags = OSS_LIB_LOOKUP_QUIET;
  const LogEvidence null = FoundRecord(OSS_LOG_ERROR, kOne, 1111, ECF_INVALID_PARAMETER);
  EXPECT_EQ(library_.getFuncAddress(nullptr, &info_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(library_.getFuncAddress(&one, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(library_.getFuncAddress(kFunction, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), ElementsAre(null, null, null));
  EXPECT_EQ(library_.getFuncAddress(&quiet, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), IsEmpty());

  OSSFunctionAddress function = poison();
  EXPECT_EQ(library_.getFuncAddress(&oldOne, nullptr), ECF_INVALID_VERSION);
  EXPECT_EQ(library_.getFunctionAddresses(nullptr, &function), ECF_INVALID_PARAMETER);
  EXPECT_EQ(library_.getFunctionAddresses(&oldAll, &function), ECF_INVALID_VERSION);
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(FoundRecord(OSS_LOG_ERROR, kOne, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}),
                  FoundRecord(OSS_LOG_ERROR, kAll, 1111, ECF_INVALID_PARAMETER),
                  FoundRecord(OSS_LOG_ERROR, kAll, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)})));
  EXPECT_EQ(function, poison());
}

TEST_F(OSSHLibraryTest, TheOldestAcceptedVersionIsAccepted) {
  load();
  OSSLibGetFuncAddressParam one;
  OSSLibGetFunctionAddressesParam all;
  one.version = all.version = OSS_VERSION_OLDEST;
  one.functionName = kFunction;
  EXPECT_EQ(library_.getFuncAddress(&one, &info_), ECF_OK);
  EXPECT_EQ(library_.getFunctionAddresses(&all, nullptr), ECF_OK);
}

// ---- getFunctionAddresses ----

TEST_F(OSSHLibraryTest, ABatchFindsItsFunctionsInOrder) {
  load();
  OSSFunctionAddress functions[3] = {poison(), poison(), poison()};
  EXPECT_EQ(lookUpAll({kFunction, kOther}, functions), ECF_OK);
  EXPECT_THAT(functions, ElementsAre(addressOf(kFunction), addressOf(kOther), poison()));
  EXPECT_EQ(log_.text(), "");
}

// Every pattern of misses among three names.
TEST_F(OSSHLibraryTest, ABatchWithMissesIsPartialAndLogsEachOfThemTwice) {
  load();
  for (unsigned misses = 1; misses < 8; ++misses) {
    std::vector<const char*> names;
    std::vector<OSSFunctionAddress> expected;
    std::vector<LogEvidence> records;
    for (unsigned i = 0; i < 3; ++i) {
      const bool misses_i = (misses >> i & 1) != 0;
      names.push_back(misses_i ? kMissing : kFunction);
      expected.push_back(misses_i ? nullptr : addressOf(kFunction));
      if (misses_i) {
        records.push_back(missRecord(kMissing));
        records.push_back(batchRecord(kMissing));
      }
    }
    OSSFunctionAddress functions[3] = {poison(), poison(), poison()};
    EXPECT_EQ(lookUpAll(names, functions), ECF_PARTIAL_INFO);
    EXPECT_THAT(functions, ElementsAreArray(expected)) << misses;
    EXPECT_THAT(log_.newRecords(), ElementsAreArray(records)) << misses;
  }
}

TEST_F(OSSHLibraryTest, ABatchOfNothingSucceedsAndWritesNothing) {
  OSSFunctionAddress function = poison();
  EXPECT_EQ(lookUpAll({}, &function), ECF_OK);
  EXPECT_EQ(lookUpAll({}, nullptr), ECF_OK);
  EXPECT_EQ(function, poison());
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHLibraryTest, ABatchWithoutALibraryEndsAtItsFirstName) {
  OSSFunctionAddress functions[2] = {poison(), poison()};
  EXPECT_EQ(lookUpAll({kFunction, kOther}, functions), ECF_LIB_NOT_LOADED);
  EXPECT_THAT(functions, Each(poison()));
  EXPECT_THAT(
      log_.records(),
      ElementsAre(
          FoundRecord(OSS_LOG_INFO, Func::OSSHLibrary_getFuncAddress, 20, ECF_LIB_NOT_LOADED),
          CalledRecord(OSS_LOG_INFO, Func::OSSHLibrary_getFunctionAddresses, 50,
                       Func::OSSHLibrary_getFuncAddress, ECF_LIB_NOT_LOADED, ECF_LIB_NOT_LOADED)));
}

TEST_F(OSSHLibraryTest, ABatchRefusesNullNamesAndFunctions) {
  load();
  OSSLibGetFunctionAddressesParam param;
  param.count = 1;
  OSSFunctionAddress function = poison();
  const LogEvidence record = FoundRecord(OSS_LOG_ERROR, Func::OSSHLibrary_getFunctionAddresses,
                                         1111, ECF_INVALID_PARAMETER);
  EXPECT_EQ(library_.getFunctionAddresses(&param, &function), ECF_INVALID_PARAMETER);
  EXPECT_EQ(lookUpAll({kFunction}, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(), ElementsAre(record, record));
  EXPECT_EQ(function, poison());
}

}  // namespace
