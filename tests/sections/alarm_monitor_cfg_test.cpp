#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sections/sections_fixture.h"
#include "sections/token_mgr.h"

using OxConfigMgr::CAlarmMonitorCfg;
using OxConfigMgr::CSingleton;
using OxConfigMgr::CTokenMgr;
using OxConfigMgr::tagAlarmMonitorCnf;

namespace {

bool isToken(const std::string& t) {
  return t.size() == 64 && t.find_first_not_of("0123456789abcdef") == std::string::npos;
}

tagAlarmMonitorCnf record(uint32_t enable, const std::string& token) {
  tagAlarmMonitorCnf r;
  r.enable = enable;
  std::strncpy(r.token, token.c_str(), sizeof r.token - 1);
  return r;
}

CTokenMgr* tokens() { return CSingleton<CTokenMgr>::Instance(); }

class AlarmMonitorCfgTest : public oxtest::SectionsTest {
 protected:
  static tagAlarmMonitorCnf get(const CAlarmMonitorCfg& cfg) {
    tagAlarmMonitorCnf r;
    EXPECT_EQ(cfg.getAlarmMonitorCfg(r), 0);
    return r;
  }
  std::string fileText(const char* name) { return textAt({"Config", "AlarmMonitor", name}); }
};

TEST_F(AlarmMonitorCfgTest, FactoryFileGainsATokenOnce) {
  CAlarmMonitorCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  tagAlarmMonitorCnf r = get(cfg);
  EXPECT_EQ(r.enable, 0u);
  EXPECT_TRUE(isToken(r.token)) << r.token;
  EXPECT_EQ(fileText("token"), r.token);

  const std::string before = config();
  CAlarmMonitorCfg again;
  ASSERT_EQ(again.loadFile(), 1);
  EXPECT_STREQ(get(again).token, r.token);
  EXPECT_EQ(config(), before);
}

TEST_F(AlarmMonitorCfgTest, HandEditedFiles) {
  struct Case {
    const char* enable;
    uint32_t expected;
  } cases[] = {{"1", 1}, {"true", 0}, {" 1", 0}, {"01", 0}, {"2", 0}, {"", 0}};
  for (const auto& c : cases) {
    resetToFactory();
    replaceSection("AlarmMonitor", std::string("<AlarmMonitor><token>") + std::string(100, 't') +
                                       "</token><Enable>" + c.enable + "</Enable></AlarmMonitor>");
    const std::string before = config();
    CAlarmMonitorCfg cfg;
    ASSERT_EQ(cfg.loadFile(), 1) << c.enable;
    EXPECT_EQ(get(cfg).enable, c.expected) << c.enable;
    EXPECT_EQ(std::string(get(cfg).token), std::string(64, 't'));
    EXPECT_EQ(config(), before);
  }
}

TEST_F(AlarmMonitorCfgTest, LoadFailures) {
  for (const char* name : {"Enable", "token"}) {
    resetToFactory();
    removeAt({"Config", "AlarmMonitor", name});
    CAlarmMonitorCfg cfg;
    EXPECT_EQ(cfg.loadFile(), 0) << name;
  }
  removeAt({"Config", "AlarmMonitor"});
  CAlarmMonitorCfg noSection;
  EXPECT_EQ(noSection.loadFile(), 0);

  // A new token that cannot be written fails the load.
  resetToFactory();
  env_.failOn(oxtest::FaultEnv::kRename, ENOSPC);
  CAlarmMonitorCfg unwritable;
  EXPECT_EQ(unwritable.loadFile(), 0);
  EXPECT_EQ(fileText("token"), "");
}

TEST_F(AlarmMonitorCfgTest, SetAndRefreshWriteTheRecord) {
  CAlarmMonitorCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.setAlarmMonitorCfg(record(7, "my-token")), 0);
  EXPECT_EQ(fileText("Enable"), "1");
  EXPECT_EQ(fileText("token"), "my-token");
  EXPECT_EQ(get(cfg).enable, 7u);

  // A token filling its field without a terminator is cut to 64.
  tagAlarmMonitorCnf full;
  full.enable = 0;
  std::memset(full.token, 'f', sizeof full.token);
  EXPECT_EQ(cfg.setAlarmMonitorCfg(full), 0);
  EXPECT_EQ(fileText("Enable"), "0");
  EXPECT_EQ(fileText("token"), std::string(64, 'f'));
  EXPECT_EQ(std::string(get(cfg).token), std::string(64, 'f'));

  EXPECT_EQ(cfg.refreshAlarmMonitorCfg(), 0);
  const std::string fresh = get(cfg).token;
  EXPECT_TRUE(isToken(fresh));
  EXPECT_EQ(fileText("token"), fresh);
  EXPECT_EQ(cfg.updateFile(), 1);
}

TEST_F(AlarmMonitorCfgTest, UnwritableFile) {
  CAlarmMonitorCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string before = config();
  oxtest::LogCapture log;
  env_.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
  // The record keeps the new values all the same.
  EXPECT_EQ(cfg.setAlarmMonitorCfg(record(1, "abc")), 9);
  EXPECT_TRUE(log.has(5, "set Config.xml file failed"));
  EXPECT_EQ(get(cfg).enable, 1u);
  EXPECT_STREQ(get(cfg).token, "abc");
  EXPECT_EQ(cfg.refreshAlarmMonitorCfg(), 9);
  EXPECT_TRUE(isToken(get(cfg).token));
  EXPECT_EQ(cfg.updateFile(), 0);
  env_.failOn(oxtest::FaultEnv::kNone, 0);
  EXPECT_EQ(config(), before);
  EXPECT_FALSE(log.contains("abc"));

  removeAt({"Config", "AlarmMonitor", "token"});
  EXPECT_EQ(cfg.updateFile(), 0);
  EXPECT_EQ(cfg.setAlarmMonitorCfg(record(1, "abc")), 9);
}

// ---- the token in force ------------------------------------------------------

TEST_F(AlarmMonitorCfgTest, TokensMadeInTheSameTickDiffer) {
  env_.freezeClock = true;
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string t = tokens()->updateToken();
    EXPECT_TRUE(isToken(t)) << t;
    seen.insert(t);
  }
  EXPECT_EQ(seen.size(), 100u);

  // Also when made concurrently.
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> threads;
  for (auto& list : made) {
    threads.emplace_back([&list] {
      for (int i = 0; i < 50; ++i) list.push_back(tokens()->updateToken());
    });
  }
  for (auto& t : threads) t.join();
  for (const auto& list : made) seen.insert(list.begin(), list.end());
  EXPECT_EQ(seen.size(), 300u);
}

TEST_F(AlarmMonitorCfgTest, TokenManagerWithoutAnAlarmMonitorObject) {
  EXPECT_EQ(tokens()->setToken(), -1);
  EXPECT_FALSE(tokens()->checkToken(""));
  const std::string t = tokens()->updateToken();
  EXPECT_TRUE(tokens()->checkToken(t));
  EXPECT_FALSE(tokens()->checkToken(t.substr(0, 63)));
  EXPECT_FALSE(tokens()->checkToken(t + "0"));
}

class AlarmMonitorStartedTest : public AlarmMonitorCfgTest {
 protected:
  void SetUp() override {
    AlarmMonitorCfgTest::SetUp();
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    cfg_ = OX_ConfigMgr_GetAlarmMonitorCfg();
    ASSERT_TRUE(cfg_);
    startToken_ = fileText("token");
    ASSERT_TRUE(isToken(startToken_));
  }
  std::shared_ptr<CAlarmMonitorCfg> cfg_;
  std::string startToken_;
};

TEST_F(AlarmMonitorStartedTest, ADisabledFunctionRejectsEveryTokenSilently) {
  oxtest::LogCapture log;
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(startToken_), 2049);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg("wrong"), 2049);
  EXPECT_TRUE(log.entries().empty());
}

TEST_F(AlarmMonitorStartedTest, TheTokenInForceChangesWithRefreshNotWithSet) {
  // The start put the file's token in force.
  ASSERT_EQ(cfg_->setAlarmMonitorCfg(record(1, startToken_)), 0);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(startToken_), 0);

  oxtest::LogCapture log;
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg("wrong"), 2049);
  EXPECT_TRUE(log.has(5, "checkToken failed.[token = wrong]"));
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(""), 2049);

  // A token stored with set reaches the file and the record only.
  ASSERT_EQ(cfg_->setAlarmMonitorCfg(record(1, "operator-token")), 0);
  EXPECT_EQ(fileText("token"), "operator-token");
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg("operator-token"), 2049);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(startToken_), 0);

  // A refresh puts a new one in force everywhere.
  ASSERT_EQ(cfg_->refreshAlarmMonitorCfg(), 0);
  tagAlarmMonitorCnf r = get(*cfg_);
  EXPECT_NE(std::string(r.token), startToken_);
  EXPECT_EQ(fileText("token"), r.token);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(r.token), 0);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(startToken_), 2049);

  // A second start of the library does not reload the token.
  ASSERT_EQ(cfg_->setAlarmMonitorCfg(record(1, "again")), 0);
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg(r.token), 0);
  EXPECT_EQ(cfg_->checkAlarmMonitorCfg("again"), 2049);
}

}  // namespace
