// The SQLite wrapper's own rules, on real database files. Keys, upgrade
// ladders and unusable files are pinned through the library's start
// (tests/db).
#include "platform/sqlite3do.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>

#include "support/test_support.h"

using Sqlite3DO::CBaseDBConn;
using Sqlite3DO::CDBVersion;
using Sqlite3DO::CSQLite3Recordset;

namespace {

TEST(DBVersionTest, ComparesDottedNumbersPartByPartAndInvalidTextLowest) {
  EXPECT_LT(CDBVersion("1.9.0.0"), CDBVersion("1.10.0.0"));
  EXPECT_LT(CDBVersion("1.2.1.51"), CDBVersion("1.3.0.0"));
  EXPECT_GT(CDBVersion("1.2.1.51"), CDBVersion("1.2.1.6"));
  EXPECT_EQ(CDBVersion("1.8"), CDBVersion("1.8.0.0"));
  for (const char* bad : {"", "1..2", "1.x.0.0", "1.8 ", "4294967296.0"}) {
    EXPECT_FALSE(CDBVersion(bad).IsValid()) << bad;
    EXPECT_LT(CDBVersion(bad), CDBVersion("0")) << bad;
  }
}

class DBConnTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    ASSERT_TRUE(conn.OpenDB(path("t.db3"), nullptr, 0, false));
    ASSERT_TRUE(conn.Execute("CREATE TABLE t(name text, n int)"));
  }
  int rows() {
    CSQLite3Recordset rs;
    return conn.Execute("SELECT count(*) AS c FROM t", rs) ? rs.GetInt("c") : -1;
  }
  CBaseDBConn conn;
};

TEST_F(DBConnTest, BoundValuesAreDataNeverSql) {
  const std::string hostile = "O'Brien'); DROP TABLE t; --\\\"%s";
  ASSERT_TRUE(conn.ExecuteBound("INSERT INTO t VALUES(?, ?)", {hostile, 3}));
  CSQLite3Recordset rs;
  ASSERT_TRUE(conn.ExecuteBound("SELECT name, n FROM t WHERE name = ?", {hostile}, rs));
  EXPECT_EQ(rs.GetString("name"), hostile);
  EXPECT_EQ(rs.GetInt("n"), 3);
  // A wrong number of values, or anything after the one statement, is refused.
  EXPECT_FALSE(conn.ExecuteBound("INSERT INTO t VALUES(?, ?)", {"only one"}));
  EXPECT_FALSE(conn.ExecuteBound("INSERT INTO t VALUES(?, 1); DELETE FROM t", {"x"}));
  EXPECT_EQ(rows(), 1);
}

TEST_F(DBConnTest, ATransactionRollsBackAndBelongsToTheThreadThatBeganIt) {
  ASSERT_TRUE(conn.Begin());
  ASSERT_TRUE(conn.Execute("INSERT INTO t VALUES('mine', 1)"));
  bool otherInserted = true, otherCommitted = true;
  std::thread([&] {
    otherInserted = conn.Execute("INSERT INTO t VALUES('other', 2)", 50);
    otherCommitted = conn.Commit();
  }).join();
  EXPECT_FALSE(otherInserted);
  EXPECT_FALSE(otherCommitted);
  ASSERT_TRUE(conn.Rollback());
  EXPECT_EQ(rows(), 0);
  EXPECT_FALSE(conn.Commit());  // none open

  ASSERT_TRUE(conn.Begin());
  ASSERT_TRUE(conn.Execute("INSERT INTO t VALUES('mine', 1)"));
  ASSERT_TRUE(conn.Commit());
  std::thread([&] { otherInserted = conn.Execute("INSERT INTO t VALUES('other', 2)", 50); }).join();
  EXPECT_TRUE(otherInserted);
  EXPECT_EQ(rows(), 2);
}

// A plain database whose creation script a test chooses.
class ScriptedInit : public Sqlite3DO::CBaseDBInitManager {
 public:
  explicit ScriptedInit(std::string path) : path_(std::move(path)) {}
  bool GetDBUtf8Path(std::string& p) override {
    p = path_;
    return true;
  }
  bool GetDBKey(unsigned char*, int&) override { return true; }
  CDBVersion GetDBTargetVersion() override { return CDBVersion("1.8.0.0"); }
  bool GetDBTargetVerCreatSql(std::string& sql) override {
    sql = createSql;
    return true;
  }
  bool getDBTargetVerUpgradeSql(std::string&, const std::string&) override { return false; }

  std::string createSql = "CREATE TABLE Unit(Key, Value); INSERT INTO Unit VALUES('version', '1.8.0.0');";

 private:
  std::string path_;
};

class InitDBTest : public oxtest::WorkDirTest {};

TEST_F(InitDBTest, AMissingOrEmptyFileIsANewDatabaseAndAFailedCreationLeavesNothingBehind) {
  const std::string db = path("i.db3");
  ScriptedInit init(db);
  auto version = [&] {
    CBaseDBConn conn;
    std::string v;
    return conn.OpenDB(db, nullptr, 0, false) && Sqlite3DO::ReadUnitVersion(conn, v) ? v : "<unreadable>";
  };
  ASSERT_TRUE(init.InitDB(0));
  EXPECT_EQ(version(), "1.8.0.0");
  EXPECT_EQ(oxtest::fileMode(db), 0600u);
  ASSERT_TRUE(init.InitDB(0));  // at the target: no upgrade is looked for

  oxtest::writeFile(db, "");
  ::chmod(db.c_str(), 0666);
  ASSERT_TRUE(init.InitDB(0));
  EXPECT_EQ(version(), "1.8.0.0");
  EXPECT_EQ(oxtest::fileMode(db), 0600u);

  // A script failing half-way: a file the call made is removed, an empty
  // file that was there stays empty.
  init.createSql += " CREATE TABLE Half(a); NOT SQL;";
  ::unlink(db.c_str());
  EXPECT_FALSE(init.InitDB(0));
  EXPECT_FALSE(oxtest::fileExists(db));
  EXPECT_FALSE(oxtest::fileExists(db + "-journal"));
  oxtest::writeFile(db, "");
  EXPECT_FALSE(init.InitDB(0));
  EXPECT_EQ(oxtest::readFile(db), "");
}

}  // namespace
