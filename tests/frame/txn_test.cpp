#include "frame/config_txn.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "frame/config_store.h"
#include "platform/file_util.h"
#include "platform/oxbase.h"
#include "support/test_support.h"

using OxBase::CXmlBase;

namespace {

class TxnTest : public oxtest::WorkDirTest {};

// One read-modify-write of "Config.xml": increments the counter `name`.
void increment(const std::string& name) {
  OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
  CXmlBase xml;
  ASSERT_EQ(OxConfigMgr::readConfigFile(xml), 1);
  ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Counters"}));
  std::string text;
  OxConfigMgr::xmlChildText(xml, name.c_str(), &text);
  ASSERT_TRUE(OxConfigMgr::xmlSetChildText(xml, name.c_str(), std::to_string(std::stoi(text) + 1).c_str()));
  // A nested transaction on the same thread (a setter calling a setter).
  OxConfigMgr::ConfigFileTxn nested(OxConfigMgr::getConfigFilePath());
  ASSERT_EQ(OxConfigMgr::writeConfigFile(xml), 1);
}

TEST_F(TxnTest, ConcurrentWritersInThreadsAndProcessesLoseNoUpdate) {
  constexpr int kRounds = 40;
  std::string counters;
  for (int i = 0; i < 5; ++i) counters += "<c" + std::to_string(i) + ">0</c" + std::to_string(i) + ">";
  oxtest::writeFile(path("Config.xml"), "<Config><Counters>" + counters + "</Counters></Config>");

  // The second process is forked before any thread of this one exists.
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (int r = 0; r < kRounds; ++r) increment("c4");
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int r = 0; r < kRounds; ++r) increment("c" + std::to_string(t));
    });
  }
  for (auto& th : threads) th.join();
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);

  CXmlBase xml;
  ASSERT_EQ(OxConfigMgr::readConfigFile(xml), 1);
  ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Counters"}));
  for (int i = 0; i < 5; ++i) {
    std::string text;
    ASSERT_TRUE(OxConfigMgr::xmlChildText(xml, ("c" + std::to_string(i)).c_str(), &text));
    EXPECT_EQ(text, std::to_string(kRounds)) << "c" << i;
  }
  // Only the configuration and its lock file remain.
  auto names = oxtest::listDir(dir());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".Config.xml.lock", "Config.xml"}));
}

TEST_F(TxnTest, WithoutTheCrossProcessLockNothingIsWrittenAndTheFailureIsLogged) {
  const std::string old = "<Config><A>old</A></Config>";
  const std::string lockFile = OX_BASE_GetCurDir() + ".Config.xml.lock";
  const struct {
    oxtest::FaultEnv::Op op;
    int err;
  } rows[] = {{oxtest::FaultEnv::kOpen, EACCES}, {oxtest::FaultEnv::kFlock, ENOLCK}};
  for (const auto& row : rows) {
    oxtest::writeFile(path("Config.xml"), old);
    oxtest::LogCapture log;
    const int descriptors = oxtest::openDescriptorCount();
    {
      oxtest::FaultEnv env;
      env.failOn(row.op, row.err);
      oxtest::ScopedEnv scoped(&env);
      OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
      EXPECT_FALSE(txn.ok());
      OxConfigMgr::ConfigFileTxn nested(OxConfigMgr::getConfigFilePath());
      EXPECT_FALSE(nested.ok());
      CXmlBase xml;
      ASSERT_EQ(OxConfigMgr::readConfigFile(xml), 1);
      ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config"}));
      ASSERT_TRUE(OxConfigMgr::xmlSetChildText(xml, "A", "new"));
      // Every way of writing the file refuses.
      EXPECT_EQ(OxConfigMgr::writeConfigFile(xml), 0);
      EXPECT_EQ(xml.WriteToFile(OxConfigMgr::getConfigFilePath()), 0);
    }
    EXPECT_EQ(oxtest::readFile(path("Config.xml")), old);
    EXPECT_TRUE(log.has(5, "lock file failed, path[" + lockFile + "],error[" + std::to_string(row.err) + "]"));
    EXPECT_TRUE(log.has(5, "config file is not exist"));
    EXPECT_EQ(oxtest::openDescriptorCount(), descriptors);

    // The next transaction takes the lock again and writes.
    OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
    EXPECT_TRUE(txn.ok());
    CXmlBase xml;
    ASSERT_EQ(xml.Parse("<Config><A>new</A></Config>"), 1);
    EXPECT_EQ(OxConfigMgr::writeConfigFile(xml), 1);
  }
}

TEST_F(TxnTest, TakingTheLockRemovesTemporariesOfKilledWritersOfThatFile) {
  oxtest::writeFile(path("Config.xml"), "<Config/>");
  pid_t dead = ::fork();
  ASSERT_GE(dead, 0);
  if (dead == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(dead, nullptr, 0), dead);
  const std::string stale = ".Config.xml.tmp." + std::to_string(dead) + ".0";
  const std::string mine = ".Config.xml.tmp." + std::to_string(::getpid()) + ".99";
  const std::string other = ".QAPIConfig.xml.tmp." + std::to_string(dead) + ".0";
  for (const auto& n : {stale, mine, other}) oxtest::writeFile(path(n), "partial");
  {
    OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
    ASSERT_TRUE(txn.ok());
  }
  auto names = oxtest::listDir(dir());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".Config.xml.lock", mine, other, "Config.xml"}));
}

}  // namespace
