// The three on/off sections share one shape; every case runs for each.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

namespace {

struct EventSub {
  using Cfg = OxConfigMgr::CEventSubCfg;
  static constexpr const char* kSection = "EventSubCfg";
  static constexpr int kDefault = 1;
  static constexpr int kFactory = 1;
  static int get(const Cfg& c) {
    int v = -1;
    EXPECT_EQ(c.getSubCfg(v), 0);
    return v;
  }
};

struct Metadata {
  using Cfg = OxConfigMgr::CMetadataCfg;
  static constexpr const char* kSection = "MetadataCfg";
  static constexpr int kDefault = 0;
  static constexpr int kFactory = 0;
  static int get(const Cfg& c) {
    int v = -1;
    EXPECT_EQ(c.getCfg(v), 0);
    return v;
  }
};

struct WispListen {
  using Cfg = OxConfigMgr::CWispListenCfg;
  static constexpr const char* kSection = "WispListenCfg";
  static constexpr int kDefault = 0;
  static constexpr int kFactory = 0;
  static int get(const Cfg& c) {
    int v = -1;
    EXPECT_EQ(c.getCfg(v), 0);
    return v;
  }
};

template <class S>
class SwitchCfgTest : public oxtest::SectionsTest {
 protected:
  std::string enableText() { return textAt({"Config", S::kSection, "Enable"}); }
};

using Switches = ::testing::Types<EventSub, Metadata, WispListen>;
TYPED_TEST_SUITE(SwitchCfgTest, Switches);

TYPED_TEST(SwitchCfgTest, FactoryFileLoads) {
  typename TypeParam::Cfg cfg;
  EXPECT_EQ(TypeParam::get(cfg), 0);
  const std::string before = this->config();
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(TypeParam::get(cfg), TypeParam::kFactory);
  EXPECT_EQ(this->config(), before);
}

TYPED_TEST(SwitchCfgTest, MissingSectionTakesTheDefaultAndWritesIt) {
  this->removeAt({"Config", TypeParam::kSection});
  oxtest::LogCapture log;
  typename TypeParam::Cfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(TypeParam::get(cfg), TypeParam::kDefault);
  EXPECT_TRUE(log.has(3, std::string(TypeParam::kSection) + " element not found"));
  EXPECT_EQ(this->enableText(), std::to_string(TypeParam::kDefault));

  // Found next time, nothing logged or written.
  const std::string before = this->config();
  oxtest::LogCapture quiet;
  typename TypeParam::Cfg again;
  ASSERT_EQ(again.loadFile(), 1);
  EXPECT_EQ(TypeParam::get(again), TypeParam::kDefault);
  EXPECT_FALSE(quiet.contains("element not found"));
  EXPECT_EQ(this->config(), before);
}

TYPED_TEST(SwitchCfgTest, MissingSectionLoadsEvenWhenTheDefaultCannotBeWritten) {
  this->removeAt({"Config", TypeParam::kSection});
  const std::string before = this->config();
  this->env_.failOn(oxtest::FaultEnv::kFsync, EIO);
  typename TypeParam::Cfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(TypeParam::get(cfg), TypeParam::kDefault);
  EXPECT_EQ(this->config(), before);
}

TYPED_TEST(SwitchCfgTest, HandEditedTexts) {
  struct Case {
    const char* section;
    int expected;
  } cases[] = {
      {"<Enable>7</Enable>", 1},
      {"<Enable>-1</Enable>", 1},
      {"<Enable>abc</Enable>", 0},
      {"<Enable> 1</Enable>", 1},
      {"<Enable></Enable>", 0},
      {"<Other>1</Other><Enable>1</Enable>", 1},
      {"<Other>1</Other>", 0},  // present section without "Enable"
      {"", 0},                  // empty section
  };
  for (const auto& c : cases) {
    this->resetToFactory();
    this->replaceSection(TypeParam::kSection, std::string("<") + TypeParam::kSection + ">" +
                                                  c.section + "</" + TypeParam::kSection + ">");
    const std::string before = this->config();
    typename TypeParam::Cfg cfg;
    ASSERT_EQ(cfg.loadFile(), 1) << c.section;
    EXPECT_EQ(TypeParam::get(cfg), c.expected) << c.section;
    EXPECT_EQ(this->config(), before) << c.section;
  }
}

TYPED_TEST(SwitchCfgTest, UnreadableFileFailsTheLoad) {
  oxtest::LogCapture log;
  oxtest::writeFile(this->path("Config.xml"), "<Config>");
  typename TypeParam::Cfg cfg;
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_TRUE(log.has(5, "config file is not exist"));
  oxtest::writeFile(this->path("Config.xml"), "<Other><EventSubCfg/></Other>");
  EXPECT_EQ(cfg.loadFile(), 0);
}

TYPED_TEST(SwitchCfgTest, UpdateNormalisesAnExistingSectionButNotANewOne) {
  typename TypeParam::Cfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.updateCfg(5), 0);
  EXPECT_EQ(this->enableText(), "1");
  EXPECT_EQ(TypeParam::get(cfg), 5);
  EXPECT_EQ(cfg.updateCfg(0), 0);
  EXPECT_EQ(this->enableText(), "0");
  EXPECT_EQ(TypeParam::get(cfg), 0);

  this->removeAt({"Config", TypeParam::kSection});
  EXPECT_EQ(cfg.updateCfg(5), 0);
  EXPECT_EQ(this->enableText(), "5");
  EXPECT_EQ(TypeParam::get(cfg), 5);
  EXPECT_EQ(this->countAt({"Config"}, TypeParam::kSection), 1);
  // And a reload reduces it to 1.
  typename TypeParam::Cfg reloaded;
  ASSERT_EQ(reloaded.loadFile(), 1);
  EXPECT_EQ(TypeParam::get(reloaded), 1);
}

TYPED_TEST(SwitchCfgTest, UpdateFailuresLeaveFileAndMemory) {
  typename TypeParam::Cfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const int held = TypeParam::get(cfg);
  const std::string before = this->config();

  for (auto op : {oxtest::FaultEnv::kOpen, oxtest::FaultEnv::kWrite, oxtest::FaultEnv::kRename}) {
    this->env_.failOn(op, EACCES);
    EXPECT_EQ(cfg.updateCfg(held ? 0 : 1), 3);
    EXPECT_EQ(TypeParam::get(cfg), held);
    EXPECT_EQ(this->config(), before);
  }
  this->env_.failOn(oxtest::FaultEnv::kNone, 0);

  ASSERT_EQ(OSL_DeleteFile(this->path("Config.xml").c_str()), 0);
  EXPECT_EQ(cfg.updateCfg(held ? 0 : 1), 2);
  EXPECT_EQ(TypeParam::get(cfg), held);
  oxtest::writeFile(this->path("Config.xml"), "<Other/>");
  EXPECT_EQ(cfg.updateCfg(held ? 0 : 1), 1);
  EXPECT_EQ(oxtest::readFile(this->path("Config.xml")), "<Other/>");
  EXPECT_EQ(TypeParam::get(cfg), held);
}

// ---- all switches at once --------------------------------------------------

class SwitchConcurrencyTest : public oxtest::SectionsTest {};

TEST_F(SwitchConcurrencyTest, ThreadsChangingDifferentSwitchesAllPersist) {
  OxConfigMgr::CEventSubCfg eventSub;
  OxConfigMgr::CMetadataCfg metadata;
  OxConfigMgr::CWispListenCfg wisp;
  OxConfigMgr::CDeviceMgmtCfg deviceMgmt;
  OxConfigMgr::CHttpHostCfg httpHost;
  OxConfigMgr::CQAPICfg qapi;
  ASSERT_EQ(eventSub.loadFile(), 1);
  ASSERT_EQ(metadata.loadFile(), 1);
  ASSERT_EQ(wisp.loadFile(), 1);
  ASSERT_EQ(deviceMgmt.loadFile(), 1);
  ASSERT_EQ(httpHost.loadFile(), 1);
  ASSERT_EQ(qapi.loadFile(), 1);

  constexpr int kRounds = 30;
  std::vector<std::thread> threads;
  // Each thread ends on the value that differs from the factory file.
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(eventSub.updateCfg((i + 1) % 2), 0);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(metadata.updateCfg(i % 2), 0);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(wisp.updateCfg(i % 2), 0);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      EXPECT_EQ(deviceMgmt.updateChecked(i % 2 ? "encodingDev" : "AccessControl"), 0);
    }
  });
  threads.emplace_back([&] {
    OxConfigMgr::tagHttpHostInfo info;
    std::snprintf(info.ip, sizeof info.ip, "10.0.0.1");
    std::snprintf(info.url, sizeof info.url, "/n");
    for (int i = 0; i < kRounds; ++i) {
      info.port = 9000 + i;
      EXPECT_EQ(httpHost.setHttpHostInfo(info), 0);
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(qapi.setQAPIParam(i), 0);
  });
  for (auto& t : threads) t.join();

  EXPECT_EQ(textAt({"Config", "EventSubCfg", "Enable"}), "0");
  EXPECT_EQ(textAt({"Config", "MetadataCfg", "Enable"}), "1");
  EXPECT_EQ(textAt({"Config", "WispListenCfg", "Enable"}), "1");
  EXPECT_EQ(textAt({"Config", "DeviceMgmt", "Checked"}), "V");
  EXPECT_EQ(textAt({"Config", "HttpHostNotificationList", "HttpHostNotification", "Port"}),
            std::to_string(9000 + kRounds - 1));
  EXPECT_EQ(textAt({"Config", "QAPIConfig", "Enable"}, "QAPIConfig.xml"),
            std::to_string(kRounds - 1));
  int v = -1;
  eventSub.getSubCfg(v);
  EXPECT_EQ(v, 0);
  std::string kind;
  deviceMgmt.getChecked(kind);
  EXPECT_EQ(kind, "encodingDev");
  EXPECT_EQ(qapi.getQAPIParam(), kRounds - 1);
}

}  // namespace
