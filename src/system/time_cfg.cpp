#include <oxconfigmgr/OxTimeCfg.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/env.h"
#include "platform/file_util.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"
#include "system/time_text.h"

// Logs as the named public method, whatever helper does the work.
#define TIMELOG(method, level, fmt, ...) \
  xlog_format((level), "OXW", (fmt), (method), __LINE__, ##__VA_ARGS__)

namespace OxConfigMgr {

namespace {

using OxBase::Env;

std::atomic<uint32_t> g_linkCounter{0};

// The zone text from the C library, for systems whose time service cannot
// be asked: the standard offset in force now, formed as from the date
// command's answer, and the daylight-saving state.
std::string zoneTextFromCLibrary(int& dstActive) {
  int offsetEast = 0, isDst = 0;
  const int64_t now = OSL_TimeNow() / 1000000;
  std::string zoneText;
  if (Env::Current()->LocalZone(now, &offsetEast, &isDst) != 0 ||
      !timetext::zoneTextFromNumericOffset(timetext::numericOffset(offsetEast), &zoneText)) {
    TIMELOG("getTimeZone", 5, "[%s(%d)] get time zone failed.");
    return std::string();
  }
  dstActive = isDst;
  return zoneText;
}

// Makes the local-time link point at `zoneFile`: a new link is made beside
// it under a temporary name and renamed over it, so the link is at every
// moment either the old one or the new one. Only an existing zone file is
// linked: a dangling link would silently put the machine at UTC.
bool linkZone(const std::string& zoneFile) {
  Env* env = Env::Current();
  if (OSL_AccessFile(zoneFile.c_str(), 0) != 0) return false;
  const std::string linkPath = env->LocalTimePath();
  const size_t slash = linkPath.find_last_of('/');
  const std::string dir = slash == std::string::npos ? std::string() : linkPath.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? linkPath : linkPath.substr(slash + 1);
  char unique[32];
  std::snprintf(unique, sizeof unique, "%08x.%u", env->Random32(),
                g_linkCounter.fetch_add(1, std::memory_order_relaxed));
  const std::string temp = dir + "." + base + ".link." + unique;
  if (env->Symlink(zoneFile, temp) != 0) return false;
  if (env->Rename(temp, linkPath) != 0) {
    const int saved = errno;
    env->Unlink(temp);
    errno = saved;
    return false;
  }
  // The new zone is in force; only its durability across a power loss is
  // in doubt, which does not make the change a failure.
  if (env->SyncDir(OxBase::DirName(linkPath)) != 0) {
    TIMELOG("setLocalTime", 4, "[%s(%d)] [link=%s,errno=%d]zone link not synced.", linkPath.c_str(),
            errno);
  }
  return true;
}

std::string timeZoneText(int& dstActive) {
  const std::vector<std::string> status = {"timedatectl"};
  std::string output;
  if (OX_BASE_System(status, &output) != 0) {
    TIMELOG("getTimeZone", 5, "[%s(%d)] [cmd=%s]system failed.", status[0].c_str());
    return zoneTextFromCLibrary(dstActive);
  }
  dstActive = timetext::dstActive(output) ? 1 : 0;

  std::vector<std::string> offsetCommand = {"date", "+%z"};
  if (dstActive) {
    // The standard offset is the one in force just before the last change.
    const std::string line = timetext::dstBeginLine(output);
    std::string moment;
    if (!timetext::dstProbeMoment(line, &moment)) {
      TIMELOG("getTimeZone", 5, "[%s(%d)] time=%s,dstActive=%d]get dst begin time failed.", line.c_str(),
              dstActive);
      return std::string();
    }
    offsetCommand = {"date", "--date=" + moment, "+%z"};
  }
  std::string answer, zoneText;
  if (OX_BASE_System(offsetCommand, &answer) != 0 ||
      !timetext::zoneTextFromNumericOffset(answer, &zoneText)) {
    TIMELOG("getTimeZone", 5, "[%s(%d)] get time zone failed.");
    return std::string();
  }
  return zoneText;
}

std::string localTimeText(CTimeCfg& cfg) {
  OSL_ExpTime now{};
  if (OSL_ExpTimeFromTimeLocal(OSL_TimeNow(), &now) != 0) return std::string();
  int dstActive = 0;
  const std::string zoneText = cfg.getTimeZone(dstActive);
  std::string suffix;
  if (zoneText.empty() || !timetext::offsetSuffixFromZoneText(zoneText, &suffix)) {
    TIMELOG("getLocalTime", 5, "[%s(%d)] getTimeZone err");
    return std::string();
  }
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", now.tm_year + 1900, now.tm_mon + 1,
                now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
  return text + suffix;
}

int applyLocalTime(CTimeCfg& cfg, const std::string& localTime) {
  timetext::LocalTimeFields f;
  if (!cfg.checkLocalTimeFormat(localTime) || !timetext::parseLocalTime(localTime, &f)) {
    TIMELOG("setLocalTime", 5, "[%s(%d)] [localTime=%s]checkLocalTimeFormat fail.", localTime.c_str());
    return 1;
  }
  const std::string zoneFile = cfg.getZoneInfo(f.offsetHour, f.offsetMinute);
  if (zoneFile.empty()) {
    TIMELOG("setLocalTime", 5, "[%s(%d)] [iGmtOffHour=%d, iGmtoffMin=%d]getZoneInfo fail.", f.offsetHour,
            f.offsetMinute);
    return 274;
  }
  if (!linkZone(zoneFile)) {
    TIMELOG("setLocalTime", 5, "[%s(%d)] [zoneInfo=%s]set timezone fail.", zoneFile.c_str());
    return 9;
  }
  // The wall-clock time is read in the zone just put in force; the zone
  // stays changed when the clock cannot be set.
  Env* env = Env::Current();
  int64_t timestamp = 0;
  if (env->MakeLocalTime(f.year, f.month, f.day, f.hour, f.minute, f.second, &timestamp) != 0 ||
      env->SetSystemTime(timestamp) != 0) {
    TIMELOG("setLocalTime", 5, "[%s(%d)] set Time fail.");
    return 9;
  }
  TIMELOG("setLocalTime", 3, "[%s(%d)] [iGmtOffHour=%d, iGmtoffMin=%d,timestamp=%d]set local success.",
          f.offsetHour, f.offsetMinute, static_cast<int>(timestamp));
  return 0;
}

}  // namespace

CTimeCfg::CTimeCfg() = default;
CTimeCfg::~CTimeCfg() = default;

int CTimeCfg::start() { return 1; }

std::string CTimeCfg::getLocalTime() {
  try {
    return localTimeText(*this);
  } catch (...) {
    return std::string();
  }
}

int CTimeCfg::setLocalTime(const std::string& localTime) {
  try {
    return applyLocalTime(*this, localTime);
  } catch (...) {
    return 9;
  }
}

int CTimeCfg::setTimeZone(const std::string&) { return 9; }

std::string CTimeCfg::getTimeZone(int& dstActive) {
  try {
    return timeZoneText(dstActive);
  } catch (...) {
    return std::string();
  }
}

bool CTimeCfg::checkLocalTimeFormat(const std::string& localTime) {
  try {
    timetext::LocalTimeFields f;
    if (!timetext::parseLocalTime(localTime, &f) || !timetext::inRange(f)) return false;
    OSL_ExpTime t{};
    t.tm_year = f.year - 1900;
    t.tm_mon = f.month - 1;
    t.tm_mday = f.day;
    t.tm_hour = f.hour;
    t.tm_min = f.minute;
    t.tm_sec = f.second;
    t.tm_gmtoff = timetext::offsetSeconds(f);
    OSL_Time instant = 0;
    return OSL_TimeFromExpTimeGMT(&t, &instant) == 0 && instant >= 0;
  } catch (...) {
    return false;
  }
}

std::string CTimeCfg::getZoneInfo(int offsetHour, int offsetMinute) {
  try {
    const std::string name = timetext::zoneName(offsetHour, offsetMinute);
    return name.empty() ? name : Env::Current()->ZoneInfoRoot() + name;
  } catch (...) {
    return std::string();
  }
}

}  // namespace OxConfigMgr
