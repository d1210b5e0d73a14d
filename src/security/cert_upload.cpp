// The installed certificate file: existence, deletion and upload of an
// administrator's certificate, kept only when it reads as a certificate.
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <string>

#include "platform/osl.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {

using namespace cert;

int COpenSSLCertificate::checkCertExist(char* path) try {
  if (!path) return kNoSuchFile;
  const OSL_File file = OSL_OpenFile(path, OSL_FILE_READ, 0);
  if (file == OSL_INVALID_FILE) return kNoSuchFile;
  OSL_CloseFile(file);
  return kOk;
} catch (...) {
  return kNoSuchFile;
}

int COpenSSLCertificate::deleteCertFile() try {
  const std::string path = getCertFliePath();
  if (!exists(path)) return kNoSuchFile;
  return OSL_DeleteFile(path.c_str()) == 0 ? kOk : kNotDeleted;
} catch (...) {
  return kNotDeleted;
}

int COpenSSLCertificate::uploadCert(char* data, int length) try {
  if (!data || length < 0 || static_cast<size_t>(length) > kMaxPemBytes) {
    OXLOG(5, "[%s(%d)] Too big  certificate length or cert NULL!");
    return kUploadRefused;
  }
  const std::string path = getCertFliePath();
  if (exists(path)) return kExists;
  // Written atomically, then judged by the same reader that will serve it;
  // a refused upload is removed again.
  switch (writeBytes(path, data, static_cast<size_t>(length), false)) {
    case WriteResult::kOk:
      break;
    case WriteResult::kOpen:
      OXLOG(5, "[%s(%d)] open file failed, path[%s]", path.c_str());
      return kUploadRefused;
    default:
      OXLOG(5, "[%s(%d)] write cert file error!");
      return kUploadRefused;
  }
  if (checkCertLegal() == kOk) return kOk;
  if (OSL_DeleteFile(path.c_str()) != 0) OXLOG(5, "[%s(%d)] Error delete cert file!");
  return kUploadRefused;
} catch (...) {
  return kUploadRefused;
}

}  // namespace OxConfigMgr
