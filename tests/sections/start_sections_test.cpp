// The section configurations in the start sequence of the library, and the
// oxcfg commands that reach them.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <utility>
#include <vector>

#include "sections/sections_fixture.h"

namespace {

using StartSectionsTest = oxtest::SectionsTest;

TEST_F(StartSectionsTest, EachFailingSectionStopsTheStartWithItsMessageUntilFixed) {
  // Each class, and the section emptied to break it (null: "QAPIConfig.xml").
  // Each break leaves the earlier sections loadable; objects loaded by an
  // earlier round stay and the failing step is retried.
  const std::pair<const char*, const char*> cases[] = {
      {"CQAPICfg", nullptr},
      {"CAlarmMonitorCfg", "AlarmMonitor"},
      {"CHttpHostCfg", "HttpHostNotificationList"},
  };
  for (const auto& c : cases) {
    resetToFactory();
    c.second ? replaceSection(c.second, "") : oxtest::writeFile(path("QAPIConfig.xml"), "");
    oxtest::LogCapture log;
    EXPECT_EQ(OX_ConfigMgr_Start(), 0) << c.first;
    EXPECT_TRUE(log.has(5, std::string(c.first) + " loadFile falied"));
  }
  resetToFactory();
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_TRUE(OX_ConfigMgr_GetBasicCfg() && OX_ConfigMgr_GetQAPICfg() &&
              OX_ConfigMgr_GetAlarmMonitorCfg() && OX_ConfigMgr_GetHttpHostCfg() &&
              OX_ConfigMgr_GetEventSubCfg() && OX_ConfigMgr_GetWispListenCfg() &&
              OX_ConfigMgr_GetMetadataConfig() && OX_ConfigMgr_GetDeviceMgmtCfg());
}

class CliSectionsTest : public oxtest::SectionsTest {
 protected:
  void SetUp() override {
    oxtest::SectionsTest::SetUp();
    std::string name;  // the command reads the machine's own os-release file
    OxBase::Env::Install(nullptr);
    if (OxConfigMgr::GetLinuxOSVersion(name) != 1) GTEST_SKIP() << "no usable /etc/os-release";
    OxBase::Env::Install(&env_);
  }
  // Runs oxcfg here; expects `exitCode` and `part` in its output.
  void oxcfg(std::vector<std::string> args, int exitCode, const std::string& part = "") {
    const OxBase::CommandResult r = oxtest::runOxcfgIn(dir(), args);
    EXPECT_EQ(r.exitCode, exitCode) << args[0] << " " << args[1];
    EXPECT_NE(r.output.find(part), std::string::npos) << r.output;
  }
};

TEST_F(CliSectionsTest, CommandsReportTheLibraryResult) {
  oxcfg({"set", "product-name", "Gate 7"}, 0, "set product-name: done (result 0)");
  oxcfg({"set", "product-name", std::string(33, 'n')}, 1,
        "failed (result 1: name of 33 or more characters");
  oxcfg({"alarm-token", "refresh"}, 0);
  const std::string token = textAt({"Config", "AlarmMonitor", "token"});
  EXPECT_EQ(token.size(), 64u);
  oxcfg({"show", "alarmmonitor"}, 0, token);
  oxcfg({"show", "basic"}, 0, "Gate 7");
  const std::string before = config();  // usage errors never reach the library
  oxcfg({"set", "httphost", "--port", "eighty"}, 2);
  EXPECT_EQ(config(), before);
}

}  // namespace
