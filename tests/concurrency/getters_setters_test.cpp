// Every getter of every section object and of the network object against
// every setter of the same object, from several threads, on a started
// library. Under the thread sanitizer a racy getter, a lost update or two
// locks taken in both orders fail the test; without it the readers still
// check that each record they see is one a setter stored, never a mix.
#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "network/network_internal.h"
#include "support/handles.h"
#include "support/test_support.h"

namespace {

using OxConfigMgr::CNetworkCfg;

constexpr const char* kLocal = "192.0.2.10";
constexpr const char* kSecond = "192.0.2.20";

// Fixed adapters (changeable while tests run) and an os-release file of the
// test's own.
class ConcurrencyEnv : public OxBase::EnvWrapper {
 public:
  ConcurrencyEnv() : EnvWrapper(OxBase::Env::Default()) {}
  std::string osReleasePath;
  std::string OsReleasePath() override { return osReleasePath; }
  void setAddresses(std::vector<std::string> ips) {
    std::lock_guard<std::mutex> lock(mutex_);
    ips_ = std::move(ips);
  }
  int GetAdapters(std::vector<OxBase::AdapterAddress>* out) override {
    std::lock_guard<std::mutex> lock(mutex_);
    *out = {OxBase::AdapterAddress{"eth0", "eth0", ips_}};
    return 0;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> ips_{kLocal};
};

class GettersSettersTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    oxtest::WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    ::unlink(path("log4cxx.properties").c_str());  // no appender; nothing to race on at exit
    env_.osReleasePath = path("os-release");
    oxtest::writeFile(env_.osReleasePath, "PRETTY_NAME=\"Test Linux\"\n");
    OxConfigMgr::netinternal::resetAdapterRefreshForTest();
    OxBase::Env::Install(&env_);
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  }

  // Runs `readers` in a loop on three threads while each of `writers` runs
  // its rounds on a thread of its own; returns once the writers are done.
  static void race(const std::function<void()>& readers, const std::vector<std::function<void()>>& writers) {
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&] {
        do {
          readers();
        } while (!done.load());
      });
    }
    std::vector<std::thread> writing;
    for (const auto& w : writers) writing.emplace_back(w);
    for (auto& t : writing) t.join();
    done.store(true);
    for (auto& t : threads) t.join();
  }

  ConcurrencyEnv env_;
};

constexpr int kRounds = 6;

TEST_F(GettersSettersTest, BasicInformation) {
  auto basic = OX_ConfigMgr_GetBasicCfg();
  const std::set<std::string> names = {"ZX Gateway", "Gate A", "Gate B with a longer name"};
  const std::string initial = basic->getProductName();
  const char* held = basic->getProductName();  // a caller may keep the pointer
  race(
      [&] {
        const std::string name = basic->getProductName();
        EXPECT_TRUE(names.count(name) || name == initial) << name;
        EXPECT_EQ(std::string(held), initial);
        EXPECT_EQ(std::strlen(basic->getWebSessionID()), 10u);
        EXPECT_NE(basic->getOperatingSystem()[0], '\0');
        EXPECT_NE(basic->getProductModel()[0], '\0');
        EXPECT_NE(basic->getVersion()[0], '\0');
        EXPECT_STREQ(basic->getSerialNo(), "");
      },
      {[&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(basic->setProductName("Gate A"), 0);
       },
       [&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(basic->setProductName("Gate B with a longer name"), 0);
       }});
  EXPECT_TRUE(names.count(basic->getProductName()));
}

TEST_F(GettersSettersTest, FeatureSwitches) {
  const oxtest::Handles h;
  {
    // A load that finds a kind it does not know repairs it: it takes the
    // class's lock and the file's, in the same order as the setter below.
    std::string config = oxtest::readFile(path("Config.xml"));
    const size_t at = config.find("<Checked>");
    ASSERT_NE(at, std::string::npos);
    config.replace(at, config.find("</Checked>") - at, "<Checked>X");
    oxtest::writeFile(path("Config.xml"), config);
    OxConfigMgr::CDeviceMgmtCfg repairing;
    ASSERT_EQ(repairing.loadFile(), 1);
    std::string kind;
    repairing.getChecked(kind);
    EXPECT_EQ(kind, "AccessControl");
  }
  race(
      [&] {
        int v = -1;
        h.events->getSubCfg(v);
        EXPECT_TRUE(v == 0 || v == 1);
        h.metadata->getCfg(v);
        EXPECT_TRUE(v == 0 || v == 1);
        h.wisp->getCfg(v);
        EXPECT_TRUE(v == 0 || v == 1);
        EXPECT_GE(h.qapi->getQAPIParam(), 0);
        EXPECT_GE(h.qapi->getQAPIMode(), 0);
        std::string kind;
        h.mgmt->getChecked(kind);
        EXPECT_TRUE(kind == "encodingDev" || kind == "AccessControl") << kind;
      },
      {[&] {
         for (int i = 0; i < kRounds; ++i) {
           EXPECT_EQ(h.events->updateCfg(i % 2), 0);
           EXPECT_EQ(h.metadata->updateCfg(i % 2), 0);
           EXPECT_EQ(h.wisp->updateCfg(i % 2), 0);
           EXPECT_EQ(h.qapi->setQAPIParam(i % 2), 0);
         }
       },
       [&] {
         for (int i = 0; i < kRounds; ++i) {
           EXPECT_EQ(h.mgmt->updateChecked(i % 2 ? "encodingDev" : "AccessControl"), 0);
         }
       },
       [&] {
         for (int i = 0; i < kRounds; ++i) {
           OxConfigMgr::CDeviceMgmtCfg fresh;
           EXPECT_EQ(fresh.loadFile(), 1);
         }
       }});
}

TEST_F(GettersSettersTest, HttpHostRecordIsNeverTorn) {
  auto host = OX_ConfigMgr_GetHttpHostCfg();
  // Record n: port n, IP "10.0.0.n", URL of n + 1 times the letter 'a' + n.
  auto record = [](int n) {
    OxConfigMgr::tagHttpHostInfo info;
    info.enable = n % 2;
    info.port = n;
    std::snprintf(info.ip, sizeof info.ip, "10.0.0.%d", n);
    std::memset(info.url, 'a' + n, static_cast<size_t>(n) * 100 + 1);
    return info;
  };
  OxConfigMgr::tagHttpHostInfo loaded;
  host->getHttpHostInfo(loaded);
  race(
      [&] {
        OxConfigMgr::tagHttpHostInfo seen;
        host->getHttpHostInfo(seen);
        if (std::memcmp(&seen, &loaded, sizeof seen) == 0) return;
        const OxConfigMgr::tagHttpHostInfo expected = record(seen.port);
        EXPECT_EQ(std::memcmp(&seen, &expected, sizeof seen), 0) << "torn record, port " << seen.port;
      },
      {[&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(host->setHttpHostInfo(record(1 + i % 9)), 0);
       },
       [&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(host->setHttpHostInfo(record(20 - i % 9)), 0);
       }});
}

TEST_F(GettersSettersTest, AlarmMonitorRecordIsNeverTorn) {
  auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
  // Record of letter c: enable by the letter's parity, a token of that
  // letter only, its length fixed by the letter.
  auto record = [](char c) {
    OxConfigMgr::tagAlarmMonitorCnf cfg;
    cfg.enable = static_cast<uint32_t>((c - 'a') % 2);
    std::memset(cfg.token, c, static_cast<size_t>(10 + (c - 'a')));
    return cfg;
  };
  race(
      [&] {
        OxConfigMgr::tagAlarmMonitorCnf seen;
        alarm->getAlarmMonitorCfg(seen);
        const size_t length = strnlen(seen.token, sizeof seen.token);
        if (length == 64) return;  // a token made by the library
        ASSERT_GT(length, 0u);
        const OxConfigMgr::tagAlarmMonitorCnf expected = record(seen.token[0]);
        EXPECT_EQ(seen.enable, expected.enable) << "torn record: " << seen.token;
        EXPECT_EQ(std::memcmp(seen.token, expected.token, sizeof seen.token), 0) << "torn record: " << seen.token;
        alarm->checkAlarmMonitorCfg("not the token");
      },
      {[&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(alarm->setAlarmMonitorCfg(record('a' + i)), 0);
       },
       [&] {
         for (int i = 0; i < kRounds; ++i) EXPECT_EQ(alarm->setAlarmMonitorCfg(record('z' - i)), 0);
       },
       [&] {
         for (int i = 0; i < kRounds / 2; ++i) EXPECT_EQ(alarm->refreshAlarmMonitorCfg(), 0);
       }});
}

// Every port and switch getter, every address getter.
void readEveryNetworkGetter(CNetworkCfg& net) {
  uint16_t a = 0, b = 0;
  uint16_t (CNetworkCfg::*const ports[])() const = {
      &CNetworkCfg::getHttpPort,          &CNetworkCfg::getHttpsPort,
      &CNetworkCfg::getRtspPort,          &CNetworkCfg::getPssUploadPort,
      &CNetworkCfg::getPssDownloadPort,   &CNetworkCfg::getLumenRegPort,
      &CNetworkCfg::getLumenAlarmPort,    &CNetworkCfg::getLumenV5RegPort,
      &CNetworkCfg::getLumenV5AlarmPort,  &CNetworkCfg::getLumenV5VideoAlarmPort,
      &CNetworkCfg::getLumenV5AcsAlarmPort, &CNetworkCfg::getLumenV5StreamPort,
      &CNetworkCfg::getLumenV5PlayBackPort, &CNetworkCfg::getLumenV5TwowayAudioPort,
      &CNetworkCfg::getExtHttpPort,       &CNetworkCfg::getExtHttpsPort,
      &CNetworkCfg::getExtRtspPort,       &CNetworkCfg::getExtPssUploadPort,
      &CNetworkCfg::getExtPssDownloadPort, &CNetworkCfg::getExtLumenRegPort,
      &CNetworkCfg::getExtLumenAlarmPort, &CNetworkCfg::getExtLumenV5RegPort,
      &CNetworkCfg::getExtLumenV5AlarmPort, &CNetworkCfg::getExtLumenV5VideoAlarmPort,
      &CNetworkCfg::getExtLumenV5AcsAlarmPort, &CNetworkCfg::getExtLumenV5StreamPort,
      &CNetworkCfg::getExtLumenV5PlayBackPort, &CNetworkCfg::getExtLumenV5TwowayAudioPort,
      &CNetworkCfg::getWISP5AlarmPort,    &CNetworkCfg::getExtWISP5AlarmPort,
  };
  unsigned sum = 0;
  for (auto get : ports) sum += (net.*get)();
  net.getLumenStreamPort(a, b);
  net.getExtLumenStreamPort(a, b);
  net.getDevKeepAliveParam(a, b);
  sum += static_cast<unsigned>(net.getHttpsEnable()) + net.isPlatformPortMapping() + net.isDevicePortMapping() +
         net.isHttpMapping() + net.isRtspMapping() + static_cast<unsigned>(net.getWISP5AlarmPortType());
  EXPECT_GE(sum + a + b, 0u);

  _NIC_INFO_V4 entry;
  EXPECT_EQ(net.getIPv4ByProtocol(entry, OxConfigMgr::PROTOCOL_LUMEN), 0);
  std::vector<_NIC_INFO_V4> list;
  net.getIPv4List(list);
  EXPECT_FALSE(list.empty());
  EXPECT_FALSE(net.getGatewayInterIP().empty());
  net.getGatewayOuterIP();
  net.getDeviceOuterAddr();
  net.checkProtocolBindIPv4(kLocal);
}

TEST_F(GettersSettersTest, NetworkPortsSwitchesAndAddresses) {
  auto net = OX_ConfigMgr_GetNetworkCfg();
  using C = CNetworkCfg;
  uint32_t (C::*const portSetters[])(unsigned short) = {
      &C::setHttpPort,          &C::setHttpsPort,          &C::setRtspPort,
      &C::setExtHttpPort,       &C::setExtHttpsPort,       &C::setExtRtspPort,
      &C::setPssUploadPort,     &C::setExtPssUploadPort,   &C::setLumenRegPort,
      &C::setLumenAlarmPort,    &C::setLumenV5RegPort,     &C::setLumenV5AlarmPort,
      &C::setLumenV5VedioAlarmPort, &C::setLumenV5AcsAlarmPort, &C::setLumenV5StreamPort,
      &C::setLumenV5PlayBackPort, &C::setLumenV5TwowayAudioPort, &C::setExtLumenRegPort,
      &C::setExtLumenAlarmPort, &C::setExtLumenV5RegPort,  &C::setExtLumenV5AlarmPort,
      &C::setExtLumenV5VedioAlarmPort, &C::setExtLumenV5AcsAlarmPort, &C::setExtLumenV5StreamPort,
      &C::setExtLumenV5PlayBackPort, &C::setExtLumenV5TwowayAudioPort, &C::setWISP5AlarmPort,
      &C::setExtWISP5AlarmPort,
  };
  auto nat = OX_ConfigMgr_GetNATGateway();  // read-only: its getters run beside the network's setters
  race(
      [&] {
        readEveryNetworkGetter(*net);
        EXPECT_LE(nat->getMinHTTPPort() + nat->getMinRtspPort(), nat->getMaxHTTPPort() + nat->getMaxRtspPort());
      },
       {[&] {
          for (int i = 0; i < 2; ++i) {
            const unsigned short port = static_cast<unsigned short>(7000 + i);
            for (auto set : portSetters) EXPECT_EQ(((*net).*set)(port), 0u);
            EXPECT_EQ(net->setHttpsEnable(i), 0u);
            EXPECT_EQ(net->setLumenStreamPort(port, port + 10), 0u);
            EXPECT_EQ(net->setExtLumenStreamPort(port, port + 10), 0u);
            EXPECT_EQ(net->setPlatformPortMapping(i), 0u);
            EXPECT_EQ(net->setDevicePortMapping(i), 0u);
            EXPECT_EQ(net->setWISP5AlarmPortType(i ? OxConfigMgr::WISP5_ALARM_PORT_ACS
                                                   : OxConfigMgr::WISP5_ALARM_PORT_VIDEO),
                      0u);
            EXPECT_EQ(net->setDevKeepAliveParam(port, 3), 0u);
          }
        },
        [&] {
          for (int i = 0; i < kRounds; ++i) {
            env_.setAddresses(i % 2 ? std::vector<std::string>{kLocal, kSecond} : std::vector<std::string>{kLocal});
            OxConfigMgr::netinternal::resetAdapterRefreshForTest();
            EXPECT_TRUE(net->updateLocalIP());
            std::vector<_NIC_INFO_V4> adapters;
            EXPECT_EQ(net->getAdapterInfo(adapters), 0);
          }
        },
        [&] {
          for (int i = 0; i < kRounds; ++i) {
            const std::string n = std::to_string(i);
            EXPECT_EQ(net->setProtocolBindIPv4(OxConfigMgr::PROTOCOL_QAPI, kLocal), 0);
            EXPECT_EQ(net->setExtIPv4(kLocal, "203.0.113." + n), 0);
            EXPECT_EQ(net->setDevExt(kLocal, "dev" + n + ".example"), 0);
            EXPECT_EQ(net->resetAddrList(), 0);
          }
        }});
  // The address setters' last values survived every refresh.
  _NIC_INFO_V4 entry;
  ASSERT_EQ(net->getIPv4ByProtocol(entry, OxConfigMgr::PROTOCOL_QAPI), 0);
  EXPECT_EQ(OxConfigMgr::netinternal::fieldText(entry.ipv4), kLocal);
  EXPECT_EQ(OxConfigMgr::netinternal::fieldText(entry.externalIP), "203.0.113." + std::to_string(kRounds - 1));
  EXPECT_EQ(OxConfigMgr::netinternal::fieldText(entry.deviceExternal),
            "dev" + std::to_string(kRounds - 1) + ".example");
}

// Runs `during` once, at the moment a refresh of the address table reports
// that it carries an entry over: between the refresh's look at the table
// and the end of its work.
class DuringRefresh : public OxBase::LogSink {
 public:
  explicit DuringRefresh(std::function<void()> during) : during_(std::move(during)) { OxBase::SetLogSink(this); }
  ~DuringRefresh() override { OxBase::SetLogSink(nullptr); }
  void Log(int, const char*, const std::string& text) override {
    if (!ran_ && text.find("update Ip by AdapterInfo.") != std::string::npos) {
      ran_ = true;
      during_();
    }
  }
  bool ran() const { return ran_; }

 private:
  std::function<void()> during_;
  bool ran_ = false;
};

TEST_F(GettersSettersTest, AnAddressRefreshKeepsSettersThatRanDuringIt) {
  auto net = OX_ConfigMgr_GetNetworkCfg();
  OxConfigMgr::netinternal::resetAdapterRefreshForTest();
  {
    DuringRefresh hook([&] {
      EXPECT_EQ(net->setExtIPv4(kLocal, "203.0.113.9"), 0);
      EXPECT_EQ(net->setProtocolBindIPv4(OxConfigMgr::PROTOCOL_SDK, ""), 0);
    });
    ASSERT_TRUE(net->updateLocalIP());
    ASSERT_TRUE(hook.ran());
  }
  EXPECT_EQ(net->getGatewayOuterIP(), "203.0.113.9");
  std::vector<_NIC_INFO_V4> list;
  net->getIPv4List(list);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].protocolMask & OxConfigMgr::PROTOCOL_SDK, 0u);
  // The file says the same.
  const std::string config = oxtest::readFile(path("Config.xml"));
  EXPECT_NE(config.find("<ExternalIP>203.0.113.9</ExternalIP>"), std::string::npos);
}

// A reload of Config.xml (as live reload makes one when another process
// replaced the file: inside the file's transaction) that comes while a
// refresh stands between its new table and the write that carries it waits
// for that write; otherwise it would put the file's older table back into
// memory, and the refresh would then write that one over the new.
TEST_F(GettersSettersTest, AReloadDuringAnAddressRefreshWaitsForItsWrite) {
  auto net = OX_ConfigMgr_GetNetworkCfg();
  ASSERT_EQ(net->setExtIPv4(kLocal, "203.0.113.5"), 0);  // carried over, which the refresh reports
  env_.setAddresses({kLocal, kSecond});
  OxConfigMgr::netinternal::resetAdapterRefreshForTest();
  std::thread reload;
  std::atomic<bool> reloaded{false};
  {
    DuringRefresh hook([&] {
      reload = std::thread([&] {
        OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
        EXPECT_TRUE(net->reloadAddrList());
        reloaded = true;
      });
      // Long enough for the reload to land here if nothing holds it back.
      for (int i = 0; i < 100 && !reloaded; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    ASSERT_TRUE(net->updateLocalIP());
    ASSERT_TRUE(hook.ran());
  }
  reload.join();
  std::vector<_NIC_INFO_V4> list;
  net->getIPv4List(list);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(OxConfigMgr::netinternal::fieldText(list[1].ipv4), kSecond);
  EXPECT_NE(oxtest::readFile(path("Config.xml")).find(kSecond), std::string::npos);
  EXPECT_EQ(net->getGatewayOuterIP(), "203.0.113.5");
}

}  // namespace
