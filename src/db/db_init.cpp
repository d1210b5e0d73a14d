#include "db/db_init.h"

#include "platform/oxbase.h"

namespace OxConfigMgr {

namespace {

// The schema version this software expects of both databases.
const char* const kTargetVersion = "1.8.0.0";
const char* const kGatewayDBFile = "Config.db3";
const char* const kSyslogDBFile = "Syslog.db3";

// Creates the configuration database at the target version: the version
// table, the administrator without credentials and the security questions.
const char* const kGatewayCreateSql =
    "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
    "insert into Unit (Key, Value) values('version', '1.8.0.0');"
    "CREATE table Users(ID int NOT NULL PRIMARY KEY default(1),Name varchar(32) NOT NULL,"
    "UserLevel int default(0),PasswordLevel int,Realm varchar(32),DigestPassword varchar(64),"
    "SessionSalt varchar(64),SessionPassword varchar(64));"
    "insert into Users (ID, Name, UserLevel) values('1', 'admin', '0');"
    "CREATE table SecurityQuestion(ID int NOT NULL PRIMARY KEY default(1),Question varchar(1000) NOT NULL,"
    "Answer varchar(1000),Selected int default(0));"
    "update Users set PasswordLevel = NULL, Realm = NULL, DigestPassword = NULL,"
    " SessionSalt = NULL,SessionPassword = NULL;";

// Creates the system-log database at the target version.
const char* const kSyslogCreateSql =
    "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
    "insert into Unit (Key, Value) values('version', '1.8.0.0');"
    "CREATE table Syslog(ID         INTEGER PRIMARY KEY AUTOINCREMENT,RecordTime INTEGER NOT NULL,"
    "UserName   varchar(32) NOT NULL,IPAddress  varchar(32),MetaId     varchar(512),"
    "ISO8601RecordTime varchar(128),object     varchar(544),result     varchar(128));";

// Every step since 1.0.0.0 only moved the version row: the schema has not
// changed. "1.2.1.51" is a branch release that joins the main line at 1.3.1.0.
struct UpgradeStep {
  const char* from;
  const char* sql;
};
const UpgradeStep kGatewayUpgrades[] = {
    {"1.0.0.0", "UPDATE Unit SET Value = '1.1.0.0' WHERE Key = 'version';"},
    {"1.1.0.0", "UPDATE Unit SET Value = '1.2.0.0' WHERE Key = 'version';"},
    {"1.2.0.0", "UPDATE Unit SET Value = '1.3.0.0' WHERE Key = 'version';"},
    {"1.2.1.51", "UPDATE Unit SET Value = '1.3.1.0' WHERE Key = 'version';"},
    {"1.3.0.0", "UPDATE Unit SET Value = '1.3.1.0' WHERE Key = 'version';"},
    {"1.3.1.0", "UPDATE Unit SET Value = '1.3.2.0' WHERE Key = 'version';"},
    {"1.3.2.0", "UPDATE Unit SET Value = '1.3.2.2' WHERE Key = 'version';"},
    {"1.3.2.2", "UPDATE Unit SET Value = '1.4.0.0' WHERE Key = 'version';"},
    {"1.4.0.0", "UPDATE Unit SET Value = '1.5.0.0' WHERE Key = 'version';"},
    {"1.5.0.0", "UPDATE Unit SET Value = '1.6.0.0' WHERE Key = 'version';"},
    {"1.6.0.0", "UPDATE Unit SET Value = '1.6.1.0' WHERE Key = 'version';"},
    {"1.6.1.0", "UPDATE Unit SET Value = '1.7.0.0' WHERE Key = 'version';"},
    {"1.7.0.0", "UPDATE Unit SET Value = '1.8.0.0' WHERE Key = 'version';"},
};
const UpgradeStep kSyslogUpgrades[] = {
    {"1.6.1.0", "UPDATE Unit SET Value = '1.7.0.0' WHERE Key = 'version';"},
    {"1.7.0.0", "UPDATE Unit SET Value = '1.8.0.0' WHERE Key = 'version';"},
};

bool lookUp(const std::map<std::string, std::string>& map, const std::string& version,
            std::string& sql) {
  auto it = map.find(version);
  if (it == map.end()) return false;
  sql = it->second;
  return true;
}

}  // namespace

// ---- configuration database ---------------------------------------------------

CGatewayDBInitManager::CGatewayDBInitManager() {
  m_createSql[kTargetVersion] = kGatewayCreateSql;
  for (const auto& step : kGatewayUpgrades) m_upgradeSql[step.from] = step.sql;
}

CGatewayDBInitManager::~CGatewayDBInitManager() = default;

bool CGatewayDBInitManager::GetDBUtf8Path(std::string& path) {
  path = OX_BASE_GetCurDir() + kGatewayDBFile;
  return true;
}

bool CGatewayDBInitManager::GetDBKey(unsigned char* key, int& len) {
  // Without a key the length stays 0 and the database refuses to open rather
  // than being created in clear.
  len = 0;
  if (key && GetConfigDbKey(key)) len = kDBKeyLength;
  return true;
}

Sqlite3DO::CDBVersion CGatewayDBInitManager::GetDBTargetVersion() {
  return Sqlite3DO::CDBVersion(kTargetVersion);
}

bool CGatewayDBInitManager::GetDBTargetVerCreatSql(std::string& sql) {
  return lookUp(m_createSql, kTargetVersion, sql);
}

bool CGatewayDBInitManager::getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) {
  return lookUp(m_upgradeSql, version, sql);
}

// ---- system-log database ------------------------------------------------------

CSyslogDBInitManager::CSyslogDBInitManager() {
  m_createSql[kTargetVersion] = kSyslogCreateSql;
  for (const auto& step : kSyslogUpgrades) m_upgradeSql[step.from] = step.sql;
}

CSyslogDBInitManager::~CSyslogDBInitManager() = default;

bool CSyslogDBInitManager::GetDBUtf8Path(std::string& path) {
  path = OX_BASE_GetCurDir() + kSyslogDBFile;
  return true;
}

// The system-log database is kept in clear: no key.
bool CSyslogDBInitManager::GetDBKey(unsigned char*, int&) { return true; }

Sqlite3DO::CDBVersion CSyslogDBInitManager::GetDBTargetVersion() {
  return Sqlite3DO::CDBVersion(kTargetVersion);
}

bool CSyslogDBInitManager::GetDBTargetVerCreatSql(std::string& sql) {
  return lookUp(m_createSql, kTargetVersion, sql);
}

bool CSyslogDBInitManager::getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) {
  return lookUp(m_upgradeSql, version, sql);
}

}  // namespace OxConfigMgr
