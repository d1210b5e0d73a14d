#include <oxconfigmgr/OxUserCfg.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "db/db_conn.h"
#include "frame/osl_guard.h"
#include "platform/crypto_digest.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

const char* const kAdmin = "admin";
const char* const kSelectUsers = "select * from Users";
const char* const kUpdateRealm = "UPDATE Users SET Realm = ? WHERE Name=?";
const char* const kUpdateCredentials =
    "UPDATE Users SET PasswordLevel = ?, Realm = ?, DigestPassword = ?, SessionSalt = ?, "
    "SessionPassword = ? WHERE Name=?";

// The digest text "name:realm:password" is formed in a buffer of this size;
// a longer text is cut to fit.
constexpr size_t kDigestTextSize = 256;

// Each gateway gets its own digest realm: the model base and a random number.
void makeRealm(char (&realm)[33]) {
  std::snprintf(realm, sizeof realm, "ZX-AG2010(%d)", static_cast<int>(OSL_Rand() % 100000u));
}

// A field's text up to its terminator or its end, whichever comes first.
template <size_t N>
std::string fieldText(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

// A field of the record, copied under `mutex` into a local buffer first so
// that the string is allocated after the lock is given back.
template <size_t N>
std::string readField(OSL_Mutex& mutex, const char (&field)[N]) {
  char copy[N];
  OxBase::ScopedWipe wipe(copy, sizeof copy);
  {
    OSL_Guard record(&mutex);
    std::memcpy(copy, field, N);
  }
  return fieldText(copy);
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

// The values of the credential update, in the order of its placeholders.
std::vector<Sqlite3DO::CDBParam> credentialParams(const tagUserInfo& info) {
  return {static_cast<int>(info.PasswordLevel), fieldText(info.Realm), fieldText(info.DigestPassword),
          fieldText(info.SessionSalt), fieldText(info.SessionPassword), fieldText(info.Name)};
}

// Every row overwrites the same record: the last row wins.
void readRows(Sqlite3DO::CSQLite3Recordset& rs, tagUserInfo& info) {
  for (; !rs.IsEOF(); rs.Next()) {
    info.ID = rs.GetInt("ID");
    info.UserLevel = static_cast<uint8_t>(rs.GetInt("UserLevel"));
    info.PasswordLevel = static_cast<uint8_t>(rs.GetInt("PasswordLevel"));
    OSL_Strncpy(info.Name, rs.GetText("Name"), sizeof info.Name);
    OSL_Strncpy(info.Realm, rs.GetText("Realm"), sizeof info.Realm);
    OSL_Strncpy(info.DigestPassword, rs.GetText("DigestPassword"), sizeof info.DigestPassword);
    OSL_Strncpy(info.SessionSalt, rs.GetText("SessionSalt"), sizeof info.SessionSalt);
    OSL_Strncpy(info.SessionPassword, rs.GetText("SessionPassword"), sizeof info.SessionPassword);
  }
}

// Gives a realm to a user who has none. Processes starting together on a new
// database each find it empty: the row is read again inside a write
// transaction, so the first process's realm is the one all of them keep.
// Without the transaction (the database stayed busy) the realm is written
// as it is; its result is not checked either way.
void giveRealm(Sqlite3DO::CBaseDBConn& conn, tagUserInfo& info) {
  const bool inTransaction = conn.Begin();
  if (inTransaction) {
    Sqlite3DO::CSQLite3Recordset rs;
    if (conn.Execute(kSelectUsers, rs)) readRows(rs, info);
  }
  if (info.Realm[0] == '\0') {
    makeRealm(info.Realm);
    conn.ExecuteBound(kUpdateRealm, {fieldText(info.Realm), fieldText(info.Name)});
  }
  if (inTransaction && !conn.Commit()) conn.Rollback();
}

// SHA-256 of the pieces as 64 lower-case hexadecimal characters into `out`.
bool sha256Hex(std::initializer_list<OxBase::DigestPiece> pieces, char (&out)[65]) {
  unsigned char digest[OxBase::kSha256Bytes];
  OxBase::ScopedWipe wipe(digest, sizeof digest);
  return OxBase::Sha256Pieces(pieces, digest) &&
         convertByteArrayToCharArray(digest, sizeof digest, out, sizeof out) == 2 * OxBase::kSha256Bytes;
}

OxBase::DigestPiece piece(const char* text) { return {text, std::strlen(text)}; }

// HA1 of HTTP digest authentication, formed in a bounded buffer.
bool digestHA1(const tagUserInfo& info, const char* password, char (&out)[65]) {
  char text[kDigestTextSize] = {0};
  OxBase::ScopedWipe wipe(text, sizeof text);
  std::snprintf(text, sizeof text, "%s:%s:%s", info.Name, info.Realm, password);
  return mprGetMD5Hash(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)), out) == 0;
}

// A fresh salt: SHA-256 of a new UUID's text.
bool newSalt(char (&out)[65]) {
  OSL_UUID uuid;
  char uuidText[37] = {0};
  return OSL_GetUUID(&uuid) == 0 && OSL_StringFromUUID(&uuid, uuidText, sizeof uuidText) == 36 &&
         sha256Hex({piece(uuidText)}, out);
}

}  // namespace

CUserCfg::CUserCfg() = default;

CUserCfg::~CUserCfg() { releDataBase(); }

bool CUserCfg::loadDatabase(int reopen) {
  try {
    // A connection that is needed is made (the file opened) before the lock.
    bool needed = reopen != 0;
    if (!needed) {
      OSL_Guard db(&m_dbMutex);
      needed = !m_conn;
    }
    std::unique_ptr<CGatewayDBConn> fresh;
    if (needed) {
      fresh.reset(new (std::nothrow) CGatewayDBConn);
      if (!fresh) return false;
    }
    std::unique_ptr<CGatewayDBConn> replaced;  // closed once the lock is given back
    Sqlite3DO::CSQLite3Recordset rs;
    OSL_Guard db(&m_dbMutex);
    if (fresh && (reopen || !m_conn)) {
      replaced = std::move(m_conn);
      m_conn = std::move(fresh);
    }
    if (!m_conn || !m_conn->Execute(kSelectUsers, rs)) return false;

    tagUserInfo info;
    {
      OSL_Guard record(&m_recordMutex);
      info = m_info;
    }
    readRows(rs, info);
    if (info.Realm[0] == '\0') giveRealm(*m_conn, info);
    OSL_Guard record(&m_recordMutex);
    m_info = info;
    return true;
  } catch (...) {
    return false;
  }
}

bool CUserCfg::releDataBase() {
  try {
    std::unique_ptr<CGatewayDBConn> released;  // closed once the lock is given back
    OSL_Guard db(&m_dbMutex);
    released = std::move(m_conn);
  } catch (...) {
  }
  return true;
}

bool CUserCfg::isActivated() const {
  try {
    OSL_Guard record(&m_recordMutex);
    return m_info.DigestPassword[0] != '\0';
  } catch (...) {
    return false;
  }
}

int CUserCfg::getDigestHA1(std::string& ha1, const char* user) const {
  if (!user || OSL_Strcmp(user, kAdmin) != 0) return 1;
  try {
    std::string value = readField(m_recordMutex, m_info.DigestPassword);
    ha1.swap(value);
    return 0;
  } catch (...) {
    return 1;
  }
}

std::string CUserCfg::getSessionPwd() const {
  try {
    return readField(m_recordMutex, m_info.SessionPassword);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getSessionSalt() const {
  try {
    return readField(m_recordMutex, m_info.SessionSalt);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getRealm() const {
  try {
    return readField(m_recordMutex, m_info.Realm);
  } catch (...) {
    return std::string();
  }
}

std::string CUserCfg::getUserName() const {
  try {
    return readField(m_recordMutex, m_info.Name);
  } catch (...) {
    return std::string();
  }
}

void CUserCfg::getUserInfo(tagUserInfo& info) {
  try {
    OSL_Guard record(&m_recordMutex);
    info = m_info;
  } catch (...) {
    info = tagUserInfo();
  }
}

void CUserCfg::setUserInfo(const tagUserInfo& info) {
  try {
    tagUserInfo copy = info;
    terminateAll(copy);
    const std::vector<Sqlite3DO::CDBParam> params = credentialParams(copy);
    OSL_Guard db(&m_dbMutex);
    if (!m_conn || !m_conn->ExecuteBound(kUpdateCredentials, params)) {
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
  try {
    OSL_Guard guard(&s_mutex);
    if (!user || OSL_Strcmp(user, kAdmin) != 0) return 1;
    // A null password has no text to hash; refused like a wrong user.
    if (!password) return 1;
    tagUserInfo info;
    {
      OSL_Guard record(&m_recordMutex);
      info = m_info;
    }
    if (info.Realm[0] == '\0') makeRealm(info.Realm);
    if (!digestHA1(info, password, info.DigestPassword) || !newSalt(info.SessionSalt) ||
        !sha256Hex({piece(info.Name), piece(info.SessionSalt), piece(password)}, info.SessionPassword)) {
      return 1;
    }
    info.PasswordLevel = static_cast<uint8_t>(level);

    // Memory takes the new values even when the database refuses them.
    const std::vector<Sqlite3DO::CDBParam> params = credentialParams(info);
    OSL_Guard db(&m_dbMutex);
    if (m_conn) m_conn->ExecuteBound(kUpdateCredentials, params);
    OSL_Guard record(&m_recordMutex);
    m_info = info;
    return 0;
  } catch (...) {
    return 1;
  }
}

}  // namespace OxConfigMgr
