// CNATGateway: port ranges by protocol, with the protocol carried over to
// ranges that do not name a known one.
#include <oxconfigmgr/OxNATGateway.h>

#include <string>

#include "support/test_support.h"

using OxConfigMgr::CNATGateway;

namespace {

class NatTest : public oxtest::WorkDirTest {
 protected:
  void writeRanges(const std::string& ranges) {
    oxtest::writeFile(path("Config.xml"),
                      "<Config><Network/><NATGateway><PortRangeList>" + ranges +
                          "</PortRangeList></NATGateway></Config>");
  }
  static std::string range(const std::string& protocol, const std::string& min, const std::string& max) {
    std::string r = "<PortRange>";
    if (!protocol.empty()) r += "<Protocol>" + protocol + "</Protocol>";
    if (!min.empty()) r += "<min>" + min + "</min>";
    if (!max.empty()) r += "<max>" + max + "</max>";
    return r + "</PortRange>";
  }
};

TEST_F(NatTest, RangesGoToTheirProtocol) {
  writeRanges(range("HTTPS", "1", "2") + range("RTSP", "554", "654") + range("HTTP", "8000", "8100"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinRtspPort(), 554);
  EXPECT_EQ(nat.getMaxRtspPort(), 654);
  EXPECT_EQ(nat.getMinHTTPPort(), 8000);
  EXPECT_EQ(nat.getMaxHTTPPort(), 8100);
}

TEST_F(NatTest, TheFactoryRanges) {
  oxtest::copyFactory(dir());
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 30000);
  EXPECT_EQ(nat.getMaxHTTPPort(), 30099);
  EXPECT_EQ(nat.getMinRtspPort(), 30100);
  EXPECT_EQ(nat.getMaxRtspPort(), 30199);
}

TEST_F(NatTest, ProtocolNamesAreExact) {
  writeRanges(range("http", "1", "2") + range("RTSP ", "3", "4"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 0);
  EXPECT_EQ(nat.getMinRtspPort(), 0);
}

TEST_F(NatTest, TheLaterRangeOfAProtocolWins) {
  writeRanges(range("HTTP", "1", "2") + range("HTTP", "3", "4"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 3);
  EXPECT_EQ(nat.getMaxHTTPPort(), 4);
}

TEST_F(NatTest, ARangeWithoutAKnownProtocolContinuesThePreviousOne) {
  // Before any known protocol: ignored. After HTTP: replaces HTTP, also with
  // an unknown name; a missing bound keeps its value.
  writeRanges(range("", "9", "9") + range("HTTP", "1", "2") + range("", "5", "") +
              range("RTSP", "554", "654") + range("ftp", "", "700"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 5);
  EXPECT_EQ(nat.getMaxHTTPPort(), 2);
  EXPECT_EQ(nat.getMinRtspPort(), 554);
  EXPECT_EQ(nat.getMaxRtspPort(), 700);
}

TEST_F(NatTest, BoundsKeepSixteenBits) {
  writeRanges(range("RTSP", "70000", "x"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinRtspPort(), 4464);
  EXPECT_EQ(nat.getMaxRtspPort(), 0);
}

TEST_F(NatTest, ForeignElementsAndEmptyRangesAreSteppedOver) {
  writeRanges("<Note/>" + range("HTTP", "1", "2") + "<PortRange/><Other>x</Other>" + range("", "7", "8") +
              "<Trailing/>");
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 7);
  EXPECT_EQ(nat.getMaxHTTPPort(), 8);
}

TEST_F(NatTest, MissingElementsFail) {
  CNATGateway nat;
  EXPECT_FALSE(nat.loadFile());  // no file
  oxtest::writeFile(path("Config.xml"), "<Config><Network/></Config>");
  EXPECT_FALSE(nat.loadFile());
  oxtest::writeFile(path("Config.xml"), "<Config><NATGateway/></Config>");
  EXPECT_FALSE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort(), 0);
  EXPECT_EQ(nat.getMaxHTTPPort(), 0);
  EXPECT_EQ(nat.getMinRtspPort(), 0);
  EXPECT_EQ(nat.getMaxRtspPort(), 0);
  // An empty list exists and was walked.
  writeRanges("");
  EXPECT_TRUE(nat.loadFile());
}

TEST_F(NatTest, TheFileIsOnlyRead) {
  writeRanges(range("HTTP", "1", "2"));
  const std::string before = oxtest::readFile(path("Config.xml"));
  CNATGateway nat;
  ASSERT_TRUE(nat.loadFile());
  EXPECT_EQ(oxtest::readFile(path("Config.xml")), before);
}

}  // namespace
