#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

using OxConfigMgr::CBasicCfg;

namespace {

class BasicCfgTest : public oxtest::SectionsTest {
 protected:
  bool isSessionId(const std::string& id) {
    return id.size() == 10 && id.find_first_not_of("0123456789abcdef") == std::string::npos;
  }
};

TEST_F(BasicCfgTest, FactoryFileLoadsAndGainsASessionIdOnce) {
  oxtest::LogCapture log;
  CBasicCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_STREQ(cfg.getProductName(), "Device Access Gateway");
  EXPECT_STREQ(cfg.getProductModel(), "ZX-AG2010/AC");
  EXPECT_STREQ(cfg.getVersion(), "1.8.0.0");
  EXPECT_STREQ(cfg.getOperatingSystem(), kPrettyName);
  EXPECT_STREQ(cfg.getSerialNo(), "");
  EXPECT_TRUE(log.has(3,
                      "---------Current Software Name:Device Access Gateway, Model:ZX-AG2010/AC, "
                      "Version:1.8.0.0"));
  EXPECT_TRUE(log.has(3, std::string("PRETTY_NAME: ") + kPrettyName));

  const std::string id = cfg.getWebSessionID();
  EXPECT_TRUE(isSessionId(id)) << id;
  EXPECT_EQ(textAt({"Config", "BasicInfo", "WebSessionID"}), id);

  // The next load keeps it and leaves the file alone.
  const std::string before = config();
  CBasicCfg again;
  ASSERT_EQ(again.loadFile(), 1);
  EXPECT_EQ(again.getWebSessionID(), id);
  EXPECT_EQ(config(), before);

  // Another installation gets another identifier.
  setAt({"Config", "BasicInfo", "WebSessionID"}, "");
  CBasicCfg fresh;
  ASSERT_EQ(fresh.loadFile(), 1);
  EXPECT_TRUE(isSessionId(fresh.getWebSessionID()));
  EXPECT_NE(fresh.getWebSessionID(), id);
}

TEST_F(BasicCfgTest, HandEditedFileWithOtherOrderAndLongTexts) {
  replaceSection("BasicInfo",
                 "<BasicInfo><WebSessionID>0123456789abcdef</WebSessionID>"
                 "<SoftwareVersion>V1.5</SoftwareVersion><Model>ZX-AG2010/V</Model>"
                 "<Name>" +
                     std::string(40, 'n') + "</Name><ProductForm>abc</ProductForm></BasicInfo>");
  const std::string before = config();
  CBasicCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(std::string(cfg.getProductName()), std::string(32, 'n'));
  EXPECT_STREQ(cfg.getProductModel(), "ZX-AG2010/V");
  EXPECT_STREQ(cfg.getVersion(), "V1.5");
  EXPECT_STREQ(cfg.getWebSessionID(), "0123456789");
  EXPECT_EQ(config(), before);
}

TEST_F(BasicCfgTest, EveryElementIsRequired) {
  for (const char* name : {"ProductForm", "Name", "Model", "SoftwareVersion", "WebSessionID"}) {
    resetToFactory();
    removeAt({"Config", "BasicInfo", name});
    CBasicCfg cfg;
    EXPECT_EQ(cfg.loadFile(), 0) << name;
  }
  resetToFactory();
  removeAt({"Config", "BasicInfo"});
  CBasicCfg noSection;
  EXPECT_EQ(noSection.loadFile(), 0);

  oxtest::LogCapture log;
  oxtest::writeFile(path("Config.xml"), "not xml");
  CBasicCfg unreadable;
  EXPECT_EQ(unreadable.loadFile(), 0);
  EXPECT_TRUE(log.has(5, "config file is not exist"));
}

TEST_F(BasicCfgTest, AnUnwritableFileKeepsTheNewIdentifierInMemoryOnly) {
  oxtest::LogCapture log;
  env_.failOn(oxtest::FaultEnv::kRename, EACCES);
  CBasicCfg cfg;
  EXPECT_EQ(cfg.loadFile(), 1);
  EXPECT_TRUE(isSessionId(cfg.getWebSessionID()));
  EXPECT_EQ(textAt({"Config", "BasicInfo", "WebSessionID"}), "");
  EXPECT_TRUE(log.has(5, "config file is not exist"));
}

TEST_F(BasicCfgTest, SetProductNameCodes) {
  CBasicCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string name32(32, 'x');
  EXPECT_EQ(cfg.setProductName(name32.c_str()), 0);
  EXPECT_EQ(cfg.getProductName(), name32);
  EXPECT_EQ(textAt({"Config", "BasicInfo", "Name"}), name32);

  // Bad arguments change nothing.
  std::string before = config();
  EXPECT_EQ(cfg.setProductName(std::string(33, 'y').c_str()), 1);
  EXPECT_EQ(cfg.setProductName(std::string(5000, 'y').c_str()), 1);
  EXPECT_EQ(cfg.setProductName(nullptr), 1);
  EXPECT_EQ(config(), before);
  EXPECT_EQ(cfg.getProductName(), name32);

  // Markup is text, not structure.
  EXPECT_EQ(cfg.setProductName("a</Name><Model>b"), 0);
  EXPECT_EQ(textAt({"Config", "BasicInfo", "Name"}), "a</Name><Model>b");
  EXPECT_EQ(textAt({"Config", "BasicInfo", "Model"}), "ZX-AG2010/AC");

  env_.failOn(oxtest::FaultEnv::kWrite, ENOSPC);
  before = config();
  EXPECT_EQ(cfg.setProductName("Gate"), 3);
  EXPECT_STREQ(cfg.getProductName(), "a</Name><Model>b");
  EXPECT_EQ(config(), before);
  env_.failOn(oxtest::FaultEnv::kNone, 0);

  removeAt({"Config", "BasicInfo", "Name"});
  EXPECT_EQ(cfg.setProductName("Gate"), 14);
  removeAt({"Config", "BasicInfo"});
  EXPECT_EQ(cfg.setProductName("Gate"), 14);
  oxtest::writeFile(path("Config.xml"), "<Other/>");
  EXPECT_EQ(cfg.setProductName("Gate"), 14);
  ASSERT_EQ(OSL_DeleteFile(path("Config.xml").c_str()), 0);
  EXPECT_EQ(cfg.setProductName("Gate"), 2);
  EXPECT_STREQ(cfg.getProductName(), "a</Name><Model>b");
}

TEST_F(BasicCfgTest, SerialNumberIsNeverKnown) {
  std::string out = "kept";
  EXPECT_EQ(OxConfigMgr::GetSerialNo(out), 0);
  EXPECT_EQ(out, "kept");
}

// ---- the os-release file ---------------------------------------------------

class OsReleaseTest : public oxtest::SectionsTest {
 protected:
  // PRETTY_NAME read from `content`, or "<none>".
  std::string prettyName(const std::string& content) {
    oxtest::writeFile(env_.osReleasePath, content);
    std::string out = "<none>";
    int rc = OxConfigMgr::GetLinuxOSVersion(out);
    std::string viaOs = "<none>";
    EXPECT_EQ(OxConfigMgr::GetOSVersion(viaOs), rc);
    EXPECT_EQ(viaOs, out);
    EXPECT_EQ(rc == 1, out != "<none>");
    return out;
  }
};

TEST_F(OsReleaseTest, OnlyQuotedValuesCount) {
  EXPECT_EQ(prettyName("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"),
            "Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(prettyName("PRETTY_NAME=Unquoted\n"), "<none>");
  // A later line wins; unquoted, empty and key-less lines are skipped.
  EXPECT_EQ(prettyName("PRETTY_NAME=\"first\"\nPRETTY_NAME=\"second\"\n"), "second");
  EXPECT_EQ(prettyName("PRETTY_NAME=\"first\"\nPRETTY_NAME=later\nPRETTY_NAME=\"\"\n"), "first");
  EXPECT_EQ(prettyName("=\"x\"\nno equals sign\n\n\"PRETTY_NAME\"=\"q\"\n"), "<none>");
  // Text after the closing quote is ignored; a missing closing quote keeps
  // the rest of the line.
  EXPECT_EQ(prettyName("PRETTY_NAME=\"A B\" # comment\n"), "A B");
  EXPECT_EQ(prettyName("PRETTY_NAME=\"open ended"), "open ended");
  EXPECT_EQ(prettyName("PRETTY_NAME=\"crlf\"\r\nID=x\r\n"), "crlf");
  EXPECT_EQ(prettyName(""), "<none>");
  EXPECT_EQ(prettyName(std::string("PRETTY_NAME=\"a\0b\"", 17)), std::string("a\0b", 3));
}

TEST_F(OsReleaseTest, FailuresAreLogged) {
  oxtest::LogCapture log;
  EXPECT_EQ(prettyName("NAME=Debian\nPRETTY_NAME=Debian\n"), "<none>");
  EXPECT_TRUE(log.has(5, "PRETTY_NAME not found in /etc/os-release"));
  EXPECT_FALSE(log.contains("Unable to open"));

  env_.osReleasePath = path("no-such-file");
  std::string out = "kept";
  EXPECT_EQ(OxConfigMgr::GetLinuxOSVersion(out), 0);
  EXPECT_EQ(out, "kept");
  EXPECT_TRUE(log.has(5, "Unable to open /etc/os-release"));

  CBasicCfg cfg;
  EXPECT_EQ(cfg.loadFile(), 0);
  EXPECT_STREQ(cfg.getOperatingSystem(), "");
  // Fields read before the failure keep their values.
  EXPECT_STREQ(cfg.getProductName(), "Device Access Gateway");
}

TEST_F(OsReleaseTest, UnquotedValuesOnlyFailTheStart) {
  oxtest::writeFile(env_.osReleasePath, "NAME=Debian\nPRETTY_NAME=Debian\nID=debian\n");
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "PRETTY_NAME not found in /etc/os-release"));
  EXPECT_TRUE(log.has(5, "CBasicCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetBasicCfg());

  // A retry after the file is fixed resumes and succeeds.
  oxtest::writeFile(env_.osReleasePath, "PRETTY_NAME=\"Fixed\"\n");
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(OX_ConfigMgr_GetBasicCfg());
  EXPECT_STREQ(OX_ConfigMgr_GetBasicCfg()->getOperatingSystem(), "Fixed");
}

TEST_F(OsReleaseTest, LongNamesAreCutTo128Characters) {
  oxtest::writeFile(env_.osReleasePath, "PRETTY_NAME=\"" + std::string(300, 'p') + "\"\n");
  CBasicCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(std::string(cfg.getOperatingSystem()), std::string(128, 'p'));
}

}  // namespace
