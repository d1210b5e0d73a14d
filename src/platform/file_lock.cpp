#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <utility>

#include "platform/env.h"

namespace OxBase {

std::string LockPathFor(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return "." + path + ".lock";
  return path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".lock";
}

FileLock::FileLock(const std::string& lockPath) {
  Env* env = Env::Current();
  UniqueFd fd(env->Open(lockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!fd.valid() || env->Flock(fd.get(), LOCK_EX) != 0) {
    error_ = errno;
    return;
  }
  fd_ = std::move(fd);
}

// Closing the descriptor releases the lock; the explicit unlock makes the
// release independent of other descriptors of the same open file.
FileLock::~FileLock() {
  if (fd_.valid()) Env::Current()->Flock(fd_.get(), LOCK_UN);
}

}  // namespace OxBase
