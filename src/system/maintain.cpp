#include <oxconfigmgr/OxMaintain.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "db/db_conn.h"
#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "platform/file_util.h"
#include "platform/osl.h"
#include "platform/unique_fd.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

// Root logger level names, indexed by the log level.
const char* const kLevelNames[] = {"ALL", "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"};
constexpr int kLevelCount = static_cast<int>(sizeof kLevelNames / sizeof kLevelNames[0]);

const char* const kRootLoggerKey = "log4j.rootLogger=";

// The properties file is small; anything beyond this is not ours.
constexpr int64_t kMaxLog4jSize = 16 << 20;

constexpr int kDefaultCleanupIntervalHour = 1;
constexpr int kDefaultCleanupRetentionDay = 200;

// Where the value of the root logger line starts: just after the first
// "log4j.rootLogger=" that begins a line (after blanks), so a commented-out
// line is never taken for it; npos when there is none.
size_t findRootLoggerValue(const std::string& content) {
  const size_t keyLen = std::strlen(kRootLoggerKey);
  for (size_t pos = content.find(kRootLoggerKey); pos != std::string::npos;
       pos = content.find(kRootLoggerKey, pos + 1)) {
    size_t lineStart = content.find_last_of('\n', pos == 0 ? 0 : pos - 1);
    lineStart = (pos == 0 || lineStart == std::string::npos) ? 0 : lineStart + 1;
    if (content.find_first_not_of(" \t", lineStart) == pos) return pos + keyLen;
  }
  return std::string::npos;
}

// Reads the decimal text of child `name` of the current level into `out`.
bool readInt(CXmlBase& xml, const char* name, int32_t* out) {
  if (!xml.FindElem(name)) return false;
  *out = OSL_Atoi32(xml.GetData());
  return true;
}

// Shared body of enableLog and setLogLevel: replaces the text of Log/<leaf>
// and, once it is written, `member`. Memory changes inside the transaction,
// so a reload of a file that another process replaced meanwhile never
// lands between this write and its memory update.
int setLogChild(const char* leaf, int value, std::atomic<int32_t>* member) {
  ConfigFileTxn txn(getConfigFilePath());
  CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  char text[34];
  OSL_Itoa(value, text, 10);
  if (!xmlWalk(xml, {"Config", "Maintain", "Log"}) || !xml.IntoElem() || xml.ModifyData(leaf, text) != 1) {
    return 1;
  }
  if (writeConfigFile(xml) != 1) return 3;
  member->store(value, std::memory_order_relaxed);
  return 0;
}

}  // namespace

CMaintain::CMaintain()
    : logEnable(0), logLevel(0), logCleanupIntervalHour(0), logCleanupRetentionDay(0), logDeviceTransparent(0) {}

CMaintain::~CMaintain() = default;

bool CMaintain::loadFile() {
  try {
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    if (!xmlWalk(xml, {"Config", "Maintain", "Log"}) || !xml.IntoElem()) return false;
    int32_t enable = 0, level = 0;
    if (!readInt(xml, "Enable", &enable) || !readInt(xml, "Level", &level)) return false;
    xml.OutOfElem();

    int32_t interval = kDefaultCleanupIntervalHour, retention = kDefaultCleanupRetentionDay;
    if (xml.FindElem("LogCleanup") && xml.IntoElem()) {
      readInt(xml, "IntervalHour", &interval);
      readInt(xml, "RetentionDay", &retention);
      xml.OutOfElem();
    }
    int32_t transparent = 0;
    readInt(xml, "LogDeviceTransparent", &transparent);

    logEnable.store(enable, std::memory_order_relaxed);
    logLevel.store(level, std::memory_order_relaxed);
    logCleanupIntervalHour.store(interval, std::memory_order_relaxed);
    logCleanupRetentionDay.store(retention, std::memory_order_relaxed);
    logDeviceTransparent.store(transparent != 0 ? 1 : 0, std::memory_order_relaxed);
    return true;
  } catch (...) {
    return false;
  }
}

bool CMaintain::start() {
  try {
    auto conn = std::make_shared<CSyslogDBConn>();
    std::atomic_store(&m_gDBConn, conn);
    return conn != nullptr;
  } catch (...) {
    return false;
  }
}

bool CMaintain::stop() {
  std::atomic_store(&m_gDBConn, std::shared_ptr<CSyslogDBConn>());
  return true;
}

int CMaintain::enableLog(int value) {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  return setLogSwitch("Enable", value, &logEnable);
}

int CMaintain::setLogLevel(XLOG_LEVEL level) {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  return setLogSwitch("Level", static_cast<int>(level), &logLevel);
}

int CMaintain::setLogSwitch(const char* leaf, int value, std::atomic<int32_t>* member) {
  try {
    int rc = setLogChild(leaf, value, member);
    if (rc != 0) return rc;
  } catch (...) {
    return 3;
  }
  ModifyLog4j();
  return 0;
}

int CMaintain::setLogDeviceTransparent(int value) {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  try {
    const std::string path = getConfigFilePath();
    ConfigFileTxn txn(path);
    CXmlBase xml;
    if (xml.LoadFile(path) != 1) return 2;
    char text[34];
    OSL_Itoa(value, text, 10);
    if (!xmlWalk(xml, {"Config", "Maintain"}) || !xml.IntoElem() ||
        xml.ModifyData("LogDeviceTransparent", text) != 1) {
      return 1;
    }
    if (xml.WriteToFile(path) != 1) return 3;
    logDeviceTransparent.store(value != 0 ? 1 : 0, std::memory_order_relaxed);
    return 0;
  } catch (...) {
    return 3;
  }
}

void CMaintain::ModifyLog4j() {
  try {
    std::string path = OX_BASE_GetCurDir() + "log4cxx.properties";
    // Serialised like a configuration file, and the level is taken inside:
    // whichever of two concurrent setters writes last writes both new values.
    ConfigFileTxn txn(path);
    std::string content;
    if (!ReadLog4j(path, content)) return;

    const int enable = logEnable.load(std::memory_order_relaxed);
    const int level = logLevel.load(std::memory_order_relaxed);
    const char* name = enable != 0 && level >= 0 && level < kLevelCount ? kLevelNames[level] : "OFF";

    size_t start = findRootLoggerValue(content);
    if (start == std::string::npos) return;
    size_t lineEnd = content.find('\n', start);
    size_t comma = content.find(',', start);
    if (comma == std::string::npos || (lineEnd != std::string::npos && comma > lineEnd)) return;
    content.replace(start, comma - start, name);
    if (!WriteLog4j(path, content)) return;
    // The library's own logging follows the file at once.
    xlog_reload(path);
  } catch (...) {
    // The setter's result does not depend on the log file.
  }
}

bool CMaintain::ReadLog4j(std::string& path, std::string& content) {
  try {
    OxBase::UniqueFd file(OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0));
    if (!file.valid()) {
      OXLOG(5, "[%s(%d)] open file failed, path[%s],error[%d]", path.c_str(), OSL_GetSystemLastError());
      return false;
    }
    int64_t size = OSL_SeekFile(file.get(), 0, OSL_SEEK_END);
    if (size < 0 || OSL_SeekFile(file.get(), 0, OSL_SEEK_SET) != 0) {
      OXLOG(5, "[%s(%d)] read file failed, path[%s],error[%d]", path.c_str(), OSL_GetSystemLastError());
      return false;
    }
    std::unique_ptr<char[]> buf;
    if (size <= kMaxLog4jSize) buf.reset(new (std::nothrow) char[static_cast<size_t>(size) + 1]);
    if (!buf) {
      OXLOG(5, "[%s(%d)] new buf failed[%d][%d]", static_cast<int>(size > kMaxLog4jSize ? -1 : size + 1),
            OSL_GetSystemLastError());
      return false;
    }
    int got = OSL_ReadFile(file.get(), buf.get(), static_cast<int>(size));
    if (got != static_cast<int>(size)) {
      OXLOG(5, "[%s(%d)] read file failed, path[%s],error[%d]", path.c_str(), OSL_GetSystemLastError());
      return false;
    }
    content.assign(buf.get(), static_cast<size_t>(size));
    return true;
  } catch (...) {
    return false;
  }
}

// The replacement is atomic (the old file stays whole on any failure), so the
// file's "open" is the creation of its temporary beside it, and only a short
// write has a count to report. A failure after the write (sync, rename) or a
// missing lock keeps the old file and is logged with the system error.
bool CMaintain::WriteLog4j(std::string& path, std::string& content) {
  try {
    const OxBase::WriteOutcome out = OxBase::WriteFileAtomic(path, content, OxBase::FileMode::kKeep);
    switch (out.stage) {
      case OxBase::WriteStage::kDone:
      case OxBase::WriteStage::kSyncDir:  // the new content is in place
        return true;
      case OxBase::WriteStage::kCreateTemp:
        OXLOG(5, "[%s(%d)] open file failed, path[%s],error[%d]", path.c_str(), out.error);
        return false;
      case OxBase::WriteStage::kWrite:
        OXLOG(5, "[%s(%d)] write file failed, elngth[%d]-[%d],error[%d]", static_cast<int>(content.size()),
              static_cast<int>(out.written), out.error);
        return false;
      case OxBase::WriteStage::kNoLock:
      case OxBase::WriteStage::kSync:
      case OxBase::WriteStage::kRename:
        break;
    }
    OXLOG(5, "[%s(%d)] replace file failed, path[%s],error[%d]", path.c_str(), out.error);
    return false;
  } catch (...) {
    return false;
  }
}

namespace {

enum class DbResult { kNoConnection, kFailed, kDone };

// Runs `call` on the system-log connection; nothing escapes.
template <class Call>
DbResult onConnection(Call call) {
  try {
    std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
    if (!conn) return DbResult::kNoConnection;
    return call(*conn) ? DbResult::kDone : DbResult::kFailed;
  } catch (...) {
    return DbResult::kFailed;
  }
}

// dbExecute's result; a statement that failed is logged with its text.
bool executed(const std::string& sql, DbResult result) {
  if (result == DbResult::kFailed) {
    xlog_format(5, "OXW", "[%s(%d)] [sql=%s]execute failed.", "dbExecute", __LINE__, sql.c_str());
  }
  return result == DbResult::kDone;
}

}  // namespace

bool CMaintain::dbBegin() {
  return onConnection([](CSyslogDBConn& c) { return c.Begin(); }) == DbResult::kDone;
}

bool CMaintain::dbCommit() {
  return onConnection([](CSyslogDBConn& c) { return c.Commit(); }) == DbResult::kDone;
}

bool CMaintain::dbRollback() {
  return onConnection([](CSyslogDBConn& c) { return c.Rollback(); }) == DbResult::kDone;
}

bool CMaintain::dbExecute(const std::string& sql) {
  return executed(sql, onConnection([&sql](CSyslogDBConn& c) { return c.Execute(sql); }));
}

bool CMaintain::dbExecute(const std::string& sql, int n) {
  return executed(sql, onConnection([&sql, n](CSyslogDBConn& c) { return c.Execute(sql, n); }));
}

}  // namespace OxConfigMgr
