// CNetworkCfg: uploads to and deletes from the picture storage service
// through one cached storage client.
//
// Invariants: storageClient is read and changed only under storageMutex (and
// by the destructor, when no call can run any more); it is -1 or a live
// client. A client is reused as it is, also after the Lumen address or the
// upload port changed; any failure destroys it, so the next call builds one
// for the current address.
#include <oxconfigmgr/OxConfigMgr.h>
#include <oxconfigmgr/OxNetworkCfg.h>
#include <oxconfigmgr/OxStorageConfig.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "frame/osl_guard.h"
#include "network/network_internal.h"
#include "network/storage_config.h"
#include "platform/lss_client.h"
#include "platform/osl.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

constexpr char kPictureUploadPath[] = "/QAPI/Intelligent/FDLib/pictureUpload";
constexpr char kFacePool[] = "1";
constexpr char kDefaultPool[] = "DeviceGatewayAcsModel";
constexpr char kFilePath[] = "123.jpg";
constexpr int kAnswerSize = 4096;

// Set when the process has begun to exit. The instance manager's objects
// are destroyed by static destruction, after the logging and the HTTP
// library have been torn down: a client still cached then is left to the
// end of the process instead of being destroyed and logged. The handler is
// registered when the first client is made, so it runs before the
// destructors of everything that was set up earlier.
std::atomic<bool> g_exiting{false};

void watchProcessExit() {
  static std::once_flag once;
  std::call_once(once, [] { std::atexit([] { g_exiting = true; }); });
}

// The credentials of this start; empty when the storage step has not run.
class StorageKeys {
 public:
  StorageKeys() {
    std::shared_ptr<CStorageConfig> cfg = OX_ConfigMgr_GetStorageConfig();
    if (cfg) cfg->getStorageAkSk(access_, secret_);
  }
  ~StorageKeys() {
    OxBase::SecureWipe(access_);
    OxBase::SecureWipe(secret_);
  }
  const char* access() const { return access_.c_str(); }
  const char* secret() const { return secret_.c_str(); }

 private:
  std::string access_;
  std::string secret_;
};

// The cached client, made from the Lumen address entry and the upload port
// when there is none. Returns its handle, or -1 after logging the failure
// under `function` (with the library's error in `error`).
int cachedClient(CNetworkCfg& cfg, int32_t& client, uint16_t port, const char* function, int& error) {
  _NIC_INFO_V4 entry{};
  if (cfg.getIPv4ByProtocol(entry, PROTOCOL_LUMEN) != 0) {
    xlog_format(5, "OXW", "[%s(%d)] Get ip error", function, __LINE__);
    return -1;
  }
  NET_LSS_CLIENT_INFO info;
  std::memset(&info, 0, sizeof info);
  info.connectType = NET_LSS_CONNECT_TYPE_HTTP;
  std::memcpy(info.ip, entry.ipv4, strnlen(entry.ipv4, sizeof entry.ipv4));
  info.port = port;
  xlog_format(2, "OXW", "[%s(%d)] upload ip:port [%s:%d]", function, __LINE__,
              netinternal::fieldText(entry.ipv4).c_str(), static_cast<int>(port));
  if (client >= 0) return client;

  watchProcessExit();
  const int handle = NET_LSS_CreateClient(&info);
  if (handle < 0) {
    error = NET_LSS_GetLastError();
    xlog_format(5, "OXW", "[%s(%d)] creat Client error: %d", function, __LINE__, error);
    return -1;
  }
  xlog_format(2, "OXW", "[%s(%d)] NET_LSS_CreateClient succ: %d", function, __LINE__, handle);
  client = handle;
  return handle;
}

}  // namespace

bool cmpURL(std::string url, const char* path) {
  const size_t query = url.find('?');
  if (query != std::string::npos) url.erase(query);
  return path != nullptr && url == path;
}

bool CNetworkCfg::uploadFacetoPss(int& error, std::string& url, const std::string& picture,
                                  const std::string& requestPath) {
  try {
    OSL_Guard guard(&storageMutex);
    const int handle =
        cachedClient(*this, storageClient, netinternal::loadRelaxed(pssUploadPort), __FUNCTION__, error);
    if (handle < 0) return false;

    const StorageKeys keys;
    NET_LSS_ClientSetParam(handle, "Pool-Id", cmpURL(requestPath, kPictureUploadPath) ? kFacePool : kDefaultPool);
    NET_LSS_ClientSetParam(handle, "Access-Key", keys.access());
    NET_LSS_ClientSetParam(handle, "Secret-Key", keys.secret());
    NET_LSS_ClientSetParam(handle, "File-Path", kFilePath);

    // A picture too large for the client's length is refused by it.
    const int length = picture.size() > static_cast<size_t>(INT_MAX) ? -1 : static_cast<int>(picture.size());
    char answer[kAnswerSize] = {};
    if (NET_LSS_ClientDoUploadBuffer(handle, answer, kAnswerSize - 1, picture.data(), length) == 0) {
      url = answer;
      OXLOG(2, "[%s(%d)] NET_LSS_ClientDoUploadBuffer success: %d, %s, %d", handle, answer, length);
      return true;
    }
    error = NET_LSS_GetLastError();
    OXLOG(5, "[%s(%d)] NET_LSS_ClientDoUploadBuffer error: %d [%d]", error, length);
    NET_LSS_DestroyClient(handle);
    storageClient = -1;
    return false;
  } catch (...) {
    error = NET_LSS_ERR_NO_RESOURCES;
    return false;
  }
}

bool CNetworkCfg::deleteFacefromPss(const std::string& url) {
  try {
    OSL_Guard guard(&storageMutex);
    int error = 0;
    const int handle =
        cachedClient(*this, storageClient, netinternal::loadRelaxed(pssUploadPort), __FUNCTION__, error);
    if (handle < 0) return false;

    const StorageKeys keys;
    NET_LSS_ClientSetParam(handle, "Access-Key", keys.access());
    NET_LSS_ClientSetParam(handle, "Secret-Key", keys.secret());
    NET_LSS_ClientSetParam(handle, "Pool-Id", kDefaultPool);
    if (NET_LSS_ClientDoDelete(handle, url.c_str()) == 0) {
      OXLOG(2, "[%s(%d)] NET_LSS_ClientDoDelete success: %d, %s", handle, url.c_str());
      return true;
    }
    OXLOG(5, "[%s(%d)] NET_LSS_ClientDoDelete error: %d, %s", NET_LSS_GetLastError(), url.c_str());
    NET_LSS_DestroyClient(handle);
    storageClient = -1;
    return false;
  } catch (...) {
    return false;
  }
}

// Runs from the destructor only, when no other call can hold the client.
void CNetworkCfg::releaseStorageClient() {
  const int handle = storageClient;
  storageClient = -1;
  if (handle < 0 || g_exiting) return;
  NET_LSS_DestroyClient(handle);
  xlog_format(2, "OXW", "[%s(%d)] NET_LSS_DestroyClient success: %d", "~CNetworkCfg", __LINE__, handle);
}

}  // namespace OxConfigMgr
