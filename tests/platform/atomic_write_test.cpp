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
  {
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(xml.WriteToFile(target), 0);
  }
  if (GetParam() == oxtest::FaultEnv::kSyncDir) {
    // The rename happened: the new content is complete, only its durability
    // was in doubt.
    EXPECT_NE(oxtest::readFile(target).find("<A>new</A>"), std::string::npos);
  } else {
    EXPECT_EQ(oxtest::readFile(target), old);
  }
  EXPECT_EQ(oxtest::listDir(dir()), std::vector<std::string>{"Config.xml"});
  EXPECT_EQ(errno, ENOSPC);
}

INSTANTIATE_TEST_SUITE_P(EachStep, AtomicWriteTest,
                         ::testing::Values(oxtest::FaultEnv::kOpen, oxtest::FaultEnv::kWrite,
                                           oxtest::FaultEnv::kFsync, oxtest::FaultEnv::kClose,
                                           oxtest::FaultEnv::kRename, oxtest::FaultEnv::kSyncDir));

TEST_F(AtomicWriteTest, NewFilesGetTheUsualModeAndSecretsStayPrivate) {
  ASSERT_EQ(OxBase::WriteFileAtomic(path("plain"), std::string("x")), 0);
  EXPECT_EQ(oxtest::fileMode(path("plain")) & 0600u, 0600u);
  EXPECT_EQ(oxtest::readFile(path("plain")), "x");
  ASSERT_EQ(OxBase::WriteFileAtomic(path("cert.key"), std::string("k"), OxBase::FileMode::kSecret), 0);
  EXPECT_EQ(oxtest::fileMode(path("cert.key")), 0600u);
  // Writing into a directory that does not exist fails cleanly.
  EXPECT_EQ(OxBase::WriteFileAtomic(path("no/such/file"), std::string("x")), -1);
}

}  // namespace
