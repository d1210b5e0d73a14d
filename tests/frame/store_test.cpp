#include "frame/config_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/oxbase.h"
#include "support/test_support.h"

using OxBase::CXmlBase;

namespace {

class StoreTest : public oxtest::WorkDirTest {};

TEST_F(StoreTest, PathsAreTheWorkingDirectoryPlusTheFileName) {
  const std::string cwd = OX_BASE_GetCurDir();
  EXPECT_EQ(OxConfigMgr::getConfigFilePath(), cwd + "Config.xml");
  EXPECT_EQ(OxConfigMgr::getPrivateConfigFilePath(), cwd + "PrivateConfig.xml");
  EXPECT_EQ(OxConfigMgr::getARCConfigFilePath(), cwd + "ARCConfig.xml");
  EXPECT_EQ(OxConfigMgr::getConvertCodeCfgFilePath(), cwd + "ConvertCodeConfig.xml");
  EXPECT_EQ(OxConfigMgr::getQAPIConfigFilePath(), cwd + "QAPIConfig.xml");
  // Asked anew on every call.
  ASSERT_EQ(::mkdir(path("sub").c_str(), 0755), 0);
  ASSERT_EQ(::chdir(path("sub").c_str()), 0);
  EXPECT_EQ(OxConfigMgr::getConfigFilePath(), cwd + "sub/Config.xml");
}

TEST_F(StoreTest, ReadAndWriteFailuresLogTheSameText) {
  oxtest::LogCapture log;
  CXmlBase xml;
  EXPECT_EQ(OxConfigMgr::readConfigFile(xml), 0);
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].text.rfind("[readConfigFile(", 0), 0u);
  EXPECT_TRUE(log.has(5, "config file is not exist"));

  oxtest::writeFile(path("Config.xml"), "<Config><A>1</A></Config>");
  ASSERT_EQ(OxConfigMgr::readConfigFile(xml), 1);
  // Tests run as root, which ignores directory permissions: the failing
  // environment stands in for an unwritable directory.
  oxtest::FaultEnv env;
  env.failOn(oxtest::FaultEnv::kRename, EACCES);
  {
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(OxConfigMgr::writeConfigFile(xml), 0);
  }
  ASSERT_EQ(log.entries().size(), 2u);
  EXPECT_EQ(log.entries()[1].text.rfind("[writeConfigFile(", 0), 0u);
  EXPECT_EQ(log.entries()[1].level, 5);
  EXPECT_EQ(oxtest::LogCapture::body(log.entries()[1].text), "config file is not exist");
}

TEST_F(StoreTest, MissingOrBrokenConfigIsNeverCreated) {
  oxtest::writeFile(path("Config.xml"), "<Config><broken></Config>");
  CXmlBase xml;
  EXPECT_EQ(OxConfigMgr::readConfigFile(xml), 0);
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), "<Config><broken></Config>");
}

const char* kNew =
    "<Config><BasicInfo><Name>new</Name><SoftwareVersion>1.8.0.0</SoftwareVersion>"
    "<OnlyNew>keep</OnlyNew></BasicInfo><Network><HTTP><Port>80</Port></HTTP></Network></Config>";
const char* kOld =
    "<Config><Network><HTTP><Port>8080</Port><Extra>9</Extra></HTTP></Network>"
    "<OnlyOld><X>1</X></OnlyOld>"
    "<BasicInfo><SoftwareVersion>V1.5</SoftwareVersion><Name>old</Name></BasicInfo></Config>";

TEST_F(StoreTest, MergeTakesSharedLeavesFromTheSourceOnly) {
  CXmlBase dst, src;
  ASSERT_EQ(dst.Parse(kNew), 1);
  ASSERT_EQ(src.Parse(kOld), 1);
  ASSERT_TRUE(dst.SetRoot() && src.SetRoot());
  OxConfigMgr::copyXMLRecursive(dst, src, "SoftwareVersion");
  const std::string out = dst.ToString();
  EXPECT_NE(out.find("<Name>old</Name>"), std::string::npos);
  EXPECT_NE(out.find("<Port>8080</Port>"), std::string::npos);
  EXPECT_NE(out.find("<SoftwareVersion>1.8.0.0</SoftwareVersion>"), std::string::npos);
  EXPECT_NE(out.find("<OnlyNew>keep</OnlyNew>"), std::string::npos);
  EXPECT_EQ(out.find("Extra"), std::string::npos);
  EXPECT_EQ(out.find("OnlyOld"), std::string::npos);

  // Without an excluded name the version is copied too.
  ASSERT_EQ(dst.Parse(kNew), 1);
  ASSERT_TRUE(dst.SetRoot() && src.SetRoot());
  OxConfigMgr::copyXMLRecursive(dst, src, nullptr);
  EXPECT_NE(dst.ToString().find("<SoftwareVersion>V1.5</SoftwareVersion>"), std::string::npos);
}

TEST_F(StoreTest, MergeSurvivesDeepAndWideDocuments) {
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<a>";
  deep += "x";
  for (int i = 0; i < 5000; ++i) deep += "</a>";
  std::string wide = "<a>";
  for (int i = 0; i < 100000; ++i) wide += "<b>1</b>";
  wide += "</a>";
  CXmlBase d1, d2;
  ASSERT_EQ(d1.Parse(deep), 1);
  ASSERT_EQ(d2.Parse(deep), 1);
  ASSERT_TRUE(d1.SetRoot() && d2.SetRoot());
  OxConfigMgr::copyXMLRecursive(d1, d2, nullptr);
  ASSERT_EQ(d1.Parse(wide), 1);
  ASSERT_EQ(d2.Parse(wide), 1);
  ASSERT_TRUE(d1.SetRoot() && d2.SetRoot());
  OxConfigMgr::copyXMLRecursive(d1, d2, nullptr);
}

TEST_F(StoreTest, MergeChangesALeafByNameAndNeverAddsOne) {
  // Leaves are replaced by name on their level (the first of that name), as
  // the carry-over has always done; a second leaf of the same name keeps its
  // text, and an empty source text is taken like any other.
  CXmlBase dst, src;
  ASSERT_EQ(dst.Parse("<Config><P>d1</P><P>d2</P><E>x</E><Q><R>r</R></Q></Config>"), 1);
  ASSERT_EQ(src.Parse("<Config><P>s1</P><P>s2</P><E></E><Q>flat</Q></Config>"), 1);
  ASSERT_TRUE(dst.SetRoot() && src.SetRoot());
  OxConfigMgr::copyXMLRecursive(dst, src, nullptr);
  const std::string out = dst.ToString();
  EXPECT_NE(out.find("<P>s1</P>\n\t<P>d2</P>\n\t<E></E>\n\t<Q>\n\t\t<R>r</R>"), std::string::npos) << out;
}

// A chain of nested "a" elements, `levels` deep counting the root, with a
// leaf "v" holding `text` inside every element.
std::string nested(int levels, const std::string& text) {
  std::string doc;
  for (int i = 0; i < levels; ++i) doc += "<a><v>" + text + "</v>";
  for (int i = 0; i < levels; ++i) doc += "</a>";
  return doc;
}

TEST_F(StoreTest, MergeFollowsSixtyFourLevelsAndLeavesDeeperOnesAlone) {
  ASSERT_EQ(OxConfigMgr::kMergeDepthLimit, 64);
  CXmlBase dst, src;
  ASSERT_EQ(dst.Parse(nested(80, "old")), 1);
  ASSERT_EQ(src.Parse(nested(80, "new")), 1);
  ASSERT_TRUE(dst.SetRoot() && src.SetRoot());
  OxConfigMgr::copyXMLRecursive(dst, src, nullptr);
  // The root "a" is level 1, so the "v" inside the k-th "a" is level k + 1.
  ASSERT_TRUE(dst.SetRoot());
  for (int level = 2; level <= 81; ++level) {
    ASSERT_TRUE(dst.IntoElem());
    ASSERT_TRUE(dst.FindElem("v"));
    EXPECT_STREQ(dst.GetData(), level <= 64 ? "new" : "old") << "level " << level;
    ASSERT_TRUE(dst.FindElem("a") || level == 81);
  }
}

}  // namespace
