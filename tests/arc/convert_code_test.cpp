// CConvertCodeCfg on real "ConvertCodeConfig.xml" files: loading and its
// cuts, the three conversions, listing page by page, rewriting one section,
// and the carry-over of an upgrade's backup with the old-layout upgrade.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "core/instance_mgr.h"
#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace {

using OxBase::CXmlBase;
using namespace OxConfigMgr;
using Table = std::map<std::string, tagConvertSGInfo>;

struct Row {
  std::string key;
  std::string desc, descCN, cid, sia, enabled;  // "-" leaves the element out
};

std::string element(const char* name, const std::string& text) {
  return text == "-" ? "" : "<" + std::string(name) + ">" + text + "</" + name + ">";
}

std::string codes(const std::vector<Row>& rows, bool poll) {
  std::string out;
  for (const Row& r : rows) {
    out += "<Code NyxCode=\"" + r.key + "\">" + element("EventDesc", r.desc) + element("EventDescCN", r.descCN) +
           element("CID", r.cid) + (poll ? element("Enabled", r.enabled) : element("SIA", r.sia)) + "</Code>";
  }
  return out;
}

std::string file(const std::vector<Row>& sg, const std::vector<Row>& poll) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ConvertCodeConfig><NyxCodeToSGConfig><CodeList>" +
         codes(sg, false) + "</CodeList></NyxCodeToSGConfig><PollEventToCIDConfig><CodeList>" + codes(poll, true) +
         "</CodeList></PollEventToCIDConfig></ConvertCodeConfig>";
}

tagConvertSGInfo info(const char* cid, const char* sia = "", int enabled = 0, const char* desc = "") {
  tagConvertSGInfo i;
  std::strcpy(i.cid, cid);
  std::strcpy(i.sia, sia);
  std::strcpy(i.eventDesc, desc);
  i.enabled = enabled;
  return i;
}

class ConvertCodeTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  void write(const std::string& text) { oxtest::writeFile(path("ConvertCodeConfig.xml"), text); }

  static Table table(CConvertCodeCfg& c, ProtocolType type) {
    Table t;
    EXPECT_EQ(c.getSGEventCodeMap(type, t), 0);
    return t;
  }
  // The codes of one section of the file on disk, in document order, with
  // the children of each row as "name=text" joined by ",".
  std::vector<std::string> section(const char* name, const std::string& file = "ConvertCodeConfig.xml") {
    std::vector<std::string> out;
    CXmlBase xml;
    if (xml.LoadFile(path(file)) != 1 || !xmlWalk(xml, {"ConvertCodeConfig", name, "CodeList"}) || !xml.IntoElem()) {
      return out;
    }
    for (bool more = xml.FindElem("Code"); more; more = xml.FindNextElem("Code")) {
      std::string row = xml.GetAttributeValue("NyxCode");
      row += ":";
      if (xml.IntoElem()) {
        do {
          row += std::string(xml.GetNodeName()) + "=" + xml.GetData() + ",";
        } while (xml.NextSibElem());
        xml.OutOfElem();
      }
      out.push_back(row);
    }
    return out;
  }
};

TEST_F(ConvertCodeTest, LoadsTheFactoryTables) {
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  const Table sg = table(c, PROTOCOL_TYPE_SG), poll = table(c, PROTOCOL_TYPE_POLL);
  EXPECT_EQ(sg.size(), 39u);
  EXPECT_EQ(poll.size(), 13u);
  EXPECT_STREQ(sg.at("SYS_AC_LOSS").cid, "1301");
  EXPECT_STREQ(sg.at("SYS_AC_LOSS").sia, "AT");
  EXPECT_STREQ(sg.at("SYS_AC_LOSS").eventDesc, "AC power loss");
  EXPECT_EQ(sg.at("SYS_AC_LOSS").enabled, 0);
  EXPECT_EQ(poll.at("DEV_BATTERY_LOW").enabled, 1);
  EXPECT_EQ(poll.at("DEV_VIDEO_LOSS").enabled, 0);
  EXPECT_STREQ(poll.at("DEV_VIDEO_LOSS").sia, "");  // never read for poll rows

  // Other types leave the output alone.
  Table untouched = {{"x", info("1")}};
  EXPECT_EQ(c.getSGEventCodeMap(static_cast<ProtocolType>(3), untouched), 0);
  EXPECT_EQ(untouched.size(), 1u);
}

TEST_F(ConvertCodeTest, LoadingMergesCutsAndLetsTheLaterDuplicateWin) {
  const std::string d70(70, 'd'), c70(70, 'c');
  write(file({{"A", d70, c70, "123456", "ABC", ""},
              {"DUP", "first", "-", "1111", "AA", ""},
              {"EMPTY", "-", "-", "-", "-", ""},
              {"DUP", "second", "-", "2222", "-", ""}},
             {{"P1", "-", "-", "1300", "", "true"},
              {"P2", "-", "-", "1301", "", "TRUE"},
              {"P3", "-", "-", "1302", "", "-"},
              {"P4", "-", "-", "1303", "", "1"}}));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  Table sg = table(c, PROTOCOL_TYPE_SG), poll = table(c, PROTOCOL_TYPE_POLL);
  ASSERT_EQ(sg.size(), 3u);
  EXPECT_EQ(std::string(sg["A"].eventDesc), d70.substr(0, 64));
  EXPECT_EQ(std::string(sg["A"].eventDescCN), c70.substr(0, 64));
  EXPECT_STREQ(sg["A"].cid, "1234");
  EXPECT_STREQ(sg["A"].sia, "AB");
  EXPECT_STREQ(sg["DUP"].eventDesc, "second");
  EXPECT_STREQ(sg["DUP"].cid, "2222");
  EXPECT_STREQ(sg["DUP"].sia, "");  // the later row replaces the whole row
  EXPECT_STREQ(sg["EMPTY"].cid, "");
  EXPECT_EQ(poll["P1"].enabled, 1);
  EXPECT_EQ(poll["P2"].enabled, 0);
  EXPECT_EQ(poll["P3"].enabled, 0);
  EXPECT_EQ(poll["P4"].enabled, 0);

  // Rows absent from the next file stay; rows in it are replaced.
  write(file({{"B", "-", "-", "9999", "-", ""}, {"A", "-", "-", "1", "-", ""}}, {}));
  ASSERT_TRUE(c.loadFile());
  sg = table(c, PROTOCOL_TYPE_SG);
  EXPECT_EQ(sg.size(), 4u);
  EXPECT_STREQ(sg["A"].cid, "1");
  EXPECT_STREQ(sg["A"].eventDesc, "");
  EXPECT_STREQ(sg["DUP"].cid, "2222");
  EXPECT_EQ(table(c, PROTOCOL_TYPE_POLL).size(), 4u);

  // A foreign root or missing sections change nothing; an unreadable file fails.
  write("<Other><NyxCodeToSGConfig><CodeList><Code NyxCode=\"Z\"/></CodeList></NyxCodeToSGConfig></Other>");
  EXPECT_TRUE(c.loadFile());
  write("<ConvertCodeConfig><NyxCodeToSGConfig/><PollEventToCIDConfig><Code NyxCode=\"Z\"/>"
        "</PollEventToCIDConfig></ConvertCodeConfig>");
  EXPECT_TRUE(c.loadFile());
  EXPECT_EQ(table(c, PROTOCOL_TYPE_SG).size(), 4u);
  EXPECT_EQ(table(c, PROTOCOL_TYPE_POLL).size(), 4u);
  oxtest::LogCapture log;
  write("<ConvertCodeConfig>");
  EXPECT_FALSE(c.loadFile());
  EXPECT_TRUE(log.has(5, "config file is not exist path=" + path("ConvertCodeConfig.xml")));
}

TEST_F(ConvertCodeTest, ContactIdAndSiaFromTheSurGardTable) {
  write(file({{"KNOWN", "-", "-", "1130", "BA", ""}, {"NOCID", "-", "-", "-", "-", ""}, {"1999", "-", "-", "1234", "-", ""}},
             {}));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  const std::string longCode = "1" + std::string(300, '7');
  const struct {
    EventFormat format;
    std::string input;
    int result;
    std::string output;
  } cases[] = {
      {EVENT_FORMAT_CID, "KNOWN", 1, "1130"},
      {EVENT_FORMAT_CID, "1401", 1, "E401"},
      {EVENT_FORMAT_CID, "3401", 1, "R401"},
      {EVENT_FORMAT_CID, "6401", 1, "6401"},
      {EVENT_FORMAT_CID, "NOCID", 1, "NOCID"},  // a row without a CID: no E/R
      {EVENT_FORMAT_CID, "1999", 1, "1234"},
      {EVENT_FORMAT_CID, longCode, 1, "E" + longCode.substr(1)},
      {EVENT_FORMAT_CID, "", 0, "unchanged"},
      {EVENT_FORMAT_SIA, "KNOWN", 1, "BA"},
      {EVENT_FORMAT_SIA, "NOCID", 1, "NOCID"},
      {EVENT_FORMAT_SIA, "1401", 1, "1401"},
      {EVENT_FORMAT_SIA, longCode, 1, longCode},
      {EVENT_FORMAT_SIA, "", 1, ""},
  };
  for (const auto& k : cases) {
    oxtest::LogCapture log;
    std::string out = "unchanged";
    EXPECT_EQ(c.convertCode(k.format, k.input, out), k.result) << k.format << " " << k.input;
    EXPECT_EQ(out, k.output) << k.format << " " << k.input;
    EXPECT_EQ(log.has(5, "inputCode is NULL"), k.format == EVENT_FORMAT_CID && k.input.empty());
  }
}

TEST_F(ConvertCodeTest, PollEventsAndUnknownFormats) {
  write(file({{"SG_ONLY", "-", "-", "1130", "BA", ""}},
             {{"ON", "-", "-", "1350", "", "true"}, {"OFF", "-", "-", "1602", "", "false"},
              {"ABSENT", "-", "-", "1380", "", "-"}, {"NOCID", "-", "-", "-", "", "true"}}));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  const std::string longCode(500, 'Q');
  const struct {
    int format;
    std::string input;
    int result;
    std::string output;
    int level;
    std::string message;
  } cases[] = {
      {3, "ON", 1, "1350", 0, ""},
      {3, "OFF", 0, "unchanged", 3, "[1602]EventCode is disable."},
      {3, "ABSENT", 0, "unchanged", 3, "[1380]EventCode is disable."},
      {3, "NOCID", 0, "unchanged", 0, ""},
      {3, "SG_ONLY", 0, "unchanged", 4, "inputCode is nonrecognition![SG_ONLY]"},
      {3, "", 0, "unchanged", 4, "inputCode is nonrecognition![]"},
      {3, longCode, 0, "unchanged", 4, ""},
      {0, "ON", 0, "unchanged", 5, "EventFormat Error!"},
      {4, "ON", 0, "unchanged", 5, "EventFormat Error!"},
  };
  for (const auto& k : cases) {
    oxtest::LogCapture log;
    std::string out = "unchanged";
    EXPECT_EQ(c.convertCode(static_cast<EventFormat>(k.format), k.input, out), k.result) << k.input;
    EXPECT_EQ(out, k.output) << k.input;
    if (k.level == 0) {
      EXPECT_TRUE(log.entries().empty()) << k.input;
    } else if (k.message.empty()) {
      ASSERT_EQ(log.entries().size(), 1u);
      EXPECT_EQ(log.entries()[0].level, k.level);
      EXPECT_TRUE(log.contains("inputCode is nonrecognition![QQQ")) << k.input.size();
    } else {
      EXPECT_TRUE(log.has(k.level, k.message)) << k.input;
    }
  }
}

TEST_F(ConvertCodeTest, ListingPageByPage) {
  std::vector<Row> rows;
  for (int i = 24; i >= 0; --i) rows.push_back({"CODE_" + std::to_string(100 + i), "-", "-", "1100", "-", ""});
  rows.push_back({std::string(40, 'K'), "-", "-", "1200", "-", ""});
  write(file(rows, {{"P", "-", "-", "1300", "", "true"}}));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  // 26 rows: 25 numbered ones, then the long key (after "C" in byte order).
  const struct {
    int position, maxResults;
    int result, count, total;
    const char* first;
  } pages[] = {
      {0, 10, 0, 10, 26, "CODE_100"}, {10, 10, 0, 10, 26, "CODE_110"}, {20, 10, 0, 6, 26, "CODE_120"},
      {25, 10, 0, 1, 26, "KKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKK"},     {26, 10, 0, 0, 26, nullptr},
      {1000, 1, 0, 0, 26, nullptr},   {0, 0, 1, -7, -7, nullptr},  {-1, 5, 1, -7, -7, nullptr},
      {0, -5, 1, -7, -7, nullptr},
  };
  for (const auto& p : pages) {
    std::vector<tagEventCode> list(2);  // rows already in the list count too
    tagEventCodeQueryReq req;
    req.position = p.position + (p.result == 0 ? 2 : 0);
    req.maxResults = p.maxResults;
    int count = -7, total = -7;
    EXPECT_EQ(c.getSGEventCodeList(list, count, total, &req), p.result) << p.position;
    EXPECT_EQ(count, p.count) << p.position;
    EXPECT_EQ(total, p.result == 0 ? p.total + 2 : -7) << p.position;
    if (p.result != 0) {
      EXPECT_EQ(list.size(), 2u);
    } else if (p.first) {
      ASSERT_EQ(list.size(), static_cast<size_t>(p.count));
      EXPECT_STREQ(list[0].code, p.first);
      for (size_t i = 1; i < list.size(); ++i) EXPECT_LT(std::strcmp(list[i - 1].code, list[i].code), 0);
      EXPECT_STREQ(list[0].info.cid, p.position < 25 ? "1100" : "1200");
    } else {
      EXPECT_TRUE(list.empty());
    }
  }
  int count = 0, total = 0;
  std::vector<tagEventCode> list;
  EXPECT_EQ(c.getSGEventCodeList(list, count, total, nullptr), 1);
  tagEventCodeQueryReq req;
  req.maxResults = 5;
  req.isPollEvent = 7;
  EXPECT_EQ(c.getSGEventCodeList(list, count, total, &req), 0);
  ASSERT_EQ(count, 1);
  EXPECT_EQ(total, 1);
  EXPECT_STREQ(list[0].code, "P");
  EXPECT_EQ(list[0].info.enabled, 1);
}

TEST_F(ConvertCodeTest, ReplacingATableRewritesItsSectionInByteOrder) {
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  const std::vector<std::string> pollBefore = section("PollEventToCIDConfig");
  Table sg = {{"a_lower", info("1", "", 0, "lower")},
              {"Z_UPPER", info("3130", "BR")},
              {"_UNDERSCORE", info("", "XX")},
              {"B", info("1234", "", 1)},
              {"\xc3\xa9t\xc3\xa9", info("1111", "EE")}};
  ASSERT_EQ(c.updateSGEventCode(PROTOCOL_TYPE_SG, sg), 0);
  EXPECT_EQ(section("NyxCodeToSGConfig"),
            (std::vector<std::string>{"B:CID=1234,", "Z_UPPER:CID=3130,SIA=BR,", "_UNDERSCORE:SIA=XX,",
                                      "a_lower:EventDesc=lower,CID=1,", "\xc3\xa9t\xc3\xa9:CID=1111,SIA=EE,"}));
  EXPECT_EQ(section("PollEventToCIDConfig"), pollBefore);

  Table poll = {{"Q", info("1300", "ZZ", 1)}, {"P", info("", "", 0)}};
  ASSERT_EQ(c.updateSGEventCode(PROTOCOL_TYPE_POLL, poll), 0);
  EXPECT_EQ(section("PollEventToCIDConfig"), (std::vector<std::string>{"P:Enabled=false,", "Q:CID=1300,Enabled=true,"}));

  // A fresh object reads back what was written.
  CConvertCodeCfg fresh;
  ASSERT_TRUE(fresh.loadFile());
  EXPECT_EQ(table(fresh, PROTOCOL_TYPE_SG).size(), 5u);
  std::string out;
  EXPECT_EQ(fresh.convertCode(EVENT_FORMAT_POLL_CID, "Q", out), 1);
  EXPECT_EQ(out, "1300");

  // Unterminated texts from the caller stay within their fields.
  tagConvertSGInfo wide;
  std::memset(wide.cid, '9', sizeof wide.cid);
  std::memset(wide.sia, 'S', sizeof wide.sia);
  std::memset(wide.eventDesc, 'd', sizeof wide.eventDesc);
  std::memset(wide.eventDescCN, 'c', sizeof wide.eventDescCN);
  ASSERT_EQ(c.updateSGEventCode(PROTOCOL_TYPE_SG, {{"W", wide}}), 0);
  EXPECT_EQ(section("NyxCodeToSGConfig"),
            (std::vector<std::string>{"W:EventDesc=" + std::string(64, 'd') + ",EventDescCN=" + std::string(64, 'c') +
                                      ",CID=9999,SIA=SS,"}));
}

TEST_F(ConvertCodeTest, FailedRewritesKeepTheNewRowsInMemory) {
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  const Table rows = {{"NEW", info("1999", "NW")}};
  const std::string before = oxtest::readFile(path("ConvertCodeConfig.xml"));
  const struct {
    const char* content;  // null: the file is missing
    int type;
    const char* message;
  } cases[] = {
      {nullptr, 1, "ConvertCodeConfig.xml file is not exist"},
      {"<Other><NyxCodeToSGConfig/></Other>", 1, "this Protocol is not support!"},
      {"<ConvertCodeConfig><PollEventToCIDConfig><CodeList/></PollEventToCIDConfig></ConvertCodeConfig>", 1,
       "ConvertCodeConfig.xml format error!"},
      {"<ConvertCodeConfig><NyxCodeToSGConfig><CodeList/></NyxCodeToSGConfig></ConvertCodeConfig>", 2,
       "ConvertCodeConfig.xml format error!"},
      {"", 3, "this Protocol is not support!"},
  };
  for (const auto& k : cases) {
    if (k.content)
      write(*k.content ? std::string(k.content) : before);
    else
      ::unlink(path("ConvertCodeConfig.xml").c_str());
    const std::string onDisk = k.content ? oxtest::readFile(path("ConvertCodeConfig.xml")) : "";
    oxtest::LogCapture log;
    EXPECT_EQ(c.updateSGEventCode(static_cast<ProtocolType>(k.type), rows), 9) << k.message;
    EXPECT_TRUE(log.has(5, k.message)) << k.message;
    EXPECT_TRUE(log.has(5, "addCodeToFile failed!"));
    if (k.content) {
      EXPECT_EQ(oxtest::readFile(path("ConvertCodeConfig.xml")), onDisk);
    }
    if (k.type == 1 || k.type == 2) {
      EXPECT_EQ(table(c, static_cast<ProtocolType>(k.type)).size(), 1u);
    }
  }
  // An unknown type replaced nothing.
  EXPECT_STREQ(table(c, PROTOCOL_TYPE_SG).at("NEW").cid, "1999");

  // A write that does not land fails as well, and the file keeps its rows.
  write(before);
  oxtest::FaultEnv failing;
  failing.failOn(oxtest::FaultEnv::kRename, ENOSPC);
  oxtest::ScopedEnv scoped(&failing);
  EXPECT_EQ(c.updateSGEventCode(PROTOCOL_TYPE_SG, {{"OTHER", info("1000")}}), 9);
  EXPECT_EQ(oxtest::readFile(path("ConvertCodeConfig.xml")), before);
  EXPECT_EQ(table(c, PROTOCOL_TYPE_SG).count("OTHER"), 1u);
}

class ConvertCodeCarryOverTest : public ConvertCodeTest {
 protected:
  // Makes the carry-over of "Config.xml" read `version` as the backup's
  // version, as the start of the library does before the host loads codes.
  void backupVersion(const char* version) {
    CXmlBase old;
    ASSERT_EQ(old.LoadFile(path("Config.xml")), 1);
    ASSERT_TRUE(xmlWalk(old, {"Config", "BasicInfo", "SoftwareVersion"}));
    ASSERT_EQ(old.ModifyData("SoftwareVersion", version), 1);
    ASSERT_EQ(old.WriteToFile(path("Config_Backup.xml")), 1);
    CSingleton<CInstanceMgr>::Instance()->copyBackupConfig();
    ASSERT_EQ(OX_ConfigMgr_GetBackupVersion(), version);
  }
  // An old-layout backup that is not converted: the merge finds no list to
  // take rows from, and the new rows stay as they are.
  void mergeOldLayoutUnconverted() {
    writeNew();
    writeBackup("<ConvertCodeConfig><NyxCodeToSGConfig>" + codes({{"KEEP", "Old", "-", "1101", "KB", ""}}, false) +
                "</NyxCodeToSGConfig></ConvertCodeConfig>");
    CConvertCodeCfg c;
    ASSERT_TRUE(c.loadFile());
    EXPECT_FALSE(oxtest::fileExists(path("ConvertCodeConfig_Backup.xml")));
    EXPECT_EQ(section("NyxCodeToSGConfig"),
              (std::vector<std::string>{"KEEP:EventDesc=Kept,CID=1100,SIA=KA,", "NEWROW:EventDesc=New,CID=1200,SIA=NA,"}));
  }
  void writeBackup(const std::string& text) { oxtest::writeFile(path("ConvertCodeConfig_Backup.xml"), text); }

  // The new release's file: two factory rows per table, one of them new.
  void writeNew() {
    write(file({{"KEEP", "Kept", "-", "1100", "KA", ""}, {"NEWROW", "New", "-", "1200", "NA", ""}},
               {{"POLL", "Poll", "-", "1300", "", "true"}}));
  }
};

TEST_F(ConvertCodeCarryOverTest, CurrentLayoutMergesRowByRow) {
  backupVersion("V1.4.0.0");
  writeNew();
  // The user edited KEEP, added USER (twice, both kept) and disabled POLL;
  // GONE is a row the new release no longer ships.
  writeBackup(file({{"USER", "Mine", "-", "1999", "-", ""},
                    {"KEEP", "Edited", "Extra", "1101", "-", ""},
                    {"GONE", "-", "-", "1500", "GG", ""},
                    {"USER", "Again", "-", "1998", "-", ""}},
                   {{"POLL", "-", "-", "1301", "", "false"}}));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  EXPECT_FALSE(oxtest::fileExists(path("ConvertCodeConfig_Backup.xml")));
  EXPECT_EQ(section("NyxCodeToSGConfig"),
            (std::vector<std::string>{"KEEP:EventDesc=Edited,CID=1101,SIA=KA,",  // only elements of the new row
                                      "NEWROW:EventDesc=New,CID=1200,SIA=NA,", "USER:EventDesc=Mine,CID=1999,",
                                      "GONE:CID=1500,SIA=GG,", "USER:EventDesc=Again,CID=1998,"}));
  EXPECT_EQ(section("PollEventToCIDConfig"), (std::vector<std::string>{"POLL:EventDesc=Poll,CID=1301,Enabled=false,"}));
  std::string out;
  EXPECT_EQ(c.convertCode(EVENT_FORMAT_CID, "USER", out), 1);
  EXPECT_EQ(out, "1998");  // the later duplicate wins when loading
  EXPECT_EQ(c.convertCode(EVENT_FORMAT_POLL_CID, "POLL", out), 0);
}

TEST_F(ConvertCodeCarryOverTest, OldLayoutIsConvertedFirst) {
  backupVersion("V1.2.1.3");
  writeNew();
  // Rows directly under the section, unsorted, with a duplicate: the upgrade
  // keeps the first of a code.
  writeBackup("<ConvertCodeConfig><NyxCodeToSGConfig>" +
              codes({{"ZED", "-", "-", "1700", "-", ""},
                     {"KEEP", "Old", "-", "1101", "KB", ""},
                     {"ZED", "-", "-", "1701", "-", ""},
                     {"ALPHA", "-", "-", "1600", "AL", ""}},
                    false) +
              "<Other>kept</Other></NyxCodeToSGConfig></ConvertCodeConfig>");
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  EXPECT_EQ(section("NyxCodeToSGConfig"),
            (std::vector<std::string>{"KEEP:EventDesc=Old,CID=1101,SIA=KB,", "NEWROW:EventDesc=New,CID=1200,SIA=NA,",
                                      "ALPHA:CID=1600,SIA=AL,", "ZED:CID=1700,"}));
  // The poll table of the new release is untouched.
  EXPECT_EQ(section("PollEventToCIDConfig"), (std::vector<std::string>{"POLL:EventDesc=Poll,CID=1300,Enabled=true,"}));
}

TEST_F(ConvertCodeCarryOverTest, OldLayoutOfALaterReleaseIsNotConverted) {
  backupVersion("V1.4.0");
  mergeOldLayoutUnconverted();
}

TEST_F(ConvertCodeCarryOverTest, OldLayoutWithoutABackupVersionIsNotConverted) {
  mergeOldLayoutUnconverted();
}

TEST_F(ConvertCodeCarryOverTest, EmptyNewListTakesTheUserRowsAndFailuresKeepTheBackup) {
  backupVersion("V1.5.0.0");
  write(file({{"KEEP", "Kept", "-", "1100", "KA", ""}}, {}));
  writeBackup(file({}, {{"P1", "-", "-", "1301", "", "true"}, {"P2", "-", "-", "1302", "", "false"}}));
  // A merge that cannot be written keeps the backup for the next load.
  {
    oxtest::FaultEnv failing;
    failing.failOn(oxtest::FaultEnv::kFsync, EIO);
    oxtest::ScopedEnv scoped(&failing);
    CConvertCodeCfg c;
    c.copyBackupConfig();
  }
  EXPECT_TRUE(oxtest::fileExists(path("ConvertCodeConfig_Backup.xml")));
  EXPECT_TRUE(section("PollEventToCIDConfig").empty());

  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  EXPECT_FALSE(oxtest::fileExists(path("ConvertCodeConfig_Backup.xml")));
  EXPECT_EQ(section("PollEventToCIDConfig"), (std::vector<std::string>{"P1:CID=1301,Enabled=true,", "P2:CID=1302,Enabled=false,"}));
  // The user's empty Sur-Gard list leaves the new release's rows.
  EXPECT_EQ(section("NyxCodeToSGConfig"), (std::vector<std::string>{"KEEP:EventDesc=Kept,CID=1100,SIA=KA,"}));

  // An unreadable backup stays.
  writeBackup("<ConvertCodeConfig>");
  EXPECT_TRUE(c.loadFile());
  EXPECT_TRUE(oxtest::fileExists(path("ConvertCodeConfig_Backup.xml")));
}

TEST_F(ConvertCodeTest, TenThousandRows) {
  std::vector<Row> rows;
  for (int i = 0; i < 10000; ++i) {
    rows.push_back({"EV_" + std::to_string(i * 7919 % 10000), std::string(100, 'x'), "-", std::to_string(i), "ZZZ", ""});
  }
  write(file(rows, rows));
  CConvertCodeCfg c;
  ASSERT_TRUE(c.loadFile());
  EXPECT_EQ(table(c, PROTOCOL_TYPE_SG).size(), 10000u);
  std::vector<tagEventCode> list;
  int count = 0, total = 0;
  tagEventCodeQueryReq req;
  req.position = 9990;
  req.maxResults = 100;
  ASSERT_EQ(c.getSGEventCodeList(list, count, total, &req), 0);
  EXPECT_EQ(count, 10);
  EXPECT_EQ(total, 10000);
  EXPECT_STREQ(list.back().code, "EV_9999");
  Table sg = table(c, PROTOCOL_TYPE_SG);
  ASSERT_EQ(c.updateSGEventCode(PROTOCOL_TYPE_SG, sg), 0);
  EXPECT_EQ(section("NyxCodeToSGConfig").size(), 10000u);
}

}  // namespace
