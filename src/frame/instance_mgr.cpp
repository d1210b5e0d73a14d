#include "frame/instance_mgr.h"

#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>

#include <exception>

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

  // 8. NAT gateway.
  if (!createAndLoad(m_natGateway, [](CNATGateway& o) { return o.loadFile(); })) {
    START_LOG("[%s(%d)] CNATGateway loadFile falied");
    return 0;
  }
  // 9. Security status.
  createOnly(m_securityStatus);
  // 10. Network (the message names loadFile although start() runs).
  if (!createAndLoad(m_networkCfg, [](CNetworkCfg& o) { return o.start(); })) {
    START_LOG("[%s(%d)] CNetworkCfg loadFile falied");
    return 0;
  }
  return 1;
}

}  // namespace OxConfigMgr
