// The administrator account of the web interface, as kept in the encrypted
// configuration database: the HTTP digest hash (HA1) of the password with its
// realm, and a salted SHA-256 session password with its salt.
#ifndef OXCONFIGMGR_OXUSERCFG_H
#define OXCONFIGMGR_OXUSERCFG_H

#include <oxconfigmgr/OxExport.h>
#include <oxconfigmgr/OxMutex.h>

#include <cstdint>
#include <memory>
#include <string>

namespace OxConfigMgr {

class CGatewayDBConn;

// Strength grade of a password, as the web side assigns it. Any value fits:
// it is stored as given (8 bits) and shown back.
enum tagPASSWORD_LEVEL {
  PASSWORD_LEVEL_RISK = 0,
  PASSWORD_LEVEL_WEAK = 1,
  PASSWORD_LEVEL_MEDIUM = 2,
  PASSWORD_LEVEL_STRONG = 3,
};

// One row of the user table. Texts are NUL-terminated; hashes and salts are
// lower-case hexadecimal. A default-constructed record is all zeros.
struct tagUserInfo {
  int32_t ID = 0;
  char Name[33] = {};
  uint8_t UserLevel = 0;
  uint8_t PasswordLevel = 0;
  char Realm[33] = {};
  char DigestPassword[65] = {};   // HA1 = MD5("name:realm:password"); empty: no password yet
  char SessionSalt[65] = {};      // 64 hex characters
  char SessionPassword[65] = {};  // SHA-256(name + salt + password), 64 hex characters
};

// Thread-safety: every method may be called from any thread; the record is
// read and replaced whole under an internal lock, and the database work of
// loadDatabase, releDataBase, setUserInfo and setPassword is serialised.
// No method throws.
class OXCFG_API CUserCfg {
 public:
  CUserCfg();
  ~CUserCfg();
  CUserCfg(const CUserCfg&) = delete;
  CUserCfg& operator=(const CUserCfg&) = delete;

  // Reads the user table into memory (the last row wins). `reopen` non-zero
  // replaces the connection with one opened anew on "Config.db3" (after the
  // file was replaced); zero keeps the connection this object has, whatever
  // its state, and opens one only when there is none. A user without a realm
  // is given "ZX-AG2010(n)", n random in 0..99999, written back at once (that
  // write is not checked; the row is read again inside the write transaction,
  // so processes starting together on a new database keep one realm). False when no connection can be made or the table
  // cannot be read (a connection that failed to open stays until a reopen);
  // the record then stays as it was.
  bool loadDatabase(int reopen);
  // Closes the connection. Always true.
  bool releDataBase();

  // True once a password has been set (the digest hash is not empty).
  bool isActivated() const;
  // For exactly "admin": copies the digest hash into `ha1` and returns 0.
  // Any other name returns 1 and leaves `ha1` alone.
  int getDigestHA1(std::string& ha1, const char* user) const;
  std::string getSessionPwd() const;
  std::string getSessionSalt() const;
  std::string getRealm() const;
  std::string getUserName() const;
  void getUserInfo(tagUserInfo& info);

  // Writes the record's password level, realm, digest hash, salt and session
  // password to the row of its name; when that succeeds the whole record
  // becomes the one in memory, otherwise "setUserInfo faild." is logged and
  // memory stays as it was.
  void setUserInfo(const tagUserInfo& info);

  // Sets the password of "admin": a new digest hash over "name:realm:password"
  // (giving a realm first if there is none; the text is cut to 255 characters
  // when longer), a new random salt and a session password over the whole
  // password, stored with `level`. 0 on success: memory holds the new values
  // even if the database write failed, which is not reported. 1 when `user`
  // is not exactly "admin" or `password` is null (nothing changes).
  int setPassword(tagPASSWORD_LEVEL level, const char* password, const char* user);

 private:
  tagUserInfo m_info;
  std::unique_ptr<CGatewayDBConn> m_conn;
  mutable OSL_Mutex m_recordMutex;  // guards m_info
  OSL_Mutex m_dbMutex;              // guards m_conn and the database work
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXUSERCFG_H
