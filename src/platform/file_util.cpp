#include "platform/file_util.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "platform/env.h"

namespace OxBase {

namespace {
std::atomic<unsigned> g_tempCounter{0};
}

std::string DirName(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

WriteOutcome WriteFileAtomic(const std::string& path, const void* data, size_t len, FileMode mode) {
  Env* env = Env::Current();
  const std::string dir = DirName(path);
  size_t slash = path.find_last_of('/');
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string temp = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) +
                     "." + base + ".tmp." + std::to_string(::getpid()) + "." +
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

  WriteOutcome out;
  int fd = env->Open(temp, O_WRONLY | O_CREAT | O_EXCL | O_TRUNC, wanted);
  if (fd < 0) {
    out.stage = WriteStage::kCreateTemp;
    out.error = errno;
    return out;
  }
  auto fail = [&](WriteStage stage, bool opened) {
    int saved = errno ? errno : EIO;
    if (opened) env->Close(fd);
    env->Unlink(temp);
    errno = saved;
    out.stage = stage;
    out.error = saved;
    return out;
  };
  // The umask applies at creation; an existing file's bits and the secret
  // mode are applied exactly.
  if ((keepExisting || mode == FileMode::kSecret) && env->Fchmod(fd, wanted) != 0)
    return fail(WriteStage::kCreateTemp, true);
  if (len > 0) {
    errno = 0;
    ssize_t n = env->Write(fd, data, len);
    if (n != static_cast<ssize_t>(len)) {
      out.written = n > 0 ? static_cast<size_t>(n) : 0;
      return fail(WriteStage::kWrite, true);
    }
  }
  out.written = len;
  if (env->Fsync(fd) != 0) return fail(WriteStage::kSync, true);
  if (env->Close(fd) != 0) return fail(WriteStage::kSync, false);
  if (env->Rename(temp, path) != 0) return fail(WriteStage::kRename, false);
  // The new content is in place; a failed directory sync only weakens
  // durability across a power loss, so it is reported but not undone.
  if (env->SyncDir(dir) != 0) {
    out.stage = WriteStage::kSyncDir;
    out.error = errno;
  }
  return out;
}

bool ReadWholeFile(const std::string& path, std::string* out, size_t maxBytes) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    int saved = errno;
    ::close(fd);
    errno = saved;
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    ::close(fd);
    errno = EISDIR;
    return false;
  }
  if (static_cast<unsigned long long>(st.st_size) > maxBytes) {
    ::close(fd);
    errno = EFBIG;
    return false;
  }
  std::string data;
  data.resize(static_cast<size_t>(st.st_size));
  size_t got = 0;
  while (got < data.size()) {
    ssize_t n = ::read(fd, &data[got], data.size() - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      int saved = errno;
      ::close(fd);
      errno = saved;
      return false;
    }
    if (n == 0) break;  // the file shrank while being read
    got += static_cast<size_t>(n);
  }
  // The file may also have grown; read on up to the limit.
  char extra[4096];
  for (;;) {
    ssize_t n = ::read(fd, extra, sizeof extra);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (got + static_cast<size_t>(n) > maxBytes) {
      ::close(fd);
      errno = EFBIG;
      return false;
    }
    data.resize(got);
    data.append(extra, static_cast<size_t>(n));
    got += static_cast<size_t>(n);
  }
  data.resize(got);
  ::close(fd);
  out->swap(data);
  return true;
}

}  // namespace OxBase
