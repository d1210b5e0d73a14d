#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "transfer/transfer_fixture.h"

namespace oxtest {
namespace {

class ExportTest : public TransferTest {};

const std::set<std::string> kBaseEntries = {
    "configuration",          "configuration/Config.db3",    "configuration/Config.xml",
    "configuration/LinuxConfig.xml", "configuration/PrivateConfig.xml", "configuration/QAPIConfig.xml"};

TEST_F(ExportTest, ArchiveIsAes256AndHoldsExactlyTheExportedFilesWithoutLocalSections) {
  start();
  std::string archive = exportArchive("s3cret");
  ASSERT_FALSE(archive.empty());
  std::set<std::string> methods;
  EXPECT_EQ(entryPaths(archive, &methods), kBaseEntries);
  // Every file entry is AES-256; only the folder entry is stored plainly.
  for (const auto& m : methods) EXPECT_TRUE(m == "Store" || m.compare(0, 7, "AES-256") == 0) << m;
  EXPECT_TRUE(methods.count("AES-256 Deflate") || methods.count("AES-256 Store"));

  ASSERT_EQ(unpack(archive, "s3cret", path("out")), 0);
  const std::string cfg = path("out/configuration/Config.xml");
  EXPECT_EQ(xmlText(cfg, {"Config", "NATGateway"}), "<missing>");
  EXPECT_EQ(xmlText(cfg, {"Config", "BasicInfo", "SoftwareVersion"}), "1.8.0.0");
  const std::string priv = path("out/configuration/PrivateConfig.xml");
  for (const char* local : {"LDM", "HTTPService", "WebSocketService", "InternalCommunication", "Log"}) {
    EXPECT_EQ(xmlText(priv, {"PrivateConfig", local}), "<missing>") << local;
  }
  EXPECT_NE(xmlText(priv, {"PrivateConfig", "Encrypt", "Storage", "Key"}), "<missing>");
  EXPECT_EQ(readFile(path("out/configuration/QAPIConfig.xml")).empty(), false);
  EXPECT_EQ(readFile(path("out/configuration/Config.db3")), readFile(path("Config.db3")));

  // Not without the password, nor with another one.
  EXPECT_NE(unpack(archive, "", path("none")), 0);
  EXPECT_NE(unpack(archive, "s3cret!", path("wrong")), 0);

  EXPECT_TRUE(log_.has(3, "CCfgImportAndExport exportXMLCfg succ."));
  EXPECT_TRUE(log_.has(3, "read read compressCfg file succ"));
  EXPECT_TRUE(log_.has(3, "exportConfigData succ."));
  EXPECT_FALSE(stagingLeft());
  EXPECT_FALSE(fileExists(path("configuration.zip")));
}

TEST_F(ExportTest, CertificateFilesAndDeviceDatabaseTravelWhenTheyExist) {
  start();
  writeFile(path("nginx/conf/cert.pem"), "PEM");
  writeFile(path("nginx/conf/cert.key"), "KEY");
  writeFile(path("nginx/conf/key.pass"), "PASS");
  writeFile(path("nginx/conf/certreq.pem"), "REQ");  // not part of the archive
  writeFile(path("Device.db3"), "devices");
  std::string archive = exportArchive("pw");
  std::set<std::string> expected = kBaseEntries;
  for (const char* f : {"cert.pem", "cert.key", "key.pass", "Device.db3"}) {
    expected.insert(std::string("configuration/") + f);
  }
  EXPECT_EQ(entryPaths(archive), expected);
  ASSERT_EQ(unpack(archive, "pw", path("out")), 0);
  EXPECT_EQ(readFile(path("out/configuration/cert.key")), "KEY");
  EXPECT_EQ(readFile(path("out/configuration/Device.db3")), "devices");
}

TEST_F(ExportTest, LeftoversOfAnInterruptedRunAreNoObstacle) {
  start();
  ::mkdir(path("configuration").c_str(), 0755);
  ::mkdir(path("configuration/sub").c_str(), 0755);
  writeFile(path("configuration/stale.txt"), "old");
  writeFile(path("configuration/sub/deeper.txt"), "old");
  // A stale archive must not be updated in place.
  writeFile(path("configuration.zip"), makeZip({{"configuration/stale2.txt", "x"}}));
  std::string archive = exportArchive("pw");
  EXPECT_EQ(entryPaths(archive), kBaseEntries);
  EXPECT_FALSE(stagingLeft());
  EXPECT_FALSE(fileExists(path("configuration.zip")));
}

// Failed exports give 9, log their line (and, as always, the success line)
// and leave neither the staging folder nor an archive. The installed
// archiver's AES encryption takes 1 to 99 characters.
TEST_F(ExportTest, FailedExportsGiveNineAndLeaveNothing) {
  start();
  const struct {
    const char* what;
    std::string password;
    std::vector<const char*> messages;  // at level 5
  } rows[] = {
      {"100 characters", std::string(100, 'p'), {"encryptCompressCfg faild."}},
      {"empty password", "", {"encryptCompressCfg faild."}},
      {"unreadable QAPIConfig.xml", "pw",
       {"QAPIConfig file is not exist", "exportQAPIConfigXMLFile faild!", "exportXMLCfg faild."}},
      {"no archiver", "pw", {"encryptCompressCfg faild."}},
  };
  const std::string qapi = readFile(path("QAPIConfig.xml"));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const bool unreadable = std::string(row.what) == "unreadable QAPIConfig.xml";
    if (unreadable) writeFile(path("QAPIConfig.xml"), "<not xml");
    if (std::string(row.what) == "no archiver") ::unlink(path("7za").c_str());
    oxtest::LogCapture log;
    int rc = -1;
    exportArchive(row.password, &rc);
    EXPECT_EQ(rc, 9);
    for (const char* m : row.messages) EXPECT_TRUE(log.has(5, m)) << m;
    EXPECT_TRUE(log.has(3, "exportConfigData succ."));
    EXPECT_FALSE(stagingLeft());
    EXPECT_FALSE(fileExists(path("configuration.zip")));
    if (unreadable) writeFile(path("QAPIConfig.xml"), qapi);
  }
}

TEST_F(ExportTest, NinetyNineCharactersRoundTrip) {
  start();
  int rc = -1;
  std::string archive = exportArchive(std::string(99, 'p'), &rc);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(importArchive(archive, std::string(99, 'p')), 0);
  EXPECT_EQ(importArchive(archive, std::string(100, 'p')), 258);
  EXPECT_FALSE(stagingLeft());
}

// Records every command the library runs.
class RecordingEnv : public OxBase::EnvWrapper {
 public:
  RecordingEnv() : EnvWrapper(OxBase::Env::Current()) {}
  OxBase::CommandResult Run(const std::vector<std::string>& argv, const std::string& input,
                            const std::string& workDir) override {
    commands.push_back(argv);
    return EnvWrapper::Run(argv, input, workDir);
  }
  std::vector<std::vector<std::string>> commands;
};

TEST_F(ExportTest, HostilePasswordsRoundTripAndNeverReachACommandLine) {
  start();
  recordingArchiver();
  RecordingEnv env;
  ScopedEnv scoped(&env);
  const std::vector<std::string> passwords = {
      "q\"uo'te $(touch pwned) ; rm -rf / `id` & |", "  spaces  around  ", "caf\xc3\xa9 \xff\xfe\x01",
      "100%C3%A9", "-p -y --help"};
  for (const auto& pw : passwords) {
    int rc = -1;
    std::string archive = exportArchive(pw, &rc);
    ASSERT_EQ(rc, 0) << pw;
    EXPECT_EQ(importArchive(archive, pw), 0) << pw;
    EXPECT_EQ(importArchive(archive, pw + "x"), 258) << pw;
  }
  EXPECT_FALSE(fileExists(path("pwned")));
  const std::string recorded = readFile(path("7za.args"));
  ASSERT_FALSE(recorded.empty());
  for (const auto& pw : passwords) {
    EXPECT_EQ(recorded.find(pw), std::string::npos) << pw;
    for (const auto& argv : env.commands) {
      for (const auto& arg : argv) EXPECT_EQ(arg.find(pw), std::string::npos) << arg;
    }
  }
  // Every run never prompts and is bounded.
  for (const auto& argv : env.commands) {
    EXPECT_NE(std::find(argv.begin(), argv.end(), "-y"), argv.end());
    EXPECT_NE(argv[0].find("timeout"), std::string::npos);
  }
  for (const auto& e : log_.entries()) {
    for (const auto& pw : passwords) EXPECT_EQ(e.text.find(pw), std::string::npos) << e.text;
  }
  EXPECT_TRUE(log_.contains("-p\"******\""));
}

TEST_F(ExportTest, AnArchiverThatHangsIsStoppedByTheTimeOut) {
  start();
  ::unlink(path("7za").c_str());
  writeFile(path("7za"), "#!/bin/sh\nexec sleep 30\n");
  ::chmod(path("7za").c_str(), 0755);
  auto limits = OxConfigMgr::transfer::defaultArchiveLimits();
  limits.timeoutSeconds = 1;
  OxConfigMgr::transfer::setArchiveLimits(limits);
  int rc = -1;
  exportArchive("pw", &rc);
  EXPECT_EQ(rc, 9);
  writeFile(path("configurationIn.zip"), makeZip({{"configuration/LinuxConfig.xml", ""}}));
  EXPECT_EQ(OX_ConfigMgr_GetCfgImportAndExport()->importConfigData("pw"), 258);
  EXPECT_FALSE(stagingLeft());
}

}  // namespace
}  // namespace oxtest
