// The two databases of the working directory as the SQLite wrapper sees them:
// where each file lies, which key opens it, the schema version this software
// expects, the script that creates a database at that version and the script
// that lifts each older version one step.
#ifndef OXCFG_DB_DB_INIT_H
#define OXCFG_DB_DB_INIT_H

#include <map>
#include <string>

#include "db/db_key.h"
#include "frame/singleton.h"
#include "platform/sqlite3do.h"

namespace OxConfigMgr {

// "Config.db3": encrypted with the storage key of the private configuration.
// InitDB(1) at start creates or upgrades it. Used only on the starting thread.
class CGatewayDBInitManager : public Sqlite3DO::CBaseDBInitManager,
                              public CSingleton<CGatewayDBInitManager> {
 public:
  CGatewayDBInitManager();
  ~CGatewayDBInitManager() override;

  // The working directory + "Config.db3". Always true.
  bool GetDBUtf8Path(std::string& path) override;
  // Copies the 32-byte key of the installed key provider (the private
  // configuration's storage key) and sets `len` to 32; without one `len` is 0
  // (the database then cannot be opened). Always true.
  bool GetDBKey(unsigned char* key, int& len) override;
  Sqlite3DO::CDBVersion GetDBTargetVersion() override;
  // The creation script of the target version; true when there is one.
  bool GetDBTargetVerCreatSql(std::string& sql) override;
  // The script lifting exactly `version` one step; false when there is none.
  bool getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) override;

 private:
  std::map<std::string, std::string> m_createSql;   // target version -> script
  std::map<std::string, std::string> m_upgradeSql;  // version found -> script
};

// "Syslog.db3": kept in clear; InitDB(0) at start.
class CSyslogDBInitManager : public Sqlite3DO::CBaseDBInitManager,
                             public CSingleton<CSyslogDBInitManager> {
 public:
  CSyslogDBInitManager();
  ~CSyslogDBInitManager() override;

  // The working directory + "Syslog.db3". Always true.
  bool GetDBUtf8Path(std::string& path) override;
  // Leaves key and length untouched. Always true.
  bool GetDBKey(unsigned char* key, int& len) override;
  Sqlite3DO::CDBVersion GetDBTargetVersion() override;
  bool GetDBTargetVerCreatSql(std::string& sql) override;
  bool getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) override;

 private:
  std::map<std::string, std::string> m_createSql;
  std::map<std::string, std::string> m_upgradeSql;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_DB_DB_INIT_H
