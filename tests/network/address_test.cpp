// The address table: refresh from the adapters, bindings, outside addresses
// and "AddrList".
#include <fcntl.h>
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

#include "platform/oxbase.h"
#include "platform/xml_base.h"
#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;
using nettest::adapter;

namespace {

constexpr int64_t kInterval = 120000000;

// "Addr" entries of the file: IP, ExternalIP, DeviceExternal, Protocol.
struct FileAddr {
  std::string ip, ext, dev, protocol;
  bool operator==(const FileAddr& o) const {
    return ip == o.ip && ext == o.ext && dev == o.dev && protocol == o.protocol;
  }
};
std::ostream& operator<<(std::ostream& os, const FileAddr& a) {
  return os << "{" << a.ip << "," << a.ext << "," << a.dev << "," << a.protocol << "}";
}

std::vector<FileAddr> fileAddrs(const std::string& file) {
  std::vector<FileAddr> out;
  OxBase::CXmlBase xml;
  if (xml.LoadFile(file) != 1 || !xml.SetRoot() || !xml.IntoElem() || !xml.FindElem("Network") ||
      !xml.IntoElem() || !xml.FindElem("AddrList") || !xml.IntoElem()) {
    return out;
  }
  for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
    FileAddr a;
    if (xml.IntoElem()) {
      if (xml.FindElem("V4") && xml.IntoElem()) {
        if (xml.FindElem("IP")) a.ip = xml.GetData();
        if (xml.FindElem("ExternalIP")) a.ext = xml.GetData();
        if (xml.FindElem("DeviceExternal")) a.dev = xml.GetData();
        xml.OutOfElem();
      }
      if (xml.FindElem("Protocol")) a.protocol = xml.GetData();
      xml.OutOfElem();
    }
    out.push_back(a);
  }
  return out;
}

class AddressTest : public nettest::NetworkTest {
 protected:
  std::vector<_NIC_INFO_V4> list() {
    std::vector<_NIC_INFO_V4> out;
    EXPECT_EQ(cfg_.getIPv4List(out), 0);
    return out;
  }
  std::vector<std::string> ips() {
    std::vector<std::string> out;
    for (const auto& e : list()) out.push_back(nettest::ip(e));
    return out;
  }
  CNetworkCfg cfg_;
};

TEST_F(AddressTest, EntriesAreSortedByTextAndTheFirstAdapterNamesAnAddress) {
  writeConfig(nettest::factoryNetwork());
  env_.setAdapters({adapter("eth0", {"192.168.1.9", "127.0.0.1", "10.0.0.5"}),
                    adapter("eth1", {"192.168.1.10", "10.0.0.5", "0.0.0.0", "300.1.2.3", "not-an-ip", ""}),
                    adapter("lo", {"127.0.0.1"})});
  oxtest::LogCapture log;
  ASSERT_TRUE(cfg_.start());
  const auto table = list();
  ASSERT_EQ(table.size(), 3u);
  EXPECT_EQ(nettest::ip(table[0]), "10.0.0.5");
  EXPECT_EQ(nettest::desc(table[0]), "eth0");
  EXPECT_EQ(nettest::ip(table[1]), "192.168.1.10");
  EXPECT_EQ(nettest::desc(table[1]), "eth1");
  EXPECT_EQ(nettest::ip(table[2]), "192.168.1.9");
  EXPECT_EQ(cfg_.getGatewayInterIP(), "10.0.0.5");
  EXPECT_TRUE(log.has(3, "[No.=0,IPv4=192.168.1.9, desc=eth0]GetLocalIP."));
  EXPECT_TRUE(log.has(3, "[No.=1,IPv4=10.0.0.5, desc=eth0]GetLocalIP."));
  EXPECT_TRUE(log.has(3, "[No.=2,IPv4=192.168.1.10, desc=eth1]GetLocalIP."));

  env_.setAdapters({adapter("eth0", {"192.168.1.9"}), adapter("eth1", {"192.168.1.10"})});
  env_.advance(kInterval);
  EXPECT_EQ(ips(), (std::vector<std::string>{"192.168.1.10", "192.168.1.9"}));
}

TEST_F(AddressTest, TheFirstRefreshBindsEveryProtocolToTheLowestAddress) {
  writeConfig(nettest::factoryNetwork());  // one entry, IP "0.0.0.0"
  env_.setAdapters({adapter("eth0", {"192.168.1.9"}), adapter("eth1", {"10.1.2.3"})});
  ASSERT_TRUE(cfg_.start());
  // One write by the load, then one per protocol.
  EXPECT_EQ(env_.configWrites(), 5);
  const auto table = list();
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table[0].protocolMask, 15u);
  EXPECT_EQ(table[1].protocolMask, 0u);
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.1.2.3", "", "", "lumen/QAPI/SDK/lumen5.0"}, {"192.168.1.9", "", "", ""}}));
  for (auto p : {OxConfigMgr::PROTOCOL_SDK, OxConfigMgr::PROTOCOL_LUMEN, OxConfigMgr::PROTOCOL_LUMEN5,
                 OxConfigMgr::PROTOCOL_QAPI}) {
    _NIC_INFO_V4 e{};
    EXPECT_EQ(cfg_.getIPv4ByProtocol(e, p), 0);
    EXPECT_EQ(nettest::ip(e), "10.1.2.3");
  }

  // Later refreshes keep the bindings where they are.
  env_.setAdapters({adapter("eth0", {"192.168.1.9", "10.1.2.3", "10.0.0.1"})});
  env_.advance(kInterval);
  const auto again = list();
  ASSERT_EQ(again.size(), 3u);
  EXPECT_EQ(nettest::ip(again[0]), "10.0.0.1");
  EXPECT_EQ(again[0].protocolMask, 0u);
  EXPECT_EQ(again[1].protocolMask, 15u);
  EXPECT_EQ(fileAddrs(path("Config.xml")).size(), 3u);  // the count changed: rewritten
}

TEST_F(AddressTest, AConfiguredTableKeepsItsBindingsAndOutsideAddresses) {
  writeConfig("<Network><AddrList>"
              "<Addr><V4><IP>10.0.0.6</IP><ExternalIP>e6</ExternalIP><DeviceExternal>d6</DeviceExternal></V4>"
              "<Protocol>QAPI</Protocol></Addr>"
              "<Addr><V4><IP>10.0.0.5</IP><ExternalIP>0.0.0.0</ExternalIP></V4><Protocol>lumen</Protocol></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.5", "10.0.0.6"})});
  oxtest::LogCapture log;
  ASSERT_TRUE(cfg_.start());
  // Same addresses, same count, table ready: only the load wrote.
  EXPECT_EQ(env_.configWrites(), 1);
  const auto table = list();
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(nettest::ip(table[0]), "10.0.0.5");
  EXPECT_EQ(table[0].protocolMask, 2u);
  EXPECT_EQ(nettest::ext(table[0]), "");
  EXPECT_EQ(nettest::ip(table[1]), "10.0.0.6");
  EXPECT_EQ(table[1].protocolMask, 8u);
  EXPECT_EQ(nettest::ext(table[1]), "e6");
  EXPECT_EQ(nettest::dev(table[1]), "d6");
  EXPECT_TRUE(log.has(2, "[IP=10.0.0.6,ExternalIP=e6,DeviceExternal=d6,Protocol=8]update Ip by AdapterInfo."));
}

TEST_F(AddressTest, AVanishedAddressHandsItsSettingsToEntryZero) {
  writeConfig("<Network><AddrList>"
              "<Addr><V4><IP>10.0.0.5</IP><ExternalIP></ExternalIP><DeviceExternal>d5</DeviceExternal></V4>"
              "<Protocol>lumen</Protocol></Addr>"
              "<Addr><V4><IP>10.0.0.7</IP><ExternalIP>e7</ExternalIP><DeviceExternal>d7</DeviceExternal></V4>"
              "<Protocol>SDK/lumen5.0</Protocol></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.6", "10.0.0.5"})});
  ASSERT_TRUE(cfg_.start());
  const auto table = list();
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(nettest::ip(table[0]), "10.0.0.5");
  EXPECT_EQ(table[0].protocolMask, 2u | 1u | 4u);
  EXPECT_EQ(nettest::ext(table[0]), "e7");  // was empty
  EXPECT_EQ(nettest::dev(table[0]), "d5");  // its own stays
  EXPECT_EQ(env_.configWrites(), 2);        // the load, then one rewrite
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.0.0.5", "e7", "d5", "lumen/SDK/lumen5.0"}, {"10.0.0.6", "", "", ""}}));
}

TEST_F(AddressTest, RefreshesWaitForTheInterval) {
  writeConfig(nettest::factoryNetwork());
  env_.setAdapters({adapter("eth0", {"10.0.0.1"})});
  ASSERT_TRUE(cfg_.start());
  env_.setAdapters({adapter("eth0", {"10.0.0.2"})});
  env_.advance(kInterval - 1);
  EXPECT_EQ(ips(), std::vector<std::string>{"10.0.0.1"});
  _NIC_INFO_V4 e{};
  EXPECT_EQ(cfg_.getIPv4ByProtocol(e, OxConfigMgr::PROTOCOL_SDK), 0);
  EXPECT_EQ(nettest::ip(e), "10.0.0.1");
  env_.advance(1);
  EXPECT_EQ(ips(), std::vector<std::string>{"10.0.0.2"});
  // The bindings moved with the vanished address.
  EXPECT_EQ(list()[0].protocolMask, 15u);
  // A refresh skipped by the interval is a success.
  EXPECT_TRUE(cfg_.updateLocalIP());
}

TEST_F(AddressTest, ListingFailuresKeepTheTable) {
  writeConfig("<Network><AddrList><Addr><V4><IP>10.9.9.9</IP></V4></Addr></AddrList></Network>");
  oxtest::LogCapture log;
  env_.failAdapters(EPERM);
  EXPECT_FALSE(cfg_.start());
  EXPECT_TRUE(log.has(5, "[errCode=" + std::to_string(EPERM) + "]OSL_GetAdapterInfo failed."));
  std::vector<_NIC_INFO_V4> raw;
  EXPECT_EQ(cfg_.getAdapterInfo(raw), -1);

  env_.failAdapters(0);
  env_.setAdapters({adapter("lo", {"127.0.0.1"})});
  env_.advance(kInterval);
  EXPECT_FALSE(cfg_.updateLocalIP());
  EXPECT_TRUE(log.has(5, "[num=0]GetLocalIP failed."));
  EXPECT_EQ(ips(), std::vector<std::string>{"10.9.9.9"});
}

TEST_F(AddressTest, AtMostSixteenAddressesAreTaken) {
  writeConfig(nettest::factoryNetwork());
  std::vector<std::string> many;
  for (int i = 10; i < 40; ++i) many.push_back("10.0.0." + std::to_string(i));
  env_.setAdapters({adapter("eth0", many)});
  ASSERT_TRUE(cfg_.start());
  const auto got = ips();
  ASSERT_EQ(got.size(), 16u);
  EXPECT_EQ(got.front(), "10.0.0.10");
  EXPECT_EQ(got.back(), "10.0.0.25");
}

TEST_F(AddressTest, ProtocolQueries) {
  writeConfig("<Network><AddrList>"
              "<Addr><V4><IP>10.0.0.1</IP></V4><Protocol>SDK</Protocol></Addr>"
              "<Addr><V4><IP>10.0.0.2</IP></V4><Protocol>lumen</Protocol></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());

  _NIC_INFO_V4 e{};
  std::memset(&e, 0x5a, sizeof e);
  EXPECT_EQ(cfg_.getIPv4ByProtocol(e, static_cast<OxConfigMgr::DeviceProtocol>(3)), 1);
  EXPECT_EQ(cfg_.getIPv4ByProtocol(e, static_cast<OxConfigMgr::DeviceProtocol>(0)), 1);
  EXPECT_EQ(static_cast<unsigned char>(e.ipv4[0]), 0x5a);  // untouched

  EXPECT_EQ(cfg_.getIPv4ByProtocol(e, OxConfigMgr::PROTOCOL_LUMEN), 0);
  EXPECT_EQ(nettest::ip(e), "10.0.0.2");
  // Bound nowhere: entry 0.
  EXPECT_EQ(cfg_.getIPv4ByProtocol(e, OxConfigMgr::PROTOCOL_QAPI), 0);
  EXPECT_EQ(nettest::ip(e), "10.0.0.1");

  EXPECT_EQ(cfg_.checkProtocolBindIPv4("10.0.0.2"), 1);
  EXPECT_EQ(cfg_.checkProtocolBindIPv4("10.0.0.3"), 0);
  EXPECT_EQ(cfg_.checkProtocolBindIPv4(""), 0);

  // getIPv4List appends.
  std::vector<_NIC_INFO_V4> out(1);
  EXPECT_EQ(cfg_.getIPv4List(out), 0);
  EXPECT_EQ(out.size(), 3u);
}

TEST_F(AddressTest, BindingMovesAProtocolAndRewritesTheList) {
  writeConfig(nettest::factoryNetwork());
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());

  EXPECT_EQ(cfg_.setProtocolBindIPv4(OxConfigMgr::PROTOCOL_LUMEN5, "10.0.0.2"), 0);
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.0.0.1", "", "", "lumen/QAPI/SDK/"}, {"10.0.0.2", "", "", "lumen5.0"}}));

  // No entry has the address: the protocol is bound nowhere.
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setProtocolBindIPv4(OxConfigMgr::PROTOCOL_SDK, ""), 0);
  EXPECT_NE(nettest::fileId(path("Config.xml")).inode, before.inode);
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.0.0.1", "", "", "lumen/QAPI/"}, {"10.0.0.2", "", "", "lumen5.0"}}));
  for (const auto& e : list()) EXPECT_EQ(e.protocolMask & 1u, 0u);

  oxtest::writeFile(path("Config.xml"), "<Config>");
  EXPECT_EQ(cfg_.setProtocolBindIPv4(OxConfigMgr::PROTOCOL_SDK, "10.0.0.1"), 2);
}

TEST_F(AddressTest, ResetNeedsAnExistingAddrListAndReportsFileFailures) {
  writeConfig("<Network><HTTP><Port>80</Port></HTTP></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1"})});
  ASSERT_TRUE(cfg_.start());  // the bindings were written nowhere
  EXPECT_EQ(config().find("AddrList"), std::string::npos);
  EXPECT_EQ(cfg_.resetAddrList(), 0);
  EXPECT_EQ(config().find("AddrList"), std::string::npos);

  writeConfig("<Network><AddrList/></Network>");
  EXPECT_EQ(cfg_.resetAddrList(), 0);
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.0.0.1", "", "", "lumen/QAPI/SDK/lumen5.0"}}));

  oxtest::FaultEnv faults;
  faults.failOn(oxtest::FaultEnv::kRename, EIO);
  {
    oxtest::ScopedEnv scoped(&faults);
    EXPECT_EQ(cfg_.resetAddrList(), 3);
  }
  ::unlink(path("Config.xml").c_str());
  EXPECT_EQ(cfg_.resetAddrList(), 2);
}

TEST_F(AddressTest, OutsideAddressesChangeTheMatchingEntryOnly) {
  writeConfig("<Network><AddrList>"
              "<Addr><V4><IP>10.0.0.1</IP><ExternalIP>a</ExternalIP><DeviceExternal>b</DeviceExternal></V4>"
              "<Protocol>SDK</Protocol></Addr>"
              "<Addr><V4><IP>10.0.0.2</IP><ExternalIP>c</ExternalIP></V4><Protocol>lumen</Protocol></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());

  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.2", "gw.example.org"), 0);
  EXPECT_EQ(nettest::ext(list()[1]), "gw.example.org");
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.0.0.1", "a", "b", "SDK"}, {"10.0.0.2", "gw.example.org", "", "lumen"}}));

  // The same text again: nothing to do.
  nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.2", "gw.example.org"), 0);
  EXPECT_EQ(nettest::fileId(path("Config.xml")), before);

  // A missing element is not created, but memory follows.
  EXPECT_EQ(cfg_.setDevExt("10.0.0.2", "dev.example.org"), 0);
  EXPECT_EQ(nettest::dev(list()[1]), "dev.example.org");
  EXPECT_EQ(fileAddrs(path("Config.xml"))[1].dev, "");
  EXPECT_EQ(cfg_.setDevExt("10.0.0.1", "x"), 0);
  EXPECT_EQ(fileAddrs(path("Config.xml"))[0].dev, "x");
  EXPECT_EQ(cfg_.getDeviceOuterAddr(), "x");
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "a");

  // Long texts are kept to 67 bytes in memory, whole in the file.
  const std::string longName(100, 'n');
  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.1", longName), 0);
  EXPECT_EQ(cfg_.getGatewayOuterIP(), longName.substr(0, 67));
  EXPECT_EQ(fileAddrs(path("Config.xml"))[0].ext, longName);
}

TEST_F(AddressTest, AnUnknownLocalAddressRewritesTheFileUnchanged) {
  writeConfig("<Network><AddrList><Addr><V4><IP>10.0.0.1</IP><ExternalIP>a</ExternalIP></V4></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1"})});
  ASSERT_TRUE(cfg_.start());
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.99", "z"), 0);
  const nettest::FileId after = nettest::fileId(path("Config.xml"));
  EXPECT_NE(after.inode, before.inode);
  EXPECT_EQ(after.content, before.content);
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "a");
}

TEST_F(AddressTest, OutsideAddressFileFailures) {
  writeConfig("<Network><AddrList><Addr><V4><IP>10.0.0.1</IP><ExternalIP>a</ExternalIP></V4></Addr>"
              "</AddrList></Network>");
  env_.setAdapters({adapter("eth0", {"10.0.0.1"})});
  ASSERT_TRUE(cfg_.start());
  oxtest::FaultEnv faults;
  faults.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
  {
    oxtest::ScopedEnv scoped(&faults);
    EXPECT_EQ(cfg_.setExtIPv4("10.0.0.1", "b"), 3);
    EXPECT_EQ(cfg_.setDevExt("10.0.0.1", "b"), 3);
  }
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "a");
  EXPECT_EQ(cfg_.getDeviceOuterAddr(), "");
  oxtest::writeFile(path("Config.xml"), "");
  EXPECT_EQ(cfg_.setExtIPv4("10.0.0.1", "b"), 2);
  EXPECT_EQ(cfg_.setDevExt("10.0.0.1", "b"), 2);
}

TEST_F(AddressTest, TheRawAdapterListingIsUnsortedAndNotStored) {
  env_.setAdapters({adapter("eth1", {"192.168.1.9", "127.0.0.1", "300.0.0.1"}),
                    adapter("eth0", {"10.0.0.5", "192.168.1.9", "0.0.0.0"})});
  oxtest::LogCapture log;
  std::vector<_NIC_INFO_V4> raw;
  EXPECT_EQ(cfg_.getAdapterInfo(raw), 0);
  ASSERT_EQ(raw.size(), 4u);
  EXPECT_EQ(nettest::ip(raw[0]), "192.168.1.9");
  EXPECT_EQ(nettest::desc(raw[0]), "eth1 description");
  EXPECT_EQ(nettest::ip(raw[1]), "300.0.0.1");
  EXPECT_EQ(nettest::ip(raw[2]), "10.0.0.5");
  EXPECT_EQ(nettest::desc(raw[2]), "eth0 description");
  EXPECT_EQ(nettest::ip(raw[3]), "192.168.1.9");
  EXPECT_TRUE(log.has(3, "[No.=2,IPv4=10.0.0.5]GetLocalIP."));
  EXPECT_EQ(cfg_.getGatewayInterIP(), "");
}

TEST_F(AddressTest, QueriesRunWhileTheTableIsRefreshedAndChanged) {
  writeConfig(nettest::factoryNetwork());
  env_.setAdapters({adapter("eth0", {"10.0.0.1", "10.0.0.2"})});
  ASSERT_TRUE(cfg_.start());
  std::atomic<bool> stop{false};
  std::thread refresher([&] {
    for (int i = 0; i < 40; ++i) {
      env_.setAdapters({adapter("eth0", {"10.0.0.1", i % 2 ? "10.0.0.3" : "10.0.0.2"})});
      env_.advance(kInterval);
      cfg_.setExtIPv4("10.0.0.1", "outside" + std::to_string(i));
      cfg_.setProtocolBindIPv4(OxConfigMgr::PROTOCOL_QAPI, i % 2 ? "10.0.0.3" : "10.0.0.1");
    }
    stop = true;
  });
  std::vector<std::thread> readers;
  for (int r = 0; r < 2; ++r) {
    readers.emplace_back([&] {
      while (!stop) {
        _NIC_INFO_V4 e{};
        EXPECT_EQ(cfg_.getIPv4ByProtocol(e, OxConfigMgr::PROTOCOL_SDK), 0);
        EXPECT_EQ(nettest::ip(e), "10.0.0.1");
        std::vector<_NIC_INFO_V4> all;
        cfg_.getIPv4List(all);
        EXPECT_EQ(all.size(), 2u);
        EXPECT_EQ(cfg_.getGatewayInterIP(), "10.0.0.1");
        const std::string outside = cfg_.getGatewayOuterIP();
        EXPECT_TRUE(outside.empty() || outside.rfind("outside", 0) == 0) << outside;
      }
    });
  }
  refresher.join();
  for (auto& t : readers) t.join();
  EXPECT_EQ(cfg_.getGatewayOuterIP(), "outside39");
}

// The real adapter enumeration, in a private network namespace of a child
// process: nothing outside that namespace changes.
TEST_F(AddressTest, RealAdaptersInANetworkNamespace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root for a network namespace";
  OxBase::Env::Install(nullptr);  // the real adapters and clock
  writeConfig(nettest::factoryNetwork());

  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::close(fds[0]);
    auto reply = [&](int status, const std::string& text) {
      ssize_t ignored = ::write(fds[1], text.data(), text.size());
      (void)ignored;
      ::_exit(status);
    };
    if (::unshare(CLONE_NEWNET) != 0) reply(77, std::string("unshare: ") + std::strerror(errno));
    const std::vector<std::vector<std::string>> commands = {
        {"ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1"},
        {"ip", "addr", "add", "10.77.0.9/24", "dev", "v0"},
        {"ip", "addr", "add", "10.77.0.10/24", "dev", "v1"},
        {"ip", "link", "set", "v0", "up"},
        {"ip", "link", "set", "lo", "up"},
    };
    for (const auto& argv : commands) {
      std::string output;
      if (OX_BASE_System(argv, &output) != 0) reply(77, argv[1] + " " + argv[2] + ": " + output);
    }
    OxConfigMgr::netinternal::resetAdapterRefreshForTest();
    CNetworkCfg cfg;
    if (!cfg.start()) reply(1, "start failed");
    std::vector<_NIC_INFO_V4> table;
    cfg.getIPv4List(table);
    std::string text;
    for (const auto& e : table) {
      text += nettest::ip(e) + "=" + nettest::desc(e) + "/" + std::to_string(e.protocolMask) + ";";
    }
    reply(0, text);
  }
  ::close(fds[1]);
  std::string text;
  char buf[512];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no network namespace here: " << text;
  ASSERT_EQ(WEXITSTATUS(status), 0) << text;
  // Loopback is left out; text order puts .10 first and binds it.
  EXPECT_EQ(text, "10.77.0.10=v1/15;10.77.0.9=v0/0;");
  EXPECT_EQ(fileAddrs(path("Config.xml")),
            (std::vector<FileAddr>{{"10.77.0.10", "", "", "lumen/QAPI/SDK/lumen5.0"}, {"10.77.0.9", "", "", ""}}));
}

}  // namespace
