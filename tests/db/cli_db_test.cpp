// The oxcfg commands of the administrator account and the log settings, run
// as a separate process on a factory directory.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <stdlib.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "db/db_test_support.h"
#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

#if defined(__SANITIZE_ADDRESS__)
#define OXTEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OXTEST_ASAN 1
#endif
#endif

namespace {

class CliDBTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
#ifdef OXTEST_ASAN
    // Changing the log level re-reads the log4cxx configuration, whose
    // RollingFileAppender teardown trips ASan inside the system library (as
    // at exit, see test_support.cpp); the oxcfg child gets the same option.
    ::setenv("ASAN_OPTIONS", "new_delete_type_mismatch=0", 0);
#endif
  }
  OxBase::CommandResult oxcfg(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.begin(), {OXCFG_CLI_PATH, "-C", dir()});
    return OxBase::Env::Default()->Run(args, input, "");
  }
  std::string textAt(std::initializer_list<const char*> at) {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(path("Config.xml")) != 1 || !OxConfigMgr::xmlWalk(xml, at)) return "<absent>";
    return xml.GetData();
  }
  static std::string md5Hex(const std::string& text) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_Digest(text.data(), text.size(), out, &len, EVP_md5(), nullptr);
    return oxtest::hexOf(out, static_cast<int>(len));
  }
};

TEST_F(CliDBTest, PasswdReadsStandardInputNeverTheCommandLineAndShowUsersHidesTheHashes) {
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto users = OX_ConfigMgr_GetUserCfg();
  ASSERT_TRUE(users);

  auto r = oxcfg({"passwd", "2"}, "from stdin\n");
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_NE(r.output.find("passwd: done (result 0)"), std::string::npos) << r.output;
  ASSERT_TRUE(users->loadDatabase(1));
  std::string ha1;
  users->getDigestHA1(ha1, "admin");
  EXPECT_EQ(ha1, md5Hex("admin:" + users->getRealm() + ":from stdin"));
  OxConfigMgr::tagUserInfo info;
  users->getUserInfo(info);
  EXPECT_EQ(info.PasswordLevel, 2);

  EXPECT_EQ(oxcfg({"passwd", "secret-on-the-command-line"}, "x\n").exitCode, 2);
  EXPECT_EQ(oxcfg({"passwd", "1", "2"}, "x\n").exitCode, 2);
  EXPECT_EQ(oxcfg({"passwd"}, "").exitCode, 2);       // nothing read
  EXPECT_EQ(oxcfg({"passwd"}, "\n").exitCode, 2);     // empty
  EXPECT_EQ(oxcfg({"passwd"}, std::string(1100, 'p') + "\n").exitCode, 2);  // too long to read whole
  EXPECT_EQ(oxcfg({"passwd"}, std::string(1025, 'p') + "\n").exitCode, 1);  // refused by the library
  ASSERT_TRUE(users->loadDatabase(1));
  users->getDigestHA1(ha1, "admin");
  EXPECT_EQ(ha1, md5Hex("admin:" + users->getRealm() + ":from stdin"));

  r = oxcfg({"show", "users"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("admin"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find(users->getRealm()), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("yes"), std::string::npos) << r.output;
  EXPECT_EQ(r.output.find(ha1), std::string::npos);
  EXPECT_EQ(r.output.find(users->getSessionSalt()), std::string::npos);
  EXPECT_EQ(r.output.find(users->getSessionPwd()), std::string::npos);
}

TEST_F(CliDBTest, LogSettingsAreShownAndSetWithTheLibrarysResult) {
  auto r = oxcfg({"set", "log", "level", "2"});
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_NE(r.output.find("set log level: done (result 0)"), std::string::npos);
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Level"}), "2");
  EXPECT_EQ(oxcfg({"set", "log", "level", "8"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"set", "log", "enable", "maybe"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"set", "log", "enable", "off"}).exitCode, 0);
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Enable"}), "0");
  EXPECT_NE(oxtest::readFile(path("log4cxx.properties")).find("log4j.rootLogger=OFF, file"), std::string::npos);
  EXPECT_EQ(oxcfg({"set", "log", "transparent", "on"}).exitCode, 0);
  EXPECT_EQ(textAt({"Config", "Maintain", "LogDeviceTransparent"}), "1");

  r = oxcfg({"show", "log"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("2 (DEBUG)"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("200 days"), std::string::npos) << r.output;

  // A section without the element: the library's result 1 and its meaning.
  std::string config = oxtest::readFile(path("Config.xml"));
  const std::string line = "<LogDeviceTransparent>1</LogDeviceTransparent>";
  config.erase(config.find(line), line.size());
  oxtest::writeFile(path("Config.xml"), config);
  r = oxcfg({"set", "log", "transparent", "off"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("failed (result 1: the element is missing"), std::string::npos) << r.output;
}

}  // namespace
