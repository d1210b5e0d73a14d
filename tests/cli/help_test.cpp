// oxcfg as operators meet it: help for every command with an example, the
// manual page made from the same text, the completion words, the exit
// statuses (0 done, 1 refused with the library's result code, 2 usage), errors
// on standard error and --json on the commands that print data.
#include <pty.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "cli/cli_support.h"
#include "platform/env.h"
#include "support/test_support.h"

namespace {

using oxtest::CliRun;

class CliTest : public oxtest::WorkDirTest {
 protected:
  CliRun cli(const std::vector<std::string>& args, const std::string& input = "") {
    return oxtest::runOxcfg(args, dir(), input);
  }
  // A laid-out directory, started once.
  std::string gateway() {
    const std::string gw = path("gw");
    EXPECT_EQ(cli({"init", gw}).status, 0);
    EXPECT_EQ(cli({"-C", gw, "start"}).status, 0);
    return gw;
  }
};

std::vector<std::string> commandNames(const std::string& json) {
  std::vector<std::string> names;
  std::regex name("\\{\"name\": \"([^\"]+)\"");
  for (std::sregex_iterator it(json.begin(), json.end(), name), end; it != end; ++it) names.push_back((*it)[1]);
  return names;
}

// The text of a roff page with its escapes and font changes undone.
std::string deRoff(std::string text) {
  const std::vector<std::pair<std::string, std::string>> escapes = {
      {"\\fB", ""}, {"\\fI", ""}, {"\\fR", ""}, {"\\-", "-"}, {"\\&", ""}, {"\\e", "\\"}};
  for (const auto& e : escapes) {
    for (size_t pos = text.find(e.first); pos != std::string::npos; pos = text.find(e.first, pos)) {
      text.replace(pos, e.first.size(), e.second);
      pos += e.second.size();
    }
  }
  return text;
}

TEST_F(CliTest, EveryCommandHasHelpWithAnExampleAndIsInTheManualPage) {
  CliRun list = cli({"help", "--json"});
  ASSERT_EQ(list.status, 0) << list.err;
  const std::vector<std::string> names = commandNames(list.out);
  ASSERT_GT(names.size(), 50u) << list.out;
  CliRun man = cli({"manpage"});
  ASSERT_EQ(man.status, 0);
  // The page installed with the tool is the one the build generated.
  const std::string built = std::string(OXCFG_BINARY_DIR) + "/cli/oxcfg.1";
  if (oxtest::fileExists(built)) {
    EXPECT_EQ(oxtest::readFile(built), man.out);
  }
  const std::string page = deRoff(man.out);
  CliRun full = cli({"--help"});
  EXPECT_EQ(full.status, 0);
  for (const auto& name : names) {
    std::vector<std::string> args{"help"};
    size_t pos = 0;
    while (pos <= name.size()) {
      size_t sp = name.find(' ', pos);
      args.push_back(name.substr(pos, sp == std::string::npos ? std::string::npos : sp - pos));
      if (sp == std::string::npos) break;
      pos = sp + 1;
    }
    CliRun h = cli(args);
    ASSERT_EQ(h.status, 0) << name << ": " << h.err;
    // usage line, blank line, the help line.
    const size_t start = h.out.find("\n\n") + 2;
    const std::string help = h.out.substr(start, h.out.find('\n', start) - start);
    ASSERT_FALSE(help.empty()) << name;
    const size_t ex = h.out.find("Example:\n  ");
    ASSERT_NE(ex, std::string::npos) << name << ": " << h.out;
    const std::string example = h.out.substr(ex + 11, h.out.find('\n', ex + 11) - ex - 11);
    EXPECT_EQ(example.find("oxcfg") == std::string::npos, false) << name << ": " << example;
    EXPECT_NE(page.find("\n" + help + "\n"), std::string::npos) << name << " help not in the manual page: " << help;
    EXPECT_NE(page.find("Example: " + example), std::string::npos) << name << " example not in the manual page";
    EXPECT_NE(full.out.find(help), std::string::npos) << name << " not in --help";
    // `oxcfg COMMAND --help` is the same text.
    std::vector<std::string> dashed(args.begin() + 1, args.end());
    dashed.push_back("--help");
    EXPECT_EQ(cli(dashed).out, h.out) << name;
  }
}

TEST_F(CliTest, UsageErrorsExitTwoOnStandardError) {
  const std::vector<std::vector<std::string>> cases = {
      {},                                        // no command
      {"frobnicate"},                            // unknown command
      {"--bogus"},                               // unknown option
      {"help", "frobnicate"},                    // help of no command
      {"init"},                                  // missing DIR
      {"show", "nosuchsection"},                 // unknown section
      {"-C"},                                    // -C without DIR
  };
  for (const auto& args : cases) {
    CliRun r = cli(args);
    EXPECT_EQ(r.status, 2) << ::testing::PrintToString(args) << r.out << r.err;
    EXPECT_EQ(r.out, "") << ::testing::PrintToString(args);
    EXPECT_NE(r.err, "") << ::testing::PrintToString(args);
  }
  const std::string gw = gateway();
  for (const auto& args : std::vector<std::vector<std::string>>{{"-C", gw, "set", "log", "level", "9"},
                                                               {"-C", gw, "set", "qapi", "maybe"},
                                                               {"-C", gw, "set", "network", "http-port", "x"}}) {
    CliRun r = cli(args);
    EXPECT_EQ(r.status, 2) << ::testing::PrintToString(args) << r.out << r.err;
    EXPECT_EQ(r.out, "");
  }
}

TEST_F(CliTest, RefusedValueExitsOneWithTheResultCode) {
  const std::string gw = gateway();
  CliRun r = cli({"-C", gw, "set", "product-name", std::string(40, 'x')});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("set product-name: failed (result 1: "), std::string::npos) << r.err;
  r = cli({"-C", gw, "--json", "set", "product-name", std::string(40, 'x')});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("{\"command\": \"set product-name\", \"result\": 1, \"ok\": false"), std::string::npos)
      << r.out;
  r = cli({"-C", gw, "set", "product-name", "Gate 7"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "set product-name: done (result 0)\n");
  EXPECT_EQ(r.err, "");
}

TEST_F(CliTest, DataCommandsPrintJson) {
  const std::string gw = gateway();
  const std::vector<std::vector<std::string>> cases = {
      {"show", "basic"},          {"time", "show"},          {"codes", "list", "sg", "--size", "2"},
      {"codes", "convert", "ZONE_BURGLARY_ALARM"}, {"start"}, {"help", "doctor"}, {"doctor", gw},
  };
  for (auto args : cases) {
    args.insert(args.begin(), {"-C", gw});
    args.push_back("--json");
    CliRun r = cli(args);
    EXPECT_LE(r.status, 1) << ::testing::PrintToString(args) << r.err;
    ASSERT_FALSE(r.out.empty()) << ::testing::PrintToString(args);
    EXPECT_EQ(r.out.front(), '{') << ::testing::PrintToString(args) << r.out;
    EXPECT_EQ(r.out.substr(r.out.size() - 2), "}\n") << ::testing::PrintToString(args) << r.out;
  }
  CliRun r = cli({"-C", gw, "codes", "convert", "ZONE_BURGLARY_ALARM", "--json"});
  EXPECT_NE(r.out.find("\"cid\": \"1130\""), std::string::npos) << r.out;
}

TEST_F(CliTest, CompletionOffersCommandsSectionsAndFields) {
  auto words = [&](std::vector<std::string> typed) {
    typed.insert(typed.begin(), "__complete");
    return cli(typed).out;
  };
  EXPECT_NE(words({}).find("doctor\n"), std::string::npos);
  EXPECT_NE(words({}).find("set\n"), std::string::npos);
  EXPECT_NE(words({"set"}).find("network\n"), std::string::npos);
  EXPECT_NE(words({"set", "network"}).find("http-port\n"), std::string::npos);
  EXPECT_NE(words({"show"}).find("alarmmonitor\n"), std::string::npos);
  EXPECT_NE(words({"set", "arc"}).find("sg.port\n"), std::string::npos);
  EXPECT_NE(words({"set", "log", "enable"}).find("on\n"), std::string::npos);
  EXPECT_NE(words({"help", "cert"}).find("selfsign\n"), std::string::npos);
  EXPECT_EQ(cli({"--help"}).out.find("__complete"), std::string::npos);

  // The script itself, run by bash with this build's oxcfg first on PATH.
  CliRun script = cli({"completion"});
  ASSERT_EQ(script.status, 0);
  oxtest::writeFile(path("completion.bash"), script.out);
  const std::string bin = std::string(OXCFG_CLI_PATH).substr(0, std::string(OXCFG_CLI_PATH).rfind('/'));
  OxBase::CommandResult r = OxBase::Env::Default()->Run(
      {"bash", "-c",
       "PATH=\"$1:$PATH\"; source \"$2\"; COMP_WORDS=(oxcfg -C /tmp show net); COMP_CWORD=4; _oxcfg; "
       "echo \"${COMPREPLY[*]}\"",
       "bash", bin, path("completion.bash")},
      "", "");
  EXPECT_EQ(r.exitCode, 0) << r.output;
  EXPECT_EQ(r.output, "network\n");
}

// Runs oxcfg with a terminal as its standard streams, answering each
// password prompt with `password`; returns everything it wrote.
std::string runOnTerminal(const std::vector<std::string>& args, const std::string& password, int* status) {
  std::vector<std::string> argv{OXCFG_CLI_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (auto& a : argv) cargv.push_back(&a[0]);
  cargv.push_back(nullptr);
  int master = -1;
  pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    ::execv(cargv[0], cargv.data());
    ::_exit(127);
  }
  std::string out;
  size_t answered = 0;
  for (;;) {
    pollfd p{master, POLLIN, 0};
    if (::poll(&p, 1, 30000) <= 0) break;
    char buf[512];
    ssize_t n = ::read(master, buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
    // Each prompt gets its answer once it is shown (echo is off by then).
    size_t prompts = 0;
    for (size_t pos = out.find("password: "); pos != std::string::npos; pos = out.find("password: ", pos + 1)) ++prompts;
    while (answered < prompts) {
      const std::string line = password + "\n";
      if (::write(master, line.data(), line.size()) < 0) break;
      ++answered;
    }
  }
  ::close(master);
  int st = 0;
  ::waitpid(pid, &st, 0);
  *status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return out;
}

TEST_F(CliTest, ExportAndImportShowProgressOnATerminalOnly) {
  const std::string gw = gateway();
  int status = -1;
  std::string screen = runOnTerminal({"-C", gw, "export", path("gw.zip")}, "archive pass", &status);
  EXPECT_EQ(status, 0) << screen;
  EXPECT_NE(screen.find("export: working"), std::string::npos) << screen;
  EXPECT_NE(screen.find("export: finished in "), std::string::npos) << screen;
  screen = runOnTerminal({"-C", gw, "import", path("gw.zip")}, "archive pass", &status);
  EXPECT_EQ(status, 0) << screen;
  EXPECT_NE(screen.find("import: finished in "), std::string::npos) << screen;

  // Not a terminal: the output is what it always was.
  CliRun r = cli({"-C", gw, "export", path("gw2.zip")}, "archive pass\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "export: done (result 0)\n");
  EXPECT_EQ(r.err.find("working"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("finished"), std::string::npos) << r.err;
}

}  // namespace
