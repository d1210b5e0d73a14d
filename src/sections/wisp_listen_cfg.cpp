#include <oxconfigmgr/OxSwitchCfg.h>

#include "sections/switch_section.h"

namespace OxConfigMgr {

namespace {
const sections::SwitchSection kSection = {"WispListenCfg", 0,
                                          "[%s(%d)] WispListenCfg element not found"};
}  // namespace

CWispListenCfg::CWispListenCfg() : m_enable(0) {}

int CWispListenCfg::loadFile() { return sections::loadSwitch(kSection, m_enable); }

int CWispListenCfg::reloadFile() { return sections::reloadSwitch(kSection, m_enable); }

int CWispListenCfg::updateCfg(int value) {
  return sections::updateSwitch(kSection, value, m_enable);
}

int CWispListenCfg::getCfg(int& value) const {
  value = m_enable.load();
  return 0;
}

}  // namespace OxConfigMgr
