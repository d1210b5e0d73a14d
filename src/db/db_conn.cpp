#include "db/db_conn.h"

#include <oxconfigmgr/OxPrivateCfg.h>
#include <openssl/crypto.h>

#include <cstring>

#include "db/db_init.h"
#include "core/instance_mgr.h"
#include "platform/oxbase.h"

namespace OxConfigMgr {

std::shared_ptr<CSyslogDBConn> m_gDBConn;

namespace {
constexpr size_t kKeyBufferSize = 1024;
}

CGatewayDBConn::CGatewayDBConn() {
  CGatewayDBInitManager* init = CSingleton<CGatewayDBInitManager>::Instance();
  std::string path;
  unsigned char key[kKeyBufferSize];
  std::memset(key, 0, sizeof key);
  int len = 0;
  init->GetDBUtf8Path(path);
  init->GetDBKey(key, len);
  OpenDB(path, key, len, true);
  OPENSSL_cleanse(key, sizeof key);
}

CGatewayDBConn::~CGatewayDBConn() = default;

CSyslogDBConn::CSyslogDBConn() {
  std::string path;
  unsigned char key[kKeyBufferSize];
  std::memset(key, 0, sizeof key);
  int len = 0;
  GetDBUtf8Path(path);
  GetDBKey(key, len);
  OpenDB(path, key, 32, false);
  OPENSSL_cleanse(key, sizeof key);
}

CSyslogDBConn::~CSyslogDBConn() = default;

bool CSyslogDBConn::GetDBUtf8Path(std::string& path) {
  path = OX_BASE_GetCurDir() + "Syslog.db3";
  return true;
}

bool CSyslogDBConn::GetDBKey(unsigned char* key, int& len) {
  len = kDBKeyLength;
  if (!key) return true;
  std::shared_ptr<CPrivateCfg> priv = OX_ConfigMgr_GetPrivateCfg();
  if (!priv) return true;
  tagEncryptInfo info;
  priv->getEncryptParams(info);
  std::memcpy(key, info.storageKey, kDBKeyLength);
  OPENSSL_cleanse(&info, sizeof info);
  return true;
}

}  // namespace OxConfigMgr
