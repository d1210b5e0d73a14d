// Uploading, inspecting and deleting the installed certificate, including
// certificates the library did not make and files that are not
// certificates at all.
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "security/cert_test_support.h"

namespace {

using OxConfigMgr::CertificateInfo;
using OxConfigMgr::CertificateReq;
using OxConfigMgr::COpenSSLCertificate;
using oxtest::fileExists;
using oxtest::readFile;

// A certificate issued by another authority: issuer and subject differ, a
// 20-byte serial, a GeneralizedTime end after 2049, and a subject in a
// two-byte string type.
std::string foreignCertificate() {
  oxtest::PkeyPtr caKey(EVP_EC_gen("P-256"));
  oxtest::PkeyPtr key(EVP_EC_gen("P-256"));
  oxtest::X509Ptr x(X509_new());
  X509_set_version(x.get(), 2);
  oxtest::BignumPtr serial(nullptr);
  BIGNUM* bn = nullptr;
  BN_hex2bn(&bn, "7FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF01");
  serial.reset(bn);
  BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x.get()));
  X509_NAME* issuer = X509_get_issuer_name(x.get());
  X509_NAME_add_entry_by_txt(issuer, "C", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("CH"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(issuer, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Other CA"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(issuer, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Root"), -1, -1, 0);
  X509_NAME* subject = X509_get_subject_name(x.get());
  X509_NAME_add_entry_by_txt(subject, "C", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("AT"), -1, -1, 0);
  // "Wien" with a non-ASCII character, as BMPString.
  const unsigned char bmp[] = {0x00, 'W', 0x00, 0xe4, 0x00, 'n'};
  X509_NAME_add_entry_by_txt(subject, "L", MBSTRING_BMP, bmp, sizeof bmp, -1, 0);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("first"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("second"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(subject, "DC", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("ignored"), -1, -1, 0);
  ASN1_TIME_set_string(X509_getm_notBefore(x.get()), "260101000000Z");
  ASN1_TIME_set_string(X509_getm_notAfter(x.get()), "20600101000000Z");
  X509_set_pubkey(x.get(), key.get());
  X509_sign(x.get(), caKey.get(), EVP_sha256());
  oxtest::BioPtr out(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(out.get(), x.get());
  char* data = nullptr;
  long len = BIO_get_mem_data(out.get(), &data);
  return std::string(data, static_cast<size_t>(len));
}

class CertUploadTest : public oxtest::CertTest {
 protected:
  int upload(std::string bytes) { return cert_.uploadCert(&bytes[0], static_cast<int>(bytes.size())); }
  void makeConfDir() {
    ::mkdir((dir() + "/nginx").c_str(), 0755);
    ::mkdir((dir() + "/nginx/conf").c_str(), 0755);
  }
  COpenSSLCertificate cert_;
};

TEST_F(CertUploadTest, ValidCertificateIsKeptByteForByte) {
  oxtest::ScopedTZ tz("UTC0");
  const std::string pem = foreignCertificate();
  ASSERT_FALSE(pem.empty());
  ASSERT_EQ(upload(pem), 0);
  EXPECT_EQ(readFile(conf("cert.pem")), pem);
  EXPECT_EQ(cert_.checkCertLegal(), 0);

  CertificateInfo info;
  ASSERT_EQ(cert_.getCertInfo(info), 0);
  EXPECT_EQ(info.keyType, "RSA_F4");
  BIGNUM* bn = nullptr;
  BN_hex2bn(&bn, "7FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF01");
  char* dec = BN_bn2dec(bn);
  EXPECT_EQ(info.serial, dec);
  OPENSSL_free(dec);
  BN_free(bn);
  EXPECT_EQ(info.notBefore, "2026-01-01 00:00:00");
  EXPECT_EQ(info.notAfter, "2060-01-01 00:00:00");
  EXPECT_EQ(info.issuer.country, "CH");
  EXPECT_EQ(info.issuer.organization, "Other CA");
  EXPECT_EQ(info.issuer.commonName, "Root");
  EXPECT_EQ(info.subject.country, "AT");
  EXPECT_EQ(info.subject.locality, "W\xc3\xa4n");  // as UTF-8
  EXPECT_EQ(info.subject.commonName, "second");    // the later entry wins
  EXPECT_EQ(info.subject.organization, "");

  // A present certificate blocks every upload until it is deleted.
  EXPECT_EQ(upload(pem), 516);
  EXPECT_EQ(upload("garbage"), 516);
  EXPECT_EQ(readFile(conf("cert.pem")), pem);
  EXPECT_EQ(cert_.deleteCertFile(), 0);
  EXPECT_EQ(upload(pem), 0);
}

TEST_F(CertUploadTest, LibraryMadeCertificateRoundTrips) {
  CertificateReq req = oxtest::makeReq("DE", "pw");
  cert_.setCertificateReq(req);
  ASSERT_EQ(cert_.generateSelfCert(), 0);
  const std::string pem = readFile(conf("cert.pem"));
  EXPECT_EQ(upload(pem), 516);
  ASSERT_EQ(cert_.deleteCertFile(), 0);
  ASSERT_EQ(upload(pem), 0);
  EXPECT_EQ(readFile(conf("cert.pem")), pem);
}

TEST_F(CertUploadTest, AtMost32768BytesOfAValidCertificate) {
  const std::string pem = foreignCertificate();
  // Text before the PEM block is allowed, and pads it to the limit.
  std::string padded = std::string(32768 - pem.size() - 1, 'c') + "\n" + pem;
  ASSERT_EQ(padded.size(), 32768u);
  ASSERT_EQ(upload(padded), 0);
  EXPECT_EQ(readFile(conf("cert.pem")), padded);
  ASSERT_EQ(cert_.deleteCertFile(), 0);
  EXPECT_FALSE(fileExists(conf("cert.pem")));
}

TEST_F(CertUploadTest, RefusedUploadsLeaveNoFile) {
  const std::string pem = foreignCertificate();
  struct Case {
    const char* what;
    std::string bytes;
    bool touchesDisk;  // false: refused before any file operation
  };
  const Case kCases[] = {
      // First, so that no earlier case has made the folders.
      {"32769 bytes", std::string(32769 - pem.size(), '\n') + pem, false},
      {"garbage", "this is not a certificate\n", true},
      {"empty", "", true},
      {"truncated", pem.substr(0, pem.size() / 2), true},
      {"truncated end line", pem.substr(0, pem.size() - 10), true},
      {"request instead of certificate", "-----BEGIN CERTIFICATE REQUEST-----\nMIIB\n-----END CERTIFICATE REQUEST-----\n", true},
      {"binary", std::string("\x30\x82\x01\x00\xff\x00", 6), true},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    oxtest::LogCapture log;
    EXPECT_EQ(upload(c.bytes), 3);
    EXPECT_FALSE(fileExists(conf("cert.pem")));
    if (c.touchesDisk) {
      EXPECT_TRUE(log.has(5, "checkCertLegal:ssl_load_cert error!"));
      EXPECT_TRUE(oxtest::listDir(dir() + "/nginx/conf").empty());
    } else {
      EXPECT_TRUE(log.has(5, "Too big  certificate length or cert NULL!"));
      EXPECT_FALSE(fileExists(dir() + "/nginx"));
    }
  }
  oxtest::LogCapture log;
  EXPECT_EQ(cert_.uploadCert(nullptr, 10), 3);
  char one = 'x';
  EXPECT_EQ(cert_.uploadCert(&one, -1), 3);
  EXPECT_TRUE(log.has(5, "Too big  certificate length or cert NULL!"));
}

TEST_F(CertUploadTest, WriteFailuresRefuseTheUpload) {
  const std::string pem = foreignCertificate();
  oxtest::FaultEnv fault;
  oxtest::ScopedEnv env(&fault);
  {
    fault.failOn(oxtest::FaultEnv::kOpen, EACCES);
    oxtest::LogCapture log;
    EXPECT_EQ(upload(pem), 3);
    EXPECT_TRUE(log.has(5, "open file failed, path[" + cert_.getCertFliePath() + "]"));
  }
  {
    fault.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
    oxtest::LogCapture log;
    EXPECT_EQ(upload(pem), 3);
    EXPECT_TRUE(log.has(5, "write cert file error!"));
  }
  EXPECT_FALSE(fileExists(conf("cert.pem")));
  EXPECT_TRUE(oxtest::listDir(dir() + "/nginx/conf").empty());
}

TEST_F(CertUploadTest, CertificateFileReplacedByGarbageOrFolder) {
  makeConfDir();
  CertificateInfo info;
  oxtest::writeFile(conf("cert.pem"), "-----BEGIN CERTIFICATE-----\n!!!!\n-----END CERTIFICATE-----\n");
  {
    oxtest::LogCapture log;
    EXPECT_EQ(cert_.getCertInfo(info), 517);
    EXPECT_TRUE(log.has(5, "Error reading certificate  req in file!"));
    EXPECT_TRUE(log.has(5, "load cert error!"));
    EXPECT_EQ(cert_.checkCertLegal(), 517);
    EXPECT_EQ(cert_.loadCertFile(), nullptr);
  }
  ASSERT_EQ(::unlink(conf("cert.pem").c_str()), 0);
  ASSERT_EQ(::mkdir(conf("cert.pem").c_str(), 0755), 0);
  {
    oxtest::LogCapture log;
    EXPECT_EQ(cert_.getCertInfo(info), 517);
    EXPECT_TRUE(log.has(5, "Error get certificate req file!"));
    EXPECT_EQ(cert_.checkCertLegal(), 517);
    EXPECT_EQ(upload(foreignCertificate()), 516);
    EXPECT_EQ(cert_.deleteCertFile(), 515);
    CertificateReq req = oxtest::makeReq("DE", "pw");
    cert_.setCertificateReq(req);
    EXPECT_EQ(cert_.generateSelfCert(), 516);
    EXPECT_FALSE(fileExists(conf("cert.key")));
  }
  EXPECT_EQ(info.serial, "");
  EXPECT_EQ(info.keyType, "");
}

TEST_F(CertUploadTest, LoadedCertificateBelongsToTheCaller) {
  ASSERT_EQ(upload(foreignCertificate()), 0);
  oxtest::X509Ptr loaded(cert_.loadCertFile());
  ASSERT_TRUE(loaded);
  std::string serial, before, after;
  OxConfigMgr::SubjectDN subject;
  OxConfigMgr::IssuerDN issuer;
  EXPECT_EQ(cert_.getCertSerial(loaded.get(), serial), 0);
  EXPECT_EQ(cert_.getCertSubjectInfo(loaded.get(), subject), 0);
  EXPECT_EQ(cert_.getCertIssuerInfo(loaded.get(), issuer), 0);
  EXPECT_EQ(cert_.getCertLife(loaded.get(), before, after), 0);
  EXPECT_EQ(issuer.commonName, "Root");
  EXPECT_EQ(cert_.getCertSerial(nullptr, serial), 518);
  EXPECT_EQ(cert_.getCertSubjectInfo(nullptr, subject), 518);
  EXPECT_EQ(cert_.getCertIssuerInfo(nullptr, issuer), 518);
}

}  // namespace
