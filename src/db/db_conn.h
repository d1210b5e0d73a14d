// Open connections on the two databases of the working directory.
#ifndef OXCFG_DB_DB_CONN_H
#define OXCFG_DB_DB_CONN_H

#include <memory>
#include <string>

#include "frame/singleton.h"
#include "platform/sqlite3do.h"

namespace OxConfigMgr {

// A connection on "Config.db3", opened with the storage key by the
// constructor (path and key from CGatewayDBInitManager). The constructor
// reports nothing: a failed open shows as failing statements.
class CGatewayDBConn : public Sqlite3DO::CBaseDBConn, public CSingleton<CGatewayDBConn> {
 public:
  CGatewayDBConn();
  ~CGatewayDBConn() override;
};

// A connection on "Syslog.db3", opened in clear by the constructor.
class CSyslogDBConn : public Sqlite3DO::CBaseDBConn, public CSingleton<CSyslogDBConn> {
 public:
  CSyslogDBConn();
  ~CSyslogDBConn() override;

  // The working directory + "Syslog.db3". Always true.
  bool GetDBUtf8Path(std::string& path);
  // Copies the private configuration's 32 storage-key bytes (zeros when it
  // is not started) and sets `len` to 32; the connection does not apply them.
  bool GetDBKey(unsigned char* key, int& len);
};

// The one system-log connection of the process, made by CMaintain::start and
// dropped by CMaintain::stop; empty otherwise. Read and replace it only with
// std::atomic_load / std::atomic_store: a user keeps the connection alive for
// the length of its call even if stop() drops it meanwhile.
extern std::shared_ptr<CSyslogDBConn> m_gDBConn;

}  // namespace OxConfigMgr

#endif  // OXCFG_DB_DB_CONN_H
