// Secrets stay private: every file a run of the library creates or rewrites
// has the mode it should (0600 for the ones that hold secrets, the mode it
// had for the rest), the configuration database cannot be read without its
// key, and no key, password or secret of the run reaches the log.
#include <sys/stat.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "db/db_test_support.h"
#include "platform/hex.h"
#include "proof/proof_support.h"
#include "support/test_support.h"

namespace {

const std::set<std::string> kSecretFiles = {"PrivateConfig.xml", "Config.db3", "Syslog.db3", "nginx/conf/cert.key",
                                            "nginx/conf/key.pass"};

class SecretsTest : public oxtest::DBDirTest {
 protected:
  void SetUp() override {
    DBDirTest::SetUp();
    ASSERT_EQ(::symlink("/usr/bin/7za", path("7za").c_str()), 0);
    ASSERT_EQ(::mkdir(path("nginx").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(path("nginx/conf").c_str(), 0755), 0);
    // Looser than the library wants, to see it tightened on rewrite.
    ::chmod(path("PrivateConfig.xml").c_str(), 0644);
    ::chmod(path("QAPIConfig.xml").c_str(), 0640);
  }
  // Regular files under the working directory, by relative path.
  std::map<std::string, mode_t> files(const std::string& rel = "") {
    std::map<std::string, mode_t> out;
    for (const std::string& n : oxtest::listDir(rel.empty() ? dir() : path(rel))) {
      const std::string r = rel.empty() ? n : rel + "/" + n;
      struct stat st;
      if (::lstat(path(r).c_str(), &st) != 0) continue;
      if (S_ISDIR(st.st_mode)) {
        for (auto& kv : files(r)) out.insert(kv);
      } else if (S_ISREG(st.st_mode)) {
        out[r] = st.st_mode & 07777;
      }
    }
    return out;
  }
};

TEST_F(SecretsTest, FilesHaveTheirModesTheDatabaseNeedsItsKeyAndTheLogHoldsNoSecret) {
  const std::map<std::string, mode_t> before = files();
  const std::string userPassword = "Adm1n#Secret-Proof-xq";
  const std::string keyPassword = "KeyPass#Secret-Proof-ul";
  const std::string archivePassword = "Arch1ve#Secret-Proof-ze";
  std::string storageKey;
  {
    oxtest::LogCapture capture;
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    OX_ConfigMgr_GetUserCfg()->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, userPassword.c_str(), "admin");
    OX_ConfigMgr_GetQAPICfg()->setQAPIParam(0);
    OX_ConfigMgr_GetBasicCfg()->setProductName("secrets");
    OX_ConfigMgr_GetLogCfg()->setLogLevel(XLOG_LEVEL(3));
    auto cert = OX_ConfigMgr_GetOpenSSLCert();
    ASSERT_TRUE(cert);
    ASSERT_EQ(cert->generateRSA(2048, cert->getCertKeyPath().c_str(),
                                reinterpret_cast<const unsigned char*>(keyPassword.c_str()),
                                static_cast<int>(keyPassword.size())),
              0);
    std::string archive;
    ASSERT_EQ(OX_ConfigMgr_GetCfgImportAndExport()->exportConfigData(archive, archivePassword), 0);
    oxtest::writeFile(path("configurationIn.zip"), archive);
    EXPECT_EQ(OX_ConfigMgr_GetCfgImportAndExport()->importConfigData(archivePassword), 0);
    EXPECT_EQ(OX_ConfigMgr_GetCfgImportAndExport()->importConfigData("wrong-" + archivePassword), 258);
    ::unlink(path("configurationIn.zip").c_str());

    OxConfigMgr::tagUserInfo info;
    OX_ConfigMgr_GetUserCfg()->getUserInfo(info);
    OxConfigMgr::tagEncryptInfo enc;
    OX_ConfigMgr_GetPrivateCfg()->getEncryptParams(enc);
    storageKey = Vlue2HexString(enc.storageKey, 32);
    std::vector<std::string> secrets = {userPassword, keyPassword, archivePassword, storageKey,
                                        info.DigestPassword, info.SessionPassword, info.SessionSalt};
    std::string upper = storageKey;
    for (char& c : upper) c = static_cast<char>(toupper(c));
    secrets.push_back(upper);
    size_t messages = 0;
    for (const auto& e : capture.entries()) {
      ++messages;
      for (const std::string& s : secrets) {
        ASSERT_FALSE(s.empty());
        EXPECT_EQ(e.text.find(s), std::string::npos) << "secret in: " << e.text;
      }
    }
    oxproof::summary("secrets: log-messages=" + std::to_string(messages) + " secrets-searched=" +
                     std::to_string(secrets.size()));
  }

  // Every file now present: secrets 0600, the rest as they were (new ones
  // with the mode the process's umask gives).
  const mode_t umaskNow = ::umask(022);
  ::umask(umaskNow);
  int checked = 0;
  for (const auto& kv : files()) {
    ++checked;
    if (kSecretFiles.count(kv.first)) {
      EXPECT_EQ(kv.second, 0600u) << kv.first;
    } else if (before.count(kv.first)) {
      EXPECT_EQ(kv.second, before.at(kv.first)) << kv.first;
    } else {
      EXPECT_EQ(kv.second & 0077 & ~(0666 & ~umaskNow), 0u) << kv.first << " is more open than the umask allows";
    }
  }
  for (const std::string& s : kSecretFiles) EXPECT_TRUE(oxtest::fileExists(path(s))) << s;
  oxproof::summary("secrets: files-checked=" + std::to_string(checked));

  // The configuration database: nothing without the key, nothing with a
  // wrong one, the tables with the right one.
  const std::string probe = "SELECT count(*) FROM sqlite_master;\n";
  auto noKey = oxtest::sqlShell("sqlcipher", path("Config.db3"), probe);
  EXPECT_EQ(noKey.output.find("Users"), std::string::npos);
  EXPECT_TRUE(noKey.exitCode != 0 || noKey.output.find("not a database") != std::string::npos) << noKey.output;
  std::string wrongKey(64, '0');
  auto wrong = oxtest::sqlShell("sqlcipher", path("Config.db3"), "PRAGMA key = \"x'" + wrongKey + "'\";\n" + probe);
  EXPECT_TRUE(wrong.exitCode != 0 || wrong.output.find("not a database") != std::string::npos) << wrong.output;
  EXPECT_EQ(sql("Config.db3", "SELECT Name FROM Users;"), "admin\n");
  // The plain file does not show the administrator's name or hashes.
  const std::string raw = oxtest::readFile(path("Config.db3"));
  EXPECT_EQ(raw.find("SQLite format 3"), std::string::npos);
  EXPECT_EQ(raw.find("admin"), std::string::npos);
}

}  // namespace
