#include "frame/config_txn.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "frame/config_store.h"
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

}  // namespace
