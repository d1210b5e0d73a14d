// The oxcfg commands of the alarm receiving centre and the event code
// tables, run as a separate process on a factory directory.
#include <gtest/gtest.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "platform/env.h"
#include "support/test_support.h"

namespace {

class CliArcTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  OxBase::CommandResult oxcfg(std::vector<std::string> args) { return oxtest::runOxcfgIn(dir(), std::move(args)); }
  static bool has(const OxBase::CommandResult& r, const std::string& text) {
    return r.output.find(text) != std::string::npos;
  }
};

TEST_F(CliArcTest, ShowAndSetTheRecord) {
  auto r = oxcfg({"show", "arc"});
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_TRUE(has(r, "sg.outputType")) << r.output;
  EXPECT_TRUE(has(r, "manitou.heartbeatInterval"));
  r = oxcfg({"show", "arc", "--json"});
  ASSERT_EQ(r.exitCode, 0);
  EXPECT_TRUE(has(r, "\"sg.port\": \"1025\"")) << r.output;
  EXPECT_TRUE(has(r, "\"sbn.port\": \"1027\""));

  const struct {
    std::vector<std::string> args;
    int exitCode;
  } sets[] = {
      {{"set", "arc", "type", "SBN"}, 0},
      {{"set", "arc", "enable", "on"}, 0},
      {{"set", "arc", "sg.port", "2001"}, 0},
      {{"set", "arc", "sg.outputType", "SIA"}, 0},
      {{"set", "arc", "sg.heartbeat", "20"}, 1},   // refused by the library
      {{"set", "arc", "sg.lll", "1234"}, 2},       // too long for the field
      {{"set", "arc", "sg.port", "x"}, 2},
      {{"set", "arc", "manitou.heartbeatInterval", "90"}, 2},
      {{"set", "arc", "nosuch", "1"}, 2},
  };
  for (const auto& s : sets) {
    r = oxcfg(s.args);
    EXPECT_EQ(r.exitCode, s.exitCode) << s.args[2] << ": " << r.output;
  }
  OxConfigMgr::CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  OxConfigMgr::tagArcCnf c;
  arc.getARCParam(c);
  EXPECT_STREQ(c.type, "SBN");
  EXPECT_EQ(c.enable, 1);
  EXPECT_EQ(c.sg.sgPort, 2001);
  EXPECT_STREQ(c.sg.outputType, "SIA");
  EXPECT_EQ(c.sg.heartbeat, 30);
  EXPECT_STREQ(c.sg.lll, "001");
}

TEST_F(CliArcTest, ListAndConvertCodes) {
  auto r = oxcfg({"codes", "list", "sg", "--page", "2", "--size", "5"});
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_TRUE(has(r, "rows 6-10 of 39")) << r.output;
  EXPECT_TRUE(has(r, "SYS_AC_LOSS"));
  r = oxcfg({"codes", "list", "poll", "--page", "9"});
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_TRUE(has(r, "no rows on page 9 (13 in the table)")) << r.output;
  EXPECT_EQ(oxcfg({"codes", "list", "other"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"codes", "list", "sg", "--size", "0"}).exitCode, 2);

  r = oxcfg({"codes", "convert", "SYS_AC_LOSS"});
  ASSERT_EQ(r.exitCode, 0) << r.output;
  EXPECT_TRUE(has(r, "Contact ID (Sur-Gard table)    1301")) << r.output;
  EXPECT_TRUE(has(r, "SIA (Sur-Gard table)           AT"));
  EXPECT_TRUE(has(r, "Contact ID (poll-event table)  - (not converted)"));
  r = oxcfg({"codes", "convert", "DEV_OFFLINE"});
  EXPECT_TRUE(has(r, "Contact ID (poll-event table)  1350")) << r.output;
  r = oxcfg({"codes", "convert", "3130"});
  EXPECT_TRUE(has(r, "Contact ID (Sur-Gard table)    R130")) << r.output;
}

}  // namespace
