#include <oxconfigmgr/OxSwitchCfg.h>

#include "sections/switch_section.h"

namespace OxConfigMgr {

namespace {
const sections::SwitchSection kSection = {"MetadataCfg", 0,
                                          "[%s(%d)] MetadataCfg element not found"};
}  // namespace

CMetadataCfg::CMetadataCfg() : m_enable(0) {}

int CMetadataCfg::loadFile() { return sections::loadSwitch(kSection, m_enable); }

int CMetadataCfg::reloadFile() { return sections::reloadSwitch(kSection, m_enable); }

int CMetadataCfg::updateCfg(int value) { return sections::updateSwitch(kSection, value, m_enable); }

int CMetadataCfg::getCfg(int& value) const {
  value = m_enable.load();
  return 0;
}

}  // namespace OxConfigMgr
