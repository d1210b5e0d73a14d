// Feeds arbitrary bytes as "ARCConfig.xml" (and, after a "<!--backup-->"
// separator, as the upgrade's "ARCConfig_Backup.xml") to the alarm-receiving-
// centre loader, then writes the record back: texts must stay within their
// fields, and a write either replaces the file whole or leaves it.
#include <oxconfigmgr/OxARCCfg.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzz_workdir.h"

namespace {

template <size_t N>
void checkText(const char (&field)[N]) {
  if (std::memchr(field, 0, N) == nullptr) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("arc-cfg");
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t sep = input.find("<!--backup-->");
  oxfuzz::putFile("ARCConfig.xml", input.substr(0, sep));
  ::unlink("ARCConfig_Backup.xml");
  if (sep != std::string::npos) oxfuzz::putFile("ARCConfig_Backup.xml", input.substr(sep + 13));

  OxConfigMgr::CARCCfg arc;
  arc.loadFile();
  OxConfigMgr::tagArcCnf c;
  arc.getARCParam(c);
  checkText(c.type);
  checkText(c.sg.portType);
  checkText(c.sg.outputType);
  checkText(c.sg.platformIP);
  checkText(c.sg.receiverType);
  checkText(c.sg.parityType);
  checkText(c.sg.stopBits);
  checkText(c.sg.rr);
  checkText(c.sg.lll);
  checkText(c.a685.parityType);
  checkText(c.a685.stopBits);
  checkText(c.a685.r);
  checkText(c.a685.l);
  checkText(c.manitou.ip);
  checkText(c.manitou.line);
  checkText(c.manitou.signalID);
  checkText(c.manitou.eventType);
  checkText(c.manitou.eventID);
  checkText(c.sbn.ip);

  const int rc = arc.setARCParam(c);
  if (rc != 0 && rc != 9) __builtin_trap();
  // Whatever was written loads again.
  OxConfigMgr::CARCCfg again;
  again.loadFile();
  return 0;
}
