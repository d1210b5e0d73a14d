#include "platform/unique_fd.h"

#include <cerrno>

#include "platform/env.h"

namespace OxBase {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) reset(other.release());
  return *this;
}

void UniqueFd::reset(int fd) noexcept {
  if (fd_ >= 0 && fd_ != fd) {
    int saved = errno;
    Env::Current()->Close(fd_);
    errno = saved;
  }
  fd_ = fd;
}

int UniqueFd::close() noexcept {
  if (fd_ < 0) return 0;
  return Env::Current()->Close(release());
}

}  // namespace OxBase
