// The locked runner: every statement of a connection runs here, under the
// connection's mutex, with its statements owned so that no failure or
// exception leaves one behind, and with the mutex kept by the thread whose
// transaction is open.
#include <chrono>
#include <climits>
#include <exception>
#include <new>

#include "platform/sqlite3do_internal.h"
#include "platform/xlog.h"

namespace Sqlite3DO {

namespace {

bool IsBlankSql(const char* p, const char* end) {
  for (; p < end; ++p) {
    if (*p != ' ' && *p != '\t' && *p != '\r' && *p != '\n' && *p != ';') return false;
  }
  return true;
}

// Hands each row to a caller's handler as a one-row recordset.
class HandlerSink : public internal::RowSink {
 public:
  explicit HandlerSink(const CBaseDBConn::RowHandler& onRow) : m_filler(m_row, true), m_onRow(onRow) {}
  void Columns(sqlite3_stmt* stmt) override { m_filler.Columns(stmt); }
  bool Row(sqlite3_stmt* stmt) override {
    m_filler.Row(stmt);
    return m_onRow(m_row);
  }

 private:
  CSQLite3Recordset m_row;
  RecordsetFiller m_filler;
  const CBaseDBConn::RowHandler& m_onRow;
};

// Made at load time, so that beginning or ending a transaction allocates
// nothing.
const std::string kBegin = "BEGIN IMMEDIATE;";
const std::string kCommit = "COMMIT;";
const std::string kRollback = "ROLLBACK;";

}  // namespace

#define FAIL(what, rc) Fail(__FUNCTION__, __LINE__, (what), (rc))

// ---- the connection mutex -------------------------------------------------------

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

void CBaseDBConn::HoldMutexWhileInTransaction() {
  const bool inTxn = m_db && !sqlite3_get_autocommit(m_db.get());
  if (inTxn && m_txnOwner == std::thread::id()) {
    m_mutex.LockFor(0);  // already held by this thread: never waits
    m_txnOwner = std::this_thread::get_id();
  } else if (!inTxn && m_txnOwner == std::this_thread::get_id()) {
    m_txnOwner = std::thread::id();
    m_mutex.Unlock();
  }
}

// Statement failures are warnings here: the caller decides how grave they
// are and logs in its own words. Neither the statement text nor bound values
// are logged (they may carry credentials).
void CBaseDBConn::Fail(const char* func, int line, const char* what, int rc) {
  m_lastError = rc;
  xlog_format(4, "OXW", "[%s(%d)] %s failed, path[%s],error[%d],msg[%s]", func, line, what, m_path.c_str(), rc,
              m_db ? sqlite3_errmsg(m_db.get()) : sqlite3_errstr(rc));
}

// ---- running statements ---------------------------------------------------------

int StatementBinder::Bind(sqlite3_stmt* stmt, const std::vector<CDBParam>& params) {
  for (size_t i = 0; i < params.size(); ++i) {
    const CDBParam& v = params[i];
    const int slot = static_cast<int>(i) + 1;
    int rc;
    if (v.m_kind == CDBParam::kText) {
      rc = sqlite3_bind_text(stmt, slot, v.m_text.data(), static_cast<int>(v.m_text.size()), SQLITE_TRANSIENT);
    } else if (v.m_kind == CDBParam::kInt) {
      rc = sqlite3_bind_int64(stmt, slot, v.m_int);
    } else {
      rc = sqlite3_bind_null(stmt, slot);
    }
    if (rc != SQLITE_OK) return rc;
  }
  return SQLITE_OK;
}

bool CBaseDBConn::Run(const char* caller, const std::string& sql, const std::vector<CDBParam>* params,
                     internal::RowSink* sink, bool single, int timeoutMs) {
  Lock lock(*this, timeoutMs);
  if (!lock) {
    xlog_format(4, "OXW", "[%s(%d)] database connection busy, path[%s]", caller, __LINE__, m_path.c_str());
    return false;
  }
  const bool ownTimeout = timeoutMs != m_busyTimeoutMs;
  if (m_db && ownTimeout) sqlite3_busy_timeout(m_db.get(), timeoutMs);
  const bool ok = RunLocked(sql, params, sink, single);
  if (m_db && ownTimeout) sqlite3_busy_timeout(m_db.get(), m_busyTimeoutMs);
  HoldMutexWhileInTransaction();
  return ok;
}

bool CBaseDBConn::RunLocked(const std::string& sql, const std::vector<CDBParam>* params, internal::RowSink* sink,
                            bool single) {
  if (!m_db) {
    m_lastError = SQLITE_MISUSE;
    OXLOG(4, "[%s(%d)] database is not open, path[%s]", m_path.c_str());
    return false;
  }
  if (sql.size() > static_cast<size_t>(INT_MAX)) {
    FAIL("prepare", SQLITE_TOOBIG);
    return false;
  }
  try {
    const char* p = sql.c_str();
    const char* end = p + sql.size();
    int statements = 0;
    while (p < end && !IsBlankSql(p, end)) {
      internal::StatementPtr stmt;
      const char* tail = nullptr;
      int rc = internal::PrepareNext(m_db.get(), p, end, stmt, &tail);
      if (rc != SQLITE_OK) {
        FAIL("prepare", rc);
        return false;
      }
      p = tail ? tail : end;
      if (!stmt) continue;  // a comment or an empty statement
      ++statements;
      // A single statement must be alone: nothing may follow it, so a bound
      // statement can never be followed by text that runs with it.
      if (single && !IsBlankSql(p, end)) ++statements;
      const int wanted = sqlite3_bind_parameter_count(stmt.get());
      const int given = params && statements == 1 ? static_cast<int>(params->size()) : 0;
      if ((single && statements > 1) || wanted != given) {
        FAIL(single && statements > 1 ? "single statement" : "parameter count", SQLITE_MISUSE);
        return false;
      }
      if (given > 0 && (rc = StatementBinder::Bind(stmt.get(), *params)) != SQLITE_OK) {
        FAIL("bind", rc);
        return false;
      }
      if (!StepStatement(stmt.get(), sink)) return false;
    }
    if (params && statements == 0) {
      FAIL("prepare", SQLITE_MISUSE);
      return false;
    }
  } catch (const std::bad_alloc&) {
    FAIL("execute (out of memory)", SQLITE_NOMEM);
    return false;
  } catch (...) {
    // A row handler's own exception: its text is the caller's, not logged.
    FAIL("execute (exception from the row handler)", SQLITE_ABORT);
    return false;
  }
  m_lastError = 0;
  return true;
}

bool CBaseDBConn::StepStatement(sqlite3_stmt* stmt, internal::RowSink* sink) {
  const bool rows = sink && sqlite3_column_count(stmt) > 0;
  if (rows) sink->Columns(stmt);
  for (;;) {
    const int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) return true;
    if (rc != SQLITE_ROW) {
      FAIL("execute", rc);
      return false;
    }
    if (rows && !sink->Row(stmt)) return true;
  }
}

bool CBaseDBConn::Execute(const std::string& sql) {
  return Run(__FUNCTION__, sql, nullptr, nullptr, false, m_busyTimeoutMs);
}

bool CBaseDBConn::Execute(const std::string& sql, CSQLite3Recordset& rs) {
  rs.Clear();
  RecordsetFiller filler(rs);
  if (Run(__FUNCTION__, sql, nullptr, &filler, false, m_busyTimeoutMs)) return true;
  rs.Clear();
  return false;
}

bool CBaseDBConn::Execute(const std::string& sql, int busyTimeoutMs) {
  return Run(__FUNCTION__, sql, nullptr, nullptr, false, busyTimeoutMs < 0 ? 0 : busyTimeoutMs);
}

bool CBaseDBConn::ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params) {
  return Run(__FUNCTION__, sql, &params, nullptr, true, m_busyTimeoutMs);
}

bool CBaseDBConn::ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params,
                               CSQLite3Recordset& rs) {
  rs.Clear();
  RecordsetFiller filler(rs);
  if (Run(__FUNCTION__, sql, &params, &filler, true, m_busyTimeoutMs)) return true;
  rs.Clear();
  return false;
}

bool CBaseDBConn::ExecuteEach(const std::string& sql, const std::vector<CDBParam>& params,
                              const RowHandler& onRow) {
  if (!onRow) return false;
  try {
    HandlerSink sink(onRow);
    return Run(__FUNCTION__, sql, &params, &sink, true, m_busyTimeoutMs);
  } catch (...) {
    OXLOG(4, "[%s(%d)] execute failed: out of memory, path[%s]", m_path.c_str());
    return false;
  }
}

// ---- transactions ---------------------------------------------------------------

bool CBaseDBConn::Begin() { return Run(__FUNCTION__, kBegin, nullptr, nullptr, false, m_busyTimeoutMs); }

bool CBaseDBConn::Commit() { return EndTransaction(kCommit); }

bool CBaseDBConn::Rollback() { return EndTransaction(kRollback); }

bool CBaseDBConn::EndTransaction(const std::string& sql) {
  if (m_txnOwner.load() != std::this_thread::get_id()) return false;
  Lock lock(*this, m_busyTimeoutMs);
  if (!lock || m_txnOwner != std::this_thread::get_id()) return false;
  const bool ok = RunLocked(sql, nullptr, nullptr, false);
  HoldMutexWhileInTransaction();
  return ok;
}

bool CBaseDBConn::InTransaction() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock && m_db && !sqlite3_get_autocommit(m_db.get());
}

int CBaseDBConn::Changes() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock && m_db ? sqlite3_changes(m_db.get()) : 0;
}

int CBaseDBConn::LastError() const {
  Lock lock(*this, m_busyTimeoutMs);
  return lock ? m_lastError : SQLITE_BUSY;
}

#undef FAIL

}  // namespace Sqlite3DO
