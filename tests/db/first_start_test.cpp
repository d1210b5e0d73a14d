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
#include <utility>
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
  // With `realmFile`, a successful start writes its digest realm there.
  static pid_t forkStart(const std::string& workDir, const int* gate = nullptr, const std::string& realmFile = "") {
    pid_t pid = ::fork();
    if (pid != 0) return pid;
    if (gate) {
      ::close(gate[1]);
      char c;
      while (::read(gate[0], &c, 1) < 0 && errno == EINTR) {
      }
    }
    if (::chdir(workDir.c_str()) != 0) ::_exit(3);
    if (OX_ConfigMgr_Start() != 1) ::_exit(1);
    if (!realmFile.empty()) oxtest::writeFile(realmFile, OX_ConfigMgr_GetUserCfg()->getRealm());
    ::_exit(0);
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
    for (int i = 0; i < kProcesses; ++i) pids.push_back(forkStart(d, gate, d + "/realm" + std::to_string(i)));
    ::close(gate[0]);
    ::close(gate[1]);  // all go
    int failed = 0;
    for (pid_t pid : pids) failed += reap(pid) != 0;
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(reap(forkStart(d, nullptr, d + "/realm")), 0);
    // One realm for the gateway, whichever process gave it.
    const std::string realm = oxtest::readFile(d + "/realm");
    EXPECT_EQ(realm.compare(0, 10, "ZX-AG2010("), 0) << realm;
    for (int i = 0; i < kProcesses; ++i) EXPECT_EQ(oxtest::readFile(d + "/realm" + std::to_string(i)), realm) << i;
  }
}

// Counts the Env calls made while the lock file of a database is held (from
// its opening to its closing) and, at call number `stage`, kills the process
// or fails that call with EIO.
class StageEnv : public OxBase::EnvWrapper {
 public:
  StageEnv(int stage, bool kill) : EnvWrapper(OxBase::Env::Current()), stage_(stage), kill_(kill) {}
  // Whether call number `stage` came.
  bool reached() const { return reached_; }

  int Open(const std::string& p, int f, mode_t m) override {
    const std::string suffix = ".db3.lock";
    const bool lockFile = p.size() > suffix.size() && p.compare(p.size() - suffix.size(), suffix.size(), suffix) == 0;
    armed_ = armed_ || lockFile;
    if (hit()) return fail();
    int fd = EnvWrapper::Open(p, f, m);
    if (lockFile) lockFd_ = fd;
    return fd;
  }
  int Close(int fd) override {
    const bool failed = hit() && fail() < 0;
    int rc = EnvWrapper::Close(fd);
    if (fd == lockFd_) {
      armed_ = false;
      lockFd_ = -1;
    }
    return failed ? -1 : rc;
  }
  int Flock(int fd, int op) override { return hit() ? fail() : EnvWrapper::Flock(fd, op); }
  int Fchmod(int fd, mode_t m) override { return hit() ? fail() : EnvWrapper::Fchmod(fd, m); }
  int Unlink(const std::string& p) override { return hit() ? fail() : EnvWrapper::Unlink(p); }
  ssize_t Write(int fd, const void* d, size_t n) override { return hit() ? fail() : EnvWrapper::Write(fd, d, n); }
  int Fsync(int fd) override { return hit() ? fail() : EnvWrapper::Fsync(fd); }
  int Rename(const std::string& a, const std::string& b) override {
    return hit() ? fail() : EnvWrapper::Rename(a, b);
  }

 private:
  bool hit() {
    if (!armed_ || ++calls_ != stage_) return false;
    reached_ = true;
    return true;
  }
  int fail() {
    if (kill_) ::raise(SIGKILL);
    errno = EIO;
    return -1;
  }
  int stage_;
  bool kill_;
  bool armed_ = false;
  int lockFd_ = -1;
  int calls_ = 0;
  bool reached_ = false;
};

// A first start whose database step is killed, or fails, at one Env call
// after another: the next start always succeeds.
class StageTest : public FirstStartTest, public ::testing::WithParamInterface<bool> {};

TEST_P(StageTest, AFirstStartStoppedAtAnyStageOfTheDatabasesIsFollowedByASuccessfulStart) {
  const bool kill = GetParam();
  int stopped = 0;
  for (int stage = 1; stage <= 40; ++stage) {
    SCOPED_TRACE("stage " + std::to_string(stage));
    const std::string d = freshDir("stage" + std::to_string(stage));
    pid_t pid = ::fork();
    if (pid == 0) {
      StageEnv env(stage, kill);
      OxBase::Env::Install(&env);
      if (::chdir(d.c_str()) != 0) ::_exit(3);
      const int rc = OX_ConfigMgr_Start();
      ::_exit(env.reached() ? (rc == 1 ? 10 : 11) : 12);
    }
    const int first = reap(pid);
    if (first == 12) break;  // past the last call made under a database's lock
    ASSERT_TRUE(first == 128 + SIGKILL || first == 10 || first == 11) << first;
    stopped += first != 10;
    EXPECT_EQ(startAlone(d), 0);
  }
  // Both databases, each with its lock, file probe and creation.
  EXPECT_GE(stopped, 8);
}

INSTANTIATE_TEST_SUITE_P(KilledOrFailed, StageTest, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& i) { return i.param ? "Killed" : "Failed"; });

TEST_F(FirstStartTest, AFirstStartKilledWhileTheDatabasesAreMadeIsFollowedByASuccessfulStart) {
  for (int delayUs = 0; delayUs <= 3000; delayUs += 200) {
    SCOPED_TRACE("killed " + std::to_string(delayUs) + " us after the file appeared");
    const std::string d = freshDir("kill" + std::to_string(delayUs));
    pid_t pid = forkStart(d);
    // From the moment the configuration database exists.
    const std::string db = d + "/Config.db3";
    for (int i = 0; i < 200000 && !oxtest::fileExists(db); ++i) ::usleep(20);
    if (delayUs > 0) ::usleep(static_cast<useconds_t>(delayUs));
    ::kill(pid, SIGKILL);
    reap(pid);
    EXPECT_EQ(startAlone(d), 0);
  }
}

}  // namespace
