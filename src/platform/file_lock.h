// An exclusive advisory lock between processes, held on a separate, stable
// lock file. A lock on a data file itself would be lost when an atomic rename
// replaces its inode, so writers lock "<dir>/.<name>.lock" instead.
#ifndef OXCFG_PLATFORM_FILE_LOCK_H
#define OXCFG_PLATFORM_FILE_LOCK_H

#include <string>

#include "platform/unique_fd.h"

namespace OxBase {

// Blocks until the lock on `lockPath` is held (creating the file with mode
// 0600 when needed); released by the destructor. Opening and locking go
// through Env::Current(), so tests can make either fail. When either fails
// ok() is false and error() holds the errno: the caller must not go on with
// the write it meant to protect. Not re-entrant: one holder per process and
// lock file at a time (in-process exclusion is the caller's business).
class FileLock {
 public:
  explicit FileLock(const std::string& lockPath);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool ok() const { return fd_.valid(); }
  int error() const { return error_; }

 private:
  UniqueFd fd_;
  int error_ = 0;
};

// The lock file that guards `path`: ".<name>.lock" beside it.
std::string LockPathFor(const std::string& path);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_FILE_LOCK_H
