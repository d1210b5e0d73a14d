#include <oxconfigmgr/OxSwitchCfg.h>

#include "sections/switch_section.h"

namespace OxConfigMgr {

namespace {
const sections::SwitchSection kSection = {"EventSubCfg", 1,
                                          "[%s(%d)] EventSubCfg element not found"};
}  // namespace

CEventSubCfg::CEventSubCfg() : m_enable(0) {}

int CEventSubCfg::loadFile() { return sections::loadSwitch(kSection, m_enable); }

int CEventSubCfg::reloadFile() { return sections::reloadSwitch(kSection, m_enable); }

int CEventSubCfg::updateCfg(int value) { return sections::updateSwitch(kSection, value, m_enable); }

int CEventSubCfg::getSubCfg(int& value) const {
  value = m_enable.load();
  return 0;
}

}  // namespace OxConfigMgr
