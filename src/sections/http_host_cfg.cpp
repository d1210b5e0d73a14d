#include <oxconfigmgr/OxSwitchCfg.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "sections/seq_record.h"

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

// Bytes of a record up to the end of its URL text: everything after is zero
// padding, which the getter need not copy word by word.
size_t usedBytes(const tagHttpHostInfo& info) {
  return offsetof(tagHttpHostInfo, url) + fieldLength(info.url);
}

}  // namespace

struct CHttpHostCfg::State {
  sections::SeqRecord<tagHttpHostInfo> info;
};

CHttpHostCfg::CHttpHostCfg() : m_state(new State) {}
CHttpHostCfg::~CHttpHostCfg() = default;

int CHttpHostCfg::loadFile() try {
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "HttpHostNotificationList", "HttpHostNotification"})) return 0;
  if (xml.IntoElem()) {
    tagHttpHostInfo info = m_state->info.load();
    if (xml.FindElem("Enable")) info.enable = OSL_Atoi32(xml.GetData()) != 0 ? 1 : 0;
    if (xml.FindElem("IP")) {
      std::memset(info.ip, 0, sizeof info.ip);
      OSL_Strncpy(info.ip, xml.GetData(), kMaxIpChars + 1);
    }
    if (xml.FindElem("Port")) info.port = OSL_Atoi32(xml.GetData());
    if (xml.FindElem("url")) {
      std::memset(info.url, 0, sizeof info.url);
      OSL_Strncpy(info.url, xml.GetData(), kMaxUrlChars + 1);
    }
    xml.OutOfElem();
    m_state->info.store(info, usedBytes(info));
  }
  return 1;
} catch (...) {
  return 0;
}

int CHttpHostCfg::getHttpHostInfo(tagHttpHostInfo& out) const {
  m_state->info.load(out);
  return 0;
}

int CHttpHostCfg::setHttpHostInfo(const tagHttpHostInfo& in) try {
  const size_t ipLength = fieldLength(in.ip);
  const size_t urlLength = fieldLength(in.url);
  if (ipLength == 0 || ipLength > kMaxIpChars) return 1;
  if (urlLength == 0 || urlLength > kMaxUrlChars) return 1;
  if (in.port < 0 || in.port > kMaxPort) return 1;

  // Terminated, zero-padded copies of the texts: `in` passed the checks
  // above, so nothing is cut.
  tagHttpHostInfo info;
  info.enable = in.enable;
  info.port = in.port;
  OSL_Strncpy(info.ip, std::string(in.ip, ipLength).c_str(), sizeof info.ip);
  OSL_Strncpy(info.url, std::string(in.url, urlLength).c_str(), sizeof info.url);

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
  m_state->info.store(info, usedBytes(info));
  return 0;
} catch (...) {
  return 2;
}

}  // namespace OxConfigMgr
