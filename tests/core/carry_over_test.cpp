#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <initializer_list>
#include <string>

#include "frame/config_store.h"
#include "core/instance_mgr.h"
#include "support/test_support.h"

using OxBase::CXmlBase;
using OxConfigMgr::xmlWalk;

namespace {

class CarryOverTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    ASSERT_EQ(old_.LoadFile(path("Config.xml")), 1);
  }

  // Sets (creating when missing) the leaf at the end of `where` in the backup.
  void setOld(std::initializer_list<const char*> where, const char* leaf, const char* value) {
    ASSERT_TRUE(xmlWalk(old_, where));
    ASSERT_TRUE(OxConfigMgr::xmlSetChildText(old_, leaf, value));
  }
  void removeOld(std::initializer_list<const char*> where, const char* child) {
    ASSERT_TRUE(xmlWalk(old_, where));
    ASSERT_TRUE(old_.RemoveNode(child));
  }
  void carryOver() {
    ASSERT_EQ(old_.WriteToFile(path("Config_Backup.xml")), 1);
    OxConfigMgr::CSingleton<OxConfigMgr::CInstanceMgr>::Instance()->copyBackupConfig();
  }
  // Text of a leaf of the new "Config.xml"; "<missing>" when absent.
  std::string now(std::initializer_list<const char*> where) { return oxtest::xmlText(path("Config.xml"), where); }

  CXmlBase old_;
};

TEST_F(CarryOverTest, AV10BackupRunsEveryStep) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "V1.0.3");
  setOld({"Config", "BasicInfo"}, "Model", "ZX-AG2010/V");
  setOld({"Config", "BasicInfo"}, "Name", "Old Gateway");
  setOld({"Config", "Network", "HTTPS"}, "Port", "4443");
  setOld({"Config", "Network", "HTTP"}, "Port", "8080");
  setOld({"Config", "Network", "PortMapping", "LumenV5Stream"}, "Port", "9999");
  removeOld({"Config", "Network", "AddrList", "Addr", "V4"}, "DeviceExternal");
  setOld({"Config", "Network", "AddrList", "Addr", "V4"}, "ExternalIP", "203.0.113.7");
  setOld({"Config", "NATGateway", "PortRangeList", "PortRange"}, "min", "1");
  removeOld({"Config"}, "DeviceMgmt");
  removeOld({"Config"}, "EventSubCfg");
  oxtest::LogCapture log;
  carryOver();

  EXPECT_EQ(OX_ConfigMgr_GetBackupVersion(), "V1.0.3");
  EXPECT_FALSE(oxtest::fileExists(path("Config_Backup.xml")));
  EXPECT_EQ(now({"Config", "BasicInfo", "Name"}), "Old Gateway");
  EXPECT_EQ(now({"Config", "BasicInfo", "SoftwareVersion"}), "1.8.0.0");
  EXPECT_EQ(now({"Config", "Network", "HTTP", "Port"}), "8080");
  // V1.0: the old HTTPS section is dropped, so the new one stays.
  EXPECT_EQ(now({"Config", "Network", "HTTPS", "Port"}), "443");
  // V1.1: so is the old Lumen 5.0 stream port.
  EXPECT_EQ(now({"Config", "Network", "PortMapping", "LumenV5Stream", "Port"}), "7686");
  // V1.3: devices reach the gateway where the platform did; old NAT ranges go.
  EXPECT_EQ(now({"Config", "Network", "AddrList", "Addr", "V4", "ExternalIP"}), "203.0.113.7");
  EXPECT_EQ(now({"Config", "Network", "AddrList", "Addr", "V4", "DeviceExternal"}), "203.0.113.7");
  EXPECT_EQ(now({"Config", "NATGateway", "PortRangeList", "PortRange", "min"}), "30000");
  // V1.5: the model stays the new one and the device kind follows the old one.
  EXPECT_EQ(now({"Config", "BasicInfo", "Model"}), "ZX-AG2010/AC");
  EXPECT_EQ(now({"Config", "DeviceMgmt", "Checked"}), "V");
  EXPECT_TRUE(log.has(3, "no need to update"));
  EXPECT_TRUE(log.has(2, "[ZX-AG2010/V,1] update subcfg succ"));
}

TEST_F(CarryOverTest, A160BackupTurnsWispListeningOnFromEventSubscription) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "V1.6.0.0");
  setOld({"Config", "Network", "HTTPS"}, "Port", "4443");
  setOld({"Config", "EventSubCfg"}, "Enable", "1");
  removeOld({"Config"}, "WispListenCfg");
  setOld({"Config", "NATGateway", "PortRangeList", "PortRange"}, "min", "31000");
  oxtest::LogCapture log;
  carryOver();
  EXPECT_EQ(now({"Config", "WispListenCfg", "Enable"}), "1");
  EXPECT_EQ(now({"Config", "Network", "HTTPS", "Port"}), "4443");  // no step ran
  EXPECT_EQ(now({"Config", "NATGateway", "PortRangeList", "PortRange", "min"}), "31000");
  EXPECT_TRUE(log.has(3, "[]no need to update"));
  EXPECT_TRUE(log.has(2, "Parse HTTP Protocol"));
}

TEST_F(CarryOverTest, A161BackupKeepsItsOwnWispListeningSwitch) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "V1.6.1.0");
  setOld({"Config", "EventSubCfg"}, "Enable", "1");
  setOld({"Config", "WispListenCfg"}, "Enable", "0");
  carryOver();
  EXPECT_EQ(now({"Config", "WispListenCfg", "Enable"}), "0");
}

TEST_F(CarryOverTest, WithoutVersionNothingIsUpgradedButEverythingMerges) {
  removeOld({"Config", "BasicInfo"}, "SoftwareVersion");
  setOld({"Config", "Network", "HTTPS"}, "Port", "4443");
  setOld({"Config", "Maintain", "Log"}, "Level", "5");
  carryOver();
  EXPECT_EQ(OX_ConfigMgr_GetBackupVersion(), "");
  EXPECT_EQ(now({"Config", "Network", "HTTPS", "Port"}), "4443");
  EXPECT_EQ(now({"Config", "Maintain", "Log", "Level"}), "5");
  EXPECT_EQ(now({"Config", "BasicInfo", "SoftwareVersion"}), "1.8.0.0");
}

TEST_F(CarryOverTest, V110MatchesTheV11StepByItsText) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "V1.10");
  setOld({"Config", "Network", "HTTPS"}, "Port", "4443");
  setOld({"Config", "Network", "PortMapping", "LumenV5Stream"}, "Port", "9999");
  carryOver();
  EXPECT_EQ(now({"Config", "Network", "HTTPS", "Port"}), "4443");  // V1.0 did not apply
  EXPECT_EQ(now({"Config", "Network", "PortMapping", "LumenV5Stream", "Port"}), "7686");
}

TEST_F(CarryOverTest, AdditionalAddressesAndTheLegacyMappingSwitchAreAppended) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "1.7.0.0");
  ASSERT_TRUE(xmlWalk(old_, {"Config", "Network", "AddrList"}));
  for (const char* ip : {"10.0.0.2", "10.0.0.3"}) {
    ASSERT_TRUE(old_.AddNode("Addr"));
    ASSERT_TRUE(old_.AddNode("V4"));
    ASSERT_TRUE(old_.AddNode("IP", ip));
    ASSERT_TRUE(old_.AddNode("ExternalIP", "198.51.100.1"));
    ASSERT_TRUE(old_.OutOfElem());
    ASSERT_TRUE(old_.AddNode("Protocol", "SDK/"));
    ASSERT_TRUE(old_.OutOfElem());
  }
  setOld({"Config", "Network", "AddrList", "Addr", "V4"}, "IP", "10.0.0.1");
  setOld({"Config", "Network", "PortMapping"}, "enable", "true");
  carryOver();

  CXmlBase xml;
  ASSERT_EQ(xml.LoadFile(path("Config.xml")), 1);
  ASSERT_TRUE(xmlWalk(xml, {"Config", "Network", "AddrList"}) && xml.IntoElem());
  std::vector<std::string> ips;
  for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
    ASSERT_TRUE(xml.IntoElem() && xml.FindElem("V4") && xml.IntoElem() && xml.FindElem("IP"));
    ips.push_back(xml.GetData());
    ASSERT_TRUE(xml.OutOfElem() && xml.OutOfElem());
  }
  EXPECT_EQ(ips, (std::vector<std::string>{"10.0.0.1", "10.0.0.2", "10.0.0.3"}));
  EXPECT_EQ(now({"Config", "Network", "PortMapping", "enable"}), "true");
}

TEST_F(CarryOverTest, AnUnreadableBackupStaysForTheNextStart) {
  oxtest::writeFile(path("Config_Backup.xml"), "<Config><BasicInfo>");
  const std::string before = oxtest::readFile(path("Config.xml"));
  OxConfigMgr::CSingleton<OxConfigMgr::CInstanceMgr>::Instance()->copyBackupConfig();
  EXPECT_TRUE(oxtest::fileExists(path("Config_Backup.xml")));
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), before);

  // A readable backup with an unreadable new file stays too.
  setOld({"Config", "BasicInfo"}, "Name", "Old");
  oxtest::writeFile(path("Config.xml"), "not xml");
  carryOver();
  EXPECT_TRUE(oxtest::fileExists(path("Config_Backup.xml")));
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), "not xml");
}

TEST_F(CarryOverTest, TheBackupIsConsumedOnceThroughStart) {
  setOld({"Config", "BasicInfo"}, "SoftwareVersion", "1.7.0.0");
  setOld({"Config", "BasicInfo"}, "Name", "Kept Name");
  ASSERT_EQ(old_.WriteToFile(path("Config_Backup.xml")), 1);
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_FALSE(oxtest::fileExists(path("Config_Backup.xml")));
  EXPECT_EQ(now({"Config", "BasicInfo", "Name"}), "Kept Name");
  const std::string after = oxtest::readFile(path("Config.xml"));
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), after);
  EXPECT_EQ(OX_ConfigMgr_GetBackupVersion(), "1.7.0.0");  // kept for the process
}

// The same policy for every file that has a backup twin: the backup is the
// only copy of the old values until the merged file is durably on disk.
TEST_F(CarryOverTest, EveryBackupStaysUntilItsMergeIsDurable) {
  setOld({"Config", "Network", "HTTP"}, "Port", "8080");
  ASSERT_EQ(old_.WriteToFile(path("Config_Backup.xml")), 1);
  oxtest::writeFile(path("QAPIConfig_Backup.xml"),
                    "<Config><QAPIConfig><Enable>1</Enable><Mode>all</Mode></QAPIConfig></Config>");
  for (auto op : {oxtest::FaultEnv::kWrite, oxtest::FaultEnv::kRename, oxtest::FaultEnv::kSyncDir}) {
    oxtest::LogCapture log;
    {
      oxtest::FaultEnv env;
      env.failOn(op, ENOSPC);
      oxtest::ScopedEnv scoped(&env);
      OxConfigMgr::CSingleton<OxConfigMgr::CInstanceMgr>::Instance()->copyBackupConfig();
      OxConfigMgr::CQAPICfg qapi;
      qapi.copyBackupConfig();
    }
    EXPECT_TRUE(oxtest::fileExists(path("Config_Backup.xml"))) << op;
    EXPECT_TRUE(oxtest::fileExists(path("QAPIConfig_Backup.xml"))) << op;
    EXPECT_TRUE(log.contains("Config_Backup.xml kept")) << op;
    EXPECT_TRUE(log.contains("QAPIConfig_Backup.xml kept")) << op;
  }

  OxConfigMgr::CSingleton<OxConfigMgr::CInstanceMgr>::Instance()->copyBackupConfig();
  OxConfigMgr::CQAPICfg qapi;
  ASSERT_EQ(qapi.loadFile(), 1);
  EXPECT_EQ(now({"Config", "Network", "HTTP", "Port"}), "8080");
  EXPECT_EQ(qapi.getQAPIMode(), 3);
  EXPECT_FALSE(oxtest::fileExists(path("Config_Backup.xml")));
  EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));
}

}  // namespace
