// Runs the oxcfg binary of this build as an operator would and keeps its
// standard output, standard error and exit status apart.
#ifndef OXCFG_TESTS_CLI_CLI_SUPPORT_H
#define OXCFG_TESTS_CLI_CLI_SUPPORT_H

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/test_support.h"

namespace oxtest {

struct CliRun {
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string out, err;
};

// `scratch` is a directory for the captured streams; `input` goes to the
// standard input of the tool.
inline CliRun runOxcfg(const std::vector<std::string>& args, const std::string& scratch,
                       const std::string& input = "") {
  const std::string inPath = scratch + "/.cli-in", outPath = scratch + "/.cli-out", errPath = scratch + "/.cli-err";
  writeFile(inPath, input);
  std::vector<std::string> argv{OXCFG_CLI_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (auto& a : argv) cargv.push_back(&a[0]);
  cargv.push_back(nullptr);
  CliRun r;
  pid_t pid = ::fork();
  if (pid == 0) {
    int in = ::open(inPath.c_str(), O_RDONLY);
    int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || out < 0 || err < 0) ::_exit(127);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    ::execv(cargv[0], cargv.data());
    ::_exit(127);
  }
  int st = 0;
  if (pid > 0 && ::waitpid(pid, &st, 0) == pid && WIFEXITED(st)) r.status = WEXITSTATUS(st);
  r.out = readFile(outPath);
  r.err = readFile(errPath);
  ::unlink(inPath.c_str());
  ::unlink(outPath.c_str());
  ::unlink(errPath.c_str());
  return r;
}

}  // namespace oxtest

#endif  // OXCFG_TESTS_CLI_CLI_SUPPORT_H
