// Helpers for database tests: the command-line SQLite shells (separate
// programs, so the tests never link the system SQLite), digests recomputed
// with libcrypto, and a database file that cannot be written.
#ifndef OXCFG_TESTS_DB_DB_TEST_SUPPORT_H
#define OXCFG_TESTS_DB_DB_TEST_SUPPORT_H

#include <openssl/evp.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>
#include <utility>

#include "platform/env.h"
#include "platform/hex.h"
#include "support/test_support.h"

namespace oxtest {

// Runs `tool` ("sqlite3" or "sqlcipher") on `db` with `script` on its input.
inline OxBase::CommandResult sqlShell(const std::string& tool, const std::string& db, const std::string& script) {
  return OxBase::Env::Default()->Run({tool, "-batch", db}, script, "");
}

inline std::string digestHex(const EVP_MD* md, const std::string& text) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(text.data(), text.size(), out, &len, md, nullptr);
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned i = 0; i < len; ++i) {
    hex += kDigits[out[i] >> 4];
    hex += kDigits[out[i] & 15];
  }
  return hex;
}

// A working directory with the factory files, whose databases the tests read
// with the shells: "Config.db3" with the storage key, "Syslog.db3" in clear.
class DBDirTest : public WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    copyFactory(dir());
  }
  // The storage key the private configuration hands out (the file is created
  // when missing, so it is the key a later start uses).
  const std::string& keyHex() {
    if (key_.empty()) {
      OxConfigMgr::CPrivateCfg cfg;
      cfg.loadFile();
      OxConfigMgr::tagEncryptInfo info;
      cfg.getEncryptParams(info);
      key_ = Vlue2HexString(info.storageKey, 32);
    }
    return key_;
  }
  // Runs `script` on database `file` and returns what the shell printed.
  std::string sql(const std::string& file, const std::string& script) {
    if (file == "Syslog.db3") return sqlShell("sqlite3", path(file), script + "\n").output;
    return sqlShell("sqlcipher", path(file), "PRAGMA key = \"x'" + keyHex() + "'\";\n" + script + "\n").output;
  }
  std::string version(const std::string& file) { return sql(file, "SELECT Value FROM Unit WHERE Key = 'version';"); }

 private:
  std::string key_;
};

// Fails Env::Open, and so the writability probe of the database wrapper, for
// paths ending in `suffix`: a file that cannot be written, even by root.
class UnwritableEnv : public OxBase::EnvWrapper {
 public:
  explicit UnwritableEnv(std::string suffix) : EnvWrapper(OxBase::Env::Current()), suffix_(std::move(suffix)) {}
  int Open(const std::string& p, int f, mode_t m) override {
    if (p.size() >= suffix_.size() && p.compare(p.size() - suffix_.size(), suffix_.size(), suffix_) == 0) {
      errno = EACCES;
      return -1;
    }
    return EnvWrapper::Open(p, f, m);
  }

 private:
  std::string suffix_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_DB_DB_TEST_SUPPORT_H
