// Commands fed on their standard input: a child that stops reading must not
// take the host down with SIGPIPE, whatever the host did with that signal.
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <string>

#include "platform/env.h"
#include "support/test_support.h"

namespace {

class CommandTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    // The host's own choice, which the library must neither need nor change.
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    ASSERT_EQ(sigaction(SIGPIPE, &dfl, &saved_), 0);
  }
  void TearDown() override {
    sigaction(SIGPIPE, &saved_, nullptr);
    WorkDirTest::TearDown();
  }
  static bool blocked() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
  }
  static bool pending() {
    sigset_t set;
    sigpending(&set);
    return sigismember(&set, SIGPIPE) == 1;
  }
  // A child that closes its input at once, then exits with 7 a little later
  // (so the library is still feeding it when the pipe breaks).
  static OxBase::CommandResult runNonReader() {
    return OxBase::Env::Current()->Run({"sh", "-c", "exec 0<&-; sleep 0.2; exit 7"},
                                       std::string(4 << 20, 'p'), "");
  }

  struct sigaction saved_ {};
};

TEST_F(CommandTest, AChildThatReadsNothingGivesItsExitCodeAndNoSignal) {
  for (int round = 0; round < 3; ++round) {
    OxBase::CommandResult r = runNonReader();
    EXPECT_EQ(r.exitCode, 7);
  }
  struct sigaction now {};
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
  EXPECT_FALSE(blocked());
  EXPECT_FALSE(pending());
}

TEST_F(CommandTest, AHostsOwnBlockedAndPendingSigpipeIsLeftAsItWas) {
  sigset_t pipe, old;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &pipe, &old), 0);

  // Blocked, nothing pending: the library's own SIGPIPE is consumed.
  EXPECT_EQ(runNonReader().exitCode, 7);
  EXPECT_TRUE(blocked());
  EXPECT_FALSE(pending());

  // Blocked with the host's own SIGPIPE pending: it stays for the host.
  ASSERT_EQ(pthread_kill(pthread_self(), SIGPIPE), 0);
  EXPECT_EQ(runNonReader().exitCode, 7);
  EXPECT_TRUE(blocked());
  EXPECT_TRUE(pending());

  const timespec zero{0, 0};
  EXPECT_EQ(sigtimedwait(&pipe, nullptr, &zero), SIGPIPE);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

}  // namespace
