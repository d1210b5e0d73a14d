// Helpers for database tests: the command-line SQLite shells (run as separate
// programs from an argument vector, so the tests never link the system
// SQLite), keys, and a configurable init manager.
#ifndef OXCFG_TESTS_DB_DB_TEST_SUPPORT_H
#define OXCFG_TESTS_DB_DB_TEST_SUPPORT_H

#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/env.h"
#include "platform/hex.h"
#include "platform/sqlite3do.h"

namespace oxtest {

// Runs `tool` ("sqlite3" or "sqlcipher") on `db` with `script` on its
// standard input.
inline OxBase::CommandResult sqlShell(const std::string& tool, const std::string& db,
                                      const std::string& script) {
  return OxBase::Env::Default()->Run({tool, "-batch", db}, script, "");
}

// The SQLCipher shell's statement applying a raw key.
inline std::string keyPragma(const std::string& keyHex) {
  return "PRAGMA key = \"x'" + keyHex + "'\";\n";
}

// Runs `sql` in the SQLCipher shell with the raw key.
inline OxBase::CommandResult cipherQuery(const std::string& db, const std::string& keyHex,
                                         const std::string& sql) {
  return sqlShell("sqlcipher", db, keyPragma(keyHex) + sql + "\n");
}

inline std::string hexOf(const unsigned char* key, int len = 32) { return Vlue2HexString(key, len); }

// The storage key of the private configuration of the working directory
// (created there when it has none), read without starting the library.
inline std::string directStorageKeyHex(unsigned char out[32] = nullptr) {
  OxConfigMgr::CPrivateCfg cfg;
  cfg.loadFile();
  OxConfigMgr::tagEncryptInfo info;
  cfg.getEncryptParams(info);
  if (out) std::memcpy(out, info.storageKey, 32);
  return hexOf(info.storageKey);
}

// The storage key of the started library.
inline std::string startedStorageKeyHex() {
  auto cfg = OX_ConfigMgr_GetPrivateCfg();
  if (!cfg) return "";
  OxConfigMgr::tagEncryptInfo info;
  cfg->getEncryptParams(info);
  return hexOf(info.storageKey);
}

// An init manager whose file, key, target, scripts and upgrade table a test
// chooses; it records the versions it was asked to lift.
class TestInitManager : public Sqlite3DO::CBaseDBInitManager {
 public:
  std::string path;
  std::vector<unsigned char> key;
  std::string target = "1.8.0.0";
  std::string createSql;
  bool hasCreateSql = true;
  std::map<std::string, std::string> upgrades;
  std::vector<std::string> asked;

  bool GetDBUtf8Path(std::string& p) override {
    p = path;
    return true;
  }
  bool GetDBKey(unsigned char* k, int& len) override {
    std::memcpy(k, key.data(), key.size());
    len = static_cast<int>(key.size());
    return true;
  }
  Sqlite3DO::CDBVersion GetDBTargetVersion() override { return Sqlite3DO::CDBVersion(target); }
  bool GetDBTargetVerCreatSql(std::string& sql) override {
    sql = createSql;
    return hasCreateSql;
  }
  bool getDBTargetVerUpgradeSql(std::string& sql, const std::string& version) override {
    asked.push_back(version);
    auto it = upgrades.find(version);
    if (it == upgrades.end()) return false;
    sql = it->second;
    return true;
  }
};

// A script that creates the version table at `version`.
inline std::string unitTableSql(const std::string& version) {
  return "CREATE TABLE Unit(Key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY,Value LONGVARCHAR);"
         "insert into Unit (Key, Value) values('version', '" + version + "');";
}

inline std::string setVersionSql(const std::string& version) {
  return "UPDATE Unit SET Value = '" + version + "' WHERE Key = 'version';";
}

// Fails Env::Open (and so the writability probe of the wrapper) for paths
// ending in `suffix`: a database file that cannot be written, even by root.
class UnwritableEnv : public OxBase::EnvWrapper {
 public:
  explicit UnwritableEnv(std::string suffix)
      : EnvWrapper(OxBase::Env::Default()), suffix_(std::move(suffix)) {}
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
