#include <oxconfigmgr/OxAlarmMonitorCfg.h>

#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/xlog.h"
#include "sections/token_mgr.h"

namespace OxConfigMgr {

namespace {

constexpr int kWriteFailed = 9;
constexpr int kRejected = 2049;

void copyToken(tagAlarmMonitorCnf& cfg, const char* token) {
  OSL_Strncpy(cfg.token, token, sizeof cfg.token);
}

}  // namespace

CAlarmMonitorCfg::CAlarmMonitorCfg() = default;

int CAlarmMonitorCfg::loadFile() try {
  // A new token is written back: hold the file from the read on.
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "AlarmMonitor"}) || !xml.IntoElem()) return 0;
  if (!xml.FindElem("Enable")) return 0;
  m_cfg.enable = std::strcmp(xml.GetData(), "1") == 0 ? 1 : 0;
  if (!xml.FindElem("token")) return 0;
  bool changed = false;
  if (xml.GetData()[0] != '\0') {
    copyToken(m_cfg, xml.GetData());
  } else {
    const std::string token = CSingleton<CTokenMgr>::Instance()->updateToken();
    copyToken(m_cfg, token.c_str());
    if (xml.ModifyData("token", m_cfg.token) != 1) return 0;
    changed = true;
  }
  xml.OutOfElem();
  if (changed) return writeConfigFile(xml);
  return 1;
} catch (...) {
  return 0;
}

int CAlarmMonitorCfg::getAlarmMonitorCfg(tagAlarmMonitorCnf& out) const {
  out = m_cfg;
  return 0;
}

int CAlarmMonitorCfg::setAlarmMonitorCfg(const tagAlarmMonitorCnf& in) try {
  // Serialises this record's setters as well as the file.
  ConfigFileTxn txn(getConfigFilePath());
  m_cfg.enable = in.enable;
  std::memcpy(m_cfg.token, in.token, sizeof m_cfg.token);
  m_cfg.token[sizeof m_cfg.token - 1] = '\0';
  if (updateFile() != 1) {
    OXLOG(5, "[%s(%d)] set Config.xml file failed");
    return kWriteFailed;
  }
  return 0;
} catch (...) {
  return kWriteFailed;
}

int CAlarmMonitorCfg::refreshAlarmMonitorCfg() try {
  ConfigFileTxn txn(getConfigFilePath());
  const std::string token = CSingleton<CTokenMgr>::Instance()->updateToken();
  copyToken(m_cfg, token.c_str());
  if (updateFile() != 1) {
    OXLOG(5, "[%s(%d)] set Config.xml file failed");
    return kWriteFailed;
  }
  return 0;
} catch (...) {
  return kWriteFailed;
}

int CAlarmMonitorCfg::checkAlarmMonitorCfg(const std::string& token) try {
  if (m_cfg.enable == 0) return kRejected;
  if (CSingleton<CTokenMgr>::Instance()->checkToken(token)) return 0;
  OXLOG(5, "[%s(%d)] checkToken failed.[token = %s]", token.c_str());
  return kRejected;
} catch (...) {
  return kRejected;
}

int CAlarmMonitorCfg::updateFile() try {
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "AlarmMonitor"}) || !xml.IntoElem()) return 0;
  if (xml.ModifyData("Enable", m_cfg.enable ? "1" : "0") != 1) return 0;
  if (xml.ModifyData("token", m_cfg.token) != 1) return 0;
  xml.OutOfElem();
  return writeConfigFile(xml);
} catch (...) {
  return 0;
}

}  // namespace OxConfigMgr
