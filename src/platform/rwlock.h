// Reader/writer lock of the base library.
#ifndef OXCFG_PLATFORM_RWLOCK_H
#define OXCFG_PLATFORM_RWLOCK_H

#include <shared_mutex>

namespace OxBase {

// Any number of readers or one writer. Not recursive. Meets the standard
// Lockable and SharedLockable requirements: take it with std::unique_lock
// and std::shared_lock, never by hand.
class CRWLock {
 public:
  CRWLock() = default;
  CRWLock(const CRWLock&) = delete;
  CRWLock& operator=(const CRWLock&) = delete;

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }
  void lock_shared() { mutex_.lock_shared(); }
  void unlock_shared() { mutex_.unlock_shared(); }
  bool try_lock_shared() { return mutex_.try_lock_shared(); }

 private:
  std::shared_mutex mutex_;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_RWLOCK_H
