// The appliance's clock and time zone.
//
// CTimeCfg keeps no state and writes no configuration file: it reads the
// clock and the zone from the operating system and applies a new local time
// by linking a zone file of the system's zone database over the system's
// local-time link and then setting the clock. Times travel as
// "YYYY-MM-DDThh:mm:ss" followed by "Z" or a numeric offset "+hh:mm" /
// "-hh:mm", e.g. "2024-05-01T08:30:00+08:00".
//
// No method takes a lock: callers serialise setLocalTime themselves (two
// concurrent calls each leave a complete link, the last one wins). No method
// throws; an internal failure gives the method's failure result.
#ifndef OXCONFIGMGR_OXTIMECFG_H
#define OXCONFIGMGR_OXTIMECFG_H

#include <oxconfigmgr/OxExport.h>

#include <string>

namespace OxConfigMgr {

// The clock and time zone of the appliance (see the top of this file).
class OXCFG_API CTimeCfg {
 public:
  CTimeCfg();
  ~CTimeCfg();
  CTimeCfg(const CTimeCfg&) = delete;
  CTimeCfg& operator=(const CTimeCfg&) = delete;

  // Nothing to load; returns 1.
  int start();

  // The current local time with the zone's offset, e.g.
  // "2024-05-01T08:30:00+08:00" ("+00:00" at UTC). While daylight saving time
  // is in force the offset is the zone's standard offset, not the summer
  // one. Empty when the zone cannot be found (logged).
  std::string getLocalTime();

  // Sets the zone from the offset of `localTime`, then the clock to that
  // local time read in the new zone. Results:
  //   0   done;
  //   1   `localTime` fails checkLocalTimeFormat (nothing is changed);
  //   274 no zone is known for the offset (see getZoneInfo; nothing changed);
  //   9   the zone link or the clock could not be set. The link is replaced
  //       atomically: when it fails the old zone stays; when only the clock
  //       fails the new zone stays in force.
  int setLocalTime(const std::string& localTime);

  // Always 9: a zone is set only together with the time, by setLocalTime.
  int setTimeZone(const std::string& zone);

  // The zone as a POSIX-style text "CST<sign><h>:<mm>:00" whose sign is the
  // inverse of the UTC offset: "CST-8:00:00" for UTC+08:00, "CST+3:30:00" for
  // UTC-03:30, "CST-0:00:00" at UTC. `dstActive` becomes 1 while daylight
  // saving time is in force (the text then gives the standard offset), else
  // 0. Where the system's time service cannot be asked, the C library's view
  // of the zone (the process's TZ honoured) answers instead. Empty on failure
  // (logged).
  std::string getTimeZone(int& dstActive);

  // True only for "YYYY-MM-DDThh:mm:ssZ" (20 characters) or
  // "YYYY-MM-DDThh:mm:ss+hh:mm" / "-hh:mm" (25 characters) with digits in
  // every number position, year 1970..2200, month 1..12, day 1..31 (not
  // compared with the month's length), hour 0..23, minute and second 0..59,
  // offset hours -12..14 and offset minutes 0..59, whose instant is not
  // before 1970-01-01T00:00:00Z. The sign of a zero offset hour is lost:
  // "-00:30" counts as half an hour east.
  bool checkLocalTimeFormat(const std::string& localTime);

  // The zone file for a UTC offset: "<zone database>/Etc/GMT-8" for +8:00,
  // "Etc/GMT+5" for -5:00, "Etc/GMT+0" for 0:00 (the Etc zones' signs are
  // inverted); with minutes only -3:30, 3:30, 4:30, 5:30, 5:45, 6:30 and
  // 9:30 are known (named zones). Empty for any other offset. Whole hours
  // are not range-checked here (setLocalTime accepts -12 to 14 only).
  std::string getZoneInfo(int offsetHour, int offsetMinute);
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXTIMECFG_H
