// Helpers of the crash and concurrency proofs: running the soak helper as a
// real process, reading values out of the files it writes, and the scale of
// a run (OXCFG_SOAK_KILLS and friends; `make soak` sets the long ones).
#ifndef OXCFG_TESTS_PROOF_PROOF_SUPPORT_H
#define OXCFG_TESTS_PROOF_PROOF_SUPPORT_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace oxproof {

inline int scale(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::atoi(v) : fallback;
}

inline std::string childPath() { return std::string(OXCFG_BINARY_DIR) + "/tests/oxcfg_soak_child"; }

// A soak helper process; its standard output is a pipe, its standard error
// goes to `errFile`.
class Child {
 public:
  Child(const std::vector<std::string>& args, const std::string& errFile) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    std::vector<char*> argv;
    std::string exe = childPath();
    argv.push_back(&exe[0]);
    std::vector<std::string> copy = args;
    for (std::string& a : copy) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], 1);
      int err = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (err >= 0) ::dup2(err, 2);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    out_ = fds[0];
  }
  ~Child() {
    if (pid_ > 0 && status_ < 0) {
      ::kill(pid_, SIGKILL);
      wait();
    }
    if (out_ >= 0) ::close(out_);
  }
  // True once the helper printed "started" (its start succeeded) within
  // `timeoutMs`; false when it exited or stayed silent.
  bool waitStarted(int timeoutMs) {
    std::string got;
    while (got.find("started\n") == std::string::npos) {
      pollfd p{out_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) <= 0) return false;
      char buf[64];
      ssize_t n = ::read(out_, buf, sizeof buf);
      if (n <= 0) return false;
      got.append(buf, static_cast<size_t>(n));
    }
    return true;
  }
  void kill9() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }
  // Reaps the helper: its wait status.
  int wait() {
    if (status_ < 0 && pid_ > 0) {
      int st = 0;
      while (::waitpid(pid_, &st, 0) < 0 && errno == EINTR) {
      }
      status_ = st;
    }
    return status_;
  }
  bool exitedWith(int code) {
    int st = wait();
    return WIFEXITED(st) && WEXITSTATUS(st) == code;
  }
  bool killed() {
    int st = wait();
    return WIFSIGNALED(st) && WTERMSIG(st) == SIGKILL;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  int status_ = -1;
};

// Text of the element at `walk` of `file`; "<unparsable>" or "<missing>".
inline std::string xmlValue(const std::string& file, std::initializer_list<const char*> walk) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(file) != 1) return "<unparsable>";
  return OxConfigMgr::xmlWalk(xml, walk) ? xml.GetData() : "<missing>";
}

inline bool parses(const std::string& file) {
  OxBase::CXmlBase xml;
  return xml.LoadFile(file) == 1;
}

// Names of temporary files of the atomic writer in `dir`.
inline std::vector<std::string> temporaries(const std::string& dir) {
  std::vector<std::string> out;
  for (const std::string& n : oxtest::listDir(dir)) {
    if (!n.empty() && n[0] == '.' && n.find(".tmp.") != std::string::npos) out.push_back(n);
  }
  return out;
}

// The level on the root logger line of a properties file; "" when the line
// or its comma is missing.
inline std::string rootLevel(const std::string& content) {
  const std::string key = "log4j.rootLogger=";
  size_t at = content.find(key);
  if (at == std::string::npos) return "";
  size_t comma = content.find(',', at);
  size_t eol = content.find('\n', at);
  if (comma == std::string::npos || (eol != std::string::npos && comma > eol)) return "";
  return content.substr(at + key.size(), comma - at - key.size());
}

// Prints a summary line that survives gtest's output and ctest's capture.
inline void summary(const std::string& line) {
  std::printf("SOAK %s\n", line.c_str());
  std::fflush(stdout);
}

}  // namespace oxproof

#endif  // OXCFG_TESTS_PROOF_PROOF_SUPPORT_H
