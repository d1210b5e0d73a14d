// The SQLite wrapper over SQLCipher, on real database files.
#include "platform/sqlite3do.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "db/db_test_support.h"
#include "support/test_support.h"

using Sqlite3DO::CBaseDBConn;
using Sqlite3DO::CDBParam;
using Sqlite3DO::CDBVersion;
using Sqlite3DO::CSQLite3Recordset;

namespace {

const unsigned char kKey[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                                17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};
const unsigned char kOtherKey[32] = {9};

TEST(DBVersionTest, ComparesNumericallyPartByPart) {
  EXPECT_LT(CDBVersion("1.9.0.0"), CDBVersion("1.10.0.0"));
  EXPECT_LT(CDBVersion("1.2.0.0"), CDBVersion("1.2.1.51"));
  EXPECT_LT(CDBVersion("1.2.1.51"), CDBVersion("1.3.0.0"));
  EXPECT_LT(CDBVersion("1.3.2.0"), CDBVersion("1.3.2.2"));
  EXPECT_EQ(CDBVersion("1.8"), CDBVersion("1.8.0.0"));
  EXPECT_GT(CDBVersion("1.8.0.1"), CDBVersion("1.8"));
  EXPECT_EQ(CDBVersion("01.8.0.0"), CDBVersion("1.8.0.0"));
  EXPECT_EQ(CDBVersion("1.8.0.0").ToString(), "1.8.0.0");
}

TEST(DBVersionTest, TextThatIsNotDottedNumbersIsInvalidAndLowest) {
  for (const char* bad : {"", "1..2", ".1", "1.", "1.x.0.0", "1.8 ", "-1.0", "4294967296.0"}) {
    EXPECT_FALSE(CDBVersion(bad).IsValid()) << bad;
    EXPECT_LT(CDBVersion(bad), CDBVersion("0")) << bad;
  }
  EXPECT_TRUE(CDBVersion("4294967295.0").IsValid());
  EXPECT_EQ(CDBVersion("abc"), CDBVersion("1..2"));
}

class DBConnTest : public oxtest::WorkDirTest {
 protected:
  int count(CBaseDBConn& conn, const std::string& table) {
    CSQLite3Recordset rs;
    if (!conn.Execute("SELECT count(*) AS n FROM " + table, rs)) return -1;
    return rs.GetInt("n");
  }
};

TEST_F(DBConnTest, KeyedDatabaseIsBorn0600AndOpensOnlyWithItsKey) {
  const std::string db = path("k.db3");
  {
    CBaseDBConn conn;
    ASSERT_TRUE(conn.OpenDB(db, kKey, 32, true));
    EXPECT_TRUE(conn.CreatedFile());
    ASSERT_TRUE(conn.Execute("CREATE TABLE t(a int); INSERT INTO t VALUES(42);"));
  }
  EXPECT_EQ(oxtest::fileMode(db), 0600u);

  OxBase::CommandResult plain = oxtest::sqlShell("sqlite3", db, "SELECT a FROM t;\n");
  EXPECT_NE(plain.exitCode, 0);
  EXPECT_NE(plain.output.find("file is not a database"), std::string::npos) << plain.output;
  OxBase::CommandResult keyed = oxtest::cipherQuery(db, oxtest::hexOf(kKey), "SELECT a FROM t;");
  EXPECT_EQ(keyed.exitCode, 0) << keyed.output;
  EXPECT_EQ(keyed.output, "42\n");

  const std::string bytes = oxtest::readFile(db);
  CBaseDBConn conn;
  EXPECT_FALSE(conn.OpenDB(db, kOtherKey, 32, true));
  EXPECT_EQ(conn.LastError(), SQLITE_NOTADB);
  EXPECT_FALSE(conn.IsOpen());
  EXPECT_FALSE(conn.OpenDB(db, nullptr, 0, false));
  EXPECT_FALSE(conn.CreatedFile());
  EXPECT_TRUE(oxtest::readFile(db) == bytes);
  ASSERT_TRUE(conn.OpenDB(db, kKey, 32, true));
  EXPECT_EQ(count(conn, "t"), 1);
}

TEST_F(DBConnTest, AKeyThatIsNotThirtyTwoBytesIsRefusedBeforeAnyFileIsMade) {
  CBaseDBConn conn;
  EXPECT_FALSE(conn.OpenDB(path("short.db3"), kKey, 16, true));
  EXPECT_FALSE(conn.OpenDB(path("none.db3"), nullptr, 32, true));
  EXPECT_FALSE(oxtest::fileExists(path("short.db3")));
  EXPECT_FALSE(oxtest::fileExists(path("none.db3")));
}

TEST_F(DBConnTest, AnExistingLooseFileIsTightenedTo0600) {
  const std::string db = path("plain.db3");
  ASSERT_EQ(oxtest::sqlShell("sqlite3", db, "CREATE TABLE t(a);\n").exitCode, 0);
  ::chmod(db.c_str(), 0644);
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(db, kKey, 32, false));  // the key is ignored without useKey
  EXPECT_FALSE(conn.CreatedFile());
  EXPECT_EQ(oxtest::fileMode(db), 0600u);
  EXPECT_EQ(count(conn, "t"), 0);
}

TEST_F(DBConnTest, FilesThatAreNoDatabaseOrCannotBeWrittenAreRefusedUntouched) {
  const std::string garbage = path("garbage.db3");
  std::string junk(5000, '\0');
  for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>(i * 131 + 7);
  oxtest::writeFile(garbage, junk);
  CBaseDBConn conn;
  EXPECT_FALSE(conn.OpenDB(garbage, nullptr, 0, false));
  EXPECT_FALSE(conn.OpenDB(garbage, kKey, 32, true));
  EXPECT_TRUE(oxtest::readFile(garbage) == junk);

  EXPECT_FALSE(conn.OpenDB(dir(), nullptr, 0, false));  // a directory

  oxtest::UnwritableEnv env(".db3");
  oxtest::ScopedEnv scoped(&env);
  EXPECT_FALSE(conn.OpenDB(path("new.db3"), nullptr, 0, false));
  EXPECT_FALSE(oxtest::fileExists(path("new.db3")));
  EXPECT_FALSE(conn.Execute("SELECT 1"));  // closed
}

TEST_F(DBConnTest, AFileThatLostItsTailIsRefusedEvenIfTheFirstPagesAreIntact) {
  const std::string db = path("tail.db3");
  {
    CBaseDBConn conn;
    ASSERT_TRUE(conn.OpenDB(db, kKey, 32, true));
    ASSERT_TRUE(conn.Execute("CREATE TABLE a(x); CREATE TABLE b(x); CREATE TABLE c(x);"
                             "INSERT INTO c VALUES(randomblob(3000));"));
  }
  const std::string full = oxtest::readFile(db);
  for (size_t cut : {size_t{1}, size_t{100}, size_t{1024}}) {
    oxtest::writeFile(db, full.substr(0, full.size() - cut));
    CBaseDBConn conn;
    EXPECT_FALSE(conn.OpenDB(db, kKey, 32, true)) << cut;
    EXPECT_EQ(conn.LastError(), SQLITE_CORRUPT);
    EXPECT_TRUE(oxtest::readFile(db) == full.substr(0, full.size() - cut));
  }
}

TEST_F(DBConnTest, RecordsetIsReadForwardByColumnNameWithNullAsZeroOrEmpty) {
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(path("r.db3"), nullptr, 0, false));
  ASSERT_TRUE(conn.Execute("CREATE TABLE t(a int, b text, c); INSERT INTO t VALUES(1, 'x', NULL);"
                           "INSERT INTO t VALUES(NULL, NULL, '7');"));
  CSQLite3Recordset rs;
  ASSERT_TRUE(conn.Execute("SELECT * FROM t ORDER BY rowid", rs));
  ASSERT_EQ(rs.RowCount(), 2u);
  ASSERT_FALSE(rs.IsEOF());
  EXPECT_EQ(rs.GetInt("A"), 1);
  EXPECT_EQ(rs.GetString("b"), "x");
  EXPECT_TRUE(rs.IsNull("c"));
  EXPECT_EQ(rs.GetInt("c"), 0);
  EXPECT_EQ(rs.GetString("c"), "");
  EXPECT_EQ(rs.GetString("nosuch"), "");
  EXPECT_TRUE(rs.Next());
  EXPECT_EQ(rs.GetInt("a"), 0);
  EXPECT_EQ(rs.GetString("b"), "");
  EXPECT_EQ(rs.GetInt("c"), 7);  // text read as a number
  EXPECT_EQ(rs.GetString("c"), "7");
  EXPECT_FALSE(rs.Next());
  EXPECT_TRUE(rs.IsEOF());
  EXPECT_FALSE(rs.Next());
  EXPECT_EQ(rs.GetInt("a"), 0);

  ASSERT_TRUE(conn.Execute("SELECT a FROM t WHERE a = 99", rs));
  EXPECT_TRUE(rs.IsEOF());
  EXPECT_EQ(rs.Columns(), std::vector<std::string>{"a"});
  // Several statements: the rows are those of the last query.
  ASSERT_TRUE(conn.Execute("SELECT 1 AS one; UPDATE t SET a = 5 WHERE a = 1; SELECT b FROM t WHERE a = 5;", rs));
  EXPECT_EQ(rs.GetString("b"), "x");
  EXPECT_EQ(rs.GetInt("one"), 0);
}

TEST_F(DBConnTest, BoundValuesAreDataNeverSql) {
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(path("b.db3"), kKey, 32, true));
  ASSERT_TRUE(conn.Execute("CREATE TABLE t(name text, n int)"));
  const std::string nasty = "O'Brien'); DROP TABLE t; --\\\"";
  ASSERT_TRUE(conn.ExecuteBound("INSERT INTO t VALUES(?, ?)", {nasty, 3}));
  EXPECT_EQ(conn.Changes(), 1);
  CSQLite3Recordset rs;
  ASSERT_TRUE(conn.ExecuteBound("SELECT n FROM t WHERE name = ?", {nasty}, rs));
  EXPECT_EQ(rs.GetInt("n"), 3);
  ASSERT_TRUE(conn.ExecuteBound("UPDATE t SET name = ? WHERE n = ?", {CDBParam::Null(), 3}));
  ASSERT_TRUE(conn.Execute("SELECT name FROM t", rs));
  EXPECT_TRUE(rs.IsNull("name"));

  EXPECT_FALSE(conn.ExecuteBound("INSERT INTO t VALUES(?, ?)", {"only one"}));
  EXPECT_FALSE(conn.ExecuteBound("INSERT INTO t VALUES(?, 1); DELETE FROM t", {"x"}));
  EXPECT_FALSE(conn.ExecuteBound("", {}));
  EXPECT_FALSE(conn.Execute("INSERT INTO t VALUES(?, 1)"));  // nothing to bind
  ASSERT_TRUE(conn.Execute("SELECT count(*) AS c FROM t", rs));
  EXPECT_EQ(rs.GetInt("c"), 1);
}

TEST_F(DBConnTest, AScriptStopsAtItsFirstFailingStatement) {
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(path("s.db3"), nullptr, 0, false));
  ASSERT_TRUE(conn.Execute("CREATE TABLE t(a); -- comment\n;;"));
  EXPECT_FALSE(conn.Execute("INSERT INTO t VALUES(1); NOT SQL; INSERT INTO t VALUES(2);"));
  EXPECT_NE(conn.LastError(), 0);
  EXPECT_EQ(count(conn, "t"), 1);
  EXPECT_EQ(conn.LastError(), 0);
}

TEST_F(DBConnTest, TransactionsRollBackAndBelongToTheThreadThatBeganThem) {
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(path("t.db3"), nullptr, 0, false));
  ASSERT_TRUE(conn.Execute("CREATE TABLE t(a)"));
  ASSERT_TRUE(conn.Begin());
  ASSERT_TRUE(conn.Execute("INSERT INTO t VALUES(1)"));
  EXPECT_TRUE(conn.InTransaction());
  ASSERT_TRUE(conn.Rollback());
  EXPECT_EQ(count(conn, "t"), 0);
  EXPECT_FALSE(conn.Commit());  // none open

  ASSERT_TRUE(conn.Begin());
  ASSERT_TRUE(conn.Execute("INSERT INTO t VALUES(1)"));
  std::atomic<int> otherResult{-1};
  std::thread other([&] {
    // Neither slips into this thread's transaction nor ends it.
    bool inserted = conn.Execute("INSERT INTO t VALUES(2)", 50);
    bool committed = conn.Commit();
    otherResult = (inserted ? 1 : 0) + (committed ? 2 : 0);
  });
  other.join();
  EXPECT_EQ(otherResult, 0);
  ASSERT_TRUE(conn.Rollback());
  EXPECT_EQ(count(conn, "t"), 0);

  std::thread later([&] { otherResult = conn.Execute("INSERT INTO t VALUES(3)", 50) ? 1 : 0; });
  later.join();
  EXPECT_EQ(otherResult, 1);
  EXPECT_EQ(count(conn, "t"), 1);
}

TEST_F(DBConnTest, OneConnectionServesManyThreads) {
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(path("m.db3"), kKey, 32, true));
  ASSERT_TRUE(conn.Execute("CREATE TABLE t(a)"));
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i) {
        bool ok = conn.Begin() && conn.ExecuteBound("INSERT INTO t VALUES(?)", {t * 100 + i}) &&
                  conn.ExecuteBound("INSERT INTO t VALUES(?)", {-(t * 100 + i)}) && conn.Commit();
        if (!ok) ++failures;
        CSQLite3Recordset rs;
        if (!conn.Execute("SELECT count(*) AS n FROM t", rs) || rs.GetInt("n") % 2 != 0) ++failures;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(count(conn, "t"), 200);
}

class InitDBTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    init.path = path("i.db3");
    init.key.assign(kKey, kKey + 32);
    init.createSql = oxtest::unitTableSql("1.8.0.0") + "CREATE TABLE Users(Name text);";
    for (const char* v : {"1.0.0.0", "1.1.0.0", "1.2.0.0", "1.3.0.0", "1.4.0.0", "1.5.0.0", "1.6.0.0", "1.7.0.0"}) {
      std::string next = std::string("1.") + std::to_string(v[2] - '0' + 1) + ".0.0";
      init.upgrades[v] = oxtest::setVersionSql(next);
    }
  }
  // A database of the given version, made with the wrapper.
  void makeDatabase(const std::string& version) {
    CBaseDBConn conn;
    ASSERT_TRUE(conn.OpenDB(init.path, kKey, 32, true));
    ASSERT_TRUE(conn.Execute(oxtest::unitTableSql(version)));
  }
  std::string version() {
    CBaseDBConn conn;
    std::string v;
    if (!conn.OpenDB(init.path, kKey, 32, true) || !Sqlite3DO::ReadUnitVersion(conn, v)) return "<unreadable>";
    return v;
  }
  oxtest::TestInitManager init;
};

TEST_F(InitDBTest, AMissingFileIsCreatedAtTheTargetVersion) {
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_EQ(version(), "1.8.0.0");
  EXPECT_TRUE(init.asked.empty());
  EXPECT_EQ(oxtest::fileMode(init.path), 0600u);
  // Opened again, nothing is run.
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_TRUE(init.asked.empty());
}

TEST_F(InitDBTest, AnEmptyFileIsANewDatabase) {
  oxtest::writeFile(init.path, "");
  ::chmod(init.path.c_str(), 0666);
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_EQ(version(), "1.8.0.0");
  EXPECT_EQ(oxtest::fileMode(init.path), 0600u);
}

TEST_F(InitDBTest, AFailedCreationLeavesNoHalfBuiltDatabase) {
  init.createSql = oxtest::unitTableSql("1.8.0.0") + "CREATE TABLE Users(Name text); NOT SQL;";
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_FALSE(oxtest::fileExists(init.path));
  EXPECT_FALSE(oxtest::fileExists(init.path + "-journal"));

  oxtest::writeFile(init.path, "");
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_EQ(oxtest::readFile(init.path), "");  // an empty file that was there stays empty

  ::unlink(init.path.c_str());
  init.createSql = oxtest::unitTableSql("1.7.0.0");  // does not reach the target
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_FALSE(oxtest::fileExists(init.path));

  init.hasCreateSql = false;
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_FALSE(oxtest::fileExists(init.path));
}

TEST_F(InitDBTest, AnOldDatabaseClimbsTheLadderOneStepAtATime) {
  makeDatabase("1.0.0.0");
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_EQ(version(), "1.8.0.0");
  EXPECT_EQ(init.asked, (std::vector<std::string>{"1.0.0.0", "1.1.0.0", "1.2.0.0", "1.3.0.0", "1.4.0.0",
                                                  "1.5.0.0", "1.6.0.0", "1.7.0.0"}));
}

TEST_F(InitDBTest, AVersionWithoutAScriptFailsAndStaysAsItWas) {
  makeDatabase("1.0.5.0");
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_EQ(init.asked, std::vector<std::string>{"1.0.5.0"});
  EXPECT_EQ(version(), "1.0.5.0");
}

TEST_F(InitDBTest, AFailingStepLeavesTheLastGoodVersion) {
  makeDatabase("1.0.0.0");
  init.upgrades["1.3.0.0"] = oxtest::setVersionSql("1.4.0.0") + " NOT SQL;";
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_EQ(version(), "1.3.0.0");
  // Repaired, the next run resumes there.
  init.upgrades["1.3.0.0"] = oxtest::setVersionSql("1.4.0.0");
  init.asked.clear();
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_EQ(init.asked.front(), "1.3.0.0");
  EXPECT_EQ(version(), "1.8.0.0");
}

TEST_F(InitDBTest, AStepThatDoesNotRaiseTheVersionFails) {
  makeDatabase("1.0.0.0");
  init.upgrades["1.0.0.0"] = "CREATE TABLE Extra(a);";
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_EQ(init.asked.size(), 1u);
  CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(init.path, kKey, 32, true));
  EXPECT_FALSE(conn.Execute("SELECT * FROM Extra"));  // rolled back
}

TEST_F(InitDBTest, ANewerDatabaseIsAcceptedAsItIs) {
  makeDatabase("2.0.0.0");
  ASSERT_TRUE(init.InitDB(1));
  EXPECT_TRUE(init.asked.empty());
  EXPECT_EQ(version(), "2.0.0.0");
}

TEST_F(InitDBTest, UnreadableFilesFailWithoutBeingTouched) {
  makeDatabase("1.0.0.0");
  const std::string original = oxtest::readFile(init.path);

  init.key.assign(kOtherKey, kOtherKey + 32);  // another key
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_FALSE(init.InitDB(0));  // or none
  EXPECT_TRUE(oxtest::readFile(init.path) == original);
  init.key.assign(kKey, kKey + 32);

  oxtest::writeFile(init.path, original.substr(0, original.size() / 2));  // truncated
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_TRUE(oxtest::readFile(init.path) == original.substr(0, original.size() / 2));

  oxtest::writeFile(init.path, "SQLite format 3" + std::string(2000, 'x'));  // not a database
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_EQ(oxtest::readFile(init.path), "SQLite format 3" + std::string(2000, 'x'));

  oxtest::writeFile(init.path, original);
  {
    oxtest::UnwritableEnv env(".db3");
    oxtest::ScopedEnv scoped(&env);
    EXPECT_FALSE(init.InitDB(1));
  }
  EXPECT_TRUE(oxtest::readFile(init.path) == original);
  EXPECT_TRUE(init.asked.empty());

  // A database without the version row.
  ::unlink(init.path.c_str());
  {
    CBaseDBConn conn;
    ASSERT_TRUE(conn.OpenDB(init.path, kKey, 32, true));
    ASSERT_TRUE(conn.Execute("CREATE TABLE Other(a)"));
  }
  EXPECT_FALSE(init.InitDB(1));
  EXPECT_TRUE(oxtest::fileExists(init.path));
}

}  // namespace
