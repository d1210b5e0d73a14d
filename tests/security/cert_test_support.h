// Shared pieces of the certificate tests: a fixture in a fresh working
// directory with a fixed clock and time zone, subject builders, and readers
// that parse what the library wrote with OpenSSL itself.
#ifndef OXCFG_TESTS_SECURITY_CERT_TEST_SUPPORT_H
#define OXCFG_TESTS_SECURITY_CERT_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "security/cert_internal.h"
#include "support/test_support.h"

namespace oxtest {

using OxConfigMgr::cert::BignumPtr;
using OxConfigMgr::cert::BioPtr;
using OxConfigMgr::cert::NamePtr;
using OxConfigMgr::cert::PkeyPtr;
using OxConfigMgr::cert::ReqPtr;
using OxConfigMgr::cert::X509Ptr;

// 2026-03-01 12:00:00 UTC.
constexpr int64_t kFixedNow = 1772366400;

// The wall clock stands at `now` seconds.
class FixedClockEnv : public OxBase::EnvWrapper {
 public:
  explicit FixedClockEnv(int64_t now) : EnvWrapper(OxBase::Env::Current()), now_(now) {}
  int64_t NowMicros() override { return now_ * 1000000; }

 private:
  int64_t now_;
};

inline OxConfigMgr::CertificateReq makeReq(const std::string& country, const std::string& password,
                                           int validity = 365) {
  OxConfigMgr::CertificateReq req;
  req.text1 = "gateway";
  req.validity = validity;
  req.password = password;
  req.subject.country = country;
  req.subject.state = "Bavaria";
  req.subject.locality = "Munich";
  req.subject.organization = "Example Gateways";
  req.subject.organizationalUnit = "Web";
  req.subject.commonName = "gw.example.test";
  req.subject.email = "admin@example.test";
  return req;
}

inline std::unique_ptr<BIO, void (*)(BIO*)> memBio(const std::string& text) {
  return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free_all};
}

inline X509Ptr parseCert(const std::string& pem) {
  auto bio = memBio(pem);
  return X509Ptr(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

inline ReqPtr parseReq(const std::string& pem) {
  auto bio = memBio(pem);
  return ReqPtr(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
}

// Reads a private key; `password` may be empty for a key in clear.
inline PkeyPtr parseKey(const std::string& pem, const std::string& password) {
  auto bio = memBio(pem);
  return PkeyPtr(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr,
                                         const_cast<char*>(password.c_str())));
}

// The entries of a name as "SN=value" in order, values as UTF-8.
inline std::vector<std::string> nameEntries(const X509_NAME* name) {
  std::vector<std::string> out;
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const X509_NAME_ENTRY* e = X509_NAME_get_entry(name, i);
    unsigned char* utf8 = nullptr;
    int len = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(e));
    out.push_back(std::string(OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(e)))) + "=" +
                  std::string(reinterpret_cast<char*>(utf8), len > 0 ? static_cast<size_t>(len) : 0));
    OPENSSL_free(utf8);
  }
  return out;
}

// Seconds since 1970 of an ASN.1 time, by OpenSSL's own parser.
inline int64_t asn1Seconds(const ASN1_TIME* t) {
  struct tm parts {};
  if (ASN1_TIME_to_tm(t, &parts) != 1) return INT64_MIN;
  return static_cast<int64_t>(timegm(&parts));
}

// Permission bits of a file newly created with 0644 under this umask.
inline mode_t newFileMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0644 & ~mask;
}

// A test in a fresh working directory with the clock at kFixedNow.
class CertTest : public WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    clock_.reset(new FixedClockEnv(kFixedNow));
    OxBase::Env::Install(clock_.get());
  }
  void TearDown() override {
    OxBase::Env::Install(nullptr);
    clock_.reset();
    WorkDirTest::TearDown();
  }
  std::string conf(const std::string& name) const { return dir_ + "/nginx/conf/" + name; }
  // Names in nginx/conf, to see that no temporary file was left behind.
  std::vector<std::string> confFiles() const { return listDir(dir_ + "/nginx/conf"); }

  std::unique_ptr<FixedClockEnv> clock_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SECURITY_CERT_TEST_SUPPORT_H
