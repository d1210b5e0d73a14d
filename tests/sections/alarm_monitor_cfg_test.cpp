#include <oxconfigmgr/OxConfigMgr.h>

#include <cstring>
#include <set>
#include <string>

#include "sections/sections_fixture.h"
#include "sections/token_mgr.h"

namespace {

using OxConfigMgr::CAlarmMonitorCfg;
using oxtest::FaultEnv;

bool isToken(const std::string& t) {
  return t.size() == 64 && t.find_first_not_of("0123456789abcdef") == std::string::npos;
}

OxConfigMgr::tagAlarmMonitorCnf record(uint32_t enable, const char* token) {
  OxConfigMgr::tagAlarmMonitorCnf r;
  r.enable = enable;
  std::strncpy(r.token, token, sizeof r.token - 1);
  return r;
}

class AlarmMonitorCfgTest : public oxtest::SectionsTest {
 protected:
  // "enable token" of the record held.
  static std::string held(const CAlarmMonitorCfg& cfg) {
    OxConfigMgr::tagAlarmMonitorCnf r;
    EXPECT_EQ(cfg.getAlarmMonitorCfg(r), 0);
    return std::to_string(r.enable) + " " + r.token;
  }
  std::string fileText(const char* name) { return textAt({"Config", "AlarmMonitor", name}); }
};

TEST_F(AlarmMonitorCfgTest, FactoryFileGainsATokenOnce) {
  CAlarmMonitorCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string token = fileText("token");
  EXPECT_TRUE(isToken(token)) << token;
  EXPECT_EQ(held(cfg), "0 " + token);
  EXPECT_EQ(untouched([&] { return cfg.loadFile(); }), 1);
  EXPECT_EQ(held(cfg), "0 " + token);
}

TEST_F(AlarmMonitorCfgTest, HandEditedAndIncompleteFiles) {
  // Another order; only "1" switches on; a long token is cut to 64.
  CAlarmMonitorCfg cfg;
  replaceSection("AlarmMonitor", "<token>" + std::string(100, 't') + "</token><Enable>1</Enable>");
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(held(cfg), "1 " + std::string(64, 't'));
  replaceSection("AlarmMonitor", "<Enable>true</Enable><token>t</token>");
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(held(cfg), "0 t");

  replaceSection("AlarmMonitor", "<Enable>1</Enable>");
  EXPECT_EQ(cfg.loadFile(), 0);
  removeAt({"Config", "AlarmMonitor"});
  EXPECT_EQ(cfg.loadFile(), 0);
  // A new token that cannot be written fails the load.
  resetToFactory();
  EXPECT_EQ(untouched([&] { return cfg.loadFile(); }, FaultEnv::kRename), 0);
}

TEST_F(AlarmMonitorCfgTest, SetAndRefreshWriteTheRecord) {
  CAlarmMonitorCfg cfg;
  EXPECT_EQ(cfg.setAlarmMonitorCfg(record(7, "my-token")), 0);
  EXPECT_EQ(fileText("Enable") + " " + fileText("token"), "1 my-token");
  EXPECT_EQ(held(cfg), "7 my-token");
  EXPECT_EQ(cfg.refreshAlarmMonitorCfg(), 0);
  EXPECT_TRUE(isToken(fileText("token")));
  EXPECT_EQ(held(cfg), "7 " + fileText("token"));

  // A failed write keeps the new values in the record only; the token never
  // reaches the log.
  oxtest::LogCapture log;
  const auto set = [&] { return cfg.setAlarmMonitorCfg(record(1, "abc")); };
  EXPECT_EQ(untouched(set, FaultEnv::kWrite), 9);
  EXPECT_TRUE(log.has(5, "set Config.xml file failed"));
  EXPECT_EQ(held(cfg), "1 abc");
  EXPECT_EQ(untouched([&] { return cfg.refreshAlarmMonitorCfg(); }, FaultEnv::kWrite), 9);
  EXPECT_TRUE(isToken(held(cfg).substr(2)));
  EXPECT_FALSE(log.contains("abc"));
}

TEST_F(AlarmMonitorCfgTest, TokensMadeInTheSameTickDifferAndAreCheckedWhole) {
  auto* tokens = OxConfigMgr::CSingleton<OxConfigMgr::CTokenMgr>::Instance();
  EXPECT_EQ(tokens->setToken(), -1);  // no alarm monitor object
  EXPECT_FALSE(tokens->checkToken(""));
  env_.frozen = true;  // one tick, one random number
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) seen.insert(tokens->updateToken());
  EXPECT_EQ(seen.size(), 100u);
  const std::string t = tokens->updateToken();
  EXPECT_TRUE(tokens->checkToken(t));
  EXPECT_FALSE(tokens->checkToken(t.substr(0, 63)));
}

TEST_F(AlarmMonitorCfgTest, TheTokenInForceChangesWithRefreshNotWithSet) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  const std::shared_ptr<CAlarmMonitorCfg> cfg = OX_ConfigMgr_GetAlarmMonitorCfg();
  ASSERT_TRUE(cfg);
  const std::string startToken = fileText("token");
  {
    oxtest::LogCapture log;  // a disabled function rejects every token silently
    EXPECT_EQ(cfg->checkAlarmMonitorCfg(startToken), 2049);
    EXPECT_TRUE(log.entries().empty());
  }
  ASSERT_EQ(cfg->setAlarmMonitorCfg(record(1, "operator-token")), 0);
  EXPECT_EQ(cfg->checkAlarmMonitorCfg(startToken), 0);  // put in force by the start
  EXPECT_EQ(cfg->checkAlarmMonitorCfg("operator-token"), 2049);
  oxtest::LogCapture log;
  EXPECT_EQ(cfg->checkAlarmMonitorCfg("wrong"), 2049);
  EXPECT_TRUE(log.has(5, "checkToken failed.[token = wrong]"));

  ASSERT_EQ(cfg->refreshAlarmMonitorCfg(), 0);
  EXPECT_EQ(cfg->checkAlarmMonitorCfg(fileText("token")), 0);
  EXPECT_EQ(cfg->checkAlarmMonitorCfg(startToken), 2049);
}

}  // namespace
