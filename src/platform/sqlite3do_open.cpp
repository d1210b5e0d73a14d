// Opening a database: the file born 0600 through the Env, the raw SQLCipher
// key, and the checks that the key fits and the file is whole.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/env.h"
#include "platform/hex.h"
#include "platform/secure_wipe.h"
#include "platform/sqlite3do_internal.h"
#include "platform/xlog.h"

namespace Sqlite3DO {

namespace {

// Raw-key form understood by SQLCipher: x'<64 hex digits>'. The key bytes
// are used as they are, without passphrase derivation.
constexpr int kRawKeyBytes = 32;
constexpr int kRawKeyTextLen = 2 + 2 * kRawKeyBytes + 1;

// Integer result of a one-row pragma; -1 on failure.
int64_t PragmaInt(sqlite3* db, const char* sql) {
  internal::StatementPtr stmt;
  const char* tail = nullptr;
  const char* end = sql + std::char_traits<char>::length(sql);
  if (internal::PrepareNext(db, sql, end, stmt, &tail) != SQLITE_OK || !stmt) return -1;
  return sqlite3_step(stmt.get()) == SQLITE_ROW ? sqlite3_column_int64(stmt.get(), 0) : -1;
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

}  // namespace

void internal::RemoveDatabaseFile(const std::string& path) noexcept {
  OxBase::Env* env = OxBase::Env::Current();
  env->Unlink(path);
  try {
    env->Unlink(path + "-journal");
  } catch (...) {
    // Out of memory: a journal without its database is ignored by SQLite.
  }
}

void internal::CloseConnection::operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }

CBaseDBConn::CBaseDBConn() = default;

CBaseDBConn::~CBaseDBConn() { CloseDB(); }

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
  m_db.reset();
}

bool CBaseDBConn::OpenDB(const std::string& path, const unsigned char* key, int len, bool useKey) {
  std::string newPath;
  try {
    newPath = path;  // allocated before the connection is locked
  } catch (...) {
    OXLOG(5, "[%s(%d)] open database failed: out of memory");
    return false;
  }
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock) {
    OXLOG(5, "[%s(%d)] open database failed: connection busy, path[%s]", newPath.c_str());
    return false;
  }
  CloseLocked();
  m_path.swap(newPath);
  m_createdFile = false;
  m_lastError = SQLITE_CANTOPEN;
  if (m_path.empty()) {
    OXLOG(5, "[%s(%d)] open database failed: empty path");
    return false;
  }
  if (useKey && (!key || len != kRawKeyBytes)) {
    OXLOG(5, "[%s(%d)] open database failed: key length[%d] is not %d, path[%s]", len, kRawKeyBytes,
          m_path.c_str());
    return false;
  }
  bool ok = false;
  try {
    ok = PrepareFile(m_path) && ConnectAndKey(m_path, key, useKey) && CheckReadable(m_path);
  } catch (...) {
    m_lastError = SQLITE_NOMEM;
    OXLOG(5, "[%s(%d)] open database failed: out of memory, path[%s]", m_path.c_str());
  }
  if (ok) {
    m_lastError = 0;
    return true;
  }
  m_db.reset();
  if (m_createdFile) internal::RemoveDatabaseFile(m_path);
  m_createdFile = false;
  return false;
}

// Creates the file ourselves so it is born 0600 (SQLite would use 0644 less
// umask), tightens a looser existing one, and proves through the environment
// that it can be written.
bool CBaseDBConn::PrepareFile(const std::string& path) {
  OxBase::Env* env = OxBase::Env::Current();
  int fd = env->Open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0) {
    m_createdFile = true;
  } else if (errno == EEXIST) {
    fd = env->Open(path, O_RDWR | O_CLOEXEC, 0);
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
  if (!ok) OXLOG(5, "[%s(%d)] open database file failed, path[%s],error[%d]", path.c_str(), saved);
  return ok;
}

bool CBaseDBConn::ConnectAndKey(const std::string& path, const unsigned char* key, bool useKey) {
  // The file exists now: SQLite must not create one of its own.
  sqlite3* raw = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  m_db.reset(raw);  // a handle comes back even when the open fails
  if (rc != SQLITE_OK) {
    m_lastError = rc;
    OXLOG(5, "[%s(%d)] open database failed, path[%s],error[%d],msg[%s]", path.c_str(), rc, sqlite3_errstr(rc));
    return false;
  }
  sqlite3_extended_result_codes(m_db.get(), 1);
  if (sqlite3_db_readonly(m_db.get(), "main") == 1) {
    m_lastError = SQLITE_READONLY;
    OXLOG(5, "[%s(%d)] open database failed: read-only, path[%s]", path.c_str());
    return false;
  }
  sqlite3_busy_timeout(m_db.get(), m_busyTimeoutMs);
  if (!useKey) return true;

  char text[kRawKeyTextLen + 1];
  OxBase::ScopedWipe wipe(text, sizeof text);
  text[0] = 'x';
  text[1] = '\'';
  convertByteArrayToCharArray(key, kRawKeyBytes, text + 2, 2 * kRawKeyBytes);
  text[kRawKeyTextLen - 1] = '\'';
  text[kRawKeyTextLen] = '\0';
  rc = sqlite3_key(m_db.get(), text, kRawKeyTextLen);
  if (rc != SQLITE_OK) {
    m_lastError = rc;
    OXLOG(5, "[%s(%d)] set database key failed, path[%s],error[%d]", path.c_str(), rc);
    return false;
  }
  return true;
}

// A wrong key (or a file that is no database) shows only at the first read;
// that read also rolls back what a killed writer left in a hot journal.
bool CBaseDBConn::CheckReadable(const std::string& path) {
  int rc = sqlite3_exec(m_db.get(), "SELECT count(*) FROM sqlite_master;", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) {
    m_lastError = rc;
    OXLOG(5, "[%s(%d)] database cannot be read (not a database, or another key), path[%s],error[%d]",
          path.c_str(), rc);
    return false;
  }
  int64_t size = 0, pages = 0, pageSize = 0;
  if (LooksTruncated(m_db.get(), path, &size, &pages, &pageSize)) {
    m_lastError = SQLITE_CORRUPT;
    OXLOG(5, "[%s(%d)] database file is truncated, path[%s],size[%lld],pages[%lld]x[%lld]", path.c_str(),
          static_cast<long long>(size), static_cast<long long>(pages), static_cast<long long>(pageSize));
    return false;
  }
  return true;
}

}  // namespace Sqlite3DO
