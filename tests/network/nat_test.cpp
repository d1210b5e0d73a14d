// CNATGateway: port ranges by protocol, with the protocol carried over to
// ranges that do not name a known one.
#include <oxconfigmgr/OxNATGateway.h>

#include <string>
#include <vector>

#include "support/test_support.h"

using OxConfigMgr::CNATGateway;

namespace {

class NatTest : public oxtest::WorkDirTest {};

std::string range(const std::string& protocol, const std::string& min, const std::string& max) {
  std::string r = "<PortRange>";
  if (!protocol.empty()) r += "<Protocol>" + protocol + "</Protocol>";
  if (!min.empty()) r += "<min>" + min + "</min>";
  if (!max.empty()) r += "<max>" + max + "</max>";
  return r + "</PortRange>";
}

TEST_F(NatTest, RangesGoToTheirProtocol) {
  struct Case {
    const char* what;
    std::string ranges;
    std::vector<int> expected;  // min and max HTTP, min and max RTSP
  };
  const Case cases[] = {
      {"by name", range("HTTPS", "1", "2") + range("RTSP", "554", "654") + range("HTTP", "80", "90"),
       {80, 90, 554, 654}},
      {"names are exact", range("http", "1", "2") + range("RTSP ", "3", "4"), {0, 0, 0, 0}},
      {"the later range wins", range("HTTP", "1", "2") + range("HTTP", "3", "4"), {3, 4, 0, 0}},
      // Before any known protocol a range is ignored; after one it replaces
      // that protocol's range, a missing bound keeping its value.
      {"no known protocol", range("", "9", "9") + range("HTTP", "1", "2") + range("", "5", "") +
                                range("RTSP", "554", "654") + range("ftp", "", "700"),
       {5, 2, 554, 700}},
      {"sixteen bits", range("RTSP", "70000", "x"), {0, 0, 4464, 0}},
  };
  for (const Case& c : cases) {
    oxtest::writeFile(path("Config.xml"),
                      "<Config><NATGateway><PortRangeList>" + c.ranges + "</PortRangeList></NATGateway></Config>");
    CNATGateway nat;
    ASSERT_TRUE(nat.loadFile()) << c.what;
    EXPECT_EQ((std::vector<int>{nat.getMinHTTPPort(), nat.getMaxHTTPPort(), nat.getMinRtspPort(),
                                nat.getMaxRtspPort()}),
              c.expected)
        << c.what;
  }
}

TEST_F(NatTest, WithoutTheSectionTheLoadFailsAndThePortsStayZero) {
  oxtest::writeFile(path("Config.xml"), "<Config><Network/></Config>");
  CNATGateway nat;
  EXPECT_FALSE(nat.loadFile());
  EXPECT_EQ(nat.getMinHTTPPort() | nat.getMaxHTTPPort() | nat.getMinRtspPort() | nat.getMaxRtspPort(), 0);
}

}  // namespace
