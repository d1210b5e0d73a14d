// The process-wide instance manager: owns one shared handle per configuration
// object, creates and loads them in a fixed order at start, and hands out
// copies of the handles.
#ifndef OXCFG_CORE_INSTANCE_MGR_H
#define OXCFG_CORE_INSTANCE_MGR_H

#include <oxconfigmgr/OxConfigMgr.h>

#include <memory>
#include <string>

#include "frame/singleton.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

class CInstanceMgr : public CSingleton<CInstanceMgr> {
 public:
  CInstanceMgr();
  ~CInstanceMgr();

  // 1 when every step succeeded, 0 at the first failure (logged). Filled
  // slots are neither re-created nor re-loaded, so a retry resumes at the
  // failed step; an object whose load failed is not kept. Not thread-safe:
  // called once from one thread before the getters are used.
  int start();
  // Does nothing; returns 1.
  int stop();

  // Lock-free copies of the slots.
  std::string getBackupVersion() const { return m_backupVersion; }
  std::shared_ptr<CBasicCfg> getBasicCfg() const { return m_basicCfg; }
  std::shared_ptr<CMaintain> getMaintain() const { return m_maintain; }
  std::shared_ptr<CPrivateCfg> getPrivateCfg() const { return m_privateCfg; }
  std::shared_ptr<CUserCfg> getUserCfg() const { return m_userCfg; }
  std::shared_ptr<CNATGateway> getNATGateway() const { return m_natGateway; }
  std::shared_ptr<OxBase::CSecurityStatus> getSecurityStatus() const { return m_securityStatus; }
  std::shared_ptr<CNetworkCfg> getNetworkCfg() const { return m_networkCfg; }
  std::shared_ptr<COpenSSLCertificate> getOpenSSLCert() const { return m_openSSLCert; }
  std::shared_ptr<CARCCfg> getARCCfg() const { return m_arcCfg; }
  std::shared_ptr<CConvertCodeCfg> getConvertCodeCfg() const { return m_convertCodeCfg; }
  std::shared_ptr<CTimeCfg> getTimeCfg() const { return m_timeCfg; }
  std::shared_ptr<CQAPICfg> getQAPICfg() const { return m_qapiCfg; }
  std::shared_ptr<CAlarmMonitorCfg> getAlarmMonitorCfg() const { return m_alarmMonitorCfg; }
  std::shared_ptr<CHttpHostCfg> getHttpHostCfg() const { return m_httpHostCfg; }
  std::shared_ptr<CEventSubCfg> getEventSubCfg() const { return m_eventSubCfg; }
  std::shared_ptr<CWispListenCfg> getWispListenCfg() const { return m_wispListenCfg; }
  std::shared_ptr<CCfgImportAndExport> getCfgImportAndExport() const { return m_cfgImportAndExport; }
  std::shared_ptr<CDeviceMgmtCfg> getDeviceMgmtCfg() const { return m_deviceMgmtCfg; }
  std::shared_ptr<CStorageConfig> getStorageConfig() const { return m_storageConfig; }
  std::shared_ptr<CMetadataCfg> getMetadataCfg() const { return m_metadataCfg; }

  // Carry-over of "Config_Backup.xml" into "Config.xml" after an upgrade.
  void copyBackupConfig();
  // Section fixes applied after the merge; the new document comes first.
  void updateNetworkCfg(OxBase::CXmlBase& newDoc, OxBase::CXmlBase& oldDoc);
  void updateNATGatewayCfg(OxBase::CXmlBase& newDoc, OxBase::CXmlBase& oldDoc);
  void updateEventSubCfg(OxBase::CXmlBase& newDoc, const std::string& oldModel);
  void updateWispListenCfg(OxBase::CXmlBase& newDoc, OxBase::CXmlBase& oldDoc);

 private:
  struct StartStep;
  // The start table, in step order.
  static const StartStep* startSteps(size_t* count);

  // The slot table, in slot order.
  std::shared_ptr<CBasicCfg> m_basicCfg;
  std::shared_ptr<CMaintain> m_maintain;
  std::shared_ptr<CPrivateCfg> m_privateCfg;
  std::shared_ptr<CUserCfg> m_userCfg;
  std::shared_ptr<CNATGateway> m_natGateway;
  std::shared_ptr<OxBase::CSecurityStatus> m_securityStatus;
  std::shared_ptr<CNetworkCfg> m_networkCfg;
  std::shared_ptr<COpenSSLCertificate> m_openSSLCert;
  std::shared_ptr<CARCCfg> m_arcCfg;
  std::shared_ptr<CConvertCodeCfg> m_convertCodeCfg;
  std::shared_ptr<CTimeCfg> m_timeCfg;
  std::shared_ptr<CQAPICfg> m_qapiCfg;
  std::shared_ptr<CAlarmMonitorCfg> m_alarmMonitorCfg;
  std::shared_ptr<CHttpHostCfg> m_httpHostCfg;
  std::shared_ptr<CEventSubCfg> m_eventSubCfg;
  std::shared_ptr<CWispListenCfg> m_wispListenCfg;
  std::shared_ptr<CCfgImportAndExport> m_cfgImportAndExport;
  std::shared_ptr<CDeviceMgmtCfg> m_deviceMgmtCfg;
  std::shared_ptr<CStorageConfig> m_storageConfig;
  std::shared_ptr<CMetadataCfg> m_metadataCfg;
  std::string m_backupVersion;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_CORE_INSTANCE_MGR_H
