// The web server must serve what the library writes: a real nginx is
// pointed at the library's key, password file and certificate, and OpenSSL's
// client checks the certificate it presents against what getCertInfo
// reports.
#include <string>

#include "security/cert_test_support.h"
#include "support/nginx_server.h"

namespace {

using OxConfigMgr::CertificateInfo;
using OxConfigMgr::CertificateReq;
using OxConfigMgr::COpenSSLCertificate;
using oxtest::readFile;

class CertNginxTest : public oxtest::CertTest {
 protected:
  void SetUp() override {
    oxtest::CertTest::SetUp();
    if (oxtest::NginxServer::findProgram().empty()) {
      GTEST_SKIP() << "nginx is not installed (scripts/install-deps.sh installs nginx-light)";
    }
  }

  // Starts nginx on the library's files and checks that the certificate it
  // serves is the file's, with the subject, serial and validity that
  // getCertInfo reports.
  void expectServed(COpenSSLCertificate& cert, oxtest::NginxServer& nginx) {
    std::string error;
    ASSERT_TRUE(nginx.start(dir() + "/nginx-run", cert.getCertFliePath(), cert.getCertKeyPath(),
                            cert.getPasswdPath(), &error))
        << error;
    std::string output;
    const std::string served = nginx.servedCertificate(&output);
    ASSERT_FALSE(served.empty()) << output;
    auto servedCert = oxtest::parseCert(served);
    auto fileCert = oxtest::parseCert(readFile(cert.getCertFliePath()));
    ASSERT_TRUE(servedCert);
    ASSERT_TRUE(fileCert);
    EXPECT_EQ(X509_cmp(servedCert.get(), fileCert.get()), 0);

    CertificateInfo info;
    ASSERT_EQ(cert.getCertInfo(info), 0);
    EXPECT_EQ(info.serial, std::to_string(ASN1_INTEGER_get(X509_get0_serialNumber(servedCert.get()))));
    // The validity as the web interface shows it: the bound plus the local
    // offset, in local time (UTC here).
    const int off = cert.getGMTOff();
    EXPECT_EQ(info.notBefore, cert.timeTToTimeStr(oxtest::asn1Seconds(X509_get0_notBefore(servedCert.get())) + off));
    EXPECT_EQ(info.notAfter, cert.timeTToTimeStr(oxtest::asn1Seconds(X509_get0_notAfter(servedCert.get())) + off));
    const auto entries = oxtest::nameEntries(X509_get_subject_name(servedCert.get()));
    EXPECT_EQ(entries, (std::vector<std::string>{"C=" + info.subject.country, "ST=" + info.subject.state,
                                                 "L=" + info.subject.locality, "O=" + info.subject.organization,
                                                 "OU=" + info.subject.organizationalUnit,
                                                 "CN=" + info.subject.commonName,
                                                 "emailAddress=" + info.subject.email}));
    EXPECT_EQ(oxtest::nameEntries(X509_get_issuer_name(servedCert.get())), entries);
  }
};

TEST_F(CertNginxTest, ServesSelfSignedCertificateWithAndWithoutKeyPassword) {
  oxtest::ScopedTZ tz("UTC0");
  COpenSSLCertificate cert;
  oxtest::NginxServer nginx;
  {
    SCOPED_TRACE("key enciphered under a password");
    CertificateReq req = oxtest::makeReq("DE", "nginx opens me: \"quoted\"");
    cert.setCertificateReq(req);
    ASSERT_EQ(cert.generateSelfCert(), 0);
    expectServed(cert, nginx);
    CertificateInfo info;
    ASSERT_EQ(cert.getCertInfo(info), 0);
    EXPECT_EQ(info.notBefore, "2026-03-01 12:00:00");
    EXPECT_EQ(info.notAfter, "2027-03-01 12:00:00");
    EXPECT_EQ(info.serial, "2");
    nginx.stop();
  }
  {
    // The same files replaced by a key in clear and an empty password file.
    SCOPED_TRACE("key in clear");
    ASSERT_EQ(cert.deleteCertFile(), 0);
    CertificateReq req = oxtest::makeReq("US", "", 30);
    req.subject.commonName = "second.example.test";
    cert.setCertificateReq(req);
    ASSERT_EQ(cert.generateSelfCert(), 0);
    ASSERT_EQ(readFile(cert.getPasswdPath()), "");
    expectServed(cert, nginx);
    CertificateInfo info;
    ASSERT_EQ(cert.getCertInfo(info), 0);
    EXPECT_EQ(info.subject.commonName, "second.example.test");
    EXPECT_EQ(info.notAfter, "2026-03-31 12:00:00");
  }
}

}  // namespace
