// CStorageConfig: the storage service's credentials, made fresh at every
// start and kept only in memory.
#include <oxconfigmgr/OxStorageConfig.h>

#include <cstdio>
#include <cstring>

#include "platform/hex.h"
#include "platform/lss_client.h"
#include "platform/osl.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

// Access key: the first 15 bytes of a UUID as text. Secret key: the first 31
// characters of the keyed digest.
constexpr int kAccessKeyBytes = 15;
constexpr int kMaxKeyText = 31;

}  // namespace

CStorageConfig::CStorageConfig() : m_reserved(0) {}

CStorageConfig::~CStorageConfig() {
  OxBase::SecureWipe(accessKey);
  OxBase::SecureWipe(secretKey);
}

bool CStorageConfig::start() {
  try {
    OSL_UUID uuid{};
    char access[kMaxKeyText + 1] = {};
    char random[kMaxKeyText + 1] = {};
    char digest[256] = {};
    OxBase::ScopedWipe wipeUuid(&uuid, sizeof uuid);
    OxBase::ScopedWipe wipeAccess(access, sizeof access);
    OxBase::ScopedWipe wipeRandom(random, sizeof random);
    OxBase::ScopedWipe wipeDigest(digest, sizeof digest);

    const int iret = OSL_GetUUID(&uuid);
    if (iret != 0) {
      OXLOG(5, "[%s(%d)] [iret=%d]Get uuid failed.", iret);
      return false;
    }
    convertByteArrayToCharArray(uuid.data, kAccessKeyBytes, access, kMaxKeyText);
    std::snprintf(random, sizeof random, "%u", static_cast<unsigned>(OSL_Rand() % 10000));
    if (NET_LSS_HAMSHA256(access, random, digest, 255) != 0) {
      OXLOG(5, "[%s(%d)] [errCode=%d]NET_LSS_HAMSHA256 fail", NET_LSS_GetLastError());
      return false;
    }
    std::string newAccess(access);
    std::string newSecret(digest, strnlen(digest, kMaxKeyText));
    OxBase::SecureWipe(accessKey);
    OxBase::SecureWipe(secretKey);
    accessKey.swap(newAccess);
    secretKey.swap(newSecret);
    OxBase::SecureWipe(newAccess);
    OxBase::SecureWipe(newSecret);
    return true;
  } catch (...) {
    return false;
  }
}

void CStorageConfig::getStorageAkSk(std::string& accessKeyOut, std::string& secretKeyOut) {
  try {
    accessKeyOut = accessKey;
    secretKeyOut = secretKey;
  } catch (...) {
    // Out of memory: the caller's texts keep what they held.
  }
}

}  // namespace OxConfigMgr
