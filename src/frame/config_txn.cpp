#include "frame/config_txn.h"

#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

namespace OxConfigMgr {

struct ConfigFileTxn::Entry {
  std::recursive_mutex mutex;
  int depth = 0;  // guarded by mutex; the owner thread's nesting level
  int fd = -1;    // lock file, open and flocked while depth > 0
};

namespace {

std::mutex g_entriesMutex;
// Entries live for the whole process (a handful of configuration files).
std::map<std::string, ConfigFileTxn::Entry*>* g_entries =
    new std::map<std::string, ConfigFileTxn::Entry*>;

}  // namespace

std::string configLockPath(const std::string& path) { return OxBase::LockPathFor(path); }

ConfigFileTxn::ConfigFileTxn(const std::string& path) {
  {
    std::lock_guard<std::mutex> lock(g_entriesMutex);
    Entry*& e = (*g_entries)[path];
    if (!e) e = new Entry;
    entry_ = e;
  }
  entry_->mutex.lock();
  if (entry_->depth++ > 0) return;
  int fd = ::open(configLockPath(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd >= 0) {
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  entry_->fd = fd;
}

ConfigFileTxn::~ConfigFileTxn() {
  if (--entry_->depth == 0 && entry_->fd >= 0) {
    ::flock(entry_->fd, LOCK_UN);
    ::close(entry_->fd);
    entry_->fd = -1;
  }
  entry_->mutex.unlock();
}

}  // namespace OxConfigMgr
