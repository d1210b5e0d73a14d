#include <oxconfigmgr/OxSwitchCfg.h>

#include <cstring>
#include <string>

#include "frame/backup_merge.h"
#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

namespace {

int modeFromText(const char* text) {
  if (std::strcmp(text, "user") == 0) return 1;
  if (std::strcmp(text, "port") == 0) return 2;
  if (std::strcmp(text, "all") == 0) return 3;
  return 0;
}

// Reads both values of the file: 1; 0 when the file does not load; -1 when
// an element is missing.
int readQAPIFile(int& enable, int& mode) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(getQAPIConfigFilePath()) != 1) return 0;
  if (!xmlWalk(xml, {"Config", "QAPIConfig"}) || !xml.IntoElem()) return -1;
  if (!xml.FindElem("Enable")) return -1;
  enable = OSL_Atoi32(xml.GetData());
  if (!xml.FindElem("Mode")) return -1;
  mode = modeFromText(xml.GetData());
  return 1;
}

}  // namespace

CQAPICfg::CQAPICfg() : m_enable(0), m_mode(0) {}

// Both values or neither: a file without "Mode" leaves memory as it was.
int CQAPICfg::loadFile() try {
  copyBackupConfig();
  int enable = 0, mode = 0;
  const int read = readQAPIFile(enable, mode);
  if (read == 0) OXLOG(5, "[%s(%d)] QAPIConfig.xml file is not exist");
  if (read != 1) return 0;
  m_enable.store(enable);
  m_mode.store(mode);
  return 1;
} catch (...) {
  return 0;
}

int CQAPICfg::reloadFile() try {
  int enable = 0, mode = 0;
  if (readQAPIFile(enable, mode) != 1) return 0;
  m_enable.store(enable);
  m_mode.store(mode);
  return 1;
} catch (...) {
  return 0;
}

int CQAPICfg::getQAPIParam() const { return m_enable.load(); }

int CQAPICfg::getQAPIMode() const { return m_mode.load(); }

int CQAPICfg::setQAPIParam(int value) try {
  // Held across the write and the store, so memory follows the file's order
  // of changes.
  ConfigFileTxn txn(getQAPIConfigFilePath());
  if (setFile(value) == 0) {
    OXLOG(5, "[%s(%d)] set QAPIConfig.xml failed.");
    return 3;
  }
  m_enable.store(value);
  return 0;
} catch (...) {
  return 3;
}

int CQAPICfg::setFile(int value) try {
  const std::string path = getQAPIConfigFilePath();
  ConfigFileTxn txn(path);
  OxBase::CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] QAPIConfig.xml file is not exist");
    return 0;
  }
  if (!xmlWalk(xml, {"Config", "QAPIConfig", "Enable"})) return 0;
  char text[34];
  if (xml.ModifyData("Enable", OSL_Itoa(value, text, 10)) != 1) return 0;
  xml.OutOfElem();
  xml.OutOfElem();
  return xml.WriteToFile(path) == 1 ? 1 : 0;
} catch (...) {
  return 0;
}

void CQAPICfg::copyBackupConfig() try {
  mergeBackupFile(getQAPIConfigFilePath(), OxBase::FileMode::kKeep,
                  [](OxBase::CXmlBase& current, OxBase::CXmlBase& backup) {
                    copyXMLRecursive(current, backup, nullptr);
                  });
} catch (...) {
}

}  // namespace OxConfigMgr
