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

// Shared body of enableLog and setLogLevel: replaces the text of Log/<leaf>.
int setLogChild(const char* leaf, int value) {
  ConfigFileTxn txn(getConfigFilePath());
  CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  char text[34];
  OSL_Itoa(value, text, 10);
  if (!xmlWalk(xml, {"Config", "Maintain", "Log"}) || !xml.IntoElem() || xml.ModifyData(leaf, text) != 1) {
    return 1;
  }
  if (writeConfigFile(xml) != 1) return 3;
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
  try {
    int rc = setLogChild("Enable", value);
    if (rc != 0) return rc;
    logEnable.store(value, std::memory_order_relaxed);
  } catch (...) {
    return 3;
  }
  ModifyLog4j();
  return 0;
}

int CMaintain::setLogLevel(XLOG_LEVEL level) {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  try {
    int rc = setLogChild("Level", static_cast<int>(level));
    if (rc != 0) return rc;
    logLevel.store(static_cast<int32_t>(level), std::memory_order_relaxed);
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
  OSL_File file = OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0);
  if (file == OSL_INVALID_FILE) {
    OXLOG(5, "[%s(%d)] open file failed, path[%s],error[%d]", path.c_str(), OSL_GetSystemLastError());
    return false;
  }
  struct Closer {
    OSL_File f;
    ~Closer() { OSL_CloseFile(f); }
  } closer{file};

  int64_t size = OSL_SeekFile(file, 0, OSL_SEEK_END);
  if (size < 0 || OSL_SeekFile(file, 0, OSL_SEEK_SET) != 0) {
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
  int got = OSL_ReadFile(file, buf.get(), static_cast<int>(size));
  if (got != static_cast<int>(size)) {
    OXLOG(5, "[%s(%d)] read file failed, path[%s],error[%d]", path.c_str(), OSL_GetSystemLastError());
    return false;
  }
  try {
    content.assign(buf.get(), static_cast<size_t>(size));
  } catch (...) {
    return false;
  }
  return true;
}

bool CMaintain::WriteLog4j(std::string& path, std::string& content) {
  if (!OxBase::WriteFileAtomic(path, content, OxBase::FileMode::kKeep).landed()) {
    int err = OSL_GetSystemLastError();
    OXLOG(5, "[%s(%d)] write file failed, elngth[%d]-[%d],error[%d]", static_cast<int>(content.size()), 0,
          err);
    return false;
  }
  return true;
}

bool CMaintain::dbBegin() {
  std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
  return conn && conn->Begin();
}

bool CMaintain::dbCommit() {
  std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
  return conn && conn->Commit();
}

bool CMaintain::dbRollback() {
  std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
  return conn && conn->Rollback();
}

bool CMaintain::dbExecute(const std::string& sql) {
  std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
  if (!conn) return false;
  if (!conn->Execute(sql)) {
    OXLOG(5, "[%s(%d)] [sql=%s]execute failed.", sql.c_str());
    return false;
  }
  return true;
}

bool CMaintain::dbExecute(const std::string& sql, int n) {
  std::shared_ptr<CSyslogDBConn> conn = std::atomic_load(&m_gDBConn);
  if (!conn) return false;
  if (!conn->Execute(sql, n)) {
    OXLOG(5, "[%s(%d)] [sql=%s]execute failed.", sql.c_str());
    return false;
  }
  return true;
}

}  // namespace OxConfigMgr
