// Self-signed certificates: the request of this object signed with its own
// key into the certificate file.
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/osl.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {

using namespace cert;

namespace {

constexpr long kSerialNumber = 2;
constexpr int64_t kSecondsPerDay = 86400;

}  // namespace

int COpenSSLCertificate::generateSelfCert() try {
  std::string certPath = getCertFliePath();
  if (exists(certPath)) return kExists;
  int rc = generateReqWithoutFile();
  if (rc != kOk) {
    OXLOG(5, "[%s(%d)] Error generate cert req!");
    return rc;
  }
  std::vector<char> path(certPath.begin(), certPath.end());
  path.push_back('\0');
  // The password is handed on as the signing step's signature wants it; it
  // is not used there.
  rc = signCertReq(2, m_certReq.validity, const_cast<char*>(m_certReq.password.c_str()), path.data());
  if (rc != kOk) {
    OXLOG(5, "[%s(%d)] Error sign cert req\n");
    return rc;
  }
  return kOk;
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::signCertReq(long version, int days, char*, char* certPath) try {
  if (!certPath) {
    OXLOG(5, "[%s(%d)] signCertReq NULL!");
    return kFailed;
  }
  PkeyPtr publicKey(m_req ? X509_REQ_get_pubkey(m_req.get()) : nullptr);
  if (!publicKey) {
    OXLOG(5, "[%s(%d)] Error getting public key from request!");
    return kFailed;
  }
  if (X509_REQ_verify(m_req.get(), publicKey.get()) <= 0) {
    OXLOG(5, "[%s(%d)] Error verifying signature on certificate!");
    return kFailed;
  }
  X509* cert = m_cert.get();
  if (!cert || X509_set_version(cert, version) != 1 ||
      ASN1_INTEGER_set(X509_get_serialNumber(cert), kSerialNumber) != 1) {
    OXLOG(5, "[%s(%d)] Error setting certificate version!");
    return kFailed;
  }
  X509_NAME* subject = X509_REQ_get_subject_name(m_req.get());
  if (!subject) {
    OXLOG(5, "[%s(%d)] Error getting subject name from request!");
    return kFailed;
  }
  if (X509_set_subject_name(cert, subject) != 1) {
    OXLOG(5, "[%s(%d)] Error setting subject name of certificate!");
    return kFailed;
  }
  if (X509_set_issuer_name(cert, subject) != 1) {
    OXLOG(5, "[%s(%d)] Error setting issuer name of certificate!");
    return kFailed;
  }
  if (X509_set_pubkey(cert, publicKey.get()) != 1) {
    OXLOG(5, "[%s(%d)] Error setting public key of the certificate!");
    return kFailed;
  }
  // The validity starts at the local wall-clock time written as if it were
  // UTC; getCertLife adds the offset back, so the web interface shows the
  // local time of signing.
  const int gmtOff = getGMTOff();
  if (gmtOff == -1) {
    OXLOG(5, "[%s(%d)] get time zone error!");
    return kFailed;
  }
  const int64_t start = OSL_TimeNow() / 1000000 - gmtOff;
  // The encoder writes years past 9999 with more than four digits, which
  // no reader accepts: such a bound counts as not set.
  ASN1_TIME* notBefore = X509_getm_notBefore(cert);
  if (!ASN1_TIME_set(notBefore, static_cast<time_t>(start)) || ASN1_TIME_check(notBefore) != 1) {
    OXLOG(5, "[%s(%d)] Error setting beginning time of the certificate\n");
    return kFailed;
  }
  ASN1_TIME* notAfter = X509_getm_notAfter(cert);
  if (!ASN1_TIME_set(notAfter, static_cast<time_t>(start + days * kSecondsPerDay)) ||
      ASN1_TIME_check(notAfter) != 1) {
    OXLOG(5, "[%s(%d)] Error setting ending time of the certificate\n");
    return kFailed;
  }
  if (!m_pkey || X509_sign(cert, m_pkey.get(), EVP_sha256()) <= 0) {
    OXLOG(5, "[%s(%d)] Error signing certificate\n");
    return kFailed;
  }
  // Replaced atomically: the web server never meets a missing or partial
  // certificate.
  return writePublicPem(certPath, [cert](BIO* bio) { return PEM_write_bio_X509(bio, cert); }, __FUNCTION__);
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::getGMTOff() try {
  OSL_ExpTime local;
  if (OSL_ExpTimeFromTimeLocal(OSL_TimeNow(), &local) != 0) {
    OXLOG(5, "[%s(%d)] Osl get time local error");
    return -1;
  }
  return local.tm_gmtoff;
} catch (...) {
  return -1;
}

}  // namespace OxConfigMgr
