#include "platform/env.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/scoped_handles.h"
#include "platform/unique_fd.h"

extern char** environ;

namespace OxBase {

namespace {

std::atomic<Env*> g_installed{nullptr};

void FillRandom(void* buf, size_t len) {
  auto* p = static_cast<unsigned char*>(buf);
  while (len > 0) {
    ssize_t n = getrandom(p, len, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      // getrandom cannot fail on Linux >= 3.17 once the pool is initialised;
      // fall back to /dev/urandom rather than returning predictable bytes.
      UniqueFd fd(::open("/dev/urandom", O_RDONLY | O_CLOEXEC));
      if (!fd.valid()) abort();
      n = ::read(fd.get(), p, len);
      if (n <= 0) abort();
    }
    p += n;
    len -= static_cast<size_t>(n);
  }
}

// SIGPIPE blocked in the calling thread for the object's lifetime, so that a
// write to a pipe whose reader is gone fails with EPIPE instead of killing
// the process, while the process's disposition of SIGPIPE (which belongs to
// the host) is never touched. A SIGPIPE raised by our own writes is consumed
// before the mask is restored; one that was already pending (the host's own,
// under a mask of its own) is left alone.
class SigpipeBlock {
 public:
  SigpipeBlock() noexcept {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &saved_);
    sigset_t pending;
    sigemptyset(&pending);
    wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
  }
  ~SigpipeBlock() {
    if (raised_ && !wasPending_) {
      sigset_t pipe;
      sigemptyset(&pipe);
      sigaddset(&pipe, SIGPIPE);
      const timespec zero{0, 0};
      int saved = errno;
      while (sigtimedwait(&pipe, nullptr, &zero) < 0 && errno == EINTR) {
      }
      errno = saved;
    }
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
  }
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;

  // Call after a write failed with EPIPE: a SIGPIPE is now pending.
  void noteRaised() { raised_ = true; }

 private:
  sigset_t saved_;
  bool wasPending_ = false;
  bool raised_ = false;
};

class PosixEnv final : public Env {};

}  // namespace

Env::~Env() = default;

Env* Env::Default() {
  static PosixEnv* env = new PosixEnv;  // never destroyed: used during exit
  return env;
}

Env* Env::Current() {
  Env* e = g_installed.load(std::memory_order_acquire);
  return e ? e : Default();
}

void Env::Install(Env* env) { g_installed.store(env, std::memory_order_release); }

int Env::Open(const std::string& path, int flags, mode_t mode) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

ssize_t Env::Write(int fd, const void* data, size_t len) {
  const char* p = static_cast<const char*>(data);
  size_t left = len;
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      // What reached the file before the failure, errno kept.
      return left < len ? static_cast<ssize_t>(len - left) : -1;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(len);
}

int Env::Fsync(int fd) { return ::fsync(fd); }
int Env::Fchmod(int fd, mode_t mode) { return ::fchmod(fd, mode); }
int Env::Close(int fd) { return ::close(fd); }
int Env::Rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str());
}
int Env::Unlink(const std::string& path) { return ::unlink(path.c_str()); }
int Env::MakeDir(const std::string& path, mode_t mode) { return ::mkdir(path.c_str(), mode); }
int Env::RemoveDir(const std::string& path) { return ::rmdir(path.c_str()); }

int Env::Flock(int fd, int op) {
  int rc;
  do {
    rc = ::flock(fd, op);
  } while (rc != 0 && errno == EINTR);
  return rc;
}

int Env::Symlink(const std::string& target, const std::string& linkPath) {
  return ::symlink(target.c_str(), linkPath.c_str());
}

int Env::SyncDir(const std::string& dir) {
  UniqueFd fd(::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.valid()) return -1;
  return ::fsync(fd.get());
}

namespace {

// Feeds `input` to the child's standard input and drains its output
// together, so neither side can block the other on a full pipe. Returns
// when the child closed its output.
void Exchange(UniqueFd& inWrite, UniqueFd& outRead, const std::string& input, std::string* output) {
  SigpipeBlock sigpipe;
  size_t written = 0;
  if (input.empty()) inWrite.reset();
  else fcntl(inWrite.get(), F_SETFL, fcntl(inWrite.get(), F_GETFL) | O_NONBLOCK);
  char buf[4096];
  while (outRead.valid()) {
    pollfd fds[2];
    int n = 0;
    fds[n++] = {outRead.get(), POLLIN, 0};
    if (inWrite.valid()) fds[n++] = {inWrite.get(), POLLOUT, 0};
    if (::poll(fds, n, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (n == 2 && (fds[1].revents & (POLLOUT | POLLERR | POLLHUP))) {
      ssize_t w = ::write(inWrite.get(), input.data() + written, input.size() - written);
      if (w > 0) written += static_cast<size_t>(w);
      if (w < 0 && errno == EPIPE) sigpipe.noteRaised();
      // A child that stops reading (exits, closes its input) ends the feed.
      if ((w < 0 && errno != EAGAIN && errno != EINTR) || written >= input.size()) inWrite.reset();
    }
    if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
      ssize_t r = ::read(outRead.get(), buf, sizeof buf);
      if (r > 0) {
        output->append(buf, static_cast<size_t>(r));
      } else if (r == 0 || (errno != EINTR && errno != EAGAIN)) {
        outRead.reset();
      }
    }
  }
  inWrite.reset();
}

}  // namespace

CommandResult Env::Run(const std::vector<std::string>& argv, const std::string& input,
                       const std::string& workDir) {
  CommandResult result;
  if (argv.empty()) {
    errno = EINVAL;
    return result;
  }
  int inPipe[2], outPipe[2];
  if (pipe2(inPipe, O_CLOEXEC) != 0) return result;
  UniqueFd inRead(inPipe[0]), inWrite(inPipe[1]);
  if (pipe2(outPipe, O_CLOEXEC) != 0) return result;
  UniqueFd outRead(outPipe[0]), outWrite(outPipe[1]);

  SpawnFileActions actions;
  SpawnAttr attr;
  if (!actions.ok() || !attr.ok()) return result;
  posix_spawn_file_actions_adddup2(actions.get(), inRead.get(), 0);
  posix_spawn_file_actions_adddup2(actions.get(), outWrite.get(), 1);
  posix_spawn_file_actions_adddup2(actions.get(), outWrite.get(), 2);
  if (!workDir.empty()) posix_spawn_file_actions_addchdir_np(actions.get(), workDir.c_str());

  // The child must not inherit a blocked SIGPIPE or ignored signals.
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(attr.get(), &defaults);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(attr.get(), &none);
  posix_spawnattr_setflags(attr.get(), POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  pid_t pid = -1;
  int rc = posix_spawnp(&pid, args[0], actions.get(), attr.get(), args.data(), environ);
  inRead.reset();
  outWrite.reset();
  if (rc != 0) {
    errno = rc;
    return result;
  }

  Exchange(inWrite, outRead, input, &result.output);

  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return result;
  }
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  else if (WIFSIGNALED(status)) result.exitCode = 128 + WTERMSIG(status);
  return result;
}

int64_t Env::NowMicros() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

uint64_t Env::TickMillis() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000 + static_cast<uint64_t>(ts.tv_nsec) / 1000000;
}

int Env::SetSystemTime(int64_t secondsSince1970) {
  timeval tv{};
  tv.tv_sec = static_cast<time_t>(secondsSince1970);
  return ::settimeofday(&tv, nullptr);
}

int Env::LocalZone(int64_t secondsSince1970, int* standardOffsetEast, int* isDst) {
  // tzset re-reads TZ (or the zone file when TZ is unset); localtime_r then
  // leaves `timezone` at the standard offset in force at that moment.
  ::tzset();
  const time_t t = static_cast<time_t>(secondsSince1970);
  struct tm tmv;
  if (!localtime_r(&t, &tmv)) return -1;
  if (standardOffsetEast) *standardOffsetEast = static_cast<int>(-timezone);
  if (isDst) *isDst = tmv.tm_isdst > 0 ? 1 : 0;
  return 0;
}

int Env::MakeLocalTime(int year, int month, int day, int hour, int minute, int second,
                       int64_t* secondsSince1970) {
  struct tm tmv{};
  tmv.tm_year = year - 1900;
  tmv.tm_mon = month - 1;
  tmv.tm_mday = day;
  tmv.tm_hour = hour;
  tmv.tm_min = minute;
  tmv.tm_sec = second;
  tmv.tm_isdst = -1;
  const time_t t = ::mktime(&tmv);
  if (t == static_cast<time_t>(-1)) {
    errno = EOVERFLOW;
    return -1;
  }
  if (secondsSince1970) *secondsSince1970 = static_cast<int64_t>(t);
  return 0;
}

uint32_t Env::Random32() {
  uint32_t v;
  FillRandom(&v, sizeof v);
  return v;
}

void Env::NewUuid(unsigned char out[16]) {
  FillRandom(out, 16);
  out[6] = static_cast<unsigned char>((out[6] & 0x0F) | 0x40);  // version 4
  out[8] = static_cast<unsigned char>((out[8] & 0x3F) | 0x80);  // RFC 4122 variant
}

int Env::GetAdapters(std::vector<AdapterAddress>* out) {
  IfAddrList list;
  if (!list.ok()) return -1;
  for (const ifaddrs* it = list.head(); it; it = it->ifa_next) {
    if (!it->ifa_addr || it->ifa_addr->sa_family != AF_INET || !it->ifa_name) continue;
    char text[INET_ADDRSTRLEN] = {0};
    const auto* sin = reinterpret_cast<const sockaddr_in*>(it->ifa_addr);
    if (!inet_ntop(AF_INET, &sin->sin_addr, text, sizeof text)) continue;
    AdapterAddress* adapter = nullptr;
    for (auto& a : *out) {
      if (a.name == it->ifa_name) adapter = &a;
    }
    if (!adapter) {
      out->push_back(AdapterAddress{it->ifa_name, it->ifa_name, {}});
      adapter = &out->back();
    }
    adapter->ipv4.emplace_back(text);
  }
  return 0;
}

std::string Env::ZoneInfoRoot() { return "/usr/share/zoneinfo/"; }
std::string Env::LocalTimePath() { return "/etc/localtime"; }
std::string Env::OsReleasePath() { return "/etc/os-release"; }

}  // namespace OxBase
