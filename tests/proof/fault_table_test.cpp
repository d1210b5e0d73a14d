// Every writer against a failure at every stage of its atomic write: the
// temporary file cannot be created, written (or only half), synced, closed
// or renamed, the directory cannot be synced, the cross-process lock cannot
// be taken. After each: the file is the old one or the new one and parses,
// no temporary file is left, the result code is the writer's success code
// when the new file landed and its failure code otherwise, and memory
// agrees with what the caller was told.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <cstdio>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "proof/proof_support.h"
#include "system/time_support.h"
#include "support/handles.h"
#include "support/test_support.h"

namespace {

using oxtest::FaultEnv;

struct Stage {
  FaultEnv::Op op;
  const char* name;
};
const Stage kStages[] = {
    {FaultEnv::kOpen, "open"},   {FaultEnv::kWrite, "write"},     {FaultEnv::kShortWrite, "short write"},
    {FaultEnv::kFsync, "fsync"}, {FaultEnv::kClose, "close"},     {FaultEnv::kRename, "rename"},
    {FaultEnv::kSyncDir, "syncdir"}, {FaultEnv::kFlock, "flock"},
};

// How memory relates to the file after a failed write.
enum class Memory { kFollowsFile, kTakesNewValue, kNone };

struct Writer {
  const char* name;
  const char* file;
  // Writes value number `n` (every call a different value); the result.
  std::function<int(int n)> write;
  // The value as the file holds it ("<unparsable>"/"<missing>" otherwise).
  std::function<std::string()> inFile;
  // The value value number `n` puts in the file.
  std::function<std::string(int n)> expected;
  // The value memory holds ("" when the writer keeps none).
  std::function<std::string()> inMemory;
  Memory memory;
  int success;
  std::set<int> failures;
};

class FaultTableTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    ASSERT_EQ(OX_ConfigMgr_Start(), 1);
    ASSERT_TRUE(arc_.loadFile());
    ASSERT_EQ(alarm_.loadFile(), 1);
    ASSERT_EQ(host_.loadFile(), 1);
    ASSERT_EQ(::mkdir(path("nginx").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(path("nginx/conf").c_str(), 0755), 0);
    cert_ = OX_ConfigMgr_GetOpenSSLCert();
    ASSERT_TRUE(cert_);
    ASSERT_EQ(cert_->generateRSA(2048, cert_->getCertKeyPath().c_str(),
                                 reinterpret_cast<const unsigned char*>("pw-start"), 8),
              0);
  }
  // The key password file, and whether the key file opens with it.
  std::string keyState() {
    const std::string pass = oxtest::readFile(path("nginx/conf/key.pass"));
    FILE* f = std::fopen(path("nginx/conf/cert.key").c_str(), "r");
    if (!f) return pass + "<no key>";
    EVP_PKEY* key = PEM_read_PrivateKey(f, nullptr, nullptr, const_cast<char*>(pass.c_str()));
    std::fclose(f);
    if (!key) return pass + "<key does not open with it>";
    EVP_PKEY_free(key);
    return pass;
  }
  std::string value(const char* file, std::initializer_list<const char*> walk) {
    return oxproof::xmlValue(path(file), walk);
  }

  // A feature switch of Config.xml: value n turns it to n % 2, which the
  // file's "Enable" and the getter both answer.
  template <class Cfg>
  Writer switchRow(const char* name, const char* section, std::shared_ptr<Cfg> cfg, int (Cfg::*get)(int&) const) {
    return {name, "Config.xml", [=](int n) { return cfg->updateCfg(n % 2); },
            [=] { return value("Config.xml", {"Config", section, "Enable"}); },
            [](int n) { return std::to_string(n % 2); },
            [=] {
              int v = -1;
              ((*cfg).*get)(v);
              return std::to_string(v);
            },
            Memory::kFollowsFile, 0, {2, 3}};
  }

  std::vector<Writer> writers() {
    using namespace OxConfigMgr;
    const oxtest::Handles h;
    const std::string propsPath = path("log4cxx.properties");
    return {
        {"CBasicCfg::setProductName", "Config.xml",
         [=](int n) { return h.basic->setProductName(("name-" + std::to_string(n)).c_str()); },
         [=] { return value("Config.xml", {"Config", "BasicInfo", "Name"}); },
         [](int n) { return "name-" + std::to_string(n); }, [=] { return std::string(h.basic->getProductName()); },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CNetworkCfg::setHttpPort", "Config.xml",
         [=](int n) { return static_cast<int>(h.net->setHttpPort(static_cast<unsigned short>(8100 + n))); },
         [=] { return value("Config.xml", {"Config", "Network", "HTTP", "Port"}); },
         [](int n) { return std::to_string(8100 + n); }, [=] { return std::to_string(h.net->getHttpPort()); },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CNetworkCfg::setPlatformPortMapping", "Config.xml",
         [=](int n) { return static_cast<int>(h.net->setPlatformPortMapping(n % 2)); },
         [=] { return value("Config.xml", {"Config", "Network", "PortMapping", "PlatformEnable"}); },
         [](int n) { return std::string(n % 2 ? "true" : "false"); },
         [=] { return std::string(h.net->isPlatformPortMapping() ? "true" : "false"); }, Memory::kFollowsFile, 0,
         {2, 3}},
        {"CMaintain::setLogLevel", "Config.xml",
         [=](int n) { return h.maintain->setLogLevel(static_cast<XLOG_LEVEL>(n % 8)); },
         [=] { return value("Config.xml", {"Config", "Maintain", "Log", "Level"}); },
         [](int n) { return std::to_string(n % 8); }, [=] { return std::to_string(h.maintain->getLogLevel()); },
         Memory::kFollowsFile, 0, {2, 3}},
        switchRow("CEventSubCfg::updateCfg", "EventSubCfg", h.events, &CEventSubCfg::getSubCfg),
        switchRow("CMetadataCfg::updateCfg", "MetadataCfg", h.metadata, &CMetadataCfg::getCfg),
        switchRow("CWispListenCfg::updateCfg", "WispListenCfg", h.wisp, &CWispListenCfg::getCfg),
        {"CQAPICfg::setQAPIParam", "QAPIConfig.xml", [=](int n) { return h.qapi->setQAPIParam(10 + n); },
         [=] { return value("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"}); },
         [](int n) { return std::to_string(10 + n); }, [=] { return std::to_string(h.qapi->getQAPIParam()); },
         Memory::kFollowsFile, 0, {3}},
        {"CARCCfg::setARCParam", "ARCConfig.xml",
         [this](int n) {
           tagArcCnf cnf;
           arc_.getARCParam(cnf);
           cnf.sg.sgPort = 9100 + n;
           return arc_.setARCParam(cnf);
         },
         [=] { return value("ARCConfig.xml", {"Config", "SGConfig", "SGPort"}); },
         [](int n) { return std::to_string(9100 + n); },
         [this] {
           tagArcCnf cnf;
           arc_.getARCParam(cnf);
           return std::to_string(cnf.sg.sgPort);
         },
         Memory::kTakesNewValue, 0, {9}},
        {"CAlarmMonitorCfg::setAlarmMonitorCfg", "Config.xml",
         [this](int n) {
           tagAlarmMonitorCnf cnf;
           alarm_.getAlarmMonitorCfg(cnf);
           std::snprintf(cnf.token, sizeof cnf.token, "token-%d", n);
           return alarm_.setAlarmMonitorCfg(cnf);
         },
         [=] { return value("Config.xml", {"Config", "AlarmMonitor", "token"}); },
         [](int n) { return "token-" + std::to_string(n); },
         [this] {
           tagAlarmMonitorCnf cnf;
           alarm_.getAlarmMonitorCfg(cnf);
           return std::string(cnf.token);
         },
         Memory::kTakesNewValue, 0, {9}},
        {"CHttpHostCfg::setHttpHostInfo", "Config.xml",
         [this](int n) {
           tagHttpHostInfo info;
           host_.getHttpHostInfo(info);
           info.port = 1000 + n;
           std::snprintf(info.ip, sizeof info.ip, "192.0.2.1");
           std::snprintf(info.url, sizeof info.url, "/notify");
           return host_.setHttpHostInfo(info);
         },
         [=] {
           return value("Config.xml", {"Config", "HttpHostNotificationList", "HttpHostNotification", "Port"});
         },
         [](int n) { return std::to_string(1000 + n); },
         [this] {
           tagHttpHostInfo info;
           host_.getHttpHostInfo(info);
           return std::to_string(info.port);
         },
         Memory::kFollowsFile, 0, {2, 3}},
        {"COpenSSLCertificate::saveRSAKey", "nginx/conf/key.pass",
         [this](int n) {
           const std::string pw = "pw-" + std::to_string(n);
           return cert_->saveRSAKey(cert_->getCertKeyPath().c_str(),
                                    reinterpret_cast<const unsigned char*>(pw.c_str()));
         },
         [this] { return keyState(); }, [](int n) { return "pw-" + std::to_string(n); },
         [] { return std::string(); }, Memory::kNone, 0, {512}},
        {"CMaintain::WriteLog4j", "log4cxx.properties",
         [=](int n) {
           std::string p = propsPath;
           std::string content = "log4j.rootLogger=OFF, file\n# revision " + std::to_string(n) + "\n";
           return h.maintain->WriteLog4j(p, content) ? 1 : 0;
         },
         [=] {
           std::string c = oxtest::readFile(propsPath);
           size_t at = c.find("# revision ");
           return at == std::string::npos ? std::string("<factory>") : c;
         },
         [](int n) { return "log4j.rootLogger=OFF, file\n# revision " + std::to_string(n) + "\n"; },
         [] { return std::string(); }, Memory::kNone, 1, {0}},
    };
  }

  OxConfigMgr::CARCCfg arc_;
  OxConfigMgr::CAlarmMonitorCfg alarm_;
  OxConfigMgr::CHttpHostCfg host_;
  std::shared_ptr<OxConfigMgr::COpenSSLCertificate> cert_;
};

TEST_F(FaultTableTest, EveryWriterAtEveryStageLeavesOldOrNewFileAndTellsTheTruth) {
  int n = 0;
  int cases = 0;
  for (const Writer& w : writers()) {
    // Faults write odd values over even ones, so a two-valued switch always
    // changes.
    n += 2 - n % 2;
    ASSERT_EQ(w.write(n), w.success) << w.name;
    for (const Stage& stage : kStages) {
      SCOPED_TRACE(std::string(w.name) + " failing at " + stage.name);
      ++n;
      const std::string before = w.inFile();
      const std::string beforeText = oxtest::readFile(path(w.file));
      const mode_t modeBefore = oxtest::fileMode(path(w.file));
      int result;
      {
        FaultEnv fault;
        fault.failOn(stage.op, EIO);
        oxtest::ScopedEnv scoped(&fault);
        result = w.write(n);
      }
      ++cases;
      const std::string after = w.inFile();
      const bool isNew = after == w.expected(n);
      const bool isOld = after == before && oxtest::readFile(path(w.file)) == beforeText;
      EXPECT_TRUE(isNew || isOld) << "file holds " << after;
      EXPECT_TRUE(oxproof::temporaries(dir()).empty()) << oxproof::temporaries(dir())[0];
      EXPECT_TRUE(oxproof::temporaries(path("nginx/conf")).empty()) << oxproof::temporaries(path("nginx/conf"))[0];
      EXPECT_EQ(oxtest::fileMode(path(w.file)), modeBefore);
      if (isNew) {
        EXPECT_EQ(result, w.success) << "the new file landed";
      } else {
        EXPECT_TRUE(w.failures.count(result)) << "result " << result;
      }
      switch (w.memory) {
        case Memory::kFollowsFile:
          EXPECT_EQ(w.inMemory(), after);
          break;
        case Memory::kTakesNewValue:
          EXPECT_EQ(w.inMemory(), w.expected(n));
          break;
        case Memory::kNone:
          break;
      }
      // Without a fault the same writer works again.
      ++n;
      EXPECT_EQ(w.write(n), w.success);
      EXPECT_EQ(w.inFile(), w.expected(n));
    }
  }
  EXPECT_EQ(cases, 13 * 8);
}

// The carry-over of an upgrade's backup: a merge that fails at any stage
// keeps the backup for the next start and leaves the live file whole.
TEST_F(FaultTableTest, CarryOverFailingAtEveryStageKeepsTheBackup) {
  for (const Stage& stage : kStages) {
    SCOPED_TRACE(stage.name);
    oxtest::writeFile(path("QAPIConfig_Backup.xml"),
                      "<?xml version=\"1.0\"?><Config><QAPIConfig><Enable>7</Enable><Mode>all</Mode>"
                      "</QAPIConfig></Config>");
    const std::string before = oxtest::readFile(path("QAPIConfig.xml"));
    {
      FaultEnv fault;
      fault.failOn(stage.op, EIO);
      oxtest::ScopedEnv scoped(&fault);
      OxConfigMgr::CQAPICfg qapi;
      qapi.copyBackupConfig();
    }
    const std::string enable = value("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"});
    const bool backupLeft = oxtest::fileExists(path("QAPIConfig_Backup.xml"));
    EXPECT_TRUE(oxproof::temporaries(dir()).empty());
    if (enable == "7") {
      // Merged: the backup goes once the merged file is durable; kept when
      // only the directory sync failed.
      EXPECT_TRUE(!backupLeft || stage.op == FaultEnv::kSyncDir || stage.op == FaultEnv::kFlock);
    } else {
      EXPECT_EQ(oxtest::readFile(path("QAPIConfig.xml")), before);
      EXPECT_TRUE(backupLeft) << "a backup that was not merged is lost";
    }
    // The next carry-over without a fault finishes it.
    OxConfigMgr::CQAPICfg qapi;
    qapi.copyBackupConfig();
    EXPECT_EQ(value("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"}), "7");
    EXPECT_FALSE(oxtest::fileExists(path("QAPIConfig_Backup.xml")));
    oxtest::copyFactory(dir());
  }
}

}  // namespace

namespace {

// An import failing at every stage of every file it writes, its journal's
// copies and manifest included: the import reports success with the new
// configuration, or its failure code with the old one (at once, or once the
// next start has put back a journal the failure left complete); no
// temporary, staging or journal file stays, and the directory still starts.
TEST_F(FaultTableTest, ImportFailingAtEveryStageRollsBackOrCompletes) {
  ASSERT_EQ(::symlink("/usr/bin/7za", path("7za").c_str()), 0);
  const std::string password = "Fault#Import-pw";
  auto basic = OX_ConfigMgr_GetBasicCfg();
  auto qapi = OX_ConfigMgr_GetQAPICfg();
  auto io = OX_ConfigMgr_GetCfgImportAndExport();
  ASSERT_EQ(basic->setProductName("imported"), 0);
  ASSERT_EQ(qapi->setQAPIParam(0), 0);
  std::string archive;
  ASSERT_EQ(io->exportConfigData(archive, password), 0);
  // Each stage fails once: at the first file, then at the second, and so
  // on, past the import's last operation of that kind.
  int runs = 0;
  int journalsLeft = 0;
  for (const Stage& stage : kStages) {
   int skip = 0;
   for (; skip < 100; ++skip) {
    SCOPED_TRACE(std::string(stage.name) + " after " + std::to_string(skip));
    ++runs;
    ASSERT_EQ(basic->setProductName("live"), 0);
    ASSERT_EQ(qapi->setQAPIParam(1), 0);
    oxtest::writeFile(path("configurationIn.zip"), archive);
    int result;
    bool fired;
    {
      FaultEnv fault;
      fault.failOnce(stage.op, EIO, skip);
      oxtest::ScopedEnv scoped(&fault);
      result = io->importConfigData(password);
      fired = fault.fired();
    }
    ::unlink(path("configurationIn.zip").c_str());
    auto name = [&] { return value("Config.xml", {"Config", "BasicInfo", "Name"}); };
    auto enable = [&] { return value("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"}); };
    EXPECT_TRUE(oxproof::parses(path("PrivateConfig.xml")));
    const bool journalLeft = oxtest::fileExists(path("importJournal"));
    if (result == 0) {
      EXPECT_EQ(name(), "imported");
      EXPECT_EQ(enable(), "0");
      EXPECT_FALSE(journalLeft);
    } else {
      EXPECT_TRUE(result == 9 || result == 258) << result;
      if (journalLeft) {
        // Only a complete journal may stay: the next start puts it back.
        ++journalsLeft;
        EXPECT_TRUE(oxtest::fileExists(path("importJournal/manifest")));
      } else {
        EXPECT_EQ(name(), "live") << "result " << result;
        EXPECT_EQ(enable(), "1") << "result " << result;
      }
    }
    EXPECT_TRUE(oxproof::temporaries(dir()).empty()) << oxproof::temporaries(dir())[0];
    EXPECT_FALSE(oxtest::fileExists(path("configuration")));
    oxproof::Child start({"start", dir()}, path("child.err"));
    EXPECT_TRUE(start.waitStarted(60000) && start.exitedWith(0)) << oxtest::readFile(path("child.err"));
    EXPECT_FALSE(oxtest::fileExists(path("importJournal")));
    EXPECT_EQ(name(), result == 0 ? "imported" : "live");
    EXPECT_EQ(enable(), result == 0 ? "0" : "1");
    // Past the last operation of this kind the import runs unharmed.
    if (!fired) break;
   }
   EXPECT_LT(skip, 100) << stage.name << ": the import never got through";
   RecordProperty(stage.name, skip);
  }
  RecordProperty("journals-left", journalsLeft);
  RecordProperty("imports", runs);
}

}  // namespace

namespace {

// The time-zone link: made under a temporary name and renamed over the old
// one. Failing to make it, to rename it or to sync its directory leaves the
// old link or the new one, and no temporary link.
class ZoneLinkFaultTest : public oxtest::TimeTest {};

TEST_F(ZoneLinkFaultTest, EveryStageLeavesTheOldLinkOrTheNewOne) {
  ASSERT_TRUE(installZone("Etc/GMT-8") && installZone("Etc/GMT-9"));
  const std::string link = path("etc/localtime");
  ASSERT_EQ(::symlink(zoneFile("Etc/GMT-9").c_str(), link.c_str()), 0);
  OxConfigMgr::CTimeCfg time;
  struct Case {
    const char* name;
    std::function<void(oxtest::FaultEnv&)> arm;
  };
  const std::vector<Case> cases = {
      {"symlink", [this](oxtest::FaultEnv&) { env_->failSymlink = true; }},
      {"rename", [](oxtest::FaultEnv& f) { f.failOn(oxtest::FaultEnv::kRename, EACCES); }},
      {"syncdir", [](oxtest::FaultEnv& f) { f.failOn(oxtest::FaultEnv::kSyncDir, EIO); }},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const bool east8 = ++n % 2 == 1;
    const std::string before = linkTarget(link);
    const std::string wanted = zoneFile(east8 ? "Etc/GMT-8" : "Etc/GMT-9");
    ASSERT_NE(before, wanted);
    int result;
    {
      oxtest::FaultEnv fault;
      c.arm(fault);
      oxtest::ScopedEnv scoped(&fault);
      result = time.setLocalTime(east8 ? "2024-05-01T08:30:00+08:00" : "2024-05-01T08:30:00+09:00");
    }
    env_->failSymlink = false;
    const std::string after = linkTarget(link);
    EXPECT_TRUE(after == before || after == wanted) << after;
    EXPECT_EQ(result, after == wanted ? 0 : 9);
    for (const std::string& name : oxtest::listDir(path("etc"))) EXPECT_EQ(name, "localtime");
    if (after == before) {
      // Set it the other way for the next case.
      ASSERT_EQ(time.setLocalTime(east8 ? "2024-05-01T08:30:00+08:00" : "2024-05-01T08:30:00+09:00"), 0);
    }
  }
}

}  // namespace
