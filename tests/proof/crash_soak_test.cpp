// Crash and concurrency proofs with real processes: a host killed with
// SIGKILL at random moments while it writes every file, an import killed
// half-way, and several processes with several threads each changing their
// own value of the same file and databases. OXCFG_SOAK_KILLS,
// OXCFG_SOAK_IMPORT_KILLS and OXCFG_SOAK_ITERATIONS scale the runs (`make
// soak` runs them long); each test prints one "SOAK ..." line per check.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "db/db_test_support.h"
#include "proof/proof_support.h"
#include "proof/soak_values.h"
#include "support/test_support.h"

namespace {

using oxproof::Child;
using oxproof::summary;
using oxproof::xmlValue;

class SoakTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    ASSERT_EQ(::symlink("/usr/bin/7za", path("7za").c_str()), 0);
  }
  std::string errLog() const { return path("child.err"); }
};

// What the files of a churned directory may hold after a crash.
struct ChurnCheck {
  int filesChecked = 0;
  int unparsable = 0;
  int outOfSet = 0;
  std::vector<std::string> problems;

  void bad(int* counter, const std::string& what) {
    ++*counter;
    if (problems.size() < 10) problems.push_back(what);
  }
  void run(const std::string& dir) {
    static const std::set<std::string> kLevels = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF", "ALL"};
    for (const char* f : {"Config.xml", "QAPIConfig.xml", "ARCConfig.xml", "PrivateConfig.xml"}) {
      ++filesChecked;
      if (!oxproof::parses(dir + "/" + f)) bad(&unparsable, f);
    }
    const std::string cfg = dir + "/Config.xml";
    const std::string port = xmlValue(cfg, {"Config", "Network", "HTTP", "Port"});
    const int p = std::atoi(port.c_str());
    if (port != "80" && (p < static_cast<int>(oxproof::kHttpPortBase) ||
                         p >= static_cast<int>(oxproof::kHttpPortBase + oxproof::kHttpPortCount))) {
      bad(&outOfSet, "HTTP port " + port);
    }
    const std::string name = xmlValue(cfg, {"Config", "BasicInfo", "Name"});
    bool known = name == "Device Access Gateway";
    for (unsigned i = 0; i < oxproof::kProductNameCount; ++i) known = known || name == oxproof::productName(i);
    if (!known) bad(&outOfSet, "product name " + name);
    const std::string sub = xmlValue(cfg, {"Config", "EventSubCfg", "Enable"});
    if (sub != "0" && sub != "1") bad(&outOfSet, "EventSubCfg " + sub);
    const std::string qapi = xmlValue(dir + "/QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"});
    if (qapi != "0" && qapi != "1") bad(&outOfSet, "QAPI " + qapi);
    const std::string sg = xmlValue(dir + "/ARCConfig.xml", {"Config", "SGConfig", "SGPort"});
    const int s = std::atoi(sg.c_str());
    if (sg != "1025" && (s < static_cast<int>(oxproof::kArcPortBase) ||
                         s >= static_cast<int>(oxproof::kArcPortBase + oxproof::kArcPortCount))) {
      bad(&outOfSet, "SGPort " + sg);
    }
    ++filesChecked;
    const std::string props = oxtest::readFile(dir + "/log4cxx.properties");
    if (kLevels.count(oxproof::rootLevel(props)) == 0 ||
        props.find("ConversionPattern=%d{yyyy-MM-dd HH:mm:ss.SSS} %-5p [%t] %c - %m%n") == std::string::npos) {
      bad(&unparsable, "log4cxx.properties");
    }
  }
};

TEST_F(SoakTest, HostKilledAtRandomMomentsLeavesEveryFileOldOrNew) {
  const int kills = oxproof::scale("OXCFG_SOAK_KILLS", 100);
  std::mt19937 rng(static_cast<unsigned>(::getpid()));
  ChurnCheck check;
  int startFailures = 0;
  int notKilled = 0;
  size_t maxLeftovers = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kills; ++i) {
    Child child({"churn", dir(), std::to_string(rng())}, errLog());
    if (!child.waitStarted(60000)) {
      ++startFailures;
      child.kill9();
      child.wait();
      continue;
    }
    // Mostly early in the loop, sometimes well into it.
    const int delayUs = static_cast<int>(rng() % (i % 10 == 0 ? 200000 : 20000));
    std::this_thread::sleep_for(std::chrono::microseconds(delayUs));
    child.kill9();
    if (!child.killed()) ++notKilled;
    check.run(dir());
    maxLeftovers = std::max(maxLeftovers, oxproof::temporaries(dir()).size());
  }
  // A start after the last kill must still succeed and clear what the dead
  // writers left.
  {
    Child last({"start", dir()}, errLog());
    if (!last.waitStarted(60000) || !last.exitedWith(0)) ++startFailures;
  }
  const size_t finalLeftovers = oxproof::temporaries(dir()).size();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  summary("kill9: kills=" + std::to_string(kills - startFailures) + " not-killed=" + std::to_string(notKilled) +
          " seconds=" + std::to_string(static_cast<int>(seconds)));
  summary("kill9: files-checked=" + std::to_string(check.filesChecked));
  summary("kill9: unparsable=" + std::to_string(check.unparsable));
  summary("kill9: out-of-set=" + std::to_string(check.outOfSet));
  summary("kill9: leftovers-max=" + std::to_string(maxLeftovers) + " leftovers-after-start=" +
          std::to_string(finalLeftovers));
  summary("kill9: start-failures=" + std::to_string(startFailures));
  for (const std::string& p : check.problems) ADD_FAILURE() << p;
  EXPECT_EQ(check.unparsable, 0);
  EXPECT_EQ(check.outOfSet, 0);
  EXPECT_EQ(startFailures, 0) << oxtest::readFile(errLog());
  EXPECT_EQ(notKilled, 0);
  // One writer at a time per file: a dead writer leaves at most one
  // temporary per file it writes, and later writes of that file remove it.
  EXPECT_LE(maxLeftovers, 6u);
  EXPECT_EQ(finalLeftovers, 0u) << "a start leaves the temporaries of dead writers";
  // No password the run set reached the log file.
  const std::string log = oxtest::fileExists(path("log/oxconfigmgr.log")) ? oxtest::readFile(path("log/oxconfigmgr.log")) : "";
  for (unsigned i = 0; i < oxproof::kPasswordCount; ++i) {
    EXPECT_EQ(log.find(oxproof::password(i)), std::string::npos) << oxproof::password(i);
  }
}

// The archive of a configuration that differs from the factory one in the
// product name and the QAPI switch, exported by this process.
std::string exportChanged(const std::string& dir, const std::string& password) {
  std::string data;
  char old[4096];
  if (!::getcwd(old, sizeof old) || ::chdir(dir.c_str()) != 0) return data;
  if (OX_ConfigMgr_Start() == 1) {
    OX_ConfigMgr_GetBasicCfg()->setProductName("imported-name");
    OX_ConfigMgr_GetQAPICfg()->setQAPIParam(0);
    OX_ConfigMgr_GetCfgImportAndExport()->exportConfigData(data, password);
  }
  if (::chdir(old) != 0) data.clear();
  return data;
}

// Imports killed at random moments: every file stays whole, and once the
// next start has run the directory holds wholly the old configuration or
// wholly the new one, and starts.
using ImportSoakTest = SoakTest;

TEST_F(ImportSoakTest, ImportKilledHalfWayLeavesOldOrNewConfiguration) {
  const int kills = oxproof::scale("OXCFG_SOAK_IMPORT_KILLS", 100);
  const std::string password = "Import#Soak-Secret-93kd";
  const std::string source = path("source");
  const std::string tmpl = path("template");
  const std::string target = path("target");
  for (const std::string& d : {source, tmpl}) {
    ASSERT_EQ(::mkdir(d.c_str(), 0755), 0);
    oxtest::copyFactory(d);
    ASSERT_EQ(::symlink("/usr/bin/7za", (d + "/7za").c_str()), 0);
  }
  {
    Child first({"start", tmpl}, errLog());
    ASSERT_TRUE(first.waitStarted(60000) && first.exitedWith(0));
  }
  const std::string archive = exportChanged(source, password);
  ASSERT_FALSE(archive.empty());

  auto fresh = [&] {
    OxBase::Env::Default()->Run({"rm", "-rf", target}, "", "");
    OxBase::Env::Default()->Run({"cp", "-a", tmpl, target}, "", "");
    oxtest::writeFile(target + "/configurationIn.zip", archive);
  };
  // Whether each file holds the old or the new configuration; "?" when
  // neither.
  auto state = [&](const std::string& file, std::initializer_list<const char*> walk, const std::string& oldV,
                   const std::string& newV) {
    const std::string v = xmlValue(target + "/" + file, walk);
    return v == oldV ? std::string("old") : v == newV ? std::string("new") : "?" + v;
  };
  auto name = [&] { return state("Config.xml", {"Config", "BasicInfo", "Name"}, "Device Access Gateway", "imported-name"); };
  auto qapi = [&] { return state("QAPIConfig.xml", {"Config", "QAPIConfig", "Enable"}, "1", "0"); };

  // One import to its end: how long it takes, and that it works.
  fresh();
  const auto t0 = std::chrono::steady_clock::now();
  {
    Child whole({"import", target, password}, errLog());
    ASSERT_TRUE(whole.waitStarted(60000));
    ASSERT_TRUE(whole.exitedWith(0)) << oxtest::readFile(errLog());
  }
  const int importUs = static_cast<int>(
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0).count());
  ASSERT_EQ(name(), "new");
  ASSERT_FALSE(oxtest::fileExists(target + "/importJournal"));

  std::mt19937 rng(static_cast<unsigned>(::getpid()));
  int olds = 0, news = 0, mixed = 0, torn = 0, restored = 0, startFailures = 0;
  for (int i = 0; i < kills; ++i) {
    fresh();
    Child child({"import", target, password}, errLog());
    if (!child.waitStarted(60000)) {
      ++startFailures;
      continue;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % static_cast<unsigned>(importUs)));
    child.kill9();
    child.wait();
    // Whole files right after the kill, before anything repairs them.
    if (name()[0] == '?' || qapi()[0] == '?' || !oxproof::parses(target + "/PrivateConfig.xml")) {
      ++torn;
      ADD_FAILURE() << "Config.xml " << name() << ", QAPIConfig.xml " << qapi();
    }
    if (oxtest::fileExists(target + "/importJournal/manifest")) ++restored;
    Child after({"start", target}, errLog());
    if (!after.waitStarted(60000) || !after.exitedWith(0)) {
      ++startFailures;
      const OxBase::CommandResult r = OxBase::Env::Default()->Run({OXCFG_CLI_PATH, "-C", target, "start"}, "", "");
      ADD_FAILURE() << "no start after an import killed with Config.xml " << name() << ", QAPIConfig.xml "
                    << qapi() << ": " << r.output;
    }
    if (name() != qapi()) {
      ++mixed;
    } else if (name() == "old") {
      ++olds;
    } else {
      ++news;
    }
  }
  summary("import-kill9: kills=" + std::to_string(kills) + " import-ms=" + std::to_string(importUs / 1000));
  summary("import-kill9: old=" + std::to_string(olds) + " new=" + std::to_string(news) +
          " journals-restored=" + std::to_string(restored));
  summary("import-kill9: mixed=" + std::to_string(mixed) + " torn=" + std::to_string(torn));
  summary("import-kill9: start-failures=" + std::to_string(startFailures));
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(mixed, 0);
  EXPECT_EQ(startFailures, 0) << oxtest::readFile(errLog());
}

TEST_F(SoakTest, NoUpdateIsLostAcrossProcessesAndThreads) {
  const int procs = 4;
  const int threads = 4;
  const int iterations = oxproof::scale("OXCFG_SOAK_ITERATIONS", 15);
  ASSERT_LE(procs * threads, oxproof::kPortSlotCount);
  {
    Child first({"start", dir()}, errLog());  // creates the databases once
    ASSERT_TRUE(first.waitStarted(60000) && first.exitedWith(0));
  }
  std::vector<std::unique_ptr<Child>> children;
  for (int p = 0; p < procs; ++p) {
    children.emplace_back(new Child({"lost", dir(), std::to_string(p), std::to_string(threads),
                                     std::to_string(iterations)},
                                    errLog()));
  }
  int failedProcs = 0;
  for (auto& c : children) {
    if (!c->exitedWith(0)) ++failedProcs;
  }
  int lostPorts = 0;
  for (int slot = 0; slot < procs * threads; ++slot) {
    const oxproof::PortSlot& ps = oxproof::kPortSlots[slot];
    OxBase::CXmlBase xml;
    ASSERT_EQ(xml.LoadFile(path("Config.xml")), 1);
    std::vector<const char*> walk = {"Config", "Network"};
    for (const char* const* e = ps.path; *e; ++e) walk.push_back(*e);
    bool found = xml.FindElem(walk[0]) && xml.IntoElem();
    for (size_t i = 1; found && i < walk.size(); ++i) {
      found = xml.FindElem(walk[i]) && (i + 1 == walk.size() || xml.IntoElem());
    }
    const std::string want = std::to_string(oxproof::lostUpdateValue(slot, iterations));
    if (!found || xml.GetData() != want) {
      ++lostPorts;
      ADD_FAILURE() << "slot " << slot << ": " << (found ? xml.GetData() : "<missing>") << " != " << want;
    }
  }
  // The system-log rows: every insert of every thread is there.
  {
    oxtest::LogCapture capture;
    const int started = OX_ConfigMgr_Start();
    std::string messages;
    for (const auto& e : capture.entries()) messages += e.text + "\n";
    ASSERT_EQ(started, 1) << messages;
  }
  const OxBase::CommandResult r = OxBase::Env::Default()->Run(
      {"sqlite3", "-batch", path("Syslog.db3"), "select count(*) from Syslog where UserName like 'soak-%';"}, "", "");
  const int rows = std::atoi(r.output.c_str());
  const int lostRows = procs * threads * iterations - rows;
  // The credentials: whichever password won, the row is whole: its digest
  // hash and its session password belong to the same written password.
  std::shared_ptr<OxConfigMgr::CUserCfg> user = OX_ConfigMgr_GetUserCfg();
  OxConfigMgr::tagUserInfo info;
  user->getUserInfo(info);
  bool credentialsWhole = false;
  for (int slot = 0; slot < procs * threads && !credentialsWhole; ++slot) {
    for (int k = 1; k <= iterations && !credentialsWhole; ++k) {
      const std::string pw = oxproof::password(static_cast<unsigned>(slot * 1000 + k));
      credentialsWhole = oxtest::digestHex(EVP_md5(), std::string("admin:") + info.Realm + ":" + pw) ==
                             info.DigestPassword &&
                         oxtest::digestHex(EVP_sha256(), std::string("admin") + info.SessionSalt + pw) ==
                             info.SessionPassword;
    }
  }

  summary("lost-updates: processes=" + std::to_string(procs) + " threads=" + std::to_string(threads) +
          " iterations=" + std::to_string(iterations) + " failed-processes=" + std::to_string(failedProcs));
  summary("lost-updates: config-xml-lost=" + std::to_string(lostPorts) + " of " + std::to_string(procs * threads));
  summary("lost-updates: syslog-rows-lost=" + std::to_string(lostRows) + " of " +
          std::to_string(procs * threads * iterations));
  summary(std::string("lost-updates: credentials-whole=") + (credentialsWhole ? "yes" : "no"));
  EXPECT_EQ(failedProcs, 0) << oxtest::readFile(errLog());
  EXPECT_EQ(lostPorts, 0);
  EXPECT_EQ(lostRows, 0);
  EXPECT_TRUE(credentialsWhole);
}

}  // namespace
