// Every writer against a failure at every stage of its atomic write: the
// temporary file cannot be created, written (or only half), synced, closed
// or renamed, the directory cannot be synced, the cross-process lock cannot
// be taken. After each: the file is the old one or the new one and parses,
// no temporary file is left, the result code is the writer's success code
// when the new file landed and its failure code otherwise, and memory
// agrees with what the caller was told.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "proof/proof_support.h"
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
// kModifiedThenWritten: the value reaches memory once the document was
// changed, before the write (the port setters' documented order), so a
// failed write (3) leaves memory ahead of the file, a failed read (2) not.
enum class Memory { kFollowsFile, kTakesNewValue, kModifiedThenWritten, kNone };

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
  }
  std::string value(const char* file, std::initializer_list<const char*> walk) {
    return oxproof::xmlValue(path(file), walk);
  }

  std::vector<Writer> writers() {
    using namespace OxConfigMgr;
    auto basic = OX_ConfigMgr_GetBasicCfg();
    auto net = OX_ConfigMgr_GetNetworkCfg();
    auto log = OX_ConfigMgr_GetLogCfg();
    auto qapi = OX_ConfigMgr_GetQAPICfg();
    auto sub = OX_ConfigMgr_GetEventSubCfg();
    auto meta = OX_ConfigMgr_GetMetadataConfig();
    auto wisp = OX_ConfigMgr_GetWispListenCfg();
    const std::string propsPath = path("log4cxx.properties");
    return {
        {"CBasicCfg::setProductName", "Config.xml",
         [=](int n) { return basic->setProductName(("name-" + std::to_string(n)).c_str()); },
         [=] { return value("Config.xml", {"Config", "BasicInfo", "Name"}); },
         [](int n) { return "name-" + std::to_string(n); }, [=] { return std::string(basic->getProductName()); },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CNetworkCfg::setHttpPort", "Config.xml",
         [=](int n) { return static_cast<int>(net->setHttpPort(static_cast<unsigned short>(8100 + n))); },
         [=] { return value("Config.xml", {"Config", "Network", "HTTP", "Port"}); },
         [](int n) { return std::to_string(8100 + n); }, [=] { return std::to_string(net->getHttpPort()); },
         Memory::kModifiedThenWritten, 0, {2, 3}},
        {"CNetworkCfg::setPlatformPortMapping", "Config.xml",
         [=](int n) { return static_cast<int>(net->setPlatformPortMapping(n % 2)); },
         [=] { return value("Config.xml", {"Config", "Network", "PortMapping", "PlatformEnable"}); },
         [](int n) { return std::string(n % 2 ? "true" : "false"); },
         [=] { return std::string(net->isPlatformPortMapping() ? "true" : "false"); }, Memory::kFollowsFile, 0,
         {2, 3}},
        {"CMaintain::setLogLevel", "Config.xml",
         [=](int n) { return log->setLogLevel(static_cast<XLOG_LEVEL>(n % 8)); },
         [=] { return value("Config.xml", {"Config", "Maintain", "Log", "Level"}); },
         [](int n) { return std::to_string(n % 8); }, [=] { return std::to_string(log->getLogLevel()); },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CEventSubCfg::updateCfg", "Config.xml", [=](int n) { return sub->updateCfg(n % 2); },
         [=] { return value("Config.xml", {"Config", "EventSubCfg", "Enable"}); },
         [](int n) { return std::to_string(n % 2); },
         [=] {
           int v = -1;
           sub->getSubCfg(v);
           return std::to_string(v);
         },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CMetadataCfg::updateCfg", "Config.xml", [=](int n) { return meta->updateCfg(n % 2); },
         [=] { return value("Config.xml", {"Config", "MetadataCfg", "Enable"}); },
         [](int n) { return std::to_string(n % 2); },
         [=] {
           int v = -1;
           meta->getCfg(v);
           return std::to_string(v);
         },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CWispListenCfg::updateCfg", "Config.xml", [=](int n) { return wisp->updateCfg(n % 2); },
         [=] { return value("Config.xml", {"Config", "WispListenCfg", "Enable"}); },
         [](int n) { return std::to_string(n % 2); },
         [=] {
           int v = -1;
           wisp->getCfg(v);
           return std::to_string(v);
         },
         Memory::kFollowsFile, 0, {2, 3}},
        {"CQAPICfg::setQAPIParam", "QAPIConfig.xml", [=](int n) { return qapi->setQAPIParam(10 + n); },
         [=] { return value("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"}); },
         [](int n) { return std::to_string(10 + n); }, [=] { return std::to_string(qapi->getQAPIParam()); },
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
        {"CMaintain::WriteLog4j", "log4cxx.properties",
         [=](int n) {
           std::string p = propsPath;
           std::string content = "log4j.rootLogger=OFF, file\n# revision " + std::to_string(n) + "\n";
           return log->WriteLog4j(p, content) ? 1 : 0;
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
        case Memory::kModifiedThenWritten:
          EXPECT_EQ(w.inMemory(), result == 2 ? after : w.expected(n));
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
  EXPECT_EQ(cases, 10 * 8);
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
