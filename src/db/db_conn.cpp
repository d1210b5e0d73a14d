#include "db/db_conn.h"

#include <cstring>

#include "db/db_init.h"
#include "db/db_key.h"
#include "platform/oxbase.h"
#include "platform/secure_wipe.h"

namespace OxConfigMgr {

std::shared_ptr<CSyslogDBConn> m_gDBConn;

namespace {
constexpr size_t kKeyBufferSize = 1024;
}

CGatewayDBConn::CGatewayDBConn() {
  CGatewayDBInitManager* init = CSingleton<CGatewayDBInitManager>::Instance();
  std::string path;
  unsigned char key[kKeyBufferSize];
  OxBase::ScopedWipe wipe(key, sizeof key);
  std::memset(key, 0, sizeof key);
  int len = 0;
  init->GetDBUtf8Path(path);
  init->GetDBKey(key, len);
  OpenDB(path, key, len, true);
}

CGatewayDBConn::~CGatewayDBConn() = default;

CSyslogDBConn::CSyslogDBConn() {
  std::string path;
  unsigned char key[kKeyBufferSize];
  OxBase::ScopedWipe wipe(key, sizeof key);
  std::memset(key, 0, sizeof key);
  int len = 0;
  GetDBUtf8Path(path);
  GetDBKey(key, len);
  OpenDB(path, key, kDBKeyLength, false);
}

CSyslogDBConn::~CSyslogDBConn() = default;

bool CSyslogDBConn::GetDBUtf8Path(std::string& path) {
  path = OX_BASE_GetCurDir() + "Syslog.db3";
  return true;
}

bool CSyslogDBConn::GetDBKey(unsigned char* key, int& len) {
  len = kDBKeyLength;
  if (key) GetConfigDbKey(key);  // zeros when there is no key
  return true;
}

}  // namespace OxConfigMgr
