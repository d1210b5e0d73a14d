// An archive exported by another gateway (a separate oxcfg process in its own
// directory) imported into this one.
#include <stdlib.h>
#include <sys/stat.h>

#include <oxconfigmgr/OxUserCfg.h>

#include "transfer/transfer_fixture.h"

namespace oxtest {
namespace {

class CrossGatewayTest : public TransferTest {
 protected:
  // The subtree of `Config/Network/AddrList` as text.
  static std::string addrList(const std::string& file) {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(file) != 1 || !OxConfigMgr::xmlWalk(xml, {"Config", "Network", "AddrList"})) return "";
    return xml.GetElemXml();
  }
  static std::string natGateway(const std::string& file) {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(file) != 1 || !OxConfigMgr::xmlWalk(xml, {"Config", "NATGateway"})) return "";
    return xml.GetElemXml();
  }
};

TEST_F(CrossGatewayTest, ValuesMergeWhileLocalSectionsVersionAndAdministratorStay) {
  ::setenv("ASAN_OPTIONS", "new_delete_type_mismatch=0", 0);
  // The other gateway: its own values, address list and administrator.
  const std::string other = path("other");
  auto r = runCommand({OXCFG_CLI_PATH, "init", other});
  ASSERT_EQ(r.exitCode, 0) << r.output;
  const std::string otherCfg = other + "/Config.xml";
  ASSERT_TRUE(setXmlText(otherCfg, {"Config", "Network", "HTTP", "Port"}, "8081"));
  ASSERT_TRUE(setXmlText(otherCfg, {"Config", "EventSubCfg", "Enable"}, "1"));
  ASSERT_TRUE(setXmlText(otherCfg, {"Config", "WispListenCfg", "Enable"}, "0"));
  ASSERT_TRUE(setXmlText(otherCfg, {"Config", "BasicInfo", "SoftwareVersion"}, "1.7.0.0"));
  ASSERT_TRUE(setXmlText(other + "/PrivateConfig.xml", {"PrivateConfig", "LDM", "LDMPort"}, "7777"));
  ASSERT_TRUE(setXmlText(other + "/QAPIConfig.xml", {"Config", "QAPIConfig", "Mode"}, "other-mode"));
  r = runOxcfgIn(other, {"passwd"}, "alpha password\n");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  writeFile(other + "/nginx/conf/cert.key", "OTHER KEY");
  writeFile(other + "/nginx/conf/cert.pem", "OTHER CERT");
  writeFile(other + "/nginx/conf/key.pass", "OTHER PASS");
  r = runOxcfgIn(other, {"export", path("other.zip")}, "transfer \"pw\" $(x)\n");
  ASSERT_EQ(r.exitCode, 0) << r.output;
  const std::string archive = readFile(path("other.zip"));
  ASSERT_EQ(unpack(archive, "transfer \"pw\" $(x)", path("view")), 0);
  const std::string archived = path("view/configuration/Config.xml");

  // This gateway: a newer version, its own NAT gateway, private sections and
  // administrator.
  ASSERT_TRUE(setXmlText(path("Config.xml"), {"Config", "BasicInfo", "SoftwareVersion"}, "1.8.0.0"));
  ASSERT_TRUE(setXmlText(path("Config.xml"), {"Config", "EventSubCfg", "Enable"}, "0"));
  ASSERT_TRUE(setXmlText(path("Config.xml"), {"Config", "NATGateway", "PortRangeList", "PortRange", "min"}, "31000"));
  ASSERT_TRUE(setXmlText(path("PrivateConfig.xml"), {"PrivateConfig", "LDM", "LDMPort"}, "1111"));
  writeFile(path("nginx/conf/cert.key"), "MY KEY");
  writeFile(path("nginx/conf/certreq.pem"), "MY REQUEST");
  start();
  const std::string nat = natGateway(path("Config.xml"));
  auto users = OX_ConfigMgr_GetUserCfg();
  ASSERT_EQ(users->setPassword(OxConfigMgr::PASSWORD_LEVEL_STRONG, "bravo password", "admin"), 0);
  OxConfigMgr::tagUserInfo mine;
  users->getUserInfo(mine);
  const std::string myKey = xmlText(path("PrivateConfig.xml"), {"PrivateConfig", "Encrypt", "Storage", "Key"});

  EXPECT_EQ(importArchive(archive, "transfer \"pw\" $(x)"), 0);

  const std::string cfg = path("Config.xml");
  EXPECT_EQ(xmlText(cfg, {"Config", "Network", "HTTP", "Port"}), "8081");
  EXPECT_EQ(xmlText(cfg, {"Config", "BasicInfo", "SoftwareVersion"}), "1.8.0.0");
  EXPECT_EQ(natGateway(cfg), nat);
  EXPECT_EQ(xmlText(archived, {"Config", "NATGateway"}), "<missing>");
  // The listening switch takes the archive's event-subscription switch.
  EXPECT_EQ(xmlText(archived, {"Config", "WispListenCfg", "Enable"}), "0");
  EXPECT_EQ(xmlText(cfg, {"Config", "WispListenCfg", "Enable"}), "1");
  EXPECT_EQ(xmlText(cfg, {"Config", "EventSubCfg", "Enable"}), "1");
  // The address list is the archive's, element for element.
  EXPECT_NE(addrList(archived), "");
  EXPECT_EQ(addrList(cfg), addrList(archived));

  const std::string priv = path("PrivateConfig.xml");
  EXPECT_EQ(xmlText(priv, {"PrivateConfig", "LDM", "LDMPort"}), "1111");
  const std::string otherKey = xmlText(other + "/PrivateConfig.xml", {"PrivateConfig", "Encrypt", "Storage", "Key"});
  EXPECT_EQ(xmlText(priv, {"PrivateConfig", "Encrypt", "Storage", "Key"}), otherKey);
  EXPECT_NE(otherKey, myKey);
  EXPECT_EQ(fileMode(priv), 0600u);
  EXPECT_EQ(fileMode(path("Config.db3")), 0600u);
  EXPECT_EQ(xmlText(path("QAPIConfig.xml"), {"Config", "QAPIConfig", "Mode"}), "other-mode");
  // Certificate files are replaced; those the archive does not carry stay.
  EXPECT_EQ(readFile(path("nginx/conf/cert.key")), "OTHER KEY");
  EXPECT_EQ(fileMode(path("nginx/conf/cert.key")), 0600u);
  EXPECT_EQ(readFile(path("nginx/conf/cert.pem")), "OTHER CERT");
  EXPECT_EQ(readFile(path("nginx/conf/key.pass")), "OTHER PASS");
  EXPECT_EQ(readFile(path("nginx/conf/certreq.pem")), "MY REQUEST");

  // The administrator from before the import, in memory and in the new
  // database, which opens with the archive's key.
  OxConfigMgr::tagUserInfo now;
  users->getUserInfo(now);
  EXPECT_STREQ(now.DigestPassword, mine.DigestPassword);
  EXPECT_STREQ(now.SessionSalt, mine.SessionSalt);
  OxConfigMgr::CUserCfg reopened;
  ASSERT_TRUE(reopened.loadDatabase(0));
  OxConfigMgr::tagUserInfo stored;
  reopened.getUserInfo(stored);
  EXPECT_STREQ(stored.DigestPassword, mine.DigestPassword);
  EXPECT_STREQ(stored.SessionPassword, mine.SessionPassword);
  EXPECT_EQ(stored.PasswordLevel, OxConfigMgr::PASSWORD_LEVEL_STRONG);
  EXPECT_FALSE(stagingLeft());

  // The command-line host imports the same way and reports the code.
  r = runOxcfgIn(dir(), {"import", path("other.zip")}, "wrong\n");
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("258"), std::string::npos) << r.output;
  r = runOxcfgIn(dir(), {"import", path("other.zip"), "extra"}, "x\n");
  EXPECT_EQ(r.exitCode, 2);
}

}  // namespace
}  // namespace oxtest
