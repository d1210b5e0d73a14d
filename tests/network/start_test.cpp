// The network objects in the start sequence of the library.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>

#include "support/network_support.h"

namespace {

class NetworkStartTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    oxtest::copyFactory(dir());
    env_.setAdapters({nettest::adapter("eth0", {"192.0.2.10"})});
  }
};

TEST_F(NetworkStartTest, AMissingNatSectionStopsTheStartBeforeTheNetwork) {
  std::string text = config();
  const size_t begin = text.find("<NATGateway>"), end = text.find("</NATGateway>");
  ASSERT_NE(end, std::string::npos);
  oxtest::writeFile(path("Config.xml"), text.erase(begin, end + 13 - begin));
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CNATGateway loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetNATGateway());
  EXPECT_FALSE(OX_ConfigMgr_GetNetworkCfg());
}

TEST_F(NetworkStartTest, ANetworkStartFailureIsReportedAsItsLoadAndRetried) {
  env_.failAdapters(EIO);
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "CNetworkCfg loadFile falied"));
  EXPECT_TRUE(OX_ConfigMgr_GetNATGateway());
  EXPECT_FALSE(OX_ConfigMgr_GetNetworkCfg());

  // The next start resumes at the network once the interval has passed.
  env_.failAdapters(0);
  env_.advance(120000000);
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(OX_ConfigMgr_GetNetworkCfg());
  EXPECT_EQ(OX_ConfigMgr_GetNetworkCfg()->getGatewayInterIP(), "192.0.2.10");
  EXPECT_EQ(OX_ConfigMgr_GetNATGateway()->getMinHTTPPort(), 30000);
}

}  // namespace
