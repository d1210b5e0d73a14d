#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_tree.h"
#include "support/test_support.h"

namespace oxtest {
namespace {

class FileTreeTest : public WorkDirTest {};

TEST_F(FileTreeTest, RemoveTreeRemovesLinksButNeverWhatTheyPointAt) {
  ::mkdir(path("outside").c_str(), 0755);
  writeFile(path("outside/keep.txt"), "keep");
  ::mkdir(path("tree").c_str(), 0755);
  ::mkdir(path("tree/sub").c_str(), 0755);
  writeFile(path("tree/sub/file"), "x");
  writeFile(path("tree/file"), "x");
  ASSERT_EQ(::symlink(path("outside").c_str(), path("tree/dirlink").c_str()), 0);
  ASSERT_EQ(::symlink(path("outside/keep.txt").c_str(), path("tree/filelink").c_str()), 0);
  ASSERT_EQ(::mkfifo(path("tree/fifo").c_str(), 0600), 0);

  EXPECT_EQ(OxBase::InspectEntry(path("tree/dirlink")), OxBase::EntryKind::kLink);
  EXPECT_EQ(OxBase::InspectEntry(path("tree/fifo")), OxBase::EntryKind::kOther);
  uint64_t size = 0;
  EXPECT_EQ(OxBase::InspectEntry(path("outside/keep.txt"), &size), OxBase::EntryKind::kFile);
  EXPECT_EQ(size, 4u);

  EXPECT_TRUE(OxBase::RemoveTree(path("tree")));
  EXPECT_EQ(OxBase::InspectEntry(path("tree")), OxBase::EntryKind::kMissing);
  EXPECT_EQ(readFile(path("outside/keep.txt")), "keep");
  EXPECT_TRUE(OxBase::RemoveTree(path("tree")));  // nothing there is success
  EXPECT_TRUE(OxBase::RemoveTree(path("outside/keep.txt")));
  EXPECT_FALSE(fileExists(path("outside/keep.txt")));
}

TEST_F(FileTreeTest, RemoveTreeStopsAtItsDepthLimit) {
  std::string p = path("deep");
  ::mkdir(p.c_str(), 0755);
  for (int i = 0; i < 4; ++i) ::mkdir((p += "/d").c_str(), 0755);
  EXPECT_FALSE(OxBase::RemoveTree(path("deep"), 2));
  EXPECT_TRUE(fileExists(path("deep")));
  EXPECT_TRUE(OxBase::RemoveTree(path("deep"), 8));
  EXPECT_FALSE(fileExists(path("deep")));
}

}  // namespace
}  // namespace oxtest
