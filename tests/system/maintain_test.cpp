// Maintenance settings: the Maintain section, the root logger line of
// "log4cxx.properties" and the library's logging following it, and the
// system-log connection.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <string>
#include <thread>
#include <vector>

#include "db/db_test_support.h"
#include "frame/config_store.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

using OxConfigMgr::CMaintain;

namespace {

const char kFactoryRootLine[] = "log4j.rootLogger=INFO, file";

class MaintainTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    factoryLog4j = oxtest::readFile(path("log4cxx.properties"));
  }
  std::string textAt(std::initializer_list<const char*> at) {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(path("Config.xml")) != 1 || !OxConfigMgr::xmlWalk(xml, at)) return "<absent>";
    return xml.GetData();
  }
  // Replaces the Maintain section of "Config.xml".
  void setMaintain(const std::string& inner) {
    std::string config = oxtest::readFile(path("Config.xml"));
    size_t from = config.find("<Maintain>"), to = config.find("</Maintain>");
    ASSERT_NE(from, std::string::npos);
    config.replace(from, to - from, "<Maintain>" + inner);
    oxtest::writeFile(path("Config.xml"), config);
  }
  // The factory properties file with its root logger line replaced.
  std::string log4jWithRootLine(const std::string& line) {
    std::string s = factoryLog4j;
    s.replace(s.find(kFactoryRootLine), sizeof kFactoryRootLine - 1, line);
    return s;
  }
  std::string factoryLog4j;
};

TEST_F(MaintainTest, LoadsTheSectionWithDefaultsForWhatIsOptional) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  EXPECT_EQ(m.isLogEnable(), 1);
  EXPECT_EQ(m.getLogLevel(), 3);
  EXPECT_EQ(m.getLogCleanupIntevalHour(), 1);
  EXPECT_EQ(m.getLogCleanupRetentionDay(), 200);
  EXPECT_EQ(m.getLogDeviceTransparent(), 0);

  setMaintain("<LogDeviceTransparent>5</LogDeviceTransparent><Log><Level>6</Level><Enable>0</Enable></Log>");
  CMaintain n;
  ASSERT_TRUE(n.loadFile());
  EXPECT_EQ(n.isLogEnable(), 0);
  EXPECT_EQ(n.getLogLevel(), 6);
  EXPECT_EQ(n.getLogCleanupIntevalHour(), 1);
  EXPECT_EQ(n.getLogCleanupRetentionDay(), 200);
  EXPECT_EQ(n.getLogDeviceTransparent(), 1);

  setMaintain("<Log><Enable>1</Enable><Level>2</Level></Log><LogCleanup><RetentionDay>30</RetentionDay>"
              "<IntervalHour>12</IntervalHour></LogCleanup>");
  CMaintain o;
  ASSERT_TRUE(o.loadFile());
  EXPECT_EQ(o.getLogCleanupIntevalHour(), 12);
  EXPECT_EQ(o.getLogCleanupRetentionDay(), 30);
  EXPECT_EQ(o.getLogDeviceTransparent(), 0);
  // The log file is not touched by a load.
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), factoryLog4j);
}

TEST_F(MaintainTest, ASectionWithoutTheLogSwitchOrLevelDoesNotLoad) {
  for (const char* inner : {"<Log><Level>2</Level></Log>", "<Log><Enable>1</Enable></Log>", "<Log/>", ""}) {
    setMaintain(inner);
    CMaintain m;
    EXPECT_FALSE(m.loadFile()) << inner;
  }
  ::unlink(path("Config.xml").c_str());
  CMaintain m;
  EXPECT_FALSE(m.loadFile());
}

TEST_F(MaintainTest, AFailingMaintenanceStepReportsWithTheUserStepsText) {
  setMaintain("<Log><Enable>1</Enable></Log>");
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CUserCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetLogCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetUserCfg());
  // Repaired, a retry resumes at this step.
  setMaintain("<Log><Enable>1</Enable><Level>4</Level></Log>");
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(OX_ConfigMgr_GetLogCfg());
  EXPECT_EQ(OX_ConfigMgr_GetLogCfg()->getLogLevel(), 4);
  EXPECT_TRUE(OX_ConfigMgr_GetUserCfg());
}

TEST_F(MaintainTest, SwitchAndLevelRewriteExactlyTheRootLoggerLevel) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  ASSERT_EQ(m.enableLog(0), 0);
  EXPECT_EQ(m.isLogEnable(), 0);
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Enable"}), "0");
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), log4jWithRootLine("log4j.rootLogger=OFF, file"));
  // Whatever the level, off stays off.
  ASSERT_EQ(m.setLogLevel(XLOG_DEBUG), 0);
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Level"}), "2");
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), log4jWithRootLine("log4j.rootLogger=OFF, file"));

  ASSERT_EQ(m.enableLog(1), 0);
  const char* names[] = {"ALL", "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"};
  for (int level = 0; level <= 7; ++level) {
    ASSERT_EQ(m.setLogLevel(static_cast<XLOG_LEVEL>(level)), 0);
    EXPECT_EQ(m.getLogLevel(), level);
    EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")),
              log4jWithRootLine(std::string("log4j.rootLogger=") + names[level] + ", file"));
  }
  // Outside 0..7 the number is stored and the logger is switched off.
  for (int level : {8, 99, -1}) {
    ASSERT_EQ(m.setLogLevel(static_cast<XLOG_LEVEL>(level)), 0);
    EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Level"}), std::to_string(level));
    EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), log4jWithRootLine("log4j.rootLogger=OFF, file"));
  }
  EXPECT_EQ(oxtest::fileMode(path("log4cxx.properties")), oxtest::fileMode(path("Config.xml")));
}

TEST_F(MaintainTest, ARootLoggerLineWithoutCommaOrNoneAtAllIsLeftAlone) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  const std::vector<std::string> untouched = {
      log4jWithRootLine("log4j.rootLogger=INFO"),            // no comma (one follows on a later line)
      "# log4j.rootLogger=INFO, file\nlog4j.appender.file=x\n",  // only a comment
      "log4j.logger.OXW=INFO, file\n",
      "",
  };
  for (const auto& content : untouched) {
    oxtest::writeFile(path("log4cxx.properties"), content);
    ASSERT_EQ(m.setLogLevel(XLOG_WARN), 0);
    EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), content);
  }
  // The line is found below a commented one, and only its level changes.
  oxtest::writeFile(path("log4cxx.properties"),
                    "#log4j.rootLogger=DEBUG, x\n  log4j.rootLogger=  INFO , file,other\nlog4j.a=b, c\n");
  ASSERT_EQ(m.setLogLevel(XLOG_ERROR), 0);
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")),
            "#log4j.rootLogger=DEBUG, x\n  log4j.rootLogger=ERROR, file,other\nlog4j.a=b, c\n");
}

TEST_F(MaintainTest, SetterResultsFollowTheFileAndMemoryOnlyFollowsSuccess) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  {
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kRename, EIO);
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(m.enableLog(0), 3);
    EXPECT_EQ(m.setLogLevel(XLOG_FATAL), 3);
    EXPECT_EQ(m.setLogDeviceTransparent(1), 3);
  }
  EXPECT_EQ(m.isLogEnable(), 1);
  EXPECT_EQ(m.getLogLevel(), 3);
  EXPECT_EQ(m.getLogDeviceTransparent(), 0);
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), factoryLog4j);

  setMaintain("<Log><Level>3</Level></Log>");
  const std::string noEnable = oxtest::readFile(path("Config.xml"));
  EXPECT_EQ(m.enableLog(0), 1);
  EXPECT_EQ(m.setLogDeviceTransparent(1), 1);
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), noEnable);
  EXPECT_EQ(m.setLogLevel(XLOG_WARN), 0);

  ::unlink(path("Config.xml").c_str());
  EXPECT_EQ(m.enableLog(0), 2);
  EXPECT_EQ(m.setLogLevel(XLOG_WARN), 2);
  EXPECT_EQ(m.setLogDeviceTransparent(1), 2);
  EXPECT_EQ(m.isLogEnable(), 1);
}

TEST_F(MaintainTest, DevicePassThroughIsStoredAndReadAsOnOrOff) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  ASSERT_EQ(m.setLogDeviceTransparent(7), 0);
  EXPECT_EQ(m.getLogDeviceTransparent(), 1);
  EXPECT_EQ(textAt({"Config", "Maintain", "LogDeviceTransparent"}), "7");
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), factoryLog4j);
  CMaintain reread;
  ASSERT_TRUE(reread.loadFile());
  EXPECT_EQ(reread.getLogDeviceTransparent(), 1);
  ASSERT_EQ(m.setLogDeviceTransparent(0), 0);
  EXPECT_EQ(m.getLogDeviceTransparent(), 0);
}

TEST_F(MaintainTest, TheLogFileIsReadAndWrittenWholeAndFailuresAreLogged) {
  CMaintain m;
  std::string p = path("log4cxx.properties"), content;
  ASSERT_TRUE(m.ReadLog4j(p, content));
  EXPECT_EQ(content, factoryLog4j);

  std::string missing = path("nosuch.properties");
  oxtest::LogCapture log;
  EXPECT_FALSE(m.ReadLog4j(missing, content));
  EXPECT_TRUE(log.has(5, "open file failed, path[" + missing + "],error[2]"));

  std::string shorter = "log4j.rootLogger=WARN, file\n";
  ASSERT_TRUE(m.WriteLog4j(p, shorter));
  EXPECT_EQ(oxtest::readFile(p), shorter);
  {
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
    oxtest::ScopedEnv scoped(&env);
    std::string longer = factoryLog4j;
    EXPECT_FALSE(m.WriteLog4j(p, longer));
    EXPECT_TRUE(log.has(5, "write file failed, elngth[" + std::to_string(longer.size()) + "]-[0],error[28]"));
  }
  EXPECT_EQ(oxtest::readFile(p), shorter);  // the old file stays whole

  // A missing log file leaves the setter's result alone.
  ::unlink(p.c_str());
  ASSERT_TRUE(m.loadFile());
  EXPECT_EQ(m.enableLog(0), 0);
  EXPECT_FALSE(oxtest::fileExists(p));
}

TEST_F(MaintainTest, LoggingReallyStopsWhenSwitchedOffAndResumesWhenSwitchedOn) {
  oxtest::writeFile(path("log4cxx.properties"),
                    "log4j.rootLogger=INFO, test\n"
                    "log4j.appender.test=org.apache.log4j.FileAppender\n"
                    "log4j.appender.test.File=" + path("test.log") + "\n"
                    "log4j.appender.test.ImmediateFlush=true\n"
                    "log4j.appender.test.layout=org.apache.log4j.PatternLayout\n"
                    "log4j.appender.test.layout.ConversionPattern=%m%n\n");
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  // A host that configured log4cxx itself keeps its configuration; this
  // process may have been configured by an earlier test's directory.
  xlog_reload(path("log4cxx.properties"));
  auto m = OX_ConfigMgr_GetLogCfg();
  ASSERT_TRUE(m);
  auto size = [&] { return oxtest::readFile(path("test.log")).size(); };

  OXLOG(5, "[%s(%d)] before switching off");
  const size_t before = size();
  ASSERT_GT(before, 0u);
  ASSERT_EQ(m->enableLog(0), 0);
  const size_t off = size();
  OXLOG(5, "[%s(%d)] while off");
  OXLOG(4, "[%s(%d)] while off");
  EXPECT_EQ(size(), off);

  ASSERT_EQ(m->enableLog(1), 0);
  OXLOG(5, "[%s(%d)] switched on again");
  EXPECT_GT(size(), off);
  EXPECT_NE(oxtest::readFile(path("test.log")).find("switched on again"), std::string::npos);
  EXPECT_EQ(oxtest::readFile(path("test.log")).find("while off"), std::string::npos);

  // Level ERROR: warnings are dropped, errors kept.
  ASSERT_EQ(m->setLogLevel(XLOG_ERROR), 0);
  const size_t atError = size();
  OXLOG(4, "[%s(%d)] a warning");
  EXPECT_EQ(size(), atError);
  OXLOG(5, "[%s(%d)] an error");
  EXPECT_GT(size(), atError);
  // Outside 0..7: off.
  ASSERT_EQ(m->setLogLevel(static_cast<XLOG_LEVEL>(12)), 0);
  const size_t atTwelve = size();
  OXLOG(5, "[%s(%d)] at twelve");
  EXPECT_EQ(size(), atTwelve);
}

TEST_F(MaintainTest, TheSystemLogConnectionRunsStatements) {
  CMaintain m;
  EXPECT_FALSE(m.dbBegin());
  EXPECT_FALSE(m.dbExecute("SELECT 1"));
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  auto log = OX_ConfigMgr_GetLogCfg();
  ASSERT_TRUE(log);

  const std::string insert =
      "INSERT INTO Syslog (RecordTime, UserName, IPAddress, object, result) "
      "VALUES (1700000000, 'admin', '10.0.0.5', 'login', 'ok')";
  ASSERT_TRUE(log->dbExecute(insert));
  auto r = oxtest::sqlShell("sqlite3", path("Syslog.db3"), "SELECT UserName, IPAddress, result FROM Syslog;\n");
  EXPECT_EQ(r.output, "admin|10.0.0.5|ok\n");

  ASSERT_TRUE(log->dbBegin());
  ASSERT_TRUE(log->dbExecute(insert, 100));
  ASSERT_TRUE(log->dbRollback());
  ASSERT_TRUE(log->dbBegin());
  ASSERT_TRUE(log->dbExecute(insert));
  ASSERT_TRUE(log->dbCommit());
  r = oxtest::sqlShell("sqlite3", path("Syslog.db3"), "SELECT count(*) FROM Syslog;\n");
  EXPECT_EQ(r.output, "2\n");
  EXPECT_FALSE(log->dbCommit());

  oxtest::LogCapture capture;
  EXPECT_FALSE(log->dbExecute("INSERT INTO Nowhere VALUES (1)"));
  EXPECT_TRUE(capture.has(5, "[sql=INSERT INTO Nowhere VALUES (1)]execute failed."));
  EXPECT_FALSE(log->dbExecute("NOT SQL", 10));
  EXPECT_TRUE(capture.has(5, "[sql=NOT SQL]execute failed."));

  // Another CMaintain shares the one connection.
  EXPECT_TRUE(m.dbExecute(insert));
  ASSERT_TRUE(log->stop());
  EXPECT_FALSE(log->dbExecute(insert));
  EXPECT_FALSE(m.dbBegin());
  EXPECT_TRUE(log->start());
  EXPECT_TRUE(m.dbExecute(insert));
}

TEST_F(MaintainTest, ConcurrentSwitchAndLevelChangesBothPersistAndTheLogLineFollowsTheLast) {
  CMaintain m;
  ASSERT_TRUE(m.loadFile());
  std::thread a([&] {
    for (int i = 0; i < 15; ++i) m.enableLog(i % 2);
    m.enableLog(1);
  });
  std::thread b([&] {
    for (int i = 0; i < 15; ++i) m.setLogLevel(static_cast<XLOG_LEVEL>(i % 8));
    m.setLogLevel(XLOG_WARN);
  });
  a.join();
  b.join();
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Enable"}), "1");
  EXPECT_EQ(textAt({"Config", "Maintain", "Log", "Level"}), "4");
  EXPECT_EQ(oxtest::readFile(path("log4cxx.properties")), log4jWithRootLine("log4j.rootLogger=WARN, file"));
}

}  // namespace
