#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxWbAes.h>

#include <openssl/crypto.h>

#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "platform/crypto_util.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
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

// Wipes secrets held in locals.
struct Cleanse {
  void* p;
  size_t n;
  ~Cleanse() { OPENSSL_cleanse(p, n); }
};

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

CPrivateCfg::~CPrivateCfg() {
  OPENSSL_cleanse(&m_encrypt, sizeof m_encrypt);
}

bool CPrivateCfg::loadFile() {
  try {
    getWbAesDecryptKey();
    getWbAesEncryptKey();
    ConfigFileTxn txn(getPrivateConfigFilePath());
    copyBackupConfig();
    int createStorage = 0;
    if (!readAllParam(createStorage)) return false;
    if (createStorage) createParam();
    return true;
  } catch (...) {
    return false;
  }
}

void CPrivateCfg::getLDMParams(tagLDMInfo& out) {
  OSL_Guard guard(&m_mutex);
  out = m_ldm;
}

void CPrivateCfg::getHttpServiceParams(tagHTTPServiceInfo& out) {
  OSL_Guard guard(&m_mutex);
  out = m_http;
}

void CPrivateCfg::getWebsocketServiceParams(tagWebSocketServiceInfo& out) {
  OSL_Guard guard(&m_mutex);
  out = m_webSocket;
}

void CPrivateCfg::getInternalCommParams(tagInternalCommunicationInfo& out) {
  OSL_Guard guard(&m_mutex);
  out = m_internalComm;
}

void CPrivateCfg::getEncryptParams(tagEncryptInfo& out) {
  OSL_Guard guard(&m_mutex);
  out = m_encrypt;
}

bool CPrivateCfg::readAllParam(int& createStorage) {
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
  Cleanse wipeEnc{&enc, sizeof enc};

  if (xml.FindElem("LDM") && xml.IntoElem()) {
    readNumber(xml, "LDMPort", &ldm.ldmPort);
    readNumber(xml, "LDMOperationPort", &ldm.ldmOperationPort);
    readNumber(xml, "LDMAlarmPort", &ldm.ldmAlarmPort);
    readNumber(xml, "LDMStreamPort", &ldm.ldmStreamPort);
    readNumber(xml, "LumenRegisterPort", &ldm.lumenRegisterPort);
    readNumber(xml, "LumenAlarmPort", &ldm.lumenAlarmPort);
    xml.OutOfElem();
  }
  if (xml.FindElem("HTTPService") && xml.IntoElem()) {
    readNumber(xml, "Port", &http.port);
    readNumber(xml, "TaskThread", &http.taskThread);
    readNumber(xml, "AudioTalkPort", &http.audioTalkPort);
    xml.OutOfElem();
  }
  if (xml.FindElem("WebSocketService") && xml.IntoElem()) {
    readNumber(xml, "Port", &webSocket.port);
    readNumber(xml, "TaskThread", &webSocket.taskThread);
    xml.OutOfElem();
  }
  if (xml.FindElem("InternalCommunication") && xml.IntoElem()) {
    readNumber(xml, "ConnectTimeOut", &comm.connectTimeOut);
    readNumber(xml, "RecvTimeOut", &comm.recvTimeOut);
    xml.OutOfElem();
  }
  if (xml.FindElem("Encrypt")) {
    bool hasStorage = false;
    if (xml.IntoElem()) {
      if (xml.FindElem("QAPI") && xml.IntoElem()) {
        readNumber(xml, "Level", &enc.level);
        readNumber(xml, "Iterations", &enc.iterations);
        xml.OutOfElem();
      }
      if (xml.FindElem("Storage")) {
        hasStorage = true;
        if (xml.IntoElem()) {
          if (xml.FindElem("WbaesIV")) {
            std::memset(enc.wbaesIV, 0, sizeof enc.wbaesIV);
            std::strncpy(enc.wbaesIV, xml.GetData(), 16);
          }
          const unsigned char* iv = reinterpret_cast<const unsigned char*>(enc.wbaesIV);
          if (xml.FindElem("Key")) {
            // At most 64 hexadecimal characters: 32 enciphered bytes. Text of
            // another length deciphers to garbage (or not at all), never past
            // the fields.
            char text[65] = {0};
            std::strncpy(text, xml.GetData(), 64);
            int n = static_cast<int>(std::strlen(text));
            unsigned char cipher[32] = {0};
            int bytes = convertCharArrayToByteArray(text, n, cipher, 32);
            int outLen = 32;
            nyxwbaes_dynamic_cbc_decrypt(cipher, bytes, enc.storageKey, &outLen, kKeyBits,
                                         m_wbaesDecKey, iv);
            enc.storageKey[32] = 0;
            OPENSSL_cleanse(text, sizeof text);
          }
          if (xml.FindElem("IV")) {
            char text[33] = {0};
            std::strncpy(text, xml.GetData(), 32);
            unsigned char cipher[16] = {0};
            convertCharArrayToByteArray(text, 32, cipher, 16);
            int outLen = 16;
            nyxwbaes_dynamic_cbc_decrypt(cipher, 16, enc.storageIV, &outLen, kKeyBits, m_wbaesDecKey, iv);
            enc.storageIV[16] = 0;
          }
          xml.OutOfElem();
        }
      }
      xml.OutOfElem();
    }
    if (!hasStorage) createStorage = 1;
  }

  OSL_Guard guard(&m_mutex);
  m_ldm = ldm;
  m_http = http;
  m_webSocket = webSocket;
  m_internalComm = comm;
  m_encrypt = enc;
  return true;
}

void CPrivateCfg::createParam() {
  const std::string path = getPrivateConfigFilePath();
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) return;

  tagEncryptInfo enc;
  {
    OSL_Guard guard(&m_mutex);
    enc = m_encrypt;
  }
  Cleanse wipeEnc{&enc, sizeof enc};

  OSL_UUID uuid;
  OSL_GetUUID(&uuid);
  std::memset(enc.wbaesIV, 0, sizeof enc.wbaesIV);
  convertByteArrayToCharArray(uuid.data, 8, enc.wbaesIV, 16);
  const unsigned char* iv = reinterpret_cast<const unsigned char*>(enc.wbaesIV);

  unsigned char digest[32];
  Cleanse wipeDigest{digest, sizeof digest};
  OSL_GetUUID(&uuid);
  if (!OxBase::Sha256(uuid.data, sizeof uuid.data, digest)) return;
  std::memcpy(enc.storageKey, digest, 32);
  enc.storageKey[32] = 0;
  unsigned char cipherKey[32] = {0};
  int outLen = sizeof cipherKey;
  nyxwbaes_dynamic_cbc_encrypt(enc.storageKey, 32, cipherKey, &outLen, kKeyBits, m_wbaesEncKey, iv);
  char keyText[65] = {0};
  convertByteArrayToCharArray(cipherKey, 32, keyText, 64);

  OSL_GetUUID(&uuid);
  if (!OxBase::Sha256(uuid.data, sizeof uuid.data, digest)) return;
  std::memcpy(enc.storageIV, digest, 16);
  enc.storageIV[16] = 0;
  // The IV text carries 32 bytes of which only the first 16 are enciphered
  // data; the rest stays zero.
  unsigned char cipherIV[32] = {0};
  outLen = sizeof cipherIV;
  nyxwbaes_dynamic_cbc_encrypt(enc.storageIV, 16, cipherIV, &outLen, kKeyBits, m_wbaesEncKey, iv);
  char ivText[65] = {0};
  convertByteArrayToCharArray(cipherIV, 32, ivText, 64);

  if (xml.FindElem("PrivateConfig") && xml.IntoElem() && xml.FindElem("Encrypt")) {
    xml.AddNode("Storage");
    xml.AddNode("WbaesIV", std::string(enc.wbaesIV, 16).c_str());
    xml.AddNode("Key", keyText);
    xml.AddNode("IV", ivText);
  }
  xml.WriteToFile(path, OxBase::FileMode::kSecret);

  OSL_Guard guard(&m_mutex);
  m_encrypt = enc;
}

void CPrivateCfg::copyBackupConfig() {
  const std::string backupPath = OX_BASE_GetCurDir() + "PrivateConfig_Backup.xml";
  if (OSL_AccessFile(backupPath.c_str(), 0) != 0) return;
  const std::string path = getPrivateConfigFilePath();
  CXmlBase backup, current;
  if (backup.LoadFile(backupPath) != 1 || current.LoadFile(path) != 1) return;

  backup.SetRoot();
  current.SetRoot();
  copyXMLRecursive(current, backup, nullptr);

  // The previous installation's storage key opens the existing database: it
  // replaces whatever the new file holds.
  if (xmlWalk(backup, {"PrivateConfig", "Encrypt", "Storage"}) &&
      xmlWalk(current, {"PrivateConfig", "Encrypt"})) {
    CXmlBase storage;
    if (storage.Parse(backup.GetElemXml()) == 1) {
      current.RemoveChildren("Storage");
      current.AddNode(storage);
    }
  }
  current.WriteToFile(path, OxBase::FileMode::kSecret);
  OSL_DeleteFile(backupPath.c_str());
}

void CPrivateCfg::getWbAesDecryptKey() {
  std::memcpy(m_wbaesDecKey, wbaes::kProductionKeyDec, sizeof m_wbaesDecKey);
}

void CPrivateCfg::getWbAesEncryptKey() {
  std::memcpy(m_wbaesEncKey, wbaes::kProductionKeyEnc, sizeof m_wbaesEncKey);
}

void CPrivateCfg::readWbaesDecryptFile() { readWbaesFile("wbaes_key_dec", m_wbaesDecKey); }

void CPrivateCfg::readWbaesEncryptFile() { readWbaesFile("wbaes_key_enc", m_wbaesEncKey); }

void CPrivateCfg::readWbaesFile(const char* name, unsigned char* block) {
  const std::string path = OX_BASE_GetCurDir() + name;
  OSL_File file = OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0);
  if (file == OSL_INVALID_FILE) {
    xlog_format(5, "OXW", "[%s(%d)] open file %s failed[%d]", __FUNCTION__, __LINE__, name,
                OSL_GetSystemLastError());
    return;
  }
  unsigned char buf[kKeyMaterialSize];
  int got = OSL_ReadFile(file, buf, kKeyMaterialSize);
  if (got != kKeyMaterialSize) {
    xlog_format(5, "OXW", "[%s(%d)] read file %s failed[%d],length[%d]", __FUNCTION__, __LINE__,
                name, OSL_GetSystemLastError(), got);
  } else {
    std::memcpy(block, buf, kKeyMaterialSize);
  }
  OPENSSL_cleanse(buf, sizeof buf);
  OSL_CloseFile(file);
}

}  // namespace OxConfigMgr
