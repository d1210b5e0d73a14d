// The oxcfg certificate commands, run as a separate process on a factory
// directory.
#include <string>
#include <vector>

#include "security/cert_test_support.h"

namespace {

using oxtest::fileExists;
using oxtest::readFile;

class CertCliTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    oxtest::WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  OxBase::CommandResult oxcfg(std::vector<std::string> args, const std::string& input = "") {
    return oxtest::runOxcfgIn(dir(), std::move(args), input);
  }
  std::string conf(const std::string& name) const { return dir() + "/nginx/conf/" + name; }
};

TEST_F(CertCliTest, RequestSelfSignShowUploadDownloadDelete) {
  // The password never comes from the command line.
  auto r = oxcfg({"cert", "req", "--country", "DE", "--password", "pw"}, "pw\n");
  EXPECT_EQ(r.exitCode, 2) << r.output;
  EXPECT_FALSE(fileExists(conf("cert.key")));

  r = oxcfg({"cert", "req", "--country", "DE", "--org", "A \"B\"", "--cn", "gw.test"}, "from stdin\n");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_EQ(readFile(conf("key.pass")), "from stdin");
  EXPECT_TRUE(oxtest::parseKey(readFile(conf("cert.key")), "from stdin"));
  r = oxcfg({"cert", "show", "--req"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("C=DE, O=A \"B\", CN=gw.test"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("2048"), std::string::npos) << r.output;
  r = oxcfg({"cert", "download-req", dir() + "/download.pem"});
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_EQ(readFile(dir() + "/download.pem"), readFile(conf("certreq.pem")));
  EXPECT_EQ(oxcfg({"cert", "req", "--country", "DE"}, "x\n").exitCode, 1);  // 516
  EXPECT_EQ(oxcfg({"cert", "delete", "--req"}).exitCode, 0);
  EXPECT_FALSE(fileExists(conf("certreq.pem")));

  r = oxcfg({"cert", "show"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("517"), std::string::npos) << r.output;
  r = oxcfg({"cert", "selfsign", "--days", "10", "--country", "de"}, "\n");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("513"), std::string::npos) << r.output;
  r = oxcfg({"cert", "selfsign", "--days", "10", "--country", "US", "--cn", "self"}, "\n");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_EQ(readFile(conf("key.pass")), "");
  r = oxcfg({"cert", "show"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("C=US, CN=self"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("serial       2"), std::string::npos) << r.output;
  r = oxcfg({"show", "cert", "--json"});
  EXPECT_NE(r.output.find("\"subject\": \"C=US, CN=self\""), std::string::npos) << r.output;

  const std::string pem = readFile(conf("cert.pem"));
  oxtest::writeFile(dir() + "/upload.pem", pem);
  EXPECT_EQ(oxcfg({"cert", "upload", dir() + "/upload.pem"}).exitCode, 1);  // 516
  EXPECT_EQ(oxcfg({"cert", "delete"}).exitCode, 0);
  EXPECT_EQ(oxcfg({"cert", "delete"}).exitCode, 1);  // 2: nothing to delete
  oxtest::writeFile(dir() + "/garbage.pem", "not a certificate");
  r = oxcfg({"cert", "upload", dir() + "/garbage.pem"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("result 3"), std::string::npos) << r.output;
  EXPECT_FALSE(fileExists(conf("cert.pem")));
  EXPECT_EQ(oxcfg({"cert", "upload", dir() + "/upload.pem"}).exitCode, 0);
  EXPECT_EQ(readFile(conf("cert.pem")), pem);
}

}  // namespace
