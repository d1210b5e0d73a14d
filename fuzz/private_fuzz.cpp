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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool inTempDir = [] {
    char tmpl[] = "/tmp/oxcfg-fuzz-XXXXXX";
    return mkdtemp(tmpl) && chdir(tmpl) == 0;
  }();
  if (!inTempDir) return 0;
  // The harness writes in place: durability is not under test here.
  FILE* f = std::fopen("PrivateConfig.xml", "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  OxConfigMgr::CPrivateCfg cfg;
  cfg.getWbAesDecryptKey();
  int create = 0;
  cfg.readAllParam(create);
  OxConfigMgr::tagEncryptInfo info;
  cfg.getEncryptParams(info);
  if (info.storageKey[32] != 0 || info.storageIV[16] != 0) __builtin_trap();
  return 0;
}
