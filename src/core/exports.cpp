// The exported entry points. Nothing thrown inside the library leaves it:
// lifecycle functions report failure as 0, getters as an empty handle.
#include <oxconfigmgr/OxConfigMgr.h>

#include <exception>

#include "core/instance_mgr.h"
#include "core/live_reload.h"
#include "platform/osl.h"
#include "platform/xlog.h"

using OxConfigMgr::CInstanceMgr;
using OxConfigMgr::CSingleton;

extern "C" {

OXCFG_API int OX_ConfigMgr_Init(void) { return 1; }

OXCFG_API int OX_ConfigMgr_Start(void) {
  try {
    return CSingleton<CInstanceMgr>::Instance()->start();
  } catch (const std::exception& e) {
    xlog_format(5, "OXW", "[%s(%d)] [err=%s]start CInstanceMgr failed", "OX_ConfigMgr_Start",
                __LINE__, e.what());
  } catch (...) {
    xlog_format(5, "OXW", "[%s(%d)] [errCode=%d]start CInstanceMgr failed", "OX_ConfigMgr_Start",
                __LINE__, OSL_GetSystemLastError());
  }
  return 0;
}

OXCFG_API int OX_ConfigMgr_Stop(void) {
  try {
    OxConfigMgr::LiveReload* live = OxConfigMgr::LiveReload::IfMade();
    return live ? live->stop() : 1;
  } catch (...) {
    return 1;
  }
}

OXCFG_API int OX_ConfigMgr_Uninit(void) { return OX_ConfigMgr_Stop(); }

OXCFG_API int OX_ConfigMgr_EnableLiveReload(int on) {
  try {
    return OxConfigMgr::LiveReload::Instance().enable(on != 0);
  } catch (...) {
    return 0;
  }
}

OXCFG_API int OX_ConfigMgr_AddReloadCallback(OX_ConfigMgr_ReloadCallback callback, void* context) {
  try {
    return OxConfigMgr::LiveReload::Instance().addCallback(callback, context);
  } catch (...) {
    return 0;
  }
}

OXCFG_API int OX_ConfigMgr_RemoveReloadCallback(OX_ConfigMgr_ReloadCallback callback, void* context) {
  try {
    return OxConfigMgr::LiveReload::Instance().removeCallback(callback, context);
  } catch (...) {
    return 0;
  }
}

}  // extern "C"

namespace {

template <class R>
R fromManager(R (CInstanceMgr::*getter)() const) {
  try {
    return (CSingleton<CInstanceMgr>::Instance()->*getter)();
  } catch (...) {
    return R();
  }
}

}  // namespace

#define OXCFG_GETTER(type, exported, member) \
  OXCFG_API type exported() { return fromManager<type>(&CInstanceMgr::member); }

OXCFG_GETTER(std::string, OX_ConfigMgr_GetBackupVersion, getBackupVersion)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CBasicCfg>, OX_ConfigMgr_GetBasicCfg, getBasicCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CMaintain>, OX_ConfigMgr_GetLogCfg, getMaintain)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CPrivateCfg>, OX_ConfigMgr_GetPrivateCfg, getPrivateCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CUserCfg>, OX_ConfigMgr_GetUserCfg, getUserCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CNATGateway>, OX_ConfigMgr_GetNATGateway, getNATGateway)
OXCFG_GETTER(std::shared_ptr<OxBase::CSecurityStatus>, OX_ConfigMgr_GetSecurityStatus, getSecurityStatus)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CNetworkCfg>, OX_ConfigMgr_GetNetworkCfg, getNetworkCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::COpenSSLCertificate>, OX_ConfigMgr_GetOpenSSLCert, getOpenSSLCert)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CARCCfg>, OX_ConfigMgr_GetARCCfg, getARCCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CConvertCodeCfg>, OX_ConfigMgr_GetConvertCodeCfg, getConvertCodeCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CTimeCfg>, OX_ConfigMgr_GetTimeCfg, getTimeCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CQAPICfg>, OX_ConfigMgr_GetQAPICfg, getQAPICfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CAlarmMonitorCfg>, OX_ConfigMgr_GetAlarmMonitorCfg, getAlarmMonitorCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CHttpHostCfg>, OX_ConfigMgr_GetHttpHostCfg, getHttpHostCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CEventSubCfg>, OX_ConfigMgr_GetEventSubCfg, getEventSubCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CWispListenCfg>, OX_ConfigMgr_GetWispListenCfg, getWispListenCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CCfgImportAndExport>, OX_ConfigMgr_GetCfgImportAndExport, getCfgImportAndExport)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CDeviceMgmtCfg>, OX_ConfigMgr_GetDeviceMgmtCfg, getDeviceMgmtCfg)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CStorageConfig>, OX_ConfigMgr_GetStorageConfig, getStorageConfig)
OXCFG_GETTER(std::shared_ptr<OxConfigMgr::CMetadataCfg>, OX_ConfigMgr_GetMetadataConfig, getMetadataCfg)
