// Setting the clock and zone from a local-time text: the text's rules, the
// zone of each offset, and the link and clock steps with their failures.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <thread>
#include <vector>

#include "system/time_support.h"

using OxConfigMgr::CTimeCfg;

namespace {

using TimeCfgTest = oxtest::TimeTest;

struct FormatCase {
  std::string text;
  bool valid;
};

// Texts and whether they pass; comments give the rule a group tests.
const std::vector<FormatCase> kFormatCases = {
    {"2024-05-01T08:30:00Z", true},
    {"2024-05-01T08:30:00+08:00", true},
    {"2024-05-01T08:30:00+05:45", true},
    {"2024-05-01T08:30:00-03:30", true},
    {"2024-05-01T08:30:00-09:30", true},  // a valid text, though no zone has it
    {"2024-05-01T08:30:00+0800", false},  // 24 characters
    {"2024-05-01T08:30:00+08", false},    // offset without minutes
    {"2024-05-01T08:30:00+08:", false},
    {"2024-05-01T08:30:00+08:00Z", false},
    {"2024-05-01T08:30:00Z0:00", false},
    {"2024-05-01T08:30:00Z ", false},
    {"2024-05-01 08:30:00Z", false},
    {"2024/05/01T08:30:00Z", false},
    {"2024-05-01T08-30-00Z", false},
    {"2024-05-01T08:30:00", false},
    {"2024-05-01T08:30:00*08:00", false},
    {"2024-05-01T08:30:00+08-00", false},
    {"", false},
    // Years 1970 to 2200.
    {"1969-12-31T23:59:59Z", false},
    {"1970-01-01T00:00:00Z", true},
    {"2200-12-31T23:59:59Z", true},
    {"2201-01-01T00:00:00Z", false},
    // Days are not compared with the month.
    {"2024-02-31T08:30:00Z", true},
    {"2024-00-10T08:30:00Z", false},
    {"2024-13-10T08:30:00Z", false},
    {"2024-05-00T08:30:00Z", false},
    {"2024-05-32T08:30:00Z", false},
    {"2024-05-01T24:00:00Z", false},
    {"2024-05-01T08:60:00Z", false},
    {"2024-05-01T08:30:60Z", false},
    {"2024-05-01T08:30:00+14:00", true},
    {"2024-05-01T08:30:00+15:00", false},
    {"2024-05-01T08:30:00-12:00", true},
    {"2024-05-01T08:30:00-13:00", false},
    {"2024-05-01T08:30:00+05:60", false},
    // The instant may not lie before 1970; a zero hour's sign is lost, so
    // -00:30 counts as half an hour east.
    {"1970-01-01T00:00:00+01:00", false},
    {"1970-01-01T00:00:00-01:00", true},
    {"1970-01-01T00:00:00-00:30", false},
    {"1970-01-01T00:30:00-00:30", true},
    // Non-digits where numbers belong.
    {"2024-+5-01T08:30:00Z", false},
    {"2024-05-01T 8:30:00Z", false},
    {"20a4-05-01T08:30:00Z", false},
    {"-024-05-01T08:30:00Z", false},
    {"2024-05-01T08:30:00+ 8:00", false},
    {"2024-05-01T08:30:00--8:00", false},
    {"2024-05-01T08:30:00++8:00", false},
    {"2024-05-01T08:30:00+08:-1", false},
    {"2024-05-01T08:30:00+0x:00", false},
    // Embedded NUL bytes.
    {std::string("2024-05-01T08:30:00Z\0", 21), false},
    {std::string("2024-05-01T08:30:00+08:0\0", 25), false},
    {std::string("2024-05-01T08:3\0:00Z", 20), false},
    {std::string(20, '\0'), false},
    // Any length.
    {"2024-05-01T08:30:00Z" + std::string(1 << 20, '0'), false},
    {std::string(1 << 20, 'Z'), false},
};

TEST_F(TimeCfgTest, LocalTimeTextRules) {
  CTimeCfg cfg;
  for (const auto& c : kFormatCases) {
    EXPECT_EQ(cfg.checkLocalTimeFormat(c.text), c.valid) << '"' << c.text.substr(0, 40) << '"';
  }
}

TEST_F(TimeCfgTest, RefusedTextsGiveOneBeforeAnythingRuns) {
  ASSERT_TRUE(installZone("Etc/GMT-8"));
  CTimeCfg cfg;
  for (const auto& c : kFormatCases) {
    if (c.valid) continue;
    oxtest::LogCapture log;
    EXPECT_EQ(cfg.setLocalTime(c.text), 1) << c.text.substr(0, 40);
    const std::string shown = c.text.substr(0, c.text.find('\0'));
    if (c.text.size() < 100) {
      EXPECT_TRUE(log.has(5, "[localTime=" + shown + "]checkLocalTimeFormat fail.")) << shown;
    }
  }
  EXPECT_TRUE(env_->commands().empty());
  EXPECT_TRUE(env_->clockSets().empty());
  EXPECT_EQ(oxtest::listDir(path("etc")), std::vector<std::string>{});
}

TEST_F(TimeCfgTest, ZoneOfEachOffset) {
  struct Case {
    int hours, minutes;
    const char* zone;  // "" when none
  };
  const Case cases[] = {
      {8, 0, "Etc/GMT-8"},         {-5, 0, "Etc/GMT+5"},          {0, 0, "Etc/GMT+0"},
      {14, 0, "Etc/GMT-14"},       {-12, 0, "Etc/GMT+12"},        {1, 0, "Etc/GMT-1"},
      {-3, 30, "Canada/Newfoundland"}, {3, 30, "Asia/Tehran"},    {4, 30, "Asia/Kabul"},
      {5, 30, "Asia/Kolkata"},     {5, 45, "Asia/Kathmandu"},     {6, 30, "Asia/Yangon"},
      {9, 30, "Australia/Adelaide"},
      {5, 15, ""},                 {-9, 30, ""},                  {0, 30, ""},
      {-5, 30, ""},                {3, 45, ""},                   {9, 45, ""},
  };
  CTimeCfg cfg;
  for (const auto& c : cases) {
    const std::string expected = *c.zone ? zoneFile(c.zone) : "";
    EXPECT_EQ(cfg.getZoneInfo(c.hours, c.minutes), expected) << c.hours << ":" << c.minutes;
  }
  // The zone database of the machine, unless the environment says otherwise.
  OxBase::Env::Install(nullptr);
  EXPECT_EQ(cfg.getZoneInfo(8, 0), "/usr/share/zoneinfo/Etc/GMT-8");
  EXPECT_EQ(cfg.getZoneInfo(-3, 30), "/usr/share/zoneinfo/Canada/Newfoundland");
}

TEST_F(TimeCfgTest, ZoneAloneIsNeverSetAndStartHasNothingToLoad) {
  CTimeCfg cfg;
  EXPECT_EQ(cfg.start(), 1);
  EXPECT_EQ(cfg.setTimeZone("Etc/GMT-8"), 9);
  EXPECT_EQ(cfg.setTimeZone(""), 9);
  EXPECT_TRUE(env_->commands().empty());
  EXPECT_EQ(oxtest::listDir(path("etc")), std::vector<std::string>{});
}

// The zone is linked, then the wall-clock time is read in that zone (the C
// library reads the test's link as the machine reads its own).
TEST_F(TimeCfgTest, LinksTheOffsetsZoneAndSetsTheClockInIt) {
  struct Case {
    const char* text;
    const char* zone;
    int hours, minutes;
    int64_t instant;
  };
  using oxtest::utcSeconds;
  const Case cases[] = {
      {"2024-05-01T08:30:00Z", "Etc/GMT+0", 0, 0, utcSeconds(2024, 5, 1, 8, 30, 0)},
      {"2024-05-01T08:30:00+08:00", "Etc/GMT-8", 8, 0, utcSeconds(2024, 5, 1, 0, 30, 0)},
      {"2024-05-01T08:30:00-05:00", "Etc/GMT+5", -5, 0, utcSeconds(2024, 5, 1, 13, 30, 0)},
      {"2024-05-01T08:30:00+05:45", "Asia/Kathmandu", 5, 45, utcSeconds(2024, 5, 1, 2, 45, 0)},
      {"2024-05-01T08:30:00+05:30", "Asia/Kolkata", 5, 30, utcSeconds(2024, 5, 1, 3, 0, 0)},
      {"2024-01-15T08:30:00-03:30", "Canada/Newfoundland", -3, 30, utcSeconds(2024, 1, 15, 12, 0, 0)},
      {"2024-05-01T08:30:00+14:00", "Etc/GMT-14", 14, 0, utcSeconds(2024, 4, 30, 18, 30, 0)},
      {"2024-02-31T08:30:00+01:00", "Etc/GMT-1", 1, 0, utcSeconds(2024, 3, 2, 7, 30, 0)},
  };
  if (!installZone("Etc/GMT+0")) GTEST_SKIP() << "no zone database on this machine";
  const std::string link = path("etc/localtime");
  ASSERT_EQ(::symlink(zoneFile("Etc/GMT+0").c_str(), link.c_str()), 0);  // the zone before
  oxtest::ScopedTZ restore("UTC");
  env_->clockInLinkedZone = true;
  CTimeCfg cfg;
  for (const auto& c : cases) {
    ASSERT_TRUE(installZone(c.zone)) << c.zone;
    oxtest::LogCapture log;

    ASSERT_EQ(cfg.setLocalTime(c.text), 0) << c.text;
    EXPECT_EQ(linkTarget(link), zoneFile(c.zone)) << c.text;
    EXPECT_EQ(oxtest::listDir(path("etc")), std::vector<std::string>{"localtime"});
    ASSERT_FALSE(env_->clockSets().empty());
    EXPECT_EQ(env_->clockSets().back(), c.instant) << c.text;
    EXPECT_TRUE(log.has(3, "[iGmtOffHour=" + std::to_string(c.hours) + ", iGmtoffMin=" +
                               std::to_string(c.minutes) + ",timestamp=" + std::to_string(c.instant) +
                               "]set local success."))
        << c.text;
  }
  EXPECT_TRUE(env_->commands().empty());
}

TEST_F(TimeCfgTest, OffsetsWithoutAZoneGive274AndChangeNothing) {
  ASSERT_TRUE(installZone("Etc/GMT+0"));
  ASSERT_EQ(::symlink(zoneFile("Etc/GMT+0").c_str(), path("etc/localtime").c_str()), 0);
  CTimeCfg cfg;
  const std::pair<const char*, const char*> cases[] = {
      {"2024-05-01T08:30:00+05:15", "[iGmtOffHour=5, iGmtoffMin=15]getZoneInfo fail."},
      {"2024-05-01T08:30:00-09:30", "[iGmtOffHour=-9, iGmtoffMin=30]getZoneInfo fail."},
      {"2024-05-01T08:30:00-00:30", "[iGmtOffHour=0, iGmtoffMin=30]getZoneInfo fail."},
  };
  for (const auto& c : cases) {
    oxtest::LogCapture log;
    EXPECT_EQ(cfg.setLocalTime(c.first), 274) << c.first;
    EXPECT_TRUE(log.has(5, c.second)) << c.first;
  }
  EXPECT_EQ(linkTarget(path("etc/localtime")), zoneFile("Etc/GMT+0"));
  EXPECT_TRUE(env_->clockSets().empty());
}

TEST_F(TimeCfgTest, AFailedLinkStepLeavesTheOldZoneAndTheClock) {
  ASSERT_TRUE(installZone("Etc/GMT+0"));
  ASSERT_TRUE(installZone("Etc/GMT-8"));
  const std::string link = path("etc/localtime");
  ASSERT_EQ(::symlink(zoneFile("Etc/GMT+0").c_str(), link.c_str()), 0);
  const std::string failure = "[zoneInfo=" + zoneFile("Etc/GMT-8") + "]set timezone fail.";
  CTimeCfg cfg;
  auto expectUnchanged = [&](const char* what) {
    EXPECT_EQ(linkTarget(link), zoneFile("Etc/GMT+0")) << what;
    EXPECT_EQ(oxtest::listDir(path("etc")), std::vector<std::string>{"localtime"}) << what;
    EXPECT_TRUE(env_->clockSets().empty()) << what;
  };
  {
    // Interrupted between making the new link and renaming it over the old.
    env_->failLinkRename = true;
    oxtest::LogCapture log;
    EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+08:00"), 9);
    EXPECT_TRUE(log.has(5, failure));
    expectUnchanged("rename");
    env_->failLinkRename = false;
  }
  {
    env_->failSymlink = true;
    oxtest::LogCapture log;
    EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+08:00"), 9);
    EXPECT_TRUE(log.has(5, failure));
    expectUnchanged("symlink");
    env_->failSymlink = false;
  }
  {
    // A zone the database lacks is never linked: a dangling link would put
    // the machine at UTC without a word.
    oxtest::LogCapture log;
    EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+09:00"), 9);
    EXPECT_TRUE(log.has(5, "[zoneInfo=" + zoneFile("Etc/GMT-9") + "]set timezone fail."));
    expectUnchanged("missing zone");
  }
  {
    // No directory for the link at all.
    env_->setLinkPath(path("missing/localtime"));
    EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+08:00"), 9);
    env_->setLinkPath(link);
    expectUnchanged("no directory");
  }
}

TEST_F(TimeCfgTest, AClockThatCannotBeSetGivesNineAndKeepsTheNewZone) {
  ASSERT_TRUE(installZone("Etc/GMT+0"));
  ASSERT_TRUE(installZone("Asia/Kathmandu"));
  const std::string link = path("etc/localtime");
  ASSERT_EQ(::symlink(zoneFile("Etc/GMT+0").c_str(), link.c_str()), 0);
  env_->clockResult = -1;
  oxtest::LogCapture log;
  CTimeCfg cfg;
  EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+05:45"), 9);
  EXPECT_TRUE(log.has(5, "set Time fail."));
  EXPECT_FALSE(log.contains("set local success."));
  EXPECT_EQ(linkTarget(link), zoneFile("Asia/Kathmandu"));
  EXPECT_EQ(env_->clockSets().size(), 1u);
}

TEST_F(TimeCfgTest, ALinkInPlaceButNotSyncedStillCounts) {
  ASSERT_TRUE(installZone("Etc/GMT-8"));
  env_->failSyncDir = true;
  oxtest::LogCapture log;
  CTimeCfg cfg;
  EXPECT_EQ(cfg.setLocalTime("2024-05-01T08:30:00+08:00"), 0);
  EXPECT_EQ(linkTarget(path("etc/localtime")), zoneFile("Etc/GMT-8"));
  EXPECT_TRUE(log.has(4, "[link=" + path("etc/localtime") + ",errno=5]zone link not synced."));
  EXPECT_EQ(env_->clockSets().size(), 1u);
}

TEST_F(TimeCfgTest, ConcurrentSettersLeaveOneCompleteLink) {
  const char* zones[] = {"Etc/GMT-8", "Etc/GMT+5", "Asia/Kolkata", "Etc/GMT+0"};
  for (const char* z : zones) ASSERT_TRUE(installZone(z));
  const char* texts[] = {"2024-05-01T08:30:00+08:00", "2024-05-01T08:30:00-05:00",
                         "2024-05-01T08:30:00+05:30", "2024-05-01T08:30:00Z"};
  // With TZ unset the C library re-records the default zone's name on every
  // conversion, under a lock of its own that the thread sanitizer cannot
  // see; a fixed TZ keeps those conversions read-only.
  oxtest::ScopedTZ tz("UTC0");
  CTimeCfg cfg;
  std::vector<std::thread> threads;
  for (const char* t : texts) {
    threads.emplace_back([&cfg, t] {
      for (int i = 0; i < 25; ++i) EXPECT_EQ(cfg.setLocalTime(t), 0);
    });
  }
  for (auto& t : threads) t.join();
  const std::string target = linkTarget(path("etc/localtime"));
  bool known = false;
  for (const char* z : zones) known = known || target == zoneFile(z);
  EXPECT_TRUE(known) << target;
  EXPECT_EQ(oxtest::listDir(path("etc")), std::vector<std::string>{"localtime"});
  EXPECT_EQ(env_->clockSets().size(), 100u);
}

}  // namespace
