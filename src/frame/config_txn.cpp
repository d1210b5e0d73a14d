#include "frame/config_txn.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>

#include "platform/file_lock.h"
#include "platform/file_util.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

// Everything but `mutex` is touched only by the thread that holds `mutex`.
struct ConfigFileTxn::Entry {
  std::recursive_mutex mutex;
  int depth = 0;  // the owner thread's nesting level
  std::unique_ptr<OxBase::FileLock> lock;               // while depth > 0 and locked
  std::unique_ptr<OxBase::ScopedWriteRefusal> refusal;  // while depth > 0 and not locked
  // When this process last looked for temporaries of killed writers of the
  // file (steady clock); guarded by mutex.
  std::chrono::steady_clock::time_point lastTidy{};
  bool tidied = false;
};

namespace {

std::mutex g_entriesMutex;
// Entries live for the whole process (a handful of configuration files).
std::map<std::string, ConfigFileTxn::Entry*>* g_entries =
    new std::map<std::string, ConfigFileTxn::Entry*>;

ConfigFileTxn::Entry* entryFor(const std::string& path) {
  std::lock_guard<std::mutex> lock(g_entriesMutex);
  ConfigFileTxn::Entry*& e = (*g_entries)[path];
  if (!e) e = new ConfigFileTxn::Entry;
  return e;
}

// Takes the cross-process lock of `path` for the outermost transaction, or
// arms the refusal of its writes when the lock cannot be had.
void acquire(ConfigFileTxn::Entry* e, const std::string& path) {
  const std::string lockPath = OxBase::LockPathFor(path);
  std::unique_ptr<OxBase::FileLock> lock(new OxBase::FileLock(lockPath));
  if (!lock->ok()) {
    const int err = lock->error();
    e->refusal.reset(new OxBase::ScopedWriteRefusal(path, err));
    OXLOG(5, "[%s(%d)] lock file failed, path[%s],error[%d]", lockPath.c_str(), err);
    return;
  }
  e->lock = std::move(lock);
  // A killed writer's temporary is shed by the next writer, at most once a
  // second per file: listing the directory on every setter would cost a
  // tenth of a read-modify-write, and a leftover does no harm meanwhile.
  const auto now = std::chrono::steady_clock::now();
  if (e->tidied && now - e->lastTidy < std::chrono::seconds(1)) return;
  e->tidied = true;
  e->lastTidy = now;
  // Best effort: a failure to tidy up must not cost the write.
  try {
    OxBase::RemoveStaleTemporaries(path);
  } catch (...) {
  }
}

}  // namespace

ConfigFileTxn::ConfigFileTxn(const std::string& path) : entry_(entryFor(path)) {
  // The mutex stays with `hold` until nothing can throw any more, so an
  // allocation failure never leaves it locked.
  std::unique_lock<std::recursive_mutex> hold(entry_->mutex);
  if (entry_->depth == 0) acquire(entry_, path);
  ++entry_->depth;
  hold.release();
}

ConfigFileTxn::~ConfigFileTxn() {
  if (--entry_->depth == 0) {
    entry_->refusal.reset();
    entry_->lock.reset();
  }
  entry_->mutex.unlock();
}

bool ConfigFileTxn::ok() const { return entry_->lock != nullptr; }

}  // namespace OxConfigMgr
