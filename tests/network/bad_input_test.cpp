// Hostile or broken "Network" and "NATGateway" sections load without
// overrun or crash, and the address fields stay within their sizes.
#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "network/network_internal.h"
#include "platform/xml_base.h"
#include "support/network_support.h"

using OxConfigMgr::CNATGateway;
using OxConfigMgr::CNetworkCfg;

namespace {

class BadInputTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    env_.setNow(1);  // keeps the refresh off: the table as loaded
  }
};

// Text with every byte value that XML can carry, escaped.
std::string randomText(std::mt19937& rng, size_t length) {
  static const char kChars[] =
      "abcXYZ0123456789.:/-_ \t<>&\"'lumen5.0SDKQAPI\xc3\xa9\xe2\x82\xac";
  std::string raw;
  for (size_t i = 0; i < length; ++i) raw += kChars[rng() % (sizeof kChars - 1)];
  std::string out;
  for (char c : raw) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

TEST_F(BadInputTest, AddressesAndProtocolTextsOfAnyLengthStayInTheirFields) {
  std::mt19937 rng(7);
  for (size_t length : {0u, 1u, 15u, 16u, 17u, 66u, 67u, 68u, 131u, 132u, 133u, 4096u, 100000u}) {
    std::string list = "<AddrList>";
    for (int i = 0; i < 3; ++i) {
      list += "<Addr><V4><IP>" + randomText(rng, length) + "</IP><ExternalIP>" + randomText(rng, length) +
              "</ExternalIP><DeviceExternal>" + randomText(rng, length) + "</DeviceExternal></V4><Protocol>" +
              randomText(rng, length) + "</Protocol></Addr>";
    }
    writeConfig("<Network>" + list + "</AddrList></Network>");
    CNetworkCfg cfg;
    ASSERT_TRUE(cfg.loadFile()) << length;
    std::vector<_NIC_INFO_V4> table;
    cfg.getIPv4List(table);
    ASSERT_EQ(table.size(), 3u);
    for (const auto& e : table) {
      EXPECT_LE(nettest::ip(e).size(), 16u);
      EXPECT_LE(nettest::ext(e).size(), 67u);
      EXPECT_LE(nettest::dev(e).size(), 67u);
      EXPECT_EQ(e.protocolMask & ~15u, 0u);
    }
    EXPECT_LE(cfg.getGatewayInterIP().size(), 16u);
    // The table is written back within bounds too.
    EXPECT_EQ(cfg.resetAddrList(), 0);
    CNetworkCfg again;
    EXPECT_TRUE(again.loadFile());
  }
}

TEST_F(BadInputTest, MissingSubElementsAndLeavesInPlaceOfSections) {
  const char* sections[] = {
      "<Network/>",
      "<Network>text only</Network>",
      "<Network><AddrList/><HTTP/><HTTPS/><RTSP/><PSS/><PortMapping/><HeartbeatParam/></Network>",
      "<Network><AddrList>x</AddrList><HTTP>80</HTTP><PSS><Upload/><Download>1</Download></PSS>"
      "<PortMapping><LumenReg/><LumenStream/><enable/></PortMapping></Network>",
      "<Network><AddrList><Addr/><Addr><V4/></Addr><Addr><V4><IP/></V4><Protocol/></Addr>"
      "<Addr><Protocol><SDK/></Protocol></Addr></AddrList></Network>",
      "<Network><HTTP><Port><Port>1</Port></Port></HTTP><PortMapping><enable><x/></enable>"
      "<AlarmPortType/></PortMapping></Network>",
      "<Network><HTTP><Port>99999999999999999999</Port><ExternalPort>-99999999999</ExternalPort></HTTP>"
      "<HeartbeatParam><KeepAliveSeconds>0x10</KeepAliveSeconds><KeepAliveCount>1e3</KeepAliveCount>"
      "</HeartbeatParam></Network>",
      "",
  };
  for (const char* network : sections) {
    writeConfig(network);
    CNetworkCfg cfg;
    EXPECT_TRUE(cfg.loadFile()) << network;
    std::vector<_NIC_INFO_V4> table;
    cfg.getIPv4List(table);
    EXPECT_LE(table.size(), 16u);
    // Setters on the odd shapes neither create nor crash.
    EXPECT_EQ(cfg.setHttpPort(1234), 0u) << network;
    EXPECT_EQ(cfg.setLumenStreamPort(1, 2), 0u) << network;
    EXPECT_EQ(cfg.setDevKeepAliveParam(3, 4), 0u) << network;
    EXPECT_EQ(cfg.setExtIPv4("", "x"), 0) << network;
  }
}

TEST_F(BadInputTest, NonNumericPortsLoadAsZero) {
  writeConfig("<Network><HTTP><Port>http</Port></HTTP><PortMapping><LumenReg><Port>  </Port></LumenReg>"
              "</PortMapping></Network>");
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_EQ(cfg.getHttpPort(), 0);
  EXPECT_EQ(cfg.getLumenRegPort(), 0);
}

TEST_F(BadInputTest, NatRangesWithOddShapes) {
  const char* lists[] = {
      "<PortRange>x</PortRange>",
      "<PortRange><Protocol/><min/><max/></PortRange>",
      "<PortRange><Protocol><HTTP/></Protocol><min>1</min></PortRange>",
      "<PortRange><min>1</min><max>2</max></PortRange><PortRange><Protocol>HTTPS</Protocol></PortRange>",
  };
  for (const char* list : lists) {
    oxtest::writeFile(path("Config.xml"), std::string("<Config><NATGateway><PortRangeList>") + list +
                                              "</PortRangeList></NATGateway></Config>");
    CNATGateway nat;
    EXPECT_TRUE(nat.loadFile()) << list;
    EXPECT_EQ(nat.getMinHTTPPort(), 0) << list;
  }
}

TEST_F(BadInputTest, RandomDocumentsNeverCrashTheLoaders) {
  std::mt19937 rng(11);
  const std::vector<std::string> names = {"Config", "Network", "AddrList", "Addr", "V4", "IP", "ExternalIP",
                                          "DeviceExternal", "Protocol", "HTTP", "Port", "PortMapping",
                                          "enable", "DeviceEnable", "LumenStream", "HeartbeatParam",
                                          "NATGateway", "PortRangeList", "PortRange", "min", "max"};
  for (int round = 0; round < 200; ++round) {
    // A random tree of the section's own names, under a real root.
    std::string doc = "<Config>";
    std::vector<std::string> open;
    for (int i = 0; i < 60; ++i) {
      int action = static_cast<int>(rng() % 3);
      if (action == 0 || open.empty()) {
        open.push_back(names[rng() % names.size()]);
        doc += "<" + open.back() + ">";
      } else if (action == 1) {
        doc += randomText(rng, rng() % 24);
      } else {
        doc += "</" + open.back() + ">";
        open.pop_back();
      }
    }
    while (!open.empty()) {
      doc += "</" + open.back() + ">";
      open.pop_back();
    }
    doc += "</Config>";
    oxtest::writeFile(path("Config.xml"), doc);
    CNetworkCfg cfg;
    cfg.loadFile();
    std::vector<_NIC_INFO_V4> table;
    cfg.getIPv4List(table);
    EXPECT_LE(table.size(), 16u);
    CNATGateway nat;
    nat.loadFile();
  }
}

}  // namespace
