// Feeds arbitrary bytes as an upgrade's "QAPIConfig_Backup.xml" and
// "Config_Backup.xml" to the carry-overs that merge them into the factory
// files, in a private working directory.
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

const char kQapi[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Config><QAPIConfig><Enable>1</Enable><Mode>all</Mode>"
    "</QAPIConfig></Config>\n";

void removeWorkDir() {
  for (const char* name : {"QAPIConfig.xml", ".QAPIConfig.xml.lock", "QAPIConfig_Backup.xml", "ARCConfig.xml",
                           ".ARCConfig.xml.lock", "ARCConfig_Backup.xml"}) {
    ::unlink((g_dir + "/" + name).c_str());
  }
  ::rmdir(g_dir.c_str());
}

bool enterWorkDir() {
  char dir[] = "/tmp/oxcfg-carry-over-fuzz-XXXXXX";
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
  if (!OxBase::WriteFileAtomic("QAPIConfig.xml", kQapi).ok()) return 0;
  if (!OxBase::WriteFileAtomic("QAPIConfig_Backup.xml", text).ok()) return 0;
  OxConfigMgr::CQAPICfg qapi;
  qapi.copyBackupConfig();
  ::unlink("QAPIConfig_Backup.xml");
  return 0;
}
