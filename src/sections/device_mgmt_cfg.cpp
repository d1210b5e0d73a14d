#include <oxconfigmgr/OxSwitchCfg.h>

#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "platform/osl.h"

namespace OxConfigMgr {

namespace {

// The kind is kept as a number so that getChecked can read it while
// updateChecked changes it.
enum Kind { kNotLoaded = 0, kEncodingDev = 1, kAccessControl = 2 };

const char kEncodingDevName[] = "encodingDev";
const char kAccessControlName[] = "AccessControl";

const char* kindName(int kind) {
  switch (kind) {
    case kEncodingDev:
      return kEncodingDevName;
    case kAccessControl:
      return kAccessControlName;
    default:
      return "";
  }
}

// Serialises loadFile and updateChecked. Lock order: this mutex, then the
// file's transaction, on every path.
OSL_Mutex& kindMutex() {
  static OSL_Mutex s_mutex;
  return s_mutex;
}

// Writes `text` as "Checked" ("DeviceMgmt" and "Checked" are added when
// missing, so the kind in force is on disk). Codes of updateChecked.
int writeChecked(const char* text) {
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  if (xmlWalk(xml, {"Config", "DeviceMgmt"})) {
    if (!xmlSetChildText(xml, "Checked", text)) return 1;
  } else {
    if (!xmlWalk(xml, {"Config"})) return 1;
    if (!xml.AddNode("DeviceMgmt") || !xml.AddNode("Checked", text)) return 1;
  }
  return writeConfigFile(xml) == 1 ? 0 : 3;
}

}  // namespace

CDeviceMgmtCfg::CDeviceMgmtCfg() : m_kind(kNotLoaded) {}

int CDeviceMgmtCfg::loadFile() try {
  // An unknown kind is written back: hold the file from the read on.
  OSL_Guard guard(&kindMutex());
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  std::string checked;
  if (xmlWalk(xml, {"Config", "DeviceMgmt"})) xmlChildText(xml, "Checked", &checked);
  if (checked == "V") {
    m_kind.store(kEncodingDev);
  } else if (checked == "AC") {
    m_kind.store(kAccessControl);
  } else {
    if (writeChecked("AC") != 0) return 0;
    m_kind.store(kAccessControl);
  }
  return 1;
} catch (...) {
  return 0;
}

int CDeviceMgmtCfg::reloadFile() try {
  // The class's order: its mutex first. The file's transaction is not
  // needed: files are replaced whole, so the read sees one complete version,
  // and updateChecked changes file and memory under this same mutex.
  OSL_Guard guard(&kindMutex());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  std::string checked;
  if (xmlWalk(xml, {"Config", "DeviceMgmt"})) xmlChildText(xml, "Checked", &checked);
  // What a start would make of the file, without writing the repair back.
  m_kind.store(checked == "V" ? kEncodingDev : kAccessControl);
  return 1;
} catch (...) {
  return 0;
}

int CDeviceMgmtCfg::getChecked(std::string& out) const try {
  out = kindName(m_kind.load());
  return 0;
} catch (...) {
  return 1;
}

int CDeviceMgmtCfg::updateChecked(const std::string& kindText) try {
  int kind;
  const char* text;
  if (kindText == kEncodingDevName) {
    kind = kEncodingDev;
    text = "V";
  } else if (kindText == kAccessControlName) {
    kind = kAccessControl;
    text = "AC";
  } else {
    return 1;
  }
  OSL_Guard guard(&kindMutex());
  const int rc = writeChecked(text);
  if (rc == 0) m_kind.store(kind);
  return rc;
} catch (...) {
  return 2;
}

}  // namespace OxConfigMgr
