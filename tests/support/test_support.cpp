#include "support/test_support.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "frame/config_store.h"
#include "platform/xml_base.h"

namespace oxtest {

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

std::string xmlText(const std::string& path, std::initializer_list<const char*> walk) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(path) != 1 || !OxConfigMgr::xmlWalk(xml, walk)) return "<missing>";
  return xml.GetData();
}

bool fileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

mode_t fileMode(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

std::vector<std::string> listDir(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = ::opendir(dir.c_str());
  if (!d) return names;
  while (dirent* e = ::readdir(d)) {
    std::string n = e->d_name;
    if (n != "." && n != "..") names.push_back(n);
  }
  ::closedir(d);
  return names;
}

std::string fileLogProperties(const std::string& logPath, const char* pattern, const char* level) {
  return std::string("log4j.rootLogger=") + level + ", file\n" +
         "log4j.appender.file=org.apache.log4j.FileAppender\n"
         "log4j.appender.file.File=" + logPath + "\n"
         "log4j.appender.file.ImmediateFlush=true\n"
         "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
         "log4j.appender.file.layout.ConversionPattern=" + pattern + "\n";
}

void copyFactory(const std::string& dir) {
  const std::string factory = OXCFG_FACTORY_DIR;
  for (const auto& name : listDir(factory)) {
    if (name == "README.md") continue;
    writeFile(dir + "/" + name, readFile(factory + "/" + name));
  }
}

void LogCapture::Log(int level, const char* module, const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.push_back({level, module ? module : "", text});
}

std::vector<LogCapture::Entry> LogCapture::entries() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

std::string LogCapture::body(const std::string& text) {
  if (text.empty() || text[0] != '[') return text;
  size_t close = text.find(")] ");
  if (close == std::string::npos) return text;
  return text.substr(close + 3);
}

bool LogCapture::has(int level, const std::string& text, const std::string& module) const {
  for (const auto& e : entries()) {
    if (e.level == level && e.module == module && body(e.text) == text) return true;
  }
  return false;
}

bool LogCapture::contains(const std::string& part) const {
  for (const auto& e : entries()) {
    if (e.text.find(part) != std::string::npos) return true;
  }
  return false;
}

void WorkDirTest::SetUp() {
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  oldCwd_ = cwd;
  const char* tmp = std::getenv("TMPDIR");
  std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/oxcfg-test-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  ASSERT_NE(::mkdtemp(buf.data()), nullptr);
  dir_ = buf.data();
  ASSERT_EQ(::chdir(dir_.c_str()), 0);
  OxBase::Env::Install(&baseEnv_);
}

static void removeTree(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    ::chmod(path.c_str(), 0755);
    for (const auto& n : listDir(path)) removeTree(path + "/" + n);
    ::rmdir(path.c_str());
  } else {
    ::unlink(path.c_str());
  }
}

void WorkDirTest::TearDown() {
  OxBase::Env::Install(nullptr);
  if (!oldCwd_.empty()) (void)::chdir(oldCwd_.c_str());
  if (!dir_.empty()) removeTree(dir_);
}

// Counts an operation of the failing kind: true when it is to succeed.
bool FaultEnv::skipped() {
  if (!once_) return false;
  return skip_.fetch_sub(1) != 0;
}

bool FaultEnv::fails(Op op, const std::string* path) {
  if (op_ != op) return false;
  if (!part_.empty() && (!path || path->find(part_) == std::string::npos)) return false;
  if (skipped()) return false;
  errno = errno_;
  return true;
}

int FaultEnv::Open(const std::string& p, int f, mode_t m) {
  return fails(kOpen, &p) ? -1 : EnvWrapper::Open(p, f, m);
}
ssize_t FaultEnv::Write(int fd, const void* d, size_t n) {
  if (op_ == kShortWrite && n > 1 && !skipped()) {
    ssize_t half = EnvWrapper::Write(fd, d, n / 2);
    errno = errno_;
    return half;
  }
  return fails(kWrite) ? -1 : EnvWrapper::Write(fd, d, n);
}
int FaultEnv::Fsync(int fd) { return fails(kFsync) ? -1 : EnvWrapper::Fsync(fd); }
int FaultEnv::Close(int fd) {
  if (op_ == kClose && !skipped()) {
    EnvWrapper::Close(fd);
    errno = errno_;
    return -1;
  }
  return EnvWrapper::Close(fd);
}
int FaultEnv::Rename(const std::string& a, const std::string& b) {
  return fails(kRename, &b) ? -1 : EnvWrapper::Rename(a, b);
}
int FaultEnv::SyncDir(const std::string& d) { return fails(kSyncDir) ? -1 : EnvWrapper::SyncDir(d); }
int FaultEnv::Flock(int fd, int op) {
  return (op & LOCK_UN) == 0 && fails(kFlock) ? -1 : EnvWrapper::Flock(fd, op);
}

ScopedTZ::ScopedTZ(const std::string& tz) {
  const char* old = std::getenv("TZ");
  had_ = old != nullptr;
  if (had_) old_ = old;
  ::setenv("TZ", tz.c_str(), 1);
  ::tzset();
}

ScopedTZ::~ScopedTZ() {
  if (had_) {
    ::setenv("TZ", old_.c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

OxBase::CommandResult runOxcfgIn(const std::string& dir, std::vector<std::string> args, const std::string& input) {
  args.insert(args.begin(), {OXCFG_CLI_PATH, "-C", dir});
  return OxBase::Env::Default()->Run(args, input, "");
}

int openDescriptorCount() { return static_cast<int>(listDir("/proc/self/fd").size()) - 1; }

LoopbackListener::LoopbackListener() {
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(fd_, 1) == 0 &&
      ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port_ = ntohs(addr.sin_port);
  }
}

LoopbackListener::~LoopbackListener() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace oxtest

#if defined(__SANITIZE_ADDRESS__)
// log4cxx 1.0's RollingFileAppender frees its private part through a base
// pointer of another size when the hierarchy is torn down at exit (inside
// the system library, not in this project); ASan would report it for every
// test that started the library with the factory logging configuration.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options() {
  return "new_delete_type_mismatch=0";
}
#endif
