#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxWbAes.h>

#include <cstring>
#include <string>

#include "frame/backup_merge.h"
#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "platform/crypto_util.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/secure_wipe.h"
#include "platform/unique_fd.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"
#include "security/wbaes_internal.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

constexpr int kKeyBits = 256;

// Reads the decimal text of child `name` of the current level into `field`
// (narrowed to its width) when the child exists.
template <class T>
void readNumber(CXmlBase& xml, const char* name, T* field) {
  if (xml.FindElem(name)) *field = static_cast<T>(OSL_Atoi32(xml.GetData()));
}

// Enters section `name` of the current level, runs `read` inside it and
// leaves it again; a missing section reads nothing.
template <class Read>
void readSection(CXmlBase& xml, const char* name, Read&& read) {
  if (!xml.FindElem(name) || !xml.IntoElem()) return;
  read();
  xml.OutOfElem();
}

// The enciphered "Key" text: at most 64 hexadecimal characters, 32 bytes.
// Text of another length deciphers to garbage (or not at all), never past
// the fields.
void decipherKey(const char* hexText, const unsigned char* decKey, const unsigned char* iv,
                 tagEncryptInfo& enc) {
  char text[65] = {0};
  OxBase::ScopedWipe wipeText(text, sizeof text);
  OSL_Strncpy(text, hexText, sizeof text);
  unsigned char cipher[32] = {0};
  int bytes = convertCharArrayToByteArray(text, static_cast<int>(std::strlen(text)), cipher, 32);
  int outLen = 32;
  nyxwbaes_dynamic_cbc_decrypt(cipher, bytes, enc.storageKey, &outLen, kKeyBits, decKey, iv);
  enc.storageKey[32] = 0;
}

// The enciphered "IV" text: its first 32 characters carry the 16 enciphered
// bytes.
void decipherIV(const char* hexText, const unsigned char* decKey, const unsigned char* iv,
                tagEncryptInfo& enc) {
  char text[33] = {0};
  OSL_Strncpy(text, hexText, sizeof text);
  unsigned char cipher[16] = {0};
  convertCharArrayToByteArray(text, 32, cipher, 16);
  int outLen = 16;
  nyxwbaes_dynamic_cbc_decrypt(cipher, 16, enc.storageIV, &outLen, kKeyBits, decKey, iv);
  enc.storageIV[16] = 0;
}

// Enciphers `len` bytes of `clear` into a zeroed 32-byte block and returns
// the whole block as 64 hexadecimal characters.
std::string encipherToHex(const unsigned char* clear, int len, const unsigned char* encKey,
                          const unsigned char* iv) {
  unsigned char cipher[32] = {0};
  int outLen = sizeof cipher;
  nyxwbaes_dynamic_cbc_encrypt(clear, len, cipher, &outLen, kKeyBits, encKey, iv);
  char text[65] = {0};
  convertByteArrayToCharArray(cipher, 32, text, 64);
  return text;
}

}  // namespace

CPrivateCfg::CPrivateCfg() {
  std::memset(&m_ldm, 0, sizeof m_ldm);
  std::memset(&m_http, 0, sizeof m_http);
  std::memset(&m_webSocket, 0, sizeof m_webSocket);
  std::memset(&m_internalComm, 0, sizeof m_internalComm);
  std::memset(&m_encrypt, 0, sizeof m_encrypt);
  std::memset(m_wbaesEncKey, 0, sizeof m_wbaesEncKey);
  std::memset(m_wbaesDecKey, 0, sizeof m_wbaesDecKey);
}

CPrivateCfg::~CPrivateCfg() { OxBase::SecureWipe(&m_encrypt, sizeof m_encrypt); }

bool CPrivateCfg::loadFile() try {
  getWbAesDecryptKey();
  getWbAesEncryptKey();
  ConfigFileTxn txn(getPrivateConfigFilePath());
  copyBackupConfig();
  int createStorage = 0;
  if (!readAllParam(createStorage)) return false;
  // A storage key that did not reach the file must not open (or create) a
  // database: no later start could open it again.
  return !createStorage || createStorageParams();
} catch (...) {
  return false;
}

int CPrivateCfg::reloadFile() try {
  // Without storage parameters in the file the key in memory stays: only a
  // start creates (and writes) one.
  int createStorage = 0;
  return readAllParam(createStorage) ? 1 : 0;
} catch (...) {
  return 0;
}

// The getters copy under the record mutex; a failed lock leaves `out` as it
// was rather than throwing into the host.
#define OXCFG_COPY_RECORD(out, member) \
  try {                                \
    OSL_Guard guard(&m_mutex);         \
    out = member;                      \
  } catch (...) {                      \
  }

void CPrivateCfg::getLDMParams(tagLDMInfo& out) { OXCFG_COPY_RECORD(out, m_ldm) }
void CPrivateCfg::getHttpServiceParams(tagHTTPServiceInfo& out) { OXCFG_COPY_RECORD(out, m_http) }
void CPrivateCfg::getWebsocketServiceParams(tagWebSocketServiceInfo& out) { OXCFG_COPY_RECORD(out, m_webSocket) }
void CPrivateCfg::getInternalCommParams(tagInternalCommunicationInfo& out) { OXCFG_COPY_RECORD(out, m_internalComm) }
void CPrivateCfg::getEncryptParams(tagEncryptInfo& out) { OXCFG_COPY_RECORD(out, m_encrypt) }

#undef OXCFG_COPY_RECORD

bool CPrivateCfg::readAllParam(int& createStorage) try {
  CXmlBase xml;
  if (xml.LoadFile(getPrivateConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist");
    return false;
  }
  if (!xml.FindElem("PrivateConfig") || !xml.IntoElem()) return true;

  // Parsed into copies, published at once: a missing element keeps the value
  // the record had.
  tagLDMInfo ldm;
  tagHTTPServiceInfo http;
  tagWebSocketServiceInfo webSocket;
  tagInternalCommunicationInfo comm;
  tagEncryptInfo enc;
  {
    OSL_Guard guard(&m_mutex);
    ldm = m_ldm;
    http = m_http;
    webSocket = m_webSocket;
    comm = m_internalComm;
    enc = m_encrypt;
  }
  OxBase::ScopedWipe wipeEnc(&enc, sizeof enc);

  readSection(xml, "LDM", [&] {
    readNumber(xml, "LDMPort", &ldm.ldmPort);
    readNumber(xml, "LDMOperationPort", &ldm.ldmOperationPort);
    readNumber(xml, "LDMAlarmPort", &ldm.ldmAlarmPort);
    readNumber(xml, "LDMStreamPort", &ldm.ldmStreamPort);
    readNumber(xml, "LumenRegisterPort", &ldm.lumenRegisterPort);
    readNumber(xml, "LumenAlarmPort", &ldm.lumenAlarmPort);
  });
  readSection(xml, "HTTPService", [&] {
    readNumber(xml, "Port", &http.port);
    readNumber(xml, "TaskThread", &http.taskThread);
    readNumber(xml, "AudioTalkPort", &http.audioTalkPort);
  });
  readSection(xml, "WebSocketService", [&] {
    readNumber(xml, "Port", &webSocket.port);
    readNumber(xml, "TaskThread", &webSocket.taskThread);
  });
  readSection(xml, "InternalCommunication", [&] {
    readNumber(xml, "ConnectTimeOut", &comm.connectTimeOut);
    readNumber(xml, "RecvTimeOut", &comm.recvTimeOut);
  });
  if (xml.FindElem("Encrypt") && !readEncrypt(xml, enc)) createStorage = 1;

  OSL_Guard guard(&m_mutex);
  m_ldm = ldm;
  m_http = http;
  m_webSocket = webSocket;
  m_internalComm = comm;
  m_encrypt = enc;
  return true;
} catch (...) {
  return false;
}

bool CPrivateCfg::readEncrypt(CXmlBase& xml, tagEncryptInfo& enc) {
  bool hasStorage = false;
  readSection(xml, "Encrypt", [&] {
    readSection(xml, "QAPI", [&] {
      readNumber(xml, "Level", &enc.level);
      readNumber(xml, "Iterations", &enc.iterations);
    });
    hasStorage = xml.FindElem("Storage");
    readSection(xml, "Storage", [&] {
      if (xml.FindElem("WbaesIV")) {
        std::memset(enc.wbaesIV, 0, sizeof enc.wbaesIV);
        OSL_Strncpy(enc.wbaesIV, xml.GetData(), 17);  // the first 16 characters
      }
      const unsigned char* iv = reinterpret_cast<const unsigned char*>(enc.wbaesIV);
      if (xml.FindElem("Key")) decipherKey(xml.GetData(), m_wbaesDecKey, iv, enc);
      if (xml.FindElem("IV")) decipherIV(xml.GetData(), m_wbaesDecKey, iv, enc);
    });
  });
  return hasStorage;
}

void CPrivateCfg::createParam() try {
  createStorageParams();
} catch (...) {
}

bool CPrivateCfg::createStorageParams() {
  const std::string path = getPrivateConfigFilePath();
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) return false;

  tagEncryptInfo enc;
  {
    OSL_Guard guard(&m_mutex);
    enc = m_encrypt;
  }
  OxBase::ScopedWipe wipeEnc(&enc, sizeof enc);
  unsigned char digest[32];
  OxBase::ScopedWipe wipeDigest(digest, sizeof digest);

  OSL_UUID uuid;
  OSL_GetUUID(&uuid);
  std::memset(enc.wbaesIV, 0, sizeof enc.wbaesIV);
  convertByteArrayToCharArray(uuid.data, 8, enc.wbaesIV, 16);
  const unsigned char* iv = reinterpret_cast<const unsigned char*>(enc.wbaesIV);

  OSL_GetUUID(&uuid);
  if (!OxBase::Sha256(uuid.data, sizeof uuid.data, digest)) return false;
  std::memcpy(enc.storageKey, digest, 32);
  enc.storageKey[32] = 0;
  const std::string keyText = encipherToHex(enc.storageKey, 32, m_wbaesEncKey, iv);

  OSL_GetUUID(&uuid);
  if (!OxBase::Sha256(uuid.data, sizeof uuid.data, digest)) return false;
  std::memcpy(enc.storageIV, digest, 16);
  enc.storageIV[16] = 0;
  // The IV text carries 32 bytes of which only the first 16 are enciphered
  // data; the rest stays zero.
  const std::string ivText = encipherToHex(enc.storageIV, 16, m_wbaesEncKey, iv);

  if (xml.FindElem("PrivateConfig") && xml.IntoElem() && xml.FindElem("Encrypt")) {
    xml.AddNode("Storage");
    xml.AddNode("WbaesIV", std::string(enc.wbaesIV, 16).c_str());
    xml.AddNode("Key", keyText.c_str());
    xml.AddNode("IV", ivText.c_str());
  }
  // The key exists only once the file holds it.
  if (xml.WriteToFile(path, OxBase::FileMode::kSecret) != 1) {
    OXLOG(5, "[%s(%d)] write storage parameters failed[%d]", OSL_GetSystemLastError());
    return false;
  }
  OSL_Guard guard(&m_mutex);
  m_encrypt = enc;
  return true;
}

void CPrivateCfg::copyBackupConfig() try {
  mergeBackupFile(getPrivateConfigFilePath(), OxBase::FileMode::kSecret, [](CXmlBase& current, CXmlBase& backup) {
    copyXMLRecursive(current, backup, nullptr);
    // The previous installation's storage key opens the existing database:
    // it replaces whatever the new file holds.
    if (xmlWalk(backup, {"PrivateConfig", "Encrypt", "Storage"}) &&
        xmlWalk(current, {"PrivateConfig", "Encrypt"})) {
      CXmlBase storage;
      if (storage.Parse(backup.GetElemXml()) == 1) {
        current.RemoveChildren("Storage");
        current.AddNode(storage);
      }
    }
  });
} catch (...) {
}

void CPrivateCfg::getWbAesDecryptKey() {
  std::memcpy(m_wbaesDecKey, wbaes::kProductionKeyDec, sizeof m_wbaesDecKey);
}

void CPrivateCfg::getWbAesEncryptKey() {
  std::memcpy(m_wbaesEncKey, wbaes::kProductionKeyEnc, sizeof m_wbaesEncKey);
}

void CPrivateCfg::readWbaesDecryptFile() try {
  readWbaesFile("wbaes_key_dec", m_wbaesDecKey);
} catch (...) {
}

void CPrivateCfg::readWbaesEncryptFile() try {
  readWbaesFile("wbaes_key_enc", m_wbaesEncKey);
} catch (...) {
}

void CPrivateCfg::readWbaesFile(const char* name, unsigned char* block) {
  const std::string path = OX_BASE_GetCurDir() + name;
  OxBase::UniqueFd file(OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0));
  if (!file.valid()) {
    xlog_format(5, "OXW", "[%s(%d)] open file %s failed[%d]", __FUNCTION__, __LINE__, name,
                OSL_GetSystemLastError());
    return;
  }
  unsigned char buf[kKeyMaterialSize];
  OxBase::ScopedWipe wipeBuf(buf, sizeof buf);
  int got = OSL_ReadFile(file.get(), buf, kKeyMaterialSize);
  if (got != kKeyMaterialSize) {
    xlog_format(5, "OXW", "[%s(%d)] read file %s failed[%d],length[%d]", __FUNCTION__, __LINE__,
                name, OSL_GetSystemLastError(), got);
    return;
  }
  std::memcpy(block, buf, kKeyMaterialSize);
}

}  // namespace OxConfigMgr
