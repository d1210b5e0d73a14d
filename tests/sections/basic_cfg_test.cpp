#include <oxconfigmgr/OxConfigMgr.h>

#include <string>

#include "sections/sections_fixture.h"

namespace {

using OxConfigMgr::CBasicCfg;
using oxtest::FaultEnv;
using BasicCfgTest = oxtest::SectionsTest;

// "name|model|version|operating system|serial number|web session id".
std::string fields(const CBasicCfg& c) {
  return std::string(c.getProductName()) + "|" + c.getProductModel() + "|" + c.getVersion() + "|" +
         c.getOperatingSystem() + "|" + c.getSerialNo() + "|" + c.getWebSessionID();
}

TEST_F(BasicCfgTest, FactoryFileGainsASessionIdOnce) {
  oxtest::LogCapture log;
  CBasicCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string id = cfg.getWebSessionID();
  EXPECT_TRUE(id.size() == 10 && id.find_first_not_of("0123456789abcdef") == std::string::npos);
  EXPECT_EQ(fields(cfg),
            std::string("Device Access Gateway|ZX-AG2010/AC|1.8.0.0|") + kPrettyName + "||" + id);
  EXPECT_EQ(textAt({"Config", "BasicInfo", "WebSessionID"}), id);
  EXPECT_TRUE(log.has(3,
                      "---------Current Software Name:Device Access Gateway, "
                      "Model:ZX-AG2010/AC, Version:1.8.0.0"));
  EXPECT_TRUE(log.has(3, std::string("PRETTY_NAME: ") + kPrettyName));
  CBasicCfg again;
  EXPECT_EQ(untouched([&] { return again.loadFile(); }), 1);
  EXPECT_EQ(again.getWebSessionID(), id);

  // Another order, texts cut to their fields.
  replaceSection("BasicInfo",
                 "<WebSessionID>0123456789abcdef</WebSessionID><Model>M</Model>"
                 "<SoftwareVersion>V1.5</SoftwareVersion><Name>" +
                     std::string(40, 'n') + "</Name><ProductForm>x</ProductForm>");
  oxtest::writeFile(env_.osReleasePath, "PRETTY_NAME=\"" + std::string(300, 'p') + "\"\n");
  EXPECT_EQ(untouched([&] { return cfg.loadFile(); }), 1);
  EXPECT_EQ(fields(cfg),
            std::string(32, 'n') + "|M|V1.5|" + std::string(128, 'p') + "||0123456789");
}

TEST_F(BasicCfgTest, LoadFailures) {
  // A new identifier that cannot be written is used all the same.
  CBasicCfg cfg;
  EXPECT_EQ(untouched([&] { return cfg.loadFile(); }, FaultEnv::kRename), 1);
  EXPECT_EQ(std::string(cfg.getWebSessionID()).size(), 10u);

  removeAt({"Config", "BasicInfo", "WebSessionID"});  // present even when empty
  EXPECT_EQ(cfg.loadFile(), 0);
  removeAt({"Config", "BasicInfo"});
  EXPECT_EQ(cfg.loadFile(), 0);
  oxtest::writeFile(path("Config.xml"), "not xml");
  EXPECT_EQ(cfg.loadFile(), 0);
}

TEST_F(BasicCfgTest, SetProductNameCodes) {
  CBasicCfg cfg;
  const std::string name32(32, 'x');
  EXPECT_EQ(cfg.setProductName(name32.c_str()), 0);
  EXPECT_EQ(textAt({"Config", "BasicInfo", "Name"}), name32);
  // Refusals and failures change neither the file nor the name held.
  EXPECT_EQ(untouched([&] { return cfg.setProductName(std::string(33, 'y').c_str()); }), 1);
  EXPECT_EQ(untouched([&] { return cfg.setProductName(nullptr); }), 1);
  EXPECT_EQ(untouched([&] { return cfg.setProductName("Gate"); }, FaultEnv::kWrite), 3);
  removeAt({"Config", "BasicInfo", "Name"});
  EXPECT_EQ(cfg.setProductName("Gate"), 14);
  ::unlink(path("Config.xml").c_str());
  EXPECT_EQ(cfg.setProductName("Gate"), 2);
  EXPECT_EQ(cfg.getProductName(), name32);
}

TEST_F(BasicCfgTest, OsReleaseCountsQuotedValuesOnly) {
  // File content, PRETTY_NAME ("" when none).
  const char* const cases[][2] = {
      {"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", "Debian GNU/Linux 12 (bookworm)"},
      {"PRETTY_NAME=Unquoted\n", ""},
      // A later line wins; unquoted, empty and key-less lines are skipped.
      {"PRETTY_NAME=\"first\"\nPRETTY_NAME=\"second\"\n", "second"},
      {"PRETTY_NAME=\"first\"\nPRETTY_NAME=later\nPRETTY_NAME=\"\"\n", "first"},
      {"=\"x\"\nno equals sign\n\n\"PRETTY_NAME\"=\"q\"\n", ""},
      // Text after the closing quote is ignored; without one the value ends
      // with the line.
      {"PRETTY_NAME=\"A B\" # comment\r\n", "A B"},
      {"PRETTY_NAME=\"open ended\nID=x", "open ended"},
  };
  for (const auto& c : cases) {
    oxtest::writeFile(env_.osReleasePath, c[0]);
    std::string out;
    EXPECT_EQ(OxConfigMgr::GetOSVersion(out), *c[1] ? 1 : 0) << c[0];
    EXPECT_EQ(out, c[1]) << c[0];
  }
}

TEST_F(BasicCfgTest, WithoutAQuotedPrettyNameTheStartFailsUntilFixed) {
  oxtest::LogCapture log;
  oxtest::writeFile(env_.osReleasePath, "NAME=Debian\nPRETTY_NAME=Debian\n");
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "PRETTY_NAME not found in /etc/os-release"));
  EXPECT_TRUE(log.has(5, "CBasicCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetBasicCfg());
  ::unlink(env_.osReleasePath.c_str());
  std::string out = "kept";
  EXPECT_EQ(OxConfigMgr::GetLinuxOSVersion(out), 0);
  EXPECT_EQ(out, "kept");
  EXPECT_TRUE(log.has(5, "Unable to open /etc/os-release"));

  oxtest::writeFile(env_.osReleasePath, "PRETTY_NAME=\"Fixed\"\n");
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(OX_ConfigMgr_GetBasicCfg());
  EXPECT_STREQ(OX_ConfigMgr_GetBasicCfg()->getOperatingSystem(), "Fixed");
}

}  // namespace
