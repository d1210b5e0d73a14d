// The two databases at library start: creation, upgrade ladders and files
// that cannot be used.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <memory>
#include <ostream>
#include <string>

#include "db/db_conn.h"
#include "db/db_test_support.h"

namespace {

using oxtest::LogCapture;

// The schemas an early release made, without their version row.
const char* const kOldGatewaySchema =
    "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
    "CREATE table Users(ID int NOT NULL PRIMARY KEY default(1),Name varchar(32) NOT NULL,"
    "UserLevel int default(0),PasswordLevel int,Realm varchar(32),DigestPassword varchar(64),"
    "SessionSalt varchar(64),SessionPassword varchar(64));"
    "insert into Users (ID, Name, UserLevel) values('1', 'admin', '0');"
    "CREATE table SecurityQuestion(ID int NOT NULL PRIMARY KEY default(1),Question varchar(1000) NOT NULL,"
    "Answer varchar(1000),Selected int default(0));";
const char* const kOldSyslogSchema =
    "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
    "CREATE table Syslog(ID INTEGER PRIMARY KEY AUTOINCREMENT,RecordTime INTEGER NOT NULL,"
    "UserName varchar(32) NOT NULL);";

class DBStartTest : public oxtest::DBDirTest {
 protected:
  // A database at `version` as an earlier release left it, readable by all.
  void makeOld(const std::string& file, const std::string& version) {
    const std::string schema = file == "Config.db3" ? kOldGatewaySchema : kOldSyslogSchema;
    ASSERT_EQ(sql(file, schema + "INSERT INTO Unit VALUES('version', '" + version + "');"), "");
    ::chmod(path(file).c_str(), 0644);
  }
  static int upgradeSteps(const LogCapture& log, const std::string& file) {
    int n = 0;
    for (const auto& e : log.entries()) {
      n += e.text.find("database upgraded") != std::string::npos && e.text.find(file) != std::string::npos;
    }
    return n;
  }
};

TEST_F(DBStartTest, AFreshDirectoryGetsAnEncryptedConfigurationAndAPlainSyslogDatabase) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto plain = oxtest::sqlShell("sqlite3", path("Config.db3"), "SELECT count(*) FROM sqlite_master;\n");
  EXPECT_NE(plain.exitCode, 0);
  EXPECT_NE(plain.output.find("file is not a database"), std::string::npos) << plain.output;

  EXPECT_EQ(version("Config.db3"), "1.8.0.0\n");
  EXPECT_EQ(sql("Config.db3", "SELECT ID, Name, UserLevel, quote(PasswordLevel), quote(DigestPassword), "
                              "quote(SessionSalt), quote(SessionPassword) FROM Users;"),
            "1|admin|0|NULL|NULL|NULL|NULL\n");
  EXPECT_EQ(sql("Config.db3", "SELECT count(*) FROM SecurityQuestion;"), "0\n");
  EXPECT_EQ(version("Syslog.db3"), "1.8.0.0\n");
  EXPECT_EQ(sql("Syslog.db3", "SELECT count(*) FROM Syslog;"), "0\n");
  for (const char* file : {"Config.db3", "Syslog.db3"}) EXPECT_EQ(oxtest::fileMode(path(file)), 0600u) << file;
}

// An old database climbs to the current version one step at a time, or,
// when its version has no script, stops the start and stays as it was.
struct OldDB {
  const char* file;
  const char* version;
  int steps;
  const char* failure;  // the start's message when it fails
};
void PrintTo(const OldDB& c, std::ostream* os) { *os << c.file << " at " << c.version; }
class OldDBTest : public DBStartTest, public ::testing::WithParamInterface<OldDB> {};

TEST_P(OldDBTest, ClimbsToTheCurrentVersionOrStopsTheStart) {
  const OldDB& c = GetParam();
  makeOld(c.file, c.version);
  LogCapture log;
  if (c.failure) {
    EXPECT_EQ(OX_ConfigMgr_Start(), 0);
    EXPECT_TRUE(log.has(5, c.failure));
    EXPECT_EQ(version(c.file), std::string(c.version) + "\n");
    return;
  }
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(log, c.file), c.steps);
  EXPECT_EQ(version(c.file), "1.8.0.0\n");
  EXPECT_EQ(oxtest::fileMode(path(c.file)), 0600u);  // tightened
}

INSTANTIATE_TEST_SUITE_P(Versions, OldDBTest,
                         ::testing::Values(OldDB{"Config.db3", "1.0.0.0", 12, nullptr},
                                           OldDB{"Config.db3", "1.2.1.51", 9, nullptr},  // a branch release
                                           OldDB{"Syslog.db3", "1.6.1.0", 2, nullptr},
                                           OldDB{"Config.db3", "1.0.5.0", 0, "InitDB falied"},
                                           OldDB{"Syslog.db3", "1.6.0.0", 0, "InitSyslog falied"}));

TEST_F(DBStartTest, AFailingUpgradeStepLeavesTheLastGoodVersion) {
  makeOld("Config.db3", "1.3.2.2");
  // A trigger an old release left behind refuses the step from 1.4.0.0.
  ASSERT_EQ(sql("Config.db3", "CREATE TRIGGER stop BEFORE UPDATE ON Unit WHEN new.Value = '1.5.0.0' "
                              "BEGIN SELECT RAISE(ABORT, 'refused'); END;"),
            "");
  LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "InitDB falied"));
  EXPECT_EQ(version("Config.db3"), "1.4.0.0\n");

  // Repaired, the next start resumes there.
  sql("Config.db3", "DROP TRIGGER stop;");
  LogCapture retry;
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(upgradeSteps(retry, "Config.db3"), 5);
}

TEST_F(DBStartTest, WithoutAPrivateConfigurationNoDatabaseIsMade) {
  ::unlink(path("PrivateConfig.xml").c_str());
  LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CPrivateCfg loadFile falied"));
  // Nor does a connection without the key create the file in clear.
  OxConfigMgr::CGatewayDBConn conn;
  EXPECT_FALSE(conn.IsOpen());
  EXPECT_FALSE(oxtest::fileExists(path("Config.db3")));
}

// A database file that cannot be used stops the start with its step's
// message, without a crash, and is left exactly as it was.
struct BadDB {
  const char* file;
  const char* kind;
  const char* message;
};
void PrintTo(const BadDB& c, std::ostream* os) { *os << c.file << ": " << c.kind; }
class BadDBTest : public DBStartTest, public ::testing::WithParamInterface<BadDB> {};

TEST_P(BadDBTest, StopsTheStartAndLeavesTheFileAlone) {
  const BadDB& c = GetParam();
  const std::string kind = c.kind, db = path(c.file);
  if (kind == "not a database") {
    std::string junk(3000, '\0');
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 7919) >> 3);
    oxtest::writeFile(db, junk);
  } else {
    makeOld(c.file, "1.8.0.0");
  }
  if (kind == "wrong key") {
    ASSERT_EQ(sql(c.file, "PRAGMA rekey = \"x'" + std::string(64, 'a') + "'\";"), "");
  }
  if (kind == "truncated") {
    const std::string full = oxtest::readFile(db);
    oxtest::writeFile(db, full.substr(0, full.size() - 700));
  }
  const std::string before = oxtest::readFile(db);
  oxtest::UnwritableEnv unwritable(c.file);
  std::unique_ptr<oxtest::ScopedEnv> scoped(kind == "unwritable" ? new oxtest::ScopedEnv(&unwritable) : nullptr);

  LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, c.message));
  EXPECT_TRUE(oxtest::readFile(db) == before);
  EXPECT_FALSE(oxtest::fileExists(db + "-journal"));
}

INSTANTIATE_TEST_SUITE_P(Files, BadDBTest,
                         ::testing::Values(BadDB{"Config.db3", "not a database", "InitDB falied"},
                                           BadDB{"Config.db3", "wrong key", "InitDB falied"},
                                           BadDB{"Config.db3", "truncated", "InitDB falied"},
                                           BadDB{"Config.db3", "unwritable", "InitDB falied"},
                                           BadDB{"Syslog.db3", "not a database", "InitSyslog falied"},
                                           BadDB{"Syslog.db3", "truncated", "InitSyslog falied"}));

}  // namespace
