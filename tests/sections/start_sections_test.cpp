// The section configurations in the start sequence of the library.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

namespace {

class StartSectionsTest : public oxtest::SectionsTest {
 public:
  void breakBasic() { removeAt({"Config", "BasicInfo", "WebSessionID"}); }
  void breakQapi() { ASSERT_EQ(OSL_DeleteFile(path("QAPIConfig.xml").c_str()), 0); }
  void breakAlarmMonitor() { removeAt({"Config", "AlarmMonitor", "Enable"}); }
  void breakHttpHost() { removeAt({"Config", "HttpHostNotificationList"}); }
};

TEST_F(StartSectionsTest, FactoryDirectoryStartsWithEverySection) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);

  auto basic = OX_ConfigMgr_GetBasicCfg();
  ASSERT_TRUE(basic);
  EXPECT_STREQ(basic->getOperatingSystem(), kPrettyName);
  EXPECT_EQ(textAt({"Config", "BasicInfo", "WebSessionID"}), basic->getWebSessionID());

  auto qapi = OX_ConfigMgr_GetQAPICfg();
  ASSERT_TRUE(qapi);
  EXPECT_EQ(qapi->getQAPIMode(), 3);

  auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
  ASSERT_TRUE(alarm);
  OxConfigMgr::tagAlarmMonitorCnf record;
  alarm->getAlarmMonitorCfg(record);
  EXPECT_EQ(std::string(record.token).size(), 64u);
  EXPECT_EQ(textAt({"Config", "AlarmMonitor", "token"}), record.token);

  auto host = OX_ConfigMgr_GetHttpHostCfg();
  ASSERT_TRUE(host);
  OxConfigMgr::tagHttpHostInfo info;
  host->getHttpHostInfo(info);
  EXPECT_EQ(info.port, 8080);

  int value = -1;
  ASSERT_TRUE(OX_ConfigMgr_GetEventSubCfg());
  OX_ConfigMgr_GetEventSubCfg()->getSubCfg(value);
  EXPECT_EQ(value, 1);
  ASSERT_TRUE(OX_ConfigMgr_GetWispListenCfg());
  OX_ConfigMgr_GetWispListenCfg()->getCfg(value);
  EXPECT_EQ(value, 0);
  ASSERT_TRUE(OX_ConfigMgr_GetMetadataConfig());
  OX_ConfigMgr_GetMetadataConfig()->getCfg(value);
  EXPECT_EQ(value, 0);
  ASSERT_TRUE(OX_ConfigMgr_GetDeviceMgmtCfg());
  std::string kind;
  OX_ConfigMgr_GetDeviceMgmtCfg()->getChecked(kind);
  EXPECT_EQ(kind, "AccessControl");

  // A second start keeps every object and changes no file.
  const std::string before = config();
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(OX_ConfigMgr_GetBasicCfg(), basic);
  EXPECT_EQ(OX_ConfigMgr_GetAlarmMonitorCfg(), alarm);
  EXPECT_EQ(config(), before);
}

TEST_F(StartSectionsTest, EachFailingSectionStopsTheStartWithItsMessage) {
  struct Case {
    const char* message;
    void (StartSectionsTest::*breakIt)();
  };
  // Each break leaves the earlier sections loadable.
  const Case cases[] = {
      {"CBasicCfg loadFile falied", &StartSectionsTest::breakBasic},
      {"CQAPICfg loadFile falied", &StartSectionsTest::breakQapi},
      {"CAlarmMonitorCfg loadFile falied", &StartSectionsTest::breakAlarmMonitor},
      {"CHttpHostCfg loadFile falied", &StartSectionsTest::breakHttpHost},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    resetToFactory();
    (this->*c.breakIt)();
    oxtest::LogCapture log;
    // Objects loaded by an earlier round stay; the failing one is retried.
    EXPECT_EQ(OX_ConfigMgr_Start(), 0);
    EXPECT_TRUE(log.has(5, c.message));
  }
  resetToFactory();
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
}

TEST_F(StartSectionsTest, DeviceManagementThatCannotBeFixedStopsTheStart) {
  // Everything else is complete, so only the device kind needs a write.
  setAt({"Config", "BasicInfo", "WebSessionID"}, "0123456789");
  setAt({"Config", "AlarmMonitor", "token"}, std::string(64, 'a'));
  setAt({"Config", "DeviceMgmt", "Checked"}, "X");
  // A first start stops at the QAPI step, after the steps that always write
  // "Config.xml" (network) have loaded.
  const std::string qapi = oxtest::readFile(path("QAPIConfig.xml"));
  breakQapi();
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  ASSERT_TRUE(OX_ConfigMgr_GetNetworkCfg());
  oxtest::writeFile(path("QAPIConfig.xml"), qapi);
  env_.failOn(oxtest::FaultEnv::kRename, EROFS);
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CDeviceMgmtCfg loadFile falied"));
  EXPECT_TRUE(OX_ConfigMgr_GetWispListenCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetDeviceMgmtCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetMetadataConfig());

  env_.failOn(oxtest::FaultEnv::kNone, 0);
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(textAt({"Config", "DeviceMgmt", "Checked"}), "AC");
}

}  // namespace
