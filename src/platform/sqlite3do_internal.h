// What the files of the SQLite wrapper share: owners of SQLite handles, the
// row sinks a runner feeds, and the binding of parameters. Not for use
// outside src/platform/sqlite3do_*.cpp.
#ifndef OXCFG_PLATFORM_SQLITE3DO_INTERNAL_H
#define OXCFG_PLATFORM_SQLITE3DO_INTERNAL_H

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sqlite3do.h"

namespace Sqlite3DO {
namespace internal {

// Owns a prepared statement: finalised on every path out of its scope, an
// exception included, so no statement outlives its call (a statement left
// unfinalised would keep a read lock on the file and block every writer).
struct FinalizeStatement {
  void operator()(sqlite3_stmt* stmt) const noexcept { sqlite3_finalize(stmt); }
};
using StatementPtr = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// Prepares the first statement of [sql, end); `tail` receives where the next
// one begins. A null statement with SQLITE_OK means only blanks or a comment.
inline int PrepareNext(sqlite3* db, const char* sql, const char* end, StatementPtr& stmt, const char** tail) {
  sqlite3_stmt* raw = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, static_cast<int>(end - sql), &raw, tail);
  stmt.reset(raw);
  return rc;
}

// Removes a database file and its rollback journal through the Env.
void RemoveDatabaseFile(const std::string& path) noexcept;

// Receives the columns of each statement that returns rows, then its rows.
// A sink may throw (an allocation, a caller's handler); the runner catches.
class RowSink {
 public:
  virtual ~RowSink() = default;
  virtual void Columns(sqlite3_stmt* stmt) = 0;
  // False stops stepping the statement.
  virtual bool Row(sqlite3_stmt* stmt) = 0;
};

}  // namespace internal

// Copies columns and rows into a recordset: every row, or with `lastRowOnly`
// just the row read last (for handing rows out one at a time).
class RecordsetFiller : public internal::RowSink {
 public:
  explicit RecordsetFiller(CSQLite3Recordset& rs, bool lastRowOnly = false)
      : m_rs(rs), m_lastRowOnly(lastRowOnly) {}
  void Columns(sqlite3_stmt* stmt) override;
  bool Row(sqlite3_stmt* stmt) override;

 private:
  CSQLite3Recordset& m_rs;
  bool m_lastRowOnly;
};

// Takes the connection's mutex, waiting at most the given time; released
// by the destructor.
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

// Binds CDBParam values to the placeholders of a statement, in order.
class StatementBinder {
 public:
  // SQLITE_OK, or the code of the first bind that failed.
  static int Bind(sqlite3_stmt* stmt, const std::vector<CDBParam>& params);
};

}  // namespace Sqlite3DO

#endif  // OXCFG_PLATFORM_SQLITE3DO_INTERNAL_H
