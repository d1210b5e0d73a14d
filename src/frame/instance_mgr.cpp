#include "frame/instance_mgr.h"

#include <oxconfigmgr/OxMaintain.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxUserCfg.h>

#include <exception>

#include "db/db_init.h"
#include "platform/osl.h"
#include "platform/xlog.h"

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

CInstanceMgr::CInstanceMgr() = default;

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
  // Each step is added here, in its place of the order, as its class lands.
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
  // Step 5 (basic information) comes here.

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
  createOnly(m_securityStatus);
  return 1;
}

}  // namespace OxConfigMgr
