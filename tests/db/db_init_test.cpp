// The two databases at library start: creation, upgrade ladders and files
// that cannot be used.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "db/db_conn.h"
#include "db/db_init.h"
#include "db/db_test_support.h"
#include "frame/singleton.h"
#include "platform/oxbase.h"
#include "support/test_support.h"

using OxConfigMgr::CGatewayDBInitManager;
using OxConfigMgr::CSingleton;
using OxConfigMgr::CSyslogDBInitManager;

namespace {

const char* const kGatewayV10 =
    "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
    "insert into Unit (Key, Value) values('version', '%s');"
    "CREATE table Users(ID int NOT NULL PRIMARY KEY default(1),Name varchar(32) NOT NULL,"
    "UserLevel int default(0),PasswordLevel int,Realm varchar(32),DigestPassword varchar(64),"
    "SessionSalt varchar(64),SessionPassword varchar(64));"
    "insert into Users (ID, Name, UserLevel) values('1', 'admin', '0');"
    "CREATE table SecurityQuestion(ID int NOT NULL PRIMARY KEY default(1),Question varchar(1000) NOT NULL,"
    "Answer varchar(1000),Selected int default(0));";

std::string withVersion(const char* script, const std::string& version) {
  std::string s = script;
  s.replace(s.find("%s"), 2, version);
  return s;
}

class DBStartTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }

  // An old configuration database made with the SQLCipher shell, keyed with
  // the storage key the private configuration will hand the library.
  void makeOldGatewayDB(const std::string& version) {
    key = oxtest::directStorageKeyHex();
    auto r = oxtest::sqlShell("sqlcipher", path("Config.db3"),
                              oxtest::keyPragma(key) + withVersion(kGatewayV10, version) + "\n");
    ASSERT_EQ(r.exitCode, 0) << r.output;
    ::chmod(path("Config.db3").c_str(), 0644);
  }
  void makeOldSyslogDB(const std::string& version) {
    auto r = oxtest::sqlShell("sqlite3", path("Syslog.db3"), oxtest::unitTableSql(version) +
                                  "CREATE table Syslog(ID INTEGER PRIMARY KEY AUTOINCREMENT,"
                                  "RecordTime INTEGER NOT NULL,UserName varchar(32) NOT NULL);\n");
    ASSERT_EQ(r.exitCode, 0) << r.output;
  }
  std::string gatewayVersion() {
    auto r = oxtest::cipherQuery(path("Config.db3"), key.empty() ? oxtest::startedStorageKeyHex() : key,
                                 "SELECT Value FROM Unit WHERE Key = 'version';");
    return r.exitCode == 0 ? r.output : "<unreadable: " + r.output + ">";
  }
  std::string syslogVersion() {
    auto r = oxtest::sqlShell("sqlite3", path("Syslog.db3"), "SELECT Value FROM Unit WHERE Key = 'version';\n");
    return r.exitCode == 0 ? r.output : "<unreadable: " + r.output + ">";
  }
  static int upgradeSteps(const oxtest::LogCapture& log, const std::string& file) {
    int n = 0;
    for (const auto& e : log.entries()) {
      if (e.text.find("database upgraded") != std::string::npos && e.text.find(file) != std::string::npos) ++n;
    }
    return n;
  }

  std::string key;
};

TEST_F(DBStartTest, AFreshDirectoryGetsAnEncryptedConfigurationAndAPlainSyslogDatabase) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  key = oxtest::startedStorageKeyHex();
  const std::string config = path("Config.db3"), syslog = path("Syslog.db3");

  std::string out;
  int rc = OX_BASE_System({"sqlite3", config, "SELECT count(*) FROM sqlite_master;"}, &out);
  EXPECT_NE(rc, 0);
  EXPECT_NE(out.find("file is not a database"), std::string::npos) << out;
  // Not a passphrase: only the raw key opens it.
  auto asPassphrase = oxtest::sqlShell("sqlcipher", config, "PRAGMA key = '" + key + "';\nSELECT 1 FROM Unit;\n");
  EXPECT_NE(asPassphrase.output, "1\n");

  EXPECT_EQ(gatewayVersion(), "1.8.0.0\n");
  auto users = oxtest::cipherQuery(config, key,
                                   "SELECT ID, Name, UserLevel, quote(PasswordLevel), quote(DigestPassword), "
                                   "quote(SessionSalt), quote(SessionPassword) FROM Users;");
  EXPECT_EQ(users.output, "1|admin|0|NULL|NULL|NULL|NULL\n");
  auto realm = oxtest::cipherQuery(config, key, "SELECT Realm FROM Users;");
  EXPECT_EQ(realm.output.rfind("ZX-AG2010(", 0), 0u) << realm.output;  // given at start
  EXPECT_EQ(oxtest::cipherQuery(config, key, "SELECT count(*) FROM SecurityQuestion;").output, "0\n");
  auto columns = oxtest::cipherQuery(config, key, "PRAGMA table_info(SecurityQuestion);");
  EXPECT_NE(columns.output.find("Question|varchar(1000)|1"), std::string::npos) << columns.output;

  EXPECT_EQ(syslogVersion(), "1.8.0.0\n");
  auto rows = oxtest::sqlShell("sqlite3", syslog, "SELECT count(*) FROM Syslog;\n");
  EXPECT_EQ(rows.output, "0\n");
  auto schema = oxtest::sqlShell("sqlite3", syslog, "SELECT sql FROM sqlite_master WHERE name = 'Syslog';\n");
  EXPECT_NE(schema.output.find("ID         INTEGER PRIMARY KEY AUTOINCREMENT"), std::string::npos);
  EXPECT_NE(schema.output.find("object     varchar(544)"), std::string::npos);

  EXPECT_EQ(oxtest::fileMode(config), 0600u);
  EXPECT_EQ(oxtest::fileMode(syslog), 0600u);
}

TEST_F(DBStartTest, TheInitManagersNameTheFilesVersionsAndScripts) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto* gateway = CSingleton<CGatewayDBInitManager>::Instance();
  auto* syslog = CSingleton<CSyslogDBInitManager>::Instance();
  std::string p, sql;
  EXPECT_TRUE(gateway->GetDBUtf8Path(p));
  EXPECT_EQ(p, dir() + "/Config.db3");
  EXPECT_TRUE(syslog->GetDBUtf8Path(p));
  EXPECT_EQ(p, dir() + "/Syslog.db3");
  EXPECT_EQ(gateway->GetDBTargetVersion().ToString(), "1.8.0.0");
  EXPECT_EQ(syslog->GetDBTargetVersion().ToString(), "1.8.0.0");

  unsigned char k[1024] = {0};
  int len = 0;
  EXPECT_TRUE(gateway->GetDBKey(k, len));
  EXPECT_EQ(len, 32);
  EXPECT_EQ(oxtest::hexOf(k), oxtest::startedStorageKeyHex());
  unsigned char untouched[1024] = {7};
  len = 5;
  EXPECT_TRUE(syslog->GetDBKey(untouched, len));
  EXPECT_EQ(len, 5);
  EXPECT_EQ(untouched[0], 7);

  const std::vector<std::pair<std::string, std::string>> ladder = {
      {"1.0.0.0", "1.1.0.0"}, {"1.1.0.0", "1.2.0.0"}, {"1.2.0.0", "1.3.0.0"}, {"1.2.1.51", "1.3.1.0"},
      {"1.3.0.0", "1.3.1.0"}, {"1.3.1.0", "1.3.2.0"}, {"1.3.2.0", "1.3.2.2"}, {"1.3.2.2", "1.4.0.0"},
      {"1.4.0.0", "1.5.0.0"}, {"1.5.0.0", "1.6.0.0"}, {"1.6.0.0", "1.6.1.0"}, {"1.6.1.0", "1.7.0.0"},
      {"1.7.0.0", "1.8.0.0"}};
  for (const auto& step : ladder) {
    ASSERT_TRUE(gateway->getDBTargetVerUpgradeSql(sql, step.first)) << step.first;
    EXPECT_EQ(sql, "UPDATE Unit SET Value = '" + step.second + "' WHERE Key = 'version';");
  }
  for (const char* none : {"1.8.0.0", "1.2.1.50", "1.0", "", "1.0.0.0 "}) {
    EXPECT_FALSE(gateway->getDBTargetVerUpgradeSql(sql, none)) << none;
  }
  ASSERT_TRUE(syslog->getDBTargetVerUpgradeSql(sql, "1.6.1.0"));
  EXPECT_EQ(sql, "UPDATE Unit SET Value = '1.7.0.0' WHERE Key = 'version';");
  ASSERT_TRUE(syslog->getDBTargetVerUpgradeSql(sql, "1.7.0.0"));
  EXPECT_EQ(sql, "UPDATE Unit SET Value = '1.8.0.0' WHERE Key = 'version';");
  EXPECT_FALSE(syslog->getDBTargetVerUpgradeSql(sql, "1.6.0.0"));

  ASSERT_TRUE(gateway->GetDBTargetVerCreatSql(sql));
  EXPECT_EQ(sql.rfind("CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);", 0), 0u);
  EXPECT_NE(sql.find(";update Users set PasswordLevel = NULL, Realm = NULL, DigestPassword = NULL, "
                     "SessionSalt = NULL,SessionPassword = NULL;"),
            std::string::npos);
  ASSERT_TRUE(syslog->GetDBTargetVerCreatSql(sql));
  EXPECT_NE(sql.find("UserName   varchar(32) NOT NULL,IPAddress  varchar(32),MetaId     varchar(512)"),
            std::string::npos);
}

TEST_F(DBStartTest, AConfigurationDatabaseAt1000ClimbsTwelveSteps) {
  makeOldGatewayDB("1.0.0.0");
  oxtest::LogCapture log;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(log, "Config.db3"), 12);
  EXPECT_EQ(gatewayVersion(), "1.8.0.0\n");
  EXPECT_EQ(oxtest::fileMode(path("Config.db3")), 0600u);  // tightened
  // Started again: already current, nothing runs.
  oxtest::LogCapture again;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(again, "Config.db3"), 0);
}

TEST_F(DBStartTest, TheBranchRelease12151JoinsAt1310AndNeedsNineSteps) {
  makeOldGatewayDB("1.2.1.51");
  oxtest::LogCapture log;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(log, "Config.db3"), 9);
  EXPECT_TRUE(log.contains("version[1.2.1.51]->[1.3.1.0]"));
  EXPECT_EQ(gatewayVersion(), "1.8.0.0\n");
}

TEST_F(DBStartTest, ASyslogDatabaseAt1610NeedsTwoSteps) {
  makeOldSyslogDB("1.6.1.0");
  oxtest::LogCapture log;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(log, "Syslog.db3"), 2);
  EXPECT_EQ(syslogVersion(), "1.8.0.0\n");
  EXPECT_EQ(oxtest::fileMode(path("Syslog.db3")), 0600u);
}

TEST_F(DBStartTest, AVersionWithoutAScriptStopsTheStart) {
  makeOldGatewayDB("1.0.5.0");
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitDB falied"));
  EXPECT_FALSE(oxtest::fileExists(path("Syslog.db3")));  // the next step did not run
  EXPECT_FALSE(OX_ConfigMgr_GetUserCfg());
  EXPECT_EQ(gatewayVersion(), "1.0.5.0\n");
}

TEST_F(DBStartTest, ASyslogVersionWithoutAScriptStopsTheStart) {
  makeOldSyslogDB("1.6.0.0");
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitSyslog falied"));
  EXPECT_FALSE(log.has(5, "InitDB falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetLogCfg());
  EXPECT_EQ(syslogVersion(), "1.6.0.0\n");
}

TEST_F(DBStartTest, AFailingUpgradeStepKeepsTheLastGoodVersionAndARetryResumes) {
  makeOldGatewayDB("1.3.2.2");
  // The 1.4 step fails half-way because of a row an old release left behind.
  auto r = oxtest::cipherQuery(path("Config.db3"), key,
                               "CREATE TRIGGER stop BEFORE UPDATE ON Unit WHEN new.Value = '1.5.0.0' "
                               "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitDB falied"));
  EXPECT_EQ(gatewayVersion(), "1.4.0.0\n");

  ASSERT_EQ(oxtest::cipherQuery(path("Config.db3"), key, "DROP TRIGGER stop;").exitCode, 0);
  oxtest::LogCapture retry;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(retry, "Config.db3"), 5);
  EXPECT_EQ(gatewayVersion(), "1.8.0.0\n");
}

// Files that cannot be used stop the start with the step's message; nothing
// crashes and the file is left exactly as it was.
class BadDBFileTest : public DBStartTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadDBFileTest, ConfigDatabaseThatCannotBeUsedStopsTheStartUntouched) {
  const std::string kind = GetParam();
  const std::string db = path("Config.db3");
  if (kind == "garbage") {
    std::string junk(3000, '\0');
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 7919) >> 3);
    oxtest::writeFile(db, junk);
  } else {
    makeOldGatewayDB("1.8.0.0");
    if (kind == "wrong-key") {
      auto r = oxtest::cipherQuery(db, key, "PRAGMA rekey = \"x'" + std::string(64, 'a') + "'\";");
      ASSERT_EQ(r.exitCode, 0) << r.output;
    } else if (kind == "truncated") {
      const std::string full = oxtest::readFile(db);
      oxtest::writeFile(db, full.substr(0, full.size() - 700));
    } else if (kind == "truncated-page") {
      const std::string full = oxtest::readFile(db);
      oxtest::writeFile(db, full.substr(0, full.size() - 1024));
    } else if (kind == "plain") {
      ::unlink(db.c_str());
      ASSERT_EQ(oxtest::sqlShell("sqlite3", db, withVersion(kGatewayV10, "1.8.0.0") + "\n").exitCode, 0);
    }
  }
  const std::string before = oxtest::readFile(db);
  oxtest::UnwritableEnv unwritable("Config.db3");
  std::unique_ptr<oxtest::ScopedEnv> scoped;
  if (kind == "unwritable") scoped.reset(new oxtest::ScopedEnv(&unwritable));

  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitDB falied"));
  EXPECT_TRUE(oxtest::readFile(db) == before);
  EXPECT_FALSE(oxtest::fileExists(db + "-journal"));
  EXPECT_FALSE(OX_ConfigMgr_GetUserCfg());
}

INSTANTIATE_TEST_SUITE_P(Kinds, BadDBFileTest,
                         ::testing::Values("garbage", "wrong-key", "truncated", "truncated-page", "plain", "unwritable"));

TEST_F(DBStartTest, SyslogDatabaseThatCannotBeUsedStopsTheStartUntouched) {
  makeOldSyslogDB("1.8.0.0");
  const std::string full = oxtest::readFile(path("Syslog.db3"));
  oxtest::writeFile(path("Syslog.db3"), full.substr(0, full.size() / 2));
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitSyslog falied"));
  EXPECT_TRUE(oxtest::readFile(path("Syslog.db3")) == full.substr(0, full.size() / 2));
  // Repaired, the next start resumes.
  ::unlink(path("Syslog.db3").c_str());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(syslogVersion(), "1.8.0.0\n");
}

TEST_F(DBStartTest, WithoutAPrivateConfigurationNoDatabaseIsMade) {
  ::unlink(path("PrivateConfig.xml").c_str());
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CPrivateCfg loadFile falied"));
  EXPECT_FALSE(oxtest::fileExists(path("Config.db3")));
  EXPECT_FALSE(oxtest::fileExists(path("Syslog.db3")));
  // A connection made without the key refuses to create the file in clear.
  OxConfigMgr::CGatewayDBConn conn;
  EXPECT_FALSE(conn.IsOpen());
  EXPECT_FALSE(oxtest::fileExists(path("Config.db3")));
}

}  // namespace
