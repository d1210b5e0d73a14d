#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

using OxConfigMgr::CQAPICfg;

namespace {

class QAPICfgTest : public oxtest::SectionsTest {
 protected:
  void writeQapi(const std::string& inner, const std::string& name = "QAPIConfig.xml") {
    oxtest::writeFile(path(name), "<?xml version=\"1.0\"?>\n<Config><QAPIConfig>" + inner +
                                      "</QAPIConfig></Config>\n");
  }
  std::string qapiText(const char* name) {
    return textAt({"Config", "QAPIConfig", name}, "QAPIConfig.xml");
  }
};

TEST_F(QAPICfgTest, FactoryFileLoads) {
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.getQAPIParam(), 1);
  EXPECT_EQ(cfg.getQAPIMode(), 3);
}

TEST_F(QAPICfgTest, ModeTableIsExactAndEnableIsTakenAsWritten) {
  struct Case {
    const char* mode;
    int expected;
  } cases[] = {{"user", 1}, {"port", 2}, {"all", 3}, {"ALL", 0}, {"User", 0}, {" all", 0}, {"", 0}};
  for (const auto& c : cases) {
    // Elements in the other order.
    writeQapi(std::string("<Mode>") + c.mode + "</Mode><Enable>5</Enable>");
    CQAPICfg cfg;
    ASSERT_EQ(cfg.loadFile(), 1) << c.mode;
    EXPECT_EQ(cfg.getQAPIMode(), c.expected) << c.mode;
    EXPECT_EQ(cfg.getQAPIParam(), 5);
  }
  writeQapi("<Enable>on</Enable><Mode>port</Mode>");
  CQAPICfg text;
  ASSERT_EQ(text.loadFile(), 1);
  EXPECT_EQ(text.getQAPIParam(), 0);
}

TEST_F(QAPICfgTest, EveryElementIsRequired) {
  writeQapi("<Mode>user</Mode>");
  CQAPICfg noEnable;
  EXPECT_EQ(noEnable.loadFile(), 0);
  writeQapi("<Enable>1</Enable>");
  CQAPICfg noMode;
  EXPECT_EQ(noMode.loadFile(), 0);
  oxtest::writeFile(path("QAPIConfig.xml"), "<Config><Other/></Config>");
  CQAPICfg noSection;
  EXPECT_EQ(noSection.loadFile(), 0);

  oxtest::LogCapture log;
  ASSERT_EQ(OSL_DeleteFile(path("QAPIConfig.xml").c_str()), 0);
  CQAPICfg missing;
  EXPECT_EQ(missing.loadFile(), 0);
  EXPECT_TRUE(log.has(5, "QAPIConfig.xml file is not exist"));
}

TEST_F(QAPICfgTest, SetQAPIParamWritesTheNumberAndKeepsIt) {
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.setQAPIParam(0), 0);
  EXPECT_EQ(qapiText("Enable"), "0");
  EXPECT_EQ(cfg.getQAPIParam(), 0);
  EXPECT_EQ(cfg.setQAPIParam(-7), 0);
  EXPECT_EQ(qapiText("Enable"), "-7");
  EXPECT_EQ(cfg.getQAPIParam(), -7);
  EXPECT_EQ(qapiText("Mode"), "all");
  // Config.xml is not involved.
  EXPECT_EQ(textAt({"Config", "QAPIConfig"}), "<missing>");

  // setFile changes only the file.
  EXPECT_EQ(cfg.setFile(1), 1);
  EXPECT_EQ(qapiText("Enable"), "1");
  EXPECT_EQ(cfg.getQAPIParam(), -7);
}

TEST_F(QAPICfgTest, SetQAPIParamFailures) {
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string before = oxtest::readFile(path("QAPIConfig.xml"));
  {
    oxtest::LogCapture log;
    env_.failOn(oxtest::FaultEnv::kRename, EROFS);
    EXPECT_EQ(cfg.setQAPIParam(0), 3);
    EXPECT_TRUE(log.has(5, "set QAPIConfig.xml failed."));
    EXPECT_EQ(cfg.setFile(0), 0);
    env_.failOn(oxtest::FaultEnv::kNone, 0);
    EXPECT_EQ(oxtest::readFile(path("QAPIConfig.xml")), before);
    EXPECT_EQ(cfg.getQAPIParam(), 1);
  }
  {
    writeQapi("<Mode>all</Mode>");
    const std::string noEnable = oxtest::readFile(path("QAPIConfig.xml"));
    EXPECT_EQ(cfg.setQAPIParam(0), 3);
    EXPECT_EQ(oxtest::readFile(path("QAPIConfig.xml")), noEnable);
    EXPECT_EQ(cfg.getQAPIParam(), 1);
  }
  {
    oxtest::LogCapture log;
    ASSERT_EQ(OSL_DeleteFile(path("QAPIConfig.xml").c_str()), 0);
    EXPECT_EQ(cfg.setQAPIParam(0), 3);
    EXPECT_TRUE(log.has(5, "QAPIConfig.xml file is not exist"));
    EXPECT_TRUE(log.has(5, "set QAPIConfig.xml failed."));
    EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig.xml")));
    EXPECT_EQ(cfg.getQAPIParam(), 1);
  }
}

TEST_F(QAPICfgTest, BackupValuesAreCarriedOverAndTheBackupConsumed) {
  writeQapi("<Enable>0</Enable><Mode>user</Mode><Retired>x</Retired>", "QAPIConfig_Backup.xml");
  CQAPICfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.getQAPIParam(), 0);
  EXPECT_EQ(cfg.getQAPIMode(), 1);
  EXPECT_EQ(qapiText("Enable"), "0");
  EXPECT_EQ(qapiText("Mode"), "user");
  EXPECT_EQ(qapiText("Retired"), "<missing>");
  EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));

  // A backup without "Mode" leaves the new file's mode.
  writeQapi("<Enable>1</Enable>", "QAPIConfig_Backup.xml");
  CQAPICfg partial;
  ASSERT_EQ(partial.loadFile(), 1);
  EXPECT_EQ(partial.getQAPIParam(), 1);
  EXPECT_EQ(partial.getQAPIMode(), 1);
}

TEST_F(QAPICfgTest, BackupStaysWhenTheCarryOverCannotComplete) {
  // The new file cannot be read.
  writeQapi("<Enable>0</Enable><Mode>port</Mode>", "QAPIConfig_Backup.xml");
  ASSERT_EQ(OSL_DeleteFile(path("QAPIConfig.xml").c_str()), 0);
  CQAPICfg noFile;
  EXPECT_EQ(noFile.loadFile(), 0);
  EXPECT_TRUE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));

  // The backup cannot be read.
  resetToFactory();
  oxtest::writeFile(path("QAPIConfig_Backup.xml"), "garbage");
  CQAPICfg badBackup;
  ASSERT_EQ(badBackup.loadFile(), 1);
  EXPECT_EQ(badBackup.getQAPIMode(), 3);
  EXPECT_TRUE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));

  // The merge cannot be written: the factory values load, the backup waits.
  writeQapi("<Enable>0</Enable><Mode>port</Mode>", "QAPIConfig_Backup.xml");
  env_.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
  CQAPICfg unwritable;
  ASSERT_EQ(unwritable.loadFile(), 1);
  EXPECT_EQ(unwritable.getQAPIMode(), 3);
  EXPECT_TRUE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));

  env_.failOn(oxtest::FaultEnv::kNone, 0);
  CQAPICfg later;
  ASSERT_EQ(later.loadFile(), 1);
  EXPECT_EQ(later.getQAPIMode(), 2);
  EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));
}

}  // namespace
