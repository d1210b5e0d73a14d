#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/file_util.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace {

struct Step {
  oxtest::FaultEnv::Op op;
  OxBase::WriteStage stage;  // named by the outcome
};
std::ostream& operator<<(std::ostream& os, const Step& s) { return os << "fault " << s.op; }

class AtomicWriteTest : public oxtest::WorkDirTest, public ::testing::WithParamInterface<Step> {};

TEST_P(AtomicWriteTest, AFailingStepLeavesTheOldFileWholeAndNoTemporaryAndIsNamed) {
  const std::string target = path("Config.xml");
  const std::string old = "<Config><A>old</A></Config>";
  oxtest::writeFile(target, old);

  OxBase::CXmlBase xml;
  ASSERT_EQ(xml.Parse("<Config><A>new</A><B>" + std::string(100000, 'x') + "</B></Config>"), 1);

  oxtest::FaultEnv env;
  env.failOn(GetParam().op, ENOSPC);
  const bool renamed = GetParam().stage == OxBase::WriteStage::kSyncDir;
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

  // The outcome of the same failure names its stage and error.
  oxtest::ScopedEnv scoped(&env);
  OxBase::WriteOutcome out = OxBase::WriteFileAtomic(path("f"), std::string("data"));
  EXPECT_EQ(out.stage, GetParam().stage);
  EXPECT_EQ(out.error, ENOSPC);
  EXPECT_EQ(out.landed(), renamed);
}

INSTANTIATE_TEST_SUITE_P(EachStep, AtomicWriteTest,
                         ::testing::Values(Step{oxtest::FaultEnv::kOpen, OxBase::WriteStage::kCreateTemp},
                                           Step{oxtest::FaultEnv::kWrite, OxBase::WriteStage::kWrite},
                                           Step{oxtest::FaultEnv::kFsync, OxBase::WriteStage::kSync},
                                           Step{oxtest::FaultEnv::kClose, OxBase::WriteStage::kSync},
                                           Step{oxtest::FaultEnv::kRename, OxBase::WriteStage::kRename},
                                           Step{oxtest::FaultEnv::kSyncDir, OxBase::WriteStage::kSyncDir}));

TEST_F(AtomicWriteTest, NewFilesGetTheUsualModeAndSecretsStayPrivate) {
  ASSERT_TRUE(OxBase::WriteFileAtomic(path("plain"), std::string("x")).ok());
  EXPECT_EQ(oxtest::fileMode(path("plain")) & 0600u, 0600u);
  EXPECT_EQ(oxtest::readFile(path("plain")), "x");
  ASSERT_TRUE(OxBase::WriteFileAtomic(path("cert.key"), std::string("k"), OxBase::FileMode::kSecret).ok());
  EXPECT_EQ(oxtest::fileMode(path("cert.key")), 0600u);
  // Writing into a directory that does not exist fails cleanly.
  EXPECT_EQ(OxBase::WriteFileAtomic(path("no/such/file"), std::string("x")).stage, OxBase::WriteStage::kCreateTemp);
}

TEST_F(AtomicWriteTest, AShortWriteReportsTheBytesThatReachedTheDisk) {
  // A real short write: a file size limit in a child process.
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{1000, 1000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    OxBase::WriteOutcome out = OxBase::WriteFileAtomic(path("big"), std::string(5000, 'b'));
    int code = out.stage != OxBase::WriteStage::kWrite ? 1
               : out.written != 1000                   ? 2
               : out.error != EFBIG                    ? 3
               : !oxtest::listDir(dir()).empty()       ? 4
                                                       : 0;
    ::_exit(code);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(AtomicWriteTest, ARefusedPathIsNotWrittenWhileTheRefusalLives) {
  oxtest::writeFile(path("Config.xml"), "old");
  {
    OxBase::ScopedWriteRefusal refuse(path("Config.xml"), ENOLCK);
    OxBase::WriteOutcome out = OxBase::WriteFileAtomic(path("Config.xml"), std::string("new"));
    EXPECT_EQ(out.stage, OxBase::WriteStage::kNoLock);
    EXPECT_EQ(out.error, ENOLCK);
    EXPECT_FALSE(out.landed());
    EXPECT_TRUE(OxBase::WriteFileAtomic(path("Other.xml"), std::string("x")).ok());
    // Another thread is not concerned.
    std::thread other([&] { EXPECT_TRUE(OxBase::WriteFileAtomic(path("Config.xml"), std::string("t")).ok()); });
    other.join();
  }
  EXPECT_TRUE(OxBase::WriteFileAtomic(path("Config.xml"), std::string("new")).ok());
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), "new");
}

// A pid that no process has any more: a reaped child's.
pid_t deadPid() {
  pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  int status = 0;
  ::waitpid(child, &status, 0);
  return child;
}

TEST_F(AtomicWriteTest, StaleTemporariesOfDeadWritersAreRemovedAndLiveOnesKept) {
  const pid_t dead = deadPid();
  ASSERT_GT(dead, 0);
  pid_t live = ::fork();
  ASSERT_GE(live, 0);
  if (live == 0) {
    ::pause();
    ::_exit(0);
  }
  auto temp = [](const std::string& target, pid_t pid, int n) {
    return "." + target + ".tmp." + std::to_string(pid) + "." + std::to_string(n);
  };
  const std::vector<std::string> stale = {temp("Config.xml", dead, 0), temp("Config.xml", dead, 17)};
  const std::vector<std::string> kept = {
      "Config.xml", temp("Config.xml", live, 1), temp("Config.xml", ::getpid(), 2),
      "Config.xml.tmp." + std::to_string(dead) + ".3",      // not a temporary's name
      ".Config.xml.tmp." + std::to_string(dead) + ".x",     // nor this
      ".Config.xml.tmp." + std::to_string(dead),            // nor this
  };
  const std::string otherStale = temp("QAPIConfig.xml", dead, 4);
  for (const auto& n : stale) oxtest::writeFile(path(n), "partial");
  for (const auto& n : kept) oxtest::writeFile(path(n), "x");
  oxtest::writeFile(path(otherStale), "partial");

  auto sorted = [](std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
  };
  // The writer of one file tidies only that file's temporaries.
  EXPECT_EQ(OxBase::RemoveStaleTemporaries(path("Config.xml")), 2);
  std::vector<std::string> expected = kept;
  expected.push_back(otherStale);
  EXPECT_EQ(sorted(oxtest::listDir(dir())), sorted(expected));

  // The start tidies the whole directory.
  EXPECT_EQ(OxBase::RemoveStaleTemporariesIn(dir()), 1);
  EXPECT_EQ(sorted(oxtest::listDir(dir())), sorted(kept));
  EXPECT_EQ(OxBase::RemoveStaleTemporariesIn(dir() + "/missing"), 0);

  ::kill(live, SIGKILL);
  ::waitpid(live, nullptr, 0);
}

TEST_F(AtomicWriteTest, NoFailurePathLeaksADescriptor) {
  oxtest::writeFile(path("f"), "data");
  const int before = oxtest::openDescriptorCount();
  for (auto op : {oxtest::FaultEnv::kOpen, oxtest::FaultEnv::kWrite, oxtest::FaultEnv::kShortWrite,
                  oxtest::FaultEnv::kFsync, oxtest::FaultEnv::kClose, oxtest::FaultEnv::kRename,
                  oxtest::FaultEnv::kSyncDir, oxtest::FaultEnv::kNone}) {
    oxtest::FaultEnv env;
    env.failOn(op, EIO);
    oxtest::ScopedEnv scoped(&env);
    OxBase::WriteFileAtomic(path("f"), std::string(10000, 'd'));
  }
  std::string out;
  EXPECT_FALSE(OxBase::ReadWholeFile(dir(), &out, 100));         // a directory
  EXPECT_FALSE(OxBase::ReadWholeFile(path("f"), &out, 10));      // too large
  EXPECT_TRUE(OxBase::ReadWholeFile(path("f"), &out, 1 << 20));
  EXPECT_EQ(OxBase::Env::Current()->Run({"/no/such/program"}, "in", "").exitCode, -1);
  EXPECT_EQ(OxBase::Env::Current()->Run({"true"}, "in", "").exitCode, 0);
  std::vector<OxBase::AdapterAddress> adapters;
  EXPECT_EQ(OxBase::Env::Default()->GetAdapters(&adapters), 0);
  EXPECT_EQ(oxtest::openDescriptorCount(), before);
}

}  // namespace
