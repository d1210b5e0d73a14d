#include <oxconfigmgr/OxBasicCfg.h>

#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
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
constexpr size_t kMaxNameChars = 32;

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

// The product names published so far. A getter's pointer stays valid and
// unchanged for the object's lifetime, so a name is never rewritten in
// place; a name set again reuses its earlier copy, so a setter loop over a
// few names does not grow the list.
struct CBasicCfg::NameVersions {
  std::mutex mutex;
  std::deque<std::array<char, 33>> names;  // a deque never moves its elements

  // The kept copy of `name` (at most 32 characters), added when new.
  const char* intern(const char* name) {
    std::array<char, 33> text{};
    OSL_Strncpy(text.data(), name, text.size());
    std::lock_guard<std::mutex> lock(mutex);
    for (const auto& kept : names) {
      if (kept == text) return kept.data();
    }
    names.push_back(text);
    return names.back().data();
  }
};

CBasicCfg::~CBasicCfg() = default;

CBasicCfg::CBasicCfg()
    : m_productForm(0),
      m_operatingSystem(),
      m_names(new NameVersions),
      m_productName(m_names->intern("")),
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
  m_productName.store(m_names->intern(xml.GetData()), std::memory_order_release);
  if (!xml.FindElem("Model")) return 0;
  OSL_Strncpy(m_productModel, xml.GetData(), sizeof m_productModel);
  if (!xml.FindElem("SoftwareVersion")) return 0;
  OSL_Strncpy(m_version, xml.GetData(), sizeof m_version);
  OXLOG(3, "[%s(%d)] ---------Current Software Name:%s, Model:%s, Version:%s", getProductName(),
        m_productModel, m_version);

  std::string os;
  if (GetOSVersion(os) != 1) return 0;
  OSL_Strncpy(m_operatingSystem, os.c_str(), sizeof m_operatingSystem);

  if (!xml.FindElem("WebSessionID")) return 0;
  bool changed = false;
  if (xml.GetData()[0] != '\0') {
    OSL_Strncpy(m_webSessionID, xml.GetData(), sizeof m_webSessionID);
  } else {
    char id[11] = {0};
    if (!makeWebSessionId(id)) return 0;
    OSL_Strncpy(m_webSessionID, id, sizeof m_webSessionID);
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

int CBasicCfg::reloadFile() try {
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "BasicInfo", "Name"})) return 0;
  m_productName.store(m_names->intern(xml.GetData()), std::memory_order_release);
  return 1;
} catch (...) {
  return 0;
}

const char* CBasicCfg::getOperatingSystem() const { return m_operatingSystem; }
const char* CBasicCfg::getProductName() const {
  return m_productName.load(std::memory_order_acquire);
}
const char* CBasicCfg::getProductModel() const { return m_productModel; }
const char* CBasicCfg::getSerialNo() const { return m_serialNo; }
const char* CBasicCfg::getVersion() const { return m_version; }
const char* CBasicCfg::getWebSessionID() const { return m_webSessionID; }

int CBasicCfg::setProductName(const char* name) try {
  static OSL_Mutex s_mutex;
  OSL_Guard guard(&s_mutex);
  if (!name || std::strlen(name) > kMaxNameChars) return 1;

  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  if (!xmlWalk(xml, {"Config", "BasicInfo", "Name"})) return 14;
  if (xml.ModifyData("Name", name) != 1) return 1;
  xml.OutOfElem();
  xml.OutOfElem();
  if (writeConfigFile(xml) != 1) return 3;
  m_productName.store(m_names->intern(name), std::memory_order_release);
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
