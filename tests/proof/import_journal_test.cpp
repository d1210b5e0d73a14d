// What a start does with the journal an import left behind: a complete one
// puts every file back (and removes the files the import created), an
// incomplete one is dropped without touching anything, one that names a
// file outside the import's set stops the start.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <functional>
#include <string>
#include <vector>

#include "proof/proof_support.h"
#include "support/test_support.h"
#include "transfer/import_journal.h"

namespace {

using OxConfigMgr::transfer::ImportJournal;

class ImportJournalStartTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
    ASSERT_EQ(::mkdir(path("nginx").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(path("nginx/conf").c_str(), 0755), 0);
  }
  std::string name() { return oxproof::xmlValue(path("Config.xml"), {"Config", "BasicInfo", "Name"}); }
};

TEST_F(ImportJournalStartTest, StartRestoresACompleteJournalAndDropsAnIncompleteOne) {
  const std::string factoryName = "Device Access Gateway";
  struct Case {
    const char* what;
    // Changes the directory as a dead import would have, after its journal.
    std::function<void()> crash;
    int started;
    int level;
    std::string message;  // logged by the start
    std::string nameAfter;
    bool certAfter;  // "nginx/conf/cert.pem" exists after the start
  };
  const std::vector<Case> cases = {
      {"killed after the merge",
       [&] {
         oxtest::writeFile(path("Config.xml"),
                           "<?xml version=\"1.0\"?><Config><BasicInfo><Name>half</Name></BasicInfo></Config>");
         oxtest::writeFile(path("PrivateConfig.xml"), "<PrivateConfig/>");
         oxtest::writeFile(path("nginx/conf/cert.pem"), "new certificate");
       },
       1, 4, "import journal restored, files[4]", factoryName, false},
      {"killed before the manifest", [&] { ::unlink(path("importJournal/manifest").c_str()); }, 1, 3,
       "incomplete import journal removed, path[" + path("importJournal") + "]", factoryName, false},
      {"manifest naming a foreign file",
       [&] {
         oxtest::writeFile(path("importJournal/manifest"), "oxcfg import journal 1\n1 ../Config.xml\nend\n");
       },
       0, 5, "import journal unreadable, path[" + path("importJournal/manifest") + "]", factoryName, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    // The import's process journals, changes files and dies: it never
    // commits nor rolls back.
    const pid_t pid = ::fork();
    if (pid == 0) {
      ImportJournal journal(dir() + "/");
      if (!journal.Begin({"Config.xml", "PrivateConfig.xml", "QAPIConfig.xml", "nginx/conf/cert.pem"})) ::_exit(1);
      c.crash();
      ::_exit(0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    oxtest::LogCapture capture;
    EXPECT_EQ(OX_ConfigMgr_Start(), c.started);
    EXPECT_TRUE(capture.has(c.level, c.message)) << c.message;
    EXPECT_EQ(name(), c.nameAfter);
    EXPECT_EQ(oxtest::fileExists(path("nginx/conf/cert.pem")), c.certAfter);
    if (c.started) {
      EXPECT_EQ(oxproof::xmlValue(path("PrivateConfig.xml"), {"PrivateConfig", "LDM", "LDMPort"}), "9010");
      EXPECT_FALSE(oxtest::fileExists(path("importJournal")));
      EXPECT_TRUE(oxproof::temporaries(dir()).empty());
    }
    OX_ConfigMgr_Uninit();
  }
}

}  // namespace
