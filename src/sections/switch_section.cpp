#include "sections/switch_section.h"

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {
namespace sections {

int loadSwitch(const SwitchSection& section, std::atomic<int>& enable) try {
  // A missing section is written back: hold the file from the read on.
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xml.FindElem("Config") || !xml.IntoElem()) return 0;

  int value = 0;
  if (xml.FindElem(section.name)) {
    // A section without "Enable" (even an empty one) reads as off.
    if (xml.IntoElem()) {
      if (xml.FindElem("Enable")) value = OSL_Atoi32(xml.GetData());
      xml.OutOfElem();
    }
  } else {
    xlog_format(3, "OXW", section.missingLog, "loadFile", __LINE__);
    value = section.defaultValue;
    updateSwitch(section, value, enable);
  }
  xml.OutOfElem();
  enable.store(value != 0 ? 1 : 0);
  return 1;
} catch (...) {
  return 0;
}

int reloadSwitch(const SwitchSection& section, std::atomic<int>& enable) try {
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 0;
  if (!xml.FindElem("Config") || !xml.IntoElem()) return 0;
  int value = section.defaultValue;
  if (xml.FindElem(section.name)) {
    value = 0;
    if (xml.IntoElem()) {
      if (xml.FindElem("Enable")) value = OSL_Atoi32(xml.GetData());
      xml.OutOfElem();
    }
  }
  enable.store(value != 0 ? 1 : 0);
  return 1;
} catch (...) {
  return 0;
}

int updateSwitch(const SwitchSection& section, int value, std::atomic<int>& enable) try {
  ConfigFileTxn txn(getConfigFilePath());
  OxBase::CXmlBase xml;
  if (readConfigFile(xml) != 1) return 2;
  if (xml.FindElem("Config") && xml.IntoElem() && xml.FindElem(section.name)) {
    if (xml.IntoElem()) {
      if (xml.FindElem("Enable") && xml.ModifyData("Enable", value != 0 ? "1" : "0") != 1) return 1;
      xml.OutOfElem();
    }
  } else {
    // The section goes under the root element, whatever its name: a file
    // without "Config" gains it there too, as every missing section does.
    char text[34];
    if (!xml.SetRoot() || !xml.AddNode(section.name) ||
        !xml.AddNode("Enable", OSL_Itoa(value, text, 10))) {
      return 1;
    }
  }
  xml.OutOfElem();
  if (writeConfigFile(xml) != 1) return 3;
  enable.store(value);
  return 0;
} catch (...) {
  return 2;
}

}  // namespace sections
}  // namespace OxConfigMgr
