// ASN.1 time conversion and the digit reader beneath it.
#include <openssl/asn1.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "security/cert_test_support.h"

namespace {

using OxConfigMgr::COpenSSLCertificate;

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

struct TimeCase {
  int type;
  std::string text;
  int64_t seconds;  // expected result
  int error;        // expected flag
};

class CertTimeTest : public oxtest::WorkDirTest {
 protected:
  int64_t convert(int type, const std::string& text, int* error) {
    ASN1_STRING* s = ASN1_STRING_type_new(type);
    ASN1_STRING_set(s, text.data(), static_cast<int>(text.size()));
    const int64_t t = cert_.transferASN1toTime(s, error);
    ASN1_STRING_free(s);
    return t;
  }
  COpenSSLCertificate cert_;
};

constexpr int kUtc = V_ASN1_UTCTIME;
constexpr int kGen = V_ASN1_GENERALIZEDTIME;

TEST_F(CertTimeTest, ConvertsUtcAndGeneralizedTimesAndRefusesMalformedOnes) {
  const TimeCase kCases[] = {
      {kUtc, "700101000000Z", 0, 0},
      {kUtc, "260301120000Z", 1772366400, 0},
      {kUtc, "2603011200Z", 1772366400, 0},  // seconds may be left out
      {kUtc, "491231235959Z", 2524607999, 0},  // 49 is 2049
      {kUtc, "490101000000Z", 2493072000, 0},
      {kUtc, "500101000000Z", -631152000, 0},  // 50 is 1950
      {kUtc, "991231235959Z", 946684799, 0},
      {kUtc, "260301120000+0100", 1772366400 - 3600, 0},
      {kUtc, "260301120000-0230", 1772366400 + 9000, 0},
      {kGen, "20260301120000Z", 1772366400, 0},
      {kGen, "20260301120000+0130", 1772366400 - 5400, 0},  // 90 minutes earlier
      {kGen, "20260301120000-1200", 1772366400 + 43200, 0},
      {kGen, "20260301120000.123Z", 1772366400, 0},
      {kGen, "20260301120000,5+0000", 1772366400, 0},
      {kGen, "202603011200Z", 1772366400, 0},
      {kGen, "20000229000000Z", 951782400, 0},   // leap year divisible by 400
      {kGen, "21000301000000Z", 4107542400, 0},  // 2100 is no leap year
      {kGen, "99991231235959Z", 253402300799, 0},
      {kGen, "19000101000000Z", -2208988800, 0},
      {kGen, "16000301000000Z", -11670912000, 0},
      {kGen, "19691231235959Z", -1, 0},
      {kGen, "20260301120000", 1772366400, 0},  // no zone: local time (UTC here)
      {kGen, "20260301120000.999", 1772366400, 0},
      // Refused: 0 with flag 1, or flag 2 for an instant before 1970.
      {kUtc, "", 0, 1},
      {kUtc, "26", 0, 1},
      {kUtc, "2603011200", 0, 1},  // a UTCTime needs a zone
      {kUtc, "261301120000Z", 0, 1},  // month 13
      {kUtc, "260001120000Z", 0, 1},  // month 0
      {kUtc, "260300120000Z", 0, 1},  // day 0
      {kUtc, "260332120000Z", 0, 1},  // day 32
      {kUtc, "260301240000Z", 0, 1},  // hour 24
      {kUtc, "260301126000Z", 0, 1},  // minute 60
      {kUtc, "260301120060Z", 0, 1},  // second 60
      {kUtc, "26030112000aZ", 0, 1},
      {kUtc, "2603011200005Z", 0, 1},
      {kUtc, "260301120000X", 0, 1},
      {kUtc, "260301120000ZZ", 0, 1},
      {kUtc, "260301120000+1300", 0, 1},  // more than 12 hours
      {kUtc, "260301120000+0160", 0, 1},
      {kUtc, "260301120000+01", 0, 1},
      {kUtc, "260301120000+01000", 0, 1},
      {kUtc, "260301120000.5Z", 0, 1},  // fractions only in GeneralizedTime
      {kGen, "2026030112000Z", 0, 1},
      {kGen, "20260301120000.Z", 1772366400, 0},  // an empty fraction is skipped
      {kGen, "+0260301120000Z", 0, 1},
      {kGen, " 20260301120000Z", 0, 1},
      {kGen, std::string("20260301\0" "20000Z", 15), 0, 1},  // embedded NUL
      {kGen, "19700101000000+0100", 0, 2},  // before 1970 from a year after it
      {kGen, "19691231235959-0100", 0, 2},  // from 1970 on, written as 1969
  };
  oxtest::ScopedTZ tz("UTC0");
  for (const TimeCase& c : kCases) {
    SCOPED_TRACE(c.text);
    int error = -1;
    EXPECT_EQ(convert(c.type, c.text, &error), c.seconds);
    EXPECT_EQ(error, c.error);
    // The result does not depend on the flag being asked for.
    EXPECT_EQ(convert(c.type, c.text, nullptr), c.seconds);
  }
  int error = -1;
  EXPECT_EQ(cert_.transferASN1toTime(nullptr, &error), 0);
  EXPECT_EQ(error, 1);
  error = -1;
  EXPECT_EQ(convert(V_ASN1_OCTET_STRING, "20260301120000Z", &error), 0);
  EXPECT_EQ(error, 1);
  error = -1;
  EXPECT_EQ(convert(V_ASN1_IA5STRING, "260301120000Z", &error), 0);
  EXPECT_EQ(error, 1);
}

// Every year of the GeneralizedTime range converts as the proleptic
// Gregorian calendar says, on both sides of 1970.
TEST_F(CertTimeTest, AgreesWithTheCalendarOverAllYears) {
  const unsigned kDates[][2] = {{1, 1}, {2, 28}, {2, 29}, {3, 1}, {12, 31}};
  for (int year = 0; year <= 9999; year += (year < 2200 ? 1 : 7)) {
    for (const auto& md : kDates) {
      const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
      if (md[0] == 2 && md[1] == 29 && !leap) continue;
      char text[32];
      std::snprintf(text, sizeof text, "%04d%02u%02u102030Z", year, md[0], md[1]);
      const int64_t expected = daysFromCivil(year, md[0], md[1]) * 86400 + 10 * 3600 + 20 * 60 + 30;
      int error = -1;
      const int64_t got = convert(kGen, text, &error);
      ASSERT_EQ(error, 0) << text;
      ASSERT_EQ(got, expected) << text;
    }
  }
}

TEST_F(CertTimeTest, LocalGeneralizedTimeFollowsTheZone) {
  oxtest::ScopedTZ tz("XYZ-2");
  int error = -1;
  EXPECT_EQ(convert(kGen, "20260301120000", &error), 1772366400 - 7200);
  EXPECT_EQ(error, 0);
  // With a zone the process's zone plays no part.
  EXPECT_EQ(convert(kGen, "20260301120000Z", &error), 1772366400);
}

TEST_F(CertTimeTest, DigitReader) {
  struct Case {
    const char* text;
    int digits, min, max;
    int value;
    int error;
    int advanced;  // characters consumed
  };
  const Case kCases[] = {
      {"123x", 3, 0, 999, 123, 0, 3},
      {"0042", 4, 0, 9999, 42, 0, 4},
      {"99", 2, 0, 59, 99, 1, 2},    // out of range: flagged, still returned
      {"00", 2, 1, 12, 0, 1, 2},
      {"1a3", 3, 0, 999, 0, 1, 1},   // stops on the non-digit
      {"", 2, 0, 99, 0, 1, 0},       // stops at the end
      {"12", 0, 0, 0, 0, 0, 0},
      {"99999999999999", 14, 0, 2147483647, 2147483647, 1, 14},  // saturates
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.text);
    const char* p = c.text;
    int error = 0;
    EXPECT_EQ(cert_.mypint(&p, c.digits, c.min, c.max, &error), c.value);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(p - c.text, c.advanced);
  }
  const char* const start = "12";
  const char* p = start;
  int error = 0;
  EXPECT_EQ(cert_.mypint(&p, -1, 0, 99, &error), -1);
  EXPECT_EQ(p, start);  // cursor untouched
  EXPECT_EQ(error, 0);
  EXPECT_EQ(cert_.mypint(&p, 2, 0, 99, nullptr), 12);
  EXPECT_EQ(cert_.mypint(nullptr, 2, 0, 99, &error), 0);
  EXPECT_EQ(error, 1);
}

}  // namespace
