// The SQLite wrapper's own rules, on real database files. Keys, upgrade
// ladders and unusable files are pinned through the library's start
// (tests/db).
#include "platform/sqlite3do.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/file_lock.h"

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

TEST_F(InitDBTest, ACreationKilledHalfWayIsRolledBackAndMadeAgain) {
  const std::string db = path("k.db3");
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Enough rows that SQLite spills pages into the file before the commit,
    // then a query that never ends: the creation is caught mid-transaction.
    ScriptedInit init(db);
    init.createSql +=
        "CREATE TABLE Filler(b);"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) "
        "INSERT INTO Filler SELECT randomblob(1000) FROM n;"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n;";
    ::_exit(init.InitDB(0) ? 0 : 1);
  }
  struct stat st;
  for (int i = 0; i < 1000 && !(::stat(db.c_str(), &st) == 0 && st.st_size > (1 << 20) &&
                                oxtest::fileExists(db + "-journal"));
       ++i) {
    ::usleep(10000);
  }
  ::kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_GT(::stat(db.c_str(), &st) == 0 ? st.st_size : 0, 1 << 20);  // pages of the creation are in the file
  ASSERT_TRUE(oxtest::fileExists(db + "-journal"));

  ScriptedInit init(db);
  oxtest::LogCapture log;
  ASSERT_TRUE(init.InitDB(0));
  EXPECT_TRUE(log.contains("database created"));
  CBaseDBConn conn;
  CSQLite3Recordset rs;
  ASSERT_TRUE(conn.OpenDB(db, nullptr, 0, false));
  ASSERT_TRUE(conn.Execute("SELECT group_concat(name) AS t FROM sqlite_master", rs));
  EXPECT_EQ(rs.GetString("t"), "Unit");
}

TEST_F(InitDBTest, NothingIsOpenedWhileAnotherHolderHasTheLockFile) {
  const std::string db = path("l.db3");
  ScriptedInit init(db);
  auto held = std::make_unique<OxBase::FileLock>(OxBase::LockPathFor(db));
  ASSERT_TRUE(held->ok());
  std::atomic<bool> done{false};
  bool created = false;
  std::thread starter([&] {
    created = init.InitDB(0);
    done = true;
  });
  ::usleep(100000);
  EXPECT_FALSE(done);
  EXPECT_FALSE(oxtest::fileExists(db));
  held.reset();
  starter.join();
  EXPECT_TRUE(created);
}

// A lock file that cannot be opened stops the creation with a log line,
// before the database file is touched.
class NoLockEnv : public OxBase::EnvWrapper {
 public:
  NoLockEnv() : EnvWrapper(OxBase::Env::Current()) {}
  int Open(const std::string& p, int f, mode_t m) override {
    if (p.find(".lock") != std::string::npos) {
      errno = EACCES;
      return -1;
    }
    return EnvWrapper::Open(p, f, m);
  }
};

TEST_F(InitDBTest, ALockFileThatCannotBeOpenedStopsTheCreation) {
  const std::string db = path("n.db3");
  ScriptedInit init(db);
  NoLockEnv env;
  oxtest::ScopedEnv scoped(&env);
  oxtest::LogCapture log;
  EXPECT_FALSE(init.InitDB(0));
  EXPECT_TRUE(log.has(5, "lock database failed, path[" + db + "],error[" + std::to_string(EACCES) + "]"));
  EXPECT_FALSE(oxtest::fileExists(db));
}

TEST_F(DBConnTest, ARowHandlerThatThrowsLeavesNoStatementBehind) {
  ASSERT_TRUE(conn.Execute("INSERT INTO t VALUES('a', 1); INSERT INTO t VALUES('b', 2)"));
  int seen = 0;
  oxtest::LogCapture log;
  EXPECT_FALSE(conn.ExecuteEach("SELECT name FROM t ORDER BY n", {}, [&](const CSQLite3Recordset& row) -> bool {
    ++seen;
    if (row.GetString("name") == "a") throw std::runtime_error("handler gave up");
    return true;
  }));
  EXPECT_EQ(seen, 1);
  EXPECT_FALSE(log.contains("handler gave up"));
  // The query's read lock is gone: another connection can write at once.
  CBaseDBConn other;
  ASSERT_TRUE(other.OpenDB(path("t.db3"), nullptr, 0, false));
  EXPECT_TRUE(other.Execute("INSERT INTO t VALUES('c', 3)", 0));
  // And this one runs, begins and ends transactions as before.
  ASSERT_TRUE(conn.Begin());
  ASSERT_TRUE(conn.Execute("DELETE FROM t WHERE n = 3"));
  ASSERT_TRUE(conn.Commit());
  EXPECT_EQ(rows(), 2);

  // Rows arrive one at a time; false from the handler stops early.
  std::vector<std::string> names;
  EXPECT_TRUE(conn.ExecuteEach("SELECT name FROM t WHERE n >= ? ORDER BY n", {1}, [&](const CSQLite3Recordset& row) {
    names.push_back(row.GetString("name"));
    return false;
  }));
  EXPECT_EQ(names, std::vector<std::string>{"a"});
}

}  // namespace
