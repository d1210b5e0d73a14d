// The administrator's credentials in the encrypted configuration database.
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstring>
#include <memory>
#include <thread>
#include <string>

#include "db/db_conn.h"
#include "db/db_test_support.h"

using OxConfigMgr::CUserCfg;
using OxConfigMgr::tagUserInfo;
using oxtest::digestHex;

namespace {

class UserCfgTest : public oxtest::DBDirTest {
 protected:
  void SetUp() override {
    DBDirTest::SetUp();
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    users = OX_ConfigMgr_GetUserCfg();
    ASSERT_TRUE(users);
  }
  // Columns of the admin row as the SQLCipher shell prints them.
  std::string adminRow(const std::string& columns) {
    return sql("Config.db3", "SELECT " + columns + " FROM Users WHERE Name = 'admin';");
  }
  std::shared_ptr<CUserCfg> users;
};

TEST_F(UserCfgTest, APasswordIsStoredAsLibcryptoComputesItWhateverCharactersItHas) {
  const std::string password = "a'b\"c;d\\e'); DROP TABLE Users; --%s";
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, password.c_str(), "admin"), 0);
  EXPECT_TRUE(users->isActivated());
  const std::string salt = users->getSessionSalt();
  const std::string ha1 = digestHex(EVP_md5(), "admin:" + users->getRealm() + ":" + password);
  const std::string session = digestHex(EVP_sha256(), "admin" + salt + password);
  std::string got;
  ASSERT_EQ(users->getDigestHA1(got, "admin"), 0);
  EXPECT_EQ(got, ha1);
  EXPECT_EQ(users->getSessionPwd(), session);
  EXPECT_EQ(salt.size(), 64u);
  EXPECT_EQ(adminRow("PasswordLevel, DigestPassword, SessionSalt, SessionPassword"),
            "3|" + ha1 + "|" + salt + "|" + session + "\n");

  CUserCfg reread;
  ASSERT_TRUE(reread.loadDatabase(1));
  ASSERT_EQ(reread.getDigestHA1(got, "admin"), 0);
  EXPECT_EQ(got, ha1);
  EXPECT_EQ(reread.getSessionPwd(), session);
}

TEST_F(UserCfgTest, OnlyAdminHasAPasswordAndEveryChangeHasANewSalt) {
  for (const char* user : {"Admin", "root", "", static_cast<const char*>(nullptr)}) {
    SCOPED_TRACE(user ? user : "null");
    EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "x", user), 1);
    std::string ha1 = "untouched";
    EXPECT_EQ(users->getDigestHA1(ha1, user), 1);
    EXPECT_EQ(ha1, "untouched");
  }
  EXPECT_FALSE(users->isActivated());

  tagUserInfo first, second;
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "same", "admin"), 0);
  users->getUserInfo(first);
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "same", "admin"), 0);
  users->getUserInfo(second);
  EXPECT_STREQ(first.DigestPassword, second.DigestPassword);
  EXPECT_STRNE(first.SessionSalt, second.SessionSalt);
  EXPECT_STRNE(first.SessionPassword, second.SessionPassword);
}

TEST_F(UserCfgTest, AReplacedDatabaseIsReadOnReopenAndSetUserInfoRestoresTheCredentials) {
  oxtest::writeFile(path("copy.db3"), oxtest::readFile(path("Config.db3")));  // no password yet
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_MEDIUM, "keep me", "admin"), 0);
  tagUserInfo saved;
  users->getUserInfo(saved);

  // Replaced as an import does it: a new file under the old name.
  ASSERT_EQ(::rename(path("copy.db3").c_str(), path("Config.db3").c_str()), 0);
  ASSERT_TRUE(users->loadDatabase(0));  // the open connection still reads the old file
  EXPECT_TRUE(users->isActivated());
  ASSERT_TRUE(users->loadDatabase(1));
  EXPECT_FALSE(users->isActivated());

  users->setUserInfo(saved);
  EXPECT_TRUE(users->isActivated());
  EXPECT_EQ(adminRow("PasswordLevel, Realm, DigestPassword, SessionSalt, SessionPassword"),
            std::string("2|") + saved.Realm + "|" + saved.DigestPassword + "|" + saved.SessionSalt + "|" +
                saved.SessionPassword + "\n");
}

TEST_F(UserCfgTest, TheDigestTextIsBoundedTheSessionPasswordCoversTheWholePassword) {
  const std::string longPassword(1500, 'p');
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, longPassword.c_str(), "admin"), 0);
  // "name:realm:password" is formed in 256 bytes: its first 255 characters.
  const std::string digestText = ("admin:" + users->getRealm() + ":" + longPassword).substr(0, 255);
  std::string ha1;
  ASSERT_EQ(users->getDigestHA1(ha1, "admin"), 0);
  EXPECT_EQ(ha1, digestHex(EVP_md5(), digestText));
  EXPECT_EQ(users->getSessionPwd(), digestHex(EVP_sha256(), "admin" + users->getSessionSalt() + longPassword));

  // A null password has no text: refused, nothing changes.
  tagUserInfo before, after;
  users->getUserInfo(before);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, nullptr, "admin"), 1);
  users->getUserInfo(after);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

TEST_F(UserCfgTest, ARefusedDatabaseWriteIsNotReportedAndMemoryTakesTheNewPassword) {
  ASSERT_EQ(sql("Config.db3", "ALTER TABLE Users RENAME TO Gone;"), "");
  oxtest::LogCapture log;
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_MEDIUM, "unsaved", "admin"), 0);
  EXPECT_TRUE(users->isActivated());
  std::string ha1;
  users->getDigestHA1(ha1, "admin");
  EXPECT_EQ(ha1, digestHex(EVP_md5(), "admin:" + users->getRealm() + ":unsaved"));
  for (const auto& e : log.entries()) EXPECT_LT(e.level, 5) << e.text;
  EXPECT_FALSE(log.contains("store password"));
  EXPECT_EQ(sql("Config.db3", "SELECT quote(DigestPassword) FROM Gone;"), "NULL\n");
}

TEST_F(UserCfgTest, ARealmGivenMeanwhileByAnotherProcessIsTheOneKept) {
  ASSERT_EQ(sql("Config.db3", "UPDATE Users SET Realm = NULL;"), "");
  // Another process is giving the realm: its write is not committed yet when
  // this object reads the row.
  OxConfigMgr::CGatewayDBConn other;
  ASSERT_TRUE(other.Begin());
  ASSERT_TRUE(other.ExecuteBound("UPDATE Users SET Realm = ? WHERE Name=?", {"ZX-AG2010(7)", "admin"}));
  CUserCfg loading;
  bool loaded = false;
  std::thread t([&] { loaded = loading.loadDatabase(0); });
  ::usleep(300000);
  ASSERT_TRUE(other.Commit());
  t.join();
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loading.getRealm(), "ZX-AG2010(7)");
  EXPECT_EQ(adminRow("Realm"), "ZX-AG2010(7)\n");
}

}  // namespace
