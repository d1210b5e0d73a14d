// Feeds arbitrary bytes as an upgrade's "QAPIConfig_Backup.xml" and
// "Config_Backup.xml" to the carry-overs that merge them into the factory
// files, in a private working directory.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_workdir.h"

namespace {

const char kQapi[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Config><QAPIConfig><Enable>1</Enable><Mode>all</Mode>"
    "</QAPIConfig></Config>\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("carry-over");
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!oxfuzz::putFile("QAPIConfig.xml", kQapi, sizeof kQapi - 1)) return 0;
  if (!oxfuzz::putFile("QAPIConfig_Backup.xml", text)) return 0;
  OxConfigMgr::CQAPICfg qapi;
  qapi.copyBackupConfig();
  ::unlink("QAPIConfig_Backup.xml");
  return 0;
}
