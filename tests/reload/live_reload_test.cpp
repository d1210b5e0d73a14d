// Live reload: values that another process writes reach this one's handles,
// bursts cost one reload, bad files keep the old values, and the watch thread
// stops cleanly.
#include <log4cxx/level.h>
#include <oxconfigmgr/OxConfigMgr.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/live_reload.h"
#include "platform/xlog.h"
#include "sections/sections_fixture.h"
#include "support/handles.h"

namespace {

using OxBase::DirEvent;
using OxConfigMgr::LiveReload;

// Waits (up to 10 s, so a loaded machine does not fail the test) for `ready`.
bool eventually(const std::function<bool()>& ready) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < end) {
    if (ready()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return ready();
}

// Counts the callbacks per file name.
struct Calls {
  std::mutex mutex;
  std::map<std::string, int> perFile;
  int count(const std::string& file) {
    std::lock_guard<std::mutex> lock(mutex);
    return perFile[file];
  }
  static void record(const char* file, void* self) {
    Calls* calls = static_cast<Calls*>(self);
    std::lock_guard<std::mutex> lock(calls->mutex);
    ++calls->perFile[file];
  }
};

class LiveReloadTest : public oxtest::SectionsTest {
 protected:
  void SetUp() override {
    oxtest::SectionsTest::SetUp();
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  }
  void TearDown() override {
    OX_ConfigMgr_EnableLiveReload(0);
    OX_ConfigMgr_RemoveReloadCallback(&Calls::record, &calls_);
    oxtest::SectionsTest::TearDown();
  }
  // A writer that is not this library: a whole new file renamed over `name`.
  void foreignReplace(const std::string& name, const std::string& content) {
    oxtest::writeFile(path(".foreign"), content);
    ASSERT_EQ(::rename(path(".foreign").c_str(), path(name).c_str()), 0);
  }
  // "Config.xml" with the external HTTP port set to `port`.
  std::string configWithExtHttpPort(int port) {
    std::string text = config();
    const std::string open = "<ExternalPort>";
    OxBase::CXmlBase xml;
    EXPECT_EQ(xml.Parse(text.c_str()), 1);
    EXPECT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Network", "HTTP", "ExternalPort"}));
    EXPECT_EQ(xml.ModifyData("ExternalPort", std::to_string(port).c_str()), 1);
    return xml.ToString();
  }
  // `file` with the text of the element at `walk` (from the root down; the
  // first element of each name) replaced by `value`.
  std::string edited(const std::string& file, const std::vector<const char*>& walk, const std::string& value) {
    OxBase::CXmlBase xml;
    EXPECT_EQ(xml.LoadFile(path(file)), 1);
    for (size_t i = 0; i + 1 < walk.size(); ++i) EXPECT_TRUE(xml.FindElem(walk[i]) && xml.IntoElem()) << walk[i];
    EXPECT_EQ(xml.ModifyData(walk.back(), value.c_str()), 1) << walk.back();
    return xml.ToString();
  }
  // Another process (not this library) renames an edited copy over `file`.
  void foreignProcessEdit(const std::string& file, const std::vector<const char*>& walk, const std::string& value) {
    oxtest::writeFile(path(".edit"), edited(file, walk, value));
    const OxBase::CommandResult r = OxBase::Env::Default()->Run({"mv", path(".edit"), path(file)}, "", "");
    ASSERT_EQ(r.exitCode, 0) << r.output;
  }
  // Runs oxcfg in the working directory: another process of the gateway.
  void otherProcess(std::vector<std::string> args) {
    args.insert(args.begin(), {OXCFG_CLI_PATH, "-C", dir()});
    const OxBase::CommandResult r = OxBase::Env::Default()->Run(args, "", "");
    ASSERT_EQ(r.exitCode, 0) << r.output;
  }
  Calls calls_;
};

// One row per reloaded object: how another process changes one of its
// values, and how this process reads it.
struct ObjectRow {
  const char* object;
  // The change another process makes to `value`.
  std::function<void(const std::string& value)> set;
  std::function<std::string()> get;
  const char* onValue;   // set while live reload is on: answered
  const char* offValue;  // set after it is off: not answered
};

TEST_F(LiveReloadTest, AnotherProcessesValuesReachHeldHandlesOnlyWhenOn) {
  const oxtest::Handles h;
  ASSERT_TRUE(h.complete());
  int subBefore = 0;
  h.events->getSubCfg(subBefore);
  const bool qapiOn = h.qapi->getQAPIParam() != 0;
  auto cli = [this](std::vector<std::string> args) {
    return [this, args](const std::string& value) {
      std::vector<std::string> full = args;
      for (auto& a : full) {
        if (a == "{}") a = value;
      }
      otherProcess(full);
    };
  };
  const ObjectRow rows[] = {
      {"CNetworkCfg", cli({"set", "network", "ext-http-port", "{}"}),
       [&] { return std::to_string(h.net->getExtHttpPort()); }, "30006", "30007"},
      // The address of the other process's first entry is the one its
      // adapters gave; its whole table is taken.
      {"CNetworkCfg address table",
       [&](const std::string& value) { otherProcess({"set", "ext-ip", textAt({"Config", "Network", "AddrList", "Addr", "V4", "IP"}), value}); },
       [&] { return h.net->getGatewayOuterIP(); }, "203.0.113.7", "203.0.113.8"},
      {"CEventSubCfg", cli({"set", "eventsub", "{}"}),
       [&] {
         int v = -1;
         h.events->getSubCfg(v);
         return std::string(v ? "on" : "off");
       },
       subBefore ? "off" : "on", subBefore ? "on" : "off"},
      {"CQAPICfg", cli({"set", "qapi", "{}"}), [&] { return std::string(h.qapi->getQAPIParam() ? "on" : "off"); },
       qapiOn ? "off" : "on", qapiOn ? "on" : "off"},
      {"CHttpHostCfg", cli({"set", "httphost", "--ip", "10.1.2.3", "--port", "{}"}),
       [&] {
         OxConfigMgr::tagHttpHostInfo info;
         h.host->getHttpHostInfo(info);
         return std::to_string(info.port);
       },
       "8088", "8089"},
      {"CBasicCfg", cli({"set", "product-name", "{}"}), [&] { return std::string(h.basic->getProductName()); },
       "Gate 9", "Gate 10"},
      {"CDeviceMgmtCfg", cli({"set", "devicemgmt", "{}"}),
       [&] {
         std::string kind;
         h.mgmt->getChecked(kind);
         return kind;
       },
       "encodingDev", "AccessControl"},
      {"CMaintain", cli({"set", "log", "level", "{}"}), [&] { return std::to_string(h.maintain->getLogLevel()); },
       "5", "6"},
      // Nothing in the library writes these two: an operator's tool does.
      {"CNATGateway",
       [&](const std::string& value) {
         foreignProcessEdit("Config.xml", {"Config", "NATGateway", "PortRangeList", "PortRange", "min"}, value);
       },
       [&] { return std::to_string(h.nat->getMinHTTPPort()); }, "41000", "41001"},
      {"CPrivateCfg",
       [&](const std::string& value) { foreignProcessEdit("PrivateConfig.xml", {"PrivateConfig", "LDM", "LDMPort"}, value); },
       [&] {
         OxConfigMgr::tagLDMInfo ldm;
         h.priv->getLDMParams(ldm);
         return std::to_string(ldm.ldmPort);
       },
       "9110", "9111"},
      // This process's own logging follows the root level of the properties
      // another process wrote.
      {"logging",
       [&](const std::string& value) {
         const std::string text = "log4j.rootLogger=" + value +
                                  ", out\nlog4j.appender.out=org.apache.log4j.FileAppender\n"
                                  "log4j.appender.out.File=log/reload.log\n"
                                  "log4j.appender.out.layout=org.apache.log4j.SimpleLayout\n";
         oxtest::writeFile(path(".edit"), text);
         const OxBase::CommandResult r =
             OxBase::Env::Default()->Run({"mv", path(".edit"), path("log4cxx.properties")}, "", "");
         ASSERT_EQ(r.exitCode, 0) << r.output;
       },
       [] {
         const int level = xlog_root_level();
         return std::string(level == log4cxx::Level::WARN_INT    ? "WARN"
                            : level == log4cxx::Level::ERROR_INT ? "ERROR"
                                                                 : "other");
       },
       "WARN", "ERROR"},
  };

  // On: every object of every file follows.
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  for (const ObjectRow& row : rows) row.set(row.onValue);
  for (const ObjectRow& row : rows) {
    EXPECT_TRUE(eventually([&] { return row.get() == row.onValue; })) << row.object << ": " << row.get();
  }
  // Off (the default): the other process's values stay on disk only.
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(0), 1);
  for (const ObjectRow& row : rows) row.set(row.offValue);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  for (const ObjectRow& row : rows) EXPECT_EQ(row.get(), row.onValue) << row.object;
}

// Files that a start would repair or complete are taken as they stand:
// memory follows, the file stays exactly as the other writer left it.
TEST_F(LiveReloadTest, AReloadWritesNothingAndCarriesNothingOver) {
  auto mgmt = OX_ConfigMgr_GetDeviceMgmtCfg();
  auto priv = OX_ConfigMgr_GetPrivateCfg();
  auto nat = OX_ConfigMgr_GetNATGateway();
  OxConfigMgr::tagEncryptInfo keyBefore;
  priv->getEncryptParams(keyBefore);
  ASSERT_NE(std::string(reinterpret_cast<const char*>(keyBefore.storageKey)), "");
  std::string natBefore;  // the bound of the file the section is removed from
  auto kind = [&] {
    std::string k;
    mgmt->getChecked(k);
    return k;
  };
  struct Step {
    const char* what;
    std::string file;
    std::function<std::string()> content;
    std::function<bool()> taken;
  };
  const Step steps[] = {
      {"a known kind", "Config.xml", [&] { return edited("Config.xml", {"Config", "DeviceMgmt", "Checked"}, "V"); },
       [&] { return kind() == "encodingDev"; }},
      // A start would write "AC" back.
      {"an unknown kind", "Config.xml",
       [&] { return edited("Config.xml", {"Config", "DeviceMgmt", "Checked"}, "bogus"); },
       [&] { return kind() == "AccessControl"; }},
      // A start would create and write new storage parameters.
      {"private configuration without storage parameters", "PrivateConfig.xml",
       [&] {
         OxBase::CXmlBase xml;
         EXPECT_EQ(xml.LoadFile(std::string(OXCFG_FACTORY_DIR) + "/PrivateConfig.xml"), 1);
         EXPECT_TRUE(OxConfigMgr::xmlWalk(xml, {"PrivateConfig", "LDM", "LDMPort"}));
         EXPECT_EQ(xml.ModifyData("LDMPort", "9301"), 1);
         return xml.ToString();
       },
       [&] {
         OxConfigMgr::tagLDMInfo ldm;
         priv->getLDMParams(ldm);
         OxConfigMgr::tagEncryptInfo key;
         priv->getEncryptParams(key);
         return ldm.ldmPort == 9301 && std::memcmp(key.storageKey, keyBefore.storageKey, sizeof key.storageKey) == 0;
       }},
      // The NAT ranges keep theirs when the section is gone; the port shows
      // the file was read.
      {"no NAT section", "Config.xml",
       [&] {
         natBefore = textAt({"Config", "NATGateway", "PortRangeList", "PortRange", "min"});
         std::string text = edited("Config.xml", {"Config", "Network", "HTTP", "ExternalPort"}, "30400");
         const size_t from = text.find("<NATGateway>"), to = text.find("</NATGateway>");
         return text.erase(from, to + std::strlen("</NATGateway>") - from);
       },
       [&] {
         return OX_ConfigMgr_GetNetworkCfg()->getExtHttpPort() == 30400 &&
                std::to_string(nat->getMinHTTPPort()) == natBefore;
       }},
  };
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  for (const Step& step : steps) {
    const std::string content = step.content();
    foreignReplace(step.file, content);
    EXPECT_TRUE(eventually(step.taken)) << step.what;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(oxtest::readFile(path(step.file)), content) << step.what;
  }
}

TEST_F(LiveReloadTest, OwnWritesAreNotReloaded) {
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Calls::record, &calls_), 1);
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  ASSERT_EQ(net->setExtHttpPort(30100), 0u);
  ASSERT_EQ(OX_ConfigMgr_GetQAPICfg()->setQAPIParam(0), 0);
  // A foreign change afterwards shows the watch was alive all along.
  foreignReplace("Config.xml", configWithExtHttpPort(30101));
  ASSERT_TRUE(eventually([&] { return net->getExtHttpPort() == 30101; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(calls_.count("Config.xml"), 1);
  EXPECT_EQ(calls_.count("QAPIConfig.xml"), 0);
}

TEST_F(LiveReloadTest, AFileThatDoesNotParseKeepsTheOldValuesAndIsLoggedOnce) {
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Calls::record, &calls_), 1);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  const std::string good = configWithExtHttpPort(30200);
  oxtest::LogCapture log;
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  const uint16_t before = net->getExtHttpPort();
  foreignReplace("Config.xml", "<Config><Network>half an edit");
  ASSERT_TRUE(eventually([&] { return log.has(4, "Config.xml does not parse, the values in memory are kept"); }));
  foreignReplace("Config.xml", "not xml at all");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(net->getExtHttpPort(), before);
  int logged = 0;
  for (const auto& e : log.entries()) {
    if (e.text.find("does not parse") != std::string::npos) ++logged;
  }
  EXPECT_EQ(logged, 1);
  EXPECT_EQ(calls_.count("Config.xml"), 0);

  foreignReplace("Config.xml", good);
  EXPECT_TRUE(eventually([&] { return net->getExtHttpPort() == 30200; }));
  EXPECT_TRUE(eventually([&] { return calls_.count("Config.xml") == 1; }));
}

// Events are driven by the test: each batch is what one read of the watch
// returns.
class ScriptedWatchEnv : public oxtest::SectionsEnv {
 public:
  void push(std::vector<DirEvent> batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    batches_.push_back(std::move(batch));
    cv_.notify_all();
  }
  int OpenDirWatch(const std::string&) override { return 7; }
  int ReadDirWatch(int, int timeoutMillis, std::vector<DirEvent>* out) override {
    std::unique_lock<std::mutex> lock(mutex_);
    auto ready = [this] { return woken_ || !batches_.empty(); };
    if (timeoutMillis < 0) {
      cv_.wait(lock, ready);
    } else {
      cv_.wait_for(lock, std::chrono::milliseconds(timeoutMillis), ready);
    }
    if (woken_) {
      woken_ = false;
      return 0;
    }
    if (batches_.empty()) return 0;
    std::vector<DirEvent> batch = std::move(batches_.front());
    batches_.pop_front();
    out->insert(out->end(), batch.begin(), batch.end());
    return static_cast<int>(batch.size());
  }
  void WakeDirWatch(int) override {
    std::lock_guard<std::mutex> lock(mutex_);
    woken_ = true;
    cv_.notify_all();
  }
  void CloseDirWatch(int) override { closed = true; }
  std::atomic<bool> closed{false};

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<std::vector<DirEvent>> batches_;
  bool woken_ = false;
};

DirEvent ev(uint32_t kind, const std::string& name, uint32_t cookie = 0) {
  DirEvent e;
  e.kind = kind;
  e.name = name;
  e.cookie = cookie;
  return e;
}

class ScriptedReloadTest : public LiveReloadTest {
 protected:
  void SetUp() override {
    LiveReloadTest::SetUp();
    scripted_.osReleasePath = env_.osReleasePath;
    OxBase::Env::Install(&scripted_);
  }
  void TearDown() override {
    OX_ConfigMgr_EnableLiveReload(0);
    OxBase::Env::Install(&env_);
    LiveReloadTest::TearDown();
  }
  ScriptedWatchEnv scripted_;
};

TEST_F(ScriptedReloadTest, ABurstCostsOneReloadAndOneCallbackPerFile) {
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Calls::record, &calls_), 1);
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  foreignReplace("Config.xml", configWithExtHttpPort(30300));
  std::vector<DirEvent> burst;
  for (int i = 0; i < 5; ++i) burst.push_back(ev(DirEvent::kMovedIn, "Config.xml", 10 + i));
  burst.push_back(ev(DirEvent::kWritten, "QAPIConfig.xml"));
  burst.push_back(ev(DirEvent::kMovedIn, "QAPIConfig.xml", 20));
  oxtest::LogCapture log;
  scripted_.push(burst);
  ASSERT_TRUE(eventually([&] { return calls_.count("Config.xml") == 1 && calls_.count("QAPIConfig.xml") == 1; }));
  EXPECT_EQ(net->getExtHttpPort(), 30300);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(calls_.count("Config.xml"), 1);
  int networkReloads = 0;
  for (const auto& e : log.entries()) {
    if (e.text.find("CNetworkCfg reloaded from Config.xml") != std::string::npos) ++networkReloads;
  }
  EXPECT_EQ(networkReloads, 1);

  // A second burst is a second reload.
  scripted_.push({ev(DirEvent::kMovedIn, "Config.xml", 30)});
  EXPECT_TRUE(eventually([&] { return calls_.count("Config.xml") == 2; }));
}

TEST_F(ScriptedReloadTest, ACallbackThatThrowsOrStopsDoesNotStopTheReloads) {
  struct Thrower {
    static void call(const char*, void*) { throw std::runtime_error("host bug"); }
  };
  struct Stopper {
    static void call(const char*, void* result) {
      static_cast<std::atomic<int>*>(result)->store(OX_ConfigMgr_Stop() * 10 + OX_ConfigMgr_EnableLiveReload(0));
    }
  };
  std::atomic<int> stopResult{-1};
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Thrower::call, nullptr), 1);
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Stopper::call, &stopResult), 1);
  ASSERT_EQ(OX_ConfigMgr_AddReloadCallback(&Calls::record, &calls_), 1);
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  auto qapi = OX_ConfigMgr_GetQAPICfg();
  oxtest::LogCapture log;
  scripted_.push({ev(DirEvent::kMovedIn, "Config.xml", 1)});
  ASSERT_TRUE(eventually([&] { return calls_.count("Config.xml") == 1; }));
  EXPECT_EQ(stopResult.load(), 0);  // neither may stop the thread it runs on
  EXPECT_TRUE(log.has(4, "a reload callback threw for Config.xml"));

  foreignReplace("QAPIConfig.xml",
                 "<Config><QAPIConfig><Enable>5</Enable><Mode>port</Mode></QAPIConfig></Config>");
  scripted_.push({ev(DirEvent::kMovedIn, "QAPIConfig.xml", 2)});
  EXPECT_TRUE(eventually([&] { return calls_.count("QAPIConfig.xml") == 1; }));
  EXPECT_EQ(qapi->getQAPIParam(), 5);
  EXPECT_EQ(qapi->getQAPIMode(), 2);
  EXPECT_EQ(OX_ConfigMgr_RemoveReloadCallback(&Thrower::call, nullptr), 1);
  EXPECT_EQ(OX_ConfigMgr_RemoveReloadCallback(&Stopper::call, &stopResult), 1);
  EXPECT_EQ(OX_ConfigMgr_RemoveReloadCallback(&Stopper::call, &stopResult), 0);
}

TEST_F(ScriptedReloadTest, StopEndsTheWatchAndLaterChangesAreNotTaken) {
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  EXPECT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);  // already on
  EXPECT_EQ(OX_ConfigMgr_Stop(), 1);
  EXPECT_TRUE(scripted_.closed.load());
  EXPECT_FALSE(LiveReload::Instance().running());
  EXPECT_EQ(OX_ConfigMgr_Uninit(), 1);
  EXPECT_EQ(OX_ConfigMgr_Stop(), 1);
  // On again after a stop.
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  EXPECT_TRUE(LiveReload::Instance().running());
}

TEST(LiveReloadEvents, OnlyForeignReplacementsOfTableFilesCount) {
  const std::string own = ".Config.xml.tmp." + std::to_string(::getpid()) + ".3";
  const std::string ownQapi = ".QAPIConfig.xml.tmp." + std::to_string(::getpid()) + ".4";
  const std::string other = ".Config.xml.tmp." + std::to_string(::getpid() + 1) + ".3";
  struct Case {
    const char* what;
    std::vector<DirEvent> events;
    std::set<std::string> files;
  };
  const Case cases[] = {
      {"own rename", {ev(DirEvent::kMovedOut, own, 5), ev(DirEvent::kMovedIn, "Config.xml", 5)}, {}},
      {"other process's rename",
       {ev(DirEvent::kMovedOut, other, 6), ev(DirEvent::kMovedIn, "Config.xml", 6)},
       {"Config.xml"}},
      {"own then foreign",
       {ev(DirEvent::kMovedOut, ownQapi, 7), ev(DirEvent::kMovedIn, "QAPIConfig.xml", 7),
        ev(DirEvent::kMovedIn, "QAPIConfig.xml", 8)},
       {"QAPIConfig.xml"}},
      {"in-place writer", {ev(DirEvent::kWritten, "Config.xml")}, {"Config.xml"}},
      {"files no object reloads",
       {ev(DirEvent::kMovedIn, "ARCConfig.xml", 9), ev(DirEvent::kWritten, own),
        ev(DirEvent::kMovedIn, "config.xml", 10)},
       {}},
      {"lost events",
       {ev(DirEvent::kOverflow, "")},
       {"Config.xml", "PrivateConfig.xml", "QAPIConfig.xml", "log4cxx.properties"}},
  };
  for (const Case& c : cases) EXPECT_EQ(LiveReload::changedFiles(c.events), c.files) << c.what;
}

// Getters racing reloads (run under the thread sanitizer in CI): each read
// is one whole written value.
TEST_F(LiveReloadTest, GettersRacingReloadsSeeWholeValues) {
  auto net = OX_ConfigMgr_GetNetworkCfg();
  auto host = OX_ConfigMgr_GetHttpHostCfg();
  const std::string configs[2] = {configWithExtHttpPort(31001), configWithExtHttpPort(31002)};
  auto nat = OX_ConfigMgr_GetNATGateway();
  auto maintain = OX_ConfigMgr_GetLogCfg();
  auto mgmt = OX_ConfigMgr_GetDeviceMgmtCfg();
  auto priv = OX_ConfigMgr_GetPrivateCfg();
  std::string hosts[2], privs[2];
  for (int i = 0; i < 2; ++i) {
    OxBase::CXmlBase xml;
    ASSERT_EQ(xml.Parse(configs[i].c_str()), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "HttpHostNotificationList", "HttpHostNotification", "IP"}));
    ASSERT_EQ(xml.ModifyData("IP", i ? "10.0.0.2" : "10.0.0.1"), 1);
    ASSERT_TRUE(xml.FindElem("url"));
    ASSERT_EQ(xml.ModifyData("url", i ? "http://two/" : "http://one/"), 1);
    // A value of every other object of the file, so each reload writes
    // what the readers below read.
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "NATGateway", "PortRangeList", "PortRange", "min"}));
    ASSERT_EQ(xml.ModifyData("min", i ? "41002" : "41001"), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Maintain", "Log", "Level"}));
    ASSERT_EQ(xml.ModifyData("Level", i ? "2" : "1"), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "DeviceMgmt", "Checked"}));
    ASSERT_EQ(xml.ModifyData("Checked", i ? "V" : "AC"), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Network", "AddrList", "Addr", "V4", "ExternalIP"}));
    ASSERT_EQ(xml.ModifyData("ExternalIP", i ? "198.51.100.2" : "198.51.100.1"), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Network", "AddrList", "Addr", "V4", "IP"}));
    ASSERT_EQ(xml.ModifyData("IP", "192.0.2.10"), 1);
    hosts[i] = xml.ToString();
    privs[i] = edited("PrivateConfig.xml", {"PrivateConfig", "LDM", "LDMPort"}, i ? "9202" : "9201");
  }
  const std::string outerBefore = net->getGatewayOuterIP();
  ASSERT_EQ(OX_ConfigMgr_EnableLiveReload(1), 1);
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 2; ++t) {
    readers.emplace_back([&] {
      while (!done.load()) {
        OxConfigMgr::tagHttpHostInfo info;
        host->getHttpHostInfo(info);
        const std::string ip = info.ip, url = info.url;
        const bool one = ip == "10.0.0.1" && url == "http://one/";
        const bool two = ip == "10.0.0.2" && url == "http://two/";
        const bool first = !(ip == "10.0.0.1" || ip == "10.0.0.2");  // before the first reload
        if (!one && !two && !first) ++torn;
        const uint16_t port = net->getExtHttpPort();
        (void)port;
        // The objects without a lock of their own publish word by word; the
        // others copy under theirs. Any torn read is a race the sanitizer
        // reports.
        if (nat->getMinHTTPPort() == 0 || maintain->getLogLevel() < 0) ++torn;
        std::string kind;
        mgmt->getChecked(kind);
        if (kind != "AccessControl" && kind != "encodingDev") ++torn;
        const std::string outer = net->getGatewayOuterIP();
        if (outer != outerBefore && outer.compare(0, 11, "198.51.100.") != 0) ++torn;
        OxConfigMgr::tagLDMInfo ldm;
        priv->getLDMParams(ldm);
        if (ldm.ldmPort == 0) ++torn;
      }
    });
  }
  // This process's own setter of a class that takes its lock before the
  // file's, meanwhile: a reload in the other order would deadlock with it.
  std::atomic<bool> settle{false};
  std::thread setter([&] {
    for (int i = 0; !settle.load(); ++i) mgmt->updateChecked(i % 2 ? "encodingDev" : "AccessControl");
  });
  for (int round = 0; round < 40; ++round) {
    if (round == 30) {
      settle = true;  // the last rounds decide the file's final content
      setter.join();
    }
    foreignReplace("Config.xml", hosts[round % 2]);
    foreignReplace("PrivateConfig.xml", privs[round % 2]);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_TRUE(eventually([&] {
    OxConfigMgr::tagHttpHostInfo info;
    host->getHttpHostInfo(info);
    OxConfigMgr::tagLDMInfo ldm;
    priv->getLDMParams(ldm);
    return std::string(info.url) == "http://two/" && ldm.ldmPort == 9202 && nat->getMinHTTPPort() == 41002;
  }));
  done = true;
  for (auto& r : readers) r.join();
  EXPECT_EQ(torn.load(), 0);
}

}  // namespace
