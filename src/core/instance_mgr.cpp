#include "core/instance_mgr.h"

#include <oxconfigmgr/OxAlarmMonitorCfg.h>
#include <oxconfigmgr/OxBasicCfg.h>
#include <oxconfigmgr/OxMaintain.h>
#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxSwitchCfg.h>
#include <oxconfigmgr/OxUserCfg.h>

#include <cstring>
#include <exception>

#include "db/db_init.h"
#include "db/db_key.h"
#include "platform/osl.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"
#include "sections/token_mgr.h"

namespace OxConfigMgr {

namespace {

// Start's failure messages all name "start" as their function.
#define START_LOG(fmt, ...) xlog_format(5, "OXW", fmt, "start", __LINE__, ##__VA_ARGS__)

// Creates the object of an empty slot and loads it; the slot is filled only
// when the load succeeded, so a later start retries a failed load.
template <class T, class Load>
bool createAndLoad(std::shared_ptr<T>& slot, Load&& load) {
  if (slot) return true;
  auto obj = std::make_shared<T>();
  if (!load(*obj)) return false;
  slot = std::move(obj);
  return true;
}

template <class T>
void createOnly(std::shared_ptr<T>& slot) {
  if (!slot) slot = std::make_shared<T>();
}

}  // namespace

// The configuration database's key is the private configuration's storage
// key: the databases get it through this provider, not by reaching up here.
CInstanceMgr::CInstanceMgr() {
  SetConfigDbKeyProvider([this](unsigned char out[kDBKeyLength]) {
    std::shared_ptr<CPrivateCfg> priv = m_privateCfg;
    if (!priv) return false;
    tagEncryptInfo info;
    OxBase::ScopedWipe wipe(&info, sizeof info);
    priv->getEncryptParams(info);
    std::memcpy(out, info.storageKey, kDBKeyLength);
    return true;
  });
}

// Members go in reverse order: the backup version first, then slot 20 down
// to slot 1.
CInstanceMgr::~CInstanceMgr() = default;

int CInstanceMgr::stop() { return 1; }

int CInstanceMgr::start() {
  xlog_configure_from_cwd();
  copyBackupConfig();
  try {
    return runSteps();
  } catch (const std::exception& e) {
    START_LOG("[%s(%d)] [err=%s]start CInstanceMgr failed", e.what());
  } catch (...) {
    START_LOG("[%s(%d)] [errCode=%d]start CInstanceMgr failed", OSL_GetSystemLastError());
  }
  return 0;
}

int CInstanceMgr::runSteps() {
  // Step 2: private configuration, which holds the database key.
  if (!createAndLoad(m_privateCfg, [](CPrivateCfg& o) { return o.loadFile(); })) {
    START_LOG("[%s(%d)] CPrivateCfg loadFile falied");
    return 0;
  }

  // Steps 3 and 4: both databases are brought to the current schema on
  // every start, whatever the slots hold.
  if (!CSingleton<CGatewayDBInitManager>::Instance()->InitDB(1)) {
    START_LOG("[%s(%d)] InitDB falied");
    return 0;
  }
  if (!CSingleton<CSyslogDBInitManager>::Instance()->InitDB(0)) {
    START_LOG("[%s(%d)] InitSyslog falied");
    return 0;
  }

  // Step 5: basic information.
  if (!createAndLoad(m_basicCfg, [](CBasicCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CBasicCfg loadFile falied");
    return 0;
  }

  // Step 6: maintenance, which opens the system-log connection; it reports
  // with the user step's text.
  if (!createAndLoad(m_maintain, [](CMaintain& o) { return o.loadFile() && o.start(); })) {
    START_LOG("[%s(%d)] CUserCfg loadFile falied");
    return 0;
  }

  // Step 7: users.
  if (!createAndLoad(m_userCfg, [](CUserCfg& o) { return o.loadDatabase(0); })) {
    START_LOG("[%s(%d)] CUserCfg loadFile falied");
    return 0;
  }

  // Step 8: NAT gateway.
  if (!createAndLoad(m_natGateway, [](CNATGateway& o) { return o.loadFile(); })) {
    START_LOG("[%s(%d)] CNATGateway loadFile falied");
    return 0;
  }

  // Step 9: security status.
  createOnly(m_securityStatus);

  // Step 10: network (the message names loadFile although start() runs).
  if (!createAndLoad(m_networkCfg, [](CNetworkCfg& o) { return o.start(); })) {
    START_LOG("[%s(%d)] CNetworkCfg loadFile falied");
    return 0;
  }

  // Steps 11 and 12 (certificates, time).

  // Step 13: QAPI switches.
  if (!createAndLoad(m_qapiCfg, [](CQAPICfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CQAPICfg loadFile falied");
    return 0;
  }

  // Step 14: alarm monitor, then the token of its file is put in force. A
  // restart does not touch it: the token in force changes only with a
  // refresh.
  const bool alarmMonitorIsNew = !m_alarmMonitorCfg;
  if (!createAndLoad(m_alarmMonitorCfg, [](CAlarmMonitorCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CAlarmMonitorCfg loadFile falied");
    return 0;
  }
  if (alarmMonitorIsNew) CSingleton<CTokenMgr>::Instance()->setToken();

  // Step 15: HTTP host notification.
  if (!createAndLoad(m_httpHostCfg, [](CHttpHostCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CHttpHostCfg loadFile falied");
    return 0;
  }

  // Step 16: event subscription.
  if (!createAndLoad(m_eventSubCfg, [](CEventSubCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CEventSubCfg loadFile falied");
    return 0;
  }

  // Step 17: Wisp listening.
  if (!createAndLoad(m_wispListenCfg, [](CWispListenCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CWispListenCfg loadFile falied");
    return 0;
  }

  // Step 18 (import and export).

  // Step 19: device management.
  if (!createAndLoad(m_deviceMgmtCfg, [](CDeviceMgmtCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CDeviceMgmtCfg loadFile falied");
    return 0;
  }

  // Step 20 (storage).

  // Step 21: metadata.
  if (!createAndLoad(m_metadataCfg, [](CMetadataCfg& o) { return o.loadFile() == 1; })) {
    START_LOG("[%s(%d)] CMetadataCfg loadFile falied");
    return 0;
  }
  return 1;
}

}  // namespace OxConfigMgr
