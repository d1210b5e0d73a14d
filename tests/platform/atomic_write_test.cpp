#include <cerrno>
#include <string>

#include "platform/file_util.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace {

class AtomicWriteTest : public oxtest::WorkDirTest,
                        public ::testing::WithParamInterface<oxtest::FaultEnv::Op> {};

TEST_P(AtomicWriteTest, AFailingStepLeavesTheOldFileWholeAndNoTemporary) {
  const std::string target = path("Config.xml");
  const std::string old = "<Config><A>old</A></Config>";
  oxtest::writeFile(target, old);

  OxBase::CXmlBase xml;
  ASSERT_EQ(xml.Parse("<Config><A>new</A><B>" + std::string(100000, 'x') + "</B></Config>"), 1);

  oxtest::FaultEnv env;
  env.failOn(GetParam(), ENOSPC);
  const bool renamed = GetParam() == oxtest::FaultEnv::kSyncDir;
  {
    oxtest::ScopedEnv scoped(&env);
    // Written means "the file holds the new text", so the caller's memory
    // follows the disk even when only the directory fsync failed.
    EXPECT_EQ(xml.WriteToFile(target), renamed ? 1 : 0);
  }
  if (renamed) {
    EXPECT_NE(oxtest::readFile(target).find("<A>new</A>"), std::string::npos);
  } else {
    EXPECT_EQ(oxtest::readFile(target), old);
  }
  EXPECT_EQ(oxtest::listDir(dir()), std::vector<std::string>{"Config.xml"});
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(AtomicWriteTest, TheOutcomeNamesTheFailedStage) {
  const struct {
    oxtest::FaultEnv::Op op;
    OxBase::WriteStage stage;
  } rows[] = {
      {oxtest::FaultEnv::kOpen, OxBase::WriteStage::kCreateTemp},
      {oxtest::FaultEnv::kWrite, OxBase::WriteStage::kWrite},
      {oxtest::FaultEnv::kFsync, OxBase::WriteStage::kSync},
      {oxtest::FaultEnv::kRename, OxBase::WriteStage::kRename},
      {oxtest::FaultEnv::kSyncDir, OxBase::WriteStage::kSyncDir},
  };
  for (const auto& row : rows) {
    oxtest::FaultEnv env;
    env.failOn(row.op, EIO);
    oxtest::ScopedEnv scoped(&env);
    OxBase::WriteOutcome out = OxBase::WriteFileAtomic(path("f"), std::string("data"));
    EXPECT_EQ(out.stage, row.stage);
    EXPECT_EQ(out.error, EIO);
    EXPECT_EQ(out.landed(), row.stage == OxBase::WriteStage::kSyncDir);
  }
}

INSTANTIATE_TEST_SUITE_P(EachStep, AtomicWriteTest,
                         ::testing::Values(oxtest::FaultEnv::kOpen, oxtest::FaultEnv::kWrite,
                                           oxtest::FaultEnv::kFsync, oxtest::FaultEnv::kClose,
                                           oxtest::FaultEnv::kRename, oxtest::FaultEnv::kSyncDir));

TEST_F(AtomicWriteTest, NewFilesGetTheUsualModeAndSecretsStayPrivate) {
  ASSERT_TRUE(OxBase::WriteFileAtomic(path("plain"), std::string("x")).ok());
  EXPECT_EQ(oxtest::fileMode(path("plain")) & 0600u, 0600u);
  EXPECT_EQ(oxtest::readFile(path("plain")), "x");
  ASSERT_TRUE(OxBase::WriteFileAtomic(path("cert.key"), std::string("k"), OxBase::FileMode::kSecret).ok());
  EXPECT_EQ(oxtest::fileMode(path("cert.key")), 0600u);
  // Writing into a directory that does not exist fails cleanly.
  EXPECT_EQ(OxBase::WriteFileAtomic(path("no/such/file"), std::string("x")).stage, OxBase::WriteStage::kCreateTemp);
}

}  // namespace
