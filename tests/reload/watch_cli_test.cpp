// oxcfg watch: one line per value that another process changes.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "sections/sections_fixture.h"

extern char** environ;

namespace {

class WatchCliTest : public oxtest::SectionsTest {
 protected:
  // Starts oxcfg with `args`, its output going to "watch.out".
  // The files of an earlier watch are removed first: where posix_spawn
  // returns before the child opened its files (qemu-user), the earlier
  // "watching" line must not pass for this watch's.
  pid_t startWatch(std::vector<std::string> args) {
    ::unlink(path("watch.out").c_str());
    ::unlink(path("watch.err").c_str());
    args.insert(args.begin(), OXCFG_CLI_PATH);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, path("watch.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, path("watch.err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
  }
  // Waits up to 10 s for `part` in the file `name`.
  bool appears(const std::string& name, const std::string& part) {
    for (int i = 0; i < 2000; ++i) {
      if (oxtest::fileExists(path(name)) && oxtest::readFile(path(name)).find(part) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }
  void otherProcess(std::vector<std::string> args) {
    args.insert(args.begin(), {OXCFG_CLI_PATH, "-C", dir()});
    const OxBase::CommandResult r = OxBase::Env::Default()->Run(args, "", "");
    ASSERT_EQ(r.exitCode, 0) << r.output;
  }
  // Interrupts the watch; its exit status.
  int interrupt(pid_t pid) {
    ::kill(pid, SIGINT);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

TEST_F(WatchCliTest, PrintsEachChangeOfAnotherProcessUntilInterrupted) {
  // A directory without a configuration of its own, to watch from.
  const std::string elsewhere = path("elsewhere");
  ASSERT_EQ(::mkdir(elsewhere.c_str(), 0755), 0);
  struct Case {
    std::vector<std::string> args;
    const char* port;
    std::string expected;
  };
  // One directory: each case starts from the port the one before set.
  const Case cases[] = {
      {{"-C", dir(), "watch"}, "30005", "Config.xml  network / HTTP port: 80 (external 0) -> 80 (external 30005)"},
      {{"-C", dir(), "watch", "--json"}, "30006",
       "{\"file\":\"Config.xml\",\"section\":\"network\",\"field\":\"HTTP port\","
       "\"old\":\"80 (external 30005)\",\"new\":\"80 (external 30006)\"}"},
      {{"-C", elsewhere, "watch", dir()}, "30007",
       "Config.xml  network / HTTP port: 80 (external 30006) -> 80 (external 30007)"},
  };
  for (const Case& c : cases) {
    const pid_t pid = startWatch(c.args);
    ASSERT_GT(pid, 0);
    if (!appears("watch.err", "watching")) {
      interrupt(pid);
      FAIL() << oxtest::readFile(path("watch.err"));
    }
    otherProcess({"set", "network", "ext-http-port", c.port});
    EXPECT_TRUE(appears("watch.out", c.expected)) << oxtest::readFile(path("watch.out"));
    EXPECT_EQ(interrupt(pid), 0);
    // Nothing but the changed field was reported.
    EXPECT_EQ(oxtest::readFile(path("watch.out")), c.expected + "\n");
  }
  // Nothing was laid out or written where it ran from.
  EXPECT_FALSE(oxtest::fileExists(elsewhere + "/Config.xml"));
}

}  // namespace
