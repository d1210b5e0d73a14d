// Self-signed certificates: what is written, and what the inspection
// reports of it, under a fixed clock and a fixed time zone.
#include <openssl/objects.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "security/cert_test_support.h"

namespace {

using OxConfigMgr::CertificateInfo;
using OxConfigMgr::CertificateReq;
using OxConfigMgr::COpenSSLCertificate;
using oxtest::fileExists;
using oxtest::readFile;

class CertSelfSignTest : public oxtest::CertTest {};

TEST_F(CertSelfSignTest, VersionSerialDigestAndValidityEastAndWestOfUtc) {
  // Without daylight saving, the validity starts at the local wall-clock
  // time written as UTC; the texts are local times.
  const struct {
    const char* tz;
    const char* password;
    int days;
    int64_t notBefore;  // seconds
    const char* from;
    const char* to;
  } rows[] = {
      {"XYZ-1", "pw", 365, oxtest::kFixedNow - 3600, "2026-03-01 13:00:00", "2027-03-01 13:00:00"},
      {"XYZ+5:30", "", 30, oxtest::kFixedNow + 5 * 3600 + 1800, "2026-03-01 06:30:00", "2026-03-31 06:30:00"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.tz);
    oxtest::ScopedTZ tz(row.tz);
    COpenSSLCertificate cert;
    CertificateReq req = oxtest::makeReq("DE", row.password, row.days);
    cert.setCertificateReq(req);
    ASSERT_EQ(cert.generateSelfCert(), 0);
    EXPECT_FALSE(fileExists(conf("certreq.pem")));  // the request stays in memory

    auto x509 = oxtest::parseCert(readFile(conf("cert.pem")));
    ASSERT_TRUE(x509);
    EXPECT_EQ(X509_get_version(x509.get()), 2);  // X.509 v3
    EXPECT_EQ(ASN1_INTEGER_get(X509_get0_serialNumber(x509.get())), 2);
    EXPECT_EQ(X509_get_signature_nid(x509.get()), NID_sha256WithRSAEncryption);
    EXPECT_EQ(X509_NAME_cmp(X509_get_subject_name(x509.get()), X509_get_issuer_name(x509.get())), 0);
    const int64_t notBefore = oxtest::asn1Seconds(X509_get0_notBefore(x509.get()));
    EXPECT_EQ(notBefore, row.notBefore);
    EXPECT_EQ(oxtest::asn1Seconds(X509_get0_notAfter(x509.get())) - notBefore, row.days * 86400);

    // Signed by the key written beside it, under the password.
    auto key = oxtest::parseKey(readFile(conf("cert.key")), row.password);
    ASSERT_TRUE(key);
    EXPECT_EQ(X509_verify(x509.get(), key.get()), 1);
    EXPECT_EQ(X509_check_private_key(x509.get(), key.get()), 1);
    EXPECT_EQ(readFile(conf("key.pass")), row.password);
    EXPECT_EQ(oxtest::fileMode(conf("cert.pem")), oxtest::newFileMode());  // not a secret

    EXPECT_EQ(cert.checkCertLegal(), 0);
    CertificateInfo info;
    ASSERT_EQ(cert.getCertInfo(info), 0);
    EXPECT_EQ(info.keyType, "RSA_F4");
    EXPECT_EQ(info.serial, "2");
    EXPECT_EQ(info.notBefore, row.from);
    EXPECT_EQ(info.notAfter, row.to);
    EXPECT_EQ(info.subject.country, "DE");
    EXPECT_EQ(info.subject.commonName, "gw.example.test");
    EXPECT_EQ(info.subject.email, "admin@example.test");
    EXPECT_EQ(info.issuer.country, info.subject.country);
    EXPECT_EQ(info.issuer.state, info.subject.state);
    EXPECT_EQ(info.issuer.locality, info.subject.locality);
    EXPECT_EQ(info.issuer.organization, info.subject.organization);
    EXPECT_EQ(info.issuer.organizationalUnit, info.subject.organizationalUnit);
    EXPECT_EQ(info.issuer.commonName, info.subject.commonName);
    EXPECT_EQ(info.issuer.email, info.subject.email);
    EXPECT_EQ(info.text1, "");
    ASSERT_EQ(cert.deleteCertFile(), 0);
  }
}

TEST_F(CertSelfSignTest, ExistingCertificateBlocksGenerationAndMakesNoKey) {
  COpenSSLCertificate cert;
  CertificateReq req = oxtest::makeReq("DE", "pw");
  cert.setCertificateReq(req);
  ASSERT_EQ(cert.generateSelfCert(), 0);
  const std::string certPem = readFile(conf("cert.pem"));
  const std::string keyPem = readFile(conf("cert.key"));
  EXPECT_EQ(cert.generateSelfCert(), 516);
  EXPECT_EQ(readFile(conf("cert.pem")), certPem);
  EXPECT_EQ(readFile(conf("cert.key")), keyPem);

  // After a delete, a new key and certificate replace both.
  EXPECT_EQ(cert.deleteCertFile(), 0);
  EXPECT_EQ(cert.deleteCertFile(), 2);
  ASSERT_EQ(cert.generateSelfCert(), 0);
  EXPECT_NE(readFile(conf("cert.key")), keyPem);
  EXPECT_NE(readFile(conf("cert.pem")), certPem);
}

TEST_F(CertSelfSignTest, FailuresGiveTheirCodes) {
  COpenSSLCertificate cert;
  {
    oxtest::LogCapture log;
    CertificateReq req = oxtest::makeReq("de", "pw");
    cert.setCertificateReq(req);
    EXPECT_EQ(cert.generateSelfCert(), 513);
    EXPECT_TRUE(log.has(5, "Error generate cert req!"));
    EXPECT_FALSE(fileExists(conf("cert.key")));
  }
  {
    // Nothing to sign yet, or nowhere to write.
    oxtest::LogCapture log;
    EXPECT_EQ(cert.signCertReq(2, 365, nullptr, nullptr), 512);
    EXPECT_TRUE(log.has(5, "signCertReq NULL!"));
    std::string path = conf("cert.pem");
    EXPECT_EQ(cert.signCertReq(2, 365, nullptr, &path[0]), 512);
    EXPECT_TRUE(log.has(5, "Error getting public key from request!"));
  }
  {
    // No file can be renamed into place: none is left, not even a
    // temporary one.
    oxtest::FaultEnv fault;
    fault.failOn(oxtest::FaultEnv::kRename, EIO);
    oxtest::ScopedEnv env(&fault);
    oxtest::LogCapture log;
    CertificateReq req = oxtest::makeReq("DE", "pw");
    cert.setCertificateReq(req);
    EXPECT_EQ(cert.generateSelfCert(), 512);
    EXPECT_FALSE(fileExists(conf("cert.pem")));
    EXPECT_FALSE(fileExists(conf("cert.key")));
  }
  EXPECT_TRUE(oxtest::listDir(dir() + "/nginx/conf").empty());
  {
    // A validity ending after the year 9999 cannot be written.
    oxtest::LogCapture log;
    CertificateReq req = oxtest::makeReq("DE", "pw", 3000000);
    cert.setCertificateReq(req);
    EXPECT_EQ(cert.generateSelfCert(), 512);
    EXPECT_TRUE(log.has(5, "Error setting ending time of the certificate\n"));
    EXPECT_TRUE(log.has(5, "Error sign cert req\n"));
    EXPECT_FALSE(fileExists(conf("cert.pem")));
  }
}

TEST_F(CertSelfSignTest, TimeTextsAndOffset) {
  COpenSSLCertificate cert;
  {
    oxtest::ScopedTZ tz("UTC0");
    EXPECT_EQ(cert.getGMTOff(), 0);
    EXPECT_EQ(cert.timeTToTimeStr(0), "1970-01-01 00:00:00");
    EXPECT_EQ(cert.timeTToTimeStr(253402300799), "9999-12-31 23:59:59");
    EXPECT_EQ(cert.timeTToTimeStr(-631152000), "1950-01-01 00:00:00");
  }
  {
    oxtest::ScopedTZ tz("XYZ-9");
    EXPECT_EQ(cert.getGMTOff(), 9 * 3600);
    EXPECT_EQ(cert.timeTToTimeStr(oxtest::kFixedNow), "2026-03-01 21:00:00");
  }
  EXPECT_EQ(cert.checkCertExist(nullptr), 2);
  std::string missing = conf("cert.pem");
  EXPECT_EQ(cert.checkCertExist(&missing[0]), 2);
  std::string here = dir() + "/present";
  oxtest::writeFile(here, "x");
  EXPECT_EQ(cert.checkCertExist(&here[0]), 0);
  EXPECT_EQ(cert.getCertLife(nullptr, here, missing), 518);
}

}  // namespace
