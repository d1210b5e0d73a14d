#include "platform/sqlite3do.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "platform/env.h"
#include "platform/hex.h"
#include "platform/xlog.h"

namespace Sqlite3DO {

namespace {

// Raw-key form understood by SQLCipher: x'<64 hex digits>'. The key bytes
// are used as they are, without passphrase derivation.
constexpr int kRawKeyBytes = 32;
constexpr int kRawKeyTextLen = 2 + 2 * kRawKeyBytes + 1;

// A schema that never stops climbing is a broken script table, not a reason
// to loop forever.
constexpr int kMaxUpgradeSteps = 1000;

bool IsBlankSql(const char* p, const char* end) {
  for (; p < end; ++p) {
    if (*p != ' ' && *p != '\t' && *p != '\r' && *p != '\n' && *p != ';') return false;
  }
  return true;
}

// Integer result of a one-row pragma; -1 on failure.
int64_t PragmaInt(sqlite3* db, const char* sql) {
  sqlite3_stmt* stmt = nullptr;
  int64_t value = -1;
  if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
    value = sqlite3_column_int64(stmt, 0);
  }
  sqlite3_finalize(stmt);
  return value;
}

// A file shorter than the pages its header counts (or not a whole number of
// pages) lost its tail: the pages a start happens to read may all be intact,
// and writing to such a file would make things worse, so it is refused.
// Pages kept in a write-ahead log are not in the file: not checked then.
bool LooksTruncated(sqlite3* db, const std::string& path, int64_t* size, int64_t* pages, int64_t* pageSize) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return false;
  *size = static_cast<int64_t>(st.st_size);
  *pages = PragmaInt(db, "PRAGMA page_count;");
  *pageSize = PragmaInt(db, "PRAGMA page_size;");
  if (*pages <= 0 || *pageSize <= 0) return false;
  if (::access((path + "-wal").c_str(), F_OK) == 0) return false;
  return *size < *pages * *pageSize || *size % *pageSize != 0;
}

void RemoveFile(const std::string& path) {
  OxBase::Env* env = OxBase::Env::Current();
  env->Unlink(path);
  env->Unlink(path + "-journal");
}

}  // namespace

// ---- CDBVersion -------------------------------------------------------------

CDBVersion::CDBVersion(const std::string& text) : m_text(text) {
  if (text.empty()) return;
  uint64_t value = 0;
  bool digits = false;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '.') {
      if (!digits) return;  // empty part: "1..2", ".1", "1."
      m_parts.push_back(static_cast<uint32_t>(value));
      value = 0;
      digits = false;
    } else if (text[i] >= '0' && text[i] <= '9') {
      value = value * 10 + static_cast<uint64_t>(text[i] - '0');
      if (value > UINT32_MAX) return;
      digits = true;
    } else {
      return;
    }
  }
  m_valid = true;
}

int CDBVersion::Compare(const CDBVersion& other) const {
  if (!m_valid || !other.m_valid) return static_cast<int>(m_valid) - static_cast<int>(other.m_valid);
  size_t n = m_parts.size() > other.m_parts.size() ? m_parts.size() : other.m_parts.size();
  for (size_t i = 0; i < n; ++i) {
    uint32_t a = i < m_parts.size() ? m_parts[i] : 0;
    uint32_t b = i < other.m_parts.size() ? other.m_parts[i] : 0;
    if (a != b) return a < b ? -1 : 1;
  }
  return 0;
}

// ---- CSQLite3Recordset --------------------------------------------------------

bool CSQLite3Recordset::Next() {
  if (m_row < m_rows.size()) ++m_row;
  return !IsEOF();
}

const CSQLite3Recordset::Cell* CSQLite3Recordset::Find(const std::string& name) const {
  if (IsEOF()) return nullptr;
  for (size_t i = 0; i < m_columns.size(); ++i) {
    if (strcasecmp(m_columns[i].c_str(), name.c_str()) == 0) return &m_rows[m_row][i];
  }
  return nullptr;
}

int CSQLite3Recordset::GetInt(const std::string& name) const {
  return static_cast<int>(GetInt64(name));
}

int64_t CSQLite3Recordset::GetInt64(const std::string& name) const {
  const Cell* c = Find(name);
  return c && !c->null ? c->integer : 0;
}

std::string CSQLite3Recordset::GetString(const std::string& name) const {
  const Cell* c = Find(name);
  return c && !c->null ? c->text : std::string();
}

bool CSQLite3Recordset::IsNull(const std::string& name) const {
  const Cell* c = Find(name);
  return !c || c->null;
}

void CSQLite3Recordset::Clear() {
  m_columns.clear();
  m_rows.clear();
  m_row = 0;
}

// ---- CBaseDBConn --------------------------------------------------------------

bool CBaseDBConn::OwnerMutex::LockFor(int timeoutMs) {
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_depth > 0 && m_owner != self) {
    if (timeoutMs <= 0) return false;
    if (!m_released.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return m_depth == 0; })) {
      return false;
    }
  }
  m_owner = self;
  ++m_depth;
  return true;
}

void CBaseDBConn::OwnerMutex::Unlock() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_depth > 0 && --m_depth == 0) {
    m_owner = std::thread::id();
    m_released.notify_all();  // a woken waiter may just have timed out
  }
}

// Takes the connection's mutex, waiting at most the given time.
class CBaseDBConn::Lock {
 public:
  Lock(const CBaseDBConn& conn, int timeoutMs) : m_mutex(conn.m_mutex), m_ok(m_mutex.LockFor(timeoutMs)) {}
  ~Lock() {
    if (m_ok) m_mutex.Unlock();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  explicit operator bool() const { return m_ok; }

 private:
  OwnerMutex& m_mutex;
  bool m_ok;
};

CBaseDBConn::CBaseDBConn() = default;

CBaseDBConn::~CBaseDBConn() { CloseDB(); }

// Statement failures are warnings here: the caller decides how grave they
// are and logs in its own words. Neither the statement text nor bound values
// are logged (they may carry credentials).
void CBaseDBConn::Fail(const char* func, int line, const char* what, int rc) {
  m_lastError = rc;
  xlog_format(4, "OXW", "[%s(%d)] %s failed, path[%s],error[%d],msg[%s]", func, line, what,
              m_path.c_str(), rc, m_db ? sqlite3_errmsg(m_db) : sqlite3_errstr(rc));
}

bool CBaseDBConn::IsOpen() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock && m_db != nullptr;
}

void CBaseDBConn::CloseDB() {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    OXLOG(5, "[%s(%d)] close database failed: a transaction of another thread is open, path[%s]",
          m_path.c_str());
    return;
  }
  CloseLocked();
}

void CBaseDBConn::CloseLocked() {
  if (!m_db) return;
  // Closing rolls back an open transaction; drop the level of the mutex that
  // the transaction held.
  if (m_txnOwner == std::this_thread::get_id()) {
    m_txnOwner = std::thread::id();
    m_mutex.Unlock();
  }
  sqlite3_close_v2(m_db);
  m_db = nullptr;
}

bool CBaseDBConn::OpenDB(const std::string& path, const unsigned char* key, int len, bool useKey) {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    OXLOG(5, "[%s(%d)] open database failed: connection busy, path[%s]", path.c_str());
    return false;
  }
  CloseLocked();
  m_path = path;
  m_createdFile = false;
  m_lastError = SQLITE_CANTOPEN;
  if (path.empty()) {
    OXLOG(5, "[%s(%d)] open database failed: empty path");
    return false;
  }
  if (useKey && (!key || len != kRawKeyBytes)) {
    OXLOG(5, "[%s(%d)] open database failed: key length[%d] is not %d, path[%s]", len,
          kRawKeyBytes, path.c_str());
    return false;
  }

  // Create the file ourselves so it is born 0600 (SQLite would use 0644 less
  // umask), and prove through the environment that it can be written.
  OxBase::Env* env = OxBase::Env::Current();
  int fd = env->Open(path, O_RDWR | O_CREAT | O_EXCL, 0600);
  if (fd >= 0) {
    m_createdFile = true;
  } else if (errno == EEXIST) {
    fd = env->Open(path, O_RDWR, 0);
  }
  if (fd < 0) {
    OXLOG(5, "[%s(%d)] open database file failed, path[%s],error[%d]", path.c_str(), errno);
    return false;
  }
  struct stat st;
  bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  if (ok && (m_createdFile || (st.st_mode & 077) != 0)) ok = env->Fchmod(fd, 0600) == 0;
  int saved = errno;
  env->Close(fd);
  auto giveUp = [&]() {
    if (m_db) {
      sqlite3_close_v2(m_db);
      m_db = nullptr;
    }
    if (m_createdFile) RemoveFile(path);
    m_createdFile = false;
    return false;
  };
  if (!ok) {
    OXLOG(5, "[%s(%d)] open database file failed, path[%s],error[%d]", path.c_str(), saved);
    return giveUp();
  }

  // The file exists now: SQLite must not create one of its own.
  int rc = sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    m_lastError = rc;
    OXLOG(5, "[%s(%d)] open database failed, path[%s],error[%d],msg[%s]", path.c_str(), rc,
          sqlite3_errstr(rc));
    return giveUp();
  }
  sqlite3_extended_result_codes(m_db, 1);
  if (sqlite3_db_readonly(m_db, "main") == 1) {
    m_lastError = SQLITE_READONLY;
    OXLOG(5, "[%s(%d)] open database failed: read-only, path[%s]", path.c_str());
    return giveUp();
  }
  sqlite3_busy_timeout(m_db, m_busyTimeoutMs);

  if (useKey) {
    char text[kRawKeyTextLen + 1];
    text[0] = 'x';
    text[1] = '\'';
    convertByteArrayToCharArray(key, kRawKeyBytes, text + 2, 2 * kRawKeyBytes);
    text[kRawKeyTextLen - 1] = '\'';
    text[kRawKeyTextLen] = '\0';
    rc = sqlite3_key(m_db, text, kRawKeyTextLen);
    OPENSSL_cleanse(text, sizeof text);
    if (rc != SQLITE_OK) {
      m_lastError = rc;
      OXLOG(5, "[%s(%d)] set database key failed, path[%s],error[%d]", path.c_str(), rc);
      return giveUp();
    }
  }

  // A wrong key (or a file that is no database) shows only at the first read.
  rc = sqlite3_exec(m_db, "SELECT count(*) FROM sqlite_master;", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) {
    m_lastError = rc;
    OXLOG(5, "[%s(%d)] database cannot be read (not a database, or another key), path[%s],error[%d]",
          path.c_str(), rc);
    return giveUp();
  }
  int64_t size = 0, pages = 0, pageSize = 0;
  if (LooksTruncated(m_db, path, &size, &pages, &pageSize)) {
    m_lastError = SQLITE_CORRUPT;
    OXLOG(5, "[%s(%d)] database file is truncated, path[%s],size[%lld],pages[%lld]x[%lld]", path.c_str(),
          static_cast<long long>(size), static_cast<long long>(pages), static_cast<long long>(pageSize));
    return giveUp();
  }
  m_lastError = 0;
  return true;
}

#define FAIL(what, rc) Fail(__FUNCTION__, __LINE__, (what), (rc))

bool CBaseDBConn::RunLocked(const std::string& sql, const std::vector<CDBParam>* params,
                            CSQLite3Recordset* rs, bool single) {
  if (rs) rs->Clear();
  if (!m_db) {
    m_lastError = SQLITE_MISUSE;
    OXLOG(4, "[%s(%d)] database is not open, path[%s]", m_path.c_str());
    return false;
  }
  if (sql.size() > static_cast<size_t>(INT_MAX)) {
    FAIL("prepare", SQLITE_TOOBIG);
    return false;
  }
  const char* p = sql.c_str();
  const char* end = p + sql.size();
  int statements = 0;
  while (p < end && !IsBlankSql(p, end)) {
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v2(m_db, p, static_cast<int>(end - p), &stmt, &tail);
    if (rc != SQLITE_OK) {
      if (stmt) sqlite3_finalize(stmt);
      FAIL("prepare", rc);
      return false;
    }
    p = tail ? tail : end;
    if (!stmt) continue;  // a comment or an empty statement
    ++statements;
    // A single statement must be alone: nothing may follow it, so a bound
    // statement can never be followed by text that runs with it.
    if (single && !IsBlankSql(p, end)) ++statements;
    int wanted = sqlite3_bind_parameter_count(stmt);
    int given = params && statements == 1 ? static_cast<int>(params->size()) : 0;
    if ((single && statements > 1) || wanted != given) {
      sqlite3_finalize(stmt);
      FAIL(single && statements > 1 ? "single statement" : "parameter count", SQLITE_MISUSE);
      return false;
    }
    for (int i = 0; i < given; ++i) {
      const CDBParam& v = (*params)[static_cast<size_t>(i)];
      if (v.m_kind == CDBParam::kText) {
        rc = sqlite3_bind_text(stmt, i + 1, v.m_text.data(), static_cast<int>(v.m_text.size()),
                               SQLITE_TRANSIENT);
      } else if (v.m_kind == CDBParam::kInt) {
        rc = sqlite3_bind_int64(stmt, i + 1, v.m_int);
      } else {
        rc = sqlite3_bind_null(stmt, i + 1);
      }
      if (rc != SQLITE_OK) {
        sqlite3_finalize(stmt);
        FAIL("bind", rc);
        return false;
      }
    }
    const int columns = sqlite3_column_count(stmt);
    if (rs && columns > 0) {
      rs->Clear();
      for (int c = 0; c < columns; ++c) {
        const char* name = sqlite3_column_name(stmt, c);
        rs->m_columns.emplace_back(name ? name : "");
      }
    }
    for (;;) {
      rc = sqlite3_step(stmt);
      if (rc == SQLITE_DONE) break;
      if (rc != SQLITE_ROW) {
        sqlite3_finalize(stmt);
        FAIL("execute", rc);
        return false;
      }
      if (!rs || columns == 0) continue;
      std::vector<CSQLite3Recordset::Cell> row(static_cast<size_t>(columns));
      for (int c = 0; c < columns; ++c) {
        CSQLite3Recordset::Cell& cell = row[static_cast<size_t>(c)];
        if (sqlite3_column_type(stmt, c) == SQLITE_NULL) continue;
        cell.null = false;
        cell.integer = sqlite3_column_int64(stmt, c);
        const unsigned char* text = sqlite3_column_text(stmt, c);
        int bytes = sqlite3_column_bytes(stmt, c);
        if (text && bytes > 0) cell.text.assign(reinterpret_cast<const char*>(text), static_cast<size_t>(bytes));
      }
      rs->m_rows.push_back(std::move(row));
    }
    sqlite3_finalize(stmt);
  }
  if (params && statements == 0) {
    FAIL("prepare", SQLITE_MISUSE);
    return false;
  }
  m_lastError = 0;
  return true;
}

// After every statement: the thread that opened a transaction keeps one level
// of the mutex until SQLite is back in autocommit mode (COMMIT, ROLLBACK, or
// a failure that ended the transaction), whatever statement did it.
#define OXDB_SYNC_TXN()                                                       \
  do {                                                                        \
    bool inTxn = m_db && !sqlite3_get_autocommit(m_db);                       \
    if (inTxn && m_txnOwner == std::thread::id()) {                           \
      m_mutex.LockFor(0); /* already held by this thread: never waits */      \
      m_txnOwner = std::this_thread::get_id();                                \
    } else if (!inTxn && m_txnOwner == std::this_thread::get_id()) {          \
      m_txnOwner = std::thread::id();                                         \
      m_mutex.Unlock();                                                       \
    }                                                                         \
  } while (0)

bool CBaseDBConn::Execute(const std::string& sql) {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    OXLOG(4, "[%s(%d)] database connection busy, path[%s]", m_path.c_str());
    return false;
  }
  bool ok = RunLocked(sql, nullptr, nullptr, false);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::Execute(const std::string& sql, CSQLite3Recordset& rs) {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    rs.Clear();
    OXLOG(4, "[%s(%d)] database connection busy, path[%s]", m_path.c_str());
    return false;
  }
  bool ok = RunLocked(sql, nullptr, &rs, false);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::Execute(const std::string& sql, int busyTimeoutMs) {
  if (busyTimeoutMs < 0) busyTimeoutMs = 0;
  Lock lock(*this, busyTimeoutMs);
  if (!lock) {
    OXLOG(4, "[%s(%d)] database connection busy, path[%s]", m_path.c_str());
    return false;
  }
  if (m_db) sqlite3_busy_timeout(m_db, busyTimeoutMs);
  bool ok = RunLocked(sql, nullptr, nullptr, false);
  if (m_db) sqlite3_busy_timeout(m_db, m_busyTimeoutMs);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params) {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    OXLOG(4, "[%s(%d)] database connection busy, path[%s]", m_path.c_str());
    return false;
  }
  bool ok = RunLocked(sql, &params, nullptr, true);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params,
                               CSQLite3Recordset& rs) {
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    rs.Clear();
    OXLOG(4, "[%s(%d)] database connection busy, path[%s]", m_path.c_str());
    return false;
  }
  bool ok = RunLocked(sql, &params, &rs, true);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::Begin() { return Execute("BEGIN IMMEDIATE;"); }

bool CBaseDBConn::Commit() {
  if (m_txnOwner.load() != std::this_thread::get_id()) return false;
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock || m_txnOwner != std::this_thread::get_id()) return false;
  bool ok = RunLocked("COMMIT;", nullptr, nullptr, false);
  OXDB_SYNC_TXN();
  return ok;
}

bool CBaseDBConn::Rollback() {
  if (m_txnOwner.load() != std::this_thread::get_id()) return false;
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock || m_txnOwner != std::this_thread::get_id()) return false;
  bool ok = RunLocked("ROLLBACK;", nullptr, nullptr, false);
  OXDB_SYNC_TXN();
  return ok;
}

#undef OXDB_SYNC_TXN

bool CBaseDBConn::InTransaction() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock && m_db && !sqlite3_get_autocommit(m_db);
}

int CBaseDBConn::Changes() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock && m_db ? sqlite3_changes(m_db) : 0;
}

int CBaseDBConn::LastError() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock ? m_lastError : SQLITE_BUSY;
}

// ---- CBaseDBInitManager -------------------------------------------------------

bool ReadUnitVersion(CBaseDBConn& conn, std::string& version) {
  CSQLite3Recordset rs;
  if (!conn.Execute("SELECT Value FROM Unit WHERE Key = 'version';", rs) || rs.IsEOF()) return false;
  version = rs.GetString("Value");
  return true;
}

bool CBaseDBInitManager::InitDB(int useKey) {
  std::string path;
  if (!GetDBUtf8Path(path) || path.empty()) {
    OXLOG(5, "[%s(%d)] no database path");
    return false;
  }
  CDBVersion target = GetDBTargetVersion();
  if (!target.IsValid()) {
    OXLOG(5, "[%s(%d)] invalid target version[%s], path[%s]", target.ToString().c_str(), path.c_str());
    return false;
  }

  // New database: the file is missing or empty.
  struct stat st;
  bool fresh = ::stat(path.c_str(), &st) != 0 ? errno == ENOENT : st.st_size == 0;

  CBaseDBConn conn;
  bool opened;
  {
    unsigned char key[1024];
    std::memset(key, 0, sizeof key);
    int len = 0;
    if (useKey) GetDBKey(key, len);
    opened = conn.OpenDB(path, key, len, useKey != 0);
    OPENSSL_cleanse(key, sizeof key);
  }
  if (!opened) return false;

  if (fresh) {
    bool created = CreateLocked(conn, path, target);
    if (!created && conn.CreatedFile()) {
      conn.CloseDB();
      RemoveFile(path);
    }
    return created;
  }
  return UpgradeLocked(conn, path, target);
}

bool CBaseDBInitManager::CreateLocked(CBaseDBConn& conn, const std::string& path,
                                      const CDBVersion& target) {
  std::string sql;
  if (!GetDBTargetVerCreatSql(sql)) {
    OXLOG(5, "[%s(%d)] no creation script for version[%s], path[%s]", target.ToString().c_str(),
          path.c_str());
    return false;
  }
  // One transaction: a database is either complete at the target version or
  // not there at all.
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

bool CBaseDBInitManager::UpgradeLocked(CBaseDBConn& conn, const std::string& path,
                                       const CDBVersion& target) {
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
