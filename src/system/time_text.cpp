#include "system/time_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace OxConfigMgr {
namespace timetext {

namespace {

constexpr size_t kZuluLength = 20;    // "YYYY-MM-DDThh:mm:ssZ"
constexpr size_t kOffsetLength = 25;  // "YYYY-MM-DDThh:mm:ss+hh:mm"

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The decimal value of `count` digits at `pos`; false when one is not a digit.
bool readDigits(const std::string& s, size_t pos, size_t count, int* value) {
  if (pos + count > s.size()) return false;
  int v = 0;
  for (size_t i = pos; i < pos + count; ++i) {
    if (!isDigit(s[i])) return false;
    v = v * 10 + (s[i] - '0');
  }
  *value = v;
  return true;
}

struct ZoneRow {
  int hour;
  int minute;
  const char* name;
};

// The offsets with minutes that have a zone; every other one has none.
const ZoneRow kHalfHourZones[] = {
    {-3, 30, "Canada/Newfoundland"}, {3, 30, "Asia/Tehran"},    {4, 30, "Asia/Kabul"},
    {5, 30, "Asia/Kolkata"},         {5, 45, "Asia/Kathmandu"}, {6, 30, "Asia/Yangon"},
    {9, 30, "Australia/Adelaide"},
};

}  // namespace

bool parseLocalTime(const std::string& text, LocalTimeFields* out) {
  // Separators first, as the checks are ordered: the shape, then the form
  // chosen by the last character, then the numbers.
  if (text.size() < kZuluLength || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
      text[13] != ':' || text[16] != ':' ||
      (text[19] != 'Z' && text[19] != '+' && text[19] != '-')) {
    return false;
  }
  LocalTimeFields f;
  if (text.back() == 'Z') {
    if (text.size() != kZuluLength) return false;
  } else if (text.size() != kOffsetLength || (text[19] != '+' && text[19] != '-') ||
             text[22] != ':') {
    return false;
  }
  if (!readDigits(text, 0, 4, &f.year) || !readDigits(text, 5, 2, &f.month) ||
      !readDigits(text, 8, 2, &f.day) || !readDigits(text, 11, 2, &f.hour) ||
      !readDigits(text, 14, 2, &f.minute) || !readDigits(text, 17, 2, &f.second)) {
    return false;
  }
  if (text.size() == kOffsetLength) {
    int hours = 0;
    if (!readDigits(text, 20, 2, &hours) || !readDigits(text, 23, 2, &f.offsetMinute)) return false;
    f.offsetHour = text[19] == '-' ? -hours : hours;
  }
  *out = f;
  return true;
}

bool inRange(const LocalTimeFields& f) {
  return f.year >= 1970 && f.year <= 2200 && f.month >= 1 && f.month <= 12 && f.day >= 1 &&
         f.day <= 31 && f.hour >= 0 && f.hour <= 23 && f.minute >= 0 && f.minute <= 59 &&
         f.second >= 0 && f.second <= 59 && f.offsetHour >= -12 && f.offsetHour <= 14 &&
         f.offsetMinute >= 0 && f.offsetMinute <= 59;
}

int offsetSeconds(const LocalTimeFields& f) {
  const int seconds = f.offsetMinute * 60 + std::abs(f.offsetHour) * 3600;
  return f.offsetHour < 0 ? -seconds : seconds;
}

std::string zoneName(int offsetHour, int offsetMinute) {
  if (offsetMinute != 0) {
    for (const ZoneRow& row : kHalfHourZones) {
      if (row.hour == offsetHour && row.minute == offsetMinute) return row.name;
    }
    return std::string();
  }
  // The Etc zones count the other way round: Etc/GMT-8 is eight hours east.
  if (offsetHour < 0) return "Etc/GMT+" + std::to_string(-static_cast<long>(offsetHour));
  if (offsetHour > 0) return "Etc/GMT-" + std::to_string(offsetHour);
  return "Etc/GMT+0";
}

std::string numericOffset(int secondsEast) {
  const long magnitude = std::labs(static_cast<long>(secondsEast));
  char text[32];
  std::snprintf(text, sizeof text, "%c%02ld%02ld", secondsEast < 0 ? '-' : '+', magnitude / 3600,
                magnitude % 3600 / 60);
  return text;
}

bool zoneTextFromNumericOffset(const std::string& answer, std::string* zoneText) {
  int hours = 0, minutes = 0;
  if (answer.size() < 5 || (answer[0] != '+' && answer[0] != '-') ||
      !readDigits(answer, 1, 2, &hours) || !readDigits(answer, 3, 2, &minutes)) {
    return false;
  }
  char text[32];
  std::snprintf(text, sizeof text, "CST%s%d:%02d:00", answer[0] == '+' ? "-" : "+", hours, minutes);
  *zoneText = text;
  return true;
}

bool offsetSuffixFromZoneText(const std::string& zoneText, std::string* suffix) {
  // The hours carry the inverted sign: below 1 means east of UTC.
  int hours = 0, minutes = 0;
  if (std::sscanf(zoneText.c_str(), "CST%d:%02d:00", &hours, &minutes) != 2) return false;
  if (hours == 0 && minutes == 0) {
    *suffix = "+00:00";
    return true;
  }
  char text[40];
  std::snprintf(text, sizeof text, "%s%02d:%02d", hours < 1 ? "+" : "-", std::abs(hours), minutes);
  *suffix = text;
  return true;
}

bool dstActive(const std::string& status) {
  static const char kKey[] = "DST active:";
  const size_t at = status.find(kKey);
  if (at == std::string::npos) return false;
  const size_t from = at + sizeof kKey - 1;
  const size_t end = status.find('\n', from);
  return status.substr(from, end == std::string::npos ? std::string::npos : end - from).find("yes") !=
         std::string::npos;
}

std::string dstBeginLine(const std::string& status) {
  static const char kKey[] = "DST began at\n";
  const size_t at = status.find(kKey);
  if (at == std::string::npos) return std::string();
  const size_t from = at + sizeof kKey - 1;
  const size_t end = status.find('\n', from);
  return status.substr(from, end == std::string::npos ? std::string::npos : end - from);
}

bool dstProbeMoment(const std::string& line, std::string* moment) {
  const size_t dash = line.find('-');
  if (dash == std::string::npos || dash == 0) return false;
  const size_t first = line.rfind(' ', dash - 1);
  const size_t last = line.rfind(' ');
  if (first == std::string::npos || last == std::string::npos || last <= first) return false;
  const std::string text = line.substr(first + 1, last - first - 1);
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (std::sscanf(text.c_str(), "%04d-%02d-%02d %02d:%02d:%02d", &year, &month, &day, &hour, &minute,
                  &second) != 6) {
    return false;
  }
  // Back by one hour, but below 02:00 by a whole day at the same hour: the
  // moment must lie before the change, and a day back always does.
  if (hour >= 2) {
    --hour;
  } else {
    if (day < 2) return false;
    --day;
  }
  char out[96];
  std::snprintf(out, sizeof out, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
  *moment = out;
  return true;
}

}  // namespace timetext
}  // namespace OxConfigMgr
