// Feeds arbitrary bytes as "Config.xml" to every loader of its sections
// (identity, maintenance, feature switches, notification host, managed
// device kind, alarm monitor) and as "QAPIConfig.xml" to the QAPI loader, in
// a private working directory.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("sections");
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!oxfuzz::putFile("Config.xml", text) || !oxfuzz::putFile("QAPIConfig.xml", text)) return 0;

  // The reload reads the input as it stands (the loads below may repair it).
  OxConfigMgr::CDeviceMgmtCfg reloaded;
  reloaded.reloadFile();
  OxConfigMgr::CBasicCfg basic;
  basic.loadFile();
  if (std::string(basic.getProductName()).size() > 32 || std::string(basic.getWebSessionID()).size() > 10) {
    std::abort();
  }
  OxConfigMgr::CMaintain maintain;
  maintain.loadFile();
  OxConfigMgr::CEventSubCfg eventSub;
  eventSub.loadFile();
  OxConfigMgr::CMetadataCfg metadata;
  metadata.loadFile();
  OxConfigMgr::CWispListenCfg wisp;
  wisp.loadFile();
  OxConfigMgr::CHttpHostCfg host;
  host.loadFile();
  OxConfigMgr::CDeviceMgmtCfg device;
  device.loadFile();
  OxConfigMgr::CAlarmMonitorCfg monitor;
  monitor.loadFile();
  OxConfigMgr::CQAPICfg qapi;
  qapi.loadFile();
  return 0;
}
