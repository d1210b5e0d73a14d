// The private configuration ("PrivateConfig.xml"): internal service ports,
// thread counts and time-outs, the device-API encryption parameters, and the
// per-device storage key and IV that open the configuration database.
#ifndef OXCONFIGMGR_OXPRIVATECFG_H
#define OXCONFIGMGR_OXPRIVATECFG_H

#include <oxconfigmgr/OxExport.h>
#include <oxconfigmgr/OxMutex.h>

#include <cstdint>

namespace OxBase {
class CXmlBase;
}

namespace OxConfigMgr {

// Ports of the local device manager ("LDM").
struct tagLDMInfo {
  uint16_t ldmPort;
  uint16_t ldmOperationPort;
  uint16_t ldmAlarmPort;
  uint16_t ldmStreamPort;
  uint16_t lumenRegisterPort;
  uint16_t lumenAlarmPort;
};

// The internal HTTP service ("HTTPService").
struct tagHTTPServiceInfo {
  uint16_t port;
  uint16_t taskThread;
  uint16_t audioTalkPort;
};

// The internal web-socket service ("WebSocketService").
struct tagWebSocketServiceInfo {
  uint16_t port;
  uint16_t taskThread;
};

// Internal communication between the gateway's processes
// ("InternalCommunication").
struct tagInternalCommunicationInfo {
  uint16_t connectTimeOut;
  uint16_t recvTimeOut;
};

// The device-API cipher parameters and the storage key and IV ("Encrypt").
struct tagEncryptInfo {
  uint8_t level;              // device-API encryption level
  uint16_t iterations;        // device-API key-derivation iterations
  unsigned char storageKey[33];  // 32 key bytes in clear, then a zero byte
  unsigned char storageIV[17];   // 16 IV bytes in clear, then a zero byte
  char wbaesIV[18];              // the 16 characters used as white-box IV bytes
};

// The private configuration of "PrivateConfig.xml" and the white-box
// key material (see the top of this file).
class OXCFG_API CPrivateCfg {
 public:
  static constexpr int kKeyMaterialSize = 244;

  CPrivateCfg();
  ~CPrivateCfg();
  CPrivateCfg(const CPrivateCfg&) = delete;
  CPrivateCfg& operator=(const CPrivateCfg&) = delete;

  // Fills both white-box key-material blocks from the built-in constants,
  // merges a left-over "PrivateConfig_Backup.xml", reads "PrivateConfig.xml"
  // and, when it has no storage parameters yet, creates a fresh random
  // storage key and IV and adds them (enciphered) to the file. False when the
  // file cannot be read, or when fresh storage parameters could not be
  // written to it (the new key is then dropped: no database may be created
  // with a key that no file holds). May run again (after an import). Not to
  // be run concurrently with itself; getters may run meanwhile. Never throws.
  bool loadFile();
  // Reads the records again from a "PrivateConfig.xml" that another writer
  // replaced: memory only, under the record mutex; no carry-over, no storage
  // parameters created, nothing written or logged of the key. A file without
  // storage parameters keeps the key in memory. 1, or 0 with the records
  // untouched when the file cannot be read or parsed.
  int reloadFile();

  // Copies of the records; thread-safe.
  void getLDMParams(tagLDMInfo& out);
  void getHttpServiceParams(tagHTTPServiceInfo& out);
  void getWebsocketServiceParams(tagWebSocketServiceInfo& out);
  void getInternalCommParams(tagInternalCommunicationInfo& out);
  // Includes the storage key in clear: never log or display it.
  void getEncryptParams(tagEncryptInfo& out);

  // Reads the file into the records; `createStorage` becomes 1 when the file
  // has an "Encrypt" element without storage parameters. False (logged) when
  // the file cannot be read or parsed.
  bool readAllParam(int& createStorage);
  // Generates the storage key and IV and adds them, enciphered, under
  // "Encrypt" in the file (rewritten, mode 0600); memory takes them only once
  // the file holds them.
  void createParam();
  // Merges "PrivateConfig_Backup.xml" into the file, keeping the backup's
  // storage parameters, then deletes the backup; a backup that does not load,
  // or whose merge could not be written durably, stays for the next start.
  void copyBackupConfig();

  // Load a key-material block from "wbaes_key_dec" / "wbaes_key_enc" in the
  // working directory (244 raw bytes); failures are logged and leave the
  // block as it was.
  void readWbaesDecryptFile();
  void readWbaesEncryptFile();
  // Fill a key-material block from the built-in constant.
  void getWbAesDecryptKey();
  void getWbAesEncryptKey();

 private:
  void readWbaesFile(const char* name, unsigned char* block);
  // Reads "Encrypt" (current element) into `enc`; false when it has no
  // "Storage".
  bool readEncrypt(OxBase::CXmlBase& xml, tagEncryptInfo& enc);
  // createParam's work; true only when the new parameters are in the file
  // (and then in memory).
  bool createStorageParams();

  tagLDMInfo m_ldm;
  tagHTTPServiceInfo m_http;
  tagWebSocketServiceInfo m_webSocket;
  tagInternalCommunicationInfo m_internalComm;
  tagEncryptInfo m_encrypt;
  unsigned char m_wbaesEncKey[kKeyMaterialSize];
  unsigned char m_wbaesDecKey[kKeyMaterialSize];
  OSL_Mutex m_mutex;  // guards the records against getters during a reload
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXPRIVATECFG_H
