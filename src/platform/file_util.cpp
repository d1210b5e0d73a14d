#include "platform/file_util.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "platform/env.h"
#include "platform/scoped_handles.h"
#include "platform/unique_fd.h"

namespace OxBase {

namespace {

std::atomic<unsigned> g_tempCounter{0};
// Innermost refusal of the calling thread; each links to the one before.
thread_local ScopedWriteRefusal* t_refusals = nullptr;

const char kTempInfix[] = ".tmp.";

std::string BaseName(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool AllDigits(const std::string& s, size_t from, size_t to) {
  if (from >= to) return false;
  for (size_t i = from; i < to; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
  }
  return true;
}

// For a name ".<target>.tmp.<pid>.<n>", the target's name and the pid; false
// for any other name.
bool ParseTemporary(const std::string& name, std::string* target, pid_t* pid) {
  if (name.size() < 2 || name[0] != '.') return false;
  size_t infix = name.rfind(kTempInfix);
  if (infix == std::string::npos || infix < 2) return false;
  size_t pidStart = infix + sizeof kTempInfix - 1;
  size_t dot = name.find('.', pidStart);
  if (dot == std::string::npos || !AllDigits(name, pidStart, dot) ||
      !AllDigits(name, dot + 1, name.size()) || dot - pidStart > 9) {
    return false;
  }
  *target = name.substr(1, infix - 1);
  *pid = static_cast<pid_t>(std::atol(name.c_str() + pidStart));
  return *pid > 0;
}

bool ProcessGone(pid_t pid) {
  if (pid == ::getpid()) return false;
  return ::kill(pid, 0) != 0 && errno == ESRCH;
}

// Removes the stale temporaries in `dir` whose target is `onlyTarget`, or of
// every target when it is null.
int RemoveStale(const std::string& dir, const std::string* onlyTarget) {
  UniqueDir d(dir.c_str());
  if (!d.valid()) return 0;
  const std::string prefix = dir.empty() || dir.back() == '/' ? dir : dir + "/";
  int removed = 0;
  while (dirent* e = ::readdir(d.get())) {
    std::string target;
    pid_t pid = 0;
    if (!ParseTemporary(e->d_name, &target, &pid)) continue;
    if (onlyTarget && target != *onlyTarget) continue;
    const std::string full = prefix + e->d_name;
    struct stat st;
    if (::lstat(full.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || !ProcessGone(pid)) continue;
    if (Env::Current()->Unlink(full) == 0) ++removed;
  }
  return removed;
}

}  // namespace

ScopedWriteRefusal::ScopedWriteRefusal(const std::string& path, int error)
    : path_(path), error_(error), outer_(t_refusals) {
  t_refusals = this;
}

ScopedWriteRefusal::~ScopedWriteRefusal() {
  for (ScopedWriteRefusal** link = &t_refusals; *link; link = &(*link)->outer_) {
    if (*link == this) {
      *link = outer_;
      break;
    }
  }
}

bool ScopedWriteRefusal::Refused(const std::string& path, int* error) {
  for (const ScopedWriteRefusal* r = t_refusals; r; r = r->outer_) {
    if (r->path_ == path) {
      if (error) *error = r->error_;
      return true;
    }
  }
  return false;
}

int RemoveStaleTemporaries(const std::string& path) {
  const std::string target = BaseName(path);
  return RemoveStale(DirName(path), &target);
}

int RemoveStaleTemporariesIn(const std::string& dir) { return RemoveStale(dir, nullptr); }

std::string DirName(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

WriteOutcome WriteFileAtomic(const std::string& path, const void* data, size_t len, FileMode mode) {
  WriteOutcome out;
  if (ScopedWriteRefusal::Refused(path, &out.error)) {
    out.stage = WriteStage::kNoLock;
    errno = out.error;
    return out;
  }
  Env* env = Env::Current();
  const std::string dir = DirName(path);
  size_t slash = path.find_last_of('/');
  std::string temp = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) +
                     "." + BaseName(path) + kTempInfix + std::to_string(::getpid()) + "." +
                     std::to_string(g_tempCounter.fetch_add(1));

  mode_t wanted = 0600;
  bool keepExisting = false;
  if (mode == FileMode::kKeep) {
    struct stat st;
    if (::stat(path.c_str(), &st) == 0) {
      wanted = st.st_mode & 07777;
      keepExisting = true;
    } else {
      wanted = 0644;
    }
  }

  UniqueFd fd(env->Open(temp, O_WRONLY | O_CREAT | O_EXCL | O_TRUNC, wanted));
  if (!fd.valid()) {
    out.stage = WriteStage::kCreateTemp;
    out.error = errno;
    return out;
  }
  auto fail = [&](WriteStage stage) {
    int saved = errno ? errno : EIO;
    fd.reset();
    env->Unlink(temp);
    errno = saved;
    out.stage = stage;
    out.error = saved;
    return out;
  };
  // The umask applies at creation; an existing file's bits and the secret
  // mode are applied exactly.
  if ((keepExisting || mode == FileMode::kSecret) && env->Fchmod(fd.get(), wanted) != 0)
    return fail(WriteStage::kCreateTemp);
  if (len > 0) {
    errno = 0;
    ssize_t n = env->Write(fd.get(), data, len);
    if (n != static_cast<ssize_t>(len)) {
      out.written = n > 0 ? static_cast<size_t>(n) : 0;
      return fail(WriteStage::kWrite);
    }
  }
  out.written = len;
  if (env->Fsync(fd.get()) != 0) return fail(WriteStage::kSync);
  if (fd.close() != 0) return fail(WriteStage::kSync);
  if (env->Rename(temp, path) != 0) return fail(WriteStage::kRename);
  // The new content is in place; a failed directory sync only weakens
  // durability across a power loss, so it is reported but not undone.
  if (env->SyncDir(dir) != 0) {
    out.stage = WriteStage::kSyncDir;
    out.error = errno;
  }
  return out;
}

bool ReadWholeFile(const std::string& path, std::string* out, size_t maxBytes) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return false;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return false;
  if (!S_ISREG(st.st_mode)) {
    errno = EISDIR;
    return false;
  }
  if (static_cast<unsigned long long>(st.st_size) > maxBytes) {
    errno = EFBIG;
    return false;
  }
  std::string data;
  data.resize(static_cast<size_t>(st.st_size));
  size_t got = 0;
  while (got < data.size()) {
    ssize_t n = ::read(fd.get(), &data[got], data.size() - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) break;  // the file shrank while being read
    got += static_cast<size_t>(n);
  }
  // The file may also have grown; read on up to the limit.
  char extra[4096];
  for (;;) {
    ssize_t n = ::read(fd.get(), extra, sizeof extra);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (got + static_cast<size_t>(n) > maxBytes) {
      errno = EFBIG;
      return false;
    }
    data.resize(got);
    data.append(extra, static_cast<size_t>(n));
    got += static_cast<size_t>(n);
  }
  data.resize(got);
  out->swap(data);
  return true;
}

}  // namespace OxBase
