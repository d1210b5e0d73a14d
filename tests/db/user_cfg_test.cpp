// The administrator's credentials in the encrypted configuration database.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <stdio.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "db/db_test_support.h"
#include "support/test_support.h"

using OxConfigMgr::CUserCfg;
using OxConfigMgr::tagUserInfo;

namespace {

std::string digestHex(const EVP_MD* md, const std::string& text) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EXPECT_EQ(EVP_Digest(text.data(), text.size(), out, &len, md, nullptr), 1);
  static const char hex[] = "0123456789abcdef";
  std::string s;
  for (unsigned i = 0; i < len; ++i) {
    s += hex[out[i] >> 4];
    s += hex[out[i] & 15];
  }
  return s;
}

// Field by field: the record has padding that copies need not preserve.
bool sameRecord(const tagUserInfo& a, const tagUserInfo& b) {
  return a.ID == b.ID && std::strcmp(a.Name, b.Name) == 0 && a.UserLevel == b.UserLevel &&
         a.PasswordLevel == b.PasswordLevel && std::strcmp(a.Realm, b.Realm) == 0 &&
         std::strcmp(a.DigestPassword, b.DigestPassword) == 0 && std::strcmp(a.SessionSalt, b.SessionSalt) == 0 &&
         std::strcmp(a.SessionPassword, b.SessionPassword) == 0;
}

// Fixed random numbers and UUIDs, so realm and salt are known in advance.
class FixedEnv : public OxBase::EnvWrapper {
 public:
  FixedEnv() : EnvWrapper(OxBase::Env::Default()) {}
  uint32_t Random32() override { return 4000012345u; }
  void NewUuid(unsigned char out[16]) override {
    for (int i = 0; i < 16; ++i) out[i] = static_cast<unsigned char>(i + 16 * uuids_);
    ++uuids_;
  }
  // The next UUID is 00010203-0405-0607-0809-0a0b0c0d0e0f.
  void resetUuids() { uuids_ = 0; }

 private:
  int uuids_ = 0;
};

class UserCfgTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  void start() {
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    users = OX_ConfigMgr_GetUserCfg();
    ASSERT_TRUE(users);
    key = oxtest::startedStorageKeyHex();
  }
  // One column of the admin row as the SQLCipher shell reads it.
  std::string column(const std::string& name) {
    auto r = oxtest::cipherQuery(path("Config.db3"), key, "SELECT " + name + " FROM Users WHERE Name = 'admin';");
    EXPECT_EQ(r.exitCode, 0) << r.output;
    if (!r.output.empty() && r.output.back() == '\n') r.output.pop_back();
    return r.output;
  }
  // Replaces the database file the way an import does: a new inode.
  void replaceDatabase(const std::string& from) {
    ASSERT_EQ(::rename(from.c_str(), path("Config.db3").c_str()), 0);
  }
  void snapshot(const std::string& to) { oxtest::writeFile(to, oxtest::readFile(path("Config.db3"))); }

  std::shared_ptr<CUserCfg> users;
  std::string key;
};

TEST_F(UserCfgTest, AFreshDatabaseHoldsTheAdministratorWithoutAPasswordButWithARealm) {
  start();
  EXPECT_EQ(users->getUserName(), "admin");
  EXPECT_FALSE(users->isActivated());
  std::smatch m;
  const std::string realm = users->getRealm();
  ASSERT_TRUE(std::regex_match(realm, m, std::regex(R"(ZX-AG2010\((\d{1,5})\))"))) << realm;
  EXPECT_EQ(column("Realm"), realm);
  EXPECT_EQ(users->getSessionPwd(), "");
  EXPECT_EQ(users->getSessionSalt(), "");

  std::string ha1 = "untouched";
  EXPECT_EQ(users->getDigestHA1(ha1, "Admin"), 1);
  EXPECT_EQ(users->getDigestHA1(ha1, nullptr), 1);
  EXPECT_EQ(ha1, "untouched");
  EXPECT_EQ(users->getDigestHA1(ha1, "admin"), 0);
  EXPECT_EQ(ha1, "");

  tagUserInfo info;
  users->getUserInfo(info);
  EXPECT_EQ(info.ID, 1);
  EXPECT_EQ(info.UserLevel, 0);
  EXPECT_EQ(info.PasswordLevel, 0);
}

TEST_F(UserCfgTest, TheRealmNumberIsTheRandomNumberModulo100000) {
  FixedEnv env;
  oxtest::ScopedEnv scoped(&env);
  start();
  EXPECT_EQ(users->getRealm(), "ZX-AG2010(12345)");
  EXPECT_EQ(column("Realm"), "ZX-AG2010(12345)");
  // A realm once given is kept.
  CUserCfg other;
  ASSERT_TRUE(other.loadDatabase(0));
  EXPECT_EQ(other.getRealm(), "ZX-AG2010(12345)");
}

TEST_F(UserCfgTest, APasswordGivesDigestSaltAndSessionPasswordAsLibcryptoComputesThem) {
  FixedEnv env;
  oxtest::ScopedEnv scoped(&env);
  start();
  env.resetUuids();
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, "s3cret!", "admin"), 0);
  EXPECT_TRUE(users->isActivated());

  const std::string realm = users->getRealm();
  const std::string ha1 = digestHex(EVP_md5(), "admin:" + realm + ":s3cret!");
  // The UUID's text is the salt's source.
  const std::string salt = digestHex(EVP_sha256(), "00010203-0405-0607-0809-0a0b0c0d0e0f");
  const std::string session = digestHex(EVP_sha256(), "admin" + salt + "s3cret!");
  std::string got;
  ASSERT_EQ(users->getDigestHA1(got, "admin"), 0);
  EXPECT_EQ(got, ha1);
  EXPECT_EQ(users->getSessionSalt(), salt);
  EXPECT_EQ(users->getSessionPwd(), session);

  EXPECT_EQ(column("DigestPassword"), ha1);
  EXPECT_EQ(column("SessionSalt"), salt);
  EXPECT_EQ(column("SessionPassword"), session);
  EXPECT_EQ(column("PasswordLevel"), "3");
  EXPECT_EQ(column("typeof(PasswordLevel)"), "integer");
  EXPECT_EQ(column("Realm"), realm);
}

TEST_F(UserCfgTest, EveryChangeHasANewSaltButTheSameDigest) {
  start();
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "same", "admin"), 0);
  tagUserInfo first;
  users->getUserInfo(first);
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_MEDIUM, "same", "admin"), 0);
  tagUserInfo second;
  users->getUserInfo(second);
  EXPECT_STREQ(first.DigestPassword, second.DigestPassword);
  EXPECT_STRNE(first.SessionSalt, second.SessionSalt);
  EXPECT_STRNE(first.SessionPassword, second.SessionPassword);
  for (const tagUserInfo* i : {&first, &second}) {
    EXPECT_EQ(std::strlen(i->SessionSalt), 64u);
    EXPECT_EQ(std::strlen(i->SessionPassword), 64u);
    EXPECT_EQ(std::string(i->SessionSalt).find_first_not_of("0123456789abcdef"), std::string::npos);
  }
  EXPECT_EQ(second.PasswordLevel, 2);
  EXPECT_EQ(column("SessionSalt"), second.SessionSalt);
}

TEST_F(UserCfgTest, OnlyAdminMayHaveAPassword) {
  start();
  tagUserInfo before;
  users->getUserInfo(before);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "x", "Admin"), 1);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "x", "root"), 1);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "x", nullptr), 1);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, nullptr, "admin"), 1);
  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, std::string(1025, 'p').c_str(), "admin"), 1);
  tagUserInfo after;
  users->getUserInfo(after);
  EXPECT_TRUE(sameRecord(before, after));
  EXPECT_FALSE(users->isActivated());
  EXPECT_EQ(column("quote(DigestPassword)"), "NULL");
}

TEST_F(UserCfgTest, APasswordWithQuotesSemicolonsAndBackslashesIsJustAPassword) {
  start();
  const std::string password = "a'b\"c;d\\e'); DROP TABLE Users; --%s%d";
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, password.c_str(), "admin"), 0);
  tagUserInfo mem;
  users->getUserInfo(mem);
  EXPECT_EQ(column("DigestPassword"), mem.DigestPassword);
  EXPECT_EQ(column("SessionPassword"), digestHex(EVP_sha256(), std::string("admin") + mem.SessionSalt + password));

  CUserCfg reread;
  ASSERT_TRUE(reread.loadDatabase(1));
  tagUserInfo db;
  reread.getUserInfo(db);
  EXPECT_TRUE(sameRecord(mem, db));
}

TEST_F(UserCfgTest, ReloadingWithReopenReadsAReplacedFile) {
  start();
  snapshot(path("fresh.db3"));
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "pw", "admin"), 0);
  replaceDatabase(path("fresh.db3"));

  ASSERT_TRUE(users->loadDatabase(0));  // still the old, unlinked file
  EXPECT_TRUE(users->isActivated());
  ASSERT_TRUE(users->loadDatabase(1));
  EXPECT_FALSE(users->isActivated());
  EXPECT_EQ(users->getUserName(), "admin");
}

TEST_F(UserCfgTest, SavedCredentialsSurviveAReplacedDatabase) {
  start();
  snapshot(path("other.db3"));
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_MEDIUM, "keep me", "admin"), 0);
  tagUserInfo saved;
  users->getUserInfo(saved);

  replaceDatabase(path("other.db3"));
  ASSERT_TRUE(users->loadDatabase(1));
  EXPECT_FALSE(users->isActivated());
  users->setUserInfo(saved);
  EXPECT_TRUE(users->isActivated());
  EXPECT_EQ(column("DigestPassword"), saved.DigestPassword);
  EXPECT_EQ(column("SessionSalt"), saved.SessionSalt);
  EXPECT_EQ(column("SessionPassword"), saved.SessionPassword);
  EXPECT_EQ(column("Realm"), saved.Realm);
  EXPECT_EQ(column("PasswordLevel"), "2");
  tagUserInfo now;
  users->getUserInfo(now);
  EXPECT_TRUE(sameRecord(now, saved));
}

TEST_F(UserCfgTest, WithoutAConnectionSetUserInfoFailsAndSetPasswordChangesOnlyMemory) {
  start();
  tagUserInfo before;
  users->getUserInfo(before);
  ASSERT_TRUE(users->releDataBase());

  tagUserInfo other = before;
  std::strcpy(other.DigestPassword, "0123");
  oxtest::LogCapture log;
  users->setUserInfo(other);
  EXPECT_TRUE(log.has(5, "setUserInfo faild."));
  EXPECT_FALSE(users->isActivated());

  EXPECT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "mem only", "admin"), 0);
  EXPECT_TRUE(users->isActivated());
  EXPECT_EQ(column("quote(DigestPassword)"), "NULL");
}

TEST_F(UserCfgTest, AnUnreadableDatabaseFailsTheLoadAndKeepsTheRecord) {
  start();
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, "pw", "admin"), 0);
  oxtest::writeFile(path("junk"), std::string(4096, 'j'));
  replaceDatabase(path("junk"));
  EXPECT_FALSE(users->loadDatabase(1));
  EXPECT_TRUE(users->isActivated());
  EXPECT_EQ(oxtest::readFile(path("Config.db3")), std::string(4096, 'j'));
}

TEST_F(UserCfgTest, GettersRunAlongsidePasswordChanges) {
  start();
  std::atomic<bool> done{false};
  std::atomic<int> bad{0};
  std::thread reader([&] {
    while (!done) {
      std::string salt = users->getSessionSalt();
      if (!salt.empty() && salt.size() != 64) ++bad;
      tagUserInfo info;
      users->getUserInfo(info);
      if (std::strcmp(info.Name, "admin") != 0) ++bad;
    }
  });
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_WEAK, ("pw" + std::to_string(i)).c_str(), "admin"), 0);
  }
  done = true;
  reader.join();
  EXPECT_EQ(bad, 0);
  EXPECT_EQ(column("SessionSalt"), users->getSessionSalt());
}

TEST_F(UserCfgTest, AUserTableThatCannotBeReadStopsTheStartAtTheUserStep) {
  // A current database without the user table: the database steps pass,
  // the user step fails.
  key = oxtest::directStorageKeyHex();
  auto r = oxtest::cipherQuery(path("Config.db3"), key, oxtest::unitTableSql("1.8.0.0"));
  ASSERT_EQ(r.exitCode, 0) << r.output;
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CUserCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetUserCfg());
  EXPECT_TRUE(OX_ConfigMgr_GetLogCfg());
  CUserCfg fresh;
  EXPECT_FALSE(fresh.loadDatabase(0));
  EXPECT_EQ(fresh.getUserName(), "");
}

}  // namespace
