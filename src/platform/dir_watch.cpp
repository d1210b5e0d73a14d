// The real directory watch of Env: inotify for the events, an eventfd beside
// it so that another thread can wake a waiting reader at once.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "platform/dir_watch.h"
#include "platform/env.h"

namespace OxBase {

namespace {

// inotify descriptor -> its wake-up eventfd. Handles are the inotify
// descriptors themselves.
std::mutex& watchMutex() {
  static std::mutex* m = new std::mutex;  // outlives every static destructor
  return *m;
}
std::map<int, int>& wakeFds() {
  static std::map<int, int>* m = new std::map<int, int>;
  return *m;
}

int wakeFdOf(int handle) {
  std::lock_guard<std::mutex> lock(watchMutex());
  auto it = wakeFds().find(handle);
  return it == wakeFds().end() ? -1 : it->second;
}

uint32_t kindOf(uint32_t mask) {
  if (mask & IN_Q_OVERFLOW) return DirEvent::kOverflow;
  if (mask & IN_MOVED_TO) return DirEvent::kMovedIn;
  if (mask & IN_MOVED_FROM) return DirEvent::kMovedOut;
  if (mask & IN_CLOSE_WRITE) return DirEvent::kWritten;
  return 0;
}

}  // namespace

bool IsOwnTemporary(const std::string& name, std::string* target) {
  // The writer's pattern: "." target ".tmp." pid "." counter.
  const std::string infix = ".tmp." + std::to_string(::getpid()) + ".";
  if (name.size() < 2 || name[0] != '.') return false;
  const size_t at = name.rfind(infix);
  if (at == std::string::npos || at < 2) return false;
  const size_t counter = at + infix.size();
  if (counter >= name.size()) return false;
  for (size_t i = counter; i < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
  }
  *target = name.substr(1, at - 1);
  return true;
}

int Env::OpenDirWatch(const std::string& dir) {
  const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return -1;
  if (inotify_add_watch(fd, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_ONLYDIR) < 0) {
    const int err = errno;
    ::close(fd);
    errno = err;
    return -1;
  }
  const int wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wake < 0) {
    const int err = errno;
    ::close(fd);
    errno = err;
    return -1;
  }
  std::lock_guard<std::mutex> lock(watchMutex());
  wakeFds()[fd] = wake;
  return fd;
}

int Env::ReadDirWatch(int handle, int timeoutMillis, std::vector<DirEvent>* out) {
  const int wake = wakeFdOf(handle);
  if (wake < 0) {
    errno = EBADF;
    return -1;
  }
  pollfd fds[2] = {{handle, POLLIN, 0}, {wake, POLLIN, 0}};
  int ready;
  do {
    ready = ::poll(fds, 2, timeoutMillis);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) return -1;
  if (fds[1].revents & POLLIN) {
    uint64_t count;
    if (::read(wake, &count, sizeof count) < 0) { /* already drained */ }
    return 0;
  }
  if (!(fds[0].revents & POLLIN)) return 0;
  alignas(inotify_event) char buf[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
  int added = 0;
  for (;;) {
    const ssize_t n = ::read(handle, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      return added > 0 ? added : -1;
    }
    if (n == 0) break;
    for (ssize_t off = 0; off + static_cast<ssize_t>(sizeof(inotify_event)) <= n;) {
      const inotify_event* ev = reinterpret_cast<const inotify_event*>(buf + off);
      const uint32_t kind = kindOf(ev->mask);
      if (kind != 0) {
        DirEvent e;
        if (ev->len > 0) e.name.assign(ev->name, strnlen(ev->name, ev->len));
        e.kind = kind;
        e.cookie = ev->cookie;
        out->push_back(std::move(e));
        ++added;
      }
      off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
    }
  }
  return added;
}

void Env::WakeDirWatch(int handle) {
  const int wake = wakeFdOf(handle);
  if (wake < 0) return;
  const uint64_t one = 1;
  if (::write(wake, &one, sizeof one) < 0) { /* counter full: a wake is pending anyway */ }
}

void Env::CloseDirWatch(int handle) {
  int wake = -1;
  {
    std::lock_guard<std::mutex> lock(watchMutex());
    auto it = wakeFds().find(handle);
    if (it == wakeFds().end()) return;
    wake = it->second;
    wakeFds().erase(it);
  }
  ::close(wake);
  ::close(handle);
}

}  // namespace OxBase
