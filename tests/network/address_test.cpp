// The address table: its refresh from the adapters, protocol bindings,
// outside addresses and the "AddrList" element they are written to.
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <oxconfigmgr/OxNetworkCfg.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "frame/config_store.h"
#include "platform/oxbase.h"
#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;
using nettest::adapter;
using nettest::fieldText;

namespace {

constexpr int64_t kInterval = 120000000;  // between two adapter refreshes

class AddressTest : public nettest::NetworkTest {
 protected:
  // Entry by entry: "IP=description/protocol mask;".
  std::string table() {
    std::vector<_NIC_INFO_V4> entries;
    EXPECT_EQ(cfg_.getIPv4List(entries), 0);
    std::string out;
    for (const auto& e : entries) {
      out += fieldText(e.ipv4) + "=" + fieldText(e.description) + "/" + std::to_string(e.protocolMask) + ";";
    }
    return out;
  }
  std::string byProtocol(int protocol, int expectedResult = 0) {
    _NIC_INFO_V4 e{};
    EXPECT_EQ(cfg_.getIPv4ByProtocol(e, static_cast<OxConfigMgr::DeviceProtocol>(protocol)), expectedResult);
    return fieldText(e.ipv4);
  }
  // The "Addr" entries of the file as "IP,ExternalIP,DeviceExternal,Protocol;".
  std::string fileAddrs() const {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(path("Config.xml")) != 1 || !OxConfigMgr::xmlWalk(xml, {"Config", "Network", "AddrList"}) ||
        !xml.IntoElem()) {
      return "";
    }
    std::string out;
    for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
      auto child = [&](const char* name) { return std::string(xml.FindElem(name) ? xml.GetData() : ""); };
      xml.IntoElem();
      xml.FindElem("V4");
      xml.IntoElem();
      out += child("IP") + "," + child("ExternalIP") + "," + child("DeviceExternal") + ",";
      xml.OutOfElem();
      out += child("Protocol") + ";";
      xml.OutOfElem();
    }
    return out;
  }
  CNetworkCfg cfg_;
};

TEST_F(AddressTest, TheFirstRefreshSortsTheAddressesAndBindsEveryProtocolToTheFirst) {
  writeNetwork("<AddrList/>");  // no address configured yet
  env_.setAdapters({adapter("eth0", {"192.168.1.9", "127.0.0.1", "10.0.0.5"}),
                    adapter("eth1", {"192.168.1.10", "10.0.0.5", "0.0.0.0", "300.1.2.3", "not-an-ip"})});
  ASSERT_TRUE(cfg_.start());
  // Text order; a duplicate is named by the first adapter that carries it.
  EXPECT_EQ(table(), "10.0.0.5=eth0/15;192.168.1.10=eth1/0;192.168.1.9=eth0/0;");
  EXPECT_EQ(fileAddrs(), "10.0.0.5,,,lumen/QAPI/SDK/lumen5.0;192.168.1.10,,,;192.168.1.9,,,;");
}

TEST_F(AddressTest, AVanishedAddressHandsItsSettingsToEntryZero) {
  writeNetwork("<AddrList>"
               "<Addr><V4><IP>10.0.0.5</IP><ExternalIP/><DeviceExternal>d5</DeviceExternal></V4>"
               "<Protocol>lumen</Protocol></Addr>"
               "<Addr><V4><IP>10.0.0.7</IP><ExternalIP>e7</ExternalIP><DeviceExternal>d7</DeviceExternal></V4>"
               "<Protocol>SDK/lumen5.0</Protocol></Addr>"
               "</AddrList>");
  env_.setAdapters({adapter("eth0", {"10.0.0.6", "10.0.0.5"})});
  ASSERT_TRUE(cfg_.start());
  // Entry 0 takes the empty outside address and the protocols, keeps its own
  // device address, and the table is written back.
  EXPECT_EQ(table(), "10.0.0.5=eth0/7;10.0.0.6=eth0/0;");
  EXPECT_EQ(fileAddrs(), "10.0.0.5,e7,d5,lumen/SDK/lumen5.0;10.0.0.6,,,;");
}

TEST_F(AddressTest, RefreshesWaitForTheInterval) {
  writeNetwork("<AddrList/>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1"})});
  ASSERT_TRUE(cfg_.start());
  env_.setAdapters({adapter("eth0", {"10.0.0.2"})});
  env_.advance(kInterval - 1);
  EXPECT_EQ(byProtocol(OxConfigMgr::PROTOCOL_SDK), "10.0.0.1");
  EXPECT_EQ(table(), "10.0.0.1=eth0/15;");
  env_.advance(1);
  EXPECT_EQ(table(), "10.0.0.2=eth0/15;");
}

TEST_F(AddressTest, ProtocolQueriesAndOutsideAddresses) {
  writeNetwork("<AddrList>"
               "<Addr><V4><IP>10.0.0.1</IP><ExternalIP>a</ExternalIP></V4><Protocol>SDK</Protocol></Addr>"
               "<Addr><V4><IP>10.0.0.2</IP><ExternalIP>b</ExternalIP></V4><Protocol>lumen</Protocol></Addr>"
               "</AddrList>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());

  EXPECT_EQ(byProtocol(3, 1), "");  // not one protocol
  EXPECT_EQ(byProtocol(OxConfigMgr::PROTOCOL_LUMEN), "10.0.0.2");
  EXPECT_EQ(byProtocol(OxConfigMgr::PROTOCOL_QAPI), "10.0.0.1");  // bound nowhere: entry 0

  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.2", "gw.example.org"), 0);
  EXPECT_EQ(fileAddrs(), "10.0.0.1,a,,SDK;10.0.0.2,gw.example.org,,lumen;");
  // An unknown local address: the file is rewritten unchanged, memory stays.
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.99", "z"), 0);
  const nettest::FileId after = nettest::fileId(path("Config.xml"));
  EXPECT_NE(after.inode, before.inode);
  EXPECT_EQ(after.content, before.content);
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "a");
}

TEST_F(AddressTest, QueriesRunWhileTheTableIsRefreshedAndChanged) {
  writeNetwork("<AddrList/>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (int i = 0; i < 40; ++i) {
      env_.setAdapters({adapter("eth0", {"10.0.0.1", i % 2 ? "10.0.0.3" : "10.0.0.2"})});
      env_.advance(kInterval);
      cfg_.setExtIPv4("10.0.0.1", "outside" + std::to_string(i));
      cfg_.setProtocolBindIPv4(OxConfigMgr::PROTOCOL_QAPI, i % 2 ? "10.0.0.3" : "10.0.0.1");
    }
    stop = true;
  });
  std::thread reader([&] {
    while (!stop) {
      EXPECT_EQ(byProtocol(OxConfigMgr::PROTOCOL_SDK), "10.0.0.1");
      const std::string outside = cfg_.getGatewayOuterIP();
      EXPECT_TRUE(outside.empty() || outside.rfind("outside", 0) == 0) << outside;
    }
  });
  writer.join();
  reader.join();
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "outside39");
}

// The real adapter enumeration, in a private network namespace of a child
// process: nothing outside that namespace changes.
TEST_F(AddressTest, RealAdaptersInANetworkNamespace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root for a network namespace";
  OxBase::Env::Install(nullptr);  // the real adapters and clock
  writeNetwork("<AddrList/>");

  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    auto reply = [&](int status, const std::string& text) {
      oxtest::writeFile(path("reply"), text);
      ::_exit(status);
    };
    if (::unshare(CLONE_NEWNET) != 0) reply(77, std::string("unshare: ") + std::strerror(errno));
    for (const std::vector<std::string>& argv : std::vector<std::vector<std::string>>{
             {"ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1"},
             {"ip", "addr", "add", "10.77.0.9/24", "dev", "v0"},
             {"ip", "addr", "add", "10.77.0.10/24", "dev", "v1"},
             {"ip", "link", "set", "v0", "up"},
             {"ip", "link", "set", "lo", "up"}}) {
      std::string output;
      if (OX_BASE_System(argv, &output) != 0) reply(77, argv[1] + " " + argv[2] + ": " + output);
    }
    if (!cfg_.start()) reply(1, "start failed");
    reply(0, table());
  }
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  const std::string text = oxtest::readFile(path("reply"));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no network namespace here: " << text;
  ASSERT_EQ(WEXITSTATUS(status), 0) << text;
  // Loopback is left out; text order puts .10 first and binds it.
  EXPECT_EQ(text, "10.77.0.10=v1/15;10.77.0.9=v0/0;");
  EXPECT_EQ(fileAddrs(), "10.77.0.10,,,lumen/QAPI/SDK/lumen5.0;10.77.0.9,,,;");
}

}  // namespace
