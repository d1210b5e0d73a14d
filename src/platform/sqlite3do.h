// Sqlite3DO: the SQLite wrapper, over SQLCipher.
//
// CBaseDBConn is one open database (optionally encrypted with a raw 32-byte
// key); CSQLite3Recordset holds the rows of a query; CDBVersion compares
// dotted schema versions; CBaseDBInitManager creates a database at the
// version the software expects or lifts an older one step by step, holding
// the database's lock file so that processes starting together take turns.
//
// Files: a database file created here has mode 0600, and an existing one with
// looser permission bits is tightened to 0600 when it is opened (the files
// hold credentials). SQLite gives its journal the same bits. The probe that
// creates or checks the file and the lock file go through OxBase::Env, so
// tests can make a database unwritable or its lock unobtainable.
//
// Exceptions: CBaseDBConn, CBaseDBInitManager and ReadUnitVersion throw
// nothing; an allocation that fails inside them (or an exception from a row
// handler) is caught, the statement is finalised and the call returns false.
// CDBVersion and CSQLite3Recordset are plain values: their constructors and
// the getters returning std::string may throw std::bad_alloc like any string.
// Failures are logged, never with key material, statement text or bound
// values.
#ifndef OXCFG_PLATFORM_SQLITE3DO_H
#define OXCFG_PLATFORM_SQLITE3DO_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Sqlite3DO {

// A dotted numeric version ("1.8.0.0"). Parts are compared numerically, from
// the left; missing trailing parts count as 0, so "1.8" equals "1.8.0.0".
// Text that is not dot-separated decimal numbers is invalid; an invalid
// version compares below every valid one (and equal to other invalid ones).
class CDBVersion {
 public:
  CDBVersion() = default;
  explicit CDBVersion(const std::string& text);

  bool IsValid() const { return m_valid; }
  const std::string& ToString() const { return m_text; }
  // <0, 0, >0 as *this is below, equal to or above `other`.
  int Compare(const CDBVersion& other) const;

  bool operator<(const CDBVersion& o) const { return Compare(o) < 0; }
  bool operator<=(const CDBVersion& o) const { return Compare(o) <= 0; }
  bool operator>(const CDBVersion& o) const { return Compare(o) > 0; }
  bool operator>=(const CDBVersion& o) const { return Compare(o) >= 0; }
  bool operator==(const CDBVersion& o) const { return Compare(o) == 0; }
  bool operator!=(const CDBVersion& o) const { return Compare(o) != 0; }

 private:
  std::string m_text;
  std::vector<uint32_t> m_parts;
  bool m_valid = false;
};

// The rows of a query, copied out of SQLite when the query ran (so the
// recordset does not tie up its connection and outlives it safely). It is
// read forward only: after Execute the first row is current (IsEOF() when
// there is none); Next() moves to the following row. Columns are found by
// name, case-insensitively. NULL, a missing column or a read past the end
// gives 0 or "".
class CSQLite3Recordset {
 public:
  CSQLite3Recordset() = default;

  bool IsEOF() const { return m_row >= m_rows.size(); }
  // Moves to the next row; false when that is past the end.
  bool Next();
  int GetInt(const char* name) const;
  int64_t GetInt64(const char* name) const;
  std::string GetString(const char* name) const;
  // The text of a column of the current row without copying it (never null);
  // valid until the recordset is cleared, refilled or destroyed.
  const char* GetText(const char* name) const;
  bool IsNull(const char* name) const;

  size_t RowCount() const { return m_rows.size(); }
  const std::vector<std::string>& Columns() const { return m_columns; }
  void Clear();

 private:
  friend class RecordsetFiller;
  struct Cell {
    bool null = true;
    int64_t integer = 0;
    std::string text;
  };
  const Cell* Find(const char* name) const;

  std::vector<std::string> m_columns;
  std::vector<std::vector<Cell>> m_rows;
  size_t m_row = 0;
};

// A value bound to one `?` of a statement.
class CDBParam {
 public:
  CDBParam(const char* text) : m_kind(text ? kText : kNull), m_text(text ? text : "") {}  // NOLINT
  CDBParam(const std::string& text) : m_kind(kText), m_text(text) {}                    // NOLINT
  CDBParam(int value) : m_kind(kInt), m_int(value) {}                                   // NOLINT
  CDBParam(int64_t value) : m_kind(kInt), m_int(value) {}                               // NOLINT
  static CDBParam Null() { return CDBParam(static_cast<const char*>(nullptr)); }

 private:
  friend class StatementBinder;
  enum Kind { kNull, kText, kInt };
  Kind m_kind;
  std::string m_text;
  int64_t m_int = 0;
};

namespace internal {
// Closes a connection handle; the owner of CBaseDBConn's handle.
struct CloseConnection {
  void operator()(sqlite3* db) const noexcept;
};
// Receives the columns and rows of the statements a runner steps through.
class RowSink;
}  // namespace internal

// One database connection. Every call is serialised by the connection's own
// mutex, so one connection may be shared by threads. A transaction belongs to
// the thread that began it: until that thread commits or rolls back, other
// threads' calls wait (at most the busy time-out, then they fail), so their
// statements never land inside someone else's transaction.
class CBaseDBConn {
 public:
  // How long a call waits for the connection, or SQLite for a lock held by
  // another connection, unless a call says otherwise.
  static constexpr int kDefaultBusyTimeoutMs = 5000;

  // Receives one row of ExecuteEach as a recordset holding that row alone;
  // false stops the query early (the call still succeeds).
  using RowHandler = std::function<bool(const CSQLite3Recordset& row)>;

  CBaseDBConn();
  virtual ~CBaseDBConn();
  CBaseDBConn(const CBaseDBConn&) = delete;
  CBaseDBConn& operator=(const CBaseDBConn&) = delete;

  // Opens `path` read-write, creating it (empty, mode 0600) when missing;
  // closes whatever this connection had open first. With `useKey`, `key`
  // must hold exactly 32 bytes (`len` 32): they are applied as a raw SQLCipher
  // key (no passphrase derivation). Without it the file is plain SQLite and
  // `key` is ignored. The key is checked at once by reading the schema (which
  // also rolls back a transaction that a killed process left in the journal):
  // a wrong key, or a file that is not a database, fails here (the file is
  // left as it was). False also when the file cannot be written.
  bool OpenDB(const std::string& path, const unsigned char* key, int len, bool useKey);
  // Rolls back an open transaction and closes; harmless when closed.
  void CloseDB();
  bool IsOpen() const;
  // True when the last OpenDB created the file (it did not exist before).
  bool CreatedFile() const { return m_createdFile; }
  const std::string& Path() const { return m_path; }

  // Runs one or more statements separated by semicolons. Any rows are
  // discarded. False at the first failing statement (earlier ones stay done
  // unless a transaction is rolled back).
  bool Execute(const std::string& sql);
  // Runs the statements; `rs` receives the rows of the last one that returns
  // columns (it is cleared first, and left empty when the call fails).
  bool Execute(const std::string& sql, CSQLite3Recordset& rs);
  // As Execute(sql), waiting up to `busyTimeoutMs` (0: not at all) for the
  // connection and for locks held by other connections.
  bool Execute(const std::string& sql, int busyTimeoutMs);

  // Runs a single statement whose `?` placeholders take `params` in order.
  // Values are bound, never spliced into the text, so quotes or semicolons
  // in them are plain data.
  bool ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params);
  bool ExecuteBound(const std::string& sql, const std::vector<CDBParam>& params,
                    CSQLite3Recordset& rs);
  // As ExecuteBound, handing each row to `onRow` as it is read instead of
  // keeping them all. The connection stays locked meanwhile. An exception
  // thrown by `onRow` ends the query: it is caught and logged, the statement
  // is finalised and the result is false.
  bool ExecuteEach(const std::string& sql, const std::vector<CDBParam>& params, const RowHandler& onRow);

  // BEGIN IMMEDIATE (the write lock is taken at once), COMMIT, ROLLBACK.
  // Commit and Rollback only act for the thread that began the transaction.
  bool Begin();
  bool Commit();
  bool Rollback();
  bool InTransaction() const;

  // Rows changed by the last INSERT, UPDATE or DELETE.
  int Changes() const;
  // SQLite's extended result code of the last failure (0 after success).
  int LastError() const;

 private:
  // A recursive lock whose waits are bounded. (std::recursive_timed_mutex
  // would do, but its timed wait is invisible to ThreadSanitizer.)
  class OwnerMutex {
   public:
    // Takes one more level for the calling thread, waiting at most
    // `timeoutMs` (0: not at all) while another thread holds it.
    bool LockFor(int timeoutMs);
    void Unlock();

   private:
    std::mutex m_mutex;
    std::condition_variable m_released;
    std::thread::id m_owner;
    int m_depth = 0;
  };
  class Lock;

  // Takes the connection mutex (waiting at most `timeoutMs`) and runs `sql`
  // through RunLocked, feeding `sink`; the one entry of every Execute.
  bool Run(const char* caller, const std::string& sql, const std::vector<CDBParam>* params,
           internal::RowSink* sink, bool single, int timeoutMs);
  // Prepares and steps each statement of `sql`. The caller holds the
  // connection mutex. Never throws.
  bool RunLocked(const std::string& sql, const std::vector<CDBParam>* params, internal::RowSink* sink,
                 bool single);
  bool StepStatement(sqlite3_stmt* stmt, internal::RowSink* sink);
  // Called with the connection mutex held after every statement: when SQLite
  // has just entered a transaction, the calling thread takes one more level
  // of the mutex and keeps it until SQLite is back in autocommit mode (COMMIT,
  // ROLLBACK, or a failure that ended the transaction), whichever statement
  // ended it; then that level is given back.
  void HoldMutexWhileInTransaction();
  bool EndTransaction(const std::string& sql);
  // Opening in steps; each leaves m_lastError set and logs when it fails.
  bool PrepareFile(const std::string& path);
  bool ConnectAndKey(const std::string& path, const unsigned char* key, bool useKey);
  bool CheckReadable(const std::string& path);
  void CloseLocked();
  void Fail(const char* func, int line, const char* what, int rc);

  mutable OwnerMutex m_mutex;
  std::unique_ptr<sqlite3, internal::CloseConnection> m_db;
  std::string m_path;
  bool m_createdFile = false;
  int m_lastError = 0;
  int m_busyTimeoutMs = kDefaultBusyTimeoutMs;
  // The thread holding an open transaction (it also holds one extra level of
  // m_mutex until the transaction ends); default id when none. Written only
  // under m_mutex; read without it to turn away other threads at once.
  std::atomic<std::thread::id> m_txnOwner{std::thread::id()};
};

// Creates or upgrades one database file; the derived class names the file,
// the key, the target version and the scripts.
class CBaseDBInitManager {
 public:
  CBaseDBInitManager() = default;
  virtual ~CBaseDBInitManager() = default;

  virtual bool GetDBUtf8Path(std::string& path) = 0;
  // Fills at most 1024 bytes of `key` and sets `len`.
  virtual bool GetDBKey(unsigned char* key, int& len) = 0;
  virtual CDBVersion GetDBTargetVersion() = 0;
  virtual bool GetDBTargetVerCreatSql(std::string& sql) = 0;
  virtual bool getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) = 0;

  // Opens the database (with the key when `useKey` is non-zero) and brings it
  // to the target version, holding the exclusive lock file of the database
  // (OxBase::LockPathFor(path)) from before the file is opened until the
  // schema is committed, so that processes starting together create or
  // upgrade it one after the other and never see it half-made:
  // - a database without any table (a missing or empty file, or one that a
  //   killed creation left behind and SQLite rolled back) is new: it is
  //   created with the creation script in one transaction; if that fails the
  //   file is removed when this call created it (a file that was there stays);
  // - otherwise the version row of "Unit" is read, and while it is below the
  //   target the upgrade script for that exact version text is run, each step
  //   in its own transaction that must leave a higher version; a version
  //   without a script, or a failing step, stops with false and leaves the
  //   database at the last version reached. A version at or above the target
  //   is accepted as it is.
  // False also when the lock file cannot be opened or locked, or the file
  // cannot be opened, is not a database, has another key or cannot be
  // written; such a file is not modified.
  bool InitDB(int useKey);

 private:
  bool OpenForInit(CBaseDBConn& conn, const std::string& path, int useKey);
  // Both run while InitDB holds the database's lock file.
  bool CreateInOneTransaction(CBaseDBConn& conn, const std::string& path, const CDBVersion& target);
  bool UpgradeStepByStep(CBaseDBConn& conn, const std::string& path, const CDBVersion& target);
};

// Reads the version row of "Unit"; false when the table, the row or the
// file cannot be read.
bool ReadUnitVersion(CBaseDBConn& conn, std::string& version);

// Whether the database holds no schema object at all (no table, index, view
// or trigger); false in `empty`'s place when the schema cannot be read.
bool SchemaIsEmpty(CBaseDBConn& conn, bool& empty);

}  // namespace Sqlite3DO

#endif  // OXCFG_PLATFORM_SQLITE3DO_H
