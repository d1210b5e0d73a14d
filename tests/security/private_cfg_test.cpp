#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "platform/hex.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

using OxConfigMgr::CPrivateCfg;
using OxConfigMgr::tagEncryptInfo;

namespace {

class PrivateCfgTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  std::string storage(const char* leaf) {
    return oxtest::xmlText(path("PrivateConfig.xml"), {"PrivateConfig", "Encrypt", "Storage", leaf});
  }
  static std::string keyHex(const tagEncryptInfo& e) {
    return Vlue2HexString(e.storageKey, 32);
  }
};

bool allZero(const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (p[i]) return false;
  }
  return true;
}

TEST_F(PrivateCfgTest, FirstLoadCreatesTheStorageKeyOnceAndLaterLoadsDecipherIt) {
  oxtest::LogCapture log;
  CPrivateCfg first;
  ASSERT_TRUE(first.loadFile());
  tagEncryptInfo a;
  first.getEncryptParams(a);
  EXPECT_FALSE(allZero(a.storageKey, 32));
  EXPECT_FALSE(allZero(a.storageIV, 16));
  EXPECT_EQ(std::strlen(a.wbaesIV), 16u);

  const std::string iv = storage("IV");
  EXPECT_EQ(storage("WbaesIV"), std::string(a.wbaesIV));
  EXPECT_EQ(storage("Key").size(), 64u);
  ASSERT_EQ(iv.size(), 64u);
  EXPECT_EQ(iv.substr(32), std::string(32, '0'));
  EXPECT_EQ(storage("Key").find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(oxtest::fileMode(path("PrivateConfig.xml")), 0600u);
  // The enciphered texts are not the clear key.
  EXPECT_NE(storage("Key"), keyHex(a));

  const std::string afterFirst = oxtest::readFile(path("PrivateConfig.xml"));
  CPrivateCfg second;
  ASSERT_TRUE(second.loadFile());
  tagEncryptInfo b;
  second.getEncryptParams(b);
  EXPECT_EQ(keyHex(b), keyHex(a));
  EXPECT_EQ(std::memcmp(a.storageIV, b.storageIV, 16), 0);
  EXPECT_EQ(oxtest::readFile(path("PrivateConfig.xml")), afterFirst);  // created once

  // Neither the key nor its enciphered text reaches the log.
  for (const auto& e : log.entries()) {
    EXPECT_EQ(e.text.find(keyHex(a)), std::string::npos);
    EXPECT_EQ(e.text.find(storage("Key")), std::string::npos);
  }
}

TEST_F(PrivateCfgTest, RecordsAreReadAsWrittenAndNarrowed) {
  oxtest::writeFile(path("PrivateConfig.xml"),
                    "<PrivateConfig><InternalCommunication><RecvTimeOut>70000</RecvTimeOut>"
                    "<ConnectTimeOut>12</ConnectTimeOut></InternalCommunication>"
                    "<Encrypt><QAPI><Iterations>65537</Iterations><Level>300</Level></QAPI></Encrypt>"
                    "<HTTPService><Port>9020</Port><TaskThread>x</TaskThread></HTTPService>"
                    "<LDM><LumenAlarmPort>9015</LumenAlarmPort></LDM></PrivateConfig>");
  CPrivateCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  OxConfigMgr::tagInternalCommunicationInfo comm;
  cfg.getInternalCommParams(comm);
  EXPECT_EQ(comm.recvTimeOut, 4464);
  EXPECT_EQ(comm.connectTimeOut, 12);
  tagEncryptInfo enc;
  cfg.getEncryptParams(enc);
  EXPECT_EQ(enc.iterations, 1);
  EXPECT_EQ(enc.level, 44);
  OxConfigMgr::tagHTTPServiceInfo http;
  cfg.getHttpServiceParams(http);
  EXPECT_EQ(http.port, 9020);
  EXPECT_EQ(http.taskThread, 0);
  OxConfigMgr::tagLDMInfo ldm;
  cfg.getLDMParams(ldm);
  EXPECT_EQ(ldm.lumenAlarmPort, 9015);
  EXPECT_EQ(ldm.ldmPort, 0);
}

TEST_F(PrivateCfgTest, WithoutEncryptNothingIsCreatedOrWritten) {
  const std::string text = "<PrivateConfig><LDM><LDMPort>1</LDMPort></LDM></PrivateConfig>";
  oxtest::writeFile(path("PrivateConfig.xml"), text);
  CPrivateCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  tagEncryptInfo enc;
  cfg.getEncryptParams(enc);
  EXPECT_TRUE(allZero(enc.storageKey, 33));
  EXPECT_EQ(oxtest::readFile(path("PrivateConfig.xml")), text);
}

TEST_F(PrivateCfgTest, AnUnparsableBackupStays) {
  oxtest::writeFile(path("PrivateConfig_Backup.xml"), "<PrivateConfig><LDM>");
  CPrivateCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_TRUE(oxtest::fileExists(path("PrivateConfig_Backup.xml")));
  OxConfigMgr::tagLDMInfo ldm;
  cfg.getLDMParams(ldm);
  EXPECT_EQ(ldm.ldmPort, 9010);
}

TEST_F(PrivateCfgTest, MalformedStorageNeverOverruns) {
  for (const char* storageXml :
       {"<Storage><WbaesIV>short</WbaesIV><Key>zz</Key><IV>1</IV></Storage>",
        "<Storage><WbaesIV>0123456789abcdef0123456789</WbaesIV><Key>"
        "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff00112233445566778899"
        "</Key><IV>not hex at all, and longer than thirty-two characters</IV></Storage>",
        "<Storage><Key>0011223344556677889900112233445566</Key></Storage>", "<Storage/>"}) {
    oxtest::writeFile(path("PrivateConfig.xml"),
                      std::string("<PrivateConfig><Encrypt>") + storageXml + "</Encrypt></PrivateConfig>");
    CPrivateCfg cfg;
    EXPECT_TRUE(cfg.loadFile());
    tagEncryptInfo enc;
    cfg.getEncryptParams(enc);
    EXPECT_EQ(enc.storageKey[32], 0);
    EXPECT_EQ(enc.storageIV[16], 0);
    EXPECT_LE(std::strlen(enc.wbaesIV), 16u);
  }
}

TEST_F(PrivateCfgTest, KeyMaterialFilesAreReadWhole) {
  oxtest::LogCapture log;
  CPrivateCfg cfg;
  cfg.readWbaesEncryptFile();
  EXPECT_TRUE(log.has(5, "open file wbaes_key_enc failed[2]"));
  oxtest::writeFile(path("wbaes_key_dec"), std::string(10, 'k'));
  cfg.readWbaesDecryptFile();
  EXPECT_TRUE(log.contains("] read file wbaes_key_dec failed["));
  EXPECT_TRUE(log.contains(",length[10]"));
}

TEST_F(PrivateCfgTest, StartFailsWithoutTheFileAndResumesOnceItIsThere) {
  const std::string saved = oxtest::readFile(path("PrivateConfig.xml"));
  ASSERT_EQ(::unlink(path("PrivateConfig.xml").c_str()), 0);
  oxtest::LogCapture log;
  EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  EXPECT_TRUE(log.has(5, "config file is not exist"));
  EXPECT_TRUE(log.has(5, "CPrivateCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetPrivateCfg());
  EXPECT_FALSE(OX_ConfigMgr_GetSecurityStatus());  // later steps did not run

  oxtest::writeFile(path("PrivateConfig.xml"), saved);
  EXPECT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(OX_ConfigMgr_GetPrivateCfg());
  EXPECT_TRUE(OX_ConfigMgr_GetSecurityStatus());
}

TEST_F(PrivateCfgTest, AKeyThatDidNotReachTheFileFailsTheStartAndCreatesNoDatabase) {
  const std::string installed = oxtest::readFile(path("PrivateConfig.xml"));
  oxtest::LogCapture log;
  {
    oxtest::FaultEnv env;
    env.failOn(oxtest::FaultEnv::kRename, ENOSPC);
    oxtest::ScopedEnv scoped(&env);
    EXPECT_EQ(OX_ConfigMgr_Start(), 0);
  }
  EXPECT_TRUE(log.has(5, "CPrivateCfg loadFile falied"));
  EXPECT_FALSE(OX_ConfigMgr_GetPrivateCfg());
  EXPECT_FALSE(oxtest::fileExists(path("Config.db3")));
  EXPECT_EQ(oxtest::readFile(path("PrivateConfig.xml")), installed);

  // Once the disk takes it, the key that opens the database is the file's.
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  tagEncryptInfo used;
  OX_ConfigMgr_GetPrivateCfg()->getEncryptParams(used);
  CPrivateCfg reread;
  ASSERT_TRUE(reread.loadFile());
  tagEncryptInfo stored;
  reread.getEncryptParams(stored);
  EXPECT_EQ(keyHex(stored), keyHex(used));
  EXPECT_TRUE(oxtest::fileExists(path("Config.db3")));
}

TEST_F(PrivateCfgTest, TheBackupsStorageKeySurvivesTheUpgradeOnceItsMergeIsDurable) {
  CPrivateCfg old;
  ASSERT_TRUE(old.loadFile());
  tagEncryptInfo before;
  old.getEncryptParams(before);
  std::string backup = oxtest::readFile(path("PrivateConfig.xml"));
  backup.replace(backup.find("<LDMPort>9010"), 13, "<LDMPort>9110");
  oxtest::writeFile(path("PrivateConfig_Backup.xml"), backup);
  oxtest::copyFactory(dir());  // the upgrade installs a fresh file

  // Every way the merged file can fail to become durable keeps the backup:
  // it may be the only copy of the previous key.
  for (auto op : {oxtest::FaultEnv::kOpen, oxtest::FaultEnv::kWrite, oxtest::FaultEnv::kFsync,
                  oxtest::FaultEnv::kRename, oxtest::FaultEnv::kSyncDir}) {
    oxtest::LogCapture log;
    oxtest::FaultEnv env;
    env.failOn(op, EIO);
    oxtest::ScopedEnv scoped(&env);
    CPrivateCfg upgraded;
    upgraded.copyBackupConfig();
    EXPECT_TRUE(oxtest::fileExists(path("PrivateConfig_Backup.xml"))) << op;
    EXPECT_TRUE(log.contains("PrivateConfig_Backup.xml kept")) << op;
  }

  CPrivateCfg upgraded;
  ASSERT_TRUE(upgraded.loadFile());
  tagEncryptInfo after;
  upgraded.getEncryptParams(after);
  EXPECT_EQ(keyHex(after), keyHex(before));
  OxConfigMgr::tagLDMInfo ldm;
  upgraded.getLDMParams(ldm);
  EXPECT_EQ(ldm.ldmPort, 9110);
  EXPECT_FALSE(oxtest::fileExists(path("PrivateConfig_Backup.xml")));
  const std::string merged = oxtest::readFile(path("PrivateConfig.xml"));
  EXPECT_EQ(merged.find("<Storage>"), merged.rfind("<Storage>"));  // just one
}

}  // namespace
