// Every shared handle a started library hands out, taken once and named
// once: tests that drive many objects hold one of these instead of asking
// each getter themselves.
#ifndef OXCFG_TESTS_SUPPORT_HANDLES_H
#define OXCFG_TESTS_SUPPORT_HANDLES_H

#include <oxconfigmgr/OxConfigMgr.h>

#include <memory>

namespace oxtest {

struct Handles {
  std::shared_ptr<OxConfigMgr::CBasicCfg> basic = OX_ConfigMgr_GetBasicCfg();
  std::shared_ptr<OxConfigMgr::CNetworkCfg> net = OX_ConfigMgr_GetNetworkCfg();
  std::shared_ptr<OxConfigMgr::CMaintain> maintain = OX_ConfigMgr_GetLogCfg();
  std::shared_ptr<OxConfigMgr::CQAPICfg> qapi = OX_ConfigMgr_GetQAPICfg();
  std::shared_ptr<OxConfigMgr::CEventSubCfg> events = OX_ConfigMgr_GetEventSubCfg();
  std::shared_ptr<OxConfigMgr::CMetadataCfg> metadata = OX_ConfigMgr_GetMetadataConfig();
  std::shared_ptr<OxConfigMgr::CWispListenCfg> wisp = OX_ConfigMgr_GetWispListenCfg();
  std::shared_ptr<OxConfigMgr::CHttpHostCfg> host = OX_ConfigMgr_GetHttpHostCfg();
  std::shared_ptr<OxConfigMgr::CDeviceMgmtCfg> mgmt = OX_ConfigMgr_GetDeviceMgmtCfg();
  std::shared_ptr<OxConfigMgr::CNATGateway> nat = OX_ConfigMgr_GetNATGateway();
  std::shared_ptr<OxConfigMgr::CPrivateCfg> priv = OX_ConfigMgr_GetPrivateCfg();
  std::shared_ptr<OxConfigMgr::CUserCfg> users = OX_ConfigMgr_GetUserCfg();

  // Whether the library handed out every one (it has started).
  bool complete() const {
    return basic && net && maintain && qapi && events && metadata && wisp && host && mgmt && nat && priv && users;
  }
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SUPPORT_HANDLES_H
