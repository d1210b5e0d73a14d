// Loading of the "Network" section: defaults, values forced or rewritten by
// the load, the address list, and odd or oversized input.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;
using nettest::fieldText;

namespace {

class NetworkLoadTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    env_.setNow(1);  // keeps the adapter refresh off: getIPv4List shows the table as loaded
  }
  // Writes a "Network" section holding `inside` and loads it into `cfg`.
  void load(CNetworkCfg& cfg, const std::string& inside) {
    writeNetwork(inside);
    ASSERT_TRUE(cfg.loadFile());
  }
  static std::vector<_NIC_INFO_V4> table(CNetworkCfg& cfg) {
    std::vector<_NIC_INFO_V4> out;
    EXPECT_EQ(cfg.getIPv4List(out), 0);
    return out;
  }
};

TEST_F(NetworkLoadTest, HeartbeatDefaultsOnlyWhenTheElementIsMissing) {
  uint16_t seconds = 0, count = 0;
  CNetworkCfg missing, empty;
  load(missing, "<HTTP><Port>80</Port></HTTP>");
  missing.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 30);
  EXPECT_EQ(count, 3);
  load(empty, "<HeartbeatParam/>");
  empty.getDevKeepAliveParam(seconds, count);
  EXPECT_EQ(seconds, 0);
  EXPECT_EQ(count, 0);
}

TEST_F(NetworkLoadTest, TheAlarmPortTypeAlwaysLoadsAsVideo) {
  CNetworkCfg cfg;
  load(cfg, "<PortMapping><AlarmPortType>2</AlarmPortType><LumenV5VideoAlarm><Port>11</Port></LumenV5VideoAlarm>"
            "<LumenV5AcsAlarm><Port>22</Port></LumenV5AcsAlarm></PortMapping>");
  EXPECT_EQ(cfg.getWISP5AlarmPortType(), OxConfigMgr::WISP5_ALARM_PORT_VIDEO);
  EXPECT_EQ(cfg.getWISP5AlarmPort(), 11);
  EXPECT_EQ(text({"Network", "PortMapping", "AlarmPortType"}), "2");  // the file keeps its text
}

TEST_F(NetworkLoadTest, TheLegacyMappingSwitchBecomesBothSwitchesAndLeavesTheFile) {
  CNetworkCfg cfg;
  load(cfg, "<HTTP><ExternalPort>0</ExternalPort></HTTP><RTSP><ExternalPort>8554</ExternalPort></RTSP>"
            "<PortMapping><enable>true</enable><DeviceEnable>false</DeviceEnable>"
            "<PlatformEnable>false</PlatformEnable></PortMapping>");
  EXPECT_TRUE(cfg.isDevicePortMapping());
  EXPECT_TRUE(cfg.isPlatformPortMapping());  // an external port is set
  EXPECT_EQ(config().find("<enable>"), std::string::npos) << config();
  EXPECT_EQ(text({"Network", "PortMapping", "DeviceEnable"}), "true");
  EXPECT_EQ(text({"Network", "PortMapping", "PlatformEnable"}), "true");
}

TEST_F(NetworkLoadTest, AddrListEntriesTheirProtocolsAndAtMostSixteen) {
  const std::string ip16 = "1234567890123456";
  std::string list = "<AddrList>"
                     "<Addr><V4><IP>" + ip16 + "</IP><ExternalIP>0.0.0.0</ExternalIP></V4>"
                     "<Protocol>SDK,lumen5.0,QAPI</Protocol></Addr>"
                     "<Addr><V4><IP>10.0.0.2</IP></V4><Protocol>lumen</Protocol></Addr>"
                     "<Addr><V4><IP>10.0.0.3</IP></V4><Protocol>lumen5.0 then lumen</Protocol></Addr>";
  for (int i = 4; i <= 20; ++i) list += "<Addr><V4><IP>10.0.0." + std::to_string(i) + "</IP></V4></Addr>";
  oxtest::LogCapture log;
  CNetworkCfg cfg;
  load(cfg, list + "</AddrList>");

  const auto addrs = table(cfg);
  ASSERT_EQ(addrs.size(), 16u);
  EXPECT_EQ(std::memcmp(addrs[0].ipv4, ip16.data(), 16), 0);  // all 16 bytes, no terminator
  EXPECT_EQ(fieldText(addrs[0].externalIP), "");              // "0.0.0.0" is unset
  EXPECT_EQ(addrs[0].protocolMask, 13u);
  EXPECT_EQ(addrs[1].protocolMask, 2u);
  EXPECT_EQ(addrs[2].protocolMask, 4u);
  EXPECT_EQ(fieldText(addrs[15].ipv4), "10.0.0.16");
  EXPECT_TRUE(log.has(4, "AddrList holds more than 16 entries, the rest are ignored."));
}

// Odd and oversized input; the fuzz target covers arbitrary documents.
TEST_F(NetworkLoadTest, OddTextsLengthsAndNumbersStayInBounds) {
  CNetworkCfg cfg;
  load(cfg, "<AddrList><Addr><V4><IP>" + std::string(100000, '1') + "</IP><ExternalIP>" + std::string(68, 'e') +
                "</ExternalIP><DeviceExternal>&lt;d&amp;\xc3\xa9" + std::string(500, 'd') +
                "</DeviceExternal></V4><Protocol>" + std::string(5000, '/') + "QAPI&lt;</Protocol></Addr>"
                "<Addr><V4><IP>1.2.3.4.5.6.7.8.9</IP></V4><Protocol>sdk qapi LUMEN</Protocol></Addr></AddrList>"
                "<HTTP><Port>70000</Port><ExternalPort>-1</ExternalPort></HTTP>"
                "<RTSP><Port>abc</Port><ExternalPort> 12x</ExternalPort></RTSP>");
  const auto addrs = table(cfg);
  ASSERT_EQ(addrs.size(), 2u);
  EXPECT_EQ(fieldText(addrs[0].ipv4), std::string(16, '1'));
  EXPECT_EQ(fieldText(addrs[0].externalIP), std::string(67, 'e'));
  EXPECT_EQ(fieldText(addrs[0].deviceExternal), "<d&\xc3\xa9" + std::string(62, 'd'));
  EXPECT_EQ(addrs[0].protocolMask, 8u);
  EXPECT_EQ(fieldText(addrs[1].ipv4), "1.2.3.4.5.6.7.8.");
  EXPECT_EQ(addrs[1].protocolMask, 0u);  // names are case-sensitive
  // Decimal text without range check, kept in 16 bits.
  EXPECT_EQ(cfg.getHttpPort(), 4464);
  EXPECT_EQ(cfg.getExtHttpPort(), 65535);
  EXPECT_EQ(cfg.getRtspPort(), 0);
  EXPECT_EQ(cfg.getExtRtspPort(), 12);
}

}  // namespace
