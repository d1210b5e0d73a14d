// ASN.1 times (UTCTime "YYMMDDhhmm[ss](Z|±hhmm)" and GeneralizedTime
// "YYYYMMDDhhmm[ss][.fff][Z|±hhmm]") to seconds since 1970, with calendar
// arithmetic of their own so that any year from 0 to 9999 converts the same
// way on every platform.
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <openssl/asn1.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

namespace OxConfigMgr {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kSecondsPerCommonYear = 365 * kSecondsPerDay;

// Days of the year before the first of each month; [1] for leap years.
const int kDaysBeforeMonth[2][12] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335},
};

bool isLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

int COpenSSLCertificate::mypint(const char** cursor, int digits, int min, int max, int* error) {
  int internal = 0;
  int& err = error ? *error : internal;
  if (digits < 0) return -1;
  if (!cursor || !*cursor) {
    err = 1;
    return 0;
  }
  int value = 0;
  bool saturated = false;
  for (int i = 0; i < digits; ++i) {
    const char c = **cursor;
    if (!isDigit(c)) {
      err = 1;
      return 0;
    }
    // Saturates instead of overflowing, and counts as out of range.
    if (value > (INT_MAX - 9) / 10) {
      value = INT_MAX;
      saturated = true;
    } else {
      value = value * 10 + (c - '0');
    }
    ++*cursor;
  }
  if (saturated || value < min || value > max) err = 1;
  return value;
}

time_t COpenSSLCertificate::transferASN1toTime(asn1_string_st* time, int* error) try {
  int internal = 0;
  int& err = error ? *error : internal;
  err = 0;
  if (!time) {
    err = 1;
    return 0;
  }
  const int type = ASN1_STRING_type(time);
  const unsigned char* data = ASN1_STRING_get0_data(time);
  const int length = ASN1_STRING_length(time);
  if ((type != V_ASN1_UTCTIME && type != V_ASN1_GENERALIZEDTIME) || !data || length < 0 ||
      std::memchr(data, 0, static_cast<size_t>(length)) != nullptr) {
    err = 1;
    return 0;
  }
  // A terminated copy: the digit reader stops at its end.
  const std::string text(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
  const char* p = text.c_str();
  const char* const end = p + text.size();
  const bool generalized = type == V_ASN1_GENERALIZEDTIME;

  int year = generalized ? mypint(&p, 4, 0, 9999, &err) : mypint(&p, 2, 0, 99, &err);
  if (!generalized) year += year < 50 ? 2000 : 1900;
  const int month = mypint(&p, 2, 1, 12, &err);
  const int day = mypint(&p, 2, 1, 31, &err);
  const int hour = mypint(&p, 2, 0, 23, &err);
  const int minute = mypint(&p, 2, 0, 59, &err);
  const int second = isDigit(*p) ? mypint(&p, 2, 0, 59, &err) : 0;
  if (err) return 0;

  if (generalized) {
    if (*p == '.' || *p == ',') {
      ++p;
      while (isDigit(*p)) ++p;
    }
    if (p == end) {
      // No zone: the time is local.
      std::tm local{};
      local.tm_year = year - 1900;
      local.tm_mon = month - 1;
      local.tm_mday = day;
      local.tm_hour = hour;
      local.tm_min = minute;
      local.tm_sec = second;
      local.tm_isdst = -1;
      const time_t t = std::mktime(&local);
      if (t == static_cast<time_t>(-1)) {
        err = 2;
        return 0;
      }
      return t;
    }
  }

  int offsetMinutes = 0;
  if (*p == 'Z') {
    ++p;
  } else if (*p == '+' || *p == '-') {
    const bool west = *p == '-';
    ++p;
    const int offsetHours = mypint(&p, 2, 0, 12, &err);
    const int offsetMins = mypint(&p, 2, 0, 59, &err);
    if (err) return 0;
    offsetMinutes = offsetHours * 60 + offsetMins;
    if (west) offsetMinutes = -offsetMinutes;
  } else {
    err = 1;
    return 0;
  }
  if (p != end) {
    err = 1;
    return 0;
  }

  int64_t t = second + static_cast<int64_t>(minute - offsetMinutes) * 60 + static_cast<int64_t>(hour) * 3600 +
              static_cast<int64_t>(day - 1) * kSecondsPerDay +
              kSecondsPerDay * kDaysBeforeMonth[isLeap(year) ? 1 : 0][month - 1] +
              static_cast<int64_t>(year - 1970) * kSecondsPerCommonYear;
  if (year >= 1970) {
    // Leap days of the years 1970 .. year-1, less the centuries that are
    // not leap years.
    t += kSecondsPerDay * ((year - 1969) / 4);
    for (int century = 2100; century < year; century += 100) {
      if (century % 400 != 0) t -= kSecondsPerDay;
    }
    if (t < 0) {
      err = 2;
      return 0;
    }
  } else {
    // Leap days of the years year .. 1969, less the centuries among them
    // that are not leap years.
    t -= kSecondsPerDay * ((1972 - year) / 4);
    for (int century = 1900; century >= year; century -= 100) {
      if (century % 400 != 0) t += kSecondsPerDay;
    }
    if (t >= 0) {
      err = 2;
      return 0;
    }
  }
  return static_cast<time_t>(t);
} catch (...) {
  if (error) *error = 1;
  return 0;
}

}  // namespace OxConfigMgr
