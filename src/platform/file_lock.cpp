#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platform/env.h"

namespace OxBase {

std::string LockPathFor(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return "." + path + ".lock";
  return path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".lock";
}

FileLock::FileLock(const std::string& lockPath) {
  Env* env = Env::Current();
  int fd = env->Open(lockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    error_ = errno;
    return;
  }
  if (env->Flock(fd, LOCK_EX) != 0) {
    error_ = errno;
    env->Close(fd);
    return;
  }
  fd_ = fd;
}

FileLock::~FileLock() {
  if (fd_ < 0) return;
  Env* env = Env::Current();
  env->Flock(fd_, LOCK_UN);
  env->Close(fd_);
}

}  // namespace OxBase
