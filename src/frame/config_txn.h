// Serialisation of read-modify-write cycles on a configuration file.
#ifndef OXCFG_FRAME_CONFIG_TXN_H
#define OXCFG_FRAME_CONFIG_TXN_H

#include <string>

namespace OxConfigMgr {

// Holds, for its lifetime, the exclusive right to read-modify-write one
// configuration file, against every other holder in this process (a mutex
// per file) and in other processes (OxBase::FileLock on the separate, stable
// lock file "<dir>/.<name>.lock"; a lock on the data file itself would be
// lost when the atomic rename replaces its inode). Take it before reading the
// file and keep it until the write (rename and directory fsync) is done, so
// no writer can read content that another is about to replace: two setters
// changing different values both persist.
//
// On taking the lock, the temporary files that killed writers of the file
// left behind are removed (OxBase::RemoveStaleTemporaries).
//
// When the lock file cannot be opened or locked (through the Env, so tests
// can make either fail), ok() is false, the failure is logged as
// "lock file failed, path[<lock file>],error[<errno>]", and every write of
// the file made from this thread while the transaction lives fails without
// touching it (OxBase::WriteFileAtomic answers WriteStage::kNoLock; the
// store's writers then report a failed write): nothing is ever written
// unprotected. The next transaction tries the lock again.
//
// A file is known by the path text given (callers name files through the
// store's path functions, so one file always has one spelling): the refusal
// applies to writes of exactly that text.
//
// Re-entrant on the same thread (a setter may call another setter of the
// same file); a nested transaction shares the outer one's lock and ok().
// Plain readers need no lock: files are only ever replaced whole. The
// constructor may throw std::bad_alloc; it then holds nothing.
class ConfigFileTxn {
 public:
  explicit ConfigFileTxn(const std::string& path);
  ~ConfigFileTxn();
  ConfigFileTxn(const ConfigFileTxn&) = delete;
  ConfigFileTxn& operator=(const ConfigFileTxn&) = delete;

  // True when the cross-process lock is held.
  bool ok() const;

  struct Entry;  // per-file state; public only for the process-wide table

 private:
  Entry* entry_;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_CONFIG_TXN_H
