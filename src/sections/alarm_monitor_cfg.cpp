#include <oxconfigmgr/OxAlarmMonitorCfg.h>

#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/xlog.h"
#include "sections/seq_record.h"
#include "sections/token_mgr.h"

namespace OxConfigMgr {

namespace {

constexpr int kWriteFailed = 9;
constexpr int kRejected = 2049;

// Clears the token field and copies at most 64 characters of `token`.
void copyToken(tagAlarmMonitorCnf& cfg, const char* token) {
  std::memset(cfg.token, 0, sizeof cfg.token);
  OSL_Strncpy(cfg.token, token, sizeof cfg.token);
}

// Reads Config.xml into `xml`, leaves it inside "AlarmMonitor" at
// "Enable" and takes that flag into `cfg`. false when the file, the section
// or the flag is missing (nothing taken).
bool readEnable(OxBase::CXmlBase& xml, tagAlarmMonitorCnf& cfg) {
  if (readConfigFile(xml) != 1) return false;
  if (!xmlWalk(xml, {"Config", "AlarmMonitor"}) || !xml.IntoElem()) return false;
  if (!xml.FindElem("Enable")) return false;
  cfg.enable = std::strcmp(xml.GetData(), "1") == 0 ? 1 : 0;
  return true;
}

// The end of both setters: the record takes `cfg` first and keeps it even
// when the file cannot be written. 0, or 9 (logged).
int storeAndWrite(CAlarmMonitorCfg& self, sections::SeqRecord<tagAlarmMonitorCnf>& record,
                  const tagAlarmMonitorCnf& cfg, const char* function) {
  record.store(cfg);
  if (self.updateFile() != 1) {
    xlog_format(5, "OXW", "[%s(%d)] set Config.xml file failed", function, __LINE__);
    return kWriteFailed;
  }
  return 0;
}

}  // namespace

// Setters hold the file's transaction while they change the record, so the
// record and the file change in the same order.
struct CAlarmMonitorCfg::State {
  sections::SeqRecord<tagAlarmMonitorCnf> cfg;
};

CAlarmMonitorCfg::CAlarmMonitorCfg() : m_state(new State) {}
CAlarmMonitorCfg::~CAlarmMonitorCfg() = default;

int CAlarmMonitorCfg::loadFile() try {
  // A new token is written back: hold the file from the read on.
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  tagAlarmMonitorCnf cfg = m_state->cfg.load();
  if (!readEnable(xml, cfg)) return 0;
  m_state->cfg.store(cfg);
  if (!xml.FindElem("token")) return 0;
  bool changed = false;
  if (xml.GetData()[0] != '\0') {
    copyToken(cfg, xml.GetData());
  } else {
    const std::string token = CSingleton<CTokenMgr>::Instance()->updateToken();
    copyToken(cfg, token.c_str());
    changed = true;
  }
  m_state->cfg.store(cfg);
  if (changed && xml.ModifyData("token", cfg.token) != 1) return 0;
  xml.OutOfElem();
  if (changed) return writeConfigFile(xml);
  return 1;
} catch (...) {
  return 0;
}

int CAlarmMonitorCfg::reloadFile() try {
  OxBase::CXmlBase xml;
  tagAlarmMonitorCnf cfg = m_state->cfg.load();
  if (!readEnable(xml, cfg)) return 0;
  if (xml.FindElem("token") && xml.GetData()[0] != '\0') copyToken(cfg, xml.GetData());
  m_state->cfg.store(cfg);
  return 1;
} catch (...) {
  return 0;
}

int CAlarmMonitorCfg::getAlarmMonitorCfg(tagAlarmMonitorCnf& out) const {
  m_state->cfg.load(out);
  return 0;
}

int CAlarmMonitorCfg::setAlarmMonitorCfg(const tagAlarmMonitorCnf& in) try {
  // Serialises this record's setters as well as the file.
  ConfigFileTxn txn(getConfigFilePath());
  tagAlarmMonitorCnf cfg;
  cfg.enable = in.enable;
  copyToken(cfg, std::string(in.token, strnlen(in.token, sizeof in.token - 1)).c_str());
  return storeAndWrite(*this, m_state->cfg, cfg, "setAlarmMonitorCfg");
} catch (...) {
  return kWriteFailed;
}

int CAlarmMonitorCfg::refreshAlarmMonitorCfg() try {
  ConfigFileTxn txn(getConfigFilePath());
  const std::string token = CSingleton<CTokenMgr>::Instance()->updateToken();
  tagAlarmMonitorCnf cfg = m_state->cfg.load();
  copyToken(cfg, token.c_str());
  return storeAndWrite(*this, m_state->cfg, cfg, "refreshAlarmMonitorCfg");
} catch (...) {
  return kWriteFailed;
}

int CAlarmMonitorCfg::checkAlarmMonitorCfg(const std::string& token) try {
  if (m_state->cfg.load().enable == 0) return kRejected;
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
  const tagAlarmMonitorCnf cfg = m_state->cfg.load();
  if (xml.ModifyData("Enable", cfg.enable ? "1" : "0") != 1) return 0;
  if (xml.ModifyData("token", cfg.token) != 1) return 0;
  xml.OutOfElem();
  return writeConfigFile(xml);
} catch (...) {
  return 0;
}

}  // namespace OxConfigMgr
