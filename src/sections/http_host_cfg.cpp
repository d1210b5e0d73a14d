#include <oxconfigmgr/OxSwitchCfg.h>

#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"

namespace OxConfigMgr {

namespace {

constexpr size_t kMaxIpChars = 15;
constexpr size_t kMaxUrlChars = 2048;
constexpr int kMaxPort = 65535;

// Length of a text that may fill its field without a terminator.
template <size_t N>
size_t fieldLength(const char (&field)[N]) {
  const void* end = std::memchr(field, '\0', N);
  return end ? static_cast<size_t>(static_cast<const char*>(end) - field) : N;
}

// Replaces the text of `name` when the current level has it.
bool modifyIfPresent(OxBase::CXmlBase& xml, const char* name, const char* text) {
  if (!xml.FindElem(name)) return true;
  return xml.ModifyData(name, text) == 1;
}

}  // namespace

CHttpHostCfg::CHttpHostCfg() = default;

int CHttpHostCfg::loadFile() try {
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "HttpHostNotificationList", "HttpHostNotification"})) return 0;
  if (xml.IntoElem()) {
    if (xml.FindElem("Enable")) m_info.enable = OSL_Atoi32(xml.GetData()) != 0 ? 1 : 0;
    if (xml.FindElem("IP")) OSL_Strncpy(m_info.ip, xml.GetData(), kMaxIpChars + 1);
    if (xml.FindElem("Port")) m_info.port = OSL_Atoi32(xml.GetData());
    if (xml.FindElem("url")) OSL_Strncpy(m_info.url, xml.GetData(), kMaxUrlChars + 1);
    xml.OutOfElem();
  }
  return 1;
} catch (...) {
  return 0;
}

int CHttpHostCfg::getHttpHostInfo(tagHttpHostInfo& out) const {
  out = m_info;
  return 0;
}

int CHttpHostCfg::setHttpHostInfo(const tagHttpHostInfo& in) try {
  const size_t ipLength = fieldLength(in.ip);
  const size_t urlLength = fieldLength(in.url);
  if (ipLength == 0 || ipLength > kMaxIpChars) return 1;
  if (urlLength == 0 || urlLength > kMaxUrlChars) return 1;
  if (in.port < 0 || in.port > kMaxPort) return 1;

  // Bounded, terminated copies of the texts: `in` passed the checks above,
  // so nothing is cut.
  tagHttpHostInfo info;
  info.enable = in.enable;
  info.port = in.port;
  std::memcpy(info.ip, in.ip, ipLength);
  std::memcpy(info.url, in.url, urlLength);

  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  if (!xmlWalk(xml, {"Config", "HttpHostNotificationList", "HttpHostNotification"})) return 1;
  if (xml.IntoElem()) {
    char number[34];
    if (!modifyIfPresent(xml, "Enable", info.enable != 0 ? "1" : "0") ||
        !modifyIfPresent(xml, "IP", info.ip) ||
        !modifyIfPresent(xml, "Port", OSL_Itoa(info.port, number, 10)) ||
        !modifyIfPresent(xml, "url", info.url)) {
      return 1;
    }
    xml.OutOfElem();
  }
  if (writeConfigFile(xml) != 1) return 3;
  m_info = info;
  return 0;
} catch (...) {
  return 2;
}

}  // namespace OxConfigMgr
