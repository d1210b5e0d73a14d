// The oxcfg commands of the section configurations, run as a separate
// process on a factory directory.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "platform/env.h"
#include "sections/sections_fixture.h"

namespace {

class CliSectionsTest : public oxtest::SectionsTest {
 protected:
  void SetUp() override {
    oxtest::SectionsTest::SetUp();
    // The command reads the machine's own os-release file.
    std::string name;
    OxBase::Env::Install(nullptr);
    if (OxConfigMgr::GetLinuxOSVersion(name) != 1) GTEST_SKIP() << "no usable /etc/os-release";
    OxBase::Env::Install(&env_);
  }

  OxBase::CommandResult oxcfg(std::vector<std::string> args) {
    args.insert(args.begin(), {OXCFG_CLI_PATH, "-C", dir()});
    return OxBase::Env::Default()->Run(args, "", "");
  }

  void expectContains(const OxBase::CommandResult& r, const std::string& part) {
    EXPECT_NE(r.output.find(part), std::string::npos) << r.output;
  }
};

TEST_F(CliSectionsTest, ShowAndSetReportTheLibraryResult) {
  auto r = oxcfg({"set", "product-name", "Gate 7"});
  EXPECT_EQ(r.exitCode, 0);
  expectContains(r, "set product-name: done (result 0)");
  EXPECT_EQ(textAt({"Config", "BasicInfo", "Name"}), "Gate 7");

  r = oxcfg({"set", "product-name", std::string(33, 'n')});
  EXPECT_EQ(r.exitCode, 1);
  expectContains(r, "failed (result 1: name of 33 or more characters");

  r = oxcfg({"set", "wisplisten", "on"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(textAt({"Config", "WispListenCfg", "Enable"}), "1");

  r = oxcfg({"set", "httphost", "--port", "65536"});
  EXPECT_EQ(r.exitCode, 1);
  expectContains(r, "failed (result 1: bad argument");
  r = oxcfg({"set", "httphost", "--ip", std::string(40, '1')});
  EXPECT_EQ(r.exitCode, 1);
  r = oxcfg(
      {"set", "httphost", "--ip", "10.0.0.9", "--port", "9090", "--url", "/hook", "--enable", "1"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(textAt({"Config", "HttpHostNotificationList", "HttpHostNotification", "IP"}),
            "10.0.0.9");

  r = oxcfg({"set", "devicemgmt", "V"});
  EXPECT_EQ(r.exitCode, 1);
  r = oxcfg({"set", "devicemgmt", "encodingDev"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(textAt({"Config", "DeviceMgmt", "Checked"}), "V");

  r = oxcfg({"set", "qapi", "off"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(textAt({"Config", "QAPIConfig", "Enable"}, "QAPIConfig.xml"), "0");

  r = oxcfg({"set", "alarmmonitor", "--enable", "1", "--token", "operator"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(textAt({"Config", "AlarmMonitor", "token"}), "operator");
  r = oxcfg({"alarm-token", "refresh"});
  EXPECT_EQ(r.exitCode, 0);
  const std::string token = textAt({"Config", "AlarmMonitor", "token"});
  EXPECT_EQ(token.size(), 64u);
  expectContains(r, "token: " + token);

  r = oxcfg({"show", "alarmmonitor"});
  EXPECT_EQ(r.exitCode, 0);
  expectContains(r, token);
  r = oxcfg({"show", "switches"});
  expectContains(r, "Wisp listening");
  r = oxcfg({"show", "basic"});
  expectContains(r, "Gate 7");

  // Usage errors never reach the library.
  const std::string before = config();
  EXPECT_EQ(oxcfg({"set", "eventsub", "yes"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"set", "httphost", "--port", "eighty"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"set", "alarmmonitor", "--token", "x"}).exitCode, 2);
  EXPECT_EQ(
      oxcfg({"set", "alarmmonitor", "--enable", "1", "--token", std::string(65, 't')}).exitCode, 2);
  EXPECT_EQ(config(), before);
}

}  // namespace
