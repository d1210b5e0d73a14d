// Reading the zone and the local time: from the time service and the date
// command (scripted answers for every branch), from the C library where the
// time service cannot be asked, and on this machine as it is. Also the time
// object in the start sequence and the oxcfg time commands.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "system/time_support.h"

using OxConfigMgr::CTimeCfg;

namespace {

using TimeZoneTest = oxtest::TimeTest;

// A status text of the time service, with or without daylight saving.
std::string status(const std::string& dst, const std::string& lastChange = "") {
  return "      Local time: Sun 2024-04-07 10:00:00 CEST\n"
         "  Universal time: Sun 2024-04-07 08:00:00 UTC\n"
         "        Timezone: Europe/Berlin (CEST, +0200)\n"
         "     NTP enabled: yes\n" +
         (dst.empty() ? std::string() : "      DST active: " + dst + "\n") +
         (lastChange.empty() ? std::string()
                             : " Last DST change: DST began at\n" + lastChange + "\n" +
                                   "                  Sun 2024-03-31 03:00:00 CEST\n");
}

TEST_F(TimeZoneTest, ZoneTextFromTheDateCommandsOffset) {
  struct Case {
    const char* answer;
    const char* zone;
  };
  const Case cases[] = {
      {"+0800\n", "CST-8:00:00"}, {"+0000\n", "CST-0:00:00"}, {"-0000\n", "CST+0:00:00"},
      {"+0530\n", "CST-5:30:00"}, {"+0545", "CST-5:45:00"},   {"-0330\n", "CST+3:30:00"},
      {"-1000\n", "CST+10:00:00"}, {"+1400\n", "CST-14:00:00"},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    env_->answer("timedatectl", 0, status("no"));
    env_->answer("date +%z", 0, c.answer);
    int dst = 7;
    EXPECT_EQ(cfg.getTimeZone(dst), c.zone) << c.answer;
    EXPECT_EQ(dst, 0);
  }
  // Without a daylight-saving line, or one that does not say yes on its own
  // line, daylight saving is not in force.
  for (const std::string& text : {status(""), status("no\nNTP synchronized: yes"), status("n/a")}) {
    env_->answer("timedatectl", 0, text);
    env_->answer("date +%z", 0, "+0100\n");
    int dst = 7;
    EXPECT_EQ(cfg.getTimeZone(dst), "CST-1:00:00");
    EXPECT_EQ(dst, 0);
  }
  for (const auto& c : env_->commands()) EXPECT_TRUE(c == "timedatectl" || c == "date +%z") << c;
}

TEST_F(TimeZoneTest, WithDaylightSavingTheStandardOffsetIsAskedBeforeTheLastChange) {
  struct Case {
    const char* line;
    const char* asked;  // the moment given to the date command
  };
  const Case cases[] = {
      // Below 02:00 the moment moves back a whole day, the hour kept.
      {"                  Sun 2024-03-31 01:59:59 CET", "2024-03-30 01:59:59"},
      {"                  Sun 2024-03-10 00:30:00 EST", "2024-03-09 00:30:00"},
      {"                  Sun 2024-03-10 01:59:59 EST", "2024-03-09 01:59:59"},
      // From 02:00 on, one hour back.
      {"                  Sun 2024-03-10 02:59:59 EST", "2024-03-10 01:59:59"},
      {"                  Sun 2024-10-01 23:00:00 NZST", "2024-10-01 22:00:00"},
      {"Sun 2024-04-01 02:00:00 X", "2024-04-01 01:00:00"},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    env_->answer("timedatectl", 0, status("yes", c.line));
    env_->answer(std::string("date --date=") + c.asked + " +%z", 0, "+0100\n");
    int dst = 0;
    EXPECT_EQ(cfg.getTimeZone(dst), "CST-1:00:00") << c.line;
    EXPECT_EQ(dst, 1);
    EXPECT_EQ(env_->commands().back(), std::string("date --date=") + c.asked + " +%z");
  }
}

TEST_F(TimeZoneTest, ALastChangeThatCannotBeMovedBackGivesNoZone) {
  const char* lines[] = {
      "                  Mon 2024-04-01 01:59:59 XYZ",  // the 1st: no wrap into March
      "                  Mon 2024-04-01 00:00:00 XYZ",
      "2024-03-31T01:59:59",                            // no blank at all
      "                  Sun 2024-03-31",               // no blank after the date
      "                  yesterday at noon",            // no "-"
      "                  Sun 2024-03-31 soon CET",      // not a time
      "",                                               // no line at all
  };
  CTimeCfg cfg;
  for (const char* line : lines) {
    env_->answer("timedatectl", 0, *line ? status("yes", line) : status("yes"));
    oxtest::LogCapture log;
    int dst = 0;
    EXPECT_EQ(cfg.getTimeZone(dst), "") << line;
    EXPECT_TRUE(log.has(5, std::string("time=") + line + ",dstActive=1]get dst begin time failed."))
        << line;
  }
  for (const auto& c : env_->commands()) EXPECT_EQ(c, "timedatectl");
}

TEST_F(TimeZoneTest, AFailingOrGarbledDateCommandGivesNoZone) {
  CTimeCfg cfg;
  const std::pair<int, const char*> answers[] = {
      {1, "date: invalid date\n"}, {-1, ""}, {0, ""}, {0, "0800\n"}, {0, "+08\n"}, {0, "+08:00\n"},
      {0, "CET\n"},
  };
  for (const auto& a : answers) {
    env_->answer("timedatectl", 0, status("no"));
    env_->answer("date +%z", a.first, a.second);
    oxtest::LogCapture log;
    int dst = 0;
    EXPECT_EQ(cfg.getTimeZone(dst), "") << a.second;
    EXPECT_TRUE(log.has(5, "get time zone failed.")) << a.second;
    EXPECT_EQ(cfg.getLocalTime(), "") << a.second;
    EXPECT_TRUE(log.has(5, "getTimeZone err")) << a.second;
  }
}

TEST_F(TimeZoneTest, LocalTimeCarriesTheZonesOffset) {
  oxtest::ScopedTZ tz("UTC");
  env_->setNow(oxtest::utcSeconds(2024, 5, 1, 8, 30, 0));
  struct Case {
    const char* answer;
    const char* suffix;
  };
  const Case cases[] = {
      {"+0530", "+05:30"}, {"+0000", "+00:00"}, {"-0000", "+00:00"}, {"-0330", "-03:30"},
      {"+0800", "+08:00"}, {"-1200", "-12:00"}, {"+0045", "+00:45"},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    env_->answer("timedatectl", 0, status("no"));
    env_->answer("date +%z", 0, c.answer);
    const std::string local = cfg.getLocalTime();
    EXPECT_EQ(local, std::string("2024-05-01T08:30:00") + c.suffix);
    EXPECT_TRUE(cfg.checkLocalTimeFormat(local)) << local;
  }
}

// Where the time service cannot be asked, the C library answers, the
// process's TZ honoured.
TEST_F(TimeZoneTest, WithoutTheTimeServiceTheCLibraryGivesTheZone) {
  struct Case {
    const char* tz;
    int64_t now;
    const char* zone;
    int dst;
    const char* local;
  };
  using oxtest::utcSeconds;
  const int64_t may = utcSeconds(2024, 5, 1, 3, 0, 0), january = utcSeconds(2024, 1, 15, 12, 0, 0);
  const Case cases[] = {
      {"UTC", may, "CST-0:00:00", 0, "2024-05-01T03:00:00+00:00"},
      {"IST-5:30", may, "CST-5:30:00", 0, "2024-05-01T08:30:00+05:30"},
      {"<-0330>3:30", january, "CST+3:30:00", 0, "2024-01-15T08:30:00-03:30"},
      {"<+0545>-5:45", may, "CST-5:45:00", 0, "2024-05-01T08:45:00+05:45"},
      // In summer the standard offset, and daylight saving in force.
      {"CET-1CEST,M3.5.0,M10.5.0/3", may, "CST-1:00:00", 1, "2024-05-01T05:00:00+01:00"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", january, "CST-1:00:00", 0, "2024-01-15T13:00:00+01:00"},
      {"NST3:30NDT,M3.2.0,M11.1.0", may, "CST+3:30:00", 1, "2024-05-01T00:30:00-03:30"},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    oxtest::ScopedTZ tz(c.tz);
    env_->setNow(c.now);
    env_->answer("timedatectl", 1, "System has not been booted with systemd as init system (PID 1).\n");
    oxtest::LogCapture log;
    int dst = 7;
    EXPECT_EQ(cfg.getTimeZone(dst), c.zone) << c.tz;
    EXPECT_EQ(dst, c.dst) << c.tz;
    EXPECT_TRUE(log.has(5, "[cmd=timedatectl]system failed.")) << c.tz;
    EXPECT_EQ(cfg.getLocalTime(), c.local) << c.tz;
  }
  // The same with a time service that cannot even be started.
  oxtest::ScopedTZ tz("IST-5:30");
  env_->answer("timedatectl", -1, "");
  int dst = 7;
  EXPECT_EQ(cfg.getTimeZone(dst), "CST-5:30:00");
  EXPECT_EQ(dst, 0);
  for (const auto& c : env_->commands()) EXPECT_EQ(c, "timedatectl");
}

TEST_F(TimeZoneTest, TheCLibraryReadsNamedZonesFromTheZoneDatabase) {
  if (!oxtest::fileExists("/usr/share/zoneinfo/Asia/Kolkata")) GTEST_SKIP() << "no zone database";
  env_->answer("timedatectl", 1, "");
  env_->setNow(oxtest::utcSeconds(2024, 7, 1, 8, 30, 0));
  const std::pair<const char*, const char*> cases[] = {
      {"Asia/Kolkata", "2024-07-01T14:00:00+05:30"},
      {"America/St_Johns", "2024-07-01T06:00:00-03:30"},  // summer time, standard offset
      {"Europe/Berlin", "2024-07-01T10:30:00+01:00"},
      {"Etc/UTC", "2024-07-01T08:30:00+00:00"},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    oxtest::ScopedTZ tz(c.first);
    EXPECT_EQ(cfg.getLocalTime(), c.second) << c.first;
  }
}

TEST(TimeOnThisMachine, LocalTimeAndZoneAreAlwaysGiven) {
  // The real environment: the time service if it answers, else the C library.
  CTimeCfg cfg;
  int dst = 7;
  const std::string zone = cfg.getTimeZone(dst);
  EXPECT_EQ(zone.compare(0, 3, "CST"), 0) << zone;
  EXPECT_TRUE(dst == 0 || dst == 1);
  const std::string local = cfg.getLocalTime();
  EXPECT_FALSE(local.empty());
  EXPECT_TRUE(cfg.checkLocalTimeFormat(local)) << local;
}

TEST_F(TimeZoneTest, StartMakesTheTimeObject) {
  oxtest::copyFactory(dir());
  EXPECT_FALSE(OX_ConfigMgr_GetTimeCfg());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto time = OX_ConfigMgr_GetTimeCfg();
  ASSERT_TRUE(time);
  EXPECT_EQ(time.get(), OX_ConfigMgr_GetTimeCfg().get());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(OX_ConfigMgr_GetTimeCfg().get(), time.get());  // kept across a restart
}

// The commands run the real oxcfg in this directory. Only texts that the
// library refuses before anything is changed are ever given to `time set`:
// each one is also an offset without a zone, a second line of defence.
TEST_F(TimeZoneTest, OxcfgShowsTheTimeAndRefusesBadTexts) {
  oxtest::copyFactory(dir());
  auto oxcfg = [&](std::vector<std::string> args) { return oxtest::runOxcfgIn(dir(), std::move(args)); };
  OxBase::CommandResult r = oxcfg({"time", "show"});
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_NE(r.output.find("local time"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("CST"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("daylight saving  "), std::string::npos) << r.output;
  r = oxcfg({"show", "time", "--json"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.output.find("\"zone\": \"CST"), std::string::npos) << r.output;

  r = oxcfg({"time", "set", "2024-05-01T08:30:00+0815"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("time set: failed (result 1: not a time of the form"), std::string::npos)
      << r.output;
  r = oxcfg({"time", "set", "2201-05-01T08:30:00+05:15"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("result 1"), std::string::npos) << r.output;
  r = oxcfg({"time", "set"});
  EXPECT_EQ(r.exitCode, 2);
  r = oxcfg({"time", "show", "extra"});
  EXPECT_EQ(r.exitCode, 2);
}

}  // namespace
