// The certificate object's life, its file paths and its RSA key: creation
// and saving (key enciphered under the request's password, the password
// beside it for the web server).
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstring>
#include <string>

#include "platform/oxbase.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {

using namespace cert;

namespace {

constexpr unsigned long kPublicExponent = 65537;  // RSA_F4

// A fresh RSA key of `bits` bits with exponent 65537, or null.
PkeyPtr makeRsaKey(int bits) {
  PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  BignumPtr exponent(BN_new());
  if (!ctx || !exponent || BN_set_word(exponent.get(), kPublicExponent) != 1) return nullptr;
  if (EVP_PKEY_keygen_init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), bits) <= 0 ||
      EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx.get(), exponent.get()) <= 0) {
    return nullptr;
  }
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_generate(ctx.get(), &key) <= 0) return nullptr;
  return PkeyPtr(key);
}

}  // namespace

void COpenSSLCertificate::Free::operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
void COpenSSLCertificate::Free::operator()(X509_REQ* p) const { X509_REQ_free(p); }
void COpenSSLCertificate::Free::operator()(X509* p) const { X509_free(p); }

COpenSSLCertificate::COpenSSLCertificate() {
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS,
                      nullptr);
  m_pkey.reset(EVP_PKEY_new());
  if (!m_pkey) OXLOG(5, "[%s(%d)] Failed to create EVP_PKEY object!");
  m_req.reset(X509_REQ_new());
  if (!m_req) OXLOG(5, "[%s(%d)] Failed to create X509_REQ object!");
  m_cert.reset(X509_new());
  if (!m_cert) OXLOG(5, "[%s(%d)] Failed to create X509 object!");
  m_cert2.reset(X509_new());
  if (!m_cert2) OXLOG(5, "[%s(%d)] Failed to create X509 object!");
}

COpenSSLCertificate::~COpenSSLCertificate() { OxBase::SecureWipe(m_certReq.password); }

std::string COpenSSLCertificate::getCertFliePath() try {
  return OX_BASE_GetCurDir() + "nginx/conf/cert.pem";
} catch (...) {
  return std::string();
}

std::string COpenSSLCertificate::getCertReqPath() try {
  return OX_BASE_GetCurDir() + "nginx/conf/certreq.pem";
} catch (...) {
  return std::string();
}

std::string COpenSSLCertificate::getCertKeyPath() try {
  return OX_BASE_GetCurDir() + "nginx/conf/cert.key";
} catch (...) {
  return std::string();
}

std::string COpenSSLCertificate::getPasswdPath() try {
  return OX_BASE_GetCurDir() + "nginx/conf/key.pass";
} catch (...) {
  return std::string();
}

void COpenSSLCertificate::setCertificateReq(CertificateReq& req) try {
  m_certReq.text1 = req.text1;
  m_certReq.validity = req.validity;
  OxBase::SecureWipe(m_certReq.password);
  m_certReq.password = req.password;
  m_certReq.keyBits = req.keyBits;
  m_certReq.subject = req.subject;
} catch (...) {
}

int COpenSSLCertificate::generateRSA(int bits, const char* keyPath, const unsigned char* password, int) try {
  PkeyPtr key = makeRsaKey(bits);
  if (!key || !m_req || X509_REQ_set_pubkey(m_req.get(), key.get()) != 1) {
    OXLOG(5, "[%s(%d)] create RSA key failed!");
    return kFailed;
  }
  m_pkey.reset(key.release());
  if (saveRSAKey(keyPath, password) != kOk) {
    OXLOG(5, "[%s(%d)] save RSA key failed!");
    return kFailed;
  }
  return kOk;
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::saveRSAKey(const char* keyPath, const unsigned char* password) try {
  if (!m_pkey || !keyPath) return kFailed;
  const char* pass = reinterpret_cast<const char*>(password);
  const bool encipher = pass && pass[0] != '\0';
  EVP_PKEY* key = m_pkey.get();
  const WriteResult keyWrite = writePem(keyPath, true, [&](BIO* bio) {
    if (encipher) {
      return PEM_write_bio_PrivateKey(bio, key, EVP_aes_256_cbc(), password,
                                      static_cast<int>(std::strlen(pass)), nullptr, nullptr);
    }
    return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
  });
  switch (keyWrite) {
    case WriteResult::kOk:
      break;
    case WriteResult::kNoBio:
    case WriteResult::kOpen:
      OXLOG(5, "[%s(%d)]  save rsa key create bio file error");
      return kFailed;
    case WriteResult::kEncode:
    case WriteResult::kWrite:
      if (!encipher) OXLOG(5, "[%s(%d)] passwd NULL save rsa key call PEM_write_bio_PrivateKey error");
      return kFailed;
  }
  // The web server opens the key with this file; it is written even when
  // empty, so that a key in clear never meets a stale password.
  const size_t passLen = pass ? std::strlen(pass) : 0;
  switch (writeBytes(getPasswdPath(), pass ? pass : "", passLen, true)) {
    case WriteResult::kOk:
      return kOk;
    case WriteResult::kOpen:
      OXLOG(5, "[%s(%d)] open key passwd file failure !");
      return kFailed;
    default:
      OXLOG(5, "[%s(%d)] write key passwd file failure!");
      return kFailed;
  }
} catch (...) {
  return kFailed;
}

}  // namespace OxConfigMgr
