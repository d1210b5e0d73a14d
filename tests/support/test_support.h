// Shared test fixtures: a fresh working directory per test, log capture and
// fault-injecting environments.
#ifndef OXCFG_TESTS_SUPPORT_TEST_SUPPORT_H
#define OXCFG_TESTS_SUPPORT_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "platform/env.h"
#include "platform/xlog.h"

namespace oxtest {

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
bool fileExists(const std::string& path);
mode_t fileMode(const std::string& path);
// Names in `dir` (no "." and "..").
std::vector<std::string> listDir(const std::string& dir);
// Text of the element at `walk` (from the root) in the file `path`;
// "<missing>" when the file does not parse or the element is absent.
std::string xmlText(const std::string& path, std::initializer_list<const char*> walk);
// Copies the factory defaults (all files but README.md) into `dir`.
void copyFactory(const std::string& dir);
// A "log4cxx.properties" text whose root logger, at `level`, writes each
// message as `pattern` to the file `logPath`, flushed at once.
std::string fileLogProperties(const std::string& logPath, const char* pattern = "%m%n", const char* level = "INFO");

// Captures every message of the library while alive.
class LogCapture : public OxBase::LogSink {
 public:
  struct Entry {
    int level;
    std::string module;
    std::string text;
  };
  LogCapture() { OxBase::SetLogSink(this); }
  ~LogCapture() override { OxBase::SetLogSink(nullptr); }
  void Log(int level, const char* module, const std::string& text) override;

  std::vector<Entry> entries() const;
  // True when a message at `level` from `module` has exactly `text` once the
  // "[function(line)] " prefix is removed.
  bool has(int level, const std::string& text, const std::string& module = "OXW") const;
  // True when any message contains `part`.
  bool contains(const std::string& part) const;
  // The text without its "[function(line)] " prefix.
  static std::string body(const std::string& text);

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

// The environment every test starts with: the real one, except that the
// machine's network adapters are replaced by one fixed adapter, so that
// nothing depends on the addresses of the machine the tests run on.
class FixedAdaptersEnv : public OxBase::EnvWrapper {
 public:
  FixedAdaptersEnv() : EnvWrapper(OxBase::Env::Default()) {}
  int GetAdapters(std::vector<OxBase::AdapterAddress>* out) override {
    *out = {OxBase::AdapterAddress{"eth0", "eth0", {"192.0.2.10"}}};
    return 0;
  }
};

// A test in a fresh temporary working directory, removed afterwards. The
// fixed-adapter environment is installed for its duration.
class WorkDirTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  const std::string& dir() const { return dir_; }

  std::string dir_;
  std::string oldCwd_;
  FixedAdaptersEnv baseEnv_;
};

// Fails chosen file operations with a chosen errno; everything else is real.
// kShortWrite writes the first half of the data, then fails; kFlock fails
// taking a lock (unlocking still works).
class FaultEnv : public OxBase::EnvWrapper {
 public:
  enum Op { kNone, kOpen, kWrite, kFsync, kClose, kRename, kSyncDir, kShortWrite, kFlock };
  // Wraps the environment in force when it is made.
  FaultEnv() : EnvWrapper(OxBase::Env::Current()) {}
  void failOn(Op op, int err) {
    op_ = op;
    errno_ = err;
  }
  // Lets the first `skip` operations of that kind succeed, fails the next
  // one only, and lets the rest succeed again: a passing failure at a later
  // file of a multi-file change, which its roll-back can then repair.
  void failOnce(Op op, int err, int skip) {
    failOn(op, err);
    skip_ = skip;
    once_ = true;
  }
  // Only operations on paths containing `part` fail (the opened path, a
  // temporary's included, or the target of a rename); the others are left
  // alone and not counted.
  void onlyPathsContaining(std::string part) { part_ = std::move(part); }
  // True once the failure armed by failOnce has been injected.
  bool fired() const { return once_ && skip_.load() < 0; }
  int Open(const std::string& p, int f, mode_t m) override;
  ssize_t Write(int fd, const void* d, size_t n) override;
  int Fsync(int fd) override;
  int Close(int fd) override;
  int Rename(const std::string& a, const std::string& b) override;
  int SyncDir(const std::string& d) override;
  int Flock(int fd, int op) override;

 private:
  bool fails(Op op, const std::string* path = nullptr);
  bool skipped();
  Op op_ = kNone;
  int errno_ = 0;
  std::atomic<int> skip_{0};
  bool once_ = false;
  std::string part_;
};

// Sets TZ for the scope (the C library re-reads it), then puts back the
// process's own value; the machine's zone is untouched.
class ScopedTZ {
 public:
  explicit ScopedTZ(const std::string& tz);
  ~ScopedTZ();
  ScopedTZ(const ScopedTZ&) = delete;
  ScopedTZ& operator=(const ScopedTZ&) = delete;

 private:
  bool had_ = false;
  std::string old_;
};

// A TCP socket listening on 127.0.0.1 on a port the kernel chose: binding
// that port on all addresses then fails, as for a port in use. port() is 0
// when no socket could be made.
class LoopbackListener {
 public:
  LoopbackListener();
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;
  int port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
};

// A port of 127.0.0.1 that the kernel handed out and that is free again.
inline int freeLoopbackPort() { return LoopbackListener().port(); }

// Runs this build's oxcfg on the working directory `dir` ("-C dir"), with
// `input` on its standard input, as a separate process.
OxBase::CommandResult runOxcfgIn(const std::string& dir, std::vector<std::string> args,
                                 const std::string& input = "");

// Number of descriptors open in this process.
int openDescriptorCount();

// Installs an Env for the scope, then puts the previous one back.
class ScopedEnv {
 public:
  explicit ScopedEnv(OxBase::Env* env) : previous_(OxBase::Env::Current()) { OxBase::Env::Install(env); }
  ~ScopedEnv() { OxBase::Env::Install(previous_); }

 private:
  OxBase::Env* previous_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SUPPORT_TEST_SUPPORT_H
