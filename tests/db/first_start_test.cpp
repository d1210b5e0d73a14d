// The first start of a gateway: several service processes starting together
// on a fresh directory, and first starts that die or fail while the
// databases are being made. Every start here runs in a forked process (the
// library starts once per process), forked before this process has threads.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <string>
#include <vector>

#include "db/db_test_support.h"

namespace {

// Waits for `pid`; its exit code, or 128 + signal when a signal ended it.
int reap(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class FirstStartTest : public oxtest::WorkDirTest {
 protected:
  // A fresh working directory with the factory files, inside the test's.
  std::string freshDir(const std::string& name) {
    const std::string d = path(name);
    EXPECT_EQ(::mkdir(d.c_str(), 0700), 0);
    oxtest::copyFactory(d);
    return d;
  }

  // Forks a process that calls OX_ConfigMgr_Start in `workDir` once `gate`
  // is closed (at once when there is none) and exits 0 when it succeeded.
  static pid_t forkStart(const std::string& workDir, const int* gate = nullptr) {
    pid_t pid = ::fork();
    if (pid != 0) return pid;
    if (gate) {
      ::close(gate[1]);
      char c;
      while (::read(gate[0], &c, 1) < 0 && errno == EINTR) {
      }
    }
    if (::chdir(workDir.c_str()) != 0) ::_exit(3);
    ::_exit(OX_ConfigMgr_Start() == 1 ? 0 : 1);
  }

  // Starts in a new process and waits: 0 when that start succeeded.
  static int startAlone(const std::string& workDir) { return reap(forkStart(workDir)); }
};

TEST_F(FirstStartTest, ProcessesStartingTogetherOnAFreshDirectoryAllSucceed) {
  constexpr int kRounds = 8, kProcesses = 4;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::string d = freshDir("round" + std::to_string(round));
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::vector<pid_t> pids;
    for (int i = 0; i < kProcesses; ++i) pids.push_back(forkStart(d, gate));
    ::close(gate[0]);
    ::close(gate[1]);  // all go
    int failed = 0;
    for (pid_t pid : pids) failed += reap(pid) != 0;
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(startAlone(d), 0);
  }
}

}  // namespace
