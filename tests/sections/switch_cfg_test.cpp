// The classes of <oxconfigmgr/OxSwitchCfg.h>: the three on/off sections share
// one typed suite; QAPI, HTTP host and device management follow.
#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

namespace {

using namespace OxConfigMgr;
using oxtest::FaultEnv;

template <class C, int (C::*kGet)(int&) const, int kDefaultValue>
struct SwitchOf {
  using Cfg = C;
  static constexpr int kDefault = kDefaultValue;  // also the factory file's value
  static int get(const C& c) {
    int v = -1;
    EXPECT_EQ((c.*kGet)(v), 0);
    return v;
  }
};
struct EventSub : SwitchOf<CEventSubCfg, &CEventSubCfg::getSubCfg, 1> {
  static constexpr const char* kSection = "EventSubCfg";
};
struct Metadata : SwitchOf<CMetadataCfg, &CMetadataCfg::getCfg, 0> {
  static constexpr const char* kSection = "MetadataCfg";
};
struct WispListen : SwitchOf<CWispListenCfg, &CWispListenCfg::getCfg, 0> {
  static constexpr const char* kSection = "WispListenCfg";
};

template <class S>
class SwitchCfgTest : public oxtest::SectionsTest {};
using Switches = ::testing::Types<EventSub, Metadata, WispListen>;
TYPED_TEST_SUITE(SwitchCfgTest, Switches);

TYPED_TEST(SwitchCfgTest, LoadingWritesOnlyAMissingSection) {
  using S = TypeParam;
  oxtest::LogCapture log;
  typename S::Cfg cfg;
  EXPECT_EQ(this->untouched([&] { return cfg.loadFile(); }), 1);
  EXPECT_EQ(S::get(cfg), S::kDefault);
  // After another element: any non-zero number is on; no "Enable" (null) is off.
  const std::pair<const char*, int> cases[] = {{"7", 1}, {"-1", 1}, {"abc", 0}, {"", 0}, {}};
  for (const auto& c : cases) {
    const std::string enable = c.first ? std::string("<Enable>") + c.first + "</Enable>" : "";
    this->replaceSection(S::kSection, "<Other/>" + enable);
    EXPECT_EQ(this->untouched([&] { return cfg.loadFile(); }), 1) << enable;
    EXPECT_EQ(S::get(cfg), c.second) << enable;
  }
  EXPECT_FALSE(log.contains("element not found"));

  // A missing section takes the default, also when it cannot be written.
  this->removeAt({"Config", S::kSection});
  EXPECT_EQ(this->untouched([&] { return cfg.loadFile(); }, FaultEnv::kRename), 1);
  EXPECT_EQ(S::get(cfg), S::kDefault);
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_TRUE(log.has(3, std::string(S::kSection) + " element not found"));
  EXPECT_EQ(this->textAt({"Config", S::kSection, "Enable"}), std::to_string(S::kDefault));

  oxtest::writeFile(this->path("Config.xml"), "<Config>");
  EXPECT_EQ(cfg.loadFile(), 0);
}

TYPED_TEST(SwitchCfgTest, UpdateNormalisesAnExistingSectionButNotANewOne) {
  using S = TypeParam;
  typename S::Cfg cfg;
  EXPECT_EQ(cfg.updateCfg(5), 0);
  EXPECT_EQ(this->textAt({"Config", S::kSection, "Enable"}), "1");
  EXPECT_EQ(S::get(cfg), 5);
  this->removeAt({"Config", S::kSection});
  EXPECT_EQ(cfg.updateCfg(5), 0);
  EXPECT_EQ(this->textAt({"Config", S::kSection, "Enable"}), "5");

  // A document whose root is not "Config" gains the section under its root.
  oxtest::writeFile(this->path("Config.xml"), "<Gateway><Other/></Gateway>");
  EXPECT_EQ(cfg.updateCfg(4), 0);
  EXPECT_EQ(this->textAt({"Gateway", S::kSection, "Enable"}), "4");
  EXPECT_EQ(S::get(cfg), 4);
  this->resetToFactory();

  // Failures leave the file and the value held as they were.
  EXPECT_EQ(this->untouched([&] { return cfg.updateCfg(0); }, FaultEnv::kRename), 3);
  oxtest::writeFile(this->path("Config.xml"), "<Config>");
  EXPECT_EQ(cfg.updateCfg(0), 2);
  EXPECT_EQ(S::get(cfg), 4);
}

using SwitchConcurrencyTest = oxtest::SectionsTest;

TEST_F(SwitchConcurrencyTest, ThreadsChangingDifferentSwitchesAllPersist) {
  CEventSubCfg eventSub;
  CMetadataCfg metadata;
  CWispListenCfg wisp;
  CDeviceMgmtCfg device;
  // Each thread ends (odd round) on the value the factory file does not hold.
  const std::function<int(int)> setters[] = {
      [&](int i) { return eventSub.updateCfg(1 - i % 2); },
      [&](int i) { return metadata.updateCfg(i % 2); },
      [&](int i) { return wisp.updateCfg(i % 2); },
      [&](int i) { return device.updateChecked(i % 2 ? "encodingDev" : "AccessControl"); }};
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (const auto& set : setters) {
    threads.emplace_back([&started, &set] {
      for (++started; started < 4;) std::this_thread::yield();  // all at once
      for (int i = 0; i < 30; ++i) EXPECT_EQ(set(i), 0);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(textAt({"Config", "EventSubCfg", "Enable"}), "0");
  EXPECT_EQ(textAt({"Config", "MetadataCfg", "Enable"}), "1");
  EXPECT_EQ(textAt({"Config", "WispListenCfg", "Enable"}), "1");
  EXPECT_EQ(textAt({"Config", "DeviceMgmt", "Checked"}), "V");
}

// ---- QAPI ------------------------------------------------------------------

class QAPICfgTest : public oxtest::SectionsTest {
 protected:
  void writeQapi(const std::string& inner, const char* name = "QAPIConfig.xml") {
    oxtest::writeFile(path(name), "<Config><QAPIConfig>" + inner + "</QAPIConfig></Config>");
  }
};

TEST_F(QAPICfgTest, Loading) {
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.getQAPIParam(), 1);
  EXPECT_EQ(cfg.getQAPIMode(), 3);
  // Another order; the mode table is exact; "Enable" is the number written.
  const std::pair<const char*, int> modes[] = {{"user", 1}, {"port", 2}, {"all", 3}, {"ALL", 0}};
  for (const auto& m : modes) {
    writeQapi(std::string("<Mode>") + m.first + "</Mode><Enable>-5</Enable>");
    ASSERT_EQ(cfg.loadFile(), 1) << m.first;
    EXPECT_EQ(cfg.getQAPIMode(), m.second) << m.first;
    EXPECT_EQ(cfg.getQAPIParam(), -5);
  }
  writeQapi("<Mode>user</Mode>");
  EXPECT_EQ(cfg.loadFile(), 0);
  writeQapi("<Enable>7</Enable>");  // no mode: neither value is taken
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_EQ(cfg.getQAPIParam(), -5);
  oxtest::LogCapture log;
  ::unlink(path("QAPIConfig.xml").c_str());
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_TRUE(log.has(5, "QAPIConfig.xml file is not exist"));
}

TEST_F(QAPICfgTest, ABackupIsCarriedOverOnceTheNewFileCanBeRead) {
  writeQapi("<Enable>0</Enable><Mode>port</Mode>", "QAPIConfig_Backup.xml");
  const std::string factory = oxtest::readFile(path("QAPIConfig.xml"));
  ::unlink(path("QAPIConfig.xml").c_str());
  CQAPICfg cfg;
  EXPECT_EQ(cfg.loadFile(), 0);  // the backup waits for a readable new file
  oxtest::writeFile(path("QAPIConfig.xml"), factory);
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.getQAPIMode(), 2);
  EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));
}

TEST_F(QAPICfgTest, SetQAPIParam) {
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.setQAPIParam(-7), 0);
  EXPECT_EQ(textAt({"Config", "QAPIConfig", "Enable"}, "QAPIConfig.xml"), "-7");
  EXPECT_EQ(cfg.getQAPIParam(), -7);

  oxtest::LogCapture log;
  EXPECT_EQ(untouched([&] { return cfg.setQAPIParam(0); }, FaultEnv::kRename, "QAPIConfig.xml"), 3);
  EXPECT_TRUE(log.has(5, "set QAPIConfig.xml failed."));
  ::unlink(path("QAPIConfig.xml").c_str());
  EXPECT_EQ(cfg.setQAPIParam(0), 3);
  EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig.xml")));
  EXPECT_EQ(cfg.getQAPIParam(), -7);
}

// ---- HTTP host -------------------------------------------------------------

class HttpHostCfgTest : public oxtest::SectionsTest {
 protected:
  static tagHttpHostInfo info(int enable, const char* ip, int port, const std::string& url) {
    tagHttpHostInfo i;
    i.enable = enable;
    i.port = port;
    OSL_Strncpy(i.ip, ip, sizeof i.ip);
    OSL_Strncpy(i.url, url.c_str(), sizeof i.url);
    return i;
  }
  // "enable ip port url" of the record held.
  static std::string held(const CHttpHostCfg& cfg) {
    tagHttpHostInfo i;
    EXPECT_EQ(cfg.getHttpHostInfo(i), 0);
    return std::to_string(i.enable) + " " + i.ip + " " + std::to_string(i.port) + " " + i.url;
  }
};

TEST_F(HttpHostCfgTest, Loading) {
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(held(cfg), "0 0.0.0.0 8080 /notification");
  // Another order, any non-zero enable, a non-numeric port, long texts cut.
  replaceSection("HttpHostNotificationList",
                 "<HttpHostNotification><url>" + std::string(3000, 'u') +
                     "</url><Port>abc</Port><IP>1234567890123456789</IP><Enable>3</Enable>"
                     "</HttpHostNotification>");
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(held(cfg), "1 123456789012345 0 " + std::string(2048, 'u'));

  removeAt({"Config", "HttpHostNotificationList", "HttpHostNotification"});
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_EQ(cfg.setHttpHostInfo(info(1, "10.0.0.2", 80, "/x")), 1);
  oxtest::writeFile(path("Config.xml"), "<Config><broken></Config>");
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_EQ(cfg.setHttpHostInfo(info(1, "10.0.0.2", 80, "/x")), 2);
}

TEST_F(HttpHostCfgTest, SetWritesTheWholeRecordOrNothing) {
  CHttpHostCfg cfg, reloaded;
  const std::string url2048(2048, 'v'), record = "192.168.100.200 65535 " + url2048;
  EXPECT_EQ(cfg.setHttpHostInfo(info(5, "192.168.100.200", 65535, url2048)), 0);
  EXPECT_EQ(held(cfg), "5 " + record);  // as given
  EXPECT_EQ(textAt({"Config", "HttpHostNotificationList", "HttpHostNotification", "Enable"}), "1");
  ASSERT_EQ(reloaded.loadFile(), 1);
  EXPECT_EQ(held(reloaded), "1 " + record);

  tagHttpHostInfo longIp = info(1, "1.2.3.4", 80, "/u"), longUrl = longIp;
  std::memset(longIp.ip, '1', sizeof longIp.ip);  // no terminator
  std::memset(longUrl.url, 'u', sizeof longUrl.url);
  const tagHttpHostInfo bad[] = {info(1, "", 80, "/u"),
                                 info(1, "1234567890123456", 80, "/u"),
                                 info(1, "1.2.3.4", 80, ""),
                                 info(1, "1.2.3.4", 80, std::string(2049, 'u')),
                                 info(1, "1.2.3.4", -1, "/u"),
                                 info(1, "1.2.3.4", 65536, "/u"),
                                 longIp,
                                 longUrl};
  for (const auto& b : bad) {
    EXPECT_EQ(untouched([&] { return cfg.setHttpHostInfo(b); }), 1) << "case " << &b - bad;
  }
  const tagHttpHostInfo good = info(0, "10.1.1.1", 81, "/n");
  EXPECT_EQ(untouched([&] { return cfg.setHttpHostInfo(good); }, FaultEnv::kFsync), 3);
  EXPECT_EQ(held(cfg), "5 " + record);
}

// ---- device management -----------------------------------------------------

class DeviceMgmtCfgTest : public oxtest::SectionsTest {
 protected:
  // "kind held/"Checked" in the file".
  std::string state(const CDeviceMgmtCfg& cfg) {
    std::string kind = "<unset>";
    EXPECT_EQ(cfg.getChecked(kind), 0);
    return kind + "/" + textAt({"Config", "DeviceMgmt", "Checked"});
  }
};

TEST_F(DeviceMgmtCfgTest, FileTextsMapToKindsAndAnythingElseIsRewrittenAsAC) {
  // Section content, state after loading.
  const char* const cases[][2] = {
      {"<Checked>AC</Checked>", "AccessControl/AC"},
      {"<Other/><Checked>V</Checked>", "encodingDev/V"},
      {"<Checked>encodingDev</Checked>", "AccessControl/AC"},
      {"<Other/>", "AccessControl/AC"},
  };
  CDeviceMgmtCfg cfg;
  for (const auto& c : cases) {
    replaceSection("DeviceMgmt", c[0]);
    ASSERT_EQ(cfg.loadFile(), 1) << c[0];
    EXPECT_EQ(state(cfg), c[1]) << c[0];
  }
  removeAt({"Config", "DeviceMgmt"});
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(state(cfg), "AccessControl/AC");

  replaceSection("DeviceMgmt", "<Checked>X</Checked>");
  CDeviceMgmtCfg unwritable;
  EXPECT_EQ(untouched([&] { return unwritable.loadFile(); }, FaultEnv::kOpen), 0);
  EXPECT_EQ(state(unwritable), "/X");
}

TEST_F(DeviceMgmtCfgTest, UpdateCheckedCodes) {
  CDeviceMgmtCfg cfg;
  EXPECT_EQ(cfg.updateChecked("encodingDev"), 0);
  EXPECT_EQ(state(cfg), "encodingDev/V");
  // Only the interface's names are kinds.
  const std::string bad[] = {"V", "AC", "encodingdev", "", std::string("encodingDev\0x", 13)};
  for (const auto& kind : bad) EXPECT_EQ(untouched([&] { return cfg.updateChecked(kind); }), 1);
  EXPECT_EQ(untouched([&] { return cfg.updateChecked("AccessControl"); }, FaultEnv::kClose), 3);
  oxtest::writeFile(path("Config.xml"), "");
  EXPECT_EQ(cfg.updateChecked("AccessControl"), 2);
  EXPECT_EQ(state(cfg), "encodingDev/<missing>");
}

}  // namespace
