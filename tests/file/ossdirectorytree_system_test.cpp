// Trees as a whole: a large one copied and removed, one with a file that somebody holds, one that
// two processes want at once. What is left allocated is told by the list of a process of its own.
#include <atomic>
#include <cstdlib>
#include <set>

#include "file/ossdirectoryfixture.h"
#include "harness/childprocess.h"
#include "harness/handles.h"
#include "harness/sharedobjects.h"
#include "harness/wine.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// Runs a role with the leak list asked for. Only the record of the mode is left: no list of blocks
// that were never freed.
void runWithoutLeaks(const std::string& role, const std::vector<std::string>& arguments) {
  const TempDirectory debug;
  EXPECT_EQ(runChild(role, arguments, {.environment = {{"OSSEMEMDBG", debug.path() + ",LEAKS"}}}),
            0u);
  EXPECT_THAT(debug.names(), ElementsAre("ossememdbg.log"));
}

// ---- A large tree ----

using Paths = std::set<std::string>;

// Directories with ten files each, forty one within the other and the rest beside each other in
// groups of forty. Returns what was made, by path relative to the tree.
Paths makeLargeTree(const std::string& tree, int directories) {
  constexpr int kGroup = 40;
  Paths made;
  makeDirectory(tree);
  std::string directory;
  for (int i = 0; i < directories; ++i) {
    const std::string top = "g" + std::to_string(i / kGroup);
    if (i % kGroup == 0)
      directory = top;
    else
      directory = (i < kGroup ? directory : top) + "\\d" + std::to_string(i % kGroup);
    makeDirectory(tree + '\\' + directory);
    made.insert(directory);
    for (int file = 0; file < 10; ++file) {
      const std::string path = directory + '\\' + std::to_string(file);
      const UniqueHandle handle(::CreateFileA((tree + '\\' + path).c_str(), GENERIC_WRITE, 0,
                                              nullptr, CREATE_NEW, 0, nullptr));
      DWORD written = 0;
      EXPECT_TRUE(::WriteFile(handle.get(), path.data(), static_cast<DWORD>(path.size()), &written,
                              nullptr));
      made.insert(path);
    }
  }
  return made;
}

Paths pathsIn(const std::string& directory) {
  Paths paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    paths.insert(entry.path().string().substr(directory.size() + 1));
  return paths;
}

void copyAndRemoveTree(const std::string& from, const std::string& to, int directories) {
  const Paths made = makeLargeTree(from, directories);
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), to.c_str()), ECF_OK);
  EXPECT_TRUE(pathsIn(to) == made);  // too large to be printed
  int compared = 0;
  for (const std::string& path : made)
    if (path.ends_with("\\7")) {
      EXPECT_EQ(readFile(to + '\\' + path), path);
      ++compared;
    }
  EXPECT_EQ(compared, directories);

  for (const std::string& tree : {to, from}) {
    EXPECT_EQ(removeDirectory(tree), ECF_OK);
    EXPECT_FALSE(isThere(tree));
  }
}

CHILD_ROLE(copyAndRemoveLargeTree) {
  const LogCapture log;
  // What the system keeps open from the first time on.
  copyAndRemoveTree(arguments[0], arguments[1], 1);
  const size_t handles = openHandles();
  copyAndRemoveTree(arguments[0], arguments[1], std::stoi(arguments[2]));
  EXPECT_EQ(openHandles(), handles);
  EXPECT_THAT(log.records(), IsEmpty());
  return 0;
}

// Ten thousand files in a thousand directories where OSSE_LARGE_TREE is set, as ./dev check --long
// does; a tenth otherwise.
TEST(LargeTree, IsCopiedAndRemovedWhole) {
  const TempDirectory dir;
  const bool isFull = std::getenv("OSSE_LARGE_TREE") != nullptr;
  runWithoutLeaks("copyAndRemoveLargeTree",
                  {dir.file("from"), dir.file("to"), isFull ? "1000" : "100"});
  EXPECT_THAT(dir.names(), IsEmpty());
}

// ---- A file that somebody holds ----

class HeldFile : public Test {
 protected:
  // "a" before it in the listing, "c" behind it.
  HeldFile() {
    makeDirectory(tree_);
    makeDirectory(inner_);
    for (const char* const name : {"a", "b", "c"}) writeFile(inner_ + '\\' + name, name);
  }

  const TempDirectory dir_;
  const std::string tree_ = dir_.file("tree");
  const std::string inner_ = tree_ + "\\inner";
  const std::string held_ = inner_ + "\\b";
};

UniqueHandle hold(const std::string& path) {
  UniqueHandle handle(
      ::CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_NE(handle.get(), INVALID_HANDLE_VALUE) << path;
  return handle;
}

CHILD_ROLE(removeAroundHeldFile) {
  const std::string tree = arguments[0];
  const std::string inner = tree + "\\inner";
  const std::string file = inner + "\\b";
  LogCapture log;
  const UniqueHandle held = hold(file);
  size_t handles = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(removeDirectory(tree), ECF_FILE_SHARE);
    if (i == 0) handles = openHandles();
    constexpr Func kAll = Func::oss_directory_delete_recursive;
    EXPECT_THAT(
        log.newRecords(),
        ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::ossFileDelete, 40, SysCall::DeleteFileA,
                                 ERROR_SHARING_VIOLATION, ECF_FILE_SHARE, {{1, String(file)}}),
                    CalledRecord(OSS_LOG_ERROR, kAll, 40, Func::ossFileDelete, ECF_FILE_SHARE,
                                 ECF_FILE_SHARE, {{1, String(file)}}),
                    CalledRecord(OSS_LOG_ERROR, kAll, 20, kAll, ECF_FILE_SHARE, ECF_FILE_SHARE,
                                 {{1, String(inner)}})));
  }
  EXPECT_EQ(openHandles(), handles);
  return 0;
}

TEST_F(HeldFile, StopsTheRemovalWhichLeavesWhatIsBehindIt) {
  runWithoutLeaks("removeAroundHeldFile", {tree_});
  EXPECT_EQ(treeOf(tree_), (Tree{{"inner", "<directory>"}, {"inner\\b", "b"}, {"inner\\c", "c"}}));
  EXPECT_EQ(removeDirectory(tree_), ECF_OK);
  EXPECT_THAT(dir_.names(), IsEmpty());
}

CHILD_ROLE(copyAroundHeldFile) {
  const std::string tree = arguments[0];
  const UniqueHandle held = hold(tree + "\\inner\\b");
  size_t handles = 0;
  for (int i = 0; i < 3; ++i) {
    const std::string copy = arguments[1] + std::to_string(i);
    EXPECT_EQ(ossDirectoryCopy(tree.c_str(), copy.c_str()), ECF_FILE_SHARE);
    EXPECT_EQ(treeOf(copy), (Tree{{"inner", "<directory>"}, {"inner\\a", "a"}}));
    if (i == 0) handles = openHandles();
  }
  EXPECT_EQ(openHandles(), handles);
  return 0;
}

TEST_F(HeldFile, StopsTheCopyWhichLeavesWhatIsBeforeIt) {
  runWithoutLeaks("copyAroundHeldFile", {tree_, dir_.file("copy")});
  EXPECT_THAT(dir_.names(), ElementsAre("copy0", "copy1", "copy2", "tree"));
}

// The one way on which a search stays open: a step of it fails.
TEST_F(HeldFile, ASearchThatFailsIsTheOnlyHandleThatStays) {
  std::vector<HANDLE> searches;
  const CallCounter closes("FindClose");
  {
    const ImportHook first("FindFirstFileA", [&](Call& call) {
      const Word search = call.passOn();
      searches.push_back(reinterpret_cast<HANDLE>(search));
      return search;
    });
    // The tree's own search takes three steps.
    for (const int step : {1, 5}) {
      const FailingCall fails("FindNextFileA", ERROR_ACCESS_DENIED, {.onCall = step});
      EXPECT_EQ(removeDirectory(tree_), ECF_ACCESS_DENIED);
    }
  }
  EXPECT_EQ(treeOf(tree_).size(), 4u);
  ASSERT_EQ(searches.size(), 3u);
  EXPECT_EQ(closes.calls(), 1);
  EXPECT_TRUE(::FindClose(searches[0]));
  EXPECT_TRUE(::FindClose(searches[2]));
}

// ---- One tree, two processes ----

// How often either process had what it asked for.
struct Successes {
  int created, copied, removed;
};

OSSErr count(OSSErr rc, int& successes) {
  if (rc == ECF_OK) std::atomic_ref(successes).fetch_add(1);
  return rc;
}

CHILD_ROLE(wantTheSameTree) {
  const std::string tree = arguments[0];
  const SharedBlock<Successes> successes(arguments[4]);
  Event ready(arguments[1]), go(arguments[2]);
  const std::string deep = tree + "\\a\\b\\c";
  ready.set();
  if (!go.wait()) return 1;

  // What the other process does meanwhile: it has removed what is asked for, it is just removing
  // it, it has put something into it or in its place.
  const auto isStated = AnyOf(ECF_OK, ECF_FILE_DOESNT_EXIST, ECF_FILE_PATH_DOESNT_EXIST,
                              ECF_ACCESS_DENIED, ECF_FILE_SHARE);
  // Wine alone calls a name invalid whose directory vanishes while it is looked for.
  const OSSErr vanished = isUnderWine() ? ECF_FILE_INVALID_NAME : ECF_FILE_DOESNT_EXIST;
  constexpr int kTimes = 100;
  for (int i = 0; i < kTimes; ++i) {
    EXPECT_THAT(count(create(deep, OSS_DIRECTORY_CREATE_MISSING), successes->created), isStated);
    EXPECT_THAT(
        count(ossFileCopy(arguments[3].c_str(), (deep + "\\file").c_str()), successes->copied),
        AnyOf(isStated, ECF_FILE_EXISTS));
    // A directory that is missing when it is asked for, and there again a moment later, is taken
    // for a file and refused as one.
    EXPECT_THAT(count(removeDirectory(tree), successes->removed),
                AnyOf(isStated, ECF_FILE_NOT_A_DIRECTORY, ECF_FILE_IS_A_DIRECTORY,
                      ECF_FILE_DIR_NOT_EMPTY, vanished));
  }
  return 0;
}

TEST(TreeOfTwoProcesses, IsMadeAndRemovedWithStatedCodesOnly) {
  const TempDirectory dir;
  const std::string tree = dir.file("tree");
  const std::string file = dir.file("file");
  writeFile(file, "bytes");
  Event ready[2], go[2];
  const SharedBlock<Successes> successes;
  const auto start = [&](int i) {
    return startChild("wantTheSameTree",
                      {tree, ready[i].name(), go[i].name(), file, successes.name()});
  };
  Child first = start(0);
  Child second = start(1);
  ASSERT_TRUE(ready[0].wait());
  ASSERT_TRUE(ready[1].wait());
  go[0].set();
  go[1].set();
  EXPECT_EQ(first.wait(), 0u);
  EXPECT_EQ(second.wait(), 0u);
  EXPECT_GT(successes->created, 0);
  EXPECT_GT(successes->copied, 0);
  EXPECT_GT(successes->removed, 0);
  // Whoever was last may have lost a step of it.
  if (isThere(tree)) {
    EXPECT_EQ(removeDirectory(tree), ECF_OK);
  }
  EXPECT_THAT(dir.names(), ElementsAre("file"));
}

}  // namespace
