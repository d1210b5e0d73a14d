// Credentials of the picture storage service.
//
// CStorageConfig makes a fresh access key and secret key at every start of
// the library; they exist only in memory (never in a file or the log) and
// differ from one start to the next. The picture storage service must be
// given the same pair to accept the gateway's requests; the library presents
// it with every upload and delete (CNetworkCfg::uploadFacetoPss,
// deleteFacefromPss).
//
// Thread-safety: start() runs once, from the starting thread, before the
// object is handed out; getStorageAkSk may then be called from any thread.
// No method throws.
#ifndef OXCONFIGMGR_OXSTORAGECONFIG_H
#define OXCONFIGMGR_OXSTORAGECONFIG_H

#include <oxconfigmgr/OxExport.h>

#include <cstdint>
#include <string>

namespace OxConfigMgr {

// The storage credentials made at start, in memory only (see the top of
// this file).
class OXCFG_API CStorageConfig {
 public:
  CStorageConfig();
  // Wipes both keys.
  ~CStorageConfig();
  CStorageConfig(const CStorageConfig&) = delete;
  CStorageConfig& operator=(const CStorageConfig&) = delete;

  // Makes the pair: the access key is 30 lower-case hexadecimal characters
  // from a fresh random UUID; the secret key is the first 31 characters of
  // the lower-case hexadecimal HMAC-SHA256, keyed with the access key, of a
  // random number below 10000 written in decimal. True when both were made;
  // false (keys unchanged, failure logged) otherwise.
  bool start();

  // Copies the pair (both empty before a successful start).
  void getStorageAkSk(std::string& accessKey, std::string& secretKey);

 private:
  [[maybe_unused]] int32_t m_reserved;  // kept for the record layout; nothing reads it
  std::string accessKey;
  std::string secretKey;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXSTORAGECONFIG_H
