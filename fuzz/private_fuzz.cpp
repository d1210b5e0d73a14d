// Feeds arbitrary bytes as "PrivateConfig.xml" to the private configuration's
// reader: malformed storage parameters (lengths, non-hexadecimal text) must
// never overrun the key fields.
#include <oxconfigmgr/OxPrivateCfg.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include <cstdio>

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("private");
  if (!oxfuzz::putFile("PrivateConfig.xml", data, size)) return 0;
  OxConfigMgr::CPrivateCfg cfg;
  cfg.getWbAesDecryptKey();
  int create = 0;
  cfg.readAllParam(create);
  OxConfigMgr::tagEncryptInfo info;
  cfg.getEncryptParams(info);
  if (info.storageKey[32] != 0 || info.storageIV[16] != 0) __builtin_trap();
  return 0;
}
