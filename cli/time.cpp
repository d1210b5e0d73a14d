// oxcfg: the clock and the time zone.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

bool fillTime(Rows& rows) {
  auto time = OX_ConfigMgr_GetTimeCfg();
  if (!time) return false;
  const std::string local = time->getLocalTime();
  int dstActive = 0;
  const std::string zone = time->getTimeZone(dstActive);
  rows.emplace_back("local time", local.empty() ? "unknown" : local);
  rows.emplace_back("zone", zone.empty() ? "unknown" : zone);
  rows.emplace_back("daylight saving", zone.empty() ? "unknown" : dstActive ? "in force" : "not in force");
  return true;
}

RegisterShow g_time({"time", "Time", fillTime});

RegisterCommand g_timeShow({"time show", "", "show the local time with its offset, the zone and daylight saving",
                            [](const std::vector<std::string>& args) {
                              if (!args.empty()) {
                                std::fprintf(stderr, "oxcfg: time show takes no arguments\n");
                                return 2;
                              }
                              Rows rows;
                              if (!fillTime(rows)) {
                                std::fprintf(stderr, "oxcfg: the time object is not started\n");
                                return 1;
                              }
                              if (jsonOutput()) {
                                printRows("", rows);
                                return 0;
                              }
                              for (const auto& r : rows) {
                                std::printf("%-15s  %s\n", r.first.c_str(), r.second.c_str());
                              }
                              return 0;
                            }});

const char* setMeaning(int rc) {
  switch (rc) {
    case 1:
      return "not a time of the form YYYY-MM-DDThh:mm:ssZ or YYYY-MM-DDThh:mm:ss+hh:mm "
             "(years 1970 to 2200, offsets -12:00 to +14:00)";
    case 274:
      return "no time zone is known for this offset";
    case 9:
      return "the time zone or the clock could not be set";
    default:
      return "";
  }
}

RegisterCommand g_timeSet({"time set", "TEXT",
                           "set the time zone from TEXT's offset and the clock to TEXT, "
                           "e.g. 2024-05-01T08:30:00+08:00",
                           [](const std::vector<std::string>& args) {
                             if (args.size() != 1) {
                               std::fprintf(stderr, "oxcfg: time set takes one TEXT\n");
                               return 2;
                             }
                             auto time = OX_ConfigMgr_GetTimeCfg();
                             if (!time) {
                               std::fprintf(stderr, "oxcfg: the time object is not started\n");
                               return 1;
                             }
                             const int rc = time->setLocalTime(args[0]);
                             return reportResult("time set", rc, setMeaning(rc));
                           }});

}  // namespace
}  // namespace oxcfg
