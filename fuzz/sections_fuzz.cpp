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

#include "platform/env.h"
#include "platform/file_util.h"

namespace {

std::string g_dir;

// Durability does not matter to a fuzzer: syncs are skipped, which makes
// every execution many times faster.
class NoSyncEnv : public OxBase::EnvWrapper {
 public:
  NoSyncEnv() : EnvWrapper(OxBase::Env::Default()) {}
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

void removeWorkDir() {
  for (const char* name : {"Config.xml", ".Config.xml.lock", "QAPIConfig.xml", ".QAPIConfig.xml.lock",
                           "QAPIConfig_Backup.xml"}) {
    ::unlink((g_dir + "/" + name).c_str());
  }
  ::rmdir(g_dir.c_str());
}

bool enterWorkDir() {
  char dir[] = "/tmp/oxcfg-sections-fuzz-XXXXXX";
  if (!::mkdtemp(dir) || ::chdir(dir) != 0) return false;
  static NoSyncEnv env;
  OxBase::Env::Install(&env);
  g_dir = dir;
  std::atexit(removeWorkDir);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = enterWorkDir();
  if (!ready) std::abort();
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!OxBase::WriteFileAtomic("Config.xml", text).ok()) return 0;
  if (!OxBase::WriteFileAtomic("QAPIConfig.xml", text).ok()) return 0;

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
