// Loading of the "Network" section into CNetworkCfg.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;

namespace {

class NetworkLoadTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    // A clock this close to 0 keeps the address refresh from running, so
    // getIPv4List shows the table exactly as loaded.
    env_.setNow(1);
  }
  std::vector<_NIC_INFO_V4> table(CNetworkCfg& cfg) {
    std::vector<_NIC_INFO_V4> out;
    EXPECT_EQ(cfg.getIPv4List(out), 0);
    return out;
  }
  std::vector<_NIC_INFO_V4> loadAddrs(const std::string& addrList) {
    writeConfig("<Network>" + addrList + "</Network>");
    CNetworkCfg cfg;
    EXPECT_TRUE(cfg.loadFile());
    return table(cfg);
  }
};

const char* kEveryRow =
    "<Network>"
    "<AddrList><Addr><V4><IP>10.1.1.1</IP><ExternalIP>ext.example</ExternalIP>"
    "<DeviceExternal>198.51.100.7</DeviceExternal></V4><Protocol>lumen/QAPI</Protocol></Addr></AddrList>"
    "<HTTP><Port>8080</Port><ExternalPort>18080</ExternalPort></HTTP>"
    "<HTTPS><Port>8443</Port><Enable>7</Enable><ExternalPort>18443</ExternalPort></HTTPS>"
    "<RTSP><Port>8554</Port><ExternalPort>18554</ExternalPort></RTSP>"
    "<PSS><Upload><Port>6001</Port><ExternalPort>16001</ExternalPort></Upload>"
    "<Download><Port>6002</Port><ExternalPort>16002</ExternalPort></Download></PSS>"
    "<PortMapping><DeviceEnable>true</DeviceEnable><PlatformEnable>true</PlatformEnable>"
    "<AlarmPortType>1</AlarmPortType>"
    "<LumenReg><Port>7001</Port><ExternalPort>17001</ExternalPort></LumenReg>"
    "<LumenAlarm><Port>7002</Port><ExternalPort>17002</ExternalPort></LumenAlarm>"
    "<LumenStream><MinPort>20000</MinPort><MaxPort>20100</MaxPort><ExternalMinPort>30000</ExternalMinPort>"
    "<ExternalMaxPort>30100</ExternalMaxPort></LumenStream>"
    "<LumenV5Reg><Port>7101</Port><ExternalPort>17101</ExternalPort></LumenV5Reg>"
    "<LumenV5Alarm><Port>7102</Port><ExternalPort>17102</ExternalPort></LumenV5Alarm>"
    "<LumenV5VideoAlarm><Port>7103</Port><ExternalPort>17103</ExternalPort></LumenV5VideoAlarm>"
    "<LumenV5Stream><Port>7104</Port><ExternalPort>17104</ExternalPort></LumenV5Stream>"
    "<LumenV5PlayBack><Port>7105</Port><ExternalPort>17105</ExternalPort></LumenV5PlayBack>"
    "<LumenV5TwoWayAudio><Port>7106</Port><ExternalPort>17106</ExternalPort></LumenV5TwoWayAudio>"
    "<LumenV5AcsAlarm><Port>7107</Port><ExternalPort>17107</ExternalPort></LumenV5AcsAlarm>"
    "</PortMapping>"
    "<HeartbeatParam><KeepAliveSeconds>45</KeepAliveSeconds><KeepAliveCount>5</KeepAliveCount></HeartbeatParam>"
    "</Network>";

TEST_F(NetworkLoadTest, ConstructionGivesZerosAndTheVideoAlarmType) {
  CNetworkCfg cfg;
  EXPECT_EQ(cfg.getHttpPort(), 0);
  EXPECT_EQ(cfg.getHttpsEnable(), 0);
  EXPECT_FALSE(cfg.isDevicePortMapping());
  EXPECT_EQ(cfg.getWISP5AlarmPortType(), OxConfigMgr::WISP5_ALARM_PORT_VIDEO);
  uint16_t s = 1, c = 1;
  cfg.getDevKeepAliveParam(s, c);
  EXPECT_EQ(s, 0);
  EXPECT_EQ(c, 0);
  EXPECT_EQ(cfg.getGatewayInterIP(), "");
}

TEST_F(NetworkLoadTest, EveryElementReachesItsMember) {
  writeConfig(kEveryRow);
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_EQ(cfg.getHttpPort(), 8080);
  EXPECT_EQ(cfg.getExtHttpPort(), 18080);
  EXPECT_EQ(cfg.getHttpsPort(), 8443);
  EXPECT_EQ(cfg.getHttpsEnable(), 7);
  EXPECT_EQ(cfg.getExtHttpsPort(), 18443);
  EXPECT_EQ(cfg.getRtspPort(), 8554);
  EXPECT_EQ(cfg.getExtRtspPort(), 18554);
  EXPECT_EQ(cfg.getPssUploadPort(), 6001);
  EXPECT_EQ(cfg.getExtPssUploadPort(), 16001);
  EXPECT_EQ(cfg.getPssDownloadPort(), 6002);
  EXPECT_EQ(cfg.getExtPssDownloadPort(), 16002);
  EXPECT_TRUE(cfg.isDevicePortMapping());
  EXPECT_TRUE(cfg.isPlatformPortMapping());
  EXPECT_EQ(cfg.getLumenRegPort(), 7001);
  EXPECT_EQ(cfg.getExtLumenRegPort(), 17001);
  EXPECT_EQ(cfg.getLumenAlarmPort(), 7002);
  EXPECT_EQ(cfg.getExtLumenAlarmPort(), 17002);
  uint16_t lo = 0, hi = 0;
  cfg.getLumenStreamPort(lo, hi);
  EXPECT_EQ(lo, 20000);
  EXPECT_EQ(hi, 20100);
  cfg.getExtLumenStreamPort(lo, hi);
  EXPECT_EQ(lo, 30000);
  EXPECT_EQ(hi, 30100);
  EXPECT_EQ(cfg.getLumenV5RegPort(), 7101);
  EXPECT_EQ(cfg.getExtLumenV5RegPort(), 17101);
  EXPECT_EQ(cfg.getLumenV5AlarmPort(), 7102);
  EXPECT_EQ(cfg.getExtLumenV5AlarmPort(), 17102);
  EXPECT_EQ(cfg.getLumenV5VideoAlarmPort(), 7103);
  EXPECT_EQ(cfg.getExtLumenV5VideoAlarmPort(), 17103);
  EXPECT_EQ(cfg.getLumenV5StreamPort(), 7104);
  EXPECT_EQ(cfg.getExtLumenV5StreamPort(), 17104);
  EXPECT_EQ(cfg.getLumenV5PlayBackPort(), 7105);
  EXPECT_EQ(cfg.getExtLumenV5PlayBackPort(), 17105);
  EXPECT_EQ(cfg.getLumenV5TwowayAudioPort(), 7106);
  EXPECT_EQ(cfg.getExtLumenV5TwowayAudioPort(), 17106);
  EXPECT_EQ(cfg.getLumenV5AcsAlarmPort(), 7107);
  EXPECT_EQ(cfg.getExtLumenV5AcsAlarmPort(), 17107);
  EXPECT_EQ(cfg.getWISP5AlarmPort(), 7103);
  EXPECT_EQ(cfg.getExtWISP5AlarmPort(), 17103);
  uint16_t seconds = 0, count = 0;
  cfg.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 45);
  EXPECT_EQ(count, 5);

  auto addrs = table(cfg);
  ASSERT_EQ(addrs.size(), 1u);
  EXPECT_EQ(nettest::ip(addrs[0]), "10.1.1.1");
  EXPECT_EQ(nettest::ext(addrs[0]), "ext.example");
  EXPECT_EQ(nettest::dev(addrs[0]), "198.51.100.7");
  EXPECT_EQ(addrs[0].protocolMask, 2u | 8u);
  EXPECT_EQ(cfg.getGatewayInterIP(), "10.1.1.1");
  EXPECT_EQ(cfg.getGatewayOuterIP(), "ext.example");
  EXPECT_EQ(cfg.getDeviceOuterAddr(), "198.51.100.7");
  // Mapping on, external ports set and an outside address that is not
  // "0.0.0.0".
  EXPECT_TRUE(cfg.isHttpMapping());
  EXPECT_TRUE(cfg.isRtspMapping());
}

TEST_F(NetworkLoadTest, HeartbeatDefaultsOnlyWhenTheElementIsMissing) {
  writeConfig("<Network><HTTP><Port>80</Port></HTTP></Network>");
  CNetworkCfg missing;
  ASSERT_TRUE(missing.loadFile());
  uint16_t seconds = 0, count = 0;
  missing.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 30);
  EXPECT_EQ(count, 3);

  writeConfig("<Network><HeartbeatParam/></Network>");
  CNetworkCfg empty;
  ASSERT_TRUE(empty.loadFile());
  empty.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 0);
  EXPECT_EQ(count, 0);

  writeConfig("<Network><HeartbeatParam><KeepAliveCount>9</KeepAliveCount></HeartbeatParam></Network>");
  CNetworkCfg half;
  ASSERT_TRUE(half.loadFile());
  half.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 0);
  EXPECT_EQ(count, 9);
}

TEST_F(NetworkLoadTest, AlarmPortTypeAlwaysLoadsAsVideo) {
  for (const char* text : {"2", "1", "7", "x"}) {
    writeConfig(std::string("<Network><PortMapping><AlarmPortType>") + text +
                "</AlarmPortType><LumenV5VideoAlarm><Port>11</Port></LumenV5VideoAlarm>"
                "<LumenV5AcsAlarm><Port>22</Port></LumenV5AcsAlarm></PortMapping></Network>");
    CNetworkCfg cfg;
    ASSERT_TRUE(cfg.loadFile());
    EXPECT_EQ(cfg.getWISP5AlarmPortType(), OxConfigMgr::WISP5_ALARM_PORT_VIDEO) << text;
    EXPECT_EQ(cfg.getWISP5AlarmPort(), 11) << text;
    // The file keeps its text.
    EXPECT_EQ(nettest::elementText(path("Config.xml"), {"Network", "PortMapping", "AlarmPortType"}), text);
  }
}

TEST_F(NetworkLoadTest, LegacyMappingSwitchBecomesTheTwoSwitchesAndLeavesTheFile) {
  writeConfig(
      "<Network><HTTP><ExternalPort>0</ExternalPort></HTTP><HTTPS><ExternalPort>0</ExternalPort></HTTPS>"
      "<RTSP><ExternalPort>8554</ExternalPort></RTSP>"
      "<PortMapping><enable>true</enable><DeviceEnable>false</DeviceEnable>"
      "<PlatformEnable>false</PlatformEnable></PortMapping></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_TRUE(cfg.isDevicePortMapping());
  EXPECT_TRUE(cfg.isPlatformPortMapping());
  const std::string file = config();
  EXPECT_EQ(file.find("<enable>"), std::string::npos) << file;
  EXPECT_EQ(nettest::elementText(path("Config.xml"), {"Network", "PortMapping", "DeviceEnable"}), "true");
  EXPECT_EQ(nettest::elementText(path("Config.xml"), {"Network", "PortMapping", "PlatformEnable"}), "true");
}

TEST_F(NetworkLoadTest, LegacySwitchWithoutExternalPortsOrOffOnlyRewrites) {
  // On, but no external port: devices only. Missing elements are not made.
  writeConfig("<Network><PortMapping><enable>true</enable><DeviceEnable>false</DeviceEnable>"
              "</PortMapping></Network>");
  CNetworkCfg on;
  ASSERT_TRUE(on.loadFile());
  EXPECT_TRUE(on.isDevicePortMapping());
  EXPECT_FALSE(on.isPlatformPortMapping());
  EXPECT_EQ(config().find("PlatformEnable"), std::string::npos);
  EXPECT_EQ(config().find("<enable>"), std::string::npos);

  // Off: the current-form switches are overwritten, not read.
  writeConfig("<Network><PortMapping><enable>false</enable><DeviceEnable>true</DeviceEnable>"
              "<PlatformEnable>true</PlatformEnable></PortMapping></Network>");
  CNetworkCfg off;
  ASSERT_TRUE(off.loadFile());
  EXPECT_FALSE(off.isDevicePortMapping());
  EXPECT_FALSE(off.isPlatformPortMapping());
  EXPECT_EQ(nettest::elementText(path("Config.xml"), {"Network", "PortMapping", "DeviceEnable"}), "false");
  EXPECT_EQ(nettest::elementText(path("Config.xml"), {"Network", "PortMapping", "PlatformEnable"}), "false");
  EXPECT_EQ(config().find("<enable>"), std::string::npos);
}

TEST_F(NetworkLoadTest, CurrentSwitchesNeedExactlyTrue) {
  writeConfig("<Network><PortMapping><DeviceEnable>TRUE</DeviceEnable><PlatformEnable>1</PlatformEnable>"
              "</PortMapping></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_FALSE(cfg.isDevicePortMapping());
  EXPECT_FALSE(cfg.isPlatformPortMapping());
}

TEST_F(NetworkLoadTest, ProtocolTextsGiveMasksByFirstMatch) {
  auto addrs = loadAddrs(
      "<AddrList>"
      "<Addr><V4><IP>10.0.0.1</IP></V4><Protocol>SDK,lumen5.0,QAPI</Protocol></Addr>"
      "<Addr><V4><IP>10.0.0.2</IP></V4><Protocol>lumen</Protocol></Addr>"
      "<Addr><V4><IP>10.0.0.3</IP></V4><Protocol>lumen5.0 then lumen</Protocol></Addr>"
      "<Addr><V4><IP>10.0.0.4</IP></V4><Protocol>lumen/QAPI/SDK/lumen5.0</Protocol></Addr>"
      "<Addr><V4><IP>10.0.0.5</IP></V4><Protocol>sdk qapi LUMEN</Protocol></Addr>"
      "<Addr><V4><IP>10.0.0.6</IP></V4><Protocol/></Addr>"
      "</AddrList>");
  ASSERT_EQ(addrs.size(), 6u);
  EXPECT_EQ(addrs[0].protocolMask, 13u);
  EXPECT_EQ(addrs[1].protocolMask, 2u);
  EXPECT_EQ(addrs[2].protocolMask, 4u);
  EXPECT_EQ(addrs[3].protocolMask, 15u);
  EXPECT_EQ(addrs[4].protocolMask, 0u);
  EXPECT_EQ(addrs[5].protocolMask, 0u);
}

TEST_F(NetworkLoadTest, AddressTextsAreBoundedAndMayFillTheirField) {
  const std::string ip16 = "1234567890123456";
  const std::string ext67(67, 'e');
  auto addrs = loadAddrs("<AddrList>"
                         "<Addr><V4><IP>" + ip16 + "</IP><ExternalIP>" + ext67 + "x</ExternalIP>"
                         "<DeviceExternal>" + std::string(500, 'd') + "</DeviceExternal></V4></Addr>"
                         "<Addr><V4><IP>" + ip16 + "789</IP></V4></Addr>"
                         "</AddrList>");
  ASSERT_EQ(addrs.size(), 2u);
  // No terminator: the 16 bytes are the text.
  EXPECT_EQ(std::memcmp(addrs[0].ipv4, ip16.data(), 16), 0);
  EXPECT_EQ(nettest::ip(addrs[0]), ip16);
  EXPECT_EQ(nettest::ext(addrs[0]), ext67);
  EXPECT_EQ(nettest::dev(addrs[0]), std::string(67, 'd'));
  EXPECT_EQ(nettest::ip(addrs[1]), ip16);
}

TEST_F(NetworkLoadTest, UnsetAddressesStayEmpty) {
  writeConfig("<Network><AddrList><Addr><V4><IP>0.0.0.0</IP><ExternalIP>0.0.0.0</ExternalIP>"
              "<DeviceExternal>0.0.0.0</DeviceExternal></V4><Protocol>SDK</Protocol></Addr></AddrList>"
              "</Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  auto addrs = table(cfg);
  ASSERT_EQ(addrs.size(), 1u);
  EXPECT_EQ(nettest::ip(addrs[0]), "");
  EXPECT_EQ(nettest::ext(addrs[0]), "");
  EXPECT_EQ(nettest::dev(addrs[0]), "");
  EXPECT_EQ(addrs[0].protocolMask, 1u);
  // An empty outside address is not "0.0.0.0".
  EXPECT_EQ(cfg.getGatewayOuterIP(), "");
}

TEST_F(NetworkLoadTest, PortsKeepSixteenBitsWithoutRangeCheck) {
  writeConfig("<Network><HTTP><Port>70000</Port><ExternalPort>-1</ExternalPort></HTTP>"
              "<RTSP><Port>abc</Port><ExternalPort> 12x</ExternalPort></RTSP>"
              "<HTTPS><Enable>-5</Enable></HTTPS></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_EQ(cfg.getHttpPort(), 4464);
  EXPECT_EQ(cfg.getExtHttpPort(), 65535);
  EXPECT_EQ(cfg.getRtspPort(), 0);
  EXPECT_EQ(cfg.getExtRtspPort(), 12);
  EXPECT_EQ(cfg.getHttpsEnable(), -5);
}

TEST_F(NetworkLoadTest, TheTableStopsAtSixteenEntries) {
  oxtest::LogCapture log;
  std::string list = "<AddrList>";
  for (int i = 0; i < 40; ++i) {
    list += "<Addr><V4><IP>10.0.0." + std::to_string(i) + "</IP></V4><Protocol>SDK</Protocol></Addr>";
  }
  auto addrs = loadAddrs(list + "</AddrList>");
  ASSERT_EQ(addrs.size(), 16u);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(nettest::ip(addrs[i]), "10.0.0." + std::to_string(i));
  EXPECT_TRUE(log.has(4, "AddrList holds more than 16 entries, the rest are ignored."));
}

TEST_F(NetworkLoadTest, EveryAddrIsVisitedOnceWhateverIsInterleaved) {
  auto addrs = loadAddrs("<AddrList><Note>x</Note>"
                         "<Addr><V4><IP>10.0.0.1</IP></V4></Addr><Other/>"
                         "<Addr/>"
                         "<Addr><V4><IP>10.0.0.3</IP></V4><Protocol>QAPI</Protocol></Addr>"
                         "<Trailing><Addr><V4><IP>9.9.9.9</IP></V4></Addr></Trailing></AddrList>");
  ASSERT_EQ(addrs.size(), 3u);
  EXPECT_EQ(nettest::ip(addrs[0]), "10.0.0.1");
  EXPECT_EQ(nettest::ip(addrs[1]), "");
  EXPECT_EQ(nettest::ip(addrs[2]), "10.0.0.3");
  EXPECT_EQ(addrs[2].protocolMask, 8u);
}

TEST_F(NetworkLoadTest, EachEntryIsLoggedAsRead) {
  oxtest::LogCapture log;
  loadAddrs("<AddrList><Addr><V4><IP>10.0.0.1</IP><ExternalIP>e</ExternalIP>"
            "<DeviceExternal>d</DeviceExternal></V4><Protocol>QAPI/SDK</Protocol></Addr></AddrList>");
  EXPECT_TRUE(log.has(2, "[IP=10.0.0.1,ExternalIP=e,DeviceExternal=d,Protocol=9]read from Config.xml"));
}

TEST_F(NetworkLoadTest, ProtocolElementsOutsidePortMappingAreNotRead) {
  writeConfig("<Network><LumenReg><Port>7001</Port></LumenReg><AlarmPortType>2</AlarmPortType></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_EQ(cfg.getLumenRegPort(), 0);
}

TEST_F(NetworkLoadTest, TheDocumentIsAlwaysWrittenBack) {
  writeConfig(kEveryRow);
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  const nettest::FileId after = nettest::fileId(path("Config.xml"));
  EXPECT_NE(before.inode, after.inode);
  // Without Config or Network it is still written, and true.
  oxtest::writeFile(path("Config.xml"), "<Other><A>1</A></Other>");
  CNetworkCfg other;
  EXPECT_TRUE(other.loadFile());
  EXPECT_NE(config().find("<A>1</A>"), std::string::npos);
}

TEST_F(NetworkLoadTest, AnUnreadableFileFailsWithoutWriting) {
  oxtest::LogCapture log;
  CNetworkCfg cfg;
  EXPECT_FALSE(cfg.loadFile());
  EXPECT_FALSE(cfg.start());
  EXPECT_FALSE(oxtest::fileExists(path("Config.xml")));
  oxtest::writeFile(path("Config.xml"), "<Config><Network>");
  EXPECT_FALSE(cfg.loadFile());
  EXPECT_EQ(config(), "<Config><Network>");
  EXPECT_TRUE(log.has(5, "config file is not exist"));
}

TEST_F(NetworkLoadTest, AFailedWriteBackIsLoggedButTheValuesStay) {
  writeConfig(kEveryRow);
  oxtest::LogCapture log;
  oxtest::FaultEnv faults;
  faults.failOn(oxtest::FaultEnv::kRename, EIO);
  CNetworkCfg cfg;
  {
    oxtest::ScopedEnv scoped(&faults);
    EXPECT_FALSE(cfg.loadFile());
  }
  EXPECT_TRUE(log.has(5, "WriteToFile config file is fail."));
  EXPECT_EQ(cfg.getHttpPort(), 8080);
}

TEST_F(NetworkLoadTest, ALoadOrsProtocolsOntoWhatIsInMemory) {
  writeConfig("<Network><AddrList><Addr><V4><IP>10.0.0.1</IP></V4><Protocol>SDK</Protocol></Addr>"
              "</AddrList></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  writeConfig("<Network><AddrList><Addr><Protocol>QAPI</Protocol></Addr></AddrList></Network>");
  ASSERT_TRUE(cfg.loadFile());
  auto addrs = table(cfg);
  ASSERT_EQ(addrs.size(), 1u);
  EXPECT_EQ(nettest::ip(addrs[0]), "10.0.0.1");
  EXPECT_EQ(addrs[0].protocolMask, 9u);
}

}  // namespace
