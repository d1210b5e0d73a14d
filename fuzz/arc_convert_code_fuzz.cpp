// Feeds arbitrary bytes as "ConvertCodeConfig.xml" (and, after a
// "<!--backup-->" separator, as the upgrade's backup) to the event code
// loader, then converts, lists and rewrites both tables: texts must stay
// within their fields and pages within the tables.
#include <oxconfigmgr/OxConvertCodeCfg.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fuzz_workdir.h"

namespace {

void checkRow(const OxConfigMgr::tagConvertSGInfo& row) {
  if (!std::memchr(row.cid, 0, sizeof row.cid) || !std::memchr(row.sia, 0, sizeof row.sia) ||
      !std::memchr(row.eventDesc, 0, sizeof row.eventDesc) ||
      !std::memchr(row.eventDescCN, 0, sizeof row.eventDescCN) || (row.enabled != 0 && row.enabled != 1)) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace OxConfigMgr;
  oxfuzz::enterWorkDir("convert-code");
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t sep = input.find("<!--backup-->");
  oxfuzz::putFile("ConvertCodeConfig.xml", input.substr(0, sep));
  ::unlink("ConvertCodeConfig_Backup.xml");
  if (sep != std::string::npos) oxfuzz::putFile("ConvertCodeConfig_Backup.xml", input.substr(sep + 13));

  CConvertCodeCfg codes;
  codes.loadFile();
  for (ProtocolType type : {PROTOCOL_TYPE_SG, PROTOCOL_TYPE_POLL}) {
    std::map<std::string, tagConvertSGInfo> table;
    codes.getSGEventCodeMap(type, table);
    for (const auto& row : table) {
      checkRow(row.second);
      std::string out;
      for (int format = 0; format <= 4; ++format) {
        codes.convertCode(static_cast<EventFormat>(format), row.first, out);
      }
    }
    tagEventCodeQueryReq req;
    req.position = static_cast<int32_t>(table.size() / 2);
    req.maxResults = 3;
    req.isPollEvent = type == PROTOCOL_TYPE_POLL;
    std::vector<tagEventCode> list;
    int count = 0, total = 0;
    if (codes.getSGEventCodeList(list, count, total, &req) != 0 || total != static_cast<int>(table.size()) ||
        count < 0 || count > 3 || list.size() != static_cast<size_t>(count)) {
      __builtin_trap();
    }
    for (const auto& row : list) {
      if (!std::memchr(row.code, 0, sizeof row.code)) __builtin_trap();
    }
    const int rc = codes.updateSGEventCode(type, table);
    if (rc != 0 && rc != 9) __builtin_trap();
  }
  std::string out;
  codes.convertCode(EVENT_FORMAT_CID, input.substr(0, 64), out);
  codes.convertCode(EVENT_FORMAT_POLL_CID, input.substr(0, 64), out);
  return 0;
}
