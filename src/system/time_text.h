// The texts of time and zone handling: the local-time text a caller gives,
// the zone text of the time getters, the offset answers of the system's date
// command and the status text of its time service. Pure functions, no I/O.
#ifndef OXCFG_SYSTEM_TIME_TEXT_H
#define OXCFG_SYSTEM_TIME_TEXT_H

#include <string>

namespace OxConfigMgr {
namespace timetext {

// The fields of a local-time text. A "Z" text has offset 0:00.
struct LocalTimeFields {
  int year = 0;
  int month = 0;   // 1..12
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int offsetHour = 0;    // signed; "-00:30" reads as 0
  int offsetMinute = 0;  // 0..59, unsigned
};

// Reads "YYYY-MM-DDThh:mm:ssZ" or "YYYY-MM-DDThh:mm:ss+hh:mm" / "-hh:mm":
// exact length (20 or 25), separators in place, a decimal digit in every
// number position. The ranges are not checked here.
bool parseLocalTime(const std::string& text, LocalTimeFields* out);

// Whether the fields are within the accepted ranges (year 1970..2200, month,
// day 1..31, time of day, offset hours -12..14, offset minutes 0..59).
bool inRange(const LocalTimeFields& f);

// The offset in seconds east of UTC: minutes plus absolute hours, negated
// only when the hours are negative, so a zero hour's sign is lost.
int offsetSeconds(const LocalTimeFields& f);

// The zone name (below the zone database root) for an offset, or empty.
std::string zoneName(int offsetHour, int offsetMinute);

// "+hhmm" / "-hhmm" for an offset in seconds east of UTC, as the date
// command prints it ("+0000" at zero).
std::string numericOffset(int secondsEast);

// The zone text "CST<inverted sign><h>:<mm>:00" from a "+hhmm"/"-hhmm"
// answer (anything after the five characters is ignored). False when the
// answer does not begin with a sign and four digits.
bool zoneTextFromNumericOffset(const std::string& answer, std::string* zoneText);

// The offset suffix of getLocalTime from a zone text: "+00:00" when hours
// and minutes are 0, else "+hh:mm" when the text's hours are below 1 and
// "-hh:mm" otherwise. False when the text is not a zone text.
bool offsetSuffixFromZoneText(const std::string& zoneText, std::string* suffix);

// Whether the text after "DST active:" up to the line feed says "yes".
bool dstActive(const std::string& status);

// The line after "DST began at\n" (up to its line feed; empty when absent).
std::string dstBeginLine(const std::string& status);

// The moment at which the standard offset is asked, from the line of the
// last change: the text between the last blank before the first "-" and the
// line's last blank, read as "YYYY-MM-DD hh:mm:ss", then moved back: an hour
// when the hour is 2 or more, otherwise a whole day (the hour kept). False
// when a blank is missing, the text is not a time, or a day before the 2nd
// would have to move back (no wrap into the previous month). The moment is
// formatted "YYYY-MM-DD hh:mm:ss".
bool dstProbeMoment(const std::string& line, std::string* moment);

}  // namespace timetext
}  // namespace OxConfigMgr

#endif  // OXCFG_SYSTEM_TIME_TEXT_H
