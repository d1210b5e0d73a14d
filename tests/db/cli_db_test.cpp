// The oxcfg commands of the administrator account and the log settings, run
// as a separate process on a factory directory.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "db/db_test_support.h"

namespace {

class CliDBTest : public oxtest::DBDirTest {
 protected:
  OxBase::CommandResult oxcfg(std::vector<std::string> args, const std::string& input = "") {
    return oxtest::runOxcfgIn(dir(), std::move(args), input);
  }
};

TEST_F(CliDBTest, ShowUsersPasswdFromStandardInputAndSetLog) {
  // Setting the log level re-reads the logging configuration in the child,
  // whose appender teardown trips ASan inside the system library (see
  // test_support.cpp); without ASan the variable is ignored.
  ::setenv("ASAN_OPTIONS", "new_delete_type_mismatch=0", 0);
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto users = OX_ConfigMgr_GetUserCfg();
  ASSERT_TRUE(users);

  auto r = oxcfg({"passwd", "2"}, "from stdin\n");
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_EQ(oxcfg({"passwd", "secret-on-the-command-line"}, "x\n").exitCode, 2);
  ASSERT_TRUE(users->loadDatabase(1));
  std::string ha1;
  users->getDigestHA1(ha1, "admin");
  EXPECT_EQ(ha1, oxtest::digestHex(EVP_md5(), "admin:" + users->getRealm() + ":from stdin"));

  r = oxcfg({"show", "users"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("admin"), std::string::npos) << r.output;
  EXPECT_EQ(r.output.find(ha1), std::string::npos);  // hashes are never shown

  r = oxcfg({"set", "log", "level", "2"});
  EXPECT_EQ(r.exitCode, 0) << r.output;
  OxConfigMgr::CMaintain maintain;
  ASSERT_TRUE(maintain.loadFile());
  EXPECT_EQ(maintain.getLogLevel(), 2);
}

}  // namespace
