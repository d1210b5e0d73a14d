#include <oxconfigmgr/OxUserCfg.h>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "db/db_conn.h"
#include "frame/osl_guard.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

const char* const kAdmin = "admin";
const char* const kSelectUsers = "select * from Users";
const char* const kUpdateRealm = "UPDATE Users SET Realm = ? WHERE Name=?";
const char* const kUpdateCredentials =
    "UPDATE Users SET PasswordLevel = ?, Realm = ?, DigestPassword = ?, SessionSalt = ?, "
    "SessionPassword = ? WHERE Name=?";

// Longer passwords are refused rather than hashed: nobody types them, and
// the hashing texts stay small.
constexpr size_t kMaxPasswordLength = 1024;

// Each gateway gets its own digest realm: the model base and a random number.
void makeRealm(char (&realm)[33]) {
  std::snprintf(realm, sizeof realm, "ZX-AG2010(%d)", static_cast<int>(OSL_Rand() % 100000u));
}

// A field's text up to its terminator or its end, whichever comes first.
template <size_t N>
std::string fieldText(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

template <size_t N>
void terminate(char (&field)[N]) {
  field[N - 1] = '\0';
}

void terminateAll(tagUserInfo& info) {
  terminate(info.Name);
  terminate(info.Realm);
  terminate(info.DigestPassword);
  terminate(info.SessionSalt);
  terminate(info.SessionPassword);
}

// SHA-256 of `text` as 64 lower-case hexadecimal characters into `out`.
bool sha256Hex(const std::string& text, char (&out)[65]) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  bool ok = EVP_Digest(text.data(), text.size(), digest, &len, EVP_sha256(), nullptr) == 1 && len == 32;
  if (ok) convertByteArrayToCharArray(digest, 32, out, sizeof out);
  OPENSSL_cleanse(digest, sizeof digest);
  return ok;
}

// A string holding a secret: reserved up front so it never reallocates (which
// would leave copies behind) and wiped when it goes.
class SecretText {
 public:
  explicit SecretText(size_t capacity) { m_text.reserve(capacity); }
  ~SecretText() {
    if (!m_text.empty()) OPENSSL_cleanse(&m_text[0], m_text.size());
  }
  SecretText& operator<<(const char* part) {
    m_text.append(part);
    return *this;
  }
  const std::string& str() const { return m_text; }

 private:
  std::string m_text;
};

}  // namespace

CUserCfg::CUserCfg() = default;

CUserCfg::~CUserCfg() { releDataBase(); }

bool CUserCfg::loadDatabase(int reopen) {
  try {
    OSL_Guard db(&m_dbMutex);
    if (reopen || !m_conn || !m_conn->IsOpen()) {
      m_conn.reset();
      m_conn.reset(new (std::nothrow) CGatewayDBConn);
      if (!m_conn) return false;
    }
    Sqlite3DO::CSQLite3Recordset rs;
    if (!m_conn->Execute(kSelectUsers, rs)) return false;

    tagUserInfo info;
    {
      OSL_Guard record(&m_recordMutex);
      info = m_info;
    }
    for (; !rs.IsEOF(); rs.Next()) {
      info.ID = rs.GetInt("ID");
      info.UserLevel = static_cast<uint8_t>(rs.GetInt("UserLevel"));
      info.PasswordLevel = static_cast<uint8_t>(rs.GetInt("PasswordLevel"));
      OSL_Strncpy(info.Name, rs.GetString("Name").c_str(), sizeof info.Name);
      OSL_Strncpy(info.Realm, rs.GetString("Realm").c_str(), sizeof info.Realm);
      OSL_Strncpy(info.DigestPassword, rs.GetString("DigestPassword").c_str(), sizeof info.DigestPassword);
      OSL_Strncpy(info.SessionSalt, rs.GetString("SessionSalt").c_str(), sizeof info.SessionSalt);
      OSL_Strncpy(info.SessionPassword, rs.GetString("SessionPassword").c_str(), sizeof info.SessionPassword);
    }
    if (info.Realm[0] == '\0') {
      makeRealm(info.Realm);
      m_conn->ExecuteBound(kUpdateRealm, {fieldText(info.Realm), fieldText(info.Name)});
    }
    OSL_Guard record(&m_recordMutex);
    m_info = info;
    return true;
  } catch (...) {
    return false;
  }
}

bool CUserCfg::releDataBase() {
  OSL_Guard db(&m_dbMutex);
  m_conn.reset();
  return true;
}

bool CUserCfg::isActivated() const {
  OSL_Guard record(&m_recordMutex);
  return m_info.DigestPassword[0] != '\0';
}

int CUserCfg::getDigestHA1(std::string& ha1, const char* user) const {
  if (!user || OSL_Strcmp(user, kAdmin) != 0) return 1;
  try {
    std::string value;
    {
      OSL_Guard record(&m_recordMutex);
      value = fieldText(m_info.DigestPassword);
    }
    ha1.swap(value);
    return 0;
  } catch (...) {
    return 1;
  }
}

std::string CUserCfg::getSessionPwd() const {
  try {
    OSL_Guard record(&m_recordMutex);
    return fieldText(m_info.SessionPassword);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getSessionSalt() const {
  try {
    OSL_Guard record(&m_recordMutex);
    return fieldText(m_info.SessionSalt);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getRealm() const {
  try {
    OSL_Guard record(&m_recordMutex);
    return fieldText(m_info.Realm);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getUserName() const {
  try {
    OSL_Guard record(&m_recordMutex);
    return fieldText(m_info.Name);
  } catch (...) {
    return std::string();
  }
}

void CUserCfg::getUserInfo(tagUserInfo& info) {
  OSL_Guard record(&m_recordMutex);
  info = m_info;
}

// Caller holds m_dbMutex.
bool CUserCfg::writeCredentials(const tagUserInfo& info) {
  if (!m_conn) return false;
  return m_conn->ExecuteBound(kUpdateCredentials,
                              {static_cast<int>(info.PasswordLevel), fieldText(info.Realm),
                               fieldText(info.DigestPassword), fieldText(info.SessionSalt),
                               fieldText(info.SessionPassword), fieldText(info.Name)});
}

void CUserCfg::setUserInfo(const tagUserInfo& info) {
  try {
    tagUserInfo copy = info;
    terminateAll(copy);
    OSL_Guard db(&m_dbMutex);
    if (!writeCredentials(copy)) {
      OXLOG(5, "[%s(%d)] setUserInfo faild.");
      return;
    }
    OSL_Guard record(&m_recordMutex);
    m_info = copy;
  } catch (...) {
    OXLOG(5, "[%s(%d)] setUserInfo faild.");
  }
}

int CUserCfg::setPassword(tagPASSWORD_LEVEL level, const char* password, const char* user) {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  if (!user || OSL_Strcmp(user, kAdmin) != 0) return 1;
  if (!password || std::strlen(password) > kMaxPasswordLength) return 1;
  try {
    OSL_Guard db(&m_dbMutex);
    tagUserInfo info;
    {
      OSL_Guard record(&m_recordMutex);
      info = m_info;
    }
    if (info.Realm[0] == '\0') makeRealm(info.Realm);
    const size_t capacity = sizeof info.Name + sizeof info.SessionSalt + std::strlen(password) + 4;

    // HA1 of HTTP digest authentication.
    {
      SecretText text(capacity);
      text << info.Name << ":" << info.Realm << ":" << password;
      if (mprGetMD5Hash(reinterpret_cast<const unsigned char*>(text.str().data()),
                        static_cast<int>(text.str().size()), info.DigestPassword) != 0) {
        return 1;
      }
    }
    // A fresh salt on every change: SHA-256 of a new UUID's text.
    {
      OSL_UUID uuid;
      char uuidText[37] = {0};
      if (OSL_GetUUID(&uuid) != 0 || OSL_StringFromUUID(&uuid, uuidText, sizeof uuidText) != 36 ||
          !sha256Hex(uuidText, info.SessionSalt)) {
        return 1;
      }
    }
    {
      SecretText text(capacity);
      text << info.Name << info.SessionSalt << password;
      if (!sha256Hex(text.str(), info.SessionPassword)) return 1;
    }
    info.PasswordLevel = static_cast<uint8_t>(level);

    // Memory takes the new values even when the database refuses them.
    if (!writeCredentials(info)) OXLOG(4, "[%s(%d)] store password failed.");
    OSL_Guard record(&m_recordMutex);
    m_info = info;
    return 0;
  } catch (...) {
    return 1;
  }
}

}  // namespace OxConfigMgr
