#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/osl.h"
#include "sections/sections_fixture.h"

using OxConfigMgr::CHttpHostCfg;
using OxConfigMgr::tagHttpHostInfo;

namespace {

class HttpHostCfgTest : public oxtest::SectionsTest {
 protected:
  static tagHttpHostInfo info(const std::string& ip, int port, const std::string& url,
                              int enable = 1) {
    tagHttpHostInfo i;
    i.enable = enable;
    i.port = port;
    OSL_Strncpy(i.ip, ip.c_str(), sizeof i.ip);
    OSL_Strncpy(i.url, url.c_str(), sizeof i.url);
    return i;
  }
  static tagHttpHostInfo get(const CHttpHostCfg& cfg) {
    tagHttpHostInfo i;
    EXPECT_EQ(cfg.getHttpHostInfo(i), 0);
    return i;
  }
  std::string hostText(const char* name) {
    return textAt({"Config", "HttpHostNotificationList", "HttpHostNotification", name});
  }
  void writeHost(const std::string& inner) {
    replaceSection("HttpHostNotificationList",
                   "<HttpHostNotificationList><HttpHostNotification>" + inner +
                       "</HttpHostNotification></HttpHostNotificationList>");
  }
};

TEST_F(HttpHostCfgTest, FactoryFileLoads) {
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  tagHttpHostInfo i = get(cfg);
  EXPECT_EQ(i.enable, 0);
  EXPECT_STREQ(i.ip, "0.0.0.0");
  EXPECT_EQ(i.port, 8080);
  EXPECT_STREQ(i.url, "/notification");
}

TEST_F(HttpHostCfgTest, HandEditedFiles) {
  // Other order, non-numeric port, any non-zero enable, over-long texts cut.
  writeHost("<url>" + std::string(3000, 'u') +
            "</url><Port>abc</Port><IP>1234567890123456789</IP>"
            "<Enable>3</Enable>");
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  tagHttpHostInfo i = get(cfg);
  EXPECT_EQ(i.enable, 1);
  EXPECT_EQ(i.port, 0);
  EXPECT_EQ(std::string(i.ip), "123456789012345");
  EXPECT_EQ(std::string(i.url), std::string(2048, 'u'));

  // Missing children keep the defaults.
  writeHost("<Port>81</Port>");
  CHttpHostCfg partial;
  ASSERT_EQ(partial.loadFile(), 1);
  i = get(partial);
  EXPECT_EQ(i.port, 81);
  EXPECT_EQ(i.enable, 0);
  EXPECT_STREQ(i.ip, "");
  EXPECT_STREQ(i.url, "");
}

TEST_F(HttpHostCfgTest, TheSectionIsRequired) {
  removeAt({"Config", "HttpHostNotificationList", "HttpHostNotification"});
  CHttpHostCfg noHost;
  EXPECT_EQ(noHost.loadFile(), 0);
  removeAt({"Config", "HttpHostNotificationList"});
  CHttpHostCfg noList;
  EXPECT_EQ(noList.loadFile(), 0);
  EXPECT_EQ(noList.setHttpHostInfo(info("10.0.0.2", 80, "/x")), 1);
  ASSERT_EQ(OSL_DeleteFile(path("Config.xml").c_str()), 0);
  CHttpHostCfg noFile;
  EXPECT_EQ(noFile.loadFile(), 0);
}

TEST_F(HttpHostCfgTest, SetWritesTheRecord) {
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  EXPECT_EQ(cfg.setHttpHostInfo(info("192.168.100.200", 65535, "/a?b=1&c=<d>", 5)), 0);
  EXPECT_EQ(hostText("Enable"), "1");
  EXPECT_EQ(hostText("IP"), "192.168.100.200");
  EXPECT_EQ(hostText("Port"), "65535");
  EXPECT_EQ(hostText("url"), "/a?b=1&c=<d>");
  // Memory holds the record as given.
  tagHttpHostInfo i = get(cfg);
  EXPECT_EQ(i.enable, 5);
  EXPECT_EQ(i.port, 65535);

  const std::string url2048(2048, 'v');
  EXPECT_EQ(cfg.setHttpHostInfo(info("1.2.3.4", 0, url2048, 0)), 0);
  EXPECT_EQ(hostText("url"), url2048);
  EXPECT_EQ(hostText("Port"), "0");
  EXPECT_EQ(hostText("Enable"), "0");
  EXPECT_EQ(std::string(get(cfg).url), url2048);

  CHttpHostCfg reloaded;
  ASSERT_EQ(reloaded.loadFile(), 1);
  EXPECT_EQ(std::string(get(reloaded).url), url2048);
}

TEST_F(HttpHostCfgTest, BadArgumentsChangeNothing) {
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string before = config();

  tagHttpHostInfo unterminatedIp = info("1.2.3.4", 80, "/u");
  std::memset(unterminatedIp.ip, '1', sizeof unterminatedIp.ip);
  tagHttpHostInfo unterminatedUrl = info("1.2.3.4", 80, "/u");
  std::memset(unterminatedUrl.url, 'u', sizeof unterminatedUrl.url);

  const tagHttpHostInfo bad[] = {
      info("", 80, "/u"),
      info("1234567890123456", 80, "/u"),  // 16 characters
      unterminatedIp,
      info("1.2.3.4", 80, ""),
      info("1.2.3.4", 80, std::string(2049, 'u')),
      unterminatedUrl,
      info("1.2.3.4", -1, "/u"),
      info("1.2.3.4", 65536, "/u"),
      info("1.2.3.4", 2147483647, "/u"),
  };
  for (size_t n = 0; n < sizeof bad / sizeof bad[0]; ++n) {
    EXPECT_EQ(cfg.setHttpHostInfo(bad[n]), 1) << n;
    EXPECT_EQ(config(), before) << n;
    tagHttpHostInfo i = get(cfg);
    EXPECT_EQ(i.port, 8080) << n;
    EXPECT_STREQ(i.ip, "0.0.0.0") << n;
    EXPECT_STREQ(i.url, "/notification") << n;
  }
}

TEST_F(HttpHostCfgTest, FileFailures) {
  CHttpHostCfg cfg;
  ASSERT_EQ(cfg.loadFile(), 1);
  const std::string before = config();
  env_.failOn(oxtest::FaultEnv::kFsync, EIO);
  EXPECT_EQ(cfg.setHttpHostInfo(info("10.1.1.1", 81, "/n")), 3);
  env_.failOn(oxtest::FaultEnv::kNone, 0);
  EXPECT_EQ(config(), before);
  EXPECT_EQ(get(cfg).port, 8080);

  oxtest::writeFile(path("Config.xml"), "<Config><broken></Config>");
  EXPECT_EQ(cfg.setHttpHostInfo(info("10.1.1.1", 81, "/n")), 2);
  EXPECT_EQ(get(cfg).port, 8080);
}

}  // namespace
