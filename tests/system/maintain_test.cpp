// Maintenance settings: the Maintain section, the root logger line of
// "log4cxx.properties" with the library's logging following it, and the
// system-log connection.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <vector>

#include "db/db_test_support.h"
#include "platform/xlog.h"

using OxConfigMgr::CMaintain;

namespace {

class MaintainTest : public oxtest::DBDirTest {
 protected:
  // Replaces the content of the Maintain section of "Config.xml".
  void setMaintain(const std::string& inner) {
    std::string config = oxtest::readFile(path("Config.xml"));
    size_t from = config.find("<Maintain>"), to = config.find("</Maintain>");
    ASSERT_NE(to, std::string::npos);
    config.replace(from, to - from, "<Maintain>" + inner);
    oxtest::writeFile(path("Config.xml"), config);
  }
  std::string properties() { return oxtest::readFile(path("log4cxx.properties")); }
};

TEST_F(MaintainTest, MissingCleanupValuesLoadAsDefaultsAndPassThroughAsOnOrOff) {
  setMaintain("<Log><Enable>0</Enable><Level>6</Level></Log><LogDeviceTransparent>5</LogDeviceTransparent>");
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  EXPECT_EQ(m.isLogEnable(), 0);
  EXPECT_EQ(m.getLogLevel(), 6);
  EXPECT_EQ(m.getLogCleanupIntevalHour(), 1);
  EXPECT_EQ(m.getLogCleanupRetentionDay(), 200);
  EXPECT_EQ(m.getLogDeviceTransparent(), 1);
}

TEST_F(MaintainTest, SwitchAndLevelRewriteOnlyTheRootLoggersLevel) {
  const std::string factory = properties(), root = "log4j.rootLogger=INFO, file";
  auto factoryWith = [&](const std::string& line) {
    std::string s = factory;
    return s.replace(s.find(root), root.size(), line);
  };
  struct Case {
    std::string before;
    int enable, level;
    std::string after;
  };
  const std::vector<Case> cases = {
      {factory, 0, 2, factoryWith("log4j.rootLogger=OFF, file")},
      {factory, 1, 2, factoryWith("log4j.rootLogger=DEBUG, file")},
      {factory, 1, 8, factoryWith("log4j.rootLogger=OFF, file")},
      {factory, 1, -1, factoryWith("log4j.rootLogger=OFF, file")},
      // Exactly the text between "=" and the first ",", on the line that is
      // not commented out.
      {"#log4j.rootLogger=DEBUG, x\n  log4j.rootLogger=  INFO , file,other\n", 1, 5,
       "#log4j.rootLogger=DEBUG, x\n  log4j.rootLogger=ERROR, file,other\n"},
      // Without a "," on the line, the file is left as it is.
      {"log4j.rootLogger=INFO\nlog4j.a=b, c\n", 1, 5, "log4j.rootLogger=INFO\nlog4j.a=b, c\n"},
  };
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  for (const auto& c : cases) {
    oxtest::writeFile(path("log4cxx.properties"), c.before);
    ASSERT_EQ(m.setLogLevel(static_cast<XLOG_LEVEL>(c.level)), 0);
    ASSERT_EQ(m.enableLog(c.enable), 0);
    EXPECT_EQ(properties(), c.after);
    CMaintain reread;
    ASSERT_TRUE(reread.loadFile());
    EXPECT_EQ(reread.isLogEnable(), c.enable);
    EXPECT_EQ(reread.getLogLevel(), c.level);
  }
}

TEST_F(MaintainTest, SettersReportAMissingElementOrFileAndThenKeepMemory) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  {
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kRename, EIO);
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(m.enableLog(0), 3);
    EXPECT_EQ(m.setLogDeviceTransparent(1), 3);
  }
  EXPECT_EQ(m.isLogEnable(), 1);
  EXPECT_EQ(m.getLogDeviceTransparent(), 0);
  setMaintain("<Log><Level>3</Level></Log>");
  EXPECT_EQ(m.enableLog(0), 1);
  EXPECT_EQ(m.setLogDeviceTransparent(1), 1);
  ::unlink(path("Config.xml").c_str());
  EXPECT_EQ(m.setLogLevel(XLOG_WARN), 2);
  EXPECT_EQ(m.getLogLevel(), 3);
}

TEST_F(MaintainTest, LoggingStopsWhenSwitchedOffOrSetOutOfRange) {
  oxtest::writeFile(path("log4cxx.properties"), oxtest::fileLogProperties(path("test.log")));
  // This process may have been configured from another directory before.
  xlog_reload(path("log4cxx.properties"));
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  OXLOG(5, "[%s(%d)] before");
  ASSERT_EQ(m.enableLog(0), 0);
  OXLOG(5, "[%s(%d)] while off");
  ASSERT_EQ(m.enableLog(1), 0);
  OXLOG(5, "[%s(%d)] on again");
  ASSERT_EQ(m.setLogLevel(static_cast<XLOG_LEVEL>(12)), 0);
  OXLOG(5, "[%s(%d)] at twelve");

  const std::string log = oxtest::readFile(path("test.log"));
  EXPECT_NE(log.find("before"), std::string::npos) << log;
  EXPECT_NE(log.find("on again"), std::string::npos) << log;
  EXPECT_EQ(log.find("while off"), std::string::npos) << log;
  EXPECT_EQ(log.find("at twelve"), std::string::npos) << log;
}

TEST_F(MaintainTest, TheSystemLogConnectionRunsStatementsOnceStarted) {
  CMaintain early;
  EXPECT_FALSE(early.dbBegin());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto m = OX_ConfigMgr_GetLogCfg();
  ASSERT_TRUE(m);
  ASSERT_TRUE(m->dbExecute("INSERT INTO Syslog (RecordTime, UserName, IPAddress) VALUES (1700000000, 'admin', "
                           "'10.0.0.5')"));
  EXPECT_EQ(sql("Syslog.db3", "SELECT UserName, IPAddress FROM Syslog;"), "admin|10.0.0.5\n");

  oxtest::LogCapture log;
  EXPECT_FALSE(m->dbExecute("INSERT INTO Nowhere VALUES (1)"));
  EXPECT_TRUE(log.has(5, "[sql=INSERT INTO Nowhere VALUES (1)]execute failed."));
}

TEST_F(MaintainTest, WriteLog4jNamesTheFailureItMet) {
  CMaintain m;
  std::string content = "log4j.rootLogger=DEBUG, file\n";

  // A directory that does not exist: the file cannot be opened.
  {
    oxtest::LogCapture log;
    std::string missing = path("missing/log4cxx.properties");
    EXPECT_FALSE(m.WriteLog4j(missing, content));
    EXPECT_TRUE(log.has(5, "open file failed, path[" + missing + "],error[" + std::to_string(ENOENT) + "]"));
    EXPECT_EQ(log.entries().size(), 1u);
  }
  const std::string properties = path("log4cxx.properties");
  const std::string before = oxtest::readFile(properties);
  struct Row {
    oxtest::FaultEnv::Op op;
    int err;
    std::string message;
  };
  const int length = static_cast<int>(content.size());
  const std::vector<Row> rows = {
      {oxtest::FaultEnv::kOpen, EACCES, "open file failed, path[" + properties + "],error[13]"},
      // Only a short write names the length and the count that was written.
      {oxtest::FaultEnv::kShortWrite, ENOSPC,
       "write file failed, elngth[" + std::to_string(length) + "]-[" + std::to_string(length / 2) + "],error[28]"},
      {oxtest::FaultEnv::kFsync, EIO, "replace file failed, path[" + properties + "],error[5]"},
      {oxtest::FaultEnv::kRename, EIO, "replace file failed, path[" + properties + "],error[5]"},
  };
  for (const auto& row : rows) {
    oxtest::LogCapture log;
    oxtest::FaultEnv env;
    env.failOn(row.op, row.err);
    std::string p = properties;
    {
      oxtest::ScopedEnv scoped(&env);
      EXPECT_FALSE(m.WriteLog4j(p, content));
    }
    ASSERT_EQ(log.entries().size(), 1u) << row.message;
    EXPECT_TRUE(log.has(5, row.message)) << oxtest::LogCapture::body(log.entries()[0].text);
    EXPECT_EQ(oxtest::readFile(properties), before);
  }
  // Only the directory sync failed: the new content is in place.
  {
    oxtest::LogCapture log;
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kSyncDir, EIO);
    oxtest::ScopedEnv scoped(&env);
    std::string p = properties;
    EXPECT_TRUE(m.WriteLog4j(p, content));
    EXPECT_TRUE(log.entries().empty());
  }
  EXPECT_EQ(oxtest::readFile(properties), content);
}

TEST_F(MaintainTest, ASetterThatCannotLockTheFileWritesNothing) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  const std::string config = oxtest::readFile(path("Config.xml"));
  oxtest::LogCapture log;
  {
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kFlock, ENOLCK);
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(m.enableLog(0), 3);
    EXPECT_EQ(m.setLogDeviceTransparent(1), 3);
  }
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), config);
  EXPECT_EQ(m.isLogEnable(), 1);
  EXPECT_EQ(m.getLogDeviceTransparent(), 0);
  EXPECT_TRUE(log.contains("lock file failed, path["));
}

}  // namespace
