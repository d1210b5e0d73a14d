#include <oxconfigmgr/OxBasicCfg.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "platform/crypto_util.h"
#include "platform/env.h"
#include "platform/file_util.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

constexpr size_t kMaxOsReleaseBytes = 1u << 20;
constexpr int kWebSessionIdBytes = 5;  // ten hexadecimal characters

// Copies at most sizeof(field) - 1 characters of `text`; `field` stays
// terminated.
template <size_t N>
void copyField(char (&field)[N], const char* text) {
  OSL_Strncpy(field, text, N);
}

// A new web session identifier: the first five bytes of the SHA-256 of a new
// UUID's text (with its terminating zero byte), as hexadecimal. False after
// a UUID failure, which is logged.
bool makeWebSessionId(char (&out)[11]) {
  OSL_UUID uuid;
  int rc = OSL_GetUUID(&uuid);
  if (rc != 0) {
    xlog_format(4, "OXW", "[%s(%d)] Get uuid fialed[errpr=%d].", "loadFile", __LINE__, rc);
    return false;
  }
  char text[64] = {0};
  OSL_StringFromUUID(&uuid, text, sizeof text);
  unsigned char digest[OxBase::kSha256Bytes];
  if (!OxBase::Sha256(text, 37, digest)) return false;
  return convertByteArrayToCharArray(digest, kWebSessionIdBytes, out, sizeof out) ==
         2 * kWebSessionIdBytes;
}

}  // namespace

CBasicCfg::CBasicCfg()
    : m_productForm(0),
      m_operatingSystem(),
      m_productName(),
      m_productModel(),
      m_serialNo(),
      m_version(),
      m_webSessionID() {}

int CBasicCfg::loadFile() try {
  // The identifier may be written back: hold the file from the read on.
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "BasicInfo"}) || !xml.IntoElem()) return 0;

  if (!xml.FindElem("ProductForm")) return 0;
  m_productForm = static_cast<uint8_t>(OSL_Atoi32(xml.GetData()));
  if (!xml.FindElem("Name")) return 0;
  copyField(m_productName, xml.GetData());
  if (!xml.FindElem("Model")) return 0;
  copyField(m_productModel, xml.GetData());
  if (!xml.FindElem("SoftwareVersion")) return 0;
  copyField(m_version, xml.GetData());
  OXLOG(3, "[%s(%d)] ---------Current Software Name:%s, Model:%s, Version:%s", m_productName,
        m_productModel, m_version);

  std::string os;
  if (GetOSVersion(os) != 1) return 0;
  copyField(m_operatingSystem, os.c_str());

  if (!xml.FindElem("WebSessionID")) return 0;
  bool changed = false;
  if (xml.GetData()[0] != '\0') {
    copyField(m_webSessionID, xml.GetData());
  } else {
    char id[11] = {0};
    if (!makeWebSessionId(id)) return 0;
    copyField(m_webSessionID, id);
    if (xml.ModifyData("WebSessionID", id) != 1) {
      xlog_format(5, "DRVNET", "[%s(%d)] WebSessionID ModifyData failed", __FUNCTION__, __LINE__);
      return 0;
    }
    changed = true;
  }
  xml.OutOfElem();
  xml.OutOfElem();
  // A failed write leaves the identifier in memory only; the next start
  // makes another.
  if (changed) writeConfigFile(xml);
  return 1;
} catch (...) {
  return 0;
}

const char* CBasicCfg::getOperatingSystem() const { return m_operatingSystem; }
const char* CBasicCfg::getProductName() const { return m_productName; }
const char* CBasicCfg::getProductModel() const { return m_productModel; }
const char* CBasicCfg::getSerialNo() const { return m_serialNo; }
const char* CBasicCfg::getVersion() const { return m_version; }
const char* CBasicCfg::getWebSessionID() const { return m_webSessionID; }

int CBasicCfg::setProductName(const char* name) try {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  if (!name || std::strlen(name) >= sizeof m_productName) return 1;

  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  if (!xmlWalk(xml, {"Config", "BasicInfo", "Name"})) return 14;
  if (xml.ModifyData("Name", name) != 1) return 1;
  xml.OutOfElem();
  xml.OutOfElem();
  if (writeConfigFile(xml) != 1) return 3;
  std::memset(m_productName, 0, sizeof m_productName);
  copyField(m_productName, name);
  return 0;
} catch (...) {
  return 2;
}

int GetOSVersion(std::string& out) { return GetLinuxOSVersion(out); }

int GetLinuxOSVersion(std::string& out) try {
  std::string content;
  if (!OxBase::ReadWholeFile(OxBase::Env::Current()->OsReleasePath(), &content,
                             kMaxOsReleaseBytes)) {
    OXLOG(5, "[%s(%d)] Unable to open /etc/os-release");
    return 0;
  }
  // KEY="value" lines; values without double quotes are deliberately not
  // taken.
  std::map<std::string, std::string> values;
  std::istringstream file(content);
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream in(line);
    std::string key, value;
    std::getline(in, key, '=');
    if (in.peek() == '"') {
      in.ignore();
      std::getline(in, value, '"');
      if (!in.eof() && in.peek() == '"') in.ignore();
    } else {
      continue;
    }
    if (key.empty() || value.empty()) continue;
    values[key] = value;
  }
  auto it = values.find("PRETTY_NAME");
  if (it == values.end()) {
    OXLOG(5, "[%s(%d)] PRETTY_NAME not found in /etc/os-release");
    return 0;
  }
  OXLOG(3, "[%s(%d)] PRETTY_NAME: %s", it->second.c_str());
  out = it->second;
  return 1;
} catch (...) {
  return 0;
}

int GetSerialNo(std::string& /*out*/) { return 0; }

}  // namespace OxConfigMgr
