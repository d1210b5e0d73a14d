// The environment of the time tests: the zone database and the local-time
// link live in the test's directory, the clock setter only records, and
// commands are answered from a script (nothing unscripted is run). Nothing a
// test does here can reach the machine's clock, zone or /etc.
#ifndef OXCFG_TESTS_SYSTEM_TIME_SUPPORT_H
#define OXCFG_TESTS_SYSTEM_TIME_SUPPORT_H

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace oxtest {

class TimeEnv : public OxBase::EnvWrapper {
 public:
  explicit TimeEnv(const std::string& dir)
      : EnvWrapper(OxBase::Env::Current()), dir_(dir), root_(dir + "/zoneinfo/"),
        link_(dir + "/etc/localtime") {}

  // The answer to a command line (words joined by single blanks).
  void answer(const std::string& command, int exitCode, const std::string& output) {
    std::lock_guard<std::mutex> lock(mutex_);
    answers_[command] = OxBase::CommandResult{exitCode, output};
  }
  std::vector<std::string> commands() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
  }
  std::vector<int64_t> clockSets() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return clockSets_;
  }
  void setLinkPath(const std::string& path) { link_ = path; }
  void setNow(int64_t secondsSince1970) { now_ = secondsSince1970 * 1000000; }
  int clockResult = 0;
  bool failSymlink = false;
  bool failLinkRename = false;
  bool failSyncDir = false;
  // Reads the wall-clock time of setLocalTime in the zone of the test's
  // link, as the machine reads its own link: TZ names the link (the caller
  // restores TZ with ScopedTZ). Not for concurrent use.
  bool clockInLinkedZone = false;

  std::string ZoneInfoRoot() override { return root_; }
  std::string LocalTimePath() override { return link_; }

  OxBase::CommandResult Run(const std::vector<std::string>& argv, const std::string&,
                            const std::string&) override {
    std::string line;
    for (const auto& a : argv) line += (line.empty() ? "" : " ") + a;
    std::lock_guard<std::mutex> lock(mutex_);
    commands_.push_back(line);
    auto it = answers_.find(line);
    return it != answers_.end() ? it->second : OxBase::CommandResult{-1, ""};
  }
  int SetSystemTime(int64_t seconds) override {
    std::lock_guard<std::mutex> lock(mutex_);
    clockSets_.push_back(seconds);
    if (clockResult != 0) errno = EPERM;
    return clockResult;
  }
  int MakeLocalTime(int y, int mo, int d, int h, int mi, int s, int64_t* out) override {
    if (clockInLinkedZone) {
      // A different TZ first, so the C library reads the link's zone afresh.
      ::setenv("TZ", "UTC0", 1);
      ::tzset();
      ::setenv("TZ", (":" + link_).c_str(), 1);
    }
    return EnvWrapper::MakeLocalTime(y, mo, d, h, mi, s, out);
  }
  int64_t NowMicros() override { return now_ >= 0 ? now_ : target()->NowMicros(); }
  int Symlink(const std::string& target, const std::string& linkPath) override {
    if (!inside(linkPath)) return -1;
    if (failSymlink) return errno = EPERM, -1;
    return EnvWrapper::Symlink(target, linkPath);
  }
  int Rename(const std::string& from, const std::string& to) override {
    if (!inside(from) || !inside(to)) return -1;
    if (failLinkRename && to == link_) return errno = EACCES, -1;
    return EnvWrapper::Rename(from, to);
  }
  int SyncDir(const std::string& d) override {
    if (failSyncDir && d + "/localtime" == link_) return errno = EIO, -1;
    return EnvWrapper::SyncDir(d);
  }

 private:
  bool inside(const std::string& path) {
    const bool ok = path.compare(0, dir_.size() + 1, dir_ + "/") == 0;
    EXPECT_TRUE(ok) << "outside the test directory: " << path;
    return ok;
  }

  std::string dir_, root_, link_;
  int64_t now_ = -1;
  mutable std::mutex mutex_;
  std::map<std::string, OxBase::CommandResult> answers_;
  std::vector<std::string> commands_;
  std::vector<int64_t> clockSets_;
};

// Seconds since 1970 of a UTC wall-clock time.
inline int64_t utcSeconds(int year, int month, int day, int hour, int minute, int second) {
  struct tm t{};
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  return static_cast<int64_t>(::timegm(&t));
}

// A fresh working directory with the time environment installed.
class TimeTest : public WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    env_ = std::make_unique<TimeEnv>(dir());
    OxBase::Env::Install(env_.get());
    ::mkdir(path("etc").c_str(), 0755);
    ::mkdir(path("zoneinfo").c_str(), 0755);
  }
  // Copies a zone file of the machine's zone database into the test's one;
  // false when the machine has none.
  bool installZone(const std::string& name) {
    const std::string from = "/usr/share/zoneinfo/" + name;
    if (!fileExists(from)) return false;
    std::string to = path("zoneinfo");
    for (size_t pos = 0, slash; (slash = name.find('/', pos)) != std::string::npos; pos = slash + 1) {
      to += "/" + name.substr(pos, slash - pos);
      ::mkdir(to.c_str(), 0755);
    }
    writeFile(path("zoneinfo/" + name), readFile(from));
    return true;
  }
  // The text of a symbolic link; empty when `link` is not one.
  static std::string linkTarget(const std::string& link) {
    char buf[4096];
    const ssize_t n = ::readlink(link.c_str(), buf, sizeof buf);
    return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
  }
  std::string zoneFile(const std::string& name) const { return dir() + "/zoneinfo/" + name; }

  std::unique_ptr<TimeEnv> env_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SYSTEM_TIME_SUPPORT_H
