#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

using OxConfigMgr::CDeviceMgmtCfg;

namespace {

class DeviceMgmtCfgTest : public oxtest::SectionsTest {
 protected:
  static std::string get(const CDeviceMgmtCfg& cfg) {
    std::string kind = "<unset>";
    EXPECT_EQ(cfg.getChecked(kind), 0);
    return kind;
  }
  std::string checked() { return textAt({"Config", "DeviceMgmt", "Checked"}); }
};

TEST_F(DeviceMgmtCfgTest, FileTextsMapToKinds) {
  CDeviceMgmtCfg cfg;
  EXPECT_EQ(get(cfg), "");
  const std::string before = config();
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(get(cfg), "AccessControl");
  EXPECT_EQ(config(), before);

  replaceSection("DeviceMgmt", "<DeviceMgmt><Other/><Checked>V</Checked></DeviceMgmt>");
  const std::string encoding = config();
  CDeviceMgmtCfg v;
  ASSERT_EQ(v.loadFile(), 1);
  EXPECT_EQ(get(v), "encodingDev");
  EXPECT_EQ(config(), encoding);
}

TEST_F(DeviceMgmtCfgTest, AnythingElseIsRewrittenAsAccessControl) {
  for (const char* text : {"X", "v", "ac", "encodingDev", ""}) {
    resetToFactory();
    setAt({"Config", "DeviceMgmt", "Checked"}, text);
    CDeviceMgmtCfg cfg;
    ASSERT_EQ(cfg.loadFile(), 1) << text;
    EXPECT_EQ(get(cfg), "AccessControl") << text;
    EXPECT_EQ(checked(), "AC") << text;
  }
  // A missing element or section is written with the default.
  resetToFactory();
  removeAt({"Config", "DeviceMgmt", "Checked"});
  CDeviceMgmtCfg noElement;
  ASSERT_EQ(noElement.loadFile(), 1);
  EXPECT_EQ(checked(), "AC");
  removeAt({"Config", "DeviceMgmt"});
  CDeviceMgmtCfg noSection;
  ASSERT_EQ(noSection.loadFile(), 1);
  EXPECT_EQ(get(noSection), "AccessControl");
  EXPECT_EQ(checked(), "AC");
  EXPECT_EQ(countAt({"Config"}, "DeviceMgmt"), 1);
}

TEST_F(DeviceMgmtCfgTest, LoadFailures) {
  setAt({"Config", "DeviceMgmt", "Checked"}, "X");
  env_.failOn(oxtest::FaultEnv::kOpen, EACCES);
  CDeviceMgmtCfg unwritable;
  EXPECT_EQ(unwritable.loadFile(), 0);
  EXPECT_EQ(get(unwritable), "");
  env_.failOn(oxtest::FaultEnv::kNone, 0);

  ASSERT_EQ(OSL_DeleteFile(path("Config.xml").c_str()), 0);
  CDeviceMgmtCfg noFile;
  EXPECT_EQ(noFile.loadFile(), 0);
}

TEST_F(DeviceMgmtCfgTest, UpdateChecked) {
  CDeviceMgmtCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.updateChecked("encodingDev"), 0);
  EXPECT_EQ(checked(), "V");
  EXPECT_EQ(get(cfg), "encodingDev");
  EXPECT_EQ(cfg.updateChecked("AccessControl"), 0);
  EXPECT_EQ(checked(), "AC");
  EXPECT_EQ(get(cfg), "AccessControl");

  // Only the interface's names are kinds.
  const std::string before = config();
  for (const char* bad : {"V", "AC", "accesscontrol", "", "encodingDev "}) {
    EXPECT_EQ(cfg.updateChecked(bad), 1) << bad;
  }
  EXPECT_EQ(cfg.updateChecked(std::string("encodingDev\0x", 13)), 1);
  EXPECT_EQ(config(), before);
  EXPECT_EQ(get(cfg), "AccessControl");

  env_.failOn(oxtest::FaultEnv::kClose, EIO);
  EXPECT_EQ(cfg.updateChecked("encodingDev"), 3);
  env_.failOn(oxtest::FaultEnv::kNone, 0);
  EXPECT_EQ(config(), before);
  EXPECT_EQ(get(cfg), "AccessControl");

  oxtest::writeFile(path("Config.xml"), "");
  EXPECT_EQ(cfg.updateChecked("encodingDev"), 2);
  oxtest::writeFile(path("Config.xml"), "<Other/>");
  EXPECT_EQ(cfg.updateChecked("encodingDev"), 1);
  EXPECT_EQ(get(cfg), "AccessControl");
}

}  // namespace
