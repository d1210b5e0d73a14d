#include "platform/xml_base.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/test_support.h"

using OxBase::CXmlBase;
using oxtest::readFile;
using oxtest::writeFile;

namespace {

class XmlBaseTest : public oxtest::WorkDirTest {};

const char* kDoc =
    "<?xml version=\"1.0\"?>\n"
    "<Config><Network><HTTP><ExternalPort>8080</ExternalPort><Port>80</Port></HTTP>"
    "<AddrList><Addr><IP>a</IP></Addr><Note>x</Note><Addr><IP>b</IP></Addr>"
    "<Addr><IP>c</IP></Addr><Trailer/></AddrList></Network>"
    "<BasicInfo><Name>gw</Name><WebSessionID></WebSessionID></BasicInfo></Config>";

TEST_F(XmlBaseTest, CursorStartsAboveRootAndFindsFieldsInAnyOrder) {
  CXmlBase xml;
  ASSERT_EQ(xml.Parse(kDoc), 1);
  EXPECT_STREQ(xml.GetNodeName(), "");
  ASSERT_TRUE(xml.FindElem("Config"));
  ASSERT_TRUE(xml.IntoElem());
  ASSERT_TRUE(xml.FindElem("Network"));
  ASSERT_TRUE(xml.IntoElem());
  ASSERT_TRUE(xml.FindElem("HTTP"));
  ASSERT_TRUE(xml.IntoElem());
  // Listed as ExternalPort, Port; read as Port, ExternalPort, Port.
  ASSERT_TRUE(xml.FindElem("Port"));
  EXPECT_STREQ(xml.GetData(), "80");
  ASSERT_TRUE(xml.FindElem("ExternalPort"));
  EXPECT_STREQ(xml.GetData(), "8080");
  ASSERT_TRUE(xml.FindElem("Port"));
  EXPECT_STREQ(xml.GetData(), "80");
  EXPECT_FALSE(xml.FindElem("Missing"));
  EXPECT_STREQ(xml.GetNodeName(), "Port");  // a failed find leaves the cursor
}

TEST_F(XmlBaseTest, RepeatedElementsAreVisitedOnceInOrderAmongForeignOnes) {
  CXmlBase xml;
  ASSERT_EQ(xml.Parse(kDoc), 1);
  ASSERT_TRUE(xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("Network") && xml.IntoElem() &&
              xml.FindElem("AddrList") && xml.IntoElem());
  std::vector<std::string> seen;
  for (bool more = xml.FindElem("Addr"); more && seen.size() < 10; more = xml.FindNextElem("Addr")) {
    ASSERT_TRUE(xml.IntoElem());
    ASSERT_TRUE(xml.FindElem("IP"));
    seen.push_back(xml.GetData());
    ASSERT_TRUE(xml.OutOfElem());
    EXPECT_STREQ(xml.GetNodeName(), "Addr");
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(XmlBaseTest, NavigationRefusals) {
  CXmlBase xml;
  ASSERT_EQ(xml.Parse(kDoc), 1);
  EXPECT_FALSE(xml.OutOfElem());  // already at the top
  EXPECT_FALSE(xml.IntoElem());   // nothing current
  ASSERT_TRUE(xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("BasicInfo") && xml.IntoElem());
  ASSERT_TRUE(xml.FindElem("Name"));
  EXPECT_FALSE(xml.IntoElem());  // a leaf
  EXPECT_STREQ(xml.GetNodeName(), "Name");
  ASSERT_TRUE(xml.NextSibElem());
  EXPECT_STREQ(xml.GetNodeName(), "WebSessionID");
  EXPECT_FALSE(xml.NextSibElem());  // the end
  EXPECT_STREQ(xml.GetNodeName(), "WebSessionID");
  ASSERT_TRUE(xml.OutOfElem());
  EXPECT_STREQ(xml.GetNodeName(), "BasicInfo");
  EXPECT_EQ(xml.GetChildren(), 2);
}

TEST_F(XmlBaseTest, ModifyDataChangesExistingElementsOnly) {
  CXmlBase xml;
  ASSERT_EQ(xml.Parse(kDoc), 1);
  ASSERT_TRUE(xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("BasicInfo") && xml.IntoElem());
  EXPECT_EQ(xml.ModifyData("WebSessionID", "0123456789"), 1);  // empty element gains text
  EXPECT_EQ(xml.ModifyData("Name", "renamed"), 1);
  EXPECT_EQ(xml.ModifyData("Absent", "x"), 0);
  ASSERT_TRUE(xml.FindElem("WebSessionID"));
  EXPECT_STREQ(xml.GetData(), "0123456789");
  ASSERT_TRUE(xml.FindElem("Name"));
  EXPECT_STREQ(xml.GetData(), "renamed");
  EXPECT_EQ(xml.ToString().find("Absent"), std::string::npos);
}

TEST_F(XmlBaseTest, AddNodeBuildsNestedElementsAndRemoveNodeKeepsTheWalk) {
  CXmlBase xml;
  ASSERT_EQ(xml.Parse("<Config><A/></Config>"), 1);
  ASSERT_TRUE(xml.SetRoot());
  ASSERT_TRUE(xml.AddNode("Section"));
  ASSERT_TRUE(xml.AddNode("One", "1"));
  ASSERT_TRUE(xml.AddNode("Two", "2"));
  ASSERT_TRUE(xml.AddNode("Inner"));
  ASSERT_TRUE(xml.AddNode("Leaf", "x"));
  ASSERT_TRUE(xml.OutOfElem());
  EXPECT_STREQ(xml.GetNodeName(), "Section");
  ASSERT_TRUE(xml.OutOfElem());
  EXPECT_STREQ(xml.GetNodeName(), "Config");
  EXPECT_NE(xml.ToString().find("<Section>\n\t\t<One>1</One>\n\t\t<Two>2</Two>\n\t\t<Inner>\n\t\t\t<Leaf>x</Leaf>"),
            std::string::npos)
      << xml.ToString();

  // Removing inside a walk: the walk continues with the following element.
  ASSERT_EQ(xml.Parse("<R><X>1</X><Y/><X>2</X><X>3</X></R>"), 1);
  ASSERT_TRUE(xml.FindElem("R") && xml.IntoElem());
  std::vector<std::string> kept;
  for (bool more = xml.FindElem("X"); more; more = xml.FindNextElem("X")) {
    if (std::string(xml.GetData()) == "2") {
      ASSERT_TRUE(xml.RemoveNode());
    } else {
      kept.push_back(xml.GetData());
    }
  }
  EXPECT_EQ(kept, (std::vector<std::string>{"1", "3"}));
  ASSERT_TRUE(xml.OutOfElem());
  EXPECT_EQ(xml.RemoveChildren("X"), 2);
  EXPECT_TRUE(xml.RemoveNode("Y"));
  EXPECT_FALSE(xml.RemoveNode("Y"));
  EXPECT_EQ(xml.GetChildren(), 0);
}

TEST_F(XmlBaseTest, AddNodeCopiesAnotherDocumentAndAttributesWork) {
  CXmlBase src, dst;
  ASSERT_EQ(src.Parse("<Storage><Key>k</Key><IV>v</IV></Storage>"), 1);
  ASSERT_EQ(dst.Parse("<PrivateConfig><Encrypt><QAPI/></Encrypt></PrivateConfig>"), 1);
  ASSERT_TRUE(dst.FindElem("PrivateConfig") && dst.IntoElem() && dst.FindElem("Encrypt"));
  ASSERT_TRUE(dst.AddNode(src));
  EXPECT_STREQ(dst.GetNodeName(), "Storage");
  ASSERT_TRUE(dst.SetAttribute("NyxCode", "ZONE_ALARM"));
  EXPECT_STREQ(dst.GetAttributeValue("NyxCode"), "ZONE_ALARM");
  EXPECT_STREQ(dst.GetAttributeValue("Other"), "");
  EXPECT_NE(dst.ToString().find("<Encrypt>\n\t\t<QAPI />\n\t\t<Storage NyxCode=\"ZONE_ALARM\">\n\t\t\t<Key>k</Key>"),
            std::string::npos)
      << dst.ToString();
}

TEST_F(XmlBaseTest, BadInputIsRefusedWithoutCrashing) {
  CXmlBase xml;
  EXPECT_EQ(xml.LoadFile(path("missing.xml")), 0);
  writeFile(path("empty.xml"), "");
  EXPECT_EQ(xml.LoadFile(path("empty.xml")), 0);
  writeFile(path("broken.xml"), "<Config><Network></Config>");
  EXPECT_EQ(xml.LoadFile(path("broken.xml")), 0);
  EXPECT_FALSE(xml.FindElem("Config"));
  EXPECT_EQ(xml.Parse(static_cast<const char*>(nullptr)), 0);
  EXPECT_EQ(xml.LoadFile(static_cast<const char*>(nullptr)), 0);

  // Just over the limit: refused before parsing.
  std::string big = "<Config>" + std::string(CXmlBase::kMaxFileBytes, ' ') + "</Config>";
  writeFile(path("big.xml"), big);
  EXPECT_EQ(xml.LoadFile(path("big.xml")), 0);
  EXPECT_STREQ(xml.GetNodeName(), "");
}

TEST_F(XmlBaseTest, WriteToFileKeepsPermissionsAndIndents) {
  writeFile(path("Config.xml"), "<Config><A>1</A></Config>");
  ASSERT_EQ(::chmod(path("Config.xml").c_str(), 0640), 0);
  CXmlBase xml;
  ASSERT_EQ(xml.LoadFile(path("Config.xml")), 1);
  ASSERT_TRUE(xml.FindElem("Config") && xml.IntoElem());
  ASSERT_EQ(xml.ModifyData("A", "2"), 1);
  ASSERT_EQ(xml.WriteToFile(path("Config.xml")), 1);
  EXPECT_EQ(oxtest::fileMode(path("Config.xml")), 0640u);
  EXPECT_EQ(readFile(path("Config.xml")), "<?xml version=\"1.0\"?>\n<Config>\n\t<A>2</A>\n</Config>\n");

  ASSERT_EQ(xml.WriteToFile(path("Secret.xml"), OxBase::FileMode::kSecret), 1);
  EXPECT_EQ(oxtest::fileMode(path("Secret.xml")), 0600u);
  ASSERT_EQ(::chmod(path("Secret.xml").c_str(), 0644), 0);
  ASSERT_EQ(xml.WriteToFile(path("Secret.xml"), OxBase::FileMode::kSecret), 1);
  EXPECT_EQ(oxtest::fileMode(path("Secret.xml")), 0600u);  // tightened on rewrite
}

}  // namespace
