// Creating a database at the version the software expects, or lifting an
// older one step by step, one process at a time.
#include <cstring>
#include <new>

#include "platform/file_lock.h"
#include "platform/secure_wipe.h"
#include "platform/sqlite3do_internal.h"
#include "platform/xlog.h"

namespace Sqlite3DO {

namespace {

// A schema that never stops climbing is a broken script table, not a reason
// to loop forever.
constexpr int kMaxUpgradeSteps = 1000;

// What GetDBKey may fill.
constexpr size_t kKeyBufferSize = 1024;

}  // namespace

bool ReadUnitVersion(CBaseDBConn& conn, std::string& version) {
  try {
    CSQLite3Recordset rs;
    if (!conn.Execute("SELECT Value FROM Unit WHERE Key = 'version';", rs) || rs.IsEOF()) return false;
    version = rs.GetString("Value");
    return true;
  } catch (...) {
    return false;
  }
}

bool SchemaIsEmpty(CBaseDBConn& conn, bool& empty) {
  try {
    CSQLite3Recordset rs;
    if (!conn.Execute("SELECT count(*) AS n FROM sqlite_master;", rs) || rs.IsEOF()) return false;
    empty = rs.GetInt64("n") == 0;
    return true;
  } catch (...) {
    return false;
  }
}

bool CBaseDBInitManager::InitDB(int useKey) {
  try {
    std::string path;
    if (!GetDBUtf8Path(path) || path.empty()) {
      OXLOG(5, "[%s(%d)] no database path");
      return false;
    }
    const CDBVersion target = GetDBTargetVersion();
    if (!target.IsValid()) {
      OXLOG(5, "[%s(%d)] invalid target version[%s], path[%s]", target.ToString().c_str(), path.c_str());
      return false;
    }

    // From before the file is opened (or created) until the schema is
    // committed: another process opening the file meanwhile would find it
    // half-made.
    OxBase::FileLock lock(OxBase::LockPathFor(path));
    if (!lock.ok()) {
      OXLOG(5, "[%s(%d)] lock database failed, path[%s],error[%d]", path.c_str(), lock.error());
      return false;
    }
    CBaseDBConn conn;
    if (!OpenForInit(conn, path, useKey)) return false;

    // New is read from the schema, not the file's size: a creation that was
    // killed half-way leaves a file that SQLite rolls back to no table at all.
    bool fresh = false;
    if (!SchemaIsEmpty(conn, fresh)) {
      OXLOG(5, "[%s(%d)] read database schema failed, path[%s]", path.c_str());
      return false;
    }
    if (!fresh) return UpgradeStepByStep(conn, path, target);
    if (CreateInOneTransaction(conn, path, target)) return true;
    if (conn.CreatedFile()) {
      conn.CloseDB();
      internal::RemoveDatabaseFile(path);
    }
    return false;
  } catch (...) {
    OXLOG(5, "[%s(%d)] init database failed: out of memory");
    return false;
  }
}

bool CBaseDBInitManager::OpenForInit(CBaseDBConn& conn, const std::string& path, int useKey) {
  unsigned char key[kKeyBufferSize];
  OxBase::ScopedWipe wipe(key, sizeof key);
  std::memset(key, 0, sizeof key);
  int len = 0;
  if (useKey) GetDBKey(key, len);
  return conn.OpenDB(path, key, len, useKey != 0);
}

bool CBaseDBInitManager::CreateInOneTransaction(CBaseDBConn& conn, const std::string& path,
                                                const CDBVersion& target) {
  std::string sql;
  if (!GetDBTargetVerCreatSql(sql)) {
    OXLOG(5, "[%s(%d)] no creation script for version[%s], path[%s]", target.ToString().c_str(), path.c_str());
    return false;
  }
  // One transaction: a database is either complete at the target version or
  // has no table at all.
  if (!conn.Begin()) return false;
  std::string version;
  if (!conn.Execute(sql) || !ReadUnitVersion(conn, version) || CDBVersion(version) != target) {
    OXLOG(5, "[%s(%d)] create database failed, path[%s]", path.c_str());
    conn.Rollback();
    return false;
  }
  if (!conn.Commit()) {
    conn.Rollback();
    return false;
  }
  OXLOG(3, "[%s(%d)] database created, path[%s],version[%s]", path.c_str(), version.c_str());
  return true;
}

bool CBaseDBInitManager::UpgradeStepByStep(CBaseDBConn& conn, const std::string& path, const CDBVersion& target) {
  std::string version;
  if (!ReadUnitVersion(conn, version)) {
    OXLOG(5, "[%s(%d)] read database version failed, path[%s]", path.c_str());
    return false;
  }
  for (int step = 0; CDBVersion(version) < target; ++step) {
    std::string sql;
    if (step >= kMaxUpgradeSteps || !getDBTargetVerUpgradeSql(sql, version)) {
      OXLOG(5, "[%s(%d)] no upgrade script for version[%s], path[%s]", version.c_str(), path.c_str());
      return false;
    }
    // Each step in its own transaction: a failed step leaves the version of
    // the step before, and the next start tries again from there.
    if (!conn.Begin()) return false;
    std::string next;
    if (!conn.Execute(sql) || !ReadUnitVersion(conn, next) || !(CDBVersion(next) > CDBVersion(version))) {
      OXLOG(5, "[%s(%d)] upgrade database failed, path[%s],version[%s]", path.c_str(), version.c_str());
      conn.Rollback();
      return false;
    }
    if (!conn.Commit()) {
      conn.Rollback();
      return false;
    }
    OXLOG(3, "[%s(%d)] database upgraded, path[%s],version[%s]->[%s]", path.c_str(), version.c_str(),
          next.c_str());
    version = next;
  }
  return true;
}

}  // namespace Sqlite3DO
